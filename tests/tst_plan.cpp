// What the reader and the check of test plans accept, and what they say about the others.

#include "tests/testsupport.h"

#include "workbench/plancheck.h"
#include "workbench/planreader.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace testsupport;
using namespace workbench;

namespace {

/// A plan that is accepted, for the feeder bay of the examples: logic channels 0 to 5.
const char *const kGood = R"({
"title": "t", "configuration": "EXAMPLES/feeder-bay.xml",
"names": {"binaryInputs": {"5": "trip"}},
"cases": [{"name": "one",
"sequence": {"names": {"binaryInputs": {"0": "trip", "1": "start"}}, "parameters": {"I": 1}, "steps": [
{"name": "a", "time": 1, "onTimeout": "b", "outputs": {"Ia1": {"amplitude": "I", "phase": 0}}},
{"name": "b", "time": 1, "onTimeout": "end", "outputs": {}}]},
"sweep": {"parameter": "I", "values": [1, 2]},
"device": {"inputs": [{"time": 0.5, "input": "trip", "on": true}]},
"assessments": [{"name": "x", "never": {"on": "start"}}, {"name": "y", "path": ["a", "b"]}]
}]})";

/// All that is said about the plan at \a path, with its configuration.
QStringList linesOn(const QString &path)
{
    const PlanReading reading = readPlan(path);
    QVector<Remarks> all = reading.remarks;
    if (reading.plan)
        all = checkPlan(*reading.plan,
                        testconfiguration::check(
                            testconfiguration::Document::read(reading.plan->configurationPath),
                            samplesPerSecond(*reading.plan)));
    QStringList lines;
    for (const Remarks &each : all)
        lines += each.lines();
    return lines;
}

} // namespace

class TestPlanFiles : public QObject
{
    Q_OBJECT

private slots:
    void tellsProblems_data();
    void tellsProblems();
    void prefersNamesOfThePlan();
    void acceptsTheExamples();

private:
    QTemporaryDir m_directory;
    const QString m_path = m_directory.filePath(QStringLiteral("plan.json"));
};

void TestPlanFiles::tellsProblems_data()
{
    // name | text of kGood | what it is replaced with, "^" at the place of every problem | every
    // problem in the order of the places
    QTest::addColumn<QStringList>("row");
    addRows(R"(
        good | "t" | "t" |
        unknown input | {"on": "start"} | {"on": ^"strat"} | "strat" is the name of no binary input; did you mean start?
        unknown step | ["a", "b"] | ["a", ^"c"] | "c" is unknown; known here: "a", "b"
        two at once | "never": {"on": "start"} | ^"nevr": {"on": "start"}, "never": {"on": ^256} | nevr: unknown | 256 is out of range
        nothing uses it | "values": [1, 2]} | "values": [1, 2]}, "parameters": {^"J": 1} | nothing uses the parameter "J"
        out of range | [1, 2]} | [1, 1e9]} | with I = 1e+09: the sequence cannot be played with these values
        end of a long sweep | "values": [1, 2] | "from": 1, "to": 1519000, "count": 9999 | with I = 1.519e+06: the sequence cannot be played with these values
        as many | [1, 2]} | [1, 2], "with": {"J": ^[1]}} | has 1 elements; allowed is 2
        too many points | "values": [1, 2] | "from": 0, "to": 1, "step": ^1e-9 | makes more than 100000 points
        channel not fed | {"on": "start"} | {"on": ^7} | no subscription feeds logic channel 7
        stand-in not fed | "input": "trip" | "input": ^6 | no subscription feeds logic channel 6
        file is missing | "inputs": [{"time": 0.5, "input": "trip", "on": true}] | "file": ^"none.txt" | none.txt
        step not reached | "onTimeout": "b" | "onTimeout": "end" | no step leads here | the step before does not lead here
        first step | ["a", "b"] | [^"b"] | the sequence begins with its first step)");
}

void TestPlanFiles::tellsProblems()
{
    QFETCH(QStringList, row);
    QString text = QString::fromLatin1(kGood);
    QVERIFY(text.contains(row[1]) || row[1].isEmpty());
    text.replace(row[1], row[2]);
    text.replace(QLatin1String("EXAMPLES"), QFileInfo(QStringLiteral(EXAMPLES)).absoluteFilePath());
    const QStringList places = takeMarks(text);
    QVERIFY(writeFile(m_path, text.toUtf8()));
    const QStringList lines = linesOn(m_path);
    QStringList expected = row.mid(3);
    expected.removeAll(QString());
    const QString all = lines.join(QLatin1Char('\n'));
    QVERIFY2(expected.isEmpty() == lines.isEmpty(), qPrintable(all));
    for (const QString &each : expected)
        QVERIFY2(all.contains(each), qPrintable(all));
    for (const QString &each : places)
        QVERIFY2(all.contains(QLatin1Char(':') + each + QLatin1Char(':')),
                 qPrintable(each + QLatin1Char('\n') + all));
}

void TestPlanFiles::prefersNamesOfThePlan()
{
    const PlanReading reading = readPlan(kGood, m_path, {});
    QVERIFY(reading.plan);
    const TestCase &testCase = reading.plan->cases.first();
    QCOMPARE(testCase.device.events.first().channel, 5);
    QCOMPARE(testCase.names.input(0), QStringLiteral("logic channel 0"));
    QCOMPARE(testCase.names.input(1), QStringLiteral("start"));
}

void TestPlanFiles::acceptsTheExamples()
{
    for (const char *const name : {"plan.json", "too-slow.json"}) {
        const QStringList lines =
            linesOn(QStringLiteral(EXAMPLES "/feeder-test/") + QLatin1String(name));
        QVERIFY2(lines.isEmpty(), qPrintable(lines.join(QLatin1Char('\n'))));
    }
}

QTEST_GUILESS_MAIN(TestPlanFiles)
#include "tst_plan.moc"
