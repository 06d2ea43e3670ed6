// What the board made of software writes into captures, and what it takes from scripts and from
// captures of the device under test.

#include "tests/testsupport.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "virtualboard/inputs/deviceinputs.h"
#include "virtualboard/inputs/inputfile.h"
#include "virtualboard/play/testprogram.h"

#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <sys/resource.h>

using namespace testsupport;
using namespace virtualboard;

namespace {

constexpr WallTime kStart{1700000000s};

QByteArray element(char tag, const QByteArray &contents)
{
    return QByteArray(1, tag) + char(contents.size()) + contents;
}

/// A message as a device sends it: integers as short as they are, "simulation" left out.
QByteArray goose(const char *allData, int count = 4, const char *life = "03e8",
                 const char *head = "010ccd010001 0200000000aa 88b8 1001")
{
    QByteArray pdu = bytes("8001'g'") + element('\x81', bytes(life));
    pdu += bytes("8201'd' 8408 00*8 850105 860100 880101 890100 8a01") + char(count);
    pdu = element(0x61, pdu + element('\xab', bytes(allData)));
    return bytes(head) + '\0' + char(pdu.size() + 8) + bytes("00000000") + pdu;
}

// The dataset: boolean, quality, double point, integer.
const char *const off = "830100 8403030000 84020640 850101";
const char *const on = "8301ff 8403030000 84020680 850101";

const QVector<SubscriptionCommand> subscriptions = {{1, 1, 0, 0x1001, 0, 4, {1, 3}},
                                                    {2, 2, 0, 0x1001, 10, 4, {4, 1}},
                                                    {3, 1, 0, 0x1001, 255, 4, {1, 3}},
                                                    {4, 1, 0, 0x1003, 700, 1, {1}}};
const QStringList tooFar = {
    "@0 GOOSE subscription 3: 2 entries from logic channel 255 reach beyond",
    "@0 GOOSE subscription 4: 1 entries from logic channel 700"};

/// "5:10+": channel 10 went on after 5 ms; "2!": the trigger.
QString text(const QVector<InputEvent> &events)
{
    QStringList texts;
    for (const InputEvent &event : events) {
        texts << QString::number(double((event.time - kStart).count()) / 1e6, 'g', 12);
        if (event.kind == InputKind::Trigger)
            texts.last() += '!';
        else
            texts.last() += QStringLiteral(":%1").arg(event.channel)
                + (event.kind == InputKind::ChannelOn ? '+' : '-');
    }
    return texts.join(' ');
}

/// Empty when the plan has these reports, each with its time in ms and its beginning.
QString otherReports(const PlannedInputs &plan, const QStringList &expected)
{
    QStringList told;
    bool same = plan.reports.size() == expected.size();
    for (const auto &each : plan.reports) {
        told << QStringLiteral("@%1 ").arg((each.time - kStart) / 1ms) + each.text;
        same = same && told.last().startsWith(expected[told.size() - 1]);
    }
    return same ? QString() : told.join('\n') + "\nexpected:\n" + expected.join('\n');
}

OutgoingFrame outgoing(const QByteArray &frame)
{
    return {reinterpret_cast<const uchar *>(frame.constData()), int(frame.size()), 1};
}

const QByteArray bigPcap = bytes("a1b2c3d4 0002 0004 00*8 0000ffff");
const QByteArray littleNanoPcap = bytes("4d3cb2a1 0200 0400 00*8 ffff0000 01000000");
const QByteArray pcapng = bytes("0a0d0d0a 1c000000 4d3c2b1a 01000000 ff*8 1c000000"
                                "01000000 14000000 01000000 00000000 14000000");

const StreamMark streamMark = {0x4001, QStringLiteral("M\u00dc\"01"), {"", "Ia1", "Vn2"}};
const StepMark stepMark = {{0, 1, Cause::BinaryInput, 255, 1030000001ns, 1030250us, 160ms},
                           {0.001F, 0.01F, 1e-9F, 123.45678F, -1.5F}};

template <typename M>
M decoded(const QByteArray &frame)
{
    return std::get<M>(decodeMark(frame).value());
}

} // namespace

Q_DECLARE_METATYPE(virtualboard::RecordedInput)

class TestCapture : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_folder;

    QString file(const QByteArray &content)
    {
        const QString path =
            m_folder.filePath(QStringLiteral("50%1 %2.txt")); // not to be filled in
        return writeFile(path, content) ? path : QString();
    }

private slots:
    void scripts_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("events");
        QTest::addColumn<QString>("complaint"); ///< a report begins with @, an error with :
        const auto row = [](const char *name, const char *script, const char *events,
                            const char *complaint = "") {
            QTest::newRow(name) << QByteArray(script) << QString(events) << QString(complaint);
        };
        row("empty", "", "");
        row("all kinds", "# trip\r\n\n 1.030\tchannel 0 on # now\r\n1.25 channel 1 off\n2 trigger",
            "1030:0+ 1250:1- 2000!");
        row("to the nanosecond", "0 trigger\n00000000000.000000001 trigger\n1000000.000 trigger\n",
            "0! 1e-06! 1000000000!");
        row("not subscribed, told once", "1 channel 2 on\n1 channel 11 on\n1 channel 2 off",
            "1000:11+", "@1000 logic channel 2 of the inputs");
        row("no time", "# x\n\ntrigger", "", ":3: a time of 0 to 1000000 seconds");
        for (const char *time : {"-1", "1e3", "1,5", "1.", "1.0000000001", "1000000.000000001",
                                 "99999999999999999999999", "\x7f\x45LF\x01"})
            row(time, time, "", ":1: a time of 0 to 1000000 seconds");
        row("back", "2 trigger\n1.999999999 trigger", "", ":2: time goes back to \"1.999999999\"");
        for (const char *what : {"1", "1 trigger now", "1 channel 0 On", "1 channel on"})
            row(what, what, "", ":1: \"trigger\" or \"channel N on|off\" expected");
        row("channel 256", "1 channel 256 on", "", ":1: a logic channel of 0 to 255");
        row("channel -1", "1 channel -1 on", "", ":1: a logic channel of 0 to 255");
    }
    void scripts()
    {
        QFETCH(QByteArray, script);
        QFETCH(QString, events);
        QFETCH(QString, complaint);
        const QString path = file(script);
        const auto inputs = InputFile::read(path);
        const QString error = inputs ? QString() : inputs.error();
        QVERIFY2(error.startsWith(complaint.startsWith(':') ? path + complaint : QString()),
                 qPrintable(error));
        QCOMPARE(inputs.has_value(), !complaint.startsWith(':'));
        if (!inputs)
            return;
        const PlannedInputs plan = inputs->plan(subscriptions, kStart);
        QCOMPARE(text(plan.events), events);
        const QStringList told = complaint.isEmpty() ? QStringList() : QStringList(complaint);
        QCOMPARE(otherReports(plan, tooFar + told), QString());
    }

    void messages_data()
    {
        QTest::addColumn<QVector<QByteArray>>("frames"); ///< 1 ms apart; an empty one: 19 ms more
        QTest::addColumn<QString>("events");
        QTest::addColumn<QStringList>("reports"); ///< of the streams of both ports
        const auto row = [](const char *name, const Frames &frames, const char *events,
                            const QStringList &reports) {
            QTest::newRow(name) << frames << QString(events) << reports;
        };
        const char *const allOn = "0:0+ 0:1+ 0:255+ 0:11+";
        row("on, on, off", {goose(on), goose(on), goose(off)},
            "0:0+ 0:1+ 0:255+ 0:11+ 2:0- 2:1- 2:255- 2:11-", {"@1002 lost"});
        row("only 10 is on",
            {goose("830100 8400 84020600 850101"), goose("830100 8400 840206c0 850101"),
             goose("830100 8400 840106 850101"), goose("830100 8400 84020480 850101"),
             goose("830100 8400 84020680 850101")},
            "4:1+", {"@1004 lost"});
        row("never active", {goose("850101 8400 a203830101 850101")}, "", {"@1000 lost"});
        row("tagged, with a trailer",
            {goose(on, 4, "03e8", "00*12 81008001 88b8 1001") + bytes("00*9 88fb")}, allOn,
            {"@1000 lost"});
        row("not subscribed",
            {goose(on, 4, "01", "00*12 88b8 1002"), goose(on, 4, "01", "00*12 88ba 1001"),
             bytes("00*12 88b8")},
            "", {});
        row("smaller dataset", {goose("830101 8400", 2), goose("830101 8400", 2)},
            "0:0+ 0:255+ 0:11+", {"@0 dataset of 4 entries expected, 2 found", "@1001 lost"});
        row("lost, and back", {goose(on, 4, "01"), goose(on, 4, "01"), {}, goose(off)},
            "0:0+ 0:1+ 0:255+ 0:11+ 22:0- 22:1- 22:255- 22:11-", {"@2 lost", "@1022 lost"});
        for (const char *life : {"4000000000000000", "ffffffffffffffff", "08637bd05af6"})
            row(life, {goose(on, 4, life), {}, goose(on)}, allOn, {"@1021 lost"});
        const QByteArray good = goose(on);
        const auto damaged = [&](const char *name, const QByteArray &frame) {
            row(name, {frame, frame, goose("830101")}, "", {"@0 damaged: "});
        };
        damaged("cut", good.chopped(1));
        damaged("APPID only", good.left(16));
        damaged("Length", QByteArray(good).replace(17, 1, bytes("07")));
        damaged("entry beyond the end", QByteArray(good).replace(bytes("8403"), bytes("8443")));
        damaged("number of entries", goose(on, 5));
        damaged("no life", QByteArray(good).replace(bytes("810203e8"), bytes("910203e8")));
        damaged("empty life", goose(on, 4, ""));
        damaged("no allData", goose("", 0).replace('\xab', '\xac'));
    }
    /// Written by the sink, the last one first; read back, put in order, planned.
    void messages()
    {
        QFETCH(QVector<QByteArray>, frames);
        QFETCH(QString, events);
        QFETCH(QStringList, reports);
        const QString path = m_folder.filePath(QStringLiteral("inputs"));
        CaptureSink sink;
        QVERIFY(sink.open(path));
        WallTime time = kStart;
        QVector<QPair<WallTime, QByteArray>> packets;
        for (const QByteArray &frame : frames) {
            packets.prepend({time, frame});
            time += frame.isEmpty() ? 20ms : 1ms;
        }
        for (const auto &packet : packets) {
            const OutgoingFrame frame = outgoing(packet.second);
            sink.publish(packet.first, &frame, 1);
        }
        QVERIFY(sink.flush());
        const auto inputs = InputFile::read(path);
        QVERIFY(inputs);
        QCOMPARE(*inputs->firstTime(), packets.first().first);
        const PlannedInputs plan = inputs->plan(subscriptions, kStart);
        QCOMPARE(text(plan.events), events);
        QStringList both = tooFar;
        for (const QString &report : reports)
            for (const char *port : {"1: ", "2: "})
                both << report.section(' ', 0, 0) + " GOOSE of APPID 0x1001 at light port " + port
                        + report.section(' ', 1);
        QCOMPARE(otherReports(plan, both), QString());
    }

    /// What a capture cannot tell: the port. And what must not grow with what comes in.
    void portsAndLimits()
    {
        DeviceInputs<WallTime> inputs(subscriptions);
        QCOMPARE(inputs.takeReports().size(), tooFar.size());
        QVERIFY(inputs.isSubscribed(255) && !inputs.isSubscribed(2) && !inputs.isSubscribed(256));
        QCOMPARE(inputs.nextLoss(), DeviceInputs<WallTime>::kNever);
        QVERIFY(inputs.take(kStart, 3, goose(on)).isEmpty());
        QCOMPARE(text(inputs.take(kStart, 2, goose(on))), QString("0:11+"));
        QCOMPARE(text(inputs.take(kStart + 1ms, 1, goose(on))), QString("1:0+ 1:1+ 1:255+"));
        QCOMPARE(inputs.nextLoss(), kStart + 1s);
        inputs.expire(inputs.nextLoss() - 1ns);
        QVERIFY(inputs.takeReports().isEmpty() && inputs.activeChannels()[3] == quint64(1) << 63);
        for (WallTime now = kStart; now < kStart + 1s; now += 1ms) {
            inputs.take(now, DeviceInputs<WallTime>::kAnyPort, goose(on, 3));
            inputs.take(now, DeviceInputs<WallTime>::kAnyPort, goose("", 0, "00"));
            inputs.expire(now);
        }
        QCOMPARE(inputs.takeReports().size(), 2 * (2 + DeviceInputs<WallTime>::kReportedLosses));
    }

    void captures_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("found"); ///< "time/size/whole ...", then the error
        const auto row = [](const char *name, const QByteArray &header, const char *packets,
                            const char *found) {
            QTest::newRow(name) << header + bytes(packets) << QString(found);
        };
        row("microseconds", bigPcap, "00000001 6553f100 000f423f 00000002 00000003 abcd",
            "1700000000999999000/2/0 ");
        row("nanoseconds", littleNanoPcap, "ffffffff ffc99a3b 01000000 01000000 ab 00*16",
            "4294967295999999999/1/1 0/0/1 ");
        row("fraction over 1 s", littleNanoPcap, "01000000 ffffff7f 00*8", "1999999999/0/1 ");
        // libpcap keeps of the seconds what the platform's time has room for.
        row("absurd time", pcapng, "06000000 20000000 00000000 ff*8 00*8 20000000",
            sizeof(time_t) > 4 ? "9223372035551615000/0/1 " : "4154504685551615000/0/1 ");
        row("ends early", bigPcap, "00000001 00*17", "0/0/1 FILE: packet 2: ");
        row("link type", bigPcap, "00000065", " FILE: Ethernet frames expected, link type RAW");
        row("no capture", "1 trigger", "", " FILE: ");
        row("empty", "", "", " FILE: ");
    }
    void captures()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, found);
        const QString path = file(content);
        CaptureReader reader;
        QStringList packets;
        const auto opened = reader.open(path);
        while (const auto frame = reader.next())
            packets << QString::number(frame->time.time_since_epoch().count()) + '/'
                    + QString::number(frame->bytes.size()) + '/' + QString::number(frame->whole);
        const QString error = opened ? reader.errorString() : opened.error();
        const QString all = packets.join(' ') + ' ' + QString(error).replace(path, "FILE");
        QVERIFY2(error.isEmpty() ? all == found : all.startsWith(found), qPrintable(all));
        QCOMPARE(opened.has_value(), !found.startsWith(' '));
        const auto inputs = InputFile::read(path);
        QVERIFY(!opened || (inputs ? QString() : inputs.error()) == error);
    }

    /// A program's marks go before its first frames, whose times are those of the player.
    void sink()
    {
        TestProgram program;
        QStringList problems;
        for (const char *command :
             {"8c918c91 000100 4000 ff*12 81008000 88ba 4000 002e 00000000 6024 800101 a21f 301d "
              "8004'svid' 82020000 830400000001 850101 8708 000002ee00002000",
              "8c908c9004 00 00 2b00 0000 a00f 3800 01 09", "8c908c9007 01 00*8",
              "8c908c9001 01 09 6f12833a 01 00004842 a4b42942 0000f0c2 0000803f"})
            problems += program.take(decodeCommand(padded({bytes(command)}).first()));
        QCOMPARE(problems.join('\n'), QString());
        const QString path = m_folder.filePath(QStringLiteral("capture"));
        CaptureSink sink;
        QVERIFY(sink.open(path));
        sink.begin(program);
        const RecordedInput inputs[] = {{1ns, InputKind::ChannelOn, 3}, {1ns, InputKind::Trigger}};
        sink.noteInputs(kStart + 1ns, inputs, 2);
        sink.note(kStart + 1ns, stepMark.transition);
        const QByteArray ab = "ab", c = "c";
        const OutgoingFrame frames[] = {outgoing(ab), outgoing(c)};
        for (const WallTime time : {kStart + 1ns, WallTime(-1ns), WallTime::max()})
            sink.publish(time, frames, 2);
        sink.end();

        CaptureReader reader;
        QVERIFY(reader.open(path));
        QVector<CapturedFrame> written;
        while (const auto frame = reader.next())
            written << *frame;
        QCOMPARE(written.size(), 10);
        QCOMPARE(int(decoded<InputMark>(written[1].bytes).input.channel), 3);
        QCOMPARE(decoded<InputMark>(written[2].bytes).input.kind, InputKind::Trigger);
        const auto stream = decoded<StreamMark>(written[0].bytes);
        QCOMPARE(stream.svId + ' ' + stream.channels.join(','), QString("svid Va2"));
        const auto step = decoded<StepMark>(written[3].bytes);
        QVERIFY(step.scale[8] == 0.0F && step.scale[9] == 0.001F);
        QCOMPARE(written[4].bytes + written[5].bytes, QByteArray("abc"));
        const WallTime latest(4294967295s);
        for (int i = 0; i < 10; ++i)
            QCOMPARE(written[i].time, i < 6 ? kStart + 1ns : i < 8 ? WallTime() : latest);
    }
    void fullDisk()
    {
        if (!QFile::exists(QStringLiteral("/dev/full")))
            QSKIP("no /dev/full here");
        CaptureSink sink;
        const auto opened = sink.open(m_folder.path());
        QVERIFY(!opened && opened.error().startsWith(m_folder.path()));
        QVERIFY(testsupport::failure(sink.open(QStringLiteral("/dev/full"))).contains("No space"));

        // Full while it is written: no file may be larger than that.
        const QString path = m_folder.filePath(QStringLiteral("full.pcap"));
        QVERIFY(sink.open(path));
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit small = {1 << 20, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        const QByteArray large(1500, 'x');
        const OutgoingFrame frame = outgoing(large);
        for (int i = 0; i < 2000; ++i)
            sink.publish(kStart, &frame, 1);
        sink.note(kStart, {});
        const QString error = sink.errorString();
        const bool isFlushed = sink.flush().has_value();
        setrlimit(RLIMIT_FSIZE, &before);
        QVERIFY2(error.startsWith(path + ": File too large"), qPrintable(error));
        QVERIFY(!isFlushed);
    }

    void marks()
    {
        const QByteArray stream = encodeMark(streamMark);
        QVERIFY(stream.startsWith(bytes("00*12 88b5 '{\"mark\":\"stream\",\"appId\":16385,'")));
        const auto sameStream = decoded<StreamMark>(stream);
        QCOMPARE(sameStream.appId, streamMark.appId);
        QCOMPARE(sameStream.svId, streamMark.svId);
        QCOMPARE(sameStream.channels, streamMark.channels);
        const QStringList names = {QString(500, 'a'), QString(500, 'b')};
        const QByteArray large = encodeMark(StreamMark{1, QString(2000, QChar(1)), names});
        QCOMPARE(decoded<StreamMark>(large).channels, names.mid(0, 1));

        const QByteArray step = encodeMark(stepMark);
        QVERIFY(step.contains("[0.001,0.01,1e-09,123.45678,-1.5,0,"));
        const auto sameStep = decoded<StepMark>(step);
        QVERIFY(encodeMark(sameStep) == step && sameStep.scale == stepMark.scale);
        QCOMPARE(sameStep.transition.causeTime, stepMark.transition.causeTime);
        QCOMPARE(sameStep.transition.lateness, 160ms);
        QCOMPARE(sameStep.transition.channel, stepMark.transition.channel);
        const StepMark end{{4, kNoStep, Cause::Limit, kNoChannel, 1ns, 2ns}, {}};
        QCOMPARE(decoded<StepMark>(encodeMark(end)).transition.entered, kNoStep);
    }
    void inputMarks_data()
    {
        QTest::addColumn<RecordedInput>("input");
        QTest::addColumn<QByteArray>("text");
        const auto row = [](const char *name, const RecordedInput &input, const char *text) {
            QTest::newRow(name) << input << QByteArray(text);
        };
        row("on", {1030000001ns, InputKind::ChannelOn, 0},
            R"({"mark":"input","channel":0,"on":true,"time":1.030000001})");
        row("off", {0s, InputKind::ChannelOff, 255},
            R"({"mark":"input","channel":255,"on":false,"time":0})");
        row("trigger", {2s, InputKind::Trigger, 7}, R"({"mark":"input","trigger":true,"time":2})");
    }
    /// As long as a frame has to be.
    void inputMarks()
    {
        QFETCH(RecordedInput, input);
        QFETCH(QByteArray, text);
        const QByteArray frame = encodeMark(InputMark{input});
        QCOMPARE(frame, (bytes("00*12 88b5") + text).leftJustified(60, ' '));
        const RecordedInput same = decoded<InputMark>(frame).input;
        QVERIFY(same.time == input.time && same.kind == input.kind);
        QCOMPARE(int(same.channel),
                 int(input.kind == InputKind::Trigger ? kNoChannel : input.channel));
    }
    void brokenMarks()
    {
        const char *const changes[][2] = {{"stream\"", "other\""},
                                          {"16385", "65536"},
                                          {"16385", "1.5"},
                                          {"\"Ia1\"", "1"},
                                          {"svId", "svid"},
                                          {"]}", "]"},
                                          {"step\"", "stream\""},
                                          {"ered\":1", "ered\":5"},
                                          {"binary input", "binary"},
                                          {"255", "256"},
                                          {"1.03025", "-1"},
                                          {"1.03025", "1e99"},
                                          {"0.16,", "-1,"},
                                          {"0.01,", ""},
                                          {"0.01,", "0.01,0,"},
                                          {"0.01,", "1e39,"},
                                          {"0.01,", "null,"},
                                          {"\x88\xb5", "\x88\xb6"},
                                          {":77", ":256"},
                                          {":77", ":null"},
                                          {"true", "1"},
                                          {"\"on\"", "\"On\""},
                                          {"2.5", "-2.5"},
                                          {"\"time\":2.5", "\"t\":2"}};
        const InputMark inputMark = {{2500ms, InputKind::ChannelOn, 77}};
        const QByteArray sound[] = {encodeMark(streamMark), encodeMark(stepMark),
                                    encodeMark(inputMark)};
        for (const auto &change : changes) {
            const auto *const found =
                std::find_if(std::begin(sound), std::end(sound), [&change](const QByteArray &each) {
                    return each.contains(change[0]);
                });
            QVERIFY2(found != std::end(sound), change[0]);
            QByteArray mark = *found + ' ';
            QVERIFY2(mark.contains(change[0]) && decodeMark(mark), change[0]);
            QVERIFY2(!decodeMark(mark.replace(change[0], change[1])), change[1]);
        }
        for (int size = 0; size < sound[1].size(); ++size)
            QVERIFY(!decodeMark(sound[1].left(size)));
    }
};

QTEST_GUILESS_MAIN(TestCapture)
#include "tst_capture.moc"
