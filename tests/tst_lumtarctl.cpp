// The program lumtarctl as a user runs it: what it sends, what it refuses, how it reports failure.

#include "tests/testsupport.h"

#include "protocol/statusreply.h"
#include "virtualboard/board/boardstatus.h"
#include "virtualboard/board/crosscheck.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>

#include <algorithm>
#include <csignal>
#include <functional>
#include <memory>

using namespace testsupport;
using namespace virtualboard;

namespace {

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

PlayStatus stateAt(PlayState state, quint8 step, int inStep, int total)
{
    PlayStatus status;
    status.state = state;
    status.step = step;
    status.timeInStep = inStep * 1ms;
    status.totalTime = total * 1ms;
    status.framesSent = quint64(total * 8);
    return status;
}

/// From the start over a trip by channel 255 to the end.
TransitionLog exampleLog()
{
    const Duration late = 250us; // from the cause to the sample instant
    return {4,
            {{kNoStep, 0, Cause::Start, kNoChannel, 0s, 0s},
             {0, 1, Cause::Time, kNoChannel, 1000ms, 1000ms + late},
             {1, 2, Cause::BinaryInput, 255, 1030ms, 1030ms + late},
             {2, kNoStep, Cause::Time, kNoChannel, 2030ms + late, 2030ms + late}}};
}

/// The second part: channel 255 goes on, then a trigger comes.
InputLog exampleInputs()
{
    return {98, 12, 96, {{1030000001ns, InputKind::ChannelOn, 255}, {2s, InputKind::Trigger}}};
}

} // namespace

Q_DECLARE_METATYPE(virtualboard::TransitionLog)

class TestLumtarctl : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void sendsTheExamples();
    void refusesBadFiles_data();
    void refusesBadFiles();
    void refusesTestsThatCannotMeanWhatTheySay_data();
    void refusesTestsThatCannotMeanWhatTheySay();
    void refusesBadArguments_data();
    void refusesBadArguments();
    void tellsWhatASequenceFileIs_data();
    void tellsWhatASequenceFileIs();
    void tellsWhenItCannotSend();
    void tellsWhenItCannotPrint_data();
    void tellsWhenItCannotPrint();
    void readsStatusAndStops();
    void tellsTheStatus_data();
    void tellsTheStatus();
    void tellsTheStatusToPrograms();
    void tellsTheRunToPrograms_data();
    void tellsTheRunToPrograms();
    void readsPayloadsOfItsLayoutOnly_data();
    void readsPayloadsOfItsLayoutOnly();
    void decodesForApplications();
    void watches_data();
    void watches();
    void suitsTheTerminal_data();
    void suitsTheTerminal();
    void fitsTheWidth_data();
    void fitsTheWidth();
    void keepsTheInputsInSight();
    void stopsTheBoardWhenInterrupted_data();
    void stopsTheBoardWhenInterrupted();
    void tellsWhatMayStillRun_data();
    void tellsWhatMayStillRun();
    void tellsThatLocalPortsAreTaken();

private:
    using Meanwhile = std::function<void(pid_t)>;
    void lumtarctl(QStringList arguments, const Meanwhile &meanwhile = {});
    void runFiles(const QStringList &more = {}, const Meanwhile &meanwhile = {});
    void answerStatus(const QVector<QByteArray> &states, const QByteArray &log);

    SingleRun m_singleRun;
    QTemporaryDir m_directory; ///< copies of the examples, which a test may spoil
    const QString m_config = m_directory.filePath(QString::fromUtf8("\u95f4\u9694.xml"));
    const QString m_sequence = m_directory.filePath(QStringLiteral("sequence.json"));
    std::unique_ptr<LinkResponder> m_board;
    int m_exitStatus = -1;
    QString m_outputFile; ///< where its output goes; else into m_output
    QString m_environment; ///< "NAME=VALUE NAME=VALUE", beside the test's own
    int m_terminal = 0; ///< columns of the terminal that it runs in; 0: in none
    QString m_output;
    QString m_errors;
};

void TestLumtarctl::init()
{
    QVERIFY(writeFile(m_config, content(QFINDTESTDATA("../examples/feeder-bay.xml"))));
    QVERIFY(writeFile(m_sequence, content(QFINDTESTDATA("../examples/earth-fault.json"))));
    m_board = std::make_unique<LinkResponder>(boardAddress());
    QCOMPARE(testsupport::failure(m_board->start()), QString());
    m_environment.clear();
    m_terminal = 0;
}

void TestLumtarctl::lumtarctl(QStringList arguments, const Meanwhile &meanwhile)
{
    arguments.replaceInStrings(QStringLiteral("BOARD"), boardAddress().toString());
    QProcess process;
    if (!m_outputFile.isEmpty())
        process.setStandardOutputFile(m_outputFile);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TERM"), QStringLiteral("xterm"));
    for (const QString &each : m_environment.split(QLatin1Char(' '), Qt::SkipEmptyParts))
        environment.insert(each.section(QLatin1Char('='), 0, 0), each.section(QLatin1Char('='), 1));
    process.setProcessEnvironment(environment);
    QString program = QStringLiteral(LUMTARCTL);
    if (m_terminal > 0) {
        const QString line =
            QStringLiteral("stty cols %1; '%2' '%3'")
                .arg(QString::number(m_terminal), program, arguments.join(QLatin1String("' '")));
        program = QStringLiteral("script");
        arguments = QStringList{QStringLiteral("-qefc"), line, QStringLiteral("/dev/null")};
    }
    process.start(program, arguments);
    if (meanwhile && process.waitForStarted())
        meanwhile(static_cast<pid_t>(process.processId()));
    m_exitStatus = process.waitForFinished() && process.exitStatus() == QProcess::NormalExit
        ? process.exitCode()
        : -1;
    m_output = QString::fromLocal8Bit(process.readAllStandardOutput());
    m_errors = QString::fromLocal8Bit(process.readAllStandardError());
}

void TestLumtarctl::runFiles(const QStringList &more, const Meanwhile &meanwhile)
{
    lumtarctl(QStringList{QStringLiteral("run"), QStringLiteral("--board=BOARD"),
                          QStringLiteral("--config"), m_config, QStringLiteral("--sequence"),
                          m_sequence, QStringLiteral("--local-port=%1").arg(localPort())}
                  + more,
              meanwhile);
}

/// Lets the board answer status 0 with one of the states after the other, then with the last one.
void TestLumtarctl::answerStatus(const QVector<QByteArray> &states, const QByteArray &log)
{
    m_board.reset(); // frees the address
    m_board = std::make_unique<LinkResponder>(boardAddress());
    m_board->setStatusSource([states, log, next = 0](int which) mutable {
        if (which != StateStatus)
            return log;
        next = std::min(next + 1, int(states.size()));
        return states[next - 1];
    });
    QCOMPARE(testsupport::failure(m_board->start()), QString());
}

void TestLumtarctl::sendsTheExamples()
{
    runFiles();
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    QCOMPARE(m_errors, QString());
    QCOMPARE(allProblems(m_board->receptions()), QStringList());
    const QVector<QByteArray> frames = m_board->frames();
    constexpr int kStep0 = 11; // behind the configuration
    constexpr int kStep = 16 + 2 + 2;
    QCOMPARE(frames.size(), kStep0 + 5 * kStep + 1);
    const QVector<QPair<int, const char *>> expected = {
        // kinds of the 22 channels
        {2,
         "8c908c9004 00 00 4000 0000 a00f 4e00 16 ff 0001020304050607 000204 08090a0b0c0d0e0fffff"},
        // fault: Ia1 and Ia2, 8 A RMS at -75 degrees, 65 degrees behind those before
        {kStep0 + kStep + 8, "8c908c9001 01 00 6f12833a 00 00004842 d5043541 000096c2 000082c2"},
        {kStep0 + kStep + 9, "8c908c9001 01 01 6f12833a 00 00004842 d5043541 000096c2 000082c2"},
        // trip: breaker open, disconnector closed, spring charged
        {kStep0 + 2 * kStep + 16,
         "8c908c9009 02 00 04 7500 04 00000000 8f00 02 0640 9d00 02 0680 ab00 01 01"},
        // dead time: 1 s or the binary input
        {kStep0 + 3 * kStep + 19, "8c908c9007 03 08 e803 04 00 00 01 04"},
        // reclose: further reclosing blocked, then the end
        {kStep0 + 4 * kStep + 17, "8c908c9009 04 01 02 6c00 04 00000000 8900 01 01"},
        {kStep0 + 4 * kStep + 19, "8c908c9007 04 00 e803 ff 00 00 00 00"},
        {kStep0 + 5 * kStep, "8c908c9003 01 fa 05 02 04 08"},
    };
    for (const auto &each : expected)
        COMPARE_BYTES(frames[each.first], bytes(each.second));
}

void TestLumtarctl::refusesBadFiles_data()
{
    // name | text of the example | what it is replaced with | part of the message
    addRows(R"(
        missing comma | "time": 1, | "time": 1 | :16:8: error: unterminated object
        negative | 8.0 | -8 | steps[1].outputs.Ia1.amplitude (fault): -8 is out of range
        config: cut off | </ied> | | :110:1: error: Premature end
        config: other root | ied> | scl> | :13:1: error: the root element is scl, not ied
        config: attribute misspelt | in_smv portindex="1" | in_smv portIndex="1" | :21:3: error: portindex of in_smv is missing
        config: beyond a datagram | chNums="5" | chNums="240" | :48:3: error: in_smv makes a command of 2011 bytes; the most is 1588
        config: expands without bound | <ied> | <!DOCTYPE ied [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;"><!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;"><!ENTITY d "&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;">]><ied>&d; | :13:
        )");
}

void TestLumtarctl::refusesBadFiles()
{
    QFETCH(QStringList, row);
    const QString file = row[0].startsWith(QLatin1String("config: ")) ? m_config : m_sequence;
    const QString good = QString::fromUtf8(content(file));
    QVERIFY2(good.contains(row[1]), "the example has changed");
    QVERIFY(writeFile(file, QString(good).replace(row[1], row[2]).toUtf8()));
    runFiles();
    QVERIFY2(m_errors.startsWith(QStringLiteral("lumtarctl: ") + file + QLatin1Char(':')),
             qPrintable(m_errors));
    QVERIFY2(m_errors.contains(row[3]), qPrintable(m_errors));
    for (const QString &line : m_errors.trimmed().split(QLatin1Char('\n')))
        QVERIFY2(line.startsWith(QStringLiteral("lumtarctl: ") + file), qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 2);
    QCOMPARE(m_board->receptions().size(), 0);
}

/// Whole files that are no JSON object.
void TestLumtarctl::tellsWhatASequenceFileIs_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("message");
    QTest::newRow("empty") << QByteArray() << "sequence.json: error: is empty";
    QTest::newRow("blank") << QByteArray(" \n") << "sequence.json: error: is empty";
    QTest::newRow("null") << QByteArray("null\n")
                          << "sequence.json: error: must be an object, not null";
    QTest::newRow("list") << QByteArray("[1]")
                          << "sequence.json:1:1: error: must be an object, not a list";
    QTest::newRow("UTF-16") << QByteArray("\xff\xfe{\0}\0", 6)
                            << "sequence.json: error: is in UTF-16";
    QTest::newRow("UTF-16, no mark")
        << QByteArray("{\0}\0", 4) << "sequence.json: error: is in UTF-16";
    QTest::newRow("XML") << QByteArray("<?xml version='1.0'?><ied/>")
                         << "sequence.json: error: is XML";
    QTest::newRow("cut off") << QByteArray("{\"steps\": [") << "sequence.json:1:";
}

void TestLumtarctl::tellsWhatASequenceFileIs()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, message);
    QVERIFY(writeFile(m_sequence, file));
    runFiles();
    QCOMPARE(m_exitStatus, 2);
    QVERIFY2(m_errors.contains(message), qPrintable(m_errors));
}

void TestLumtarctl::tellsWhenItCannotSend()
{
    lumtarctl({"stop", "--board=fe80::1%lo", QStringLiteral("--local-port=%1").arg(localPort())});
    QCOMPARE(m_exitStatus, 1); // no other end is on that link
    QVERIFY2(m_errors.contains("cannot send to the board at fe80::1%lo while stopping: "),
             qPrintable(m_errors));
}

/// Nobody may take half of a report for the whole.
void TestLumtarctl::tellsWhenItCannotPrint_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("help") << QStringList{"--help"};
    QTest::newRow("version") << QStringList{"-v"};
    QTest::newRow("check") << QStringList{"check", m_config};
    QTest::newRow("status") << QStringList{"status", "--board=BOARD"};
}

void TestLumtarctl::tellsWhenItCannotPrint()
{
    QFETCH(QStringList, arguments);
    m_outputFile = QStringLiteral("/dev/full");
    lumtarctl(arguments);
    m_outputFile.clear();
    QCOMPARE(m_exitStatus, 1);
    QVERIFY2(m_errors.contains("cannot write the output: No space left on device"),
             qPrintable(m_errors));
}

void TestLumtarctl::refusesTestsThatCannotMeanWhatTheySay_data()
{
    // name | expression for what of the configuration is spoilt | replacement | place and message
    addRows(R"(
        current nowhere | channel="(Meas)?Ia[12]" | channel="Ib1" | :22:16: error: steps[0].outputs.Ia1 (prefault): no channel of a sampled-value stream carries it
        binary output | <mapinfo Which="1"[^>]*> | | :17:25: error: steps[0].binaryOutputs[0] (prefault): no mapinfo binds binary output 1
        binary input | <goose portIndex="1".*</goose> | | :31:24: error: steps[1].onBinaryInput (fault): no subscription feeds a logic channel
        )");
}

void TestLumtarctl::refusesTestsThatCannotMeanWhatTheySay()
{
    QFETCH(QStringList, row);
    const QRegularExpression what(row[1], QRegularExpression::DotMatchesEverythingOption);
    const QString good = QString::fromUtf8(content(m_config));
    QVERIFY2(good.contains(what), "the example has changed");
    const QStringList check = {QStringLiteral("check"), m_config, QStringLiteral("--sequence"),
                               m_sequence};
    const QString error = m_sequence + row[3];
    lumtarctl(check);
    QVERIFY2(!m_output.contains(m_sequence), qPrintable(m_output));
    QVERIFY(writeFile(m_config, QString(good).replace(what, row[2]).toUtf8()));
    lumtarctl(check);
    QVERIFY2(m_output.contains(error), qPrintable(m_output + m_errors));
    QCOMPARE(m_exitStatus, 2);
    runFiles();
    QVERIFY2(m_errors.contains(error), qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 2);
    QCOMPARE(m_board->receptions().size(), 0);
}

void TestLumtarctl::refusesBadArguments_data()
{
    addRows(R"(
        | a command is missing
        start --board BOARD | unknown command "start"
        stop | stop needs --board
        stpo | did you mean stop?
        run --wath | unknown option --wath; did you mean --watch?
        stop -x | unknown option -x
        stop --board no-such-host.invalid | "no-such-host.invalid" cannot be found
        stop --board 127.0.0.57:2001 | has a port; the board's is always 2001
        stop --board [::1] | write it without them
        stop --board 0.0.0.0 | stands for all addresses
        stop --board :: | stands for all addresses
        stop --board 255.255.255.255 | is no address of one board
        stop --board 224.0.0.1 | is no address of one board
        stop --board ff02::1 | is no address of one board
        stop --board 1.2.3.4.5 | is no IP address and no host name
        stop --board= | --board is empty
        stop --board BOARD --board BOARD | --board is given twice
        stop --board BOARD now | unexpected argument "now"
        stop --board BOARD --which 1 | which
        stop --board BOARD --local-port 65535 | --local-port "65535"
        run --board BOARD --config . --sequence . --json | --json needs --watch
        status --board BOARD --sequence nowhere.json | there is no such file
        status --board BOARD --which 256 | --which "256" is no whole number from 0 to 255
        run --board BOARD --config nowhere.xml | run needs --sequence
        run --board BOARD --config . --sequence nowhere.json | nowhere.json: error: there is no such
        run --board BOARD --config . --sequence . | .: error: is not a regular file
        )");
}

void TestLumtarctl::refusesBadArguments()
{
    QFETCH(QStringList, row);
    lumtarctl(row[0].split(QLatin1Char(' '), Qt::SkipEmptyParts));
    QVERIFY2(m_errors.contains(row[1]), qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 2);
    QCOMPARE(m_board->receptions().size(), 0);
}

void TestLumtarctl::readsStatusAndStops()
{
    const QString port = QStringLiteral("--local-port=%1").arg(localPort());
    QVERIFY(m_board->setStatus(QByteArray("\x00\xa5\x5a", 3)));
    lumtarctl({QStringLiteral("status"), QStringLiteral("--board=BOARD"),
               QStringLiteral("--which=18"), port});
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    QCOMPARE(m_output, QStringLiteral("status 18, 3 bytes: 00 a5 5a\n"));
    lumtarctl({QStringLiteral("stop"), QStringLiteral("--board=BOARD"), port});
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    const QVector<QByteArray> expected = {bytes("8c928c92 12"), bytes("8c908c9003 00 fa 05020408")};
    COMPARE_BYTES(m_board->frames(), expected);
}

void TestLumtarctl::tellsTheStatus_data()
{
    // name | state of the board, "other": another board | arguments | the whole output, without
    // surplus blanks; ... stands for anything
    addRows(R"(
        both      | tripped | | running: step 1 0.020 s, total 1.020 s, 8160 frames, active: 1 255 the board has reported 7 problems since it was started time, s left ... 1.030250 1 2 binary input 255 1.030000 29.750 ... 29.750 ms after entry into step 1
        names     | tripped | --sequence SEQUENCE | running: step 1 (fault) 0.020 s, ... 1.030250 1 (fault) 2 (trip) binary input 255 ... into step 1 (fault)
        state     | tripped | --which 0 | running: step 1 0.020 s, total 1.020 s, 8160 frames, active: 1 255 the board has reported 7 problems since it was started
        changes   | tripped | --which 1 | time, s left ... 29.750 ms after entry into step 1
        bytes     | tripped | --raw | status 0, 112 bytes: 4c 56 42 03 02 01 ... 00
        its bytes | tripped | --raw --which 1 | status 1, 144 bytes: 4c 56 42 03 04 ... 00
        unused    | tripped | --which 200 | status 200, 144 bytes: 4c 56 42 03 04 ... 00
        unused    | idle    | | idle: total 0.000 s, 0 frames, active: none no changes of steps
        inputs    | inputs  | --which 2 | input time, s logic channel is ... 3 of 800 1.030000 255 on 4 of 800 2.000000 trigger
        inputs    | inputs  | --which 9 --json | { "inputs": { "first": 2, "part": [ { "channel": 255, "kind": "on", "time": 1.03 }, { "kind": "trigger", "time": 2 } ], "start": 5, "total": 800 } }
        no inputs | none    | --which 2 | no inputs here; the sequence had 0
        other     | other   | | status 0, 3 bytes of a layout that is not known here: 00 a5 5a
        other     | other   | --which 1 | status 1, 3 bytes of a layout that is not known here: 00 a5 5a
        other     | other   | --json | { "bytes": "00a55a", "which": 0 }
        )");
}

void TestLumtarctl::tellsTheStatus()
{
    QFETCH(QStringList, row);
    PlayStatus tripped = stateAt(PlayState::Running, 1, 20, 1020);
    tripped.activeChannels = {2, 0, 0, 0x8000000000000000U};
    if (row[1] == QLatin1String("tripped"))
        answerStatus({encodeState(tripped, 7)}, encodeLog(exampleLog()));
    else if (row[1] == QLatin1String("idle"))
        answerStatus({encodeState({}, 0)}, encodeLog({}));
    else if (row[1] == QLatin1String("inputs"))
        answerStatus({},
                     encodeInputs({800,
                                   5,
                                   2,
                                   {{1030ms, InputKind::ChannelOn, 255},
                                    {2s, InputKind::Trigger, kNoChannel}}}));
    else if (row[1] == QLatin1String("none"))
        answerStatus({}, encodeInputs({}));
    else
        QVERIFY(m_board->setStatus(QByteArray("\x00\xa5\x5a", 3)));
    lumtarctl(QStringList{QStringLiteral("status"), QStringLiteral("--board=BOARD"),
                          QStringLiteral("--local-port=%1").arg(localPort())}
              + row[2]
                    .replace(QStringLiteral("SEQUENCE"), m_sequence)
                    .split(QLatin1Char(' '), Qt::SkipEmptyParts));
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    const QString pattern = QRegularExpression::escape(row[3]).replace(QStringLiteral("\\.\\.\\."),
                                                                       QStringLiteral(".*"));
    QVERIFY2(QRegularExpression(QRegularExpression::anchoredPattern(pattern))
                 .match(m_output.simplified())
                 .hasMatch(),
             qPrintable(m_output));
}

void TestLumtarctl::tellsTheStatusToPrograms()
{
    PlayStatus tripped = stateAt(PlayState::Running, 1, 20, 1020);
    tripped.activeChannels = {2, 0, 0, 0x8000000000000000U};
    tripped.punctuality = {3, 2, 1us, 4us, 250us};
    TransitionLog log = exampleLog();
    log.last[1].lateness = 300ns;
    log.last[2].disturbances = InputsLost;
    answerStatus({encodeState(tripped, 7, 9)}, encodeLog(log));
    lumtarctl({"status", "--board=BOARD", "--json", "--sequence", m_sequence,
               QStringLiteral("--local-port=%1").arg(localPort())});
    const QJsonObject status = QJsonDocument::fromJson(m_output.toUtf8()).object();
    QCOMPARE(status[QLatin1String("state")].toObject(),
             QJsonDocument::fromJson(R"({
                 "state": "running", "step": 1, "stepName": "fault", "timeInStep": 0.02,
                 "totalTime": 1.02, "frames": 8160, "active": [1, 255], "problems": 7, "start": 9,
                 "latenessP50": 1e-6, "latenessP99": 4e-6, "latenessMax": 250e-6,
                 "missedDeadlines": 3, "framesRefused": 2})")
                 .object());
    const QJsonObject changes = status[QLatin1String("changes")].toObject();
    QCOMPARE(changes[QLatin1String("total")].toInt(), 4);
    QCOMPARE(changes[QLatin1String("last")].toArray().at(2).toObject(),
             QJsonDocument::fromJson(R"({
                 "left": 1, "leftName": "fault", "entered": 2, "enteredName": "trip",
                 "cause": "binary input", "channel": 255, "time": 1.03, "entry": 1.03025,
                 "late": 0, "timeInStep": 0.0297497, "doubtful": ["inputs lost"]})")
                 .object());
    QVERIFY(!changes[QLatin1String("last")].toArray().at(3).toObject().contains(
        QLatin1String("entered")));
}

void TestLumtarctl::tellsTheRunToPrograms_data()
{
    QTest::addColumn<int>("end"); // state of the board
    QTest::addColumn<int>("exchange"); // that is not answered; -1: none
    QTest::addColumn<int>("exitStatus");
    QTest::addColumn<QString>("events");
    QTest::addColumn<QString>("failure");
    const QString loading = QStringLiteral("sending 0 sending 1 sending 3 sending 5 sending 7 "
                                           "sending 9 sending 10 ");
    const QString started = loading
        + QStringLiteral("loaded sending 11 sending 31 sending 51 sending 71 sending 91 "
                         "sending 111 sending 112 started ");
    QTest::newRow("to its end") << int(PlayState::Finished) << -1 << 0
                                << started + QStringLiteral("running finished end") << "";
    QTest::newRow("stopped") << int(PlayState::Stopped) << -1 << 1
                             << started + QStringLiteral("running stopped end")
                             << "was stopped before its end";
    QTest::newRow("never started") << int(PlayState::Finished) << 10 << 1
                                   << loading + QStringLiteral("end") << "did not answer";
}

/// A line for each piece of news, and the last one in any case.
void TestLumtarctl::tellsTheRunToPrograms()
{
    QFETCH(int, end);
    QFETCH(int, exchange);
    QFETCH(QString, failure);
    answerStatus({encodeState(stateAt(PlayState::Running, 0, 1, 1), 0),
                  encodeState(stateAt(PlayState(end), 0, 1, 1), 0)},
                 encodeLog(exampleLog()));
    if (exchange >= 0)
        m_board->setBehaviour(exchange, {Behaviour::NoAcknowledgement});
    runFiles({QStringLiteral("--watch"), QStringLiteral("--json")});
    QTEST(m_exitStatus, "exitStatus");
    QStringList events;
    QJsonObject last;
    for (const QString &line : m_output.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        last = QJsonDocument::fromJson(line.toUtf8()).object();
        const QString event = last[QLatin1String("event")].toString();
        events << (event == QLatin1String("state") ? last[event].toString() : event);
        if (event == QLatin1String("sending"))
            events << QString::number(last[QLatin1String("done")].toInt());
    }
    QTEST(events.join(QLatin1Char(' ')), "events");
    QVERIFY2(last.value(QLatin1String("failure")).toString().contains(failure),
             qPrintable(m_output));
    QCOMPARE(last.contains(QLatin1String("failure")), !failure.isEmpty());
    const QJsonObject changes = last[QLatin1String("changes")].toObject();
    QCOMPARE(int(changes[QLatin1String("last")].toArray().size()), exchange < 0 ? 4 : 0);
}

void TestLumtarctl::readsPayloadsOfItsLayoutOnly_data()
{
    // fault | which | offset of the bytes that are other, hexadecimal
    addRows(R"(
        another board           | 0 | 0  | 4d
        another version         | 0 | 3  | 02
        no such state           | 0 | 4  | 05
        no such current step    | 0 | 5  | 05
        time beyond 64 bits     | 0 | 8  | ff ff ff ff ff ff ff 7f
        another board's log     | 1 | 1  | 4d
        unknown disturbance     | 1 | 19 | 08
        more records than sent  | 1 | 4  | 05 00 00 00 05
        more records than total | 1 | 4  | 03
        records too small       | 1 | 10 | 00
        no such step            | 1 | 17 | 05
        no such cause           | 1 | 18 | 07
        channel of a start      | 1 | 20 | 00 00
        no such logic channel   | 1 | 84 | 00 01
        another board's inputs  | 2 | 2  | 43
        more inputs than sent   | 2 | 4  | c8 00 00 00 03
        more inputs than total  | 2 | 4  | 61
        more inputs than a part | 2 | 8  | 61
        inputs too small        | 2 | 10 | 0f
        inputs beyond the kept  | 2 | 4  | ff 03 00 00 02 00 10 00 00 00 00 00 ff 02
        no such part            | 2 | 4  | ff 03 00 00 00 00 10 00 00 00 00 00 00 03
        no such kind            | 2 | 20 | 03
        no such input channel   | 2 | 22 | 00 01
        channel of a trigger    | 2 | 38 | 07 00
        input beyond 64 bits    | 2 | 28 | ff ff ff ff ff ff ff 7f
        )");
}

void TestLumtarctl::readsPayloadsOfItsLayoutOnly()
{
    PlayStatus status = stateAt(PlayState::Running, 1, 20, 1020);
    status.activeChannels = {1, 0, 0, 0x8000000000000000U};
    status.punctuality = {3, 2, 1us, 4us, 250us};
    const QByteArray state = encodeState(status, 7, 9);
    COMPARE_BYTES(state,
                  bytes("'LVB' 03 02 01 0000 002d310100*4 00f7cb3c00*4 e01f00*6 0100*30 80 07000000"
                        "09000000 e80300*6 a00f00*6 90d00300*5 0300*7 0200*7"));
    TransitionLog changes = exampleLog();
    changes.start = 12;
    changes.last[2].disturbances = FramesRefused;
    const QByteArray log = encodeLog(changes);
    COMPARE_BYTES(log.left(16), bytes("'LVB' 03 04000000 0400 2000 0c000000"));
    COMPARE_BYTES(log.mid(80, 32), bytes("01 02 03 02 ff00 0000 00*8 808d643d00*4 105e683d00*4"));
    QVERIFY(statusreply::decodeState(state) && statusreply::decodeChanges(log));
    for (const int count : {48, 49})
        QCOMPARE(statusreply::decodeChanges(bytes("'LVB' 03 ff000000") + char(count)
                                            + bytes("00 2000 00*4")
                                            + log.mid(16, 32).repeated(count))
                     .has_value(),
                 count == 48);

    const QByteArray inputs = encodeInputs(exampleInputs());
    COMPARE_BYTES(inputs,
                  bytes("'LVB' 03 62000000 0200 1000 0c000000 6000 0000"
                        "01 00 ff00 00*4 818d643d00*4 02 00 ffff 00*4 0094357700*4"));

    QFETCH(QStringList, row);
    QByteArray bad = row[1] == "0" ? state : row[1] == "1" ? log : inputs;
    const QByteArray other = bytes(row[3].toUtf8());
    bad.replace(row[2].toInt(), int(other.size()), other);
    QVERIFY(row[1] == "0" ? !statusreply::decodeState(bad)
                : row[1] == "1"
                ? !statusreply::decodeChanges(bad)
                : !statusreply::decodeInputs(bad) && !statusreply::decodeChanges(bad));
    for (int size = 0; size < inputs.size(); ++size)
        QVERIFY(!statusreply::decodeInputs(inputs.left(size)));
    for (int size = 0; size < state.size(); ++size)
        QVERIFY(!statusreply::decodeState(state.left(size))
                && !statusreply::decodeChanges(log.left(size)));
}

/// The library's decoder shares no code with the board that writes.
void TestLumtarctl::decodesForApplications()
{
    PlayStatus status = stateAt(PlayState::Stopped, 1, 20, 1020);
    status.activeChannels = {2, 0, 0, 0x8000000000000000U};
    status.punctuality = {3, 2, 1us, 4us, 250us};
    const auto state = statusreply::decodeState(encodeState(status, 7, 9) + '\x55');
    QVERIFY(state);
    QCOMPARE(state->playing, statusreply::State::Stopped);
    QCOMPARE(state->step, 1);
    QVERIFY(state->timeInStep == 20ms && state->totalTime == 1020ms && state->frames == 8160);
    QVERIFY(state->active[1] && state->active[255]);
    QCOMPARE(int(std::count(state->active.begin(), state->active.end(), true)), 2);
    QVERIFY(state->problems == 7 && state->start == 9);
    QVERIFY(state->latenessP50 == 1us && state->latenessP99 == 4us && state->latenessMax == 250us);
    QVERIFY(state->missedDeadlines == 3 && state->framesRefused == 2);

    TransitionLog log = exampleLog();
    log.total = 100;
    log.start = 12;
    log.last[1].lateness = 100us;
    log.last[2].disturbances = FramesRefused;
    const auto changes = statusreply::decodeChanges(encodeLog(log) + '\x55');
    QVERIFY(changes && changes->total == 100 && changes->start == 12);
    QCOMPARE(int(changes->last.size()), 4);
    const statusreply::Change &trip = changes->last[2];
    QVERIFY(trip.left == 1 && trip.entered == 2 && trip.channel == 255);
    QCOMPARE(trip.cause, statusreply::Change::BinaryInput);
    QCOMPARE(trip.disturbances, int(statusreply::Change::FramesRefused));
    QVERIFY(trip.causeTime == 1030ms && trip.entryTime == 1030250us && trip.lateness == 0s);
    QVERIFY(changes->last[1].lateness == 100us);
    QVERIFY(changes->last[3].entered == statusreply::kNoStep
            && changes->last[3].channel == statusreply::kNoChannel);
    QVERIFY(changes->timeInStep(2) == 29650us);
    for (const int index : {-1, 0, 4})
        QVERIFY(!changes->timeInStep(index));

    const auto inputs = statusreply::decodeInputs(encodeInputs(exampleInputs()) + '\x55');
    QVERIFY(inputs && inputs->total == 98 && inputs->start == 12 && inputs->first == 96);
    QCOMPARE(int(inputs->part.size()), 2);
    QVERIFY(inputs->part[0].kind == statusreply::Input::On && inputs->part[0].channel == 255);
    QVERIFY(inputs->part[0].time == 1030000001ns && inputs->part[1].time == 2s);
    QVERIFY(inputs->part[1].kind == statusreply::Input::Trigger
            && inputs->part[1].channel == statusreply::kNoChannel);
    const auto none = statusreply::decodeInputs(encodeInputs({}));
    QVERIFY(none && none->total == 0 && none->part.isEmpty());
}

void TestLumtarctl::watches_data()
{
    QTest::addColumn<QVector<QByteArray>>("states");
    QTest::addColumn<TransitionLog>("log");
    QTest::addColumn<int>("exitStatus");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("expected"); // parts of the output, separated by "|"
    QTest::addColumn<QString>("unexpected");
    const auto row = [](const char *name, const QVector<QByteArray> &states,
                        const TransitionLog &log, int exitStatus, const char *error,
                        const char *expected, const char *unexpected) {
        QTest::newRow(name) << states << log << exitStatus << QString::fromLatin1(error)
                            << QString::fromLatin1(expected) << QString::fromLatin1(unexpected);
    };

    PlayStatus tripped = stateAt(PlayState::Running, 1, 20, 1020);
    tripped.activeChannels = {2, 0, 0, 0x8000000000000000U};
    row("to its end",
        {encodeState(stateAt(PlayState::Running, 0, 100, 100), 0),
         encodeState(stateAt(PlayState::Running, 0, 250, 250), 0), encodeState(tripped, 0),
         encodeState(stateAt(PlayState::Finished, 2, 1000, 2030), 0)},
        exampleLog(), 0, "",
        "running: step 0 (prefault) 0.100 s, total 0.100 s, 800 frames, active: none|"
        "total 1.020 s, 8160 frames, active: 1 255|finished: step 2 (trip) 1.000 s, total 2.030 s|"
        "1.030250 1 (fault) 2 (trip) binary input 255 1.030000 29.750|"
        "2.030250 2 (trip) end time 2.030250 1000.000|"
        "binary input: logic channel 255, 29.750 ms after entry into step 1 (fault)",
        "total 0.250 s"); // neither state nor step has changed

    const auto disturbed = [](quint8 disturbances) {
        TransitionLog log = exampleLog();
        log.last[2].disturbances = disturbances;
        return log;
    };
    row("doubtful", {encodeState(stateAt(PlayState::Finished, 2, 1000, 2030), 0)},
        disturbed(SentLate | InputsLost), 1, "a time is doubtful",
        "binary input 255 1.030000 29.750 sent late, inputs lost|"
        "29.750 ms after entry into step 1 (fault), doubtful: sent late, inputs lost",
        "frames refused");
    TransitionLog others = exampleLog();
    others.start = 8;
    row("started by somebody else",
        {encodeState(stateAt(PlayState::Running, 0, 1, 1), 0, 7),
         encodeState(stateAt(PlayState::Running, 1, 1, 1), 0, 8)},
        others, 1, "started again by somebody else (start 8, this test was 7)", "running: step 0",
        "running: step 1");
    row("started by somebody else before the changes were read",
        {encodeState(stateAt(PlayState::Finished, 2, 1, 1), 0, 7)}, others, 1,
        "started again by somebody else", "finished: step 2", "29.750");
    row("stopped by somebody else", {encodeState(stateAt(PlayState::Stopped, 1, 20, 1020), 0)},
        exampleLog(), 1, "was stopped before its end", "0 (prefault) 1 (fault) time", "late by");
    row("reset by somebody else", {encodeState(tripped, 0), encodeState({}, 0)}, {}, 1,
        "the board does not play the sequence: it is idle", "running", "cause");
    row("another layout", {QByteArray(8, '\1')}, {}, 1,
        "cannot read this board's status: status 0 has 8 bytes of another layout; the "
        "sequence goes on",
        "started", "cause");
}

void TestLumtarctl::watches()
{
    QFETCH(QVector<QByteArray>, states);
    QFETCH(TransitionLog, log);
    QFETCH(QString, error);
    QFETCH(QString, expected);
    QFETCH(QString, unexpected);
    answerStatus(states, encodeLog(log));
    runFiles({QStringLiteral("--watch")});
    QTEST(m_exitStatus, "exitStatus");
    QVERIFY2(error.isEmpty() ? m_errors.isEmpty() : m_errors.contains(error), qPrintable(m_errors));
    expected += QStringLiteral("|0/112 reset|3/112 SV stream 2 of 2: E1Q00MU01/|"
                               "51/112 step 3 of 5: trip|111/112 start");
    for (const QString &part : expected.split(QLatin1Char('|')))
        QVERIFY2(m_output.simplified().contains(part), qPrintable(part + "\nnot in\n" + m_output));
    QVERIFY2(!m_output.contains(unexpected), qPrintable(m_output));
    QVERIFY2(!m_output.contains(QLatin1Char('\r')), "rewrites lines without a terminal");
    QVERIFY(!m_board->frames().contains(bytes("8c908c9003 00 fa 05020408")));
}

void TestLumtarctl::suitsTheTerminal_data()
{
    // name | columns of the terminal, 0: none | environment | arguments | part of all that it
    // prints, with ^ for an escape character | what that has nothing of
    addRows(R"(
        an error in red        | 80 | | chek | ^[31mlumtarctl: unknown command "chek" | ^[33m
        colours not wanted     | 80 | NO_COLOR=1 | chek | lumtarctl: unknown command "chek" | ^
        wanted after all       | 80 | NO_COLOR= | chek | ^[31mlumtarctl: unknown | ^[33m
        a terminal without     | 80 | TERM=dumb | chek | lumtarctl: unknown command "chek" | ^
        no terminal            | 0  | | chek | lumtarctl: unknown command "chek" | ^
        UTF-8                  | 0  | | check CONFIG | 1→0  3→1 | ->
        ASCII                  | 0  | LC_ALL=C | check CONFIG | 1->0 3->1 | →
        ASCII, from LANG       | 0  | LC_ALL= LANG=C | check CONFIG | -- Published GOOSE | ?
        UTF-8 of other machine | 0  | LC_ALL=xx_YY.utf8 | check CONFIG | 1→0  3→1 | ->
        no likeness            | 0  | LC_ALL=POSIX | check 间隔 | ?? | Qt
        )");
}

void TestLumtarctl::suitsTheTerminal()
{
    QFETCH(QStringList, row);
    row.replaceInStrings(QStringLiteral("^"), QStringLiteral("\x1b"));
    row.replaceInStrings(QStringLiteral("CONFIG"), m_config);
    m_terminal = row[1].toInt();
    m_environment = row[2];
    lumtarctl(row[3].split(QLatin1Char(' ')));
    const QString all = m_output + m_errors;
    QVERIFY2(all.contains(row[4]), qPrintable(all));
    QVERIFY2(!all.contains(row[5]), qPrintable(all));
    const bool isAscii = std::all_of(all.begin(), all.end(), [](QChar c) { return c < u'\x80'; });
    QCOMPARE(isAscii, !row[4].contains(QChar(0x2192)));
}

void TestLumtarctl::fitsTheWidth_data()
{
    QTest::addColumn<int>("width");
    for (const int width : {60, 80, 120})
        QTest::addRow("%d", width) << width;
}

/// Whoever reads the output through a pipe says how wide it may be with COLUMNS.
void TestLumtarctl::fitsTheWidth()
{
    QFETCH(int, width);
    PlayStatus last = stateAt(PlayState::Finished, 2, 1000, 2030);
    last.punctuality = {3, 2, 1us, 4us, 250us};
    TransitionLog log = exampleLog();
    log.last[1].lateness = 200us;
    answerStatus({encodeState(last, 7)}, encodeLog(log));
    m_environment = QStringLiteral("COLUMNS=%1").arg(width);
    runFiles({QStringLiteral("--watch")});
    QCOMPARE(m_exitStatus, 0);
    int widest = 0;
    for (const QString &line : m_output.split(QLatin1Char('\n')))
        widest = std::max(widest, int(line.size()));
    QVERIFY2(widest <= width && widest > width - 30, qPrintable(m_output));
    QVERIFY2(m_output.simplified().contains(QLatin1String("which began 0.200 ms late")),
             qPrintable(m_output));
}

/// In a narrow terminal the line that goes on loses what matters least.
void TestLumtarctl::keepsTheInputsInSight()
{
    PlayStatus tripped = stateAt(PlayState::Running, 1, 20, 1020);
    tripped.activeChannels = {2, 0, 0, 0x8000000000000000U};
    answerStatus({encodeState(tripped, 0), encodeState(stateAt(PlayState::Finished, 2, 9, 9), 0)},
                 encodeLog(exampleLog()));
    m_terminal = 60;
    runFiles({QStringLiteral("--watch")});
    const QRegularExpression live(QStringLiteral("\\[\\?7l(running.*?)\x1b\\[K"));
    const QString shown = live.match(m_output).captured(1);
    QCOMPARE(shown,
             QStringLiteral("running: step 1 (fault) 0.020 s, total 1.020\u2026, active: 1 255"));
    QVERIFY2(m_output.contains(QLatin1String("29.750 ms")), qPrintable(m_output));
}

void TestLumtarctl::stopsTheBoardWhenInterrupted_data()
{
    QTest::addColumn<int>("exchange"); // that is going on
    QTest::addColumn<int>("signal");
    QTest::addColumn<int>("kind"); // of the board's behaviour in it
    QTest::newRow("loading") << 3 << SIGINT << int(Behaviour::Late);
    QTest::newRow("executing") << 70 << SIGTERM << int(Behaviour::LoseFirst); // the last of step 3
    QTest::newRow("watching") << 114 << SIGINT << int(Behaviour::Proper);
}

void TestLumtarctl::stopsTheBoardWhenInterrupted()
{
    QFETCH(int, exchange);
    QFETCH(int, signal);
    QFETCH(int, kind);
    answerStatus({encodeState(stateAt(PlayState::Running, 0, 1, 1), 0)}, {});
    constexpr int kDelay = 1000; // ms; leaves the time to interrupt
    m_board->setBehaviour(exchange, {static_cast<Behaviour::Kind>(kind), 1, kDelay});
    // The stop command behind the lost one: a late answer to that must not pass for its own.
    m_board->setBehaviour(71, {Behaviour::LoseFirst, 1});
    bool wasGoingOn = false;
    runFiles({QStringLiteral("--watch")}, [&](pid_t process) {
        wasGoingOn = m_board->waitForReceptions(exchange + 1, 10000) && kill(process, signal) == 0;
    });
    QVERIFY(wasGoingOn);
    QCOMPARE(m_errors, QStringLiteral("lumtarctl: interrupted; the board has been stopped\n"));
    QCOMPARE(m_exitStatus, 130);
    const QVector<QByteArray> frames = m_board->frames();
    COMPARE_BYTES(frames.last(), bytes("8c908c9003 00 fa 05020408"));
    const bool hasStarted = frames.contains(bytes("8c908c9003 01 fa 05020408"));
    QCOMPARE(hasStarted, exchange > 112);
    QVERIFY2(hasStarted || frames.size() <= exchange + 3, "goes on for long");
    QCOMPARE(m_output.contains(QLatin1String("step 4 of 5")), hasStarted); // a retry is no progress
}

void TestLumtarctl::tellsWhatMayStillRun_data()
{
    QTest::addColumn<int>("exchange"); // that is not answered
    QTest::addColumn<bool>("mayRun");
    QTest::newRow("the last command before the start") << 110 << false;
    QTest::newRow("the start") << 111 << true;
    QTest::newRow("the state after a change of steps") << 115 << true;
}

void TestLumtarctl::tellsWhatMayStillRun()
{
    QFETCH(int, exchange);
    QFETCH(bool, mayRun);
    answerStatus({encodeState(stateAt(PlayState::Running, 0, 1, 1), 0),
                  encodeState(stateAt(PlayState::Running, 1, 1, 1001), 0)},
                 encodeLog(exampleLog()));
    m_board->setBehaviour(exchange, {Behaviour::NoAcknowledgement});
    runFiles({QStringLiteral("--watch")});
    QCOMPARE(m_exitStatus, 1);
    const QString stop = QStringLiteral("the sequence may still be running; to stop it: lumtarctl "
                                        "stop --board %1\n")
                             .arg(boardAddress().toString());
    QVERIFY2(m_errors.contains(QLatin1String("did not answer")), qPrintable(m_errors));
    QVERIFY2(m_errors.endsWith(stop) == mayRun, qPrintable(m_errors));
    QCOMPARE(m_output.contains(QLatin1String("29.750 ms after entry")), exchange > 112);
}

void TestLumtarctl::tellsThatLocalPortsAreTaken()
{
    QUdpSocket first;
    QUdpSocket second;
    const auto port = quint16(localPort());
    QVERIFY(first.bind(QHostAddress::AnyIPv4, port, QUdpSocket::DontShareAddress));
    QVERIFY(second.bind(QHostAddress::AnyIPv4, port + 1, QUdpSocket::DontShareAddress));
    runFiles();
    QVERIFY2(m_errors.contains(QStringLiteral("are taken")), qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 1);
    QCOMPARE(m_board->receptions().size(), 0);
}

QTEST_GUILESS_MAIN(TestLumtarctl)
#include "tst_lumtarctl.moc"
