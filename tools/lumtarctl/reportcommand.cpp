#include "tools/lumtarctl/reportcommand.h"

#include "tools/lumtarctl/resultfiles.h"
#include "tools/terminal/terminal.h"
#include "workbench/resulttext.h"

#include <QCommandLineParser>

using namespace workbench;

Expected<int> reportTest(const QCommandLineParser &options)
{
    Expected<ResultFiles> files = ResultFiles::open(options);
    if (!files)
        return tl::unexpected<Failure>(files.error());
    QVector<RecordedTest> records;
    for (const QString &path : options.positionalArguments().mid(1)) {
        const Expected<RecordedTest> record = readRecord(path);
        if (!record)
            return tl::unexpected<Failure>(record.error());
        records.append(*record);
    }
    return joined(records).and_then([&files](const RecordedTest &test) {
        const TestResult result = evaluate(*test.plan, test.record);
        sayLines(resultText(*test.plan, test.record, result, outputWidth()));
        return files->write(test, result).map([&result] { return exitStatus(result); });
    });
}
