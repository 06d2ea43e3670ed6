// The state of the engine, the commands of a state sequence, and the analog output operations.

#include "tests/testsupport.h"

#include "engine/lumtarengine.h"

#include <QDataStream>
#include <QElapsedTimer>
#include <QTest>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <utility>

using namespace testsupport;
using virtualboard::Behaviour;
using virtualboard::LinkResponder;

Q_DECLARE_METATYPE(std::function<void(LumtarEngine &)>)

namespace {

enum Output { Va1, Va2, Vb1, Vb2, Vc1, Vc2, Vn1, Vn2, Ia1, Ia2, Ib1, Ib2, Ic1, Ic2, In1, In2 };

QByteArray littleEndian(float number)
{
    quint32 bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    QByteArray result;
    for (int shift = 0; shift < 32; shift += 8)
        result += char(bits >> shift);
    return result;
}

QByteArray byte(int value)
{
    return QByteArray(1, char(value));
}

/// Every field of all steps, for "nothing changed".
QByteArray snapshot(const LumtarEngine &engine)
{
    QByteArray all;
    QDataStream out(&all, QIODevice::WriteOnly);
    for (const CStep &step : engine.steps) {
        for (const OutChannelPara_tag &o : step.outPara) {
            out << o.ampIsPeak << o.scaleFactor << o.frequency << o.amplitude << o.phasePosition
                << o.isCurrent << o.phaseJump;
        }
        out << step.ctlCondition << step.stateTime << step.stateTimeJump << step.stateTrige
            << step.stateTrigeJump << step.binInpJump << step.stepOption << step.phaseAnchor;
        for (const quint8 state : step.binOut)
            out << state;
    }
    return all;
}

/// Different values in every field that is sent.
void fill(LumtarEngine &engine)
{
    for (int s = 0; s < 5; ++s) {
        CStep &step = engine.steps[s];
        for (int o = 0; o < 16; ++o) {
            const auto n = float(100 * s + o);
            const auto peak = quint8(o % 3 == 0 ? 0 : o);
            step.outPara[o] = {peak, n / 7, 50 + n / 9, n * 1.1F, n * 3 - 360, o >= 8, -n};
        }
        const auto numbered = [s](int n) { return quint8(0x10 * s + n); };
        step.ctlCondition = numbered(7 + s % 2); // bit 3 in every other step
        step.stateTime = quint32(s * 33 + 1);
        step.stateTimeJump = numbered(1);
        step.stateTrige = numbered(2);
        step.stateTrigeJump = numbered(3);
        step.binInpJump = numbered(4);
        step.stepOption = quint8(s % 3);
        for (int k = 0; k < 4; ++k)
            step.binOut[k] = quint8((s >> k) % 2 * 0x80);
    }
}

struct Entry
{
    int tag, length, offset;
};

void setRecord(int stream, int stNumOffset, const QVector<Entry> &entries)
{
    GooseDataOffsetAddr &record = gblGooseDataOffsetAddr[stream];
    record.SetPara(int(entries.size()));
    record.StNumOffset = quint8(stNumOffset);
    for (int i = 0; i < entries.size(); ++i) {
        record.DataTag[i] = quint8(entries[i].tag);
        record.DataLen[i] = quint8(entries[i].length);
        record.DataOffset[i] = quint16(entries[i].offset);
    }
}

void setRecords()
{
    setRecord(0, 0x44, {{0x83, 1, 0x5e}, {0x84, 2, 0x0161}});
    setRecord(1, 0x5a, {{0x85, 4, 0x70}, {0x83, 1, 0x81}, {0x83, 3, 0x84}});
    setRecord(2, 0xff, {{0x84, 9, 0x40}});
    setRecord(3, 0x01, {});
}

} // namespace

class TestSequence : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_board.start()); }
    void init() { m_board.clear(); }

    void defaults();
    void sequence_data();
    void sequence();
    void singleCommands_data();
    void singleCommands();
    void amplitude_data();
    void amplitude();
    void binaryOutputs_data();
    void binaryOutputs();
    void refusedSequence_data();
    void refusedSequence();
    void silencedAmplitudes_data();
    void silencedAmplitudes();
    void failedExchangeDoesNotStopTheSequence();
    void sequenceWithoutLink();
    void readStatus_data();
    void readStatus();
    void stop();

    void protocolUnits_data();
    void protocolUnits();
    void mirroredOutputs();
    void continuedPhases_data();
    void continuedPhases();
    void silencedStep();
    void clearedOutputs();
    void stepsOutOfRange_data();
    void stepsOutOfRange();

private:
    LinkResponder m_board{boardAddress()};
};

void TestSequence::defaults()
{
    const LumtarEngine engine;
    for (const CStep &step : engine.steps) {
        for (int o = 0; o < 16; ++o) {
            const OutChannelPara_tag &output = step.outPara[o];
            QCOMPARE(output.scaleFactor, o < 8 ? 0.01F : 0.001F);
            QCOMPARE(int(output.isCurrent), o < 8 ? 0 : 1);
            QCOMPARE(output.frequency, 50.0F);
            QVERIFY(output.ampIsPeak == 0 && output.amplitude == 0 && output.phasePosition == 0
                    && output.phaseJump == 0);
        }
        for (const quint8 state : step.binOut)
            QCOMPARE(int(state), 0);
        QCOMPARE(step.ctlCondition + step.stateTimeJump + step.stateTrige + step.stateTrigeJump
                     + step.binInpJump + step.stepOption + step.phaseAnchor,
                 0);
        QCOMPARE(step.stateTime, 0U);
    }
    QCOMPARE(engine.stepCount, 5);
    QCOMPARE(int(engine.samplesPerCycle), 80);
    QCOMPARE(int(engine.nominalFrequency), 50);
    QCOMPARE(engine.startParam7, 5);
    QCOMPARE(engine.startParam8, 2);
    QVERIFY(!engine.udpSocket && !engine.peerAddress && !engine.parent());
    QCOMPARE(engine.expectDataReply + engine.protocol + engine.lastResult, 0);
    QCOMPARE(engine.viInputWay | engine.voltageRatio | engine.currentRatio, 0);
    for (const OutputGooseEntry &entry : engine.outputGooseMap)
        QVERIFY(entry.stream == -1 && entry.position == 0);
}

void TestSequence::sequence_data()
{
    QTest::addColumn<int>("stepCount");
    QTest::newRow("one step") << 1;
    QTest::newRow("three steps") << 3;
    QTest::newRow("five steps") << 5;
}

// All commands of a sequence in order. The outputs drive streams 2, 0, none and 0.
void TestSequence::sequence()
{
    QFETCH(int, stepCount);
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    setRecords();
    fill(engine);
    engine.viInputWay = 1;
    engine.stepCount = stepCount;
    engine.outputGooseMap[0] = {2, 1};
    engine.outputGooseMap[1] = {0, 2};
    engine.outputGooseMap[3] = {0, 1};

    const QByteArray control = bytes("8c908c90");
    Frames expected;
    for (int s = 0; s < stepCount; ++s) {
        const CStep &step = engine.steps[s];
        for (int k = 0; k < 16; ++k) { // voltages Va1 to Vn2 on 8 to 15, then currents on 0 to 7
            const OutChannelPara_tag &o = step.outPara[k];
            const float sent = o.ampIsPeak ? o.amplitude : float(o.amplitude * 1.41421);
            expected += control + byte(1) + byte(s) + byte((k + 8) % 16)
                + littleEndian(o.scaleFactor) + byte(o.ampIsPeak) + littleEndian(o.frequency)
                + littleEndian(sent) + littleEndian(o.phasePosition) + littleEndian(o.phaseJump);
        }
        expected += control + byte(9) + byte(s) + bytes("00 03 4400 04 00000000")
            + bytes("6101 02 06") + byte(step.binOut[1] ? 0x80 : 0x40) + bytes("5e00 01")
            + byte(step.binOut[3] ? 1 : 0);
        expected += control + byte(9) + byte(s) + bytes("02 02 ff00 04 00000000 4000 09 06")
            + byte(step.binOut[0] ? 0x80 : 0x40);
        expected += control + byte(0x0a) + byte(s) + byte(s % 3 == 0 ? 1 : 0);
        const int ms = (s * 33 + 1) * 1000;
        expected += control + byte(7) + byte(s) + byte(step.ctlCondition) + byte(ms) + byte(ms >> 8)
            + byte(0x10 * s + 1) + byte(0x10 * s + 2) + byte(0x10 * s + 3) + byte(s % 2)
            + byte(0x10 * s + 4);
    }
    expected += bytes("8c908c90 03 01 fa 05 02 04 08");

    const QByteArray before = snapshot(engine);
    QCOMPARE(engine.ExecSeq(), 1);
    COMPARE_BYTES(received(m_board), padded(expected));
    QCOMPARE(snapshot(engine), before);
}

void TestSequence::singleCommands_data()
{
    QTest::addColumn<std::function<void(LumtarEngine &)>>("setUp");
    QTest::addColumn<int>("fromEnd"); // position of the command, counted from the last one
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char *name, int fromEnd, const char *expected,
                        const std::function<void(LumtarEngine &)> &setUp) {
        QTest::newRow(name) << setUp << fromEnd << bytes(expected);
    };
    row("start", 0, "8c908c90 03 01 fa 05020408", [](auto &) {});
    row("256 samples", 0, "8c908c90 03 01 4e 05020408", [](auto &e) { e.samplesPerCycle = 256; });
    row("1 sample: low byte of 20000", 0, "8c908c90 03 01 20 05020408",
        [](auto &e) { e.samplesPerCycle = 1; });
    row("20001 samples", 0, "8c908c90 03 01 00 05020408",
        [](auto &e) { e.samplesPerCycle = 20001; });
    row("low bytes of the start parameters", 0, "8c908c90 03 01 fa ff64c890", [](auto &e) {
        e.startParam7 = -1;
        e.startParam8 = 100;
    });
    row("largest start parameters", 0, "8c908c90 03 01 fa 00fffefc", [](auto &e) {
        e.startParam7 = INT_MIN;
        e.startParam8 = INT_MAX;
    });
    row("70 s", 1, "8c908c90 07 00 00 7011 00 00 00 00 00",
        [](auto &e) { e.steps[0].stateTime = 70; });
    row("longest time", 1, "8c908c90 07 00 00 18fc 00 00 00 00 00",
        [](auto &e) { e.steps[0].stateTime = UINT_MAX; }); // -1000
    row("binary-input transition", 1, "8c908c90 07 00 0c 0000 00 00 00 01 00",
        [](auto &e) { e.steps[0].ctlCondition = 0x0c; });
    row("no binary-input transition", 1, "8c908c90 07 00 f7 0000 00 00 00 00 00",
        [](auto &e) { e.steps[0].ctlCondition = 0xf7; });
    row("option", 2, "8c908c90 0a 00 00", [](auto &e) { e.steps[0].stepOption = 0xff; });
    row("no option", 2, "8c908c90 0a 00 01", [](auto &) {});
    row("In2, the last output", 3, "8c908c90 01 00 07 6f12833a 00 00004842 00*12", [](auto &) {});
    row("Va1, the first output", 18,
        "8c908c90 01 00 08 0ad7233c 01 00004842 0000803f 000034c2 0000f041", [](auto &e) {
            e.viInputWay = 1;
            e.steps[0].outPara[Va1] = {1, 0.01F, 50, 1, -45, 0, 30};
        });
}

void TestSequence::singleCommands()
{
    QFETCH(std::function<void(LumtarEngine &)>, setUp);
    QFETCH(int, fromEnd);
    QFETCH(QByteArray, expected);
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    engine.stepCount = 1;
    setUp(engine);
    QCOMPARE(engine.ExecSeq(), 1);
    const Frames frames = received(m_board);
    QCOMPARE(int(frames.size()), 19); // no GOOSE output is mapped
    COMPARE_BYTES(Frames{frames.at(frames.size() - 1 - fromEnd)}, padded({expected}));
}

void TestSequence::amplitude_data()
{
    QTest::addColumn<int>("way");
    QTest::addColumn<int>("isPeak");
    QTest::addColumn<int>("output");
    QTest::addColumn<float>("amplitude");
    QTest::addColumn<float>("sent");
    QTest::newRow("RMS") << 1 << 0 << int(Va1) << 57.735F << 81.649414F;
    QTest::newRow("peak") << 1 << 1 << int(Ia1) << 57.735F << 57.735F;
    QTest::newRow("any other flag is peak") << -1 << 255 << int(Ia1) << 57.735F << 57.735F;
    QTest::newRow("RMS voltage, scaled") << 0 << 0 << int(Va1) << 57.735F << 81649.414F;
    QTest::newRow("peak voltage, scaled") << 0 << 1 << int(Vn2) << 2.0F << 2000.0F;
    QTest::newRow("the ratio's product is single precision")
        << 0 << 1 << int(Va1) << 70.7F << 70699.9921875F;
    QTest::newRow("RMS current, scaled") << 0 << 0 << int(Ia1) << 5.0F << -21.21315F;
    QTest::newRow("peak current, scaled") << 0 << 1 << int(In2) << 5.0F << -15.0F;
}

void TestSequence::amplitude()
{
    QFETCH(int, way);
    QFETCH(int, isPeak);
    QFETCH(int, output);
    QFETCH(float, amplitude);
    QFETCH(float, sent);
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    engine.SetVIInputWay(way, 100, -3);
    OutChannelPara_tag &para = engine.steps[0].outPara[output];
    para.amplitude = amplitude;
    para.ampIsPeak = quint8(isPeak);
    const QByteArray command = engine.sendcmd01(para, 4, 11);
    QCOMPARE(int(command.size()), 28);
    COMPARE_BYTES(command.left(7), bytes("8c908c90 01 04 0b"));
    COMPARE_BYTES(command.mid(16, 4), littleEndian(sent));
    COMPARE_BYTES(received(m_board), Frames{command});
    QCOMPARE(para.amplitude, amplitude);
}

void TestSequence::binaryOutputs_data()
{
    using Map = QVector<QPair<int, int>>; // stream and position of outputs 1 to 4
    QTest::addColumn<Map>("map");
    QTest::addColumn<int>("step");
    QTest::addColumn<Frames>("expected");
    QTest::addColumn<QVector<int>>("changes"); // ChangeCount of records 0 to 3
    const auto row = [](const char *name, const Map &map, int step, const QVector<int> &changes,
                        const QVector<const char *> &expected) {
        Frames frames;
        for (const char *frame : expected)
            frames += bytes(frame);
        QTest::newRow(name) << map << step << padded(frames) << changes;
    };
    const QPair<int, int> none{-1, 1};
    // Output 2 is on in step 2; outputs 1 and 3 in step 3; all of them in step 4.
    row("nothing mapped", {none, none, none, none}, 2, {0, 0, 0, 0}, {});
    row("boolean on", {none, {1, 2}, none, none}, 2, {0, 1, 0, 0},
        {"8c908c90 09 02 01 02 5a00 04 00000000 8100 01 01"});
    row("boolean off", {{1, 2}, none, none, none}, 2, {0, 1, 0, 0},
        {"8c908c90 09 02 01 02 5a00 04 00000000 8100 01 00"});
    row("bit string off, on", {{2, 1}, {2, 1}, none, none}, 2, {0, 0, 2, 0},
        {"8c908c90 09 02 02 03 ff00 04 00000000 4000 09 0640 4000 09 0680"});
    row("another type carries no data", {none, {1, 1}, none, none}, 2, {0, 1, 0, 0},
        {"8c908c90 09 02 01 02 5a00 04 00000000 7000 04"});
    row("items in output order", {{1, 3}, {0, 2}, {1, 2}, {0, 1}}, 3, {2, 2, 0, 0},
        {"8c908c90 09 03 00 03 4400 04 00000000 6101 02 0640 5e00 01 00",
         "8c908c90 09 03 01 03 5a00 04 00000000 8400 03 01 8100 01 01"});
    row("one output skipped in a group", {{1, 4}, {1, 0}, {1, 2}, {1, 255}}, 4, {0, 1, 0, 0},
        {"8c908c90 09 04 01 02 5a00 04 00000000 8100 01 01"});
    row("record without entries", {{3, 1}, {3, 0}, none, none}, 0, {0, 0, 0, 0}, {});
    row("streams that carry no outputs", {{4, 1}, {5, 1}, {127, 1}, {-128, 1}}, 0, {0, 0, 0, 0},
        {});
    for (const int step : {-1, 5, INT_MAX, INT_MIN})
        row(qPrintable(QStringLiteral("step %1").arg(step)), {{1, 2}, none, none, none}, step, {},
            {});
}

void TestSequence::binaryOutputs()
{
    using Map = QVector<QPair<int, int>>;
    QFETCH(Map, map);
    QFETCH(int, step);
    QFETCH(Frames, expected);
    QFETCH(QVector<int>, changes);
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    setRecords();
    // A fifth and sixth stream exist, but a sequence cannot change them.
    setRecord(4, 1, {{0x83, 1, 2}});
    setRecord(5, 1, {{0x83, 1, 2}});
    engine.steps[2].binOut[1] = 1;
    engine.steps[3].binOut[0] = engine.steps[3].binOut[2] = 0x80;
    for (int k = 0; k < 4; ++k) {
        engine.steps[4].binOut[k] = 255;
        engine.outputGooseMap[k] = {qint8(map[k].first), quint8(map[k].second)};
        gblGooseDataOffsetAddr[k].ChangeCount = 7;
    }
    const DebugLines caught;
    engine.sendcmd09(step);
    COMPARE_BYTES(received(m_board), expected);
    for (int g = 0; g < changes.size(); ++g)
        QCOMPARE(int(gblGooseDataOffsetAddr[g].ChangeCount), changes[g]);
    if (step < 0 || step > 4)
        QVERIFY(isRefusal(caught.lines(), QStringLiteral("sendcmd09"), QString::number(step)));
}

void TestSequence::refusedSequence_data()
{
    QTest::addColumn<int>("stepCount");
    QTest::addColumn<int>("samplesPerCycle");
    QTest::addColumn<QString>("value");
    for (const int count : {0, 6, -1, INT_MAX, INT_MIN})
        QTest::addRow("%d steps", count) << count << 80 << QString::number(count);
    QTest::newRow("no samples") << 5 << 0 << QStringLiteral("0");
}

void TestSequence::refusedSequence()
{
    QFETCH(int, stepCount);
    QFETCH(int, samplesPerCycle);
    QFETCH(QString, value);
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    engine.stepCount = stepCount;
    engine.samplesPerCycle = quint16(samplesPerCycle);
    const DebugLines caught;
    QCOMPARE(engine.ExecSeq(), 0);
    QVERIFY(isRefusal(caught.lines(), QStringLiteral("ExecSeq:"), value));
    caught.lines().clear();
    QCOMPARE(engine.ExecSeqTimed({{}, quint8(samplesPerCycle)}), 0);
    QVERIFY(isRefusal(caught.lines(), QStringLiteral("ExecSeqTimed:"), value));
    QVERIFY(m_board.receptions().isEmpty());
}

void TestSequence::silencedAmplitudes_data()
{
    QTest::addColumn<std::function<void(LumtarEngine &)>>("setUp");
    QTest::addColumn<QString>("told"); // part of the line; empty: none is written
    const auto row = [](const char *name, const char *told,
                        const std::function<void(LumtarEngine &)> &setUp) {
        QTest::newRow(name) << setUp << QString::fromLatin1(told);
    };
    row("ratios never set", "sent as 0: 3, the first one Vb2 of step 1 with 57.5;", [](auto &) {});
    row("voltages alone",
        "sent as 0: 2, the first one Vb2 of step 1 with 57.5; viInputWay is 0, "
        "voltageRatio 0, currentRatio 1,",
        [](auto &e) { e.SetVIInputWay(0, 0, 1); });
    row("currents alone",
        "sent as 0: 1, the first one In2 of step 1 with -0.25; viInputWay is 0, "
        "voltageRatio -1, currentRatio 0,",
        [](auto &e) { e.SetVIInputWay(0, -1, 0); });
    row("the entry's own mark says what it is", "sent as 0: 1, the first one Va1 of step 2 with 1;",
        [](auto &e) {
            e.SetVIInputWay(0, 0, 1);
            e.steps[1].outPara[Vb2].isCurrent = 1;
        });
    row("smallest number", "sent as 0: 4, the first one Ic1 of step 0 with",
        [](auto &e) { e.steps[0].outPara[Ic1].amplitude = 1e-45F; });
    row("behind the last step", "", [](auto &e) { e.stepCount = 1; });
    row("not scaled", "", [](auto &e) { e.SetVIInputWay(1, 0, 0); });
    row("scaled", "", [](auto &e) { e.SetVIInputWay(0, 1, 1); });
    row("nothing to scale", "", [](auto &e) {
        for (CStep &step : e.steps)
            std::for_each_n(step.outPara, 16, [](auto &output) { output.amplitude = -0.0F; });
    });
}

// Va1 of step 2, Vb2 and In2 of step 1 are other than 0.
void TestSequence::silencedAmplitudes()
{
    QFETCH(std::function<void(LumtarEngine &)>, setUp);
    QFETCH(QString, told);
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    engine.stepCount = 3;
    engine.steps[1].outPara[Vb2].amplitude = 57.5F;
    engine.steps[1].outPara[In2].amplitude = -0.25F;
    engine.steps[2].outPara[Va1].amplitude = 1.0F;
    setUp(engine);
    const DebugLines caught;
    const auto tells = [&](const char *operation) {
        const QStringList lines = std::exchange(caught.lines(), {});
        return told.isEmpty() ? lines.isEmpty()
                              : isRefusal(lines, QLatin1String(operation) + QLatin1Char(':'), told);
    };
    QCOMPARE(engine.ExecSeq(), 1);
    QVERIFY(tells("ExecSeq"));
    QCOMPARE(engine.ExecSeqTimed({}), 1);
    QVERIFY(tells("ExecSeqTimed"));
    QCOMPARE(int(m_board.receptions().size()), 2 * (18 * engine.stepCount + 1));
}

void TestSequence::failedExchangeDoesNotStopTheSequence()
{
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    engine.stepCount = 1;
    for (const int exchange : {0, 17, 18})
        m_board.setBehaviour(exchange, {Behaviour::Garbage, 0, 0});
    const DebugLines caught;
    QCOMPARE(engine.ExecSeq(), 1);
    QCOMPARE(int(m_board.receptions().size()), 16 + 3 * 3);
    QCOMPARE(caught.lines().count(QStringLiteral("Send command failure")), 3);
    COMPARE_BYTES(received(m_board).last(), bytes("8c908c90 03 01 fa 05020408 00"));
}

void TestSequence::sequenceWithoutLink()
{
    LumtarEngine engine;
    const DebugLines caught;
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(engine.ExecSeq(), 1);
    QVERIFY(timer.elapsed() < 1000);
    QCOMPARE(int(engine.lastResult), 0);
}

void TestSequence::readStatus_data()
{
    QTest::addColumn<int>("which");
    QTest::addColumn<QByteArray>("command");
    QTest::newRow("0") << 0 << bytes("8c928c92 00 00");
    QTest::newRow("12 is no decimal text") << 12 << bytes("8c928c92 0c 00");
    QTest::newRow("low byte") << 0x1fe << bytes("8c928c92 fe 00");
    QTest::newRow("negative") << -1 << bytes("8c928c92 ff 00");
}

void TestSequence::readStatus()
{
    QFETCH(int, which);
    QFETCH(QByteArray, command);
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    QVERIFY(m_board.setStatus(bytes("a1b2c3")));
    QByteArray out = bytes("ee*5");
    const auto buffer = reinterpret_cast<unsigned char *>(out.data());
    QCOMPARE(engine.CheckSeqExec(which, buffer), 1);
    COMPARE_BYTES(out, bytes("a1b2c3eeee"));
    QCOMPARE(engine.CheckSeqExec(which, nullptr), 1);
    COMPARE_BYTES(received(m_board), Frames(2, command));

    m_board.setBehaviour(2, {Behaviour::ShortDataReply, 0, 0});
    QVERIFY(m_board.setStatus(bytes("0102030405")));
    const DebugLines caught;
    QCOMPARE(engine.CheckSeqExec(which, buffer), 0);
    COMPARE_BYTES(out, bytes("a1b2c3eeee"));
}

void TestSequence::stop()
{
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    engine.samplesPerCycle = 0;
    engine.startParam7 = engine.startParam8 = 77;
    engine.SeqIsFinished(nullptr);
    QCOMPARE(engine.StopExec(), 1);
    COMPARE_BYTES(received(m_board), Frames{bytes("8c908c90 03 00 fa 05020408 00")});
    m_board.setBehaviour(1, {Behaviour::Garbage, 0, 0});
    const DebugLines caught;
    QCOMPARE(engine.StopExec(), 0);
}

void TestSequence::protocolUnits_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("stored");
    QTest::addColumn<float>("volts"); // 0: the entries stay as they were
    QTest::addColumn<float>("amperes");
    QTest::newRow("0") << 0 << 0 << 0.01F << 0.001F;
    QTest::newRow("1") << 1 << 1 << 1.0F << 1.0F;
    QTest::newRow("2") << 2 << 2 << 0.0F << 0.0F;
    QTest::newRow("256 is 0") << 256 << 0 << 0.01F << 0.001F;
    QTest::newRow("-255 is 1") << -255 << 1 << 1.0F << 1.0F;
    QTest::newRow("-1 is 255") << -1 << 255 << 0.0F << 0.0F;
}

void TestSequence::protocolUnits()
{
    QFETCH(int, number);
    QFETCH(int, stored);
    QFETCH(float, volts);
    QFETCH(float, amperes);
    LumtarEngine engine, expected;
    for (LumtarEngine *e : {&engine, &expected}) {
        fill(*e);
        e->stepCount = 1;
        for (CStep &step : e->steps)
            step.outPara[Va1].isCurrent = step.outPara[Ib2].isCurrent = 5;
    }
    for (CStep &step : expected.steps) {
        for (int o = 0; o < 16 && volts > 0; ++o) {
            step.outPara[o].scaleFactor = o < 8 ? volts : amperes;
            step.outPara[o].isCurrent = o < 8 ? 0 : 1;
        }
    }
    engine.SetProtocal(number);
    QCOMPARE(int(engine.protocol), stored);
    QCOMPARE(snapshot(engine), snapshot(expected));
}

void TestSequence::mirroredOutputs()
{
    LumtarEngine engine, expected;
    fill(engine);
    fill(expected);
    engine.stepCount = 2;
    for (CStep &step : expected.steps) {
        for (int o = 0; o < 16; o += 2) {
            step.outPara[o + 1] = step.outPara[o];
            step.outPara[o + 1].isCurrent = o >= 8;
        }
    }
    engine.steps[3].outPara[Va2].isCurrent = expected.steps[3].outPara[Va2].isCurrent = 9;
    engine.SetDoubleAD();
    QCOMPARE(snapshot(engine), snapshot(expected));
}

void TestSequence::continuedPhases_data()
{
    QTest::addColumn<int>("step");
    QTest::addColumn<int>("nextStep");
    QTest::addColumn<int>("anchor");
    // Va1 Vb1 Vc1 Ia1 Ib1 Ic1: next step's phases, then this step's, then the next step's jumps.
    QTest::addColumn<QVector<float>>("next");
    QTest::addColumn<QVector<float>>("phases");
    QTest::addColumn<QVector<float>>("jumps");
    using Six = QVector<float>;
    const Six next = {30, -80, 170, 5, -110, 140};
    const Six phaseA = {30, -90, 150, 5, -115, 125};
    for (const int anchor : {0, 1, 2, 5, 255}) {
        QTest::addRow("anchor %d, phase A", anchor)
            << 0 << 1 << anchor << next << phaseA << Six{0, 10, 20, 0, 5, 15};
    }
    QTest::newRow("anchor 3, phase C")
        << 4 << 2 << 3 << next << Six{50, -70, 170, 20, -100, 140} << Six{-20, -10, 0, -15, -10, 0};
    QTest::newRow("anchor 4, phase B")
        << 1 << 0 << 4 << next << Six{40, -80, 160, 10, -110, 130} << Six{-10, 0, 10, -5, 0, 10};
    QTest::newRow("angles are not normalised")
        << 0 << 4 << 3 << Six{0, 0, -170, 0, 0, 350} << Six{-290, -410, -170, 230, 110, 350}
        << Six{290, 410, 0, -230, -110, 0};
    QTest::newRow("a step into itself") << 2 << 2 << 0 << next << phaseA << Six{0, 0, 0, 0, 0, 0};
}

void TestSequence::continuedPhases()
{
    QFETCH(int, step);
    QFETCH(int, nextStep);
    QFETCH(int, anchor);
    QFETCH(QVector<float>, next);
    QFETCH(QVector<float>, phases);
    QFETCH(QVector<float>, jumps);
    const Output outputs[] = {Va1, Vb1, Vc1, Ia1, Ib1, Ic1};
    // Whole seconds are whole cycles, also when 50 times their number exceeds 32 bits.
    for (const quint32 seconds : {0U, 7U, 85899346U, UINT_MAX}) {
        LumtarEngine engine, expected;
        for (LumtarEngine *e : {&engine, &expected}) {
            fill(*e);
            e->steps[step].stateTime = seconds;
            e->steps[step].phaseAnchor = quint8(step == nextStep ? anchor : 3);
            e->steps[nextStep].phaseAnchor = quint8(anchor);
            for (int i = 0; i < 6; ++i)
                e->steps[nextStep].outPara[outputs[i]].phasePosition = next[i];
        }
        for (int i = 0; i < 6; ++i) {
            expected.steps[step].outPara[outputs[i]].phasePosition = phases[i];
            expected.steps[nextStep].outPara[outputs[i]].phaseJump = jumps[i];
        }
        expected.SetDoubleAD();
        engine.ReSetPhase(step, nextStep);
        QCOMPARE(snapshot(engine), snapshot(expected));
    }
}

void TestSequence::silencedStep()
{
    LumtarEngine engine, expected;
    fill(engine);
    fill(expected);
    engine.steps[3].binOut[2] = 1;
    engine.OffSignal(3);
    for (OutChannelPara_tag &output : expected.steps[3].outPara)
        output.amplitude = 0;
    std::fill_n(expected.steps[3].binOut, 4, quint8(0));
    QCOMPARE(snapshot(engine), snapshot(expected));
}

void TestSequence::clearedOutputs()
{
    LumtarEngine engine, expected;
    fill(engine);
    fill(expected);
    const QPair<int, Output> cleared[] = {{0, Va1}, {0, Ia1}, {2, Vb1},
                                          {2, Ib1}, {4, Vc1}, {4, Ic1}};
    for (const auto &[step, output] : cleared)
        expected.steps[step].outPara[output].amplitude =
            expected.steps[step].outPara[output].phaseJump = 0;
    expected.SetDoubleAD();
    engine.InitSignal();
    QCOMPARE(snapshot(engine), snapshot(expected));
}

void TestSequence::stepsOutOfRange_data()
{
    QTest::addColumn<int>("step");
    for (const int step : {-1, 5, INT_MAX, INT_MIN})
        QTest::addRow("%d", step) << step;
}

void TestSequence::stepsOutOfRange()
{
    QFETCH(int, step);
    LumtarEngine engine;
    fill(engine);
    const QByteArray before = snapshot(engine);
    const auto refuses = [&](const char *operation, auto call) {
        const DebugLines caught;
        call();
        return snapshot(engine) == before
            && isRefusal(caught.lines(), QLatin1String(operation), QString::number(step));
    };
    QVERIFY(refuses("OffSignal", [&] { engine.OffSignal(step); }));
    QVERIFY(refuses("ReSetPhase", [&] { engine.ReSetPhase(step, 1); }));
    QVERIFY(refuses("ReSetPhase", [&] { engine.ReSetPhase(1, step); }));
}

static const SingleRun singleRun;

QTEST_GUILESS_MAIN(TestSequence)
#include "tst_sequence.moc"
