// The board as a whole: what it does on each command and says about itself, in process; and the
// program lumtar-board over the device link.

#include "tests/testsupport.h"

#include "engine/lumtarengine.h"
#include "protocol/statusreply.h"
#include "virtualboard/board/virtualboard.h"
#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "workbench/statustext.h"

#include <QDateTime>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>

#include <atomic>
#include <csignal>
#include <map>

using namespace testsupport;
using namespace virtualboard;
using workbench::causeName; // beside the board's own

namespace {

constexpr WallTime kStart{1000500ms};

/// Words of the scripts below. "sv1" and "sv2" are a stream of one channel, fed by Va1; "halt"
/// stops with the start/stop command; "truncated" is a step condition without its end.
const std::map<QString, const char *> words = {
    {"sv1",
     "8c918c91 00 01 00 3a00 010ccd040001 020000000001 88ba 4000 002c 00000000 6022 800101 a21d"
     "301b 8002'MU' 82020000 830400000001 850101 870800*8"},
    {"sv2", "8c908c9004 00 00 2500 0000 a00f 3200 01 08"},
    {"beyond", "8c908c9004 00 00 2500 0000 a00f ff00 01 08"}, // the dataset leaves the frame
    {"signal", "8c908c9001 00 08 0ad7233c 01 00004842 0000c842 00000000 00000000"},
    {"input0", "ac12ac12 01 01 0110 0000 0100 04"}, // a subscription that feeds logic channel 0
    {"trigger", "8c908c900800"},
    {"stop", "8c938c93"},
    {"halt", "8c908c900300fa05020408"},
    {"reset", "8c908c9002"},
    {"truncated", "8c908c900700"},
};

/// The command for a word, for "go" and the sample interval in us, or for a step condition: "step:
/// ms>next step!next step on the trigger?next step on the binary input".
QByteArray command(const QString &word)
{
    static const QRegularExpression step(R"(^(\d):(\d+)>(\d+)(?:!(\d+))?(?:\?(\d+))?$)");
    const auto known = words.find(word);
    if (known != words.end())
        return bytes(known->second);
    if (word.startsWith("go"))
        return bytes("8c908c900301") + char(word.mid(2).toInt()) + bytes("05020408");
    const QRegularExpressionMatch match = step.match(word);
    const auto number = [&match](int n) { return char(match.captured(n).toInt()); };
    const auto jump = [&](int n) {
        return QByteArray(1, match.captured(n).isEmpty() ? '\0' : '\1') + number(n);
    };
    if (!match.hasMatch())
        qFatal("\"%s\" is no word of a script", qPrintable(word));
    return bytes("8c908c9007") + number(1) + '\0' + number(2) + char(match.captured(2).toInt() >> 8)
        + number(3) + jump(4) + jump(5);
}

const auto milliseconds = [](Duration time) {
    return QString::number(double(time.count()) / 1e6, 'g', 12);
};
const auto split = [](const QString &text) { return text.split(' ', Qt::SkipEmptyParts); };

/// "-0 start 0, 0- time 1000": step left, step entered, cause and its time in ms.
template <typename Change>
QString text(const QVector<Change> &changes)
{
    const auto step = [](int number) {
        return number == statusreply::kNoStep ? "-" : QString::number(number);
    };
    QStringList texts;
    for (const Change &each : changes)
        texts << step(each.left) + step(each.entered) + ' ' + causeName(each.cause) + ' '
                + milliseconds(each.causeTime);
    return texts.join(", ");
}

/// "*" in \a pattern stands for anything.
bool matches(const QString &text, const QString &pattern)
{
    return QRegularExpression(QRegularExpression::wildcardToRegularExpression(pattern))
        .match(text)
        .hasMatch();
}

#define VERIFY_MATCH(text, pattern) \
    QVERIFY2(matches(text, pattern), \
             qPrintable(QStringLiteral("%1\nis not: %2").arg(text, pattern)))

/// Asks for the status as any application does; \a engine is connected.
QByteArray readStatus(LumtarEngine &engine, int which)
{
    QByteArray status(1600, '\0');
    return engine.CheckSeqExec(which, reinterpret_cast<quint8 *>(status.data())) == 1
        ? status
        : QByteArray();
}

/// "3+ 1030", "3- 1030" or "trigger 1030", in ms.
QString text(const RecordedInput &input)
{
    const QString what = input.kind == InputKind::Trigger
        ? QString("trigger")
        : QString::number(input.channel) + (input.kind == InputKind::ChannelOn ? '+' : '-');
    return what + ' ' + milliseconds(input.time);
}

struct Recorded
{
    WallTime time;
    Transition transition;
};

/// The changes of steps in a capture.
QVector<Recorded> changesIn(const QString &path)
{
    QVector<Recorded> result;
    CaptureReader capture;
    if (!capture.open(path))
        return result;
    while (const auto frame = capture.next()) {
        const auto mark = decodeMark(frame->bytes);
        if (const auto *const step = mark ? std::get_if<StepMark>(&*mark) : nullptr)
            result << Recorded{frame->time, step->transition};
    }
    return result;
}

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestBoard : public QObject
{
    Q_OBJECT

private slots:
    void obeys_data();
    void obeys();
    void keepsInputs();
    void playsSeveral();
    void plays_data();
    void plays();
    void refusesBadArguments_data();
    void refusesBadArguments();
    void tellsFailures_data();
    void tellsFailures();
    void tellsLostCaptureAtOnce();

private:
    void runBoard(const QString &options, const QString &script);

    SingleRun m_singleRun;
    QTemporaryDir m_directory;
    const QString m_capture = m_directory.filePath("test.pcap");
    const QString m_inputs = m_directory.filePath("inputs.txt");
    int m_exitStatus = -1;
    QString m_output; ///< and the errors
};

void TestBoard::obeys_data()
{
    // "begun" and "end" in a script wait for the start and the end of the sequence.
    // name | limit in s | script | state, step, ms in it, ms in total, frames | number of changes:
    // the last ones | starts in ms | reports
    addRows(R"(
        switched on        | 5 | | idle 255 0 0 0 | 0: | | 0
        armed              | 5 | 0:9>255 | armed 255 0 0 0 | 0: | | 0
        no step 0          | 5 | 1:9>255 go250 | idle 255 0 0 0 | 0: | | 1
        step damaged       | 5 | truncated go250 | idle 255 0 0 0 | 0: | | 2
        interval 0         | 5 | 0:9>255 go0 | armed 255 0 0 0 | 0: | | 1
        end                | 5 | sv1 sv2 0:1000>255 go250 end | finished 0 1000 1000 4000 | 2: -0 start 0, 0- time 1000 | 1000500 | 0
        between instants   | 5 | sv1 sv2 0:1>1 1:1>255 go255 end | finished 1 1.02 2.04 8 | 3: -0 start 0, 01 time 1, 1- time 2.02 | 1000500 | 1
        unpublished, told  | 5 | sv1 beyond 0:9>255 go250 end go250 end | finished 0 9 9 0 | 2: -0 start 0, 0- time 9 | 1000500 1001000 | 1
        unpublished, twice | 5 | sv1 beyond sv1 beyond 0:9>255 go250 end | finished 0 9 9 0 | 2: -0 start 0, 0- time 9 | 1000500 | 1
        mended, unpublished | 5 | sv1 beyond sv2 beyond 0:9>255 go250 end | finished 0 9 9 0 | 2: -0 start 0, 0- time 9 | 1000500 | 2
        unpublished, again | 5 | sv1 beyond reset sv1 beyond 0:9>255 go250 end | finished 0 9 9 0 | 2: -0 start 0, 0- time 9 | 1000500 | 2
        limit              | 5 | sv1 sv2 0:0>0 go250 end | stopped 0 5000 5000 20000 | 2: -0 start 0, 0- limit 5000 | 1000500 | 1
        many changes       | 5 | 0:1>1 1:1>0 go250 end | stopped 1 1 5000 0 | 5001: 01 time 4953, 10 time 4954, *, 01 time 4999, 1- limit 5000 | 1000500 | 1
        running            | 1000000 | 0:0>0 go250 begun | running 0 * * 0 | 1: -0 start 0 | 1000500 | 0
        stop               | 1000000 | 0:0>0 go250 begun stop | stopped 0 * * 0 | 2: -0 start 0, 0- stop * | 1000500 | 0
        stop after the end | 5 | 0:9>255 go250 end stop | finished 0 9 9 0 | 2: -0 start 0, 0- time 9 | 1000500 | 0
        reset              | 1000000 | 0:0>0 go250 begun reset | idle 255 0 0 0 | 0: | 1000500 | 0
        reset forgets      | 1000000 | 0:0>0 go250 reset go250 | idle 255 0 0 0 | 0: | 1000500 | 1
        start while playing | 1000000 | 0:0>0 go250 begun go250 begun | running 0 * * 0 | 1: -0 start 0 | 1000500 *000 | 0
        download while playing | 1000000 | 0:0>0 go250 0:9>255 halt go250 end | finished 0 9 9 0 | 2: -0 start 0, 0- time 9 | 1000500 *000 | 0
        again              | 5 | sv1 sv2 0:499>255 go250 end go250 end | finished 0 499 499 1996 | 2: -0 start 0, 0- time 499 | 1000500 1001000 | 0
        end at full second | 5 | sv1 sv2 0:500>255 go250 end go250 end | finished 0 500 500 2000 | 2: -0 start 0, 0- time 500 | 1000500 1002000 | 0
        again, refused     | 5 | 0:9>255 go250 end go0 | armed 255 0 0 0 | 0: | 1000500 | 1
        trigger            | 1000000 | 0:0>0!1 1:9>255 go250 trigger end | finished 1 9 * 0 | 3: -0 start 0, 01 trigger *, 1- time * | 1000500 | 0
        trigger too early  | 5 | 0:0>0!1 1:9>255 trigger go250 end | stopped 0 5000 5000 0 | 2: -0 start 0, 0- limit 5000 | 1000500 | 1
        )");
}

void TestBoard::obeys()
{
    QFETCH(QStringList, row);
    VirtualBoardOptions options;
    options.address = boardAddress();
    options.capture = m_capture;
    options.startTime = kStart;
    options.limit = std::chrono::seconds(row[1].toLongLong());
    std::atomic<int> notices = 0;
    VirtualBoard board(options, [&notices](const QString &) { ++notices; });
    QVERIFY(board.start());
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    for (const QString &word : split(row[2])) {
        if (word == "begun")
            QTRY_VERIFY(board.log().total > 0);
        else if (word == "end")
            QTRY_VERIFY(board.state() != PlayState::Running);
        else
            QCOMPARE(engine.SendCommand(command(word)), 1);
    }
    const auto state = statusreply::decodeState(readStatus(engine, statusreply::kState)).value();
    const QStringList shown = {workbench::stateName(state.playing), QString::number(state.step),
                               milliseconds(state.timeInStep), milliseconds(state.totalTime),
                               QString::number(state.frames)};
    VERIFY_MATCH(shown.join(' '), row[3]);
    const auto changes =
        statusreply::decodeChanges(readStatus(engine, statusreply::kChanges)).value();
    VERIFY_MATCH((QString::number(changes.total) + ": " + text(changes.last)).trimmed(), row[4]);
    QCOMPARE(int(changes.last.size()), int(qMin(changes.total, 48U)));
    QCOMPARE(changes.start, state.start);
    const auto inputs = statusreply::decodeInputs(readStatus(engine, statusreply::kInputs)).value();
    QCOMPARE(inputs.start, state.start);
    QCOMPARE(int(inputs.total), int(text(changes.last).count("trigger")));
    QCOMPARE(quint32(inputs.part.size()), inputs.total);
    for (const int which : {10, 255})
        COMPARE_BYTES(readStatus(engine, which).left(5), bytes("'LVB' 03 00"));
    board.stop();
    const bool wasRunning = state.playing == statusreply::State::Running;
    QCOMPARE(board.state(), wasRunning ? PlayState::Stopped : PlayState(state.playing));
    QStringList begins;
    for (const Recorded &each : changesIn(m_capture)) {
        if (each.transition.cause == Cause::Start)
            begins << milliseconds(each.time.time_since_epoch());
    }
    VERIFY_MATCH(begins.join(' '), row[5]);
    QCOMPARE(int(state.start), begins.size());
    QCOMPARE(notices.load(), row[6].toInt());
    QCOMPARE(int(state.problems), row[6].toInt());
}

/// The first 768 of 1000 inputs, in eight parts; as long as they are those of the last start.
void TestBoard::keepsInputs()
{
    QByteArray script;
    for (int i = 1; i <= 1000; ++i)
        script += "0." + QByteArray::number(i * 1000 + i % 7).rightJustified(9, '0')
            + (i % 2 == 1 ? " channel 0 on\n" : " channel 0 off\n");
    QVERIFY(writeFile(m_inputs, script));
    VirtualBoardOptions options;
    options.address = boardAddress();
    options.inputs = m_inputs;
    options.startTime = kStart;
    options.limit = std::chrono::seconds(100);
    VirtualBoard board(options, [](const QString &) {});
    QVERIFY(board.start());
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    const auto run = [&](const QString &line) {
        for (const QString &word : split(line))
            QCOMPARE(engine.SendCommand(command(word)), 1);
        QTRY_VERIFY(board.state() != PlayState::Running);
    };
    run("input0 0:500>255 go250");
    for (int part = 0; part < statusreply::kInputParts; ++part) {
        const auto inputs =
            statusreply::decodeInputs(readStatus(engine, statusreply::kInputs + part)).value();
        QCOMPARE(inputs.total, 1000U);
        QCOMPARE(inputs.start, 1U);
        QCOMPARE(inputs.first, 96 * part);
        QCOMPARE(int(inputs.part.size()), 96);
        for (int i = 0; i < 96; ++i) {
            const statusreply::Input &input = inputs.part[i];
            const int number = 96 * part + i + 1; // counted from 1, as in the script
            QCOMPARE(input.time, std::chrono::nanoseconds(number * 1000 + number % 7));
            QCOMPARE(input.kind,
                     number % 2 == 1 ? statusreply::Input::On : statusreply::Input::Off);
            QCOMPARE(input.channel, 0);
        }
    }
    for (const char *line : {"reset", "0:0>255 go0", "0:9>255 go250"}) { // no subscription any more
        run(line);
        const QByteArray status = readStatus(engine, statusreply::kInputs + 1);
        const auto inputs = statusreply::decodeInputs(status).value();
        QVERIFY2(inputs.total == 0 && inputs.part.isEmpty() && inputs.first == 96, line);
    }
}

/// One board plays several sequences, each with its own inputs and capture: what it says of them is
/// the same whether or not the frames go anywhere, and nothing of one is left in the next.
void TestBoard::playsSeveral()
{
    VirtualBoardOptions options;
    options.address = boardAddress();
    options.startTime = kStart;
    options.limit = std::chrono::seconds(100);
    VirtualBoard board(options, [](const QString &) {});
    QVERIFY(board.start());
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    for (const QString &word : split("sv1 sv2 input0 0:500>1?1 1:20>255"))
        QCOMPARE(engine.SendCommand(command(word)), 1);
    const auto play = [&](const NextSequences &next) {
        QVERIFY2(board.prepare(next), "cannot be opened");
        QCOMPARE(engine.SendCommand(command("go250")), 1);
        QVERIFY(board.waitForEnd(std::chrono::seconds(60)));
    };
    const auto said = [&engine](int which, int startAt) {
        return readStatus(engine, which)
            .replace(startAt, 4, QByteArray(4, 0)); // number of the start
    };
    const InputFile trip =
        InputFile::fromEvents({{600ms, InputKind::ChannelOff, 0}, {30ms, InputKind::ChannelOn, 0}});
    QByteArray all;
    for (const QString &capture : {m_capture, QString(), m_capture}) {
        QFile::remove(m_capture);
        play({trip, capture, kStart});
        QCOMPARE(text(board.log().last), QString("-0 start 0, 01 binary input 30, 1- time 50"));
        QCOMPARE(board.status().framesSent, 200U);
        QCOMPARE(int(changesIn(m_capture).size()), capture.isEmpty() ? 0 : 3);
        const QByteArray now = said(statusreply::kState, 68) + said(statusreply::kChanges, 12)
            + said(statusreply::kInputs, 12);
        COMPARE_BYTES(now, all.isEmpty() ? now : all);
        all = now;
    }
    const QByteArray first = content(m_capture);
    QVERIFY(!board.prepare({trip, "/proc/none/capture.pcap", kStart}));
    play({std::nullopt, {}, kStart});
    QCOMPARE(text(board.log().last), QString("-0 start 0, 01 time 500, 1- time 520"));
    play({trip, m_capture, kStart});
    board.stop();
    COMPARE_BYTES(content(m_capture), first);
}

/// Runs the program and sends it the commands; "end" waits for the end of the sequence, "ctrl-c"
/// interrupts the program.
void TestBoard::runBoard(const QString &options, const QString &script)
{
    m_exitStatus = -1;
    QProcess board;
    board.setProcessChannelMode(QProcess::MergedChannels);
    board.start(LUMTAR_BOARD,
                split(options)
                    + QStringList{"--listen", boardAddress().toString(), "--capture", m_capture});
    QVERIFY(board.waitForReadyRead());
    m_output = QString::fromUtf8(board.readAll());
    QVERIFY2(m_output.startsWith("ready on "), qPrintable(m_output));
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    for (const QString &word : split(script)) {
        quint8 state[1600] = {};
        if (word == "end")
            QTRY_VERIFY(engine.CheckSeqExec(statusreply::kState, state) == 1
                        && state[4] != quint8(PlayState::Running));
        else if (word == "ctrl-c")
            QCOMPARE(::kill(pid_t(board.processId()), SIGINT), 0);
        else
            QCOMPARE(engine.SendCommand(command(word)), 1);
    }
    QVERIFY(board.waitForFinished(20000));
    m_exitStatus = board.exitStatus() == QProcess::NormalExit ? board.exitCode() : -1;
    m_output += QString::fromUtf8(board.readAll());
}

void TestBoard::plays_data()
{
    // name | options | inputs, separated by ";" | script behind that of the stream | exit status |
    // part of the output | changes | inputs
    addRows(R"(
        end           | --once | | 0:1000>255 go250 | 0 | finished after 1.000 | -0 start 0, 0- time 1000
        stop          | --once --limit 10000 | | 0:0>0 go250 stop | 0 | stopped after | -0 start 0, 0- stop *
        unexpected    | --once --expect stop=2 | | stop | 1 | stop expected, 1 received |
        interrupted   | --limit 10000 | | 0:0>0 go250 ctrl-c | 0 | stopped after | -0 start 0, 0- stop *
        limit         | --limit 3 | | 0:0>0 go250 end ctrl-c | 1 | played for 3 s | -0 start 0, 0- limit 3000
        capture limit | --limit 90000 --capture-limit 1 | | 0:0>0 go250 end ctrl-c | 1 | the capture has reached its limit of 1 MiB | -0 start 0, 0- limit 3541.75
        time is up    | --timeout 1 | | 0:9>255 go250 | 0 | finished after 0.009 | -0 start 0, 0- time 9
        too late      | --timeout 1 --once | | 0:9>255 go250 | 1 | not ended within 1 s | -0 start 0, 0- time 9
        bad command   | | | truncated stop ctrl-c | 1 | step condition |
        input         | | 1.030 channel 0 on | input0 0:1000>1 1:0>0?2 2:9>255 go250 end ctrl-c | 0 | finished after 1.039 | -0 start 0, 01 time 1000, 12 binary input 1030, 2- time 1039 | 0+ 1030
        other channel | --limit 2 | 1 channel 1 on | input0 0:0>0?255 go250 end ctrl-c | 1 | channel 1 | -0 start 0, 0- limit 2000
        limit, input  | --limit 1 | 1.000 channel 0 on;1.000 trigger | input0 0:1000>1!2?2 1:0>0 2:0>0 go250 end ctrl-c | 1 | 1 were reported | -0 start 0, 0- limit 1000 | 0+ 1000, trigger 1000
        trigger       | | BOM0.5001 trigger | 0:0>0!255 go250 end ctrl-c | 0 | finished after 0.500 | -0 start 0, 0- trigger 500.1 | trigger 500.1
        twice         | | 0.5 trigger;0.6 trigger | 0:0>0!255 go250 end go250 end ctrl-c | 0 | finished after 0.500 | -0 start 0, 0- trigger 500, -0 start 0, 0- trigger 500 | trigger 500, trigger 500
        not awaited   | --limit 2 | 0.1 trigger;0.2 channel 0 on;0.3 channel 0 on;0.4 channel 0 off | input0 0:500>255 go250 end ctrl-c | 0 | finished after 0.500 | -0 start 0, 0- time 500 | trigger 100, 0+ 200, 0- 400
        )");
}

void TestBoard::plays()
{
    QFETCH(QStringList, row);
    const QString time = "2026-01-31T12:00:00Z";
    const QString options = "--start-time " + time + " --inputs " + m_inputs + ' ' + row[1];
    const QString script = "sv1 sv2 signal " + row[3];
    row[2].replace("BOM", QString(QChar(QChar::ByteOrderMark)));
    QVERIFY(writeFile(m_inputs, row[2].replace(';', '\n').toUtf8()));
    runBoard(options, script);
    QVERIFY2(m_output.contains(row[5]), qPrintable(m_output));
    QCOMPARE(m_exitStatus, row[4].toInt());

    CaptureReader capture;
    QVERIFY(capture.open(m_capture));
    QVector<Transition> changes;
    QStringList inputs;
    WallTime last(
        std::chrono::milliseconds(QDateTime::fromString(time, Qt::ISODate).toMSecsSinceEpoch()));
    int published = 0; // in the last sequence
    while (const auto frame = capture.next()) {
        QVERIFY2(!changes.isEmpty() || frame->time == last, "the start is not at --start-time");
        QVERIFY2(frame->time >= last, "time goes back");
        last = frame->time;
        const auto mark = decodeMark(frame->bytes);
        if (!mark)
            ++published;
        else if (const auto *const step = std::get_if<StepMark>(&*mark)) {
            changes << step->transition;
            published = step->transition.cause == Cause::Start ? 0 : published;
        } else if (const auto *const each = std::get_if<InputMark>(&*mark)) {
            inputs << text(each->input);
        }
    }
    QCOMPARE(capture.errorString(), QString());
    VERIFY_MATCH(text(changes), row[6]);
    QCOMPARE(inputs.join(", "), row.value(7));
    QVERIFY2(changes.isEmpty() || m_output.contains(QStringLiteral(" %1 frames").arg(published)),
             qPrintable(QStringLiteral("%1 in the capture, but\n").arg(published) + m_output));

    const QByteArray first = content(m_capture);
    if (!row[6].contains('*')) { // no stop that comes whenever it comes
        runBoard(options, script);
        QVERIFY2(content(m_capture) == first, "the same test gave another capture");
    }
}

void TestBoard::refusesBadArguments_data()
{
    // arguments | part of the message | exit status, if not 2
    addRows(R"(
        --listen localhost | --listen "localhost"
        --udp-port 65536 | --udp-port "65536"
        --limit 1.5 | --limit "1.5"
        --timeout=-1 | --timeout "-1"
        --start-time 1969-12-31T23:59:59Z | --start-time "1969
        --start-time 2103-01-01T00:00:00Z | --start-time "2103
        --expect stop | --expect "stop" is not
        --expect foo=1 | status read-back
        --inputs LONG | long.txt:2: a line of at most
        --inputs UTF16 | UTF-16
        --inputs BARE16 | UTF-16
        --inputs EMPTY | is empty
        --udp-port FREE | not overwritten
        --capture-limit -1 | --capture-limit "-1"
        --interface lo --capture-limit 1 | --capture-limit is for virtual time
        --loop | loop
        now | unexpected argument "now"
        --timeout | timeout
        --phases jumps | --phases "jumps" is none of
        --realtime | --realtime needs --interface
        --cpu 1 | --cpu needs
        --interface lo --inputs INPUTS | --inputs is for virtual time
        --port 9=lo | --port
        --port 1=lo --port 1=lo | --port
        --inputs DIRECTORY/none | none
        --inputs INPUTS | inputs.txt:2
        --capture INPUTS --inputs INPUTS | --capture would overwrite
        --capture DIRECTORY | DIRECTORY
        --capture DIRECTORY/none/test.pcap | none
        --udp-port BUSY | BUSY | 1
        )");
}

/// None of them costs an earlier capture.
void TestBoard::refusesBadArguments()
{
    QFETCH(QStringList, row);
    QUdpSocket busy;
    QVERIFY(busy.bind(boardAddress(), quint16(localPort(5)), QUdpSocket::DontShareAddress));
    QVERIFY(writeFile(m_capture, "earlier"));
    const QByteArray inputs = "1 trigger\n2 channel 256 on\n";
    QVERIFY(writeFile(m_inputs, inputs));
    row.replaceInStrings("BUSY", QString::number(busy.localPort()));
    const QString longLine = m_directory.filePath("long.txt");
    const QString utf16 = m_directory.filePath("utf16.txt");
    const QString bare16 = m_directory.filePath("bare16.txt");
    const QString empty = m_directory.filePath("empty.pcap");
    QVERIFY(writeFile(longLine, "1 trigger\n" + QByteArray(5000000, ' ')));
    QVERIFY(writeFile(utf16,
                      QByteArray("\xff\xfe"
                                 "1\0",
                                 4))
            && writeFile(bare16, QByteArray("1\0 \0", 4)) && writeFile(empty, {}));
    row.replaceInStrings("LONG", longLine);
    row.replaceInStrings("UTF16", utf16);
    row.replaceInStrings("BARE16", bare16);
    row.replaceInStrings("EMPTY", empty);
    row.replaceInStrings("FREE", QString::number(localPort(6)));
    row.replaceInStrings("INPUTS", m_inputs);
    row.replaceInStrings("DIRECTORY", m_directory.path());
    QProcess board;
    board.start(LUMTAR_BOARD,
                QStringList{"--listen", boardAddress().toString(), "--capture", m_capture}
                    + split(row[0]));
    QVERIFY(board.waitForFinished());
    const QString errors = QString::fromLocal8Bit(board.readAllStandardError());
    QVERIFY2(errors.startsWith("lumtar-board: ") && errors.contains(row[1]), qPrintable(errors));
    QCOMPARE(errors.count('\n'), 1);
    QCOMPARE(board.exitCode(), row.value(2, "2").toInt());
    QCOMPARE(content(m_capture), QByteArray("earlier"));
    QCOMPARE(content(m_inputs), inputs);
}

void TestBoard::tellsFailures_data()
{
    // shell command, in the test's directory | exit status | part of the errors
    addRows(R"(
        BOARD --help > /dev/full | 1 | cannot print
        BOARD --timeout 1 > /dev/full | 1 | cannot print
        BOARD --timeout 1 --capture x.pcap & sleep 0.5; rm x.pcap; wait $! | 1 | x.pcap
        BOARD --timeout 1 --capture /dev/full | 2 | /dev/full
        http_proxy=socks5://127.0.0.1:9 BOARD --timeout 1 | 0 |
        BOARD --timeout 9 --capture k.pcap & sleep 0.5; kill -9 $!; wait $!; od -N4 -tx1 k.pcap >&2 | 0 | 4d 3c b2 a1
        )");
}

void TestBoard::tellsFailures()
{
    QFETCH(QStringList, row);
    row[0].replace("BOARD", QString(LUMTAR_BOARD) + " --listen " + boardAddress().toString());
    QProcess shell;
    shell.setWorkingDirectory(m_directory.path());
    shell.start("sh", {"-c", row[0]});
    QVERIFY(shell.waitForFinished());
    const QString errors = QString::fromLocal8Bit(shell.readAllStandardError());
    QVERIFY2(errors.contains(row[2]), qPrintable(errors));
    QCOMPARE(shell.exitCode(), row[1].toInt());
}

/// While the sequence goes on, and no second time.
void TestBoard::tellsLostCaptureAtOnce()
{
    VirtualBoardOptions options;
    options.address = boardAddress();
    options.capture = m_directory.filePath("lost.pcap");
    options.startTime = kStart;
    options.limit = std::chrono::seconds(1000000);
    std::atomic<int> lost = 0, others = 0;
    VirtualBoard board(options, [&lost, &others](const QString &line) {
        ++(line.contains("lost.pcap") ? lost : others);
    });
    QVERIFY(board.start());
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    for (const char *word : {"sv1", "sv2", "signal", "0:0>0", "go250"})
        QCOMPARE(engine.SendCommand(command(word)), 1);
    QVERIFY(QFile::remove(options.capture));
    QTRY_COMPARE(lost.load(), 1);
    QCOMPARE(board.state(), PlayState::Running);
    QCOMPARE(engine.SendCommand(command("stop")), 1);
    board.stop();
    QCOMPARE(lost.load(), 1);
    QCOMPARE(others.load(), 0);
}

QTEST_GUILESS_MAIN(TestBoard)
#include "tst_board.moc"
