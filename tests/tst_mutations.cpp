// Damaged and senseless commands: the playing board reports them, plays what is left, and touches
// nothing that is not its own (the sanitizers look).

#include "tests/testsupport.h"

#include "virtualboard/play/player.h"
#include "virtualboard/play/testprogram.h"
#include "virtualboard/wire/envelope.h"

#include <QDebug>
#include <QTest>

#include <cmath>
#include <random>

using namespace virtualboard;
using testsupport::bytes;

namespace {

const QVector<QByteArray> kValid = {
    bytes("8c918c91 00 01 00 4000 ff*12 81008000 88ba 4000 002e 00*4 6024 800101 a21f 301d "
          "8004'svid' 82020000 830400000001 850101 8708 000002ee 00002000"),
    bytes("8c908c9004 00 00 2b00 0000 a00f 3800 01 08"),
    bytes("8c918c91 40 09 00 6d00 ff*6 010ccd020000 81008000 88b8 2000 005b 00*4 6151 "
          "8007'gocbRef' 81020014 8207'Dataset' 8304'goID' 8408 00*7 50 8504 ffffffff 860400000000 "
          "870100 880101 890100 8a0103 ab11 830100 84020640 91080000000000000050"),
    bytes("8c908c9005 00 4a 3a"),
    bytes("8c908c9009 00 00 02 4400 04 00000000 5e00 01 01"),
    bytes("8c908c9009 01 00 02 4400 04 00000000 6100 02 0680"),
    bytes("ac12ac12 01 01 0110 0000 0400 0404"),
    bytes("8c908c9001 00 08 6f12833a 01 00004842 a4b42942 0000f0c2 0000803f"),
    bytes("8c908c9001 01 08 0000803f 01 00004842 a4b42942 0000f0c2"),
    bytes("8c908c9007 00 0c 0200 01 01 01 01 01"),
    bytes("8c908c9007 01 0c 0300 00 01 00 01 00"),
    bytes("8c908c9003 01 fa 05 02 04 08"),
    bytes("8c908c9006 01"),
    bytes("8c908c9008 00"),
    bytes("8c908c900a 00 01"),
    bytes("8c918c91 00 19 0000 0000 02 01 00*18"), // FT3
    bytes("8c928c92 00"),
    bytes("8c938c93"),
    bytes("84538453 ffff"),
    bytes("88128812 00*14 2c01 00010000 06"),
    bytes("9c129c12 01 25 0040 00 00 02 2007 1f00"),
    bytes("bc12bc12 03 06 01ff 7f ff 00*38"),
};
const QByteArray kReset = bytes("8c908c9002");

QByteArray wrapped(QByteArray frame)
{
    frame.append(frame.size() % 2, '\0');
    const int length = int(frame.size()) + 2;
    const QByteArray field = QByteArray(1, char(length)) + char(length >> 8);
    char check[2] = {};
    for (int i = 0; i < int(frame.size()); ++i)
        check[i % 2] = char(check[i % 2] ^ frame.at(i));
    return bytes("a5a5a5a500") + field + field + frame + QByteArray(check, 2);
}

/// Reads every byte of every frame.
struct Counting : FrameSink
{
    int frames = 0, wrong = 0, ends = 0;
    quint64 sum = 0;

    void publish(WallTime, const OutgoingFrame *sent, int count) override
    {
        for (frames += count; count-- > 0; ++sent) {
            wrong += sent->size < 26 || sent->size > 1518 || sent->port < 1 || sent->port > 8;
            for (int i = 0; i < sent->size; ++i)
                sum += sent->bytes[i];
        }
    }
    void note(WallTime, const Transition &change) override { ends += change.entered == kNoStep; }
};

/// What a program would publish and play.
QString contents(const TestProgram &program)
{
    QString result;
    QDebug out(&result);
    const SampleRate rate = program.sampleRate();
    out << (rate.isNone() ? 0.0 : rate.seconds());
    for (const PlayedSv &each : program.svStreams())
        out << each.number << each.frame << each.channelKinds << each.smpCntMax;
    for (const PlayedGoose &each : program.gooseStreams())
        out << each.number << each.frame << each.tOffset << each.items[1].size();
    for (const SubscriptionCommand &each : program.subscriptions())
        out << each.group << each.appId << each.mappedPositions;
    for (int i = 0; i < kStepLimit && program.step(i); ++i)
        out << program.step(i)->milliseconds << program.step(i)->waves[8].amplitude;
    return result;
}

/// Whether the command names something that the board does not have, or no number.
bool isOutOfRange(const Command &command)
{
    if (const auto *const signal = std::get_if<ChannelSignalCommand>(&command))
        return signal->step >= kStepLimit || signal->channel >= kAnalogChannels
            || !std::isfinite(signal->amplitude) || !std::isfinite(signal->frequency)
            || !std::isfinite(signal->phase) || !std::isfinite(signal->scaleFactor)
            || !std::isfinite(signal->phaseJump.value_or(0)) || std::abs(signal->scaleFactor) <= 0;
    if (const auto *const control = std::get_if<GooseControlCommand>(&command))
        return control->step >= kStepLimit || control->group >= kStreamLimit;
    const auto *const condition = std::get_if<StepConditionCommand>(&command);
    return condition && condition->step >= kStepLimit;
}

} // namespace

class TestMutations : public QObject
{
    Q_OBJECT

private slots:
    void hostileCommands();

private:
    void mutate(QByteArray &bytes);
    void play(const TestProgram &program);
    int below(int limit) { return int(m_random() % unsigned(limit)); }
    const QByteArray &any() { return kValid[below(int(kValid.size()))]; }

    std::mt19937 m_random{20261123}; // NOLINT: the same in every run, on purpose
    int m_played = 0, m_ended = 0, m_frames = 0;
    quint64 m_sum = 0;
};

void TestMutations::mutate(QByteArray &bytes)
{
    const int at = below(int(bytes.size()) + 1), kind = below(6);
    if (kind == 0)
        bytes.truncate(at);
    else if (kind == 1)
        bytes.insert(at, QByteArray(below(4) + 1, char(below(256))));
    else if (kind == 2)
        bytes = bytes.left(at) + any().mid(at);
    else if (at < bytes.size() && kind == 3)
        bytes[at] = char(below(2) == 0 ? 0xff : below(8));
    else if (at < bytes.size())
        bytes[at] = char(bytes.at(at) ^ 1 << below(8));
}

void TestMutations::play(const TestProgram &program)
{
    Player player(program, WallTime(), Phases(below(2)), {quint64(below(2))});
    Counting sink;
    WallTime last; // input
    for (int i = 0; i < 300; ++i) {
        while (below(2) == 0) {
            last += Duration(below(int((player.nextInstant() - last).count()) + 1));
            const int channel = below(9) == 0 ? 0xffff : below(5);
            player.input({last, InputKind(below(3)), quint16(channel)});
        }
        if (below(1000) == 0)
            player.stop(Cause::Limit);
        const int before = sink.frames;
        player.play(sink);
        QVERIFY(player.changeCount() <= Player::kMaximumChanges);
        QVERIFY(!player.hasEnded() || sink.frames == before);
    }
    QCOMPARE(sink.wrong, 0);
    QCOMPARE(sink.ends, player.hasEnded() ? 1 : 0);
    QCOMPARE(player.status().framesSent, quint64(sink.frames));
    ++m_played;
    m_ended += sink.ends;
    m_frames += sink.frames;
    m_sum += sink.sum;
}

void TestMutations::hostileCommands()
{
    TestProgram program;
    int refused = 0;
    for (int i = 0; i < 100000; ++i) {
        if (i % 200 == 0) { // something to play, for others to spoil
            QCOMPARE(program.take(decodeCommand(kReset)), QStringList());
            for (const QByteArray &frame : kValid)
                QCOMPARE(program.take(decodeCommand(openEnvelope(wrapped(frame)).frame)).size(), 0);
        }
        QByteArray frame = any();
        while (below(3) != 0)
            mutate(frame);
        QByteArray datagram = wrapped(frame);
        if (below(20) == 0)
            mutate(datagram);
        const Envelope envelope = openEnvelope(datagram);
        if (!envelope.problems.isEmpty())
            continue;
        const DecodedCommand decoded = decodeCommand(envelope.frame);
        const bool compared = i % 20 == 0; // it takes long
        const QString before = compared ? contents(program) : QString();
        const QStringList reports = program.take(decoded);
        if (!decoded.problems.isEmpty() || isOutOfRange(decoded.command)) {
            ++refused;
            QVERIFY2(!reports.isEmpty(), envelope.frame.toHex().constData());
            // The faults of a template are those of its stream, which is replaced all the same.
            if (compared && !std::holds_alternative<FrameTemplateCommand>(decoded.command))
                QVERIFY2(contents(program) == before, envelope.frame.toHex().constData());
        }
        if (i % 200 == 199 && program.whyNotPlayable().isEmpty())
            play(program);
    }
    // Otherwise the mutations are too strong or too weak to try anything.
    QVERIFY(refused > 25000 && refused < 75000 && m_played > 100 && m_ended > 10
            && m_ended < m_played);
    QVERIFY(m_frames > 10000 && m_sum > 0);
}

QTEST_GUILESS_MAIN(TestMutations)
#include "tst_mutations.moc"
