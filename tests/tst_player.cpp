// What the playing board publishes, and when, for commands that are built by hand here.

#include "tests/testsupport.h"

#include "virtualboard/play/player.h"
#include "virtualboard/play/testprogram.h"

#include <QTest>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <tuple>

using namespace virtualboard;
using testsupport::bytes;
using Commands = QVector<QByteArray>;
Q_DECLARE_METATYPE(Commands)

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr WallTime kStart{1767225600123456789ns}; // a fraction that rounding down must shorten

const auto byte = [](int n) { return QByteArray(1, char(n)); };
const auto le16 = [](int n) { return byte(n) + byte(n >> 8); };
/// The last \a size bytes of a number, high byte first.
const auto be = [](quint64 n, int size) {
    QByteArray result(8, 0);
    qToBigEndian(n, result.data());
    return result.right(size);
};
const auto real = [](float number) {
    int bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return le16(bits) + le16(bits >> 16);
};
const auto ber = [](int tag, const QByteArray &contents) {
    const auto n = quint64(contents.size());
    return byte(tag)
        + (n < 128       ? be(n, 1)
               : n < 256 ? be(0x8100 | n, 2)
                         : be(0x820000 | n, 3))
        + contents;
};
const auto ethernet = [](const char *type, const QByteArray &apdu) {
    return bytes("010ccd040001 020000000001 81008065") + bytes(type) + bytes("4001")
        + be(quint64(apdu.size()) + 8, 2) + be(0, 4) + apdu;
};

QByteArray svFrame(int channels, const QByteArray &svId = "MU")
{
    const QByteArray asdu = ber(0x80, svId) + bytes("82020000 830400000001 850101")
        + ber(0x87, QByteArray(8 * channels, 0x55));
    return ethernet("88ba", ber(0x60, bytes("800101") + ber(0xa2, ber(0x30, asdu))));
}

QByteArray gooseFrame(quint64 timeAllowedToLive, quint32 stNum = 1)
{
    const QByteArray pdu = bytes("8002'CB'") + ber(0x81, be(timeAllowedToLive, 8))
        + bytes("8202'DS' 8302'ID' 840800000000 000000 2a") + ber(0x85, be(stNum, 4))
        + bytes("860400000007 870100 880101 890100 8a0102 ab07 830100 84020640");
    return ethernet("88b8", ber(0x61, pdu));
}

const QByteArray svTemplate = svFrame(3), gooseTemplate = gooseFrame(100);
const int svEnd = int(svTemplate.size()), gooseEnd = int(gooseTemplate.size());
// Frame offsets of values.
const int smpCntAt = int(svTemplate.indexOf(bytes("82020000"))) + 2, dataAt = svEnd - 3 * 8;
const int gocbRefAt = int(gooseTemplate.indexOf("CB"));
const int tAt = int(gooseTemplate.indexOf(bytes("8408"))) + 2, stNumAt = tAt + 10;
const int sqNumAt = stNumAt + 6, entry1At = gooseEnd - 5, entry2At = gooseEnd - 2;

QByteArray download(const QByteArray &frame, int stream = 0, int port = 1)
{
    const int kind = frame.mid(16, 2) == bytes("88b8") ? 0x40 : 0;
    return bytes("8c918c91") + byte(kind | stream) + byte((port - 1) << 2 | 1) + byte(0)
        + le16(int(frame.size())) + frame;
}

QByteArray svPlaces(const QByteArray &kinds = bytes("00 08 ff"), int stream = 0, int first = 0,
                    int maximum = 4000, int smpCnt = smpCntAt, int data = dataAt)
{
    return bytes("8c908c9004") + byte(stream) + byte(stream) + le16(smpCnt) + le16(first)
        + le16(maximum) + le16(data) + byte(int(kinds.size())) + kinds;
}

const auto goosePlaces = [](int sqNum = sqNumAt, int t = tAt) {
    return bytes("8c908c9005 00") + byte(sqNum) + byte(t);
};

QByteArray signal(int step, int channel, float amplitude, float frequency = 0, float phase = 90,
                  float scale = 1, float jump = 0)
{
    return bytes("8c908c9001") + byte(step) + byte(channel) + real(scale) + byte(1)
        + real(frequency) + real(amplitude) + real(phase) + real(jump);
}

/// Start and step conditions: per step, separated by "|", milliseconds, step after them; trigger
/// setting, step after it; binary-input setting, step after it. A step without any is left out.
Commands stepCommands(int interval, const QString &steps)
{
    Commands result = {bytes("8c908c900301") + byte(interval) + bytes("05020408")};
    const QStringList parts = steps.split('|');
    for (int step = 0; step < parts.size(); ++step) {
        const QStringList fields = parts[step].split(' ');
        QByteArray command = bytes("8c908c9007") + byte(step) + byte(0) + le16(fields[0].toInt());
        for (int i = 1; i < 6; ++i)
            command += byte(fields.value(i).toInt());
        if (!parts[step].isEmpty())
            result << command;
    }
    return result;
}

const auto item = [](int offset, const QByteArray &data) {
    return le16(offset) + byte(int(data.size())) + data;
};
const auto control = [](int step, const Commands &items, int stream = 0) {
    return bytes("8c908c9009") + byte(step) + byte(stream) + byte(int(items.size()))
        + QByteArrayList(items.begin(), items.end()).join();
};

const QByteArray resetCommand = bytes("8c908c9002");
const QByteArray allInputs = bytes("ac12ac12 01 01 0101 0000 0001 44*128"); // channels 0 to 255
const Commands svStream = {download(svTemplate), svPlaces()};
const Commands gooseStream = {download(gooseTemplate), goosePlaces()};
const Commands endless = stepCommands(250, QStringLiteral("0"));

struct Board
{
    TestProgram program;
    QStringList problems;

    explicit Board(const Commands &commands)
    {
        for (const QByteArray &command : commands)
            problems += program.take(decodeCommand(command + QByteArray(command.size() % 2, 0)));
    }
};

const auto milliseconds = [](Duration time) { return QString::number(double(time.count()) / 1e6); };

struct Sent
{
    Duration time; ///< since the start
    int port;
    QByteArray bytes;

    qint64 number(int offset) const { return qFromBigEndian<quint32>(bytes.constData() + offset); }
    int value(int channel) const { return int(number(dataAt + 8 * channel)); }
    int smpCnt() const { return int(number(smpCntAt) >> 16); }
    /// "time stNum/sqNum t gocbRef entry1 entry2"; times in ms since the start.
    QString message() const
    {
        QByteArray t = bytes.mid(tAt, 8).toHex();
        for (int ms = 0; ms < 10; ++ms) {
            constexpr qint64 kSecond = 1000000000;
            const qint64 at = (kStart + ms * 1ms).time_since_epoch().count();
            const auto wire = quint64(at / kSecond << 24 | (at % kSecond << 24) / kSecond);
            if (bytes.mid(tAt, 8) == be(wire, 7) + byte(0x2a))
                t = QByteArray::number(ms);
        }
        return milliseconds(time) + ' ' + QString::number(number(stNumAt)) + '/'
            + QString::number(number(sqNumAt)) + ' ' + t + ' ' + bytes.mid(gocbRefAt, 2) + ' '
            + bytes.mid(entry1At, 1).toHex() + bytes.mid(entry2At).toHex();
    }
};

/// What a board does for commands and inputs: "milliseconds:event", where the event is +channel,
/// -channel, T for the trigger or S for stop. "a" in front: channel 7 is active at the start.
class Recording : public FrameSink
{
public:
    QVector<Sent> sv, goose;
    QStringList noted; ///< the inputs, written as they are given; at the end how many there were
    QStringList changes; ///< "left>entered cause cause-time/entry-time", times in ms
    PlayStatus status;

    Recording(const Commands &commands, int instants, const QString &inputs = {},
              Phases phases = Phases::Continuous)
    {
        const bool active = inputs.startsWith('a');
        const Board board(commands);
        Player player(board.program, kStart, phases, {active ? 1U << 7 : 0U});
        Player counting(board.program, kStart, phases, {active ? 1U << 7 : 0U});
        QStringList pending = inputs.split(' ').filter(":");
        while (instants-- > 0 && !player.hasEnded()) {
            m_instant = player.nextInstant();
            while (!pending.isEmpty() && happens(pending.first().split(':'), {&player, &counting}))
                pending.removeFirst();
            const int before = int(changes.size());
            player.play(*this);
            counting.play();
            if (!isAlike(player, counting))
                changes << QStringLiteral("otherwise where frames are only counted");
            if (player.changeCount() != changes.size() - before)
                changes << QStringLiteral("changeCount %1").arg(player.changeCount());
        }
        status = player.status();
        noted << QString::number(player.inputCount());
    }

private:
    bool happens(const QStringList &input, std::initializer_list<Player *> players) const
    {
        const WallTime time = kStart + Duration(qRound64(input[0].toDouble() * 1e6));
        const QString &event = input[1];
        for (Player *const player : players) {
            if (time <= m_instant && event == "S")
                player->stop(Cause::Stop);
            else if (time <= m_instant)
                player->input({time,
                               event[0] == 'T'       ? InputKind::Trigger
                                   : event[0] == '+' ? InputKind::ChannelOn
                                                     : InputKind::ChannelOff,
                               quint16(event.mid(1).toInt())});
        }
        return time <= m_instant;
    }
    static bool isAlike(const Player &one, const Player &other)
    {
        const auto numbers = [](const PlayStatus &all) {
            return std::make_tuple(all.state, all.step, all.timeInStep, all.totalTime,
                                   all.framesSent, all.activeChannels);
        };
        const auto isSame = [](const Transition &a, const Transition &b) {
            return std::tie(a.left, a.entered, a.cause, a.channel, a.causeTime, a.entryTime)
                == std::tie(b.left, b.entered, b.cause, b.channel, b.causeTime, b.entryTime);
        };
        return numbers(one.status()) == numbers(other.status())
            && one.inputCount() == other.inputCount() && one.nextInstant() == other.nextInstant()
            && std::equal(one.changes(), one.changes() + one.changeCount(), other.changes(),
                          other.changes() + other.changeCount(), isSame);
    }
    void publish(WallTime time, const OutgoingFrame *frames, int count) override
    {
        for (int i = 0; i < count; ++i) {
            const QByteArray frame(reinterpret_cast<const char *>(frames[i].bytes), frames[i].size);
            (frame.mid(16, 2) == bytes("88ba") ? sv : goose)
                << Sent{time == m_instant ? time - kStart : Duration(-1), frames[i].port, frame};
        }
    }
    void noteInputs(WallTime time, const RecordedInput *records, int count) override
    {
        for (int i = 0; i < count; ++i) {
            const RecordedInput &each = records[i];
            const bool right = time == m_instant && kStart + each.time <= m_instant;
            noted << (right ? milliseconds(each.time) : QString("wrong time"))
                    + (each.kind == InputKind::Trigger ? QString(":T")
                           : each.kind == InputKind::ChannelOn
                           ? ":+" + QString::number(each.channel)
                           : ":-" + QString::number(each.channel));
        }
    }
    void note(WallTime time, const Transition &change) override
    {
        static const char *const causes[] = {"start", "time", "trigger", "input",
                                             "stop",  "ring", "limit"};
        const auto number = [](int n, int none) {
            return n == none ? QString() : QString::number(n);
        };
        const bool right = time == m_instant && time == kStart + change.entryTime;
        changes << number(change.left, kNoStep) + '>' + number(change.entered, kNoStep) + ' '
                + causes[int(change.cause)] + number(change.channel, kNoChannel) + ' '
                + milliseconds(change.causeTime) + '/'
                + (right ? milliseconds(change.entryTime) : QString("wrong time"));
    }

    WallTime m_instant;
};

/// The value in counts before it is rounded.
double sine(double amplitude, double frequency, double phase, double seconds)
{
    return amplitude * std::sin(2 * kPi * frequency * seconds + phase * kPi / 180);
}

template <typename... T>
void row(const char *name, const T &...values)
{
    (QTest::newRow(name) << ... << values);
}

} // namespace

class TestPlayer : public QObject
{
    Q_OBJECT

private slots:
    void streams_data()
    {
        QTest::addColumn<Commands>("commands");
        QTest::addColumn<QString>("published"); // numbers of SV and GOOSE streams
        QTest::addColumn<bool>("reported");
        const auto add = [](const char *name, const char *published, bool reported,
                            const Commands &commands) { row(name, commands, published, reported); };
        const auto changed = [](QByteArray command, int index, int by) {
            command[index] = char(command.at(index) + by);
            return command;
        };
        const auto svAt = [](int smpCnt, int data, int channels = 3) {
            return svPlaces(QByteArray(channels, 0), 0, 0, 4000, smpCnt, data);
        };
        const QByteArray &sv = svStream[0];
        const QByteArray &goose = gooseStream[0];
        const QByteArray largest = svFrame(182);
        QByteArray swapped = sv, reversed = goose;
        swapped[4] = 0x40;
        reversed[4] = 0;
        QCOMPARE(int(largest.size()), 1518);
        const QByteArray like256 = download(svFrame(24, "MU012345"), 0, 3); // length 00 01
        QCOMPARE(like256.mid(7, 2), bytes("0001"));
        const QByteArray beyond = control(1, {item(gooseEnd - 1, "12")});
        add("sound", "1 1", false, svStream + gooseStream);
        add("description first", "1 1", false, {svPlaces(), sv, goosePlaces(), goose});
        add("no description", "0 0", true, {sv});
        add("other stream's description", "0 0", true, {sv, svPlaces({}, 1)});
        add("length field too large", "0 0", true, {changed(sv, 7, 1), svPlaces()});
        add("Length too large", "0 0", true, {changed(sv, 30, 1), svPlaces()});
        add("Length too small", "0 0", true, {changed(goose, 30, -1), goosePlaces()});
        add("SV frame as GOOSE", "0 0", true, {swapped, goosePlaces()});
        add("GOOSE frame as SV", "0 0", true, {reversed, svPlaces()});
        add("smpCnt at the end", "1 0", false, {sv, svAt(svEnd - 2, dataAt)});
        add("smpCnt beyond", "0 0", true, {sv, svAt(svEnd - 1, dataAt)});
        add("dataset beyond", "0 0", true, {sv, svAt(smpCntAt, dataAt + 1)});
        add("sqNum at the end", "0 1", false, {goose, goosePlaces(gooseEnd - 4)});
        add("sqNum beyond", "0 0", true, {goose, goosePlaces(gooseEnd - 3)});
        add("t at the end", "0 1", false, {goose, goosePlaces(sqNumAt, gooseEnd - 8)});
        add("t beyond", "0 0", true, {goose, goosePlaces(sqNumAt, gooseEnd - 7)});
        add("no stNum", "0 0", true, {changed(goose, 9 + stNumAt - 2, 1), goosePlaces()});
        add("empty template", "0 0", true, {download({}), svPlaces()});
        add("largest", "1 0", false, {download(largest), svAt(smpCntAt, 62, 182)});
        add("too large", "0 0", true, {download(svFrame(182, "MU1")), svAt(smpCntAt, 63, 182)});
        add("255 channels", "0 0", true, {download(largest), svAt(smpCntAt, 62, 255)});
        add("shorter template later", "0 0", true, {sv, svPlaces(), download(svFrame(2))});
        add("bad Length later", "0 0", true, {sv, svPlaces(), changed(sv, 30, 1)});
        add("truncated command later", "1 0", true, {sv, svPlaces(), svPlaces().left(12)});
        add("FT3, flag 0", "0 0", false, {bytes("8c918c91 00 09 0400 0002 02 01 00*18")});
        add("FT3, flag 1", "0 0", false, {bytes("8c918c91 00 19 0000 0000 02 01 00*18")});
        add("FT3, wrong lengths", "0 0", true, {bytes("8c918c91 00 19 0500 0002 02 01 00*18")});
        add("GOOSE, port 3, flag of FT3", "0 1", false,
            {download(gooseTemplate, 0, 3), goosePlaces()});
        add("SV, port 3, 256 bytes", "1 0", false, {like256, svPlaces()});
        add("reset", "0 0", false, svStream + gooseStream + Commands{resetCommand});
        add("item beyond", "0 1", true, gooseStream + Commands{beyond});
        add("item beyond, sent first", "0 1", true, Commands{beyond} + gooseStream);
        add("step 5", "0 0", true, {signal(5, 0, 1)});
        add("channel 16", "0 0", true, {signal(0, 16, 1)});
        add("without effect", "0 0", false,
            {bytes("84538453 ffff"), bytes("8c908c900600"), bytes("8c908c900a0001"),
             bytes("88128812 00*14 0000 00010000 00"), bytes("9c129c12 01 25 0040 00 00 00"),
             bytes("bc12bc12 03 06 01ff 7f ff 00*38")});
    }
    void streams()
    {
        QFETCH(Commands, commands);
        QFETCH(bool, reported);
        const Board board(commands);
        const TestProgram &program = board.program;
        QTEST(QStringLiteral("%1 %2")
                  .arg(program.svStreams().size())
                  .arg(program.gooseStreams().size()),
              "published");
        const QStringList reports = board.problems + program.unpublished();
        QVERIFY2(reports.isEmpty() != reported, qPrintable(reports.join('\n')));
    }

    void playable()
    {
        for (const Commands &commands :
             {Commands(), Commands{endless[0]}, Commands{endless[1]}, stepCommands(250, "|0"),
              stepCommands(0, "0"), endless + Commands{resetCommand}})
            QVERIFY(!Board(commands).program.whyNotPlayable().isEmpty());
        Board board(svStream + endless + Commands{allInputs});
        QCOMPARE(board.program.whyNotPlayable() + board.problems.join(QString()), QString());
        QVERIFY(board.program.sampleRate().interval() == 250us);
        QCOMPARE(int(board.program.subscriptions().size()), 1);
        board.program.take(decodeCommand(resetCommand));
        QVERIFY(board.program.subscriptions().isEmpty() && !board.program.step(0));
    }

    void framesAndPorts()
    {
        const Recording played(Commands{download(svTemplate, 0, 8), svPlaces(),
                                        download(svTemplate, 5, 3), svPlaces({}, 5, 7),
                                        download(gooseTemplate, 0, 2), goosePlaces()}
                                   + endless,
                               10);
        QCOMPARE(int(played.sv.size()), 20);
        for (int i = 0; i < 20; ++i) {
            const Sent &sent = played.sv[i];
            QCOMPARE(sent.time, Duration(i / 2 * 250us));
            QCOMPARE(sent.smpCnt(), i / 2 + (sent.port == 8 ? 0 : 7));
            QCOMPARE(sent.port, 11 - played.sv[i ^ 1].port);
        }
        QCOMPARE(played.goose.first().port, 2);
        QCOMPARE(played.status.framesSent, quint64(20 + played.goose.size()));
    }

    void smpCnt()
    {
        struct Case
        {
            int first, maximum, counts[4];
        };
        for (const Case &of :
             {Case{65534, 0, {65534, 65535, 0, 1}}, // 0 means 65536
              Case{3998, 4000, {3998, 3999, 0, 1}}, Case{0, 1, {0, 0, 0, 0}},
              Case{65533, 65535, {65533, 65534, 0, 1}}, Case{5000, 4000, {5000, 0, 1, 2}}}) {
            const Recording played(
                Commands{svStream[0], svPlaces({}, 0, of.first, of.maximum)}
                    + stepCommands(250, "1 1|1 0"), // changes at every fourth sample
                66000);
            for (int i = 0, count = 0; i < 66000; ++i) {
                count = i < 4 ? of.counts[i] : (count + 1) % (of.maximum ? of.maximum : 65536);
                QCOMPARE(played.sv[i].smpCnt(), count);
            }
        }
    }

    void waves_data()
    {
        for (const char *column : {"amplitude", "scale", "frequency", "phase"})
            QTest::addColumn<float>(column);
        QTest::addColumn<int>("interval");
        QTest::addColumn<int>("samples"); // whole cycles
        row("50 Hz", 81.65F, 0.01F, 50.F, 30.F, 250, 80);
        row("50 Hz, uneven interval", 1.4142F, 0.001F, 50.F, -120.F, 78, 10000);
        row("60 Hz", 100.F, 0.001F, 60.F, 359.F, 250, 4000);
        row("16.7 Hz", 100.F, 0.01F, 16.7F, 1.F, 250, 40000);
        row("1.9 kHz", 5.F, 0.001F, 1900.F, 77.F, 250, 400);
        row("every microsecond", 100.F, 0.01F, 50.F, 90.F, 1, 20000);
        row("direct", 70.5F, 0.5F, 0.F, 90.F, 250, 100);
        row("large", 2e9F, 1.F, 50.F, 45.F, 250, 80);
        row("65 seconds", 1000.F, 0.01F, 50.F, 10.F, 250, 260000);
    }
    void waves()
    {
        QFETCH(float, amplitude);
        QFETCH(float, scale);
        QFETCH(float, frequency);
        QFETCH(float, phase);
        QFETCH(int, interval);
        QFETCH(int, samples);
        const Commands wave = {signal(0, 8, amplitude, frequency, phase, scale)};
        const Recording played(svStream + stepCommands(interval, "0") + wave, samples);
        const double counts = double(amplitude) / double(scale), f = double(frequency),
                     p = double(phase);
        const int bin = qRound(f * samples * interval * 1e-6); // cycles in the window
        std::complex<double> spectrum[3]; // bins below, at and above the frequency
        for (int i = 0; i < samples; ++i) {
            const int value = played.sv[i].value(1);
            const double exact = sine(counts, f, p, i * interval * 1e-6);
            QVERIFY2(std::abs(value - exact) <= 0.5 + 2e-11 * counts,
                     qPrintable(QStringLiteral("%1: %2, not %3").arg(i).arg(value).arg(exact)));
            for (int k = 0; k < 3; ++k)
                spectrum[k] += (bin == 0 ? 1.0 : 2.0) * value / samples
                    * std::polar(1.0, -2 * kPi * std::fmod((bin + k - 1.0) * i, samples) / samples);
        }
        // A sine is a cosine that lags by 90 degrees.
        QVERIFY(std::abs(spectrum[1] - std::polar(counts, (p - 90) * kPi / 180)) < 1);
        QVERIFY(std::abs(spectrum[0]) < 1 && std::abs(spectrum[2]) < 1);
    }

    void rounding()
    {
        constexpr int kMost = std::numeric_limits<int>::max(), kLeast = -kMost - 1;
        struct Case
        {
            float amplitude, scale, phase;
            int value;
        };
        for (const Case &of : {Case{0.5F, 1, 90, 1}, Case{0.5F, 1, -90, -1}, Case{2.5F, 1, 90, 3},
                               Case{0.4999F, 1, 90, 0}, Case{2.5F, -1, 90, -3},
                               Case{2147483520.F, 1, 90, 2147483520},
                               Case{2147483648.0F, 1, 90, kMost}, Case{1e30F, 1, -90, kLeast},
                               Case{3e38F, 1e-38F, 90, kMost}, Case{3e38F, 1e-38F, 0, 0}}) {
            const Commands wave = {signal(0, 0, of.amplitude, 0, of.phase, of.scale)};
            QCOMPARE(Recording(svStream + endless + wave, 3).sv[2].value(0), of.value);
        }
    }

    void channels()
    {
        const Recording played(Commands{download(svFrame(5)), svPlaces(bytes("10 0f ff 0f 00")),
                                        signal(0, 15, 9), signal(0, 15, 7),
                                        signal(0, 1, 5).left(24)}
                                   + endless,
                               1);
        COMPARE_BYTES(played.sv.first().bytes.mid(dataAt),
                      bytes("55*8 00000007 55*4 55*8 00000007 55*4 00000000 55*4"));
    }

    void wavesOfSteps()
    {
        const Recording played(svStream + stepCommands(78, "10 1|5 2|7 0")
                                   + Commands{signal(0, 0, 1000, 50, 40), signal(0, 8, 500, 60, 10),
                                              signal(1, 0, 2000, 49, -60)},
                               470, {}, Phases::Restart);
        // Entries at multiples of 78 us, not before 10, then 5, then 7 ms have passed.
        const Duration entries[] = {0us, 10062us, 15132us, 22152us, 32214us, 37284us};
        const double waves[3][2][3] = {{{1000, 50, 40}, {500, 60, 10}}, {{2000, 49, -60}}, {}};
        int step = 0;
        for (const Sent &sent : played.sv) {
            step += sent.time >= entries[step + 1] ? 1 : 0;
            for (int channel = 0; channel < 2; ++channel) {
                const double *wave = waves[step % 3][channel];
                const double since =
                    std::chrono::duration<double>(sent.time - entries[step]).count();
                QVERIFY(std::abs(sent.value(channel) - sine(wave[0], wave[1], wave[2], since))
                        < 0.51);
            }
        }
        QCOMPARE(step, 4);
    }

    void continuousPhases_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("inputs");
        row("in time", "13 1|7 2|11 255", "");
        row("whole cycles", "20 1|100 2|40 255", "");
        row("into itself", "13 0", "");
        row("loop", "13 1|7 2|11 0", "");
        row("over step 2", "13 2|7 255|11 1", "");
        row("two changes at one instant", "13 1 0 0|0 0 1 2|0", "13.01:T 13.02:T");
    }
    /// A board that adds up the turns of every sample, and at a change of steps what their phases
    /// differ by, plays the same; a channel that has the same signal in all steps never jumps, and
    /// one that a step does not name comes back in time with the others.
    void continuousPhases()
    {
        QFETCH(QString, steps);
        QFETCH(QString, inputs);
        const double waves[3][2] = {{50, 10}, {60, -60}, {16.7, 200}}; // Hz, degrees
        Commands commands =
            svStream + Commands{svPlaces(bytes("00 08 01"))} + stepCommands(250, steps);
        for (int step = 0; step < 3; ++step) {
            commands << signal(step, 0, 1000, 50, 40)
                     << signal(step, 8, 1000, float(waves[step][0]), float(waves[step][1]));
            if (step != 1)
                commands << signal(step, 1, 1000, 50, -80);
        }
        const Recording played(commands, 800, inputs);
        QVector<QPair<double, int>> entries; // ms, step
        for (const QString &change : played.changes)
            entries << qMakePair(change.section('/', 1).toDouble(),
                                 change.section('>', 1).at(0).digitValue());
        QVERIFY(entries.size() > 1);
        double phase = waves[0][1];
        for (int i = 0, entry = 0; i < played.sv.size(); ++i) {
            const Sent &sent = played.sv[i];
            const double time = i * 250e-6;
            while (entry + 1 < entries.size() && entries[entry + 1].first <= i * 0.25) {
                phase -= waves[entries[entry].second][1];
                phase += waves[entries[++entry].second][1];
            }
            const int step = entries[entry].second;
            const double steady = sine(1000, 50, 40, time);
            const double other = step == 1 ? 0 : sine(1000, 50, -80, time);
            QVERIFY(std::abs(sent.value(0) - steady) < 0.51);
            QVERIFY(std::abs(sent.value(1) - sine(1000, 0, phase, 0)) < 0.51);
            QVERIFY(std::abs(sent.value(2) - other) < 0.51);
            phase += double(float(waves[step][0])) * 360 * 250e-6;
        }
    }

    /// Jumps by what the phases differ by play the same as continuous phases; others do not.
    void phaseJumps()
    {
        const double waves[3][2] = {{50, 10}, {60, -60}, {16.7, 200}}; // Hz, degrees
        Commands commands = Commands{svStream[0], svPlaces(bytes("00 08 01"))}
            + stepCommands(250, "13 1|7 2|11 0"); // a loop
        Commands turned = commands;
        for (int step = 0; step < 3; ++step) {
            const double jump = waves[step][1] - waves[(step + 2) % 3][1];
            commands << signal(step, 8, 1000, float(waves[step][0]), float(waves[step][1]), 1,
                               float(jump));
            if (step != 1) // named again after a pause
                commands << signal(step, 1, 1000, 50, -80, 1, 0);
            if (step != 0) // named for the first time in step 1
                commands << signal(step, 0, 1000, 50, 40, 1, 0);
            turned << signal(step, 0, 1000, 0, 90, 1, 30);
        }
        const Recording played(commands, 800), jumped(commands, 800, {}, Phases::Jump),
            restarted(commands, 800, {}, Phases::Restart);
        int others = 0;
        for (int i = 0; i < played.sv.size(); ++i) {
            for (int channel = 0; channel < 3; ++channel) {
                const int value = played.sv[i].value(channel);
                QVERIFY(std::abs(value - jumped.sv[i].value(channel)) <= 1);
                others += std::abs(value - restarted.sv[i].value(channel)) > 100 ? 1 : 0;
            }
        }
        QVERIFY(others > 100);
        const Recording own(turned, 200, {}, Phases::Jump);
        QCOMPARE(own.sv[0].value(0), 1000); // steps 0 to 2 begin at 0, 13 and 20 ms
        QCOMPARE(own.sv[60].value(0), 866);
        QCOMPARE(own.sv[100].value(0), 500);
        QCOMPARE(own.sv[130].value(0), 0); // step 0 again, at 31 ms
    }

    void rates_data()
    {
        for (const char *column : {"interval", "maximum", "second"}) // of the second stream
            QTest::addColumn<int>(column);
        QTest::addColumn<int>("perSecond"); // 0: as the interval says
        QTest::addColumn<int>("conflicts");
        row("50 Hz, 80 samples", 250, 4000, 4000, 4000, 0);
        row("50 Hz, 256 samples", 78, 12800, 12800, 12800, 0);
        row("60 Hz, 80 samples", 208, 4800, 4800, 4800, 0);
        row("60 Hz, 256 samples", 65, 15360, 15360, 15360, 0);
        row("most samples", 15, 0, 0, 65536, 0);
        row("far apart", 2, 40000, 40000, 0, 2);
        row("rounded up", 16, 64516, 64516, 64516, 0);
        row("rounded too far", 16, 64515, 64517, 0, 2);
        row("interval of 50 Hz", 250, 4800, 4800, 0, 2);
        row("one of two", 250, 4000, 4800, 0, 1);
        row("both, but not each other", 78, 12800, 12821, 0, 2);
    }
    void rates()
    {
        QFETCH(int, interval);
        QFETCH(int, maximum);
        QFETCH(int, second);
        QFETCH(int, perSecond);
        QFETCH(int, conflicts);
        const QByteArray kinds = bytes("00 08 ff");
        const Commands commands =
            Commands{svStream[0], svPlaces(kinds, 0, 0, maximum), download(svTemplate, 1),
                     svPlaces(kinds, 1, 0, second), signal(0, 0, 1000, 60, 90)}
            + stepCommands(interval, "0");
        const TestProgram program = Board(commands).program;
        QCOMPARE(int(program.rateConflicts().size()), conflicts);
        const int samples = perSecond > 0 ? perSecond : 1; // in `span`
        const qint64 span = perSecond > 0 ? 1000000000 : interval * 1000;
        const auto timeOf = [&](qint64 i) { return (2 * i * span / samples + 1) / 2; }; // nearest
        const int instants = qMax(perSecond, 1000) + 2;
        const Recording played(commands, instants);
        for (int i = 0; i < instants; ++i) {
            const Sent &sent = played.sv[2 * i];
            QCOMPARE(qint64(sent.time.count()), timeOf(i));
            QVERIFY(std::abs(sent.value(0) - sine(1000, 60, 90, double(timeOf(i)) / 1e9)) < 0.501);
            QVERIFY(perSecond == 0 || sent.smpCnt() == i % perSecond);
        }
        // As exact after 30 days.
        constexpr qint64 kLater = 30 * 86400LL * 1000000000;
        const qint64 later = kLater / span * samples;
        for (int i = 0; i < instants; ++i)
            QCOMPARE(qint64(program.sampleRate().timeOf(later + i).count()),
                     kLater / span * span + timeOf(i));
    }

    void badNumbers()
    {
        Commands bad = {signal(0, 0, 9, 0, 90, 0), signal(0, 0, 9, 0, 90, -0.0F)};
        for (const float f : {std::numeric_limits<float>::quiet_NaN(), kInfinity, -kInfinity})
            bad << signal(0, 0, f) << signal(0, 0, 9, f) << signal(0, 0, 9, 0, f)
                << signal(0, 0, 9, 0, 90, f) << signal(0, 0, 9, 0, 90, 1, f);
        for (const QByteArray &command : bad) {
            const Commands all = svStream + endless + Commands{signal(0, 0, 3), command};
            QCOMPARE(int(Board(all).problems.size()), 1);
            QCOMPARE(Recording(all, 1).sv.first().value(0), 3);
        }
    }

    void repetitions()
    {
        const QMap<quint64, const char *> timesOf = {
            // ms
            {10000, "0 2 6 14 30 62 126 254 510 1022 2046 4094 8190 13190 18190"},
            {100, "0 2 6 14 30 62 112 162 212 262"},
            {5, "0 2 4.5 7 9.5"},
            {3, "0 1.5 3 4.5 6"},
            {0, "0 1 2 3 4"},
            {0xffffffff, "0 2 6 14 30 62 126"},
            {~0ULL, "0 2 6 14 30 62 126"}};
        for (auto of = timesOf.begin(); of != timesOf.end(); ++of) {
            const QStringList wanted = QString(of.value()).split(' ');
            const Recording played(Commands{download(gooseFrame(of.key())), goosePlaces()}
                                       + endless,
                                   int(wanted.last().toDouble() * 4) + 1);
            QStringList found;
            for (const Sent &sent : played.goose) {
                QCOMPARE(sent.number(sqNumAt), qint64(found.size()));
                found << milliseconds(sent.time);
            }
            QCOMPARE(found, wanted);
        }
    }

    void states_data()
    {
        QTest::addColumn<Commands>("controls");
        QTest::addColumn<QString>("messages"); // up to 9 ms; step 1 begins at 5 ms
        QTest::addColumn<quint32>("stNum");
        const auto add = [](const char *name, const char *messages, const Commands &controls,
                            quint32 stNum = 1) { row(name, controls, messages, stNum); };
        const QByteArray mark = item(stNumAt, be(0, 4)), on = item(entry1At, byte(1));
        const auto at = [](int offset, const char *data) { return item(offset, bytes(data)); };
        const char *const start = "0 1/0 0 CB 000640, 2 1/1 0 CB 000640, ";
        const QByteArray kept = QByteArray(start) + "6 1/2 0 CB 000640";
        const QByteArray unmarked = QByteArray(start) + "6 1/2 0 CB 010640";
        const QByteArray marked = QByteArray(start) + "5 2/0 5 CB 010640, 7 2/1 5 CB 010640";
        add("none", kept, {});
        add("other step, other stream", kept, {control(2, {mark, on}), control(1, {mark, on}, 1)});
        add("unmarked", unmarked, {control(1, {on})});
        add("marked", marked, {control(1, {mark, on})});
        add("mark behind", marked, {control(1, {on, mark})});
        add("nothing changes", QByteArray(marked).replace("0106", "0006"),
            {control(1, {at(stNumAt, "00000001")})});
        add("last byte of stNum", marked, {control(1, {on, at(stNumAt + 3, "09")})});
        add("into stNum", marked, {control(1, {on, at(stNumAt - 1, "04ff")})});
        add("up to stNum", unmarked, {control(1, {on, at(stNumAt - 1, "04")})});
        add("behind stNum", unmarked, {control(1, {on, at(stNumAt + 4, "86")})});
        add("nothing at stNum", unmarked, {control(1, {on, at(stNumAt, "")})});
        add("sqNum", unmarked, {control(1, {on, at(sqNumAt, "ffffffff")})});
        add("t, unmarked", QByteArray(unmarked).replace("1/2 0", "1/2 0102030405060708"),
            {control(1, {on, at(tAt, "0102030405060708")})});
        add("t to sqNum, marked", marked, {control(1, {on, at(tAt, "ff*8 8504 ff*4 8604 ff*4")})});
        add("gocbRef", QByteArray(unmarked).replace("0 CB 01", "0 XY 01"),
            {control(1, {on, at(gocbRefAt, "'XY'")})});
        add("beyond", marked, {control(1, {at(gooseEnd - 1, "ffff"), mark, on})});
        add("last command", unmarked, {control(1, {mark, at(entry2At, "ff")}), control(1, {on})});
        add("step 0", QByteArray(unmarked).replace("0006", "0106"), {control(0, {mark, on})});
        add("wrap", QByteArray(marked).replace("1/", "4294967295/").replace("2/", "1/"),
            {control(1, {mark, on})}, 0xffffffff);
    }
    void states()
    {
        QFETCH(quint32, stNum);
        QFETCH(Commands, controls);
        const Commands goose = {download(gooseFrame(100, stNum)), goosePlaces()};
        QStringList messages;
        for (const Sent &sent : Recording(goose + stepCommands(250, "5 1|0") + controls, 37).goose)
            messages << sent.message();
        QTEST(messages.join(", "), "messages");
    }

    /// Of several changes at one instant, only the last state is on the wire.
    void statesAtOneInstant()
    {
        const QByteArray mark = item(stNumAt, be(0, 4));
        Commands commands = gooseStream + stepCommands(250, "0 0 1 1|0 0 1 2|0 0 1 0");
        for (int step = 0; step < 3; ++step)
            commands << control(step, {mark, item(entry1At, byte(step))});
        const QVector<QPair<QString, QString>> cases = {
            {"1.01:T", "0 1/0 00, 1.25 2/0 01"},
            {"1.01:T 1.02:T", "0 1/0 00, 1.25 2/0 02"},
            {"1.01:T 1.02:T 2:T", "0 1/0 00, 1.25 2/0 02, 2 3/0 00"},
            {"0:T", "0 1/0 01"},
        };
        for (const auto &of : cases) {
            QStringList found;
            for (const Sent &sent : Recording(commands, 13, of.first).goose) {
                if (sent.number(sqNumAt) == 0)
                    found << sent.message().section(' ', 0, 1) + ' '
                            + sent.bytes.mid(entry1At, 1).toHex();
            }
            QCOMPARE(found.join(", "), of.second);
        }
    }

    void sequence_data()
    {
        QTest::addColumn<int>("interval");
        for (const char *column : {"steps", "inputs", "changes"}) // changes after the start
            QTest::addColumn<QString>(column);
        const QByteArray five = "0>1 trigger 1.01/1.25, 1>0 trigger 1.02/1.25, "
                                "0>1 trigger 1.03/1.25, 1>0 trigger 1.04/1.25, "
                                "0>1 trigger 1.05/1.25";
        row("time", 250, "10 1|5 255", "", "0>1 time 10/10, 1> time 15/15");
        row("uneven time", 78, "10 1|5 3", "", "0>1 time 10/10.062, 1> time 15.062/15.132");
        row("0 is never", 250, "0 1|5 255", "", "");
        row("into itself", 250, "100 0", "", "0>0 time 100/100, 0>0 time 200/200");
        row("over step 2", 250, "10 3|10 2||60 1", "",
            "0>3 time 10/10, 3>1 time 70/70, 1> time 80/80");
        row("trigger", 250, "50 2 9 1|5 2", "3.01:T", "0>1 trigger 3.01/3.25, 1> time 8.25/8.25");
        row("no trigger", 250, "10 1 0 1|5 2 1 0", "3:T", "0>1 time 10/10, 1> time 15/15");
        row("trigger at the start", 250, "10 255 1 1|0", "0:T", "0>1 trigger 0/0");
        row("input at the start", 250, "0 0 0 0 1 1|0", "0:+3", "0>1 input3 0/0");
        row("trigger to the end", 250, "0 0 1 255", "3.01:T", "0> trigger 3.01/3.25");
        row("input", 250, "0 0 0 0 1 1|5 2", "2.6:+255",
            "0>1 input255 2.6/2.75, 1> time 7.75/7.75");
        row("input not awaited", 250, "10 255 1 1 0 1|0", "2.6:+3", "0> time 10/10");
        row("input gone", 250, "10 255 0 0 1 1|0", "1:-3", "0> time 10/10");
        row("active", 250, "10 255 0 0 1 1|0", "a 3:+7", "0> time 10/10");
        row("active, off, on", 250, "0 0 0 0 1 1|0", "a 3:-7 3.1:+7", "0>1 input7 3.1/3.25");
        row("on", 250, "5 1|9 9 0 0 1 2|0", "2:+3 6:+3", "0>1 time 5/5, 1> time 14/14");
        row("on, off", 250, "5 1|9 9 0 0 1 2|0", "2:+3 6:-3", "0>1 time 5/5, 1> time 14/14");
        row("on, off, on", 250, "5 1|0 0 0 0 1 2|0", "2:+3 6:-3 7.1:+3",
            "0>1 time 5/5, 1>2 input3 7.1/7.25");
        row("on, off, on at one instant", 250, "5 1|0 0 0 0 1 2|0", "2:+3 7.01:-3 7.02:+3",
            "0>1 time 5/5, 1>2 input3 7.02/7.25");
        row("another on", 250, "5 1|0 0 0 0 1 2|0", "2:+3 6:+4", "0>1 time 5/5, 1>2 input4 6/6");
        row("time and input", 250, "10 1 0 0 1 2|0|0", "10:+3", "0>1 time 10/10");
        row("time and trigger", 250, "10 1 1 2|0|0", "10:T", "0>1 time 10/10");
        row("time, then input", 78, "10 1 0 0 1 2|0 0 0 0 1 3|0|0", "10.03:+3",
            "0>1 time 10/10.062, 1>3 input3 10.03/10.062");
        row("input, then time", 78, "10 1 0 0 1 2|0|0", "9.99:+3", "0>2 input3 9.99/10.062");
        row("two inputs", 250, "0 0 0 0 1 1|0 0 0 0 1 2|0", "5.01:+3 5.02:+4",
            "0>1 input3 5.01/5.25, 1>2 input4 5.02/5.25");
        row("two poles", 250, "0 0 0 0 1 1|0 0 0 0 1 2|0", "5.01:+3 5.01:+4",
            "0>1 input3 5.01/5.25");
        row("five", 250, "0 0 1 1|0 0 1 0", "1.01:T 1.02:T 1.03:T 1.04:T 1.05:T", five.constData());
        row("ring", 250, "0 0 1 1|0 0 1 0", "1.01:T 1.02:T 1.03:T 1.04:T 1.05:T 1.06:T 1.07:T",
            (five + ", 1> ring 1.06/1.25").constData());
        row("stop", 250, "10 255", "4:S", "0> stop 4/4");
        row("stop later", 250, "10 1|5 255", "12:S", "0>1 time 10/10, 1> stop 12/12");
    }
    void sequence()
    {
        QFETCH(int, interval);
        QFETCH(QString, steps);
        QFETCH(QString, inputs);
        QFETCH(QString, changes);
        constexpr int kInstants = 1000;
        const Recording played(svStream + stepCommands(interval, steps) + Commands{allInputs},
                               kInstants, inputs);
        QStringList wanted = QStringLiteral(">0 start 0/0, %1").arg(changes).split(", ");
        wanted.removeAll(QString());
        QCOMPARE(played.changes, wanted);

        const QString last = wanted.last();
        const bool ended = last.contains("> ");
        // No frame at the instant at which the sequence ended.
        const double end = last.section('/', 1).toDouble() * 1000 / interval;
        QCOMPARE(int(played.sv.size()), ended ? qRound(end) : kInstants);
        QCOMPARE(played.status.state == PlayState::Running, !ended);
        if (last.contains("> time") || last.contains("> stop"))
            QCOMPARE(played.status.state == PlayState::Stopped, last.contains("stop"));
        QCOMPARE(int(played.status.step), last.section('>', ended ? 0 : 1).at(0).digitValue());
    }

    void recordedInputs_data()
    {
        for (const char *column : {"steps", "inputs", "recorded"}) // and their number
            QTest::addColumn<QString>(column);
        QString many, kept;
        for (int i = 1; i <= 1000; ++i) {
            many += QStringLiteral("%1:T ").arg(i);
            kept += i <= 768 ? QStringLiteral("%1:T ").arg(i) : QString();
        }
        row("none", "9 255", "", "0");
        row("not awaited", "0", "2.6:+3 3:T 4.00001:-3", "2.6:+3 3:T 4.00001:-3 3");
        row("awaited", "0 0 1 1 1 1|0", "2.6:+3 3:T 4:+4", "2.6:+3 3:T 4:+4 3");
        row("without a change", "0", "1:+3 2:+3 3:-4 4:+255", "1:+3 4:+255 2");
        row("active at the start", "0", "a 1:+7 2:-7", "2:-7 1");
        row("before the start", "0", "-1:+3 0:T 1:+3", "0:T 1");
        row("poles that trip at the end", "0 0 0 0 1 255", "3.01:+3 3.01:+4 3.02:T 4:-3",
            "3.01:+3 3.01:+4 3.02:T 3");
        row("no such channel", "0", "1:+256 2:T", "2:T 1");
        row("more than are kept", "0", qPrintable(many), qPrintable(kept + "1000"));
    }
    void recordedInputs()
    {
        QFETCH(QString, steps);
        QFETCH(QString, inputs);
        const Recording played(svStream + stepCommands(250, steps) + Commands{allInputs}, 4100,
                               inputs);
        QTEST(played.noted.join(' '), "recorded");
    }
};

QTEST_GUILESS_MAIN(TestPlayer)
#include "tst_player.moc"
