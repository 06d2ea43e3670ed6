// The board made of software is what other tests trust: its own faults are looked for here.

#include "tests/testsupport.h"

#include "virtualboard/board/boardreport.h"
#include "virtualboard/board/crosscheck.h"
#include "virtualboard/wire/analogchannels.h"
#include "virtualboard/wire/envelope.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>
#include <QThread>
#include <QUdpSocket>

#include <algorithm>
#include <array>
#include <atomic>

using namespace virtualboard;

namespace {

const QHostAddress boardAddress(QStringLiteral("127.0.61.1"));
constexpr quint16 kBoardPort = 2001;

QByteArray bytes(const char *hex)
{
    return QByteArray::fromHex(hex);
}

QByteArray changed(QByteArray frame, int index, int byte)
{
    frame[index] = char(byte);
    return frame;
}

const QByteArray svFrame =
    bytes("ffffffffffff ffffffffffff 81008000 88ba 4000 002e 00000000 6024 800101 a21f 301d"
          "800473766964 82020000 830400000001 850101 8708 000002ee00002000");
const QByteArray gooseFrame =
    bytes("ffffffffffff 010ccd020000 81008000 88b8 2000 005b 00000000 6151 8007676f6362526566"
          "81020fa0 820744617461736574 8304676f4944 84080000000000000050 850400000001 860400000000"
          "870100 880101 890100 8a0103 ab11 830100 84020640 91080000000000000050");
const QByteArray resetCommand = bytes("8c908c9002");
const QByteArray svDownload = bytes("8c918c91000100 4000") + svFrame;
const QByteArray gooseDownload = bytes("8c918c91400900 6d00") + gooseFrame;
const QByteArray svDescription = bytes("8c908c9004 00 00 2b00 0000 a00f 3800 01 ff");
const QByteArray gooseDescription = bytes("8c908c9005 00 4a 3a");
const QByteArray gooseControl = bytes("8c908c9009 02 00 02 4400 04 00000000 6100 02 0680");
const QByteArray subscription = bytes("ac12ac12 01 01 0110 0000 0400 0404");
const QByteArray channelSignal =
    bytes("8c908c9001 02 09 6f12833a 01 00004842 a4b42942 0000f0c2 0000803f");
const QByteArray stepCondition = bytes("8c908c9007 03 0c 7011 04 01 02 01 04");
const QByteArray statusRead = bytes("8c928c92 07");
const QByteArray stop = bytes("8c938c93");

struct Sample
{
    const char *name;
    QByteArray frame;
    QVector<int> shorterForms = {}; ///< sizes at which the frame's beginning is a command too
};

const QVector<Sample> samples = {
    {"channel signal", channelSignal, {24}},
    {"reset message parameters", resetCommand},
    {"start/stop", bytes("8c908c9003 01 fa 05 02 04 08")},
    {"SV stream description", svDescription},
    {"GOOSE stream description", gooseDescription},
    {"disable current state", bytes("8c908c9006 01")},
    {"step condition", stepCondition},
    {"state change", bytes("8c908c9008 00")},
    {"GOOSE signal control", gooseControl},
    {"step option", bytes("8c908c900a 00 01")},
    {"frame-template download", svDownload},
    {"frame-template download", gooseDownload},
    {"FT3 frame-template download",
     bytes("8c918c91 00 19 0000 0000 02 01") + QByteArray(18, 0),
     {28}},
    {"status read-back", statusRead},
    {"stop", stop},
    {"FPGA reset", bytes("84538453 ffff")},
    {"DSP configuration", bytes("88128812") + QByteArray(14, 0) + bytes("2c01 00010000 06")},
    {"GOOSE subscription", subscription},
    {"SV combination", bytes("9c129c12 01 25 0040 00 00 02 2007 1f00")},
    {"SV channel", bytes("bc12bc12 03 06 01ff 7f ff") + QByteArray(38, 0)},
};

QByteArray padded(const QByteArray &frame)
{
    return frame.size() % 2 == 0 ? frame : frame + '\0';
}

QByteArray wrapped(const QByteArray &frame)
{
    const QByteArray contents = padded(frame);
    const int length = int(contents.size()) + 2;
    QByteArray result = bytes("a5a5a5a500");
    for (int i = 0; i < 2; ++i)
        result.append(char(length & 0xff)).append(char(length >> 8));
    QByteArray check(2, 0);
    for (int i = 0; i < contents.size(); ++i)
        check[i % 2] = char(check.at(i % 2) ^ contents.at(i));
    return result + contents + check;
}

QVector<Reception> received(const QVector<QByteArray> &frames)
{
    QVector<Reception> result(frames.size());
    for (int i = 0; i < int(frames.size()); ++i) {
        result[i].decoded = decodeCommand(padded(frames[i]));
        result[i].exchange = i;
        result[i].acknowledged = true;
    }
    return result;
}

/// What a peer with room for 1600 bytes makes of an answer: A acknowledgement, D data reply that
/// holds the status 01 02 ... 08, ? anything else.
QChar classify(const QByteArray &answer)
{
    const QByteArray seen = answer.left(1600);
    if (seen.contains(bytes("0f5af0a5")))
        return QLatin1Char('A');
    const int start = int(seen.indexOf(bytes("5a5a5a5a")));
    const bool sound = start >= 0 && seen.mid(start + 5, 2) == bytes("0800")
        && seen.mid(start + 9, 8) == bytes("0102030405060708");
    return QLatin1Char(sound ? 'D' : '?');
}

QString answers(QUdpSocket &socket, int timeout)
{
    QString result;
    while (socket.hasPendingDatagrams() || socket.waitForReadyRead(timeout)) {
        QByteArray answer(int(socket.pendingDatagramSize()), 0);
        socket.readDatagram(answer.data(), answer.size());
        result += classify(answer);
    }
    return result;
}

void row(const char *name, const QByteArray &data, const char *problem)
{
    QTest::newRow(name) << data << QString::fromLatin1(problem);
}

} // namespace

Q_DECLARE_METATYPE(virtualboard::Behaviour)

class TestVirtualBoard : public QObject
{
    Q_OBJECT

private slots:
    void damagedEnvelopes_data()
    {
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<QString>("problems");
        const QByteArray sound = bytes("a5a5a5a50008000800 8c928c920500 0500");
        row("stop", bytes("a5a5a5a5000e000e008c908c900300fa0502040800f301"), "");
        row("status", sound, "");
        row("empty frame", bytes("a5a5a5a50002000200 0000"), "");
        row("nothing", {}, "Size: at least 11 bytes expected, 0 found.");
        row("short", sound.left(10), "Size: at least 11 bytes expected, 10 found.");
        row("marker", changed(sound, 3, 0), "Marker: a5 a5 a5 a5 expected, a5 a5 a5 00 found.");
        row("byte 4", changed(sound, 4, 1), "Byte 4: 00 expected, 01 found.");
        row("second length", changed(sound, 7, 9),
            "Lengths: twice the same expected, 8 and 9 found.|"
            "Second length: 8 expected from the datagram's size, 9 found.");
        row("not padded", bytes("a5a5a5a50007000700 8c928c9205 0500"),
            "Padding: an even number of frame bytes expected, 5 found.");
        row("check bytes swapped", changed(changed(sound, 15, 0), 16, 5),
            "Check byte, first: 05 expected, 00 found.|Check byte, second: 00 expected, 05 found.");
    }
    void damagedEnvelopes()
    {
        QFETCH(QByteArray, datagram);
        const Envelope opened = openEnvelope(datagram);
        QTEST(opened.problems.join(QLatin1Char('|')), "problems");
        if (opened.problems.isEmpty())
            QCOMPARE(wrapped(opened.frame), datagram);
    }

    void everyKindAtEverySize()
    {
        for (const Sample &sample : samples) {
            const DecodedCommand whole = decodeCommand(padded(sample.frame));
            QCOMPARE(commandName(whole.command), QString::fromLatin1(sample.name));
            QCOMPARE(whole.problems, QStringList());
            QCOMPARE(whole.frame, sample.frame);
            for (int size = 0; size < sample.frame.size(); ++size) {
                const bool accepted = decodeCommand(sample.frame.left(size)).problems.isEmpty();
                QVERIFY2(accepted == sample.shorterForms.contains(size), sample.name);
            }
            if (std::holds_alternative<Ft3TemplateCommand>(whole.command))
                continue; // any number of words is right
            QVERIFY2(!decodeCommand(padded(sample.frame) + "\1\2").problems.isEmpty(), sample.name);
            const char last = sample.frame.size() % 2 == 1 ? 0x7f : 0; // no pad byte either way
            QCOMPARE(decodeCommand(sample.frame + last).problems.size(), 1);
        }
    }

    void fields()
    {
        const auto signal = std::get<ChannelSignalCommand>(decodeCommand(channelSignal).command);
        QCOMPARE(channelName(signal.channel), QStringLiteral("Va2"));
        QCOMPARE(signal.amplitude, 42.426407f);
        QCOMPARE(signal.phase, -120.0f);
        const auto condition = std::get<StepConditionCommand>(decodeCommand(stepCondition).command);
        QCOMPARE(condition.milliseconds, 0x1170);
        QCOMPARE(std::get<FrameTemplateCommand>(decodeCommand(gooseDownload).command).port, 3);
        const auto subscribed = std::get<SubscriptionCommand>(decodeCommand(subscription).command);
        QCOMPARE(subscribed.appId, 4097);
        QCOMPARE(subscribed.mappedPositions, QVector<int>({1, 3}));
        QCOMPARE(decodeCommand(stepCondition.left(12)).problems,
                 QStringList("Truncated: binary input needs 1 byte(s) at offset 12, 0 found."));
        const EthernetFrame sv = decodeEthernetFrame(svFrame);
        QCOMPARE(std::get<SampledValues>(sv.pdu).entries.first().value, 750);
        const EthernetFrame published = decodeEthernetFrame(gooseFrame);
        QCOMPARE(std::get<Goose>(published.pdu).entries.at(1).valueOffset, 97);

        // Offsets above 255 take two bytes; t may lie below that while sqNum does not.
        const auto oneWide = decodeCommand(bytes("8c908c9005 01 0105 f5 00"));
        QCOMPARE(std::get<GooseDescriptionCommand>(oneWide.command).tOffset, 0xf5);
        const auto bothWide = decodeCommand(bytes("8c908c9005 01 0115 0105"));
        QCOMPARE(std::get<GooseDescriptionCommand>(bothWide.command).tOffset, 0x105);
    }

    void faultsInFrames_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<QString>("problem");
        row("Length", changed(svFrame, 21, 47), "Length field: 46 expected from the frame's size");
        row("EtherType", changed(svFrame, 17, 0xb7), "EtherType: 88ba or 88b8 expected, 88b7");
        row("savPdu too short", changed(svFrame, 27, 35), "savPdu: end expected at offset 63");
        row("savPdu too long", changed(svFrame, 27, 37), "at most 36 byte(s) expected, 37 found");
        row("indefinite length", changed(svFrame, 27, 0x80), "definite length expected, 80");
        row("not shortest", changed(svFrame, 21, 47).insert(27, '\x81'),
            "shortest form expected, 81 24");
        row("noASDU", changed(svFrame, 30, 2), "noASDU: 1 expected, 2 found.");
        row("smpCnt", changed(svFrame, 41, 0x83), "smpCnt at offset 41: tag 82 expected, 83 found");
        row("entry count", changed(gooseFrame, 89, 4), "4 announced, 3 found in allData");
        row("data type", changed(gooseFrame, 92, 0), "entry 1: 00 is no tag of a data type");
        row("value size", changed(gooseFrame, 95, 0x83),
            "entry 2: a boolean cannot have 2 byte(s)");
    }
    void faultsInFrames()
    {
        QFETCH(QByteArray, frame);
        QFETCH(QString, problem);
        const QString problems = decodeEthernetFrame(frame).problems.join(QLatin1Char('|'));
        QVERIFY2(problems.contains(problem), qPrintable(problems));
    }

    void contradictions_data()
    {
        using Frames = QVector<QByteArray>;
        QTest::addColumn<Frames>("frames");
        QTest::addColumn<QString>("problem");
        const auto add = [](const Frames &frames, const char *problem) {
            QTest::newRow(problem) << frames << QString::fromLatin1(problem);
        };
        add({svDescription}, "no frame was downloaded for SV stream 0");
        add({gooseDownload, resetCommand, gooseDescription},
            "no frame was downloaded for GOOSE stream 0");
        add({svDownload, changed(svDescription, 7, 44)}, "smpCnt offset 43 expected, 44 found");
        add({svDownload, changed(svDescription, 13, 0)}, "dataset offset 56 expected, 0 found");
        add({svDownload, changed(svDescription, 15, 2) + '\xff'},
            "channel count 1 expected, 2 found");
        add({svDownload, changed(svDescription, 16, 16)}, "0 to 15 expected, 16 found");
        add({changed(svDownload, 4, 64)}, "frame kind 1 does not go with");
        add({gooseDownload, changed(gooseDescription, 6, 58)}, "sqNum offset 74 expected, 58");
        add({gooseDownload, changed(gooseDescription, 7, 74)}, "t offset 58 expected, 74");
        add({gooseDownload, changed(gooseControl, 8, 69)}, "offset 69 is neither that of stNum");
        add({gooseDownload, changed(gooseControl, 15, 94)}, "value written 1 expected, 2 found");
        add({subscription, subscription}, "logic channel 0 is fed by groups 1 and 1");
        add({changed(stepCondition, 5, 5)}, "step 0 to 4 expected, 5 found");
    }
    void contradictions()
    {
        QFETCH(QVector<QByteArray>, frames);
        QFETCH(QString, problem);
        const QStringList problems = crossCheck(received(frames));
        QCOMPARE(problems.filter(problem).size(), 1);
        QCOMPARE(crossCheck(received({svDownload, svDescription, gooseDownload, gooseDescription,
                                      gooseControl, subscription, stepCondition})),
                 QStringList());
    }

    void anyBytes()
    {
        QRandomGenerator random(61850);
        for (int round = 0; round < 20000; ++round) {
            QByteArray frame = samples.at(round % int(samples.size())).frame;
            for (int change = random.bounded(4); change > 0; --change)
                frame[random.bounded(int(frame.size()))] = char(random.bounded(256));
            frame.truncate(random.bounded(int(frame.size()) + 1));
            QVERIFY(openEnvelope(wrapped(frame)).problems.isEmpty());
            QVERIFY(!openEnvelope(frame).problems.isEmpty());
            const DecodedCommand decoded = decodeCommand(frame);
            QVERIFY(frame.startsWith(decoded.frame));
            QVERIFY(receivedReport(received({svDownload, gooseDownload, frame}))
                        .contains(QLatin1String("Problems")));
        }
    }

    void reportShowsWhatCameIn()
    {
        const QString text =
            receivedReport(received({svDownload, svDescription, gooseDownload, gooseDescription,
                                     gooseControl, subscription, stepCondition, channelSignal}));
        for (const char *expected :
             {"0 1 FF-FF-FF-FF-FF-FF 0x000 4 0x4000 1 4000 43 56 64 ",
              "svID svid confRev 1 channels 1:delay=750 ",
              "0 3 FF-FF-FF-FF-FF-FF 0x000 4 0x2000 3 4000 58 68 74 109 ",
              "dataset 1 boolean 2 bit string 3 UTC time ", " 1 1 1 0x1001 4 1\u21920 3\u21921 ",
              " 3 4.464 \u2192 step 4 1 \u2192 step 2 watched \u2192 step 4 0x0c",
              " 0 2 bit string on (10) ", "Problems \u2500"})
            QVERIFY2(text.simplified().contains(QString::fromUtf8(expected)), expected);
        QVERIFY(text.endsWith(QLatin1String(" none\n")));

        const struct
        {
            const char *bytes;
            QString text;
        } ids[] = {{"73766964", "svid"},
                   {"d6d0b9fa", QString::fromUtf8("\u4e2d\u56fd")}, // GBK
                   {"6dc3bc31", QString::fromUtf8("m\u00fc1")}, // UTF-8
                   {"6dff6d31", QString::fromLatin1("m\xffm1")}}; // neither
        for (const auto &id : ids) {
            QByteArray named = svDownload;
            named.replace(bytes("73766964"), bytes(id.bytes));
            const QString report = receivedReport(received({named, svDescription}));
            QVERIFY2(report.contains("svID " + id.text + ' '), qPrintable(report));
        }

        const QString emptied =
            receivedReport(received({svDownload, svDescription, gooseDownload, gooseDescription,
                                     gooseControl, subscription, stepCondition, resetCommand}));
        QCOMPARE(emptied.count(QLatin1String(" none\n")), 5); // streams, steps, problems
    }

    void reportFitsThePage()
    {
        const QVector<Reception> all =
            received({svDownload, svDescription, gooseDownload, gooseDescription, gooseControl,
                      subscription, stepCondition, channelSignal, statusRead});
        const auto wordsOf = [](QString text) {
            text.remove(QChar(0x2500));
            const QStringList words = text.simplified().split(QLatin1Char(' '));
            return QSet<QString>(words.begin(), words.end());
        };
        for (const int width : {60, 80, 120}) {
            const QString text = receivedReport(all, width);
            for (const QString &line : text.split(QLatin1Char('\n')))
                QVERIFY2(line.size() <= width, qPrintable(line));
            QCOMPARE(wordsOf(text), wordsOf(receivedReport(all, 200)));
        }
        TextTable table({QStringLiteral("Name"), QStringLiteral(">Size")});
        table.addRow({QString(50, QLatin1Char('x')), QStringLiteral("7")});
        QCOMPARE(table.toString(40).count(QLatin1Char('x')), 50);
        for (const QString &line : table.toString(40).split(QLatin1Char('\n')))
            QVERIFY2(line.size() <= 40, qPrintable(line));
    }

    void behaviours_data()
    {
        QTest::addColumn<Behaviour>("behaviour");
        QTest::addColumn<QString>("expected"); // answers to one stop, then to four status reads
        QTest::addColumn<int>("exchanges");
        const auto add = [](const char *name, Behaviour behaviour, const char *expected,
                            int count) {
            QTest::newRow(name) << behaviour << QString::fromLatin1(expected) << count;
        };
        add("proper", {Behaviour::Proper}, "A AD AD AD AD", 5);
        add("silent", {Behaviour::NoAcknowledgement}, "    ", 3);
        add("first lost", {Behaviour::LoseFirst, 2}, "   AD ", 3);
        add("in the middle", {Behaviour::AcknowledgementInTheMiddle}, "A AD AD AD AD", 5);
        add("long", {Behaviour::OversizedAcknowledgement}, "A AD AD AD AD", 5);
        add("beyond", {Behaviour::AcknowledgementBeyondBuffer}, "? ? ? ? ?", 3);
        add("garbage", {Behaviour::Garbage}, "? ? ? ? ?", 3);
        add("no reply", {Behaviour::NoDataReply}, "A A A A A", 3);
        add("garbage reply", {Behaviour::GarbageDataReply}, "A A? A? A? A?", 3);
        add("short reply", {Behaviour::ShortDataReply}, "A A? A? A? A?", 3);
        add("reply in the middle", {Behaviour::DataReplyInTheMiddle}, "A AD AD AD AD", 5);
        add("padded reply", {Behaviour::PaddedDataReply}, "A AD AD AD AD", 5);
        add("long reply", {Behaviour::OversizedDataReply}, "A A? A? A? A?", 3);
    }
    void behaviours()
    {
        QFETCH(Behaviour, behaviour);
        LinkResponder board(boardAddress, kBoardPort);
        QCOMPARE(testsupport::failure(board.start()), QString());
        board.setDefaultBehaviour(behaviour);
        QUdpSocket socket;
        QStringList found;
        for (const QByteArray &frame : {stop, statusRead, statusRead, statusRead, statusRead}) {
            socket.writeDatagram(wrapped(frame), boardAddress, kBoardPort);
            QVERIFY(board.waitForReceptions(int(found.size()) + 1, 5000));
            found << answers(socket, 20);
        }
        QTEST(found.join(QLatin1Char(' ')), "expected");
        QTEST(board.receptions().last().exchange + 1, "exchanges");
    }

    void lateAnswerAndRecord()
    {
        LinkResponder board(boardAddress, kBoardPort);
        QCOMPARE(testsupport::failure(board.start()), QString());
        board.setBehaviour(1, {Behaviour::Late, 0, 150});
        QUdpSocket socket;
        const QByteArray damaged = changed(wrapped(stop), 4, 1);
        for (const QByteArray &datagram : {damaged, wrapped(statusRead), wrapped(statusRead)})
            socket.writeDatagram(datagram, boardAddress, kBoardPort);
        QVERIFY(board.waitForReceptions(3, 5000));
        QCOMPARE(board.frames().size(), 0);
        QCOMPARE(answers(socket, 500), QStringLiteral("AD")); // one answer to both tries
        QCOMPARE(board.frames(), QVector<QByteArray>({statusRead}));
        const QVector<Reception> all = board.receptions();
        QCOMPARE(all[0].problems.size(), 1);
        QCOMPARE(all[1].exchange, all[2].exchange);
        QCOMPARE(all[2].attempt, 1);

        QElapsedTimer clock;
        clock.start();
        LinkResponder second(boardAddress, kBoardPort);
        QVERIFY(testsupport::failure(second.start()).contains(QLatin1String("127.0.61.1")));
        board.stop();
        QVERIFY2(clock.elapsed() < 1000, "stopping takes too long");
        QVERIFY(second.start());
    }

    void retriesAreObeyedOnce()
    {
        // The same command from several clients at once; each has a port of its own.
        struct Try
        {
            int client;
            int at; ///< ms
            const QByteArray *frame = &stop;
        };
        const QVector<Try> tries = {
            {0, 0},    {1, 0},    {2, 0}, // the answer is lost, the board is slow, nothing is lost
            {1, 100}, // while the handler is still busy
            {2, 400}, // sent again by a client that has its answer
            {0, 1500}, {3, 1500}, {3, 1600, &statusRead}, // another client's come in between
            {0, 3000}, {3, 3100}, // third try; another command came before this
            {0, 4500}, // nobody tries four times
            {2, 3000}, // too late for a retry
        };
        const QVector<int> exchanges = {2, 1, 3, 3}; // by client
        LinkResponder board(boardAddress, kBoardPort);
        std::atomic<int> obeyed = 0;
        board.setCommandHandler([&obeyed](const DecodedCommand &command) {
            if (command.frame == stop && ++obeyed == 2)
                QThread::msleep(300);
        });
        QCOMPARE(testsupport::failure(board.start()), QString());
        std::array<QUdpSocket, 4> clients;
        for (QUdpSocket &each : clients)
            QVERIFY(each.bind(boardAddress, 0));
        QVector<Try> ordered = tries;
        std::stable_sort(ordered.begin(), ordered.end(),
                         [](const Try &a, const Try &b) { return a.at < b.at; });
        QElapsedTimer clock;
        clock.start();
        for (const Try &each : std::as_const(ordered)) {
            QThread::msleep(ulong(qMax(qint64(0), each.at - clock.elapsed())));
            clients[std::size_t(each.client)].writeDatagram(wrapped(*each.frame), boardAddress,
                                                            kBoardPort);
        }
        QVERIFY(board.waitForReceptions(int(tries.size()), 5000));
        QVector<int> begun(4);
        QVector<int> answered;
        for (QUdpSocket &each : clients)
            answered << int(answers(each, 20).count(QLatin1Char('A')));
        QCOMPARE(answered, QVector<int>({4, 2, 3, 3})); // every try
        for (const Try &each : std::as_const(ordered)) {
            const Reception reception = board.receptions().at(int(&each - ordered.constData()));
            begun[each.client] += reception.attempt == 0 ? 1 : 0;
        }
        QCOMPARE(begun, exchanges);
        QCOMPARE(obeyed.load(), 8); // and a status read
        QCOMPARE(board.frames().size(), 9);
    }

    void problemsAreBounded()
    {
        // A subscription with a wrong code for each entry, and a control that writes nowhere.
        const QByteArray codes = subscription.left(10) + bytes("ffff") + QByteArray(1500, '\x11');
        QVERIFY(decodeCommand(codes).problems.size() <= 6);
        const QByteArray control =
            gooseControl.left(7) + char(250) + bytes(QByteArray("ffff 01 00 ").repeated(250));
        const QStringList one = crossCheck(received({gooseDownload, control}));
        QVERIFY2(!one.isEmpty() && one.size() <= 6, qPrintable(one.join('\n')));
        QVERIFY(one.last().contains("more like it"));
        const QVector<Reception> many = received(QVector<QByteArray>(500, codes));
        QCOMPARE(allProblems(many).size(), 101);
        QVERIFY(receivedReport(many).size() < 50000);
    }

    void tooLongDatagrams()
    {
        LinkResponder board(boardAddress, kBoardPort);
        QCOMPARE(testsupport::failure(board.start()), QString());
        QUdpSocket socket;
        const QByteArray largest = wrapped(QByteArray(1588, 'x'));
        const QByteArray tooLong =
            wrapped(subscription.left(10) + bytes("ffff") + QByteArray(32768, '\x44'));
        for (const QByteArray &each : {largest, tooLong, tooLong, tooLong, tooLong})
            socket.writeDatagram(each, boardAddress, kBoardPort);
        QVERIFY(board.waitForReceptions(5, 5000));
        QCOMPARE(answers(socket, 20), QStringLiteral("A")); // to the largest that may be
        const QStringList problems = allProblems(board.receptions());
        QCOMPARE(problems.filter(QStringLiteral("4 datagrams are longer")).size(), 1);
        QCOMPARE(problems.size(), 2); // the first has no command code
        QVERIFY(board.receptions().last().datagram.size() < 100);
    }

    void recordIsBounded_data()
    {
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<qint64>("atLeast"); // bytes that one record takes
        const QByteArray large(1588, 'x');
        QTest::newRow("large") << wrapped(large) << qint64(2 * large.size());
        // Decoded, each entry is an object of its own.
        constexpr int kEntries = 600;
        const auto element = [](const char *tag, const QByteArray &contents) {
            return bytes(tag) + '\x82' + char(contents.size() >> 8) + char(contents.size())
                + contents;
        };
        const int begin = int(gooseFrame.indexOf('\x80', 26));
        const int end = int(gooseFrame.indexOf('\x8a', begin));
        const QByteArray frame = gooseFrame.left(26)
            + element("61",
                      gooseFrame.mid(begin, end - begin) + bytes("8a02") + char(kEntries >> 8)
                          + char(kEntries & 0xff)
                          + element("ab", QByteArray(kEntries, 'x').replace("x", bytes("8a00"))));
        const QByteArray dense =
            gooseDownload.left(7) + char(frame.size() & 0xff) + char(frame.size() >> 8) + frame;
        QTest::newRow("many entries") << wrapped(dense) << qint64(sizeof(GooseEntry)) * kEntries;
    }
    void recordIsBounded()
    {
        QFETCH(QByteArray, datagram);
        QFETCH(qint64, atLeast);
        LinkResponder board(boardAddress, kBoardPort);
        QCOMPARE(testsupport::failure(board.start()), QString());
        QUdpSocket socket;
        const int count = int(LinkResponder::kMaximumBytes / atLeast) + 1;
        for (int i = 0; i < count; ++i) {
            socket.writeDatagram(datagram, boardAddress, kBoardPort);
            QVERIFY(socket.waitForReadyRead(5000));
            socket.readDatagram(nullptr, 0);
        }
        QVERIFY(board.dropped() > 0);
        QCOMPARE(int(board.receptions().size()) + board.dropped(), count);
    }
};

QTEST_GUILESS_MAIN(TestVirtualBoard)

#include "tst_virtualboard.moc"
