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

private:
    RecordedTest m_test;
    QTemporaryDir m_directory;
};

void TestReport::initTestCase()
{
    const PlanReading reading =
        readPlan(QStringLiteral(EXAMPLES) + QStringLiteral("/feeder-test/plan.json"));
    QVERIFY(reading.plan);
    m_test = played(reading.plan);
    QVERIFY(m_test.record.shots.size() > 30);
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
    QVERIFY(writeFile(path, toJson(m_test.record)));
    const RecordedTest again = readRecord(path).value();
    const TestResult first = evaluate(*m_test.plan, m_test.record);
    const TestResult second = evaluate(*again.plan, again.record);
    QCOMPARE(exitStatus(first), 0);
    QCOMPARE(toHtml(reportOf(again, second)), toHtml(reportOf(m_test, first)));
    QCOMPARE(toPdf(reportOf(again, second)), toPdf(reportOf(m_test, first)));
    QCOMPARE(toResultJson(again, second), toResultJson(m_test, first));
    QCOMPARE(toResultJUnit(again, second), toResultJUnit(m_test, first));
    QVERIFY(!joined({again, again})); // all cases twice
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

void TestReport::printsPages()
{
    const QString pdftotext = QStandardPaths::findExecutable(QStringLiteral("pdftotext"));
    if (pdftotext.isEmpty())
        QSKIP("pdftotext is not installed: what pages show is not checked");
    const QString path = m_directory.filePath(QStringLiteral("report.pdf"));
    QVERIFY(writeFile(path, toPdf(reportOf(m_test, evaluate(*m_test.plan, m_test.record)))));
    QProcess process;
    process.start(pdftotext, {path, QStringLiteral("-")});
    QVERIFY(process.waitForFinished());
    const QStringList pages =
        QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\f'));
    const int count = int(pages.size()) - 1; // each ends with a form feed
    QVERIFY(count > 10);
    QVERIFY(pages[0].contains(QLatin1String("11 cases, 41 shots: 11 passed")));
    QVERIFY(pages[count - 1].contains(QStringLiteral("%1 of %1").arg(count)));
    const QString all = pages.join(QLatin1Char(' '))
                            .normalized(QString::NormalizationForm_KC) // no ligatures
                            .simplified();
    for (const TestCase &each : m_test.plan->cases)
        QVERIFY2(all.count(each.name) >= 1, qPrintable(each.name));
    for (const QString &text : {QStringLiteral("26.000 ms"), QStringLiteral("1741.000 ms"),
                                QStringLiteral("1.0127 A"), QStringLiteral("dropped off")})
        QVERIFY2(all.contains(text), qPrintable(text));
}

QTEST_MAIN(TestReport)

#include "tst_report.moc"
