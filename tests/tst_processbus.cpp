// From configuration and state sequence over the device link to the process bus, as an independent
// protocol analyser reads the capture of the playing board.

#include "tests/testsupport.h"

#include "engine/lumtarengine.h"
#include "virtualboard/capture/capturefile.h"
#include "virtualboard/play/player.h"
#include "virtualboard/play/testprogram.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using namespace testsupport;
using namespace virtualboard;

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr Duration kInterval = 250us;
constexpr WallTime kStart{1767225600s + 123456789ns}; // 2026-01-01 00:00:00 UTC and a bit

// The state sequence: a second each, but the relay trips 30 ms after the fault, step 1, has begun.
enum Quantity { Va, Vb, Vc, Vn, Ia, Ib, Ic, In, Quantities, Delay, Nothing };
constexpr int kSteps = 4;
constexpr Duration kTrip = 1030ms, kEnd = kTrip + 2s;
constexpr Duration kEntries[] = {0s, 1s, kTrip, kTrip + 1s, kEnd};
constexpr float kFrequencies[kSteps] = {50, 49.5F, 50, 50.2F};
constexpr float kRms[kSteps][Quantities] = {{57.735F, 57.735F, 57.735F, 0, 1, 1, 1, 0},
                                            {10, 57.735F, 57.735F, 47.735F, 8, 1, 1, 7.631F},
                                            {57.735F, 57.735F, 57.735F},
                                            {57.7F, 57.7F, 57.7F, 0, 0.5F, 0.5F, 0.5F, 0}};
constexpr float kPhases[kSteps][Quantities] = {{0, -120, 120, 0, -10, -130, 110, 0}, // degrees
                                               {0, -120, 120, 180, -75, -130, 110, -81.8F},
                                               {30, -90, 150},
                                               {7, -113, 127, 0, 0, -120, 120, 0}};
constexpr int kOutputs[kSteps][4] = {{1, 1, 1, 0}, {1, 1, 0, 1}, {0, 1, 1, 1}, {1, 0, 1, 0}};

// What the configuration says of the streams.
const char *const kSvValues[] = {
    "01:0c:cd:04:00:01 02:00:00:00:00:01 4 101 0x4001 1 E1Q01MU01/LLN0.MSVCB01 1 1",
    "01:0c:cd:04:00:02 02:00:00:00:00:02 4 101 0x4002 1 E1Q00MU01/LLN0.MSVCB01 1 1"};
const char *const kGooseValues[] = {
    "01:0c:cd:01:00:11 02:00:00:00:00:03 4 12 0x0011 E1Q01SC01/LLN0$GO$gocb1 10000 "
    "E1Q01SC01/LLN0$dsPosition E1Q01SC01.Position 0 1 0 7",
    "01:0c:cd:01:00:12 02:00:00:00:00:03 4 12 0x0012 E1Q00BP01/LLN0$GO$gocb1 10000 "
    "E1Q00BP01/LLN0$dsTrip E1Q00BP01.Trip 0 1 0 4"};
const QVector<Quantity> kChannels[] = {{Delay, Ia, Ia, Ib, Ib, Ic, Ic, In, In, Ia,      Ib,
                                        Ic,    Va, Va, Vb, Vb, Vc, Vc, Vn, Vn, Nothing, Nothing},
                                       {Delay, Va, Vb, Vc, Vn}};

const QString kEthernet = QStringLiteral("eth.dst eth.src vlan.priority vlan.id ");
const QString kSv = kEthernet + "sv.appid sv.noASDU sv.svID sv.confRev sv.smpSynch";
const QString kGoose = kEthernet
    + "goose.appid goose.gocbRef goose.timeAllowedtoLive goose.datSet goose.goID "
      "goose.simulation goose.confRev goose.ndsCom goose.numDatSetEntries";
const QString kGooseState =
    QStringLiteral("goose.stNum goose.sqNum goose.boolean goose.bit_string");
const QString kOthers = QStringLiteral(" frame.time_epoch eth.type _ws.malformed "
                                       "_ws.expert.severity sv.smpCnt sv.meas_value goose.t ");

struct Packet
{
    QMap<QString, QString> values;
    Duration time = {}; ///< since the start

    QString operator[](const char *field) const { return values[QLatin1String(field)]; }
    QString all(const QString &fields) const
    {
        QStringList result;
        for (const QString &field : fields.split(' '))
            result << values[field];
        return result.join(' ');
    }
};

int stepAt(Duration time)
{
    int step = kSteps - 1;
    while (kEntries[step] > time)
        --step;
    return step;
}

/// Volts or amperes per count; the value before it is rounded.
double expectedValue(Quantity q, Duration time)
{
    if (q >= Quantities)
        return q == Delay ? 750 : 0;
    const int step = stepAt(time);
    double turns = double(kPhases[step][q]) / 360;
    for (int s = 0; s <= step; ++s) { // what every frequency until now has turned
        const Duration end = s < step ? kEntries[s + 1] : time;
        turns += double(kFrequencies[s]) * std::chrono::duration<double>(end - kEntries[s]).count();
    }
    const double angle = 2 * kPi * turns;
    return double(kRms[step][q]) * std::sqrt(2.0) / (q < Ia ? 0.01 : 0.001) * std::sin(angle);
}

void configure(LumtarEngine &engine)
{
    engine.SetVIInputWay(1, 0, 0);
    engine.stepCount = kSteps;
    for (int s = 0; s < kSteps; ++s) {
        CStep &step = engine.steps[s];
        for (int q = 0; q < Quantities; ++q) {
            OutChannelPara_tag &output = step.outPara[2 * q];
            output.frequency = kFrequencies[s];
            output.amplitude = kRms[s][q];
            output.phasePosition = kPhases[s][q];
        }
        for (int i = 0; i < 4; ++i)
            step.binOut[i] = quint8(kOutputs[s][i]);
        step.stateTime = 1;
        step.stateTimeJump = quint8(s + 1);
    }
    engine.SetDoubleAD();
    engine.steps[1].ctlCondition = 8; // the binary input ends it
    engine.steps[1].binInpJump = 2;
}

QByteArray rendered(const TestProgram &program, const QString &path)
{
    CaptureSink sink;
    if (!sink.open(path))
        return {};
    Player player(program, kStart);
    bool tripped = false;
    sink.begin(program);
    while (!player.hasEnded()) {
        if (!tripped && player.nextInstant() >= kStart + kTrip) {
            player.input({kStart + kTrip, InputKind::ChannelOn, 0});
            tripped = true;
        }
        player.play(sink);
    }
    sink.end();
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestProcessBus : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyFrame();
    void sampledValues();
    void goose();

private:
    void dissect(const QString &tshark, const QString &path);

    QVector<Packet> m_packets, m_svPackets[2], m_goosePackets[2];
};

void TestProcessBus::dissect(const QString &tshark, const QString &path)
{
    const QStringList fields = QString(kSv + kOthers + kGoose + ' ' + kGooseState).split(' ');
    QStringList arguments = {"-r", path, "-T", "fields", "-o", "sv.decode_data_as_phsmeas:TRUE"};
    for (const QString &field : fields)
        arguments << "-e" << field;
    QProcess analyser;
    analyser.start(tshark, arguments);
    QVERIFY2(analyser.waitForFinished(100000) && analyser.exitCode() == 0,
             analyser.readAllStandardError().constData());
    while (analyser.canReadLine()) {
        const QStringList values = QString::fromUtf8(analyser.readLine()).chopped(1).split('\t');
        QCOMPARE(values.size(), fields.size());
        Packet packet;
        for (int i = 0; i < int(fields.size()); ++i)
            packet.values[fields[i]] = values[i];
        packet.time =
            WallTime(Duration(packet["frame.time_epoch"].remove('.').toLongLong())) - kStart;
        m_packets << packet;
        if (!packet["sv.appid"].isEmpty())
            m_svPackets[packet["sv.appid"] == "0x4001" ? 0 : 1] << packet;
        if (!packet["goose.appid"].isEmpty())
            m_goosePackets[packet["goose.appid"] == "0x0011" ? 0 : 1] << packet;
    }
}

void TestProcessBus::initTestCase()
{
    const QString tshark = QStandardPaths::findExecutable(QStringLiteral("tshark"));
    if (tshark.isEmpty())
        QSKIP("tshark is not installed: the capture is not dissected");
    LinkResponder board(boardAddress());
    QVERIFY(board.start());
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    QCOMPARE(engine.InitGPP(QByteArray(EXAMPLE).data()), 1);
    configure(engine);
    QCOMPARE(engine.ExecSeq(), 1);
    TestProgram program;
    for (const Reception &reception : acknowledgedExchanges(board.receptions()))
        QCOMPARE(program.take(reception.decoded), QStringList());
    QCOMPARE(program.unpublished().join(' ') + program.whyNotPlayable(), QString());

    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("test.pcap"));
    const QByteArray capture = rendered(program, path);
    QVERIFY2(capture == rendered(program, path), "the same test gives another capture");
    dissect(tshark, path);
}

void TestProcessBus::everyFrame()
{
    int marks = 0;
    Duration last = {};
    for (const Packet &packet : m_packets) {
        QVERIFY(packet["_ws.malformed"].isEmpty());
        QVERIFY2(packet["_ws.expert.severity"].isEmpty(), qPrintable(packet["frame.time_epoch"]));
        QVERIFY(packet.time % kInterval == 0s && packet.time >= last);
        last = packet.time;
        marks += packet["eth.type"] == "0x88b5" ? 1 : 0;
    }
    QCOMPARE(marks, 2 + kSteps + 1 + 1); // streams, entries, end, the input
    QCOMPARE(int(m_packets.size()),
             marks
                 + int(m_svPackets[0].size() + m_svPackets[1].size() + m_goosePackets[0].size()
                       + m_goosePackets[1].size()));
}

void TestProcessBus::sampledValues()
{
    for (int stream = 0; stream < 2; ++stream) {
        QCOMPARE(int(m_svPackets[stream].size()), int(kEnd / kInterval));
        for (int i = 0; i < int(kEnd / kInterval); ++i) {
            const Packet &packet = m_svPackets[stream][i];
            QCOMPARE(packet.time, i * kInterval);
            QCOMPARE(packet.all(kSv), QString::fromLatin1(kSvValues[stream]));
            QCOMPARE(packet["sv.smpCnt"].toInt(), i % 4000);
            const QStringList values = packet["sv.meas_value"].split(',');
            QCOMPARE(values.size(), kChannels[stream].size());
            for (int c = 0; c < int(values.size()); ++c) {
                const double expected = expectedValue(kChannels[stream][c], packet.time);
                // The link's factor from RMS to peak has six digits: 0.05 counts at 10000.
                QVERIFY2(std::abs(values[c].toInt() - expected) < 0.55,
                         qPrintable(QString("%1, channel %2: %3").arg(i).arg(c).arg(expected)));
            }
        }
    }
}

void TestProcessBus::goose()
{
    for (int stream = 0; stream < 2; ++stream) {
        QStringList expected, found;
        for (int s = 0; s < kSteps; ++s) {
            const int *on = kOutputs[s];
            const auto position = [](int closed) { return closed ? 80 : 40; };
            const QString values = stream == 0
                ? QString("%1 %2,%3").arg(on[2]).arg(position(on[0])).arg(position(on[1]))
                : QString("0,%1 ").arg(on[3]);
            Duration time = kEntries[s];
            Duration pause = 2ms; // it never comes to half of timeAllowedtoLive
            for (int sqNum = 0; time < kEntries[s + 1]; ++sqNum) {
                expected
                    << QString("%1: %2 %3 %4").arg(time.count()).arg(s + 1).arg(sqNum).arg(values);
                time += pause;
                pause *= 2;
            }
        }
        for (const Packet &packet : m_goosePackets[stream]) {
            QCOMPARE(packet.all(kGoose), QString::fromLatin1(kGooseValues[stream]));
            found << QString("%1: %2").arg(packet.time.count()).arg(packet.all(kGooseState));
            const WallTime entry = kStart + kEntries[stepAt(packet.time)];
            const QString t = packet["goose.t"];
            QCOMPARE(t.section('.', 0, 0),
                     QString("Jan  1, 2026 00:00:0%1").arg(entry.time_since_epoch() / 1s % 60));
            const Duration lost =
                entry.time_since_epoch() % 1s - Duration(t.section('.', 1).left(9).toLongLong());
            QVERIFY2(lost >= 0ns && lost < 60ns,
                     qPrintable(t)); // 24 bits of a second, rounded down
        }
        QCOMPARE(found.join('\n'), expected.join('\n'));
    }
}

static const SingleRun singleRun;

QTEST_GUILESS_MAIN(TestProcessBus)
#include "tst_processbus.moc"
