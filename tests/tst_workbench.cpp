// The workbench without a program around it: sequence files, the run of a test over the link, and
// what is told about it.

#include "tests/testsupport.h"

#include "virtualboard/board/linkresponder.h"
#include "workbench/sequencefile.h"
#include "workbench/sequencetext.h"
#include "workbench/testrun.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace std::chrono_literals;
using namespace testsupport;
using namespace virtualboard;
using namespace workbench;

namespace {

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestWorkbench : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void writesWhatItReads_data();
    void writesWhatItReads();
    void refusesSequenceFiles_data();
    void refusesSequenceFiles();
    void readsParameters_data();
    void readsParameters();
    void tellsDoubts_data();
    void tellsDoubts();
    void tellsAllErrorsOfATest();
    void sendsWhatASequenceSays_data();
    void sendsWhatASequenceSays();
    void jumpsWhereThePhaseDoes_data();
    void jumpsWhereThePhaseDoes();
    void sendsAsTheEngineDoes_data();
    void sendsAsTheEngineDoes();
    void sendsNothingMore_data();
    void sendsNothingMore();
    void tellsHowFarItIs();
    void tellsWhatHappened();

private:
    workbench::Expected<void> loadAndExecute(const TestRun::ShowTransfer &show = [](auto &&...) {});

    SingleRun m_singleRun;
    QTemporaryDir m_directory; ///< copies of the examples, which a test may spoil
    const QString m_config = m_directory.filePath(QStringLiteral("config.xml"));
    const QString m_sequence = m_directory.filePath(QStringLiteral("sequence.json"));
    std::unique_ptr<LinkResponder> m_board;
    std::function<bool()> m_isInterrupted;
};

void TestWorkbench::init()
{
    QVERIFY(writeFile(m_config, content(QFINDTESTDATA("../examples/feeder-bay.xml"))));
    QVERIFY(writeFile(m_sequence, content(QFINDTESTDATA("../examples/earth-fault.json"))));
    m_board = std::make_unique<LinkResponder>(boardAddress());
    QCOMPARE(testsupport::failure(m_board->start()), QString());
    m_isInterrupted = nullptr;
}

workbench::Expected<void> TestWorkbench::loadAndExecute(const TestRun::ShowTransfer &show)
{
    const DebugLines silence;
    const workbench::Expected<PreparedTest> test = prepareTest(m_config, m_sequence);
    if (!test)
        return tl::unexpected<Failure>(test.error());
    BoardSession session;
    session.isInterrupted = m_isInterrupted;
    TestRun run(session, *test, show);
    return session.open(boardAddress(), localPort())
        .and_then([&] { return run.load(); })
        .and_then([&] { return run.execute(); });
}

/// With everything that a sequence file can say, as it is written.
constexpr const char *kEverything = R"({
  "description": "\"all\" 间隔",
  "names": {
    "binaryInputs": { "0": "trip A", "255": "间 \"2\"" },
    "binaryOutputs": { "1": "CB closed" }
  },
  "settings": {
    "nominalFrequency": 60,
    "samplesPerCycle": 256,
    "svResolution": "1 V, 1 A",
    "amplitudes": "peak",
    "dualAD": true,
    "ratios": { "voltage": 1100, "current": 600 }
  },
  "steps": [
    {
      "name": "间\n1",
      "time": 0.001,
      "onTimeout": "2",
      "onBinaryInput": "end",
      "onTrigger": { "trigger": 255, "goTo": "2" },
      "conditionFlags": 247,
      "stepOption": 1,
      "binaryOutputs": [false, true, false, true],
      "outputs": {
        "Va1": { "amplitude": 57.735, "phase": -120.1, "frequency": 7679.9, "phaseJump": 0.001 },
        "In1": { "amplitude": 0, "phase": 360 }
      }
    },
    {
      "name": "2",
      "time": 65.535,
      "onTimeout": "end",
      "outputs": {}
    }
  ]
}
)";

void TestWorkbench::writesWhatItReads_data()
{
    QTest::addColumn<QByteArray>("json");
    // The example writes some of the defaults down.
    QTest::newRow("example") << content(QFINDTESTDATA("../examples/earth-fault.json"))
                                    .replace(R"("nominalFrequency": 50,)", "")
                                    .replace(R"("samplesPerCycle": 80,)", "")
                                    .replace(R"("svResolution": "0.01 V, 0.001 A",)", "")
                                    .replace(R"("amplitudes": "RMS",)", "");
    QTest::newRow("everything") << QByteArray(kEverything);
    const QByteArray only = R"({"steps": [{"name": "x", "time": 1, "onTimeout": "x", "outputs": {)";
    QTest::newRow("nothing") << only + "}}]}";
    QTest::newRow("second output, small number, negative zero")
        << only + R"("Va2": {"amplitude": 1e-7, "phase": -0.0}}}]})";
    QTest::newRow("frequency that is the nominal one")
        << only + R"("Ia1": {"amplitude": 0.1, "phase": 1, "frequency": 50}}}]})";
    QTest::newRow("largest amplitude")
        << only + R"("Ia1": {"amplitude": 1518504.0, "phase": 1}}}]})";
}

void TestWorkbench::writesWhatItReads()
{
    QFETCH(QByteArray, json);
    QVERIFY(writeFile(m_sequence, json));
    const workbench::Expected<Sequence> sequence = readSequence(m_sequence);
    QVERIFY2(sequence, sequence ? "" : qPrintable(sequence.error().message));
    QVERIFY(writeSequence(*sequence, m_sequence));
    const QByteArray written = content(m_sequence);
    QCOMPARE(QJsonDocument::fromJson(written), QJsonDocument::fromJson(json));
    if (json == kEverything)
        QCOMPARE(written, json); // in the order of the documentation, and readable
    QVERIFY(!writeSequence(*sequence, m_directory.path()));
}

void TestWorkbench::refusesSequenceFiles_data()
{
    // name | text of the example | what it is replaced with | part of the message
    addRows(R"(
        missing comma | "time": 1, | "time": 1 | :16:8: error: unterminated object
        not a number | 8.0 | NaN | :38:31: error: illegal number
        infinite | 8.0 | 1e999 | :38:
        text for a number | 8.0 | "8" | steps[1].outputs.Ia1.amplitude (fault): must be a number, not a text
        negative | 8.0 | -8 | steps[1].outputs.Ia1.amplitude (fault): -8 is out of range; allowed is 0 to 1518504
        beyond the counts of a stream | 8.0 | 1518505 | Ia1.amplitude (fault): 1518505 is out of range
        list for an object | { "amplitude": 8.0, "phase": -75 } | [8, -75] | steps[1].outputs.Ia1 (fault): must be an object, not a list
        beyond 16 bits of ms | "time": 1 | "time": 66 | steps[0].time (prefault): 66 is out of range; allowed is 0 to 65.535
        one ms more | "time": 1 | "time": 65.536 | steps[0].time (prefault): 65.536 is out of range; allowed is 0 to 65.535
        comment | "time": 1, | "time": 1, // s | :15:18: error: JSON has no comments
        decimal comma | "time": 1, | "time": 0,08, | :15:16: error: a decimal comma
        leading zero | "time": 1, | "time": 08, | :15:15: error: a number with a leading zero
        apostrophes | "time": 1, | 'time': 1, | :15:7: error: texts stand in double quotation marks
        comma at the end | "Vn1": | "Vn1": {"amplitude": 1,}, "Va2": | a comma with nothing behind it
        half milliseconds | "time": 1 | "time": 0.0805 | steps[0].time (prefault): 0.0805 s is no whole number of milliseconds
        key misspelt | "time": 1 | "tiem": 1 | steps[0].tiem (prefault): unknown; known here: "name", "time"
        suggestion of a key | "time": 1 | "tiem": 1 | did you mean time?
        suggestion of an output | "Vn1" | "Vnl" | did you mean Vn1?
        suggestion of a step | "onTimeout": "trip" | "onTimeout": "tripp" | did you mean trip?
        key missing | "time": 1, | | steps[0] (prefault): "time" is missing
        key twice | "Vn1" | "Va1" | :37:9: error: "Va1" is given twice
        no such output | "Vn1" | "Vx1" | steps[1].outputs.Vx1 (fault): unknown
        mirrored output | "Vn1" | "Vn2" | steps[1].outputs.Vn2 (fault): mirrors Vn1
        two steps of one name | "name": "trip" | "name": "fault" | steps[2].name: "fault" names an earlier step too
        a step called end | "name": "trip" | "name": "end" | steps[2].name: "end" names the end of the sequence
        no such step | "onTimeout": "trip" | "onTimeout": "tripped" | steps[1].onTimeout (fault): "tripped" is unknown
        three binary outputs | false, true] | true] | steps[4].binaryOutputs (reclose): has 3 elements; allowed is 4
        six steps | "steps": [ | "steps": [{}, | steps: has 6 elements; allowed is 1 to 5
        flag 8 | "time": 1 | "conditionFlags": 12, "time": 1 | steps[0].conditionFlags (prefault): flag 8 is set by onBinaryInput alone
        odd ratio | "RMS" | "RMS", "ratios": {"voltage": 1101, "current": 1} | settings.ratios.voltage: 1101 is not a multiple of 10
        interval of one byte | Cycle": 80 | Cycle": 78 | settings: 50 Hz times 78 samples per cycle are 3900 samples per second; allowed is 3915 to 65535
        beyond 32 bits | Cycle": 80 | Cycle": 65536 | samplesPerCycle: 65536 is out of range; allowed is 1 to 65535
        counter of 16 bits | Cycle": 80 | Cycle": 1311 | settings: 50 Hz times 1311 samples per cycle are 65550
        )");
}

void TestWorkbench::refusesSequenceFiles()
{
    QFETCH(QStringList, row);
    const QString good = QString::fromUtf8(content(m_sequence));
    QVERIFY2(good.contains(row[1]), "the example has changed");
    QVERIFY(writeFile(m_sequence, QString(good).replace(row[1], row[2]).toUtf8()));
    const workbench::Expected<Sequence> sequence = readSequence(m_sequence);
    QVERIFY(!sequence && sequence.error().kind == Failure::Input);
    const QStringList messages = QStringList{sequence.error().message} + sequence.error().others;
    const QString all = messages.join(QLatin1Char('\n'));
    QVERIFY2(all.startsWith(m_sequence + QLatin1Char(':')) && all.contains(row[3]),
             qPrintable(all));
}

void TestWorkbench::readsParameters_data()
{
    // name | parameters | amplitude | phase, "^" before what is refused | value given, "I=2" |
    // amplitude and phase, or the problem
    addRows(R"(
        default | {"I": 5} | "I" | 0 | | 5 0
        value given | {"I": 5} | "I" | 0 | I=2.5 | 2.5 0
        factor | {"I": 5, "phi": 30} | {"parameter": "I", "factor": 1.2} | {"parameter": "phi", "factor": -2} | I=10 | 12 -60
        factor 1 | {"_9z": 5} | {"parameter": "_9z"} | 0 | | 5 0
        out of range | {"I": 5} | ^"I" | 0 | I=-2 | error: steps[0].outputs.Ia1.amplitude (a): I = -2 is out of range; allowed is 0 to 1518504.074
        factor out of range | {"phi": 200} | 1 | ^{"parameter": "phi", "factor": 2} | | error: steps[0].outputs.Ia1.phase (a): phi = 200, times 2: 400 is out of range; allowed is -360 to 360
        unknown | {"Ifault": 5} | ^"Ifalut" | 0 | | error: steps[0].outputs.Ia1.amplitude (a): there is no parameter "Ifalut"; did you mean Ifault?
        unknown value | ^{"Ifault": 5} | "Ifault" | 0 | Ifalut=3 | error: parameters: a value is given for "Ifalut", but there is no such parameter; did you mean Ifault?
        name of another kind | {^"I fault": 5} | 1 | 0 | | error: parameters.I fault: a parameter's name has 1 to 64 letters, digits and underscores, and does not begin with a digit
        text by default | {"I": ^"5"} | "I" | 0 | | error: parameters.I: must be a number, not a text
        no parameters | {} | ^"5" | 0 | | error: steps[0].outputs.Ia1.amplitude (a): must be a number, not a text
        offset | {"I": 5} | {"parameter": "I", ^"offset": 1} | 0 | | error: steps[0].outputs.Ia1.amplitude.offset (a): unknown; known here: "parameter", "factor"
        infinite product | {"I": 1e9} | ^{"parameter": "I", "factor": 1e9} | 0 | | error: steps[0].outputs.Ia1.amplitude (a): I = 1000000000, times 1000000000: 1e+18 is out of range; allowed is 0 to 1518504.074
        phase jump | {"I": 0.0005} | 1 | 0, "phaseJump": ^"t" | | error: steps[0].outputs.Ia1.phaseJump (a): there is no parameter "t"
        )");
}

void TestWorkbench::readsParameters()
{
    QFETCH(QStringList, row);
    QString json =
        QStringLiteral("{\"parameters\": %1,\n\"steps\": [{\"name\": \"a\", \"time\": 0.5, "
                       "\"onTimeout\": \"end\", \"outputs\": {\"Ia1\": {\"amplitude\": %2, "
                       "\"phase\": %3}}}]}")
            .arg(row[1], row[2], row[3]);
    const QStringList places = takeMarks(json);
    QVERIFY(writeFile(m_sequence, json.toUtf8()));
    Parameters values;
    if (!row[4].isEmpty())
        values[row[4].section(QLatin1Char('='), 0, 0)] =
            row[4].section(QLatin1Char('='), 1).toDouble();
    const workbench::Expected<Sequence> sequence = readSequence(m_sequence, values);
    QString found = sequence ? QString() : sequence.error().message;
    if (sequence) {
        const SequenceOutput &output = *sequence->steps[0].outputs[8];
        found = QStringLiteral("%1 %2").arg(output.amplitude).arg(output.phase);
        QVERIFY(writeSequence(*sequence, m_sequence)); // numbers only
        QVERIFY(!content(m_sequence).contains("parameter"));
    }
    QCOMPARE(found,
             places.isEmpty()
                 ? row[5]
                 : QStringLiteral("%1:%2: %3").arg(m_sequence, places.first(), row[5]));
    QVERIFY(sequence || sequence.error().others.isEmpty());
}

void TestWorkbench::tellsDoubts_data()
{
    // name | of the first step | of the second, "^" before what is doubtful, else the step |
    // warning
    addRows(R"(
        none | "time": 1, "onTimeout": "b" | "time": 0, "onTimeout": "a", "onTrigger": {"trigger": 1, "goTo": "end"} |
        endless on purpose | "time": 1, "onTimeout": "b" | "time": 1, "onTimeout": "b" |
        never reached | "time": 0, "onTimeout": "b", "onBinaryInput": "end" | "time": 1, "onTimeout": "a" | warning: steps[1] (b): no step leads here
        no way out | "time": 1, "onTimeout": "b" | "time": ^0, "onTimeout": "end" | warning: steps[1].time (b): 0 s and no wait: nothing ends this step but a stop of the board
        flags may end it | "time": 0, "onTimeout": "b", "conditionFlags": 4 | "time": 1, "onTimeout": "end" |
        input to itself | "time": 1, "onTimeout": "b", "onBinaryInput": ^"a" | "time": 1, "onTimeout": "end" | warning: steps[0].onBinaryInput (a): leads back to its own step, which begins again
        )");
}

void TestWorkbench::tellsDoubts()
{
    QFETCH(QStringList, row);
    const auto step = [](const char *name, const QString &members) {
        return QStringLiteral("{\"name\": \"%1\", %2, \"outputs\": {}}")
            .arg(QLatin1String(name), members);
    };
    QString json = QStringLiteral("{\"parameters\": {\"x\": ^1}, \"steps\": [%1,\n%2]}")
                       .arg(step("a", row[1]), step("b", row[2]));
    const QStringList places = takeMarks(json) + QStringList{QStringLiteral("2:1")};
    QVERIFY(writeFile(m_sequence, json.toUtf8()));
    JsonFile file(m_sequence);
    const Sequence sequence = readSequence(file.root());
    QCOMPARE(int(sequence.steps.size()), 2);
    QStringList lines = file.remarks().lines();
    QCOMPARE(lines.takeFirst(),
             QStringLiteral("%1:%2: warning: parameters.x: no number of the sequence refers to it")
                 .arg(m_sequence, places[0]));
    QCOMPARE(lines.join(QLatin1Char('|')),
             row[3].isEmpty() ? QString()
                              : QStringLiteral("%1:%2: %3").arg(m_sequence, places[1], row[3]));
    QCOMPARE(parameterDefaults(file.root()), (Parameters{{QStringLiteral("x"), 1.0}}));
}

/// Those of the sequence, of the configuration, and of the two together.
void TestWorkbench::tellsAllErrorsOfATest()
{
    QVERIFY(writeFile(m_config,
                      content(m_config)
                          .replace("<mapinfo Which=\"2\"", "<mapinfo Which=\"9\"")
                          .replace("chNums=\"5\"", "chNums=\"240\"")));
    QVERIFY(writeFile(m_sequence,
                      content(m_sequence)
                          .replace("\"amplitude\": 8.0", "\"amplitude\": -8.0")
                          .replace("\"time\": 1,", "\"tiem\": 1,")));
    const workbench::Expected<PreparedTest> test = prepareTest(m_config, m_sequence);
    QVERIFY(!test);
    const QStringList all = QStringList{test.error().message} + test.error().others;
    const QString errors = all.join(QLatin1Char('\n'));
    QCOMPARE(errors.count(QLatin1String("unknown; known here")), 5);
    for (const char *part :
         {"sequence.json:38:31: error: steps[1].outputs.Ia1.amplitude (fault): -8 is out of",
          "sequence.json:13:5: error: steps[0] (prefault): \"time\" is missing",
          "sequence.json:17:31: error: steps[0].binaryOutputs[1] (prefault): no mapinfo binds",
          "config.xml:48:3: error: in_smv makes a command of 2011 bytes"})
        QVERIFY2(errors.contains(QLatin1String(part)), qPrintable(errors));
}

void TestWorkbench::sendsWhatASequenceSays_data()
{
    // name | settings | Va1 in the file | Va1 on the wire, behind its channel number | Va2
    addRows(R"(
        defaults  |                     | "amplitude": 100, "phase": 0 | 0ad7233c 00 00004842 c76b0d43 00*8 | 0ad7233c 00 00004842 00*12
        peak      |"amplitudes": "peak" | "amplitude": 100, "phase": 0 | 0ad7233c 01 00004842 0000c842 00*8 | 0ad7233c 01 00004842 00*12
        secondary |"ratios": {"voltage": 1100, "current": 600}, "amplitudes": "peak" | "amplitude": 100, "phase": 0 | 0ad7233c 01 00004842 00d8d647 00*8 | 0ad7233c 01 00004842 00*12
        mirrored, 1 V per count |"dualAD": true, "svResolution": "1 V, 1 A" | "amplitude": 100, "phase": 90, "frequency": 25, "phaseJump": -90 | 0000803f 00 0000c841 c76b0d43 0000b442 0000b4c2 | 0000803f 00 0000c841 c76b0d43 0000b442 0000b4c2
        )");
}

void TestWorkbench::sendsWhatASequenceSays()
{
    QFETCH(QStringList, row);
    const QByteArray step = R"("name": "only", "time": 65, "onTimeout": "only", "stepOption": 1,
        "conditionFlags": 4, "onTrigger": {"trigger": 3, "goTo": "end"}, "onBinaryInput": "end",
        "outputs": {"Va1": {)";
    QVERIFY(writeFile(m_sequence,
                      R"({"settings": {)" + row[1].toUtf8() + R"(}, "steps": [{)" + step
                          + row[2].toUtf8() + "}}}]}"));
    // A GOOSE stream without binary outputs gets no command per step.
    QVERIFY(writeFile(m_config, content(m_config).replace(R"(<mapinfo Which="4" Pos="2"/>)", "")));
    int total = 0;
    const workbench::Expected<void> sent = loadAndExecute(
        [&total](const TransferProgress &progress, bool) { total = progress.total(); });
    QVERIFY2(sent, sent ? "" : qPrintable(sent.error().message));
    QCOMPARE(int(m_board->frames().size()), total);
    const QVector<QByteArray> frames = m_board->frames().mid(11); // behind the configuration
    QCOMPARE(frames.size(), 16 + 1 + 3);
    COMPARE_BYTES(frames[0], bytes("8c908c9001 00 08" + row[3].toUtf8() + ' '));
    COMPARE_BYTES(frames[1], bytes("8c908c9001 00 09" + row[4].toUtf8() + ' '));
    COMPARE_BYTES(frames[17], bytes("8c908c900a 00 00"));
    COMPARE_BYTES(frames[18], bytes("8c908c9007 00 0c e8fd 00 03 ff 01 ff"));
}

void TestWorkbench::jumpsWhereThePhaseDoes_data()
{
    // name | Va1 of the first step, of the second | jump of Va1 in the second, degrees
    addRows(R"(
        forward | "Va1": {"amplitude": 1, "phase": 10} | "Va1": {"amplitude": 1, "phase": 30.5} | 20.5
        over half a turn | "Va1": {"amplitude": 1, "phase": -120} | "Va1": {"amplitude": 1, "phase": 120} | -120
        half a turn | "Va1": {"amplitude": 1, "phase": 180} | "Va1": {"amplitude": 1, "phase": 0} | 180
        two turns | "Va1": {"amplitude": 1, "phase": -360} | "Va1": {"amplitude": 1, "phase": 360} | 0
        left out before | | "Va1": {"amplitude": 1, "phase": 90} | 90
        left out after | "Va1": {"amplitude": 1, "phase": 90} | | -90
        as the file says | "Va1": {"amplitude": 1, "phase": 10} | "Va1": {"amplitude": 1, "phase": 30, "phaseJump": 0} | 0
        )");
}

void TestWorkbench::jumpsWhereThePhaseDoes()
{
    QFETCH(QStringList, row);
    const auto step = [](const QString &name, const QString &outputs) {
        return QStringLiteral(R"({"name": "%1", "time": 1, "onTimeout": "end", "outputs": {%2}})")
            .arg(name, outputs);
    };
    QVERIFY(writeFile(m_sequence,
                      QStringLiteral(R"({"settings": {"dualAD": true}, "steps": [%1, %2]})")
                          .arg(step(QStringLiteral("a"), row[1]), step(QStringLiteral("b"), row[2]))
                          .toUtf8()));
    const workbench::Expected<Sequence> sequence = readSequence(m_sequence);
    QVERIFY2(sequence, sequence ? "" : qPrintable(sequence.error().message));
    LumtarEngine engine;
    apply(*sequence, engine);
    QCOMPARE(engine.steps[0].outPara[0].phaseJump, 0.0F);
    for (const int output : {0, 1}) // Va1 and what mirrors it
        QCOMPARE(engine.steps[1].outPara[output].phaseJump, row[3].toFloat());
}

/// \a command of a sequence whose step conditions, if it is one, have \a times.
QByteArray withTime(QByteArray command, const QStringList &times)
{
    const bool isCondition = command.startsWith(bytes("8c908c9007"));
    return isCondition ? command.replace(7, 2, bytes(times[command[5]].toUtf8())) : command;
}

void TestWorkbench::sendsAsTheEngineDoes_data()
{
    // name | text of the example | what it is replaced with | step times on the link, else the
    // engine's own; start
    addRows(R"(
        as it is | | | | fa
        secondary, peak | "RMS" | "peak", "ratios": {"voltage": 1100, "current": 600} | | fa
        longest, endless | "time": 1, | "time": 65, | | fa
        256 samples | "samplesPerCycle": 80 | "samplesPerCycle": 256 | | 4e
        60 Hz | "nominalFrequency": 50 | "nominalFrequency": 60 | | d0
        another time in each step | 1.0 | 1.0 | 5000 6400 0100 ffff 8813 | fa
        )");
}

/// For whole seconds and 50 Hz byte for byte; what is finer is in the fields of the times alone.
void TestWorkbench::sendsAsTheEngineDoes()
{
    QFETCH(QStringList, row);
    QByteArray json = content(m_sequence);
    if (!row[1].isEmpty())
        json.replace(row[1].toUtf8(), row[2].toUtf8());
    QStringList times = row[3].split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const char *each : {"0.08", "0.1", "0.001", "65.535", "5.0"}) {
        const int at = int(json.indexOf(R"("time": 1,)"));
        if (!times.isEmpty())
            json.replace(at, 9, QByteArray(R"("time": )") + each);
    }
    QVERIFY(writeFile(m_sequence, json));
    const workbench::Expected<void> sent = loadAndExecute();
    QVERIFY2(sent, sent ? "" : qPrintable(sent.error().message));
    constexpr int kConfiguration = 11;
    const Frames ours = m_board->frames().mid(kConfiguration);

    m_board->clear();
    const workbench::Expected<PreparedTest> test = prepareTest(m_config, m_sequence);
    QVERIFY(test);
    const DebugLines silence;
    LumtarEngine engine;
    apply(test->sequence, engine);
    for (int i = 0; i < engine.stepCount; ++i)
        engine.steps[i].stateTime = quint32(test->sequence.steps[i].time / 1s);
    QVERIFY(engine.SetUdpConnect(localPort(), boardAddress())
            && engine.LoadConfiguration(test->configuration.document) && engine.ExecSeq());
    Frames engines = m_board->frames().mid(kConfiguration);
    QCOMPARE(engines.size(), 5 * 20 + 1);
    engines.last().replace(6, 1, bytes(row[4].toUtf8()));
    if (!times.isEmpty())
        std::transform(engines.begin(), engines.end(), engines.begin(),
                       [&times](const QByteArray &each) { return withTime(each, times); });
    COMPARE_BYTES(ours, engines);
}

void TestWorkbench::sendsNothingMore_data()
{
    QTest::addColumn<int>("exchange"); // that fails, or before which an interruption comes
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("message");
    QTest::newRow("loading") << 5 << int(Failure::Board)
                             << "did not answer while loading config.xml; nothing more was sent";
    QTest::newRow("executing") << 60 << int(Failure::Board)
                               << "did not answer while executing sequence.json; nothing";
    QTest::newRow("interrupted") << 60 << int(Failure::Interrupted) << "interrupted";
}

void TestWorkbench::sendsNothingMore()
{
    QFETCH(int, exchange);
    QFETCH(int, kind);
    QFETCH(QString, message);
    int sending = -1;
    if (kind == Failure::Interrupted)
        m_isInterrupted = [&] { return sending + 1 >= exchange; };
    else
        m_board->setBehaviour(exchange, {Behaviour::NoAcknowledgement});
    const workbench::Expected<void> sent =
        loadAndExecute([&sending](const TransferProgress &, bool) { ++sending; });
    QVERIFY(!sent);
    QCOMPARE(int(sent.error().kind), kind);
    QVERIFY2(sent.error().message.contains(message), qPrintable(sent.error().message));
    QCOMPARE(int(m_board->receptions().size()), exchange + (kind == Failure::Board ? 3 : 0));
}

void TestWorkbench::tellsHowFarItIs()
{
    m_board->setBehaviour(3, {Behaviour::LoseFirst, 1});
    QStringList told;
    QVERIFY(loadAndExecute([&told](const TransferProgress &progress, bool isNews) {
        if (isNews || progress.done() == 3)
            told += QStringLiteral("%1/%2 %3")
                        .arg(progress.done())
                        .arg(progress.total())
                        .arg(progress.element());
    }));
    const QString all = told.join(QLatin1Char('|'));
    for (const char *part :
         {"0/112 reset|1/112 SV stream 1 of 2: E1Q01MU01/", "|3/112 SV stream 2 of 2: E1Q00MU01/",
          ", no answer yet|5/112 GOOSE stream 1 of 2: ", "|9/112 GOOSE subscription 1 of 2: APPID ",
          "|11/112 step 1 of 5: prefault|31/112 step 2 of 5: fault|51/112 step 3 of 5: trip|",
          "|111/112 start|112/112 done"})
        QVERIFY2(all.contains(QLatin1String(part)), qPrintable(all));
}

/// What cannot be known for lack of the change before is not told, and what is doubtful says so.
void TestWorkbench::tellsWhatHappened()
{
    const workbench::Expected<Sequence> sequence = readSequence(m_sequence);
    QVERIFY(sequence);
    using statusreply::Change;
    const int none = statusreply::kNoChannel;
    statusreply::Changes changes;
    changes.total = 100;
    changes.last = {
        {0, 1, Change::Time, none, 0, 200us, 1000000us, 1000250us},
        {1, 2, Change::BinaryInput, 255, 0, 50us, 1030000us, 1030250us},
        {2, 3, Change::BinaryInput, 7, 0, 0us, 1030260us, 1030500us},
        {1, statusreply::kNoStep, Change::BinaryInput, 0, 0, 0us, 1040000us, 1040000us}};
    const QString text = changeTexts(changes, *sequence, 100);
    QCOMPARE(text.mid(text.indexOf(QLatin1String("binary input: "))).simplified(),
             QStringLiteral("binary input: logic channel 255, 29.550 ms after entry into step 1 "
                            "(fault), which began 0.200 ms late binary input: logic channel 7, "
                            "-0.040 ms after entry into step 2 (trip): before its first frames "
                            "were sent, so not because of them"));
    for (const char *part :
         {"100 changes of steps; the board has kept the last 4",
          "1.000250 0 (prefault) 1 (fault) time 1.000000 1.030250 1 (fault) 2 (trip) binary input "
          "255 1.030000 29.550",
          "1.040000 1 (fault) end binary input 0 1.040000 binary input:"})
        QVERIFY2(text.simplified().contains(QLatin1String(part)), qPrintable(text));

    statusreply::State last;
    QCOMPARE(concerns(last), QString());
    last.problems = 7;
    last.missedDeadlines = 3;
    last.framesRefused = 2;
    last.latenessP50 = 12345ns;
    last.latenessP99 = 45678ns;
    last.latenessMax = 250us;
    QCOMPARE(concerns(last),
             QStringLiteral("sample instants late by 12.3 us (p50), 45.7 us (p99), 250.0 us "
                            "(most); 3 missed deadlines, 2 frames not sent\nthe board has "
                            "reported 7 problems since it was started\n"));
}

QTEST_GUILESS_MAIN(TestWorkbench)
#include "tst_workbench.moc"
