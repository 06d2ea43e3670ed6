// The commands that an application builds itself: their bytes, what they refuse, and what a board
// makes of them at the far end of the link.

#include "tests/testsupport.h"

#include "engine/lumtarengine.h"
#include "protocol/Protocal.h"
#include "virtualboard/wire/commands.h"

#include <QtTest>

#include <climits>
#include <functional>
#include <limits>

using testsupport::bytes;

namespace {

/// A builder after its setters ran: the sum of their results, and the command.
struct Built
{
    int results;
    QByteArray command;
};

template <typename Builder>
Built build(const std::function<int(Builder &)> &setters)
{
    Builder builder;
    const int results = setters(builder);
    if constexpr (std::is_same_v<Builder, StepCondition>)
        return {results, builder.packetdata()};
    else if constexpr (std::is_same_v<Builder, FT3Message>)
        return {results, builder.date5()};
    else
        return {results, builder.data()};
}

} // namespace

class TestCommands : public QObject
{
    Q_OBJECT

private slots:
    void frames_data();
    void frames();
    void getters();
    void gooseItemsNeverExceedTheVector();
    void ft3Extended();
    void boardReadsWhatWasMeant();
};

void TestCommands::frames_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<int>("results");
    QTest::addColumn<int>("expectedResults");
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char *name, const Built &built, int results, const char *expected) {
        QTest::newRow(name) << built.command << built.results << results << bytes(expected);
    };
    using Step = StepCondition;
    const float infinite = std::numeric_limits<float>::infinity();
    const char *const noTime = "8c908c90 07 00 00 0000 00 00 00 00 00";
    row("step, default", build<Step>([](Step &) { return 0; }), 0, noTime);
    row("step, every field", build<Step>([](Step &s) {
            return s.setState_tag(12) + s.setCtlCondition(12) + s.setStateTime(2.0F)
                + s.setStateTime_jump(10) + s.setStateTrige(11) + s.setStateTrige_jump(3)
                + s.setBinInp(1) + s.setBinInp_jump(4);
        }),
        0, "8c908c90 07 12 0c d007 10 0b 03 01 04");
    const auto time = [&row](const char *name, float seconds, int result, const char *field) {
        row(name, build<Step>([seconds](Step &s) { return s.setStateTime(seconds); }), result,
            (QByteArray("8c908c90 07 0000") + field + "00*5").constData());
    };
    time("1.5 s", 1.5F, 0, "dc05");
    time("0.25 s", 0.25F, 0, "fa00");
    time("below a millisecond", 0.0009F, 0, "0000");
    time("longest time", 65.535F, 0, "ffff");
    time("negative time", -3.0F, 0, "0000");
    time("time of 65.536 s", 65.536F, -1, "0000");
    time("infinite time", infinite, -1, "0000");
    time("no number as time", std::numeric_limits<float>::quiet_NaN(), -1, "0000");
    row("refused time leaves the last",
        build<Step>([](Step &s) { return s.setStateTime(2.0F) + s.setStateTime(70.0F); }), -1,
        "8c908c90 07 0000 d007 00*5");

    using Signal = ChannelSignalControl;
    row("signal, default", build<Signal>([](Signal &) { return 0; }), 0,
        "8c908c90 01 00 00 6f12833a 00 00004842 a4b42942 00000000");
    row("signal, every field", build<Signal>([](Signal &s) {
            return s.setStat(12) + s.setCount(300) + s.setScalefactor(1.0F) + s.setFrequency(60.0F)
                + s.setPeakvalue(-2.0F) + s.setPhasePosition(0.5F);
        }),
        0, "8c908c90 01 12 012c 0000803f 00 00007042 000000c0 0000003f");
    row("signal, field of another size", build<Signal>([](Signal &s) {
            s.Frequency.chop(1);
            return s.setFrequency(60.0F);
        }),
        -1, "8c908c90 01 00 00 6f12833a 00 000048 a4b42942 00000000");

    using Item = GseSignal_Data;
    row("item", build<Item>([](Item &i) {
            return i.setNum_tag(9) + i.setShiftingAdd(0x3e) + i.setDateLenth(1)
                + i.setShiftData(QStringLiteral("0 1"));
        }),
        0, "3e00 01 01");
    row("item, two-byte offset, number",
        build<Item>([](Item &i) { return i.setShiftingAdd(0x12c) + i.setShiftData(1); }), 0,
        "2c01 00 0001");
    row("item, wide number", build<Item>([](Item &i) { return i.setShiftData(0x12345); }), 0,
        "00 00 012345");
    for (const int offset : {-1, 65536, INT_MIN, INT_MAX}) {
        row(qPrintable(QStringLiteral("item offset %1").arg(offset)),
            build<Item>([offset](Item &i) { return i.setShiftingAdd(offset); }), -1, "00 00 00");
    }
    using Control = GseSignal_Contral_UP;
    row("control, default", build<Control>([](Control &) { return 0; }), 0,
        "8c908c90 09 00 00 00*18");
    row("control, two items", build<Control>([](Control &c) {
            const int results =
                c.setStateNum(2) + c.setGroup(1) + c.setNum_tag(2) + c.setDatavalueSize(2);
            c.Data[1].setShiftData(QStringLiteral("06 80"));
            return results;
        }),
        0, "8c908c90 09 02 01 02 000000 0000 0680");
    row("control, eight items", build<Control>([](Control &c) { return c.setDatavalueSize(8); }), 0,
        "8c908c90 09 00 00 00*24");
    row("control, refused sizes", build<Control>([](Control &c) {
            return c.setDatavalueSize(-1) + c.setDatavalueSize(INT_MAX);
        }),
        -2, "8c908c90 09 00 00 00*18");
    using Earlier = GseSignal_Contral;
    row("earlier control, default", build<Earlier>([](Earlier &) { return 0; }), 0,
        "8c908c90 09 00 00 0000 0000");
    row("earlier control, items", build<Earlier>([](Earlier &c) {
            const int results = c.setStateNum(1) + c.setGroup(3) + c.setShiftingAdd(0x12c)
                + c.setDateLenth(300) + c.setDatacount(2) + c.setData("ignored");
            c.Data[0].setShiftData(0x102);
            return results;
        }),
        0, "8c908c90 09 01 03 2c01 2c01 00000102 000000");
    row("earlier control, refused", build<Earlier>([](Earlier &c) {
            return c.setShiftingAdd(-1) + c.setDateLenth(65536) + c.setDatacount(-1);
        }),
        -3, "8c908c90 09 00 00 0000 0000");

    using Ft3 = FT3Message;
    row("FT3, default", build<Ft3>([](Ft3 &) { return 0; }), 0,
        "8c918c91 00 19 0000 0000 02 01 00*18");
    row("FT3, every field", build<Ft3>([](Ft3 &f) {
            f.setGroup(7), f.setFlag(18), f.setlength(254, false), f.setLNname(3);
            f.setDataSetName(254), f.setLDName(0x1234), f.setPhsAArtg(1000), f.setNeutArtg(5);
            f.setPhsAVrtg(220), f.setTime(750), f.setStatusWord01(1), f.setStatusWord02(2);
            f.setSmpCnt(0xffff), f.setChn(2);
            return 0;
        }),
        0, "8c918c91 07 29 0000 00fe 03 fe 1234 03e8 0005 00dc 02ee ffff 00000000 0001 0002");
    row("FT3, no channels", build<Ft3>([](Ft3 &f) { return f.setChn(-4), 0; }), 0,
        "8c918c91 00 19 0000 0000 02 01 00*16");
    row("FT3, wide word", build<Ft3>([](Ft3 &f) { return f.setTime(65536), 0; }), 0,
        "8c918c91 00 19 0000 0000 02 01 00*8 010000 00*8");

    using Channel = SMV_CH_Command;
    row("channel, default", build<Channel>([](Channel &) { return 0; }), 0, "bc12bc12 00*44");
    row("channel, preset 1", build<Channel>([](Channel &c) {
            return c.setLogicNUM(3) + c.setProperty(1) + c.setProperty(3);
        }),
        0, "bc12bc12 03 06 01ff 7f ff 00*38");
    row("channel, preset 2",
        build<Channel>([](Channel &c) { return c.setLogicNUM(300) + c.setProperty(2); }), 0,
        "bc12bc12 012c 05 22ff 00 00 00*38");
    using Combination = SMV_CMB_Command;
    row("combination, default", build<Combination>([](Combination &) { return 0; }), 0,
        "9c129c12 00 00 0000 00 00 00 0000");
    row("combination, every field", build<Combination>([](Combination &c) {
            return c.setGroupNUM(1) + c.setCurrentLigthGROUP(5) + c.setLightPort(2)
                + c.setAppId(QStringLiteral("16385")) + c.setProtocol(4) + c.setStartLogicNUM(6)
                + c.setChamount(3) + c.setProperty(1, char(0xf7), true)
                + c.setProperty(2, 7, false);
        }),
        1, "9c129c12 01 25 0140 04 06 03 0000 20f7 1f00");
    row("combination, entry beyond the block",
        build<Combination>([](Combination &c) { return c.setProperty(2, 1, true); }), 0,
        "9c129c12 00 00 0000 00 00 00 0000 0000 2001");
    row("combination, fewer channels",
        build<Combination>([](Combination &c) { return c.setChamount(0); }), 0,
        "9c129c12 00 00 0000 00 00 00");
    row("combination, refused", build<Combination>([](Combination &c) {
            return c.setLightPort(-1) + c.setCurrentLigthGROUP(-1) + c.setChamount(-1)
                + c.setProperty(-1, 1, true) + c.setProperty(65536, 1, true);
        }),
        -5, "9c129c12 00 00 0000 00 00 00 0000");

    using Dsp = DSP_command;
    row("DSP, default", build<Dsp>([](Dsp &) { return 0; }), 0,
        "88128812 00*14 0000 00 01 00 00 00");
    row("DSP, every field", build<Dsp>([](Dsp &d) { return d.setDig_NO(300) + d.setGOOSE_NUM(6); }),
        0, "88128812 00*14 2c01 00 01 00 00 06");
    row("DSP, numbers out of range", build<Dsp>([](Dsp &d) {
            return d.setDig_NO(5) + d.setDig_NO(70000) + d.setDig_NO(-1) + d.setGOOSE_NUM(256);
        }),
        0, "88128812 00*14 0500 00 01 00 00 0100");
    row("FPGA reset", build<RestFPGA>([](RestFPGA &r) { return r.setGSE(1), r.setSMV(1), 0; }), 0,
        "84538453 ff ff");
}

void TestCommands::frames()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, expected);
    COMPARE_BYTES(command, expected);
    QFETCH(int, results);
    QFETCH(int, expectedResults);
    QCOMPARE(results, expectedResults);
}

void TestCommands::getters()
{
    StepCondition step;
    step.setStateTime_jump(10); // decimal digits
    step.setStateTrige_jump(0xfe);
    step.BinInp_jump.clear();
    QCOMPARE(step.getStateTime_jump(), 0x10);
    QCOMPARE(step.getStateTrige_jump(), 0xfe);
    QCOMPARE(step.getBinInp_jump(), 0);

    DSP_command dsp;
    QCOMPARE(dsp.ReturnGOOSE_NUM(), 0);
    dsp.setGOOSE_NUM(-7);
    QCOMPARE(dsp.ReturnGOOSE_NUM(), -7);

    GseSignal_Contral control;
    control.setDatacount(2);
    QCOMPARE(control.Data_valueSize(), 0);
    control.data();
    QCOMPARE(control.Data_valueSize(), 6);
}

void TestCommands::gooseItemsNeverExceedTheVector()
{
    GseSignal_Contral_UP control;
    control.Data.resize(1);
    COMPARE_BYTES(control.data(), bytes("8c908c90 09 00 00 000000"));
    control.DatavalueSize = -3;
    COMPARE_BYTES(control.data(), bytes("8c908c90 09 00 00"));
}

void TestCommands::ft3Extended()
{
    FT3Message frame;
    COMPARE_BYTES(frame.date2_5(), bytes("8c918c91 00 19 0000 0000 02 01 00*22"));
    frame.setlength(44, true);
    frame.setChn(12);
    frame.setSmpCnt(0x1234);
    COMPARE_BYTES(frame.date2_5(), bytes("8c918c91 00 19 3000 002c 02 01 00*40 1234 0000"));
    frame.setChn(65536); // refused
    QCOMPARE(int(frame.date5().size()), 52);
}

// The board decodes with tables of its own.
void TestCommands::boardReadsWhatWasMeant()
{
    const testsupport::SingleRun singleRun;
    virtualboard::LinkResponder board(testsupport::boardAddress());
    QCOMPARE(testsupport::failure(board.start()), QString());
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(testsupport::localPort(), testsupport::boardAddress()), 1);

    StepCondition step;
    step.setState_tag(3), step.setStateTime(1.5F), step.setBinInp(1), step.setBinInp_jump(4);
    ChannelSignalControl signal;
    signal.setStat(2), signal.setCount(9), signal.setFrequency(60.0F);
    GseSignal_Contral_UP control;
    control.setGroup(3), control.setNum_tag(1), control.setDatavalueSize(1);
    control.Data[0].setShiftingAdd(0x12c), control.Data[0].setDateLenth(2);
    control.Data[0].setShiftData(0x680);
    FT3Message ft3;
    ft3.setGroup(6), ft3.setFlag(2), ft3.setTime(750);
    SMV_CH_Command channel;
    channel.setLogicNUM(9), channel.setProperty(1);
    SMV_CMB_Command combination;
    combination.setAppId(QStringLiteral("16385")), combination.setChamount(1);
    combination.setLightPort(2), combination.setProperty(0, 7, true);
    DSP_command dsp;
    dsp.setDig_NO(300), dsp.setGOOSE_NUM(6);
    for (const QByteArray &command :
         {step.packetdata(), signal.data(), control.data(), ft3.date5(), channel.data(),
          combination.data(), dsp.data(), RestFPGA().data()})
        QCOMPARE(engine.SendCommand(command), 1);

    const auto receptions = board.receptions();
    QCOMPARE(int(receptions.size()), 8);
    for (const auto &reception : receptions)
        QVERIFY2(reception.decoded.problems.isEmpty(),
                 qPrintable(reception.decoded.problems.join(QLatin1Char(';'))));
    int next = 0;
    const auto read = [&](auto kind) {
        return std::get<decltype(kind)>(receptions.at(next++).decoded.command);
    };
    const auto readStep = read(virtualboard::StepConditionCommand());
    QCOMPARE(readStep.step, 3);
    QCOMPARE(readStep.milliseconds, 1500);
    QCOMPARE(readStep.binaryInput, 1);
    QCOMPARE(readStep.binaryInputJump, 4);
    const auto readSignal = read(virtualboard::ChannelSignalCommand());
    QCOMPARE(readSignal.step, 2);
    QCOMPARE(readSignal.channel, 9);
    QCOMPARE(readSignal.frequency, 60.0F);
    QVERIFY(!readSignal.phaseJump);
    const auto readControl = read(virtualboard::GooseControlCommand());
    QCOMPARE(readControl.group, 3);
    QCOMPARE(int(readControl.items.size()), 1);
    QCOMPARE(readControl.items.first().offset, 0x12c);
    COMPARE_BYTES(readControl.items.first().data, bytes("0680"));
    const auto readFt3 = read(virtualboard::Ft3TemplateCommand());
    QCOMPARE(readFt3.group, 6);
    QCOMPARE(readFt3.time, 750);
    const auto readChannel = read(virtualboard::SvChannelCommand());
    QCOMPARE(readChannel.logicChannel, 9);
    COMPARE_BYTES(readChannel.properties, bytes("06 01ff 7f ff"));
    const auto readCombination = read(virtualboard::SvCombinationCommand());
    QCOMPARE(readCombination.appId, 16385);
    QCOMPARE(readCombination.lightPort, 2);
    COMPARE_BYTES(readCombination.entries.first(), bytes("2007"));
    const auto readDsp = read(virtualboard::DspConfigurationCommand());
    QCOMPARE(readDsp.digitalNumber, 300);
    QCOMPARE(readDsp.gooseNumber, 6);
    QCOMPARE(read(virtualboard::FpgaResetCommand()).select2, 0xff);
}

QTEST_GUILESS_MAIN(TestCommands)
#include "tst_commands.moc"
