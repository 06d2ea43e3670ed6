// Reports of tests, from records that are made here without any board.

#include "tests/testsupport.h"

#include "workbench/planreader.h"
#include "workbench/reporthtml.h"
#include "workbench/reportpdf.h"
#include "workbench/resultdata.h"
#include "workbench/resulttext.h"
#include "workbench/testreport.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <algorithm>
#include <chrono>
#include <cmath>

using namespace testsupport;
using namespace workbench;

Q_DECLARE_METATYPE(workbench::RecordedTest)

namespace {

using std::chrono::nanoseconds;

nanoseconds time(double seconds)
{
    return nanoseconds(std::llround(seconds * 1e9));
}

/// The inputs that the stand-in of a shot gives, in the order of their times.
QVector<statusreply::Input> inputsOf(const StandIn &device, const Parameters &values)
{
    QVector<statusreply::Input> inputs;
    for (const StandIn::Event &each : device.events) {
        const double value = each.condition ? values.value(each.condition->parameter) : 0;
        if (each.condition && (value < each.condition->atLeast || value >= each.condition->below))
            continue;
        statusreply::Input input;
        input.kind = each.on ? statusreply::Input::On : statusreply::Input::Off;
        input.channel = each.channel;
        input.time = time(each.time.in(values));
        inputs.append(input);
    }
    std::stable_sort(inputs.begin(), inputs.end(),
                     [](const auto &a, const auto &b) { return a.time < b.time; });
    return inputs;
}

/// Walks through the steps as a board does: an input that comes ends a step that waits for one, at
/// the next sample.
ShotRecord played(const TestPlan &plan, const Shot &shot)
{
    const Sequence sequence = plan.sequence(shot.caseNumber, shot.values).value();
    const nanoseconds interval(1000000000 / sequence.samplesPerSecond());
    ShotRecord record;
    record.shot = shot;
    Observation &seen = record.observation;
    seen.stepNames = sequence.names();
    const QVector<statusreply::Input> inputs =
        inputsOf(plan.cases[shot.caseNumber].device, shot.values);
    statusreply::Change change;
    change.entered = 0;
    seen.changes.append(change);
    int next = 0;
    while (change.entered != statusreply::kNoStep) {
        const SequenceStep &step = sequence.steps[change.entered];
        const nanoseconds end = change.entryTime + step.time;
        while (next < inputs.size() && inputs[next].time < change.entryTime)
            ++next;
        int by = next;
        while (by < inputs.size() && inputs[by].kind != statusreply::Input::On)
            ++by;
        const bool byInput = step.onBinaryInput && by < inputs.size() && inputs[by].time < end;
        change.left = change.entered;
        change.entered = byInput ? *step.onBinaryInput : step.onTimeout;
        if (change.entered == Sequence::kEnd)
            change.entered = statusreply::kNoStep;
        change.cause = byInput ? statusreply::Change::BinaryInput : statusreply::Change::Time;
        change.channel = byInput ? inputs[by].channel : statusreply::kNoChannel;
        change.causeTime = byInput ? inputs[by].time : end;
        change.entryTime = byInput ? (change.causeTime / interval + 1) * interval : end;
        next = byInput ? by + 1 : next;
        seen.changes.append(change);
    }
    record.end.playing = statusreply::State::Finished;
    record.end.totalTime = change.entryTime;
    for (const statusreply::Input &each : inputs) {
        if (each.time < change.entryTime)
            seen.inputs.append(each);
    }
    return record;
}

/// Plays all cases of \a plan.
RecordedTest played(const std::shared_ptr<const TestPlan> &plan)
{
    RecordedTest test;
    test.plan = plan;
    test.record.program = QStringLiteral("lumtarctl 0");
    test.record.board = QStringLiteral("software board in virtual time");
    test.record.sources = plan->sources;
    test.record.configuration = {plan->configuration, QByteArray(64, '0')};
    for (int number = 0; number < plan->cases.size(); ++number) {
        for (const Shot &shot : plainShots(*plan, number))
            test.record.shots.append(played(*plan, shot));
        const Search *const search = plan->cases[number].search();
        if (!search)
            continue;
        ThresholdSearch threshold(search->settings);
        for (int i = 0; threshold.next(); ++i) {
            test.record.shots.append(
                played(*plan, searchShot(*plan, number, i, *threshold.next())));
            threshold.take(evaluate(*plan, test.record.shots.last()).operated);
        }
    }
    return test;
}

/// A case for each outcome.
const QByteArray outcomePlan = R"({
  "title": "One of each",
  "configuration": "../feeder-bay.xml",
  "names": { "binaryInputs": { "0": "trip A", "1": "trip B" } },
  "cases": [
    { "name": "in time", "sequence": "fault.json", "repetitions": 2,
      "device": { "inputs": [ { "time": 0.52, "input": "trip A", "on": true } ] }, TIME },
    { "name": "too late", "sequence": "fault.json",
      "device": { "inputs": [ { "time": 0.545, "input": "trip A", "on": true } ] }, TIME },
    { "name": "untrusted", "sequence": "fault.json",
      "device": { "inputs": [ { "time": 0.52, "input": "trip A", "on": true } ] }, TIME },
    { "name": "nothing to measure", "sequence": "fault.json", "assessments": [ { "name":
      "reset time", "time": { "from": { "on": "trip B" }, "to": { "off": "trip B" } } } ] },
    { "name": "one of two", "sequence": "fault.json",
      "sweep": { "parameter": "I", "values": [2, 4] },
      "device": { "inputs": [ { "time": 0.52, "input": "trip A", "on": true } ] }, TIME },
    { "name": "never begun", "sequence": "fault.json", TIME },
    { "name": "search", "sequence": "pick-up.json",
      "device": { "inputs": [
        { "time": 0.320, "input": "trip A", "on": true, "if": { "parameter": "Itest", "atLeast": 1 } }
      ] },
      "search": { "parameter": "Itest", "from": 0.5, "to": 2, "resolution": 0.1, "unit": "A",
        "pickUp": { "event": { "on": "trip A" }, "in": "test", "nominal": 1, "tolerance": 0.2 } } }
  ]
})";

const QString noAnswer = QStringLiteral("the board does not answer");
const QString notBegun = QStringLiteral("the test was interrupted");

enum OutcomeCase { InTime, TooLate, Untrusted, NothingToMeasure, OneOfTwo, NeverBegun, Broken };

/// The plan above, as it goes where a board misses its time, loses inputs and at last is gone.
RecordedTest troubled()
{
    const QByteArray time = R"("assessments": [ { "name": "operate time", "time": { "from":
        { "enter": "fault" }, "to": { "on": "trip A" }, "is": "operate", "atMost": 0.03 } } ])";
    const QString path = QStringLiteral(EXAMPLES) + QStringLiteral("/feeder-test/outcomes.json");
    const auto files = [](const QString &name) -> Expected<QByteArray> {
        QFile file(QStringLiteral(EXAMPLES) + QStringLiteral("/feeder-test/") + name);
        if (!file.open(QIODevice::ReadOnly))
            return failure(Failure::Input, file.errorString());
        return file.readAll();
    };
    RecordedTest test =
        played(readPlan(QByteArray(outcomePlan).replace("TIME", time), path, files).plan);
    test.record.played = QStringLiteral("2026-01-02T03:04:05Z");
    test.record.interrupted = true;
    int searched = 0;
    for (ShotRecord &each : test.record.shots) {
        const int number = each.shot.caseNumber;
        if (number == Untrusted)
            each.observation.changes[2].disturbances = statusreply::Change::SentLate;
        else if (number == OneOfTwo && each.shot.point == 1)
            each.error = noAnswer;
        else if (number == NeverBegun || (number == Broken && ++searched > 3))
            each = {each.shot, {}, notBegun, {}, {}, {}};
    }
    return test;
}

/// \a test without the cases that \a isKept refuses.
template <typename IsKept>
RecordedTest part(RecordedTest test, IsKept isKept)
{
    QVector<ShotRecord> &shots = test.record.shots;
    shots.erase(std::remove_if(shots.begin(), shots.end(),
                               [&](const ShotRecord &each) { return !isKept(each); }),
                shots.end());
    return test;
}

} // namespace

class TestReport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void refusesCutRecords();
    void givesSameResultAgain();
    void keepsNamesTexts_data();
    void keepsNamesTexts();
    void printsPages();
    void tellsOutcomes_data();
    void tellsOutcomes();
    void countsOutcomes();
    void givesExitStatus_data();
    void givesExitStatus();
    void joinsParts_data();
    void joinsParts();

private:
    /// What \a program prints that works in #m_directory.
    QByteArray outputOf(const QString &program, const QStringList &arguments, int *status);

    RecordedTest m_test;
    RecordedTest m_troubled;
    QTemporaryDir m_directory;
};

void TestReport::initTestCase()
{
    const PlanReading reading =
        readPlan(QStringLiteral(EXAMPLES) + QStringLiteral("/feeder-test/plan.json"));
    QVERIFY(reading.plan);
    m_test = played(reading.plan);
    QVERIFY(m_test.record.shots.size() > 30);
    m_troubled = troubled();
}

/// Whatever is missing at its end.
void TestReport::refusesCutRecords()
{
    const QByteArray whole = toJson(m_test.record);
    const QString path = m_directory.filePath(QStringLiteral("cut.json"));
    constexpr int kStep = 4999;
    for (int length = 0; length < whole.trimmed().size(); length += kStep) {
        QVERIFY(writeFile(path, whole.left(length)));
        QVERIFY2(!readRecord(path), QByteArray::number(length).constData());
    }
    QByteArray changed = whole;
    changed.replace("\"causeTime\": 526000000", "\"causeTime\": 516000000");
    QVERIFY(changed != whole);
    QVERIFY(writeFile(path, changed));
    const Expected<RecordedTest> read = readRecord(path);
    QVERIFY(!read);
    QVERIFY2(read.error().message.contains(QLatin1String("changed since it was written")),
             qPrintable(read.error().message));
}

void TestReport::givesSameResultAgain()
{
    const QString path = m_directory.filePath(QStringLiteral("record.json"));
    const auto isFew = [](const ShotRecord &each) { return each.shot.caseNumber >= OneOfTwo; };
    const RecordedTest test = part(m_troubled, isFew);
    QVERIFY(writeFile(path, toJson(test.record)));
    const RecordedTest again = readRecord(path).value();
    const TestResult first = evaluate(*test.plan, test.record);
    const TestResult second = evaluate(*again.plan, again.record);
    QCOMPARE(toHtml(reportOf(again, second)), toHtml(reportOf(test, first)));
    QCOMPARE(toPdf(reportOf(again, second)), toPdf(reportOf(test, first)));
    QCOMPARE(toResultJson(again, second), toResultJson(test, first));
    QCOMPARE(toResultJUnit(again, second), toResultJUnit(test, first));
}

void TestReport::keepsNamesTexts_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("shown");
    const auto same = [](const char *row, const QString &name) {
        QTest::newRow(row) << name << name;
    };
    same("element", QStringLiteral("<script>alert(1)</script>"));
    same("end of an attribute", QStringLiteral("\"><img src='x'/>"));
    same("entity", QStringLiteral("&lt; &#0; &"));
    same("end of the style", QStringLiteral("</style></head>]]>"));
    same("percent", QStringLiteral("%1 %2 %s"));
    same("Chinese", QString::fromUtf8("距离保护"));
    QTest::newRow("from right to left")
        << QString(QChar(0x202e)) + QStringLiteral("dessap") << QStringLiteral("?dessap");
    QTest::newRow("half a pair") << QString(QChar(0xd800)) + QStringLiteral("a")
                                 << QStringLiteral("?a");
}

/// As a title, in which a plan may have anything.
void TestReport::keepsNamesTexts()
{
    QFETCH(QString, name);
    QFETCH(QString, shown);
    Report report;
    report.title = name;
    ReportTable table;
    table.headings = QStringList{name};
    table.rows = {{name}};
    report.blocks = {ReportHeading{1, name, Verdict::Failed, name}, ReportParagraph{name, {}},
                     table, ReportPictures{{QSize(9, 9), [](QPainter &, const QRectF &) {}, name}}};
    QXmlStreamReader xml(toHtml(report));
    QStringList elements;
    int texts = 0;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement())
            elements += xml.name().toString();
        texts += int(xml.isCharacters() && xml.text() == shown);
        if (xml.isStartElement() && xml.name() == QLatin1String("img"))
            QCOMPARE(xml.attributes().value(QLatin1String("alt")).toString(), shown);
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    QVERIFY(texts >= 5); // title, heading, paragraph, head, cell
    QCOMPARE(
        elements.join(QLatin1Char(' ')),
        QStringLiteral("html head meta meta title style body h1 span p table thead tr th tbody "
                       "tr td div figure img figcaption p"));
}

QByteArray TestReport::outputOf(const QString &program, const QStringList &arguments, int *status)
{
    QProcess process;
    process.setWorkingDirectory(m_directory.path());
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStandardPaths::findExecutable(program), arguments);
    if (!process.waitForFinished())
        return "the program does not end";
    *status = process.exitCode();
    return process.readAll();
}

void TestReport::printsPages()
{
    if (QStandardPaths::findExecutable(QStringLiteral("pdftotext")).isEmpty())
        QSKIP("pdftotext is not installed: what pages show is not checked");
    const TestResult result = evaluate(*m_test.plan, m_test.record);
    QCOMPARE(exitStatus(result), 0);
    QVERIFY(writeFile(m_directory.filePath(QStringLiteral("report.pdf")),
                      toPdf(reportOf(m_test, result))));
    int status = -1;
    const QStringList pages =
        QString::fromUtf8(outputOf(QStringLiteral("pdftotext"),
                                   {QStringLiteral("report.pdf"), QStringLiteral("-")}, &status))
            .split(QLatin1Char('\f'));
    QCOMPARE(status, 0);
    const int count = int(pages.size()) - 1; // each ends with a form feed
    QVERIFY(count > 10);
    QVERIFY(pages[0].contains(QLatin1String("11 cases, 41 shots: 11 passed")));
    QVERIFY(pages[count - 1].contains(QStringLiteral("%1 of %1").arg(count)));
    for (int i = 0; i < count; ++i) {
        QString text = pages[i].simplified();
        text.remove(m_test.plan->title).remove(QStringLiteral("%1 of %2").arg(i + 1).arg(count));
        QVERIFY2(text.simplified().size() > 100, qPrintable(pages[i]));
    }
    const QString all = pages.join(QLatin1Char(' '))
                            .normalized(QString::NormalizationForm_KC) // no ligatures
                            .simplified();
    for (const TestCase &each : m_test.plan->cases)
        QVERIFY2(all.count(each.name) >= 1, qPrintable(each.name));
    for (const QString &text : {QStringLiteral("26.000 ms"), QStringLiteral("1741.000 ms"),
                                QStringLiteral("1.0127 A"), QStringLiteral("dropped off")})
        QVERIFY2(all.contains(text), qPrintable(text));
}

void TestReport::tellsOutcomes_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("element"); // of the case, for build servers
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *name, int number, const char *outcome, const char *element,
                        const QString &reason) {
        QTest::newRow(name) << number << QString::fromLatin1(outcome)
                            << QString::fromLatin1(element) << reason;
    };
    row("passed", InTime, "passed", "", QString());
    row("failed", TooLate, "failed", "failure",
        QStringLiteral("came 45.000 ms after entry into step fault; allowed is at most 30.000 ms"));
    row("doubtful", Untrusted, "doubtful", "error", QStringLiteral("; doubtful: "));
    row("not measured", NothingToMeasure, "not measured", "error", QStringLiteral("did not come"));
    row("an error in a sweep", OneOfTwo, "not measured", "error",
        QStringLiteral("operate time, I = 4: the board does not answer"));
    row("skipped", NeverBegun, "not played", "skipped", notBegun);
    row("search broken off", Broken, "not measured", "error",
        QStringLiteral("pick-up: the search was broken off: the test was interrupted"));
}

void TestReport::tellsOutcomes()
{
    QFETCH(int, number);
    QFETCH(QString, outcome);
    QFETCH(QString, element);
    QFETCH(QString, reason);
    const auto isIt = [=](const ShotRecord &each) { return each.shot.caseNumber == number; };
    const RecordedTest test = part(m_troubled, isIt);
    const TestResult result = evaluate(*test.plan, test.record);
    QCOMPARE(result.cases.size(), 1);
    const CaseResult &one = result.cases[0];
    QVERIFY2(one.reason.contains(reason), qPrintable(one.reason));
    QVERIFY(one.reason.isEmpty() == (outcome == QLatin1String("passed")));

    const QString name = test.plan->cases[number].name;
    const QString text = resultText(*test.plan, test.record, result, 80);
    QVERIFY2(text.startsWith(outcome + QLatin1Char(' ')), qPrintable(text));
    QVERIFY2(text.simplified().contains(one.reason), qPrintable(text));
    for (const QString &line : text.split(QLatin1Char('\n')))
        QVERIFY2(line.size() <= 80, qPrintable(line));

    QXmlStreamReader html(toHtml(reportOf(test, result)));
    QStringList headings;
    while (!html.atEnd()) {
        if (html.readNext() == QXmlStreamReader::StartElement && html.name() == QLatin1String("h2"))
            headings += html.readElementText(QXmlStreamReader::IncludeChildElements).simplified();
    }
    QVERIFY2(!html.hasError(), qPrintable(html.errorString()));
    QCOMPARE(headings, QStringList(QStringLiteral("%1 %2 %3").arg(number + 1).arg(name, outcome)));

    QXmlStreamReader junit(toResultJUnit(test, result));
    QString found;
    while (!junit.atEnd()) {
        if (junit.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QString here = junit.name().toString();
        if (here == QLatin1String("failure") || here == QLatin1String("error")
            || here == QLatin1String("skipped"))
            found += here;
    }
    QCOMPARE(found, element);
}

void TestReport::countsOutcomes()
{
    const TestResult result = evaluate(*m_troubled.plan, m_troubled.record);
    QVERIFY2(totalText(result).endsWith(
                 QLatin1String("1 passed, 1 failed, 1 doubtful, 3 not measured, 1 not played")),
             qPrintable(totalText(result)));
    const QByteArray html = toHtml(reportOf(m_troubled, result));
    QVERIFY(html.contains("The test was broken off"));
    if (QStandardPaths::findExecutable(QStringLiteral("xmllint")).isEmpty())
        QSKIP("xmllint is not installed: results for build servers are not checked");
    QVERIFY(writeFile(m_directory.filePath(QStringLiteral("junit.xml")),
                      toResultJUnit(m_troubled, result)));
    int status = -1;
    const QByteArray remarks =
        outputOf(QStringLiteral("xmllint"),
                 {QStringLiteral("--nonet"), QStringLiteral("--noout"), QStringLiteral("--schema"),
                  QFINDTESTDATA("junit.xsd"), QStringLiteral("junit.xml")},
                 &status);
    QVERIFY2(status == 0, remarks.constData());
    const QString sums = QStringLiteral("concat(//testsuite/@tests, ' ', //testsuite/@failures, "
                                        "' ', //testsuite/@errors, ' ', //testsuite/@skipped)");
    QCOMPARE(outputOf(QStringLiteral("xmllint"),
                      {QStringLiteral("--xpath"), sums, QStringLiteral("junit.xml")}, &status)
                 .trimmed(),
             QByteArray("7 1 4 1"));
}

void TestReport::givesExitStatus_data()
{
    QTest::addColumn<QVector<int>>("cases");
    QTest::addColumn<int>("status");
    QTest::newRow("passed") << QVector<int>{InTime} << 0;
    QTest::newRow("failed, whatever else") << QVector<int>{InTime, TooLate, Untrusted, Broken} << 3;
    QTest::newRow("doubtful") << QVector<int>{InTime, Untrusted} << 4;
    QTest::newRow("not measured") << QVector<int>{InTime, NothingToMeasure} << 4;
    QTest::newRow("an error") << QVector<int>{InTime, OneOfTwo} << 4;
    QTest::newRow("not played") << QVector<int>{InTime, NeverBegun} << 4;
    QTest::newRow("nothing at all") << QVector<int>{} << 4;
}

void TestReport::givesExitStatus()
{
    QFETCH(QVector<int>, cases);
    QFETCH(int, status);
    const RecordedTest test = part(
        m_troubled, [&](const ShotRecord &each) { return cases.contains(each.shot.caseNumber); });
    QCOMPARE(exitStatus(evaluate(*test.plan, test.record)), status);
}

void TestReport::joinsParts_data()
{
    QTest::addColumn<RecordedTest>("one");
    QTest::addColumn<RecordedTest>("other");
    QTest::addColumn<QString>("refusal");
    const auto odd = [](const ShotRecord &each) { return each.shot.caseNumber % 2 == 1; };
    const auto even = [](const ShotRecord &each) { return each.shot.caseNumber % 2 == 0; };
    const RecordedTest first = part(m_troubled, odd);
    const RecordedTest second = part(m_troubled, even);
    QTest::newRow("in any order") << first << second << QString();
    QTest::newRow("the same case") << second << second << QStringLiteral("the case \"in time\"");
    const auto isShot = [](int repetition) {
        return [repetition](const ShotRecord &each) {
            return each.shot.caseNumber == InTime && each.shot.repetition == repetition;
        };
    };
    QTest::newRow("other shots of the same case")
        << part(m_troubled, isShot(0)) << part(m_troubled, isShot(1))
        << QStringLiteral("the case \"in time\"");
    QTest::newRow("another plan") << first << m_test << QStringLiteral("of different plans");
    RecordedTest changed = second;
    changed.record.configuration.sha256 = QByteArray(64, '1');
    QTest::newRow("another configuration")
        << first << changed << QStringLiteral("of different plans");
    changed = second;
    changed.record.board = QStringLiteral("the board at 10.0.0.1");
    QTest::newRow("another board") << first << changed << QStringLiteral("different boards");
}

void TestReport::joinsParts()
{
    QFETCH(RecordedTest, one);
    QFETCH(RecordedTest, other);
    QFETCH(QString, refusal);
    const Expected<RecordedTest> both = joined({one, other});
    QVERIFY2(bool(both) == refusal.isEmpty(), both ? "joined" : qPrintable(both.error().message));
    if (both)
        QCOMPARE(toJson(both->record), toJson(m_troubled.record));
    else
        QVERIFY2(both.error().message.contains(refusal), qPrintable(both.error().message));
}

QTEST_MAIN(TestReport)

#include "tst_report.moc"
