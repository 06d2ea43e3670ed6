// The bytes of every command builder, and what their setters refuse.

#include "tests/testsupport.h"

#include "engine/lumtarengine.h"
#include "protocol/Protocal.h"
#include "protocol/textcodec.h"

#include <QDateTime>
#include <QTest>
#include <QTextCodec>

#include <climits>
#include <type_traits>

using namespace testsupport;

namespace {

// Field by field, for "nothing changed".
QByteArray content(const SMV_MessageStructure &c)
{
    return c.data() + c.MessageStructureCount + QByteArray::number(c.MaxChannelProperty());
}
QByteArray content(const Goose_command &c)
{
    return c.data();
}
QByteArray content(const SetdataGoose &c)
{
    return c.Data_tag.toHex() + ' ' + c.Data_len.toHex() + ' ' + c.Data_value.toHex();
}
QByteArray content(const SeqData &c)
{
    return c.Value + c.Quality;
}
QByteArray content(const Message_9_2 &c)
{
    return c.SeqData_length + c.ASDU_length + c.seqASDU_Length + c.savPdu_Length + c.Length
        + QByteArray::number(c.SeqData_Vector.size());
}
QByteArray content(const Message_goose &c)
{
    QByteArray all = c.NumDatSetEntries_Length + c.NumDatSetEntries_Value + c.Data_length
        + c.GoosePdu_Length + c.Length;
    for (const SetdataGoose &entry : c.Data_Vector)
        all += '|' + content(entry);
    return all;
}

// 22 entries: frame of 236 bytes.
const char kDefaultSvFrame[] = "8c918c91 00 0100 ec00"
                               "ff*6 ff*6 8100 8000 88ba 4000 00da 0000 0000"
                               "60 81cf 80 01 01 a2 81c9 30 81c6 80 04 'svid'"
                               "82 02 0000 83 04 00000001 85 01 01 87 81b0 00*176";

// No entries: frame of 92 bytes.
const char kDefaultGooseFrame[] = "8c918c91 40 0100 5c00"
                                  "ff*6 010ccd020000 8100 8000 88b8 2000 004a 0000 0000"
                                  "61 40 80 07 'gocbRef' 81 02 0fa0 82 07 'Dataset' 83 04 'goID'"
                                  "84 08 0000000000000050 85 04 00000001 86 04 00000000"
                                  "87 01 00 88 01 01 89 01 00 8a 01 00 ab 00";

/// \a result of a \a Builder named c after the given calls.
#define AFTER(Builder, result, ...) \
    [&] { \
        Builder c; \
        (__VA_ARGS__); \
        return QByteArray(result); \
    }()

void addRow(const char *name, const QByteArray &actual, const char *expected)
{
    QTest::newRow(name) << actual << bytes(expected);
}

/// Rows from "text=bytes text=bytes ...": what \a make gives for each text.
template <typename Make>
void addRows(const char *name, const char *table, Make make)
{
    for (const QByteArray &cell : QByteArray(table).simplified().split(' ')) {
        const QByteArray text = cell.left(cell.indexOf('='));
        QTest::addRow("%s %s", name, text.constData())
            << make(QString::fromLatin1(text)) << bytes(cell.mid(cell.indexOf('=') + 1));
    }
}

/// A row for a call of \a builder that must return \a result and change nothing.
template <typename Builder, typename Call>
void addUnchanged(const QByteArray &name, Builder builder, Call call, int result = -1)
{
    const QByteArray before = content(builder).toHex();
    const int actual = call(builder);
    QTest::newRow(name.constData())
        << actual << result << QString(QLatin1String(content(builder).toHex()))
        << QString(QLatin1String(before));
}
#define UNCHANGED(result, builder, name, call) \
    addUnchanged( \
        name, builder, [&](auto &c) { return c.call; }, result)

/// Blanks the four bytes at \a at when they are the present time in seconds since 1970.
bool blankPresentTime(QByteArray &frame, int at)
{
    const qint64 seconds = frame.mid(at, 4).toHex().toLongLong(nullptr, 16);
    frame.replace(at, 4, QByteArray(4, '\0'));
    return qAbs(QDateTime::currentSecsSinceEpoch() - seconds) < 60;
}

Message_goose gooseWithTypes(const QVector<int> &types)
{
    Message_goose frame;
    frame.setCountData_value(int(types.size()));
    for (int i = 0; i < types.size(); ++i)
        frame.setData_value(types.at(i), i);
    return frame;
}

} // namespace

class TestBuilders : public QObject
{
    Q_OBJECT

private slots:
    void commands_data();
    void commands();
    void refused_data();
    void refused();
    void setterResults();
    void svFrame();
    void svFrameWithEightEntries();
    void svFrameTooLong();
    void gooseFrame();
    void gooseFrameWithEntries();
    void gooseFrameFillsItsRecordOnly();
    void gooseLengthForms_data();
    void gooseLengthForms();
    void addressWidthMovesOffsets();
    void offsetRecord();
    void textsAreInTheCStringCodec();
    void longTexts_data();
    void longTexts();
    void unsupportedTypeWarnsOnTheDebugChannel();
};

namespace {

void addControlCommands()
{
    addRow("stop", StopCMD().data(), "8c93 8c93");
    addRow("reset", ResetMsg_Parameter().data(), "8c908c90 02");
    addRow("start", StopAndStart().data(), "8c908c90 03 01 fa 05020408");
    addRow("status", CheckBackface().data(), "8c928c92 00");
    addRow("disable state", Disable_currentstate().data(), "8c908c90 06 01");
    addRow("state change", StateChange_Message().data(), "8c908c90 08 00");
    addRows("start tag", "0=8c908c900300fa05020408 511=8c908c9003fffa05020408", [](const auto &t) {
        return AFTER(StopAndStart, c.data(), c.Test_tag.clear(), c.setTest_tag(t.toInt()));
    });
    addRows(
        "samples per cycle",
        "80=fa 256=4e 1=4e20 0=50 -80=50 79=fd 78=0100 20000=01 20001=00 2147483647=00",
        [](const auto &t) { return AFTER(StopAndStart, c.Timevalue, c.setTimevalue(t.toInt())); });
    addRow("start, wider", AFTER(StopAndStart, c.data(), c.setTimevalue(1)),
           "8c908c90 03 01 4e20 05020408");
    addRows(
        "status digits",
        "0=8c928c9200 12=8c928c9212 123=8c928c920123 -12=8c928c9212 "
        "-2147483648=8c928c922147483648",
        [](const auto &t) { return AFTER(CheckBackface, c.data(), c.setCommadflag(t.toInt())); });
    const char numbers[] = "0=00 255=ff 256=0100 300=012c 74565=012345 -1=ff*8 "
                           "-2147483648=ff*4_80000000";
    addRows("disable state", numbers, [](const auto &t) {
        return AFTER(Disable_currentstate, c.data().mid(5), c.setstate_flag(t.toInt()));
    });
    addRows("state change", numbers, [](const auto &t) {
        return AFTER(StateChange_Message, c.data().mid(5), c.setFlag(t.toInt()));
    });
}

void addStreamDescriptions()
{
    using Sv = SMV_MessageStructure;
    addRow("SV", Sv().data(), "8c908c90 04 00 00 0000 0000 a00f 0000 16 ff*22");
    addRow("SV, every number",
           AFTER(Sv, c.data(), c.setMessageStructureCount(65), c.setNumber(9),
                 c.setTurnoverNUM_addr(0x0102), c.setTurnoverNUM_value(65535),
                 c.setTurnoverNUM_MAX_value(12800), c.setMessage_addr(60), c.setChannelCount(2)),
           "8c908c90 04 01 00 0201 ffff 0032 3c00 02 ffff");
    addRow("SV, protocol bits are only added",
           AFTER(Sv, c.MessageStructureCount, c.setMessageStructureCount(0x3f), c.setProtocol(1),
                 c.setProtocol(2), c.setMessageStructureCount(2)),
           "c2");
    // An index one past the end appends.
    addRow("SV, kinds survive a new count",
           AFTER(Sv, c.data().mid(15), c.setChannelProperty(5, 1), c.setChannelCount(3),
                 c.setChannelProperty(7, 3)),
           "03 ff05ff07");
    addRow("SV, 300 channels", AFTER(Sv, c.data().mid(15), c.setChannelCount(300)), "012c ff*300");
    addRows("SV kind",
            "Ia1=00 Ia2=01 Ib1=02 Ib2=03 Ic1=04 Ic2=05 In1=06 In2=07 Va1=08 Va2=09 Vb1=0a Vb2=0b "
            "Vc1=0c Vc2=0d Vn1=0e Vn2=0f IA1=ff Ia=ff Ia11=ff =ff",
            [](const auto &t) {
                return AFTER(Sv, c.data().right(1), c.setChannelProperty(0, 21),
                             c.setChannelProperty(t, 21));
            });

    using Goose = GOOSE_MessageStructure;
    addRow("GOOSE", Goose().data(), "8c908c90 05 000000");
    addRow("GOOSE, default frame",
           AFTER(Goose, c.data(), c.setGoose_Sequence(74), c.setGoose_utcShitf(58)),
           "8c908c90 05 00 4a 3a");
    addRow("GOOSE, wide numbers",
           AFTER(Goose, c.data(), c.setGoose_count(256), c.setGoose_Sequence(255),
                 c.setGoose_utcShitf(-1)),
           "8c908c90 05 0100 ff ff*8");
}

void addSubscriptions()
{
    using Command = Goose_command;
    addRow("subscription", Command().data(), "ac12ac12 00 00 0000 0000 0000 0000");
    addRow("subscription, first of a configuration",
           AFTER(Command, c.data(), c.setAppId(QStringLiteral("4097")), c.setChanelNum(4),
                 c.setLightPort(1), c.setCurrentLigthGROUP(1), c.setLogicCH(0),
                 c.setStart_Module(1), c.setStart_Module(3), c.setGroupNUM(1)),
           "ac12ac12 01 01 0110 0000 0400 0404");
    addRow("subscription, wide numbers",
           AFTER(Command, c.data(), c.setGroupNUM(256), c.setAppId(QStringLiteral("65538")),
                 c.setLogicCH(0x102), c.setChanelNum(0)),
           "ac12ac12 0100 00 0200 0201 0000");
    addRow("a one-byte channel clears the high byte",
           AFTER(Command, c.LogicCH_Low + c.LogicCH_High, c.setLogicCH(65535), c.setLogicCH(255)),
           "ff00");
    addRow("port and group share a byte",
           AFTER(Command, c.LightPort, c.setLightPort(8), c.setCurrentLigthGROUP(31),
                 c.setLightPort(2)),
           "3f");
    addRow("port 0", AFTER(Command, c.LightPort, c.setLightPort(0)), "e0");
    addRow("group 33", AFTER(Command, c.LightPort, c.setCurrentLigthGROUP(33)), "01");
    addRow("both nibbles, odd count",
           AFTER(Command, c.data().mid(10), c.setChanelNum(3), c.setStart_Module(2),
                 c.setStart_Module(1)),
           "0300 4400");
    addRow("a new count clears the map",
           AFTER(Command, c.data().mid(10), c.setStart_Module(1), c.setChanelNum(257)),
           "0101 00*129");
    addRow("a position beyond the map lengthens it",
           AFTER(Command, c.data().mid(10), c.setChanelNum(0), c.setStart_Module(6)),
           "0000 000040");
}

void addSvFields()
{
    addRows("BER length",
            "0=00*4 127=7f*4 128=8180818081808180 254=81fe81fe81fe81fe 255=81ff81ff81ff81ff "
            "256=820100820100820100820100 65536=83010000830100008301000083010000",
            [](const auto &t) {
                const int n = t.toInt();
                return AFTER(Message_9_2,
                             c.SeqData_length + c.ASDU_length + c.seqASDU_Length + c.savPdu_Length,
                             c.setSeqData_length(n), c.setASDU_length(n), c.setseqASDU_Length(n),
                             c.setsavPdu_Length(n));
            });
    addRows(
        "value",
        "1000=000003e8 -1=ffffffff -2147483648=80000000 2147483647=7fffffff "
        "2147483648=00000000 -2147483649=00000000 1.5=00000000 0x10=00000000 =00000000",
        [](const auto &t) { return AFTER(SeqData, c.Value, c.Value.fill('x'), c.setVlaue(t)); });
    addRows("quality",
            "01=aabbcc01 0100=aabb0001 0001=aabb0100 00002000=00200000 123=aabb2301 =aabbccdd "
            "12-34-56-78=78563412 0x12345678=aabbccdd",
            [](const auto &t) {
                return AFTER(SeqData, c.Quality, c.Quality = bytes("aabbccdd"), c.setQuality(t));
            });
    addRow("quality of flags",
           AFTER(SeqData, c.Quality, c.QualityFlags[0] = 1, c.QualityFlags[6] = 0x00120001,
                 c.QualityFlags[12] = 0x80000000, c.setQuality()),
           "80120001");
    addRow("priority, then VLAN",
           AFTER(Message_9_2, c.TCI, c.setpriority(QStringLiteral("5")),
                 c.setVLanId(QStringLiteral("123"))),
           "a123");
    addRow("VLAN, then priority; CFI stays",
           AFTER(Message_9_2, c.TCI, c.TCI = bytes("9000"), c.setVLanId(QStringLiteral("FFFF")),
                 c.setpriority(QStringLiteral("d"))),
           "bfff");
    addRow("texts that are no numbers",
           AFTER(Message_9_2, c.TCI, c.TCI = bytes("ffff"), c.setVLanId(QStringLiteral("g1")),
                 c.setpriority(QString())),
           "1000");
    addRows("port", "1=0100 2=0500 3=0900 8=1d00 9=0100 0=1d00", [](const auto &t) {
        return AFTER(Message_9_2, c.Message_flag, c.setMessage_flag(t.toInt()));
    });
    addRow(
        "stream number keeps the kind bits",
        AFTER(Message_9_2, c.Message_count, c.Message_count = bytes("80"), c.setMessage_count(65)),
        "81");
    addRows("APPID", "16384=4000 4000=0fa0 65537=0001 0x4000=0000",
            [](const auto &t) { return AFTER(Message_9_2, c.APPID, c.setAPPID(t)); });
    addRows("confRev", "7=00000007 70000=00011170 4294967295=ffffffff =00000000",
            [](const auto &t) { return AFTER(Message_9_2, c.confRevValue, c.setconfRevValue(t)); });
    addRows("MAC", "01-0C-Cd-04-00-01=010ccd040001 1-2:3=0123 =", [](const auto &t) {
        return AFTER(Message_9_2, c.Destination_Mac, c.setDestination_Mac(t));
    });
    addRows("Length", "251=00ff 252=0100",
            [](const auto &t) { return AFTER(Message_9_2, c.Length, c.setLength(t.toInt())); });
    addRow("smpSynch", AFTER(Message_9_2, c.SmpSynch_value, c.setSmpSynch_value(0x102)), "02");
}

void addGooseFields()
{
    using Goose = Message_goose;
    addRows("timeAllowedtoLive",
            "0=0100 100=0164 255=01ff 256=020100 4000=020fa0 32768=028000 32769=03008001 "
            "40000=03009c40 16777215=03ffffff 16777216=0401000000 -1=04ffffffff",
            [](const auto &t) {
                return AFTER(Goose, c.TimeAllowedtoLive_Length + c.TimeAllowedtoLive_value,
                             c.setTimeAllowedtoLive_value(t.toInt()));
            });
    addRows("numDatSetEntries", "0=0100 126=017e 127=02007f 300=02012c", [](const auto &t) {
        return AFTER(Goose, c.NumDatSetEntries_Length + c.NumDatSetEntries_Value,
                     c.setNumDatSetEntries(t.toInt()));
    });
    addRow(
        "GOOSE VLAN, then priority",
        AFTER(Goose, c.TCI, c.setVLanId(QStringLiteral("123")), c.setPriority(QStringLiteral("7"))),
        "e123");
    addRow(
        "GOOSE priority, then VLAN",
        AFTER(Goose, c.TCI, c.setPriority(QStringLiteral("7")), c.setVLanId(QStringLiteral("123"))),
        "e123");
    addRow("GOOSE APPID is decimal", AFTER(Goose, c.APPID, c.setAPPID(QStringLiteral("3001"))),
           "0bb9");
    addRow("GOOSE confRev keeps its low byte",
           AFTER(Goose, c.confRevValue, c.setconfRevValue(QStringLiteral("300"))), "2c");
    addRow("GOOSE stream 70", AFTER(Goose, c.Message_count, c.setMessage_count(70)), "46");
    addRow("GOOSE port 0", AFTER(Goose, c.Message_flag, c.setMessage_flag(0)), "1d00");
    addRow("Length that does not fit",
           AFTER(Goose, c.Length, c.setLength(65531), c.setLength(65532)), "ffff");

    const auto whole = [](const SetdataGoose &e) { return e.Data_tag + e.Data_len + e.Data_value; };
    addRows("type",
            "1=830100 2=860100 3=8504_00*4 4=8504_00*4 7=8705_00*5 12=8a026162 13=84020640 "
            "15=850100 16=85020000 137=89020000 141=8d020000",
            [&](const auto &t) { return whole(gooseWithTypes({t.toInt()}).Data_Vector.at(0)); });
    addRows(
        "tag",
        "83=830100 84=84020640 85=850100 86=860100 87=8705_00*5 88=88123456 89=89020000 "
        "8a=8a026162 8b=8b123456 8c=8c04_00*4 8d=8d020000 8e=8e03000000 8f=8f123456 90=90123456 "
        "92=92123456 1=01123456 100=0100123456",
        [&](const auto &t) {
            return AFTER(SetdataGoose, whole(c), c.Data_len = bytes("1234"),
                         c.Data_value = bytes("56"), c.setData_tag(t.toInt(nullptr, 16), 1));
        });
    addRows("entry text", "83,01,01=830101 85,02,0102,ff=85020102 ,,= 83,01=00000000",
            [&](const auto &t) {
                return AFTER(Goose, whole(c.Data_Vector.at(0)), c.setCountData_value(1),
                             c.setStateData_value(t, 0));
            });
}

} // namespace

void TestBuilders::commands_data()
{
    QTest::addColumn<QByteArray>("actual");
    QTest::addColumn<QByteArray>("expected");
    addControlCommands();
    addStreamDescriptions();
    addSubscriptions();
    addSvFields();
    addGooseFields();
}

void TestBuilders::commands()
{
    QFETCH(QByteArray, actual);
    QFETCH(QByteArray, expected);
    COMPARE_BYTES(actual, expected);
}

void TestBuilders::refused_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<int>("expectedResult");
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("expectedContent");
    const SMV_MessageStructure sv;
    const Goose_command command;
    const Message_goose goose = gooseWithTypes({3});
    const QString entry = QStringLiteral("83,01,01");
    for (const int n : {-1, 65536, INT_MAX, INT_MIN}) {
        const auto name = [n](const char *text) { return text + QByteArray::number(n); };
        UNCHANGED(-1, sv, name("smpCnt offset "), setTurnoverNUM_addr(n));
        UNCHANGED(-1, sv, name("smpCnt start "), setTurnoverNUM_value(n));
        UNCHANGED(-1, sv, name("smpCnt end "), setTurnoverNUM_MAX_value(n));
        UNCHANGED(-1, sv, name("entry offset "), setMessage_addr(n));
        UNCHANGED(-1, sv, name("kind at "), setChannelProperty(0, n));
        UNCHANGED(-1, sv, name("named kind at "), setChannelProperty(QStringLiteral("Ia1"), n));
        UNCHANGED(-1, command, name("subscribed entries "), setChanelNum(n));
        UNCHANGED(0, command, name("logic channel "), setLogicCH(n));
        UNCHANGED(-1, goose, name("type of entry "), setData_value(1, n));
        UNCHANGED(-1, goose, name("text of entry "), setStateData_value(entry, n));
        UNCHANGED(-1, SetdataGoose(), name("integer of width "), setData_tag(0x85, n));
    }
    for (const int n : {-1, INT_MIN, INT_MAX}) {
        const auto name = [n](const char *text) { return text + QByteArray::number(n); };
        UNCHANGED(-1, sv, name("channels "), setChannelCount(n));
        UNCHANGED(-1, Message_9_2(), name("SV entries "), setSizeSeqData_VectorValue(n));
        UNCHANGED(-1, goose, name("GOOSE entries "), setCountData_value(n));
        UNCHANGED(-1, command, name("subscribed position "), setStart_Module(n));
    }
    UNCHANGED(-1, command, "subscribed position 0", setStart_Module(0));
    UNCHANGED(-1, command, "negative port", setLightPort(-1));
    UNCHANGED(-1, command, "negative group", setCurrentLigthGROUP(-1));
    UNCHANGED(-1, sv, "one past appending", setChannelProperty(0, 23));
    UNCHANGED(-1, goose, "first index outside the dataset", setData_value(3, 1));
    UNCHANGED(-1, goose, "first text outside the dataset", setStateData_value(entry, 1));
    UNCHANGED(-1, SeqData(), "nine digits", setQuality(QStringLiteral("123456789")));
    UNCHANGED(-1, SeqData(), "eight digits and a zero", setQuality(QStringLiteral("0 12345678")));
    UNCHANGED(-1, SetdataGoose(), "two parts", setData_value(QStringLiteral("83,01")));
    // These are without effect by design.
    UNCHANGED(0, SetdataGoose(), "number as entry", setData_value(7));
    UNCHANGED(0, sv, "stream number", setNumber(7));
    addUnchanged(
        "text as entry", goose, [&](auto &c) { return c.setData_value(entry, 0), 0; }, 0);
}

void TestBuilders::refused()
{
    QFETCH(int, result);
    QFETCH(QString, content);
    QTEST(result, "expectedResult");
    QTEST(content, "expectedContent");
}

// Results that differ from the usual 0.
void TestBuilders::setterResults()
{
    Message_9_2 sv;
    QVERIFY(sv.setVLanId(QStringLiteral("fFf")));
    QVERIFY(!sv.setVLanId(QStringLiteral("xyz")));
    QVERIFY(sv.setpriority(QStringLiteral("7")));
    QVERIFY(!sv.setpriority(QString()));
    QCOMPARE(sv.setAPPID(QStringLiteral("1")), 1);
    QCOMPARE(sv.setSVID(QStringLiteral("a")), 1);
    QCOMPARE(sv.setSmpSynch_value(0x102), 0x102);
    QCOMPARE(SeqData().setQuality(QStringLiteral("01")), 1);
    Message_goose goose;
    QCOMPARE(goose.setMessage_count(1), 1);
    QCOMPARE(goose.setAPPID(QStringLiteral("1")), 1);
    QVERIFY(!goose.setVLanId(QStringLiteral("xyz")));
    QCOMPARE(Goose_command().setAppId(QStringLiteral("1")), 1);

    SMV_MessageStructure description;
    description.setChannelProperty(QStringLiteral("Ib1"), 0);
    description.setChannelProperty(QStringLiteral("Vn2"), 0);
    description.setChannelProperty(QStringLiteral("vn2"), 0);
    description.setChannelProperty(3, 0);
    QCOMPARE(description.MaxChannelProperty(), 0x8004);
    description.setMaxChannelProperty(-5);
    QCOMPARE(description.MaxChannelProperty(), -5);
}

void TestBuilders::svFrame()
{
    Message_9_2 frame;
    COMPARE_BYTES(frame.data(), bytes(kDefaultSvFrame));
    QCOMPARE(frame.SmpCnt_Offset, 46);
    QCOMPARE(frame.SeqData_Offset, 60);
    COMPARE_BYTES(frame.data(), bytes(kDefaultSvFrame));
    QCOMPARE(frame.SmpCnt_Offset, 46);
    QCOMPARE(frame.SeqData_Offset, 60);
}

void TestBuilders::svFrameWithEightEntries()
{
    Message_9_2 frame;
    frame.SeqData_Vector[1].setVlaue(QStringLiteral("1000"));
    frame.SeqData_Vector[1].setQuality(QStringLiteral("01"));
    frame.SeqData_Vector[9].setVlaue(QStringLiteral("9"));
    QCOMPARE(frame.setSizeSeqData_VectorValue(8), 0);
    COMPARE_BYTES(frame.data(),
                  bytes("8c918c91 00 0100 7800"
                        "ff*12 8100 8000 88ba 4000 0066 00000000"
                        "60 5c 800101 a2 57 30 55 80 04 'svid'"
                        "82 02 0000 83 04 00000001 85 01 01 87 40 00*8 000003e8 00000001 00*48"));
    QCOMPARE(frame.SmpCnt_Offset, 43);
    QCOMPARE(frame.SeqData_Offset, 56);

    frame.setSizeSeqData_VectorValue(10); // an entry that was dropped comes back empty
    const QByteArray command = frame.data();
    COMPARE_BYTES(command.mid(9 + frame.SeqData_Offset), bytes("00*8 000003e8 00000001 00*64"));
    // 16 bytes more: lengths of 101, 103 and 108 still take one byte.
    COMPARE_BYTES(command.mid(7, 2), bytes("8800"));
}

void TestBuilders::svFrameTooLong()
{
    Message_9_2 frame;
    frame.data();
    frame.setSizeSeqData_VectorValue(8183);
    COMPARE_BYTES(frame.data().mid(7, 2), bytes("f8ff"));
    frame.setSizeSeqData_VectorValue(8184); // 65472 bytes of entries: the frame has 65536
    const QByteArray command = frame.data();
    QCOMPARE(int(command.size()), 9 + 65536);
    COMPARE_BYTES(command.mid(7, 2), bytes("f8ff"));
    COMPARE_BYTES(frame.SeqData_length, bytes("82ffc0"));
}

void TestBuilders::gooseFrame()
{
    Message_goose frame;
    GooseDataOffsetAddr record;
    frame.setMessage_flag(1);
    QCOMPARE(frame.DataHeadValue(), QByteArray());
    for (int round = 0; round < 2; ++round) {
        COMPARE_BYTES(frame.data(record), bytes(kDefaultGooseFrame));
        QCOMPARE(frame.t_Offset, 58);
        QCOMPARE(frame.stNum_Offset, 68);
        QCOMPARE(frame.sqNum_Offset, 74);
        QCOMPARE(int(record.StNumOffset), 68);
        COMPARE_BYTES(frame.DataHeadValue(), bytes(kDefaultGooseFrame).mid(9));
    }
}

void TestBuilders::gooseFrameWithEntries()
{
    Message_goose frame = gooseWithTypes({1, 13, 5});
    GooseDataOffsetAddr record;
    record.SetPara(3);
    QByteArray command = frame.data(record);
    QVERIFY(blankPresentTime(command, 9 + 101));
    COMPARE_BYTES(command,
                  bytes("8c918c91 40 0100 6d00"
                        "ff*6 010ccd020000 8100 8000 88b8 2000 005b 0000 0000"
                        "61 51 80 07 'gocbRef' 81 02 0fa0 82 07 'Dataset' 83 04 'goID'"
                        "84 08 0000000000000050 85 04 00000001 86 04 00000000"
                        "87 01 00 88 01 01 89 01 00 8a 01 03"
                        "ab 11 83 01 00 84 02 0640 91 08 00000000 00000050"));
    const QVector<int> tags = {0x83, 0x84, 0x91}, lengths = {1, 2, 8}, offsets = {94, 97, 101};
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(int(record.DataTag[i]), tags.at(i));
        QCOMPARE(int(record.DataLen[i]), lengths.at(i));
        QCOMPARE(int(record.DataOffset[i]), offsets.at(i));
    }
    COMPARE_BYTES(frame.DataHeadValue(), command.mid(9, 92));
}

// A record with fewer slots than the dataset, one with more, and entries of unusual widths.
void TestBuilders::gooseFrameFillsItsRecordOnly()
{
    Message_goose frame = gooseWithTypes({1, 16, 1});
    frame.setStateData_value(QStringLiteral(",0102,030405"), 0); // no tag, two length bytes
    GooseDataOffsetAddr record;
    record.ChangeCount = 9;
    record.SetPara(2);
    frame.data(record);
    QCOMPARE(record.Num, 2);
    QCOMPARE(int(record.DataTag[0]), 0);
    QCOMPARE(int(record.DataLen[0]), 1);
    QCOMPARE(int(record.DataOffset[0]), 94);
    QCOMPARE(int(record.DataTag[1]), 0x85);
    QCOMPARE(int(record.DataOffset[1]), 99);
    record.SetPara(4);
    frame.data(record);
    QCOMPARE(int(record.DataOffset[2]), 103);
    QCOMPARE(int(record.DataTag[3]), 0);
    QCOMPARE(int(record.DataOffset[3]), 0);
    QCOMPARE(int(record.ChangeCount), 9);
}

void TestBuilders::gooseLengthForms_data()
{
    QTest::addColumn<int>("entries"); // of 3 bytes each, and one of `rest` bytes
    QTest::addColumn<int>("rest");
    QTest::addColumn<QByteArray>("counts");
    QTest::newRow("127 bytes of data") << 41 << 4 << bytes("8a 01 2a ab 7f");
    QTest::newRow("128 bytes of data") << 42 << 2 << bytes("8a 01 2b ab 8180");
    QTest::newRow("255 bytes of data") << 84 << 3 << bytes("8a 01 55 ab 81ff");
    QTest::newRow("256 bytes of data") << 84 << 4 << bytes("8a 01 55 ab 820100");
    QTest::newRow("126 entries") << 125 << 3 << bytes("8a 01 7e ab 82017a");
    QTest::newRow("127 entries") << 126 << 3 << bytes("8a 02 007f ab 82017d");
}

void TestBuilders::gooseLengthForms()
{
    QFETCH(int, entries);
    QFETCH(int, rest);
    QFETCH(QByteArray, counts);
    Message_goose frame = gooseWithTypes(QVector<int>(entries + 1, 1));
    frame.Data_Vector[entries].Data_value = QByteArray(rest - 2, '\0');
    GooseDataOffsetAddr record;
    record.SetPara(entries + 1);
    const QByteArray command = frame.data(record);

    const int data = 3 * entries + rest;
    const int ethernet = int(command.size()) - 9;
    COMPARE_BYTES(frame.DataHeadValue().right(counts.size()), counts);
    COMPARE_BYTES(command.mid(9), frame.DataHeadValue() + command.right(data));
    QCOMPARE(uchar(command.at(7)) + 256 * uchar(command.at(8)), ethernet);
    QCOMPARE(command.mid(9 + 20, 2).toHex().toInt(nullptr, 16), ethernet - 18);
    QCOMPARE(int(record.DataOffset[0]), ethernet - data + 2);
    QCOMPARE(int(record.DataOffset[entries]), ethernet - rest + 2);
}

void TestBuilders::addressWidthMovesOffsets()
{
    Message_goose frame;
    GooseDataOffsetAddr record;
    frame.setDestination_Mac(QStringLiteral("01-0C-CD-01-00"));
    const QByteArray command = frame.data(record);
    COMPARE_BYTES(command.left(20), bytes("8c918c91 40 0100 5b00 010ccd0100 010ccd020000"));
    QCOMPARE(frame.t_Offset, 57);
    QCOMPARE(frame.stNum_Offset, 67);
    QCOMPARE(frame.sqNum_Offset, 73);
    QCOMPARE(int(record.StNumOffset), 67);

    Message_9_2 sv;
    sv.setSource_Mac(QString());
    sv.data();
    QCOMPARE(sv.SmpCnt_Offset, 40);
    QCOMPARE(sv.SeqData_Offset, 54);
}

void TestBuilders::offsetRecord()
{
    static_assert(!std::is_copy_constructible_v<GooseDataOffsetAddr>);
    static_assert(!std::is_copy_assignable_v<GooseDataOffsetAddr>);
    GooseDataOffsetAddr record;
    QCOMPARE(record.Num, 0);
    QVERIFY(!record.DataTag && !record.DataLen && !record.DataOffset);
    for (const int n : {3, 5, 2, 65535}) {
        record.SetPara(n);
        QCOMPARE(record.Num, n);
        for (int i = 0; i < n; ++i)
            QVERIFY(!record.DataTag[i] && !record.DataLen[i] && !record.DataOffset[i]);
        record.DataTag[n - 1] = record.DataLen[n - 1] = record.ChangeCount = 7;
        record.StNumOffset = 8;
        record.DataOffset[n - 1] = 9;
    }
    record.SetPara(INT_MAX);
    QCOMPARE(record.Num, 65535);
    QCOMPARE(int(record.DataOffset[65534]), 9);
    for (const int n : {0, -1, INT_MIN}) {
        record.SetPara(1);
        record.SetPara(n);
        QCOMPARE(record.Num, 0);
    }
    QCOMPARE(int(record.ChangeCount), 7);
    QCOMPARE(int(record.StNumOffset), 8);
}

void TestBuilders::textsAreInTheCStringCodec()
{
    const QString text = QString::fromUtf8("é保护");
    Message_9_2 sv;
    Message_goose goose;
    const auto fields = [&] {
        sv.setSVID(text);
        goose.setgocbRef(text);
        goose.setdatSet(text);
        goose.setgoID(text);
        return Frames{sv.SVID_Length + sv.SVID_Value, goose.gocbRef_Length + goose.gocbRef_Value,
                      goose.datSet_Length + goose.datSet_Value,
                      goose.goID_Length + goose.goID_Value};
    };
    QTextCodec *const localeCodec = QTextCodec::codecForLocale();
    textcodec::setCodecForCStrings(nullptr);
    COMPARE_BYTES(fields(), Frames(4, bytes("03 e9 3f*2"))); // Latin-1
    {
        const LumtarEngine engine;
        COMPARE_BYTES(fields(), Frames(4, bytes("06 a8a6 b1a3 bba4"))); // GBK
    }
    COMPARE_BYTES(fields(), Frames(4, bytes("06 a8a6 b1a3 bba4")));
    QCOMPARE(QTextCodec::codecForLocale(), localeCodec);
}

void TestBuilders::longTexts_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("length");
    QTest::newRow("empty") << 0 << bytes("00");
    QTest::newRow("127") << 127 << bytes("7f");
    QTest::newRow("128") << 128 << bytes("8180");
    QTest::newRow("255") << 255 << bytes("81ff");
    QTest::newRow("256") << 256 << bytes("820100");
}

void TestBuilders::longTexts()
{
    QFETCH(int, size);
    QFETCH(QByteArray, length);
    const QString text(size, QLatin1Char('x'));
    const QByteArray value(size, 'x');
    const int grown = size + int(length.size()); // length and value together

    Message_9_2 sv;
    sv.setSVID(text);
    const QByteArray svCommand = sv.data();
    // The default svID takes 5 bytes; the three lengths around it get a byte more each from 256 on.
    const int wider = 198 - 5 + grown >= 256 ? 3 : 0;
    QCOMPARE(sv.SmpCnt_Offset, 46 - 5 + grown + wider);
    COMPARE_BYTES(svCommand.mid(9 + sv.SmpCnt_Offset - 3 - grown, grown + 3),
                  QByteArray(bytes("80") + length + value + bytes("8202")));

    Message_goose goose;
    GooseDataOffsetAddr record;
    goose.setgocbRef(text);
    goose.setdatSet(text);
    goose.setgoID(text);
    const QByteArray command = goose.data(record);
    const QByteArray references = bytes("80") + length + value + bytes("81020fa0 82") + length
        + value + bytes("83") + length + value + bytes("8408");
    COMPARE_BYTES(command.mid(9 + goose.t_Offset - int(references.size()), references.size()),
                  references);
    QCOMPARE(int(record.StNumOffset), (goose.t_Offset + 10) % 256);
}

// This process has no application object at all.
void TestBuilders::unsupportedTypeWarnsOnTheDebugChannel()
{
    Message_goose frame = gooseWithTypes({3, 1});
    const QByteArray before = content(frame);
    for (const int type : {0, 6, 8, 9, 10, 11, 14, 17, 136, -1, INT_MAX}) {
        DebugLines caught;
        QCOMPARE(frame.setData_value(type, 1), 0);
        QCOMPARE(caught.lines().size(), 1);
        QVERIFY(caught.lines().first().contains(
            QString::fromUtf8("GOOSE 通道数据类型未定义或不支持!")));
        QCOMPARE(content(frame), before);
    }
}

QTEST_APPLESS_MAIN(TestBuilders)
#include "tst_builders.moc"
