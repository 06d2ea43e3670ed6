#include "tools/lumtarctl/plannedtest.h"

#include "workbench/configurationtables.h"
#include "workbench/plancheck.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace workbench;

namespace {

/// SHA-256 of a file, hexadecimal; empty if it cannot be read.
QByteArray digestOf(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result().toHex()
                                                                 : QByteArray();
}

Expected<void> expectNoErrors(const testconfiguration::CheckedConfiguration &configuration)
{
    for (const testconfiguration::Remark &each : configuration.remarks) {
        if (each.severity == testconfiguration::Remark::Error)
            return failure(Failure::Input, toString(each, configuration.document.path()));
    }
    return {};
}

/// Fails with all that is wrong with the first file that has errors.
Expected<void> expectSound(const QVector<Remarks> &remarks)
{
    for (const Remarks &each : remarks) {
        if (const Expected<void> sound = each.expectNoErrors(); !sound)
            return sound;
    }
    return {};
}

} // namespace

QByteArray PlannedTest::digest() const
{
    QByteArray all = configurationDigest;
    for (const TestPlan::Source &each : plan->sources)
        all += each.sha256;
    return QCryptographicHash::hash(all, QCryptographicHash::Sha256).toHex();
}

QStringList PlannedTest::changedFiles() const
{
    QStringList changed;
    const QDir folder = QFileInfo(plan->path).dir();
    for (int i = 0; i < int(plan->sources.size()); ++i) {
        const QString path = i == 0 ? plan->path : folder.filePath(plan->sources[i].path);
        if (digestOf(path) != plan->sources[i].sha256)
            changed += path;
    }
    if (digestOf(plan->configurationPath) != configurationDigest)
        changed += plan->configurationPath;
    return changed;
}

Expected<PlannedTest> readPlannedTest(const QString &path)
{
    const PlanReading reading = readPlan(path);
    if (const Expected<void> sound = expectSound(reading.remarks); !sound)
        return tl::unexpected<Failure>(sound.error());
    PlannedTest test;
    test.plan = reading.plan;
    test.configurationDigest = digestOf(test.plan->configurationPath);
    test.configuration =
        testconfiguration::check(testconfiguration::Document::read(test.plan->configurationPath),
                                 samplesPerSecond(*test.plan));
    return expectNoErrors(test.configuration).map([&test] { return test; });
}

Expected<QStringList> expectPlayable(const PlannedTest &test)
{
    const QVector<Remarks> remarks = checkPlan(*test.plan, test.configuration);
    return expectSound(remarks).map([&remarks] {
        QStringList warnings;
        for (const Remarks &each : remarks)
            warnings += each.lines();
        return warnings;
    });
}
