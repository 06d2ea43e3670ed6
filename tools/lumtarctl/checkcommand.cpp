#include "tools/lumtarctl/checkcommand.h"

#include "configuration/testconfiguration.h"
#include "tools/terminal/terminal.h"
#include "virtualboard/board/texttable.h"
#include "workbench/configurationtables.h"
#include "workbench/contradictions.h"
#include "workbench/plancheck.h"
#include "workbench/planreader.h"
#include "workbench/printabletext.h"
#include "workbench/sequencefile.h"
#include "workbench/sequencetext.h"
#include "workbench/shot.h"

#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace workbench;
using virtualboard::counted;

namespace {

const QString sequenceOption = QStringLiteral("sequence");

/// Told by what it begins with; a test configuration begins with "<".
bool isJson(const QString &path)
{
    constexpr int kEnough = 4096;
    constexpr char kMark[] = "\xef\xbb\xbf";
    const bool isCalledJson = path.endsWith(QLatin1String(".json"), Qt::CaseInsensitive);
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly)) // a pipe would be waited for
        return isCalledJson;
    QByteArray start = file.read(kEnough);
    if (start.startsWith(kMark))
        start.remove(0, int(sizeof kMark) - 1);
    start = start.trimmed();
    return start.isEmpty() ? isCalledJson : start.startsWith('{') || start.startsWith('[');
}

int exitStatus(int errors, int warnings)
{
    constexpr int kHasWarnings = 1;
    constexpr int kHasErrors = 2;
    if (errors > 0)
        return kHasErrors;
    return warnings > 0 ? kHasWarnings : 0;
}

void sayJson(const QJsonObject &report)
{
    say(QString::fromUtf8(QJsonDocument(report).toJson()).trimmed());
}

/// The sequence, if it has no errors, as a file says it, and the problems.
QJsonObject reportOn(const Sequence &sequence, const Remarks &remarks)
{
    QJsonObject report{{QStringLiteral("file"), remarks.path},
                       {QStringLiteral("problems"), remarks.toJson()},
                       {QStringLiteral("errors"), remarks.errors},
                       {QStringLiteral("warnings"), remarks.warnings}};
    if (remarks.errors == 0)
        report[QStringLiteral("content")] = QJsonDocument::fromJson(toJson(sequence)).object();
    return report;
}

void sayRemarks(const Remarks &remarks)
{
    const QStringList lines = remarks.lines();
    for (int i = 0; i < lines.size(); ++i) {
        const bool isError =
            i < remarks.shown.size() && remarks.shown[i].severity == Remarks::Remark::Error;
        say(printable(lines[i]), isError ? Tone::Bad : Tone::Doubtful);
    }
}

void sayTotal(int errors, int warnings)
{
    say(QStringLiteral(" %1, %2").arg(counted(errors, QStringLiteral("error")),
                                      counted(warnings, QStringLiteral("warning"))));
}

void sayConfiguration(const testconfiguration::CheckedConfiguration &configuration)
{
    const Remarks remarks = remarksOf(configuration);
    if (configuration.isRead())
        sayLines(toText(configuration, outputWidth())
                 + virtualboard::heading(QStringLiteral("Problems"), outputWidth()));
    sayRemarks(remarks);
    if (!remarks.isEmpty())
        say({});
    sayTotal(remarks.errors, remarks.warnings);
}

/// A test plan has cases.
bool isPlan(const QString &path)
{
    return !JsonFile(path).root().optional(QStringLiteral("cases")).isAbsent();
}

int checkSequence(const QString &path, bool asJson)
{
    JsonFile file(path);
    const Sequence sequence = readSequence(file.root());
    const Remarks remarks = file.remarks();
    if (asJson) {
        sayJson(reportOn(sequence, remarks));
    } else {
        if (remarks.errors == 0) {
            say(printable(
                QStringLiteral("%1: %2, %3 samples per second")
                    .arg(path, counted(int(sequence.steps.size()), QStringLiteral("step")))
                    .arg(sequence.samplesPerSecond())));
            sayLines(stepTexts(sequence) + QLatin1Char('\n'));
        }
        sayRemarks(remarks);
        sayTotal(remarks.errors, remarks.warnings);
    }
    return exitStatus(remarks.errors, remarks.warnings);
}

/// Of a case with its shots: "3 shots", or "search".
QString extentOf(const TestCase &testCase)
{
    return testCase.search() ? QStringLiteral("search")
                             : counted(int(countPlainShots(testCase)), QStringLiteral("shot"));
}

void sayCases(const TestPlan &plan)
{
    qint64 shots = 0;
    int searches = 0;
    for (const TestCase &each : plan.cases) {
        shots += countPlainShots(each);
        searches += each.search() ? 1 : 0;
    }
    QString head = QStringLiteral("%1: %2, %3")
                       .arg(plan.path, counted(int(plan.cases.size()), QStringLiteral("case")),
                            counted(int(shots), QStringLiteral("shot")));
    if (searches > 0)
        head += searches == 1 ? QStringLiteral(", 1 search")
                              : QStringLiteral(", %1 searches").arg(searches);
    say(printable(head));
    for (const TestCase &each : plan.cases)
        say(printable(QStringLiteral("  %1: %2").arg(each.name, extentOf(each))));
}

QJsonObject reportOn(const TestPlan &plan)
{
    QJsonArray cases;
    for (const TestCase &each : plan.cases) {
        QJsonObject entry{{QStringLiteral("name"), each.name}};
        if (!each.search())
            entry[QStringLiteral("shots")] = countPlainShots(each);
        cases.append(entry);
    }
    return {{QStringLiteral("title"), plan.title},
            {QStringLiteral("configuration"), plan.configurationPath},
            {QStringLiteral("cases"), cases}};
}

/// A test plan, with its sequences and its configuration.
int checkPlan(const QString &path, bool asJson)
{
    const PlanReading reading = readPlan(path);
    QVector<Remarks> files = reading.remarks;
    if (reading.plan) {
        const testconfiguration::CheckedConfiguration configuration = testconfiguration::check(
            testconfiguration::Document::read(reading.plan->configurationPath),
            samplesPerSecond(*reading.plan));
        files = workbench::checkPlan(*reading.plan, configuration);
        if (const Remarks remarks = remarksOf(configuration); !remarks.isEmpty())
            files.append(remarks);
    }
    int errors = 0;
    int warnings = 0;
    QJsonArray reports;
    if (reading.plan && !asJson)
        sayCases(*reading.plan);
    for (const Remarks &each : files) {
        errors += each.errors;
        warnings += each.warnings;
        reports.append(QJsonObject{{QStringLiteral("file"), each.path},
                                   {QStringLiteral("problems"), each.toJson()}});
        if (!asJson)
            sayRemarks(each);
    }
    QJsonObject report{{QStringLiteral("file"), path},
                       {QStringLiteral("problems"), reports},
                       {QStringLiteral("errors"), errors},
                       {QStringLiteral("warnings"), warnings}};
    if (reading.plan)
        report[QStringLiteral("content")] = reportOn(*reading.plan);
    if (asJson)
        sayJson(report);
    else
        sayTotal(errors, warnings);
    return exitStatus(errors, warnings);
}

int checkConfiguration(const QString &path, bool asJson)
{
    const testconfiguration::CheckedConfiguration configuration = testconfiguration::check(
        testconfiguration::Document::read(path), Sequence().samplesPerSecond());
    if (asJson)
        sayJson(toJson(configuration));
    else
        sayConfiguration(configuration);
    return exitStatus(configuration.errors, configuration.warnings);
}

/// A configuration and a sequence for it.
int checkTest(const QString &path, const QString &sequencePath, bool asJson)
{
    JsonFile file(sequencePath);
    const Sequence sequence = readSequence(file.root());
    const testconfiguration::CheckedConfiguration configuration = testconfiguration::check(
        testconfiguration::Document::read(path), sequence.samplesPerSecond());
    tellContradictions(file.root(), sequence, configuration);
    const Remarks remarks = file.remarks();
    if (asJson) {
        QJsonObject report = toJson(configuration);
        report[sequenceOption] = reportOn(sequence, remarks);
        sayJson(report);
    } else {
        sayConfiguration(configuration);
        sayRemarks(remarks);
    }
    return exitStatus(configuration.errors + remarks.errors,
                      configuration.warnings + remarks.warnings);
}

} // namespace

Expected<int> checkFile(const QCommandLineParser &options)
{
    const QString path = options.positionalArguments().value(1);
    const QString sequencePath = options.value(sequenceOption);
    const bool asJson = options.isSet(QStringLiteral("json"));
    if (!options.isSet(sequenceOption)) {
        if (!isJson(path))
            return checkConfiguration(path, asJson);
        return isPlan(path) ? checkPlan(path, asJson) : checkSequence(path, asJson);
    }
    if (isJson(path))
        return failure(Failure::Input,
                       QStringLiteral("%1: is a %2; --sequence goes with a test configuration")
                           .arg(path,
                                isPlan(path) ? QStringLiteral("test plan")
                                             : QStringLiteral("state sequence")));
    return checkTest(path, sequencePath, asJson);
}
