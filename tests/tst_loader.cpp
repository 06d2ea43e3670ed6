// Whole test configurations against the commands that the board receives.

#include "tests/testsupport.h"

#include "engine/lumtarengine.h"
#include "protocol/textcodec.h"

#include <QDomDocument>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

#include <sys/resource.h>

using namespace testsupport;
using virtualboard::LinkResponder;

namespace {

const char kReset[] = "8c908c90 02";

// Every attribute, an element of another kind between the channels, one channel fewer than chNums.
const char kSv[] = R"(
    <in_smv mac="01-0C-CD-04-00-01" vlan="123" appid="16385" priority="5" svId="MU01"
            confRev="70000" portindex="3" chNums="3">
      <chninfo quality="00002000" channel="DelayTRtg" delayt="750"/>
      <private channel="ia2"/>
      <chninfo quality="0001" channel="protection ia1" delayt="9"/>
    </in_smv>)";
// Header, addresses and 802.1Q tag, length of 62; smpCnt at 43, first entry at 56.
const char kSvFrame[] = "8c918c91 00 0900 5000"
                        "010ccd040001 ff*6 8100 a123 88ba 4001 003e 0000 0000"
                        "60 34 80 01 01 a2 2f 30 2d 80 04 'MU01' 82 02 0000 83 04 00011170"
                        "85 01 01 87 18 000002ee 00200000 00000000 00000100 00*8";
const char kSvDescription[] = "8c908c90 04 00 00 2b00 0000 a00f 3800 03 ff00ff";

// Three of four entries; the first goose element counts, wherever it stands.
const char kGoose[] = R"(
    <in_goose portindex="2">
      <mapinfo Which="2" Pos="2"/>
      <goose mac="01-0C-CD-01-00-01" priority="4" vLan="0" appid="12288" gcRef="G1" confRev="300"
             t0="5000" datSet="D1" goId="I1" datCount="3">
        <a gstype_tp="1"/><b gstype_tp="13"/><goose gstype_tp="16"/><d gstype_tp="3"/>
      </goose>
      <goose mac="22-22-22-22-22-22" datCount="9"/>
      <mapinfo Which="4" Pos="1"/>
    </in_goose>)";
// Length of 73; t at 46, stNum at 56, sqNum at 62; entry values at 82, 85 and 89.
const char kGooseFrame[] = "8c918c91 40 0500 5b00"
                           "010ccd010001 ff*6 8100 8000 88b8 3000 0049 0000 0000"
                           "61 3f 80 02 'G1' 81 02 2710 82 02 'D1' 83 02 'I1'"
                           "84 08 0000000000000050 85 04 00000001 86 04 00000000"
                           "87 01 00 88 01 2c 89 01 00 8a 01 03"
                           "ab 0b 83 01 00 84 02 0640 85 02 0000";
const char kGooseDescription[] = "8c908c90 05 00 3e 2e";

// Without any attribute even the destination MAC is missing: all offsets are 6 less.
const char kEmptySvFrame[] = "8c918c91 00 1d00 2e00 ff*6 8100 0000 88ba 0000 0022 0000 0000"
                             "60 18 80 01 01 a2 13 30 11 80 00 82 02 0000 83 04 00000000"
                             "85 01 01 87 00";
const char kEmptySvDescription[] = "8c908c90 04 00 00 2100 0000 a00f 2e00 00";
const char kEmptyGooseFrame[] = "8c918c91 40 1d00 4300 ff*6 8100 0000 88b8 0000 0037 0000 0000"
                                "61 2d 80 00 81 01 00 82 00 83 00"
                                "84 08 0000000000000050 85 04 00000001 86 04 00000000"
                                "87 01 00 88 01 00 89 01 00 8a 01 00 ab 00";
const char kEmptyGooseDescription[] = "8c908c90 05 00 31 21";

const char kCountersAtStart[] = "sv 0 goose 0 group 1 logic 0 light 1 1 1 1 1 outputs - - - -";

QString counters(const LumtarEngine &e)
{
    QString text = QStringLiteral("sv %1 goose %2 group %3 logic %4 light")
                       .arg(e.smvCount)
                       .arg(e.gooseCount)
                       .arg(e.groupNum)
                       .arg(e.logicChannel);
    for (const quint8 group : e.lightGroup)
        text += QStringLiteral(" %1").arg(group);
    text += QStringLiteral(" outputs");
    for (const OutputGooseEntry &entry : e.outputGooseMap) {
        text += entry.stream == -1 ? QStringLiteral(" -")
                                   : QStringLiteral(" %1:%2").arg(entry.stream).arg(entry.position);
    }
    return text;
}

Frames frames(const QVector<const char *> &literals)
{
    Frames result;
    for (const char *literal : literals)
        result += bytes(literal);
    return padded(result);
}

QByteArray ied(const QByteArray &children)
{
    return "<ied>" + children + "</ied>";
}

/// The same command with another stream number in the \a bytes at the given positions.
QByteArray numbered(const char *literal, int number, const QVector<int> &positions)
{
    QByteArray frame = padded({bytes(literal)}).first();
    for (const int position : positions)
        frame[position] = char(frame.at(position) + number);
    return frame;
}

QByteArray repeated(int count, const std::function<QByteArray(int)> &element)
{
    QByteArray all;
    for (int i = 0; i < count; ++i)
        all += element(i);
    return all;
}

qint64 peakMemoryMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

} // namespace

class TestLoader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { m_board.clear(); }

    void configuration_data();
    void configuration();
    void streamNumbers();
    void sampleRate();
    void offsetRecords();
    void loadAgain();
    void surplusStreams();
    void surplusSubscriptions();
    void surplusLogicChannels();
    void refusedDatasets_data();
    void refusedDatasets();
    void streamsTooLargeToSend();
    void bindings_data();
    void bindings();
    void directCalls();
    void eventsRunOncePerElement();

    void refusedFiles_data();
    void refusedFiles();
    void refusedPaths_data();
    void refusedPaths();
    void expandingEntities_data();
    void expandingEntities();
    void deepNesting_data();
    void deepNesting();
    void manyAttributes_data();
    void manyAttributes();
    void encodings_data();
    void encodings();
    void pathInGbk();
    void withoutLink();

private:
    int load(LumtarEngine &engine, const QByteArray &content);
    int loadPath(LumtarEngine &engine, const QString &path);

    LinkResponder m_board{boardAddress()};
    QTemporaryDir m_directory;
};

void TestLoader::initTestCase()
{
    QVERIFY(m_board.start());
    QVERIFY(m_directory.isValid());
}

int TestLoader::load(LumtarEngine &engine, const QByteArray &content)
{
    const QString path = m_directory.filePath(QStringLiteral("configuration.xml"));
    return writeFile(path, content) ? loadPath(engine, path) : -1;
}

int TestLoader::loadPath(LumtarEngine &engine, const QString &path)
{
    QByteArray cString = textcodec::toCString(path);
    if (!engine.udpSocket && !engine.SetUdpConnect(localPort(), boardAddress()))
        return -1;
    return engine.InitGPP(cString.data());
}

void TestLoader::configuration_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<Frames>("expected");
    QTest::addColumn<QString>("counters");
    QTest::addColumn<int>("debugLines");
    const auto row = [](const char *name, const QByteArray &file,
                        const QVector<const char *> &expected, const char *counters,
                        int debugLines = 0) {
        QTest::newRow(name) << file << frames(QVector<const char *>(expected))
                            << QString::fromLatin1(counters) << debugLines;
    };
    const char sv1[] = "sv 1 goose 0 group 1 logic 0 light 1 1 1 1 1 outputs - - - -";
    const char goose1[] = "sv 0 goose 1 group 1 logic 0 light 1 1 1 1 1 outputs - - - -";

    row("no children", "<ied/>", {kReset}, kCountersAtStart);
    row("SV stream", ied(kSv), {kReset, kSvFrame, kSvDescription}, sv1);
    row("SV stream without attributes", ied("<in_smv/>"),
        {kReset, kEmptySvFrame, kEmptySvDescription}, sv1);
    row("numbers that are none",
        ied("<in_smv vlan='G' appid='0x10' priority='-' confRev='1.5' portindex='one' "
            "chNums='x'/>"),
        {kReset, kEmptySvFrame, kEmptySvDescription}, sv1);
    row("misspelt attributes of an SV stream",
        ied("<in_smv portIndex='3' vLan='1' appId='1' svid='x' chnums='1' Mac='01-02'/>"),
        {kReset, kEmptySvFrame, kEmptySvDescription}, sv1);
    row("eight channels",
        ied("<in_smv chNums='8'><chninfo channel='IA1'/><chninfo channel='xib1'/>"
            "<CHNINFO channel='Ic1y'/><chninfo channel='IN1'/><chninfo channel='VA1 IA2'/>"
            "<chninfo channel='VB1'/><chninfo channel='VC1'/><chninfo channel='VN1'/></in_smv>"),
        {kReset,
         "8c918c91 00 1d00 6e00 ff*6 8100 0000 88ba 0000 0062 0000 0000"
         "60 58 80 01 01 a2 53 30 51 80 00 82 02 0000 83 04 00000000 85 01 01 87 40 00*64",
         "8c908c90 04 00 00 2100 0000 a00f 2e00 08 00020406080a0c0e"},
        sv1);
    row("second group, names that match nothing",
        ied("<in_smv chNums='11'>"
            "<chninfo channel='ia2'/><chninfo channel='ib2'/><chninfo channel='ic2'/>"
            "<chninfo channel='in2'/><chninfo channel='va2'/><chninfo channel='vb2'/>"
            "<chninfo channel='vc2'/><chninfo channel='vn2'/><chninfo channel='Ua'/><chninfo/>"
            "</in_smv>"),
        {kReset,
         "8c918c91 00 1d00 8600 ff*6 8100 0000 88ba 0000 007a 0000 0000"
         "60 70 80 01 01 a2 6b 30 69 80 00 82 02 0000 83 04 00000000 85 01 01 87 58 00*88",
         "8c908c90 04 00 00 2100 0000 a00f 2e00 0b 01030507090b0d0f ffffff"},
        sv1);
    row("surplus channels",
        ied("<in_smv chNums='1'><chninfo channel='DELAYT ib1' delayt='-2'/><chninfo channel='ia1'/>"
            "<chninfo quality='ff'/></in_smv>"),
        {kReset,
         "8c918c91 00 1d00 3600 ff*6 8100 0000 88ba 0000 002a 0000 0000"
         "60 20 80 01 01 a2 1b 30 19 80 00 82 02 0000 83 04 00000000 85 01 01 87 08 fffffffe 00*4",
         "8c908c90 04 00 00 2100 0000 a00f 2e00 01 02"},
        sv1, 1);

    row("GOOSE stream", ied(kGoose), {kReset, kGooseFrame, kGooseDescription},
        "sv 0 goose 1 group 1 logic 0 light 1 1 1 1 1 outputs - 0:2 - 0:1");
    row("GOOSE stream without a frame element", ied("<in_goose><mapinfo Which='9'/></in_goose>"),
        {kReset, kEmptyGooseFrame, kEmptyGooseDescription}, goose1, 1);
    row("misspelt attributes of a GOOSE stream",
        ied("<in_goose portIndex='2'><goose gcref='x' vlan='1' goID='x' T0='5' datcount='1'>"
            "<a gstype_tp='1'/></goose></in_goose>"),
        {kReset, kEmptyGooseFrame, kEmptyGooseDescription}, goose1);
    row("fewer entries than datCount, unsupported type",
        ied("<in_goose><GOOSE datCount='3'><a gstype_tp='2'/><b "
            "gstype_tp='6'/></GOOSE></in_goose>"),
        {kReset,
         "8c918c91 40 1d00 4e00 ff*6 8100 0000 88b8 0000 0042 0000 0000"
         "61 38 80 00 81 01 00 82 00 83 00 84 08 0000000000000050 85 04 00000001 86 04 00000000"
         "87 01 00 88 01 00 89 01 00 8a 01 03 ab 0b 86 01 00 00 0000 00 00 0000 00",
         kEmptyGooseDescription},
        goose1, 2); // a remark with its place, and the text of the box

    row("subscriptions",
        ied("<goose appid='4097' datCount='4' portIndex='1'>"
            "<mapinfo Which='1' Pos='1'/><other Which='1' Pos='2'/><MapInfo Which='2' "
            "Pos='3'/></goose>"
            "<goose appid='513' datCount='3' portIndex='2'><mapinfo Which='-3' Pos='2'/></goose>"
            "<goose appid='1' datCount='2' portIndex='1'><mapinfo Pos='2'/><mapinfo "
            "Pos='1'/></goose>"),
        {kReset, "ac12ac12 01 01 0110 0000 0400 0404", "ac12ac12 02 21 0102 0200 0300 4000",
         "ac12ac12 03 02 0100 0300 0200 44"},
        "sv 0 goose 0 group 4 logic 5 light 3 2 1 1 1 outputs - - - -");
    row("subscriptions without an entry to map",
        ied("<goose datCount='4' portIndex='1'/>"
            "<goose datCount='4' portIndex='1'><mapinfo Which='7' Pos='1'/></goose>"
            "<goose datCount='4' portIndex='5'><mapinfo Which='5' Pos='1'/><mapinfo "
            "Pos='4'/></goose>"),
        {kReset, "ac12ac12 01 81 0000 0000 0400 0040"},
        "sv 0 goose 0 group 2 logic 1 light 1 1 1 1 2 outputs - - - -");
    row("an entry mapped twice takes two channels",
        ied("<goose datCount='1' portIndex='3'><mapinfo Pos='1'/><mapinfo Pos='1'/></goose>"),
        {kReset, "ac12ac12 01 41 0000 0000 0100 04"},
        "sv 0 goose 0 group 2 logic 2 light 1 1 2 1 1 outputs - - - -");
    row("positions outside the dataset",
        ied("<goose datCount='2' portIndex='1'><mapinfo Pos='3'/><mapinfo/><mapinfo "
            "Pos='-1'/></goose>"
            "<goose portIndex='1'><mapinfo Pos='1'/></goose>"
            "<goose datCount='2' portIndex='4'><mapinfo Pos='0'/><mapinfo Pos='2'/></goose>"),
        {kReset, "ac12ac12 01 61 0000 0000 0200 40"},
        "sv 0 goose 0 group 2 logic 1 light 1 1 1 2 1 outputs - - - -", 5);
    row("ports and counts out of range",
        ied("<goose datCount='2'><mapinfo Pos='1'/></goose>"
            "<goose datCount='2' portIndex='6'><mapinfo Pos='1'/></goose>"
            "<goose datCount='2' portIndex='-1'><mapinfo Pos='1'/></goose>"
            "<goose datCount='-1' portIndex='1'><mapinfo Pos='1'/></goose>"
            "<goose datCount='65536' portIndex='1'><mapinfo Pos='1'/></goose>"),
        {kReset}, kCountersAtStart, 5);

    row("tags in any case, other children skipped",
        "<?xml version='1.0'?><!DOCTYPE IED><!-- c --><IED "
        "note='x'>text<?pi?><other><in_smv/></other>"
        "<In_Smv/><x:in_smv/><![CDATA[<in_smv/>]]><IN_GOOSE/>"
        "<Goose datCount='1' portIndex='1'><MAPINFO Pos='1'/></Goose></IED><!-- c -->",
        {kReset, kEmptySvFrame, kEmptySvDescription, kEmptyGooseFrame, kEmptyGooseDescription,
         "ac12ac12 01 01 0000 0000 0100 04"},
        "sv 1 goose 1 group 2 logic 1 light 2 1 1 1 1 outputs - - - -");
    row("a long comment, long blanks",
        ied("<!-- " + QByteArray(70000, 'x') + " -->" + QByteArray(70000, ' ')), {kReset},
        kCountersAtStart);
    row("entities of ordinary size",
        "<!DOCTYPE ied [<!ENTITY mu 'MU'><!ENTITY one '&#48;1'>]>"
            + ied(QByteArray(kSv).replace("MU01", "&mu;0&#x31;")),
        {kReset, kSvFrame, kSvDescription}, sv1);
}

void TestLoader::configuration()
{
    QFETCH(QByteArray, file);
    QFETCH(Frames, expected);
    QFETCH(int, debugLines);
    LumtarEngine engine;
    engine.smvCount = engine.gooseCount = engine.groupNum = engine.logicChannel = 77;
    std::fill_n(engine.lightGroup, 5, quint8(77));
    const DebugLines caught;
    QCOMPARE(load(engine, file), 1);
    COMPARE_BYTES(received(m_board), expected);
    QTEST(counters(engine), "counters");
    QVERIFY2(caught.lines().size() == debugLines,
             qPrintable(caught.lines().join(QLatin1Char('|'))));
}

// Streams of one kind are numbered in file order, whatever stands between them.
void TestLoader::streamNumbers()
{
    LumtarEngine engine;
    QByteArray file = ied(QByteArray(kSv) + "<in_goose/>" + kSv + kGoose + "<in_smv/>");
    QCOMPARE(load(engine, file), 1);
    COMPARE_BYTES(
        received(m_board),
        Frames({numbered(kReset, 0, {}), numbered(kSvFrame, 0, {}), numbered(kSvDescription, 0, {}),
                numbered(kEmptyGooseFrame, 0, {}), numbered(kEmptyGooseDescription, 0, {}),
                numbered(kSvFrame, 1, {4}), numbered(kSvDescription, 1, {5, 6}),
                numbered(kGooseFrame, 1, {4}), numbered(kGooseDescription, 1, {5}),
                numbered(kEmptySvFrame, 2, {4}), numbered(kEmptySvDescription, 2, {5, 6})}));
    QCOMPARE(counters(engine),
             QStringLiteral("sv 3 goose 2 group 1 logic 0 light 1 1 1 1 1 outputs - 1:2 - 1:1"));
}

void TestLoader::sampleRate()
{
    LumtarEngine engine;
    engine.samplesPerCycle = 1300;
    engine.nominalFrequency = 60; // 78000 samples per second: the low 16 bits are 12464
    QCOMPARE(load(engine, "<ied><in_smv/></ied>"), 1);
    COMPARE_BYTES(received(m_board).value(2), bytes("8c908c90 04 00 00 2100 0000 b030 2e00 00"));
}

void TestLoader::offsetRecords()
{
    LumtarEngine engine;
    for (GooseDataOffsetAddr &record : gblGooseDataOffsetAddr) {
        record.SetPara(1);
        record.ChangeCount = 3;
    }
    const DebugLines caught;
    QCOMPARE(load(engine,
                  ied(QByteArray(kGoose)
                      + "<in_goose><goose datCount='4'><a gstype_tp='5'/></goose></in_goose>"
                        "<in_goose/>")),
             1);
    const GooseDataOffsetAddr *const records = gblGooseDataOffsetAddr;
    // Number of slots, stNum, then tag, length and offset per entry.
    const QVector<QVector<int>> expected = {{3, 56, 0x83, 1, 82, 0x84, 2, 85, 0x85, 2, 89},
                                            {4, 43, 0x91, 8, 69, 0, 0, 80, 0, 0, 84, 0, 0, 88},
                                            {0, 43}};
    for (int stream = 0; stream < 3; ++stream) {
        QVector<int> actual = {records[stream].Num, records[stream].StNumOffset};
        for (int i = 0; i < records[stream].Num; ++i) {
            actual << records[stream].DataTag[i] << records[stream].DataLen[i]
                   << records[stream].DataOffset[i];
        }
        QCOMPARE(actual, expected.at(stream));
        QCOMPARE(int(records[stream].ChangeCount), 3);
    }
    QCOMPARE(records[3].Num, 1); // not reached by this load
}

void TestLoader::loadAgain()
{
    LumtarEngine engine;
    const QByteArray full = ied(QByteArray(kSv) + kGoose
                                + "<goose datCount='1' portIndex='1'><mapinfo Pos='1'/></goose>");
    QCOMPARE(load(engine, full), 1);
    const Frames first = received(m_board);
    const QString after = counters(engine);
    m_board.clear();
    QCOMPARE(load(engine, full), 1);
    COMPARE_BYTES(received(m_board), first);
    QCOMPARE(counters(engine), after);

    QCOMPARE(load(engine, "<ied/>"), 1);
    QCOMPARE(counters(engine), QLatin1String(kCountersAtStart));
    QCOMPARE(int(engine.outputGooseMap[1].position), 2); // only the stream is reset
}

void TestLoader::surplusStreams()
{
    LumtarEngine engine;
    const DebugLines caught;
    QCOMPARE(load(engine,
                  ied(QByteArray("<in_smv/>").repeated(66) + QByteArray(kGoose).repeated(4)
                      + QByteArray("<in_goose/>").repeated(4)
                      + "<in_goose>"
                        "<mapinfo Which='1' Pos='1'/></in_goose>"
                        "<goose datCount='1' portIndex='1'><mapinfo Pos='1'/></goose>")),
             1);
    Frames expected = frames({kReset});
    for (int i = 0; i < 64; ++i)
        expected << numbered(kEmptySvFrame, i, {4}) << numbered(kEmptySvDescription, i, {5, 6});
    for (int i = 0; i < 6; ++i) {
        expected << numbered(i < 4 ? kGooseFrame : kEmptyGooseFrame, i, {4})
                 << numbered(i < 4 ? kGooseDescription : kEmptyGooseDescription, i, {5});
    }
    expected += padded({bytes("ac12ac12 01 01 0000 0000 0100 04")});
    COMPARE_BYTES(received(m_board), expected);
    QCOMPARE(counters(engine),
             QStringLiteral("sv 64 goose 6 group 2 logic 1 light 2 1 1 1 1 outputs - 3:2 - 3:1"));
    QCOMPARE(int(caught.lines().size()), 2 + 3);
}

// A light port has 31 groups.
void TestLoader::surplusSubscriptions()
{
    LumtarEngine engine;
    const DebugLines caught;
    const QByteArray one = "<goose datCount='1' portIndex='2'><mapinfo Pos='1'/></goose>";
    QCOMPARE(load(engine, ied(one.repeated(33) + QByteArray(one).replace("'2'", "'1'"))), 1);
    const Frames sent = received(m_board);
    QCOMPARE(int(sent.size()), 1 + 31 + 1);
    COMPARE_BYTES(sent.at(31), padded({bytes("ac12ac12 1f 3f 0000 1e00 0100 04")}).first());
    COMPARE_BYTES(sent.at(32), padded({bytes("ac12ac12 20 01 0000 1f00 0100 04")}).first());
    QCOMPARE(counters(engine),
             QStringLiteral("sv 0 goose 0 group 33 logic 32 light 2 32 1 1 1 outputs - - - -"));
    QCOMPARE(int(caught.lines().size()), 2);
}

// Logic channels 0 to 255 exist.
void TestLoader::surplusLogicChannels()
{
    const auto subscription = [](int entries) {
        return "<goose datCount='300' portIndex='1'>"
            + repeated(entries,
                       [](int i) { return "<mapinfo Pos='" + QByteArray::number(i + 1) + "'/>"; })
            + "</goose>";
    };
    const auto sent = [](int group, int channel, int entries) {
        return bytes("ac12ac12") + char(group) + char(group) + bytes("0000") + char(channel)
            + bytes("00 2c01") + bytes("44*150").left(entries / 2)
            + (entries % 2 ? bytes("04") : QByteArray())
            + QByteArray(150 - (entries + 1) / 2, '\0');
    };
    LumtarEngine engine;
    const DebugLines caught;
    QCOMPARE(load(engine, ied(subscription(255) + subscription(3) + subscription(2))), 1);
    COMPARE_BYTES(received(m_board), frames({kReset}) + Frames({sent(1, 0, 255), sent(2, 255, 1)}));
    QCOMPARE(int(engine.groupNum), 3);
    QCOMPARE(int(caught.lines().size()), 2 + 2);

    m_board.clear();
    QCOMPARE(load(engine, ied(subscription(258))), 1); // and counting begins anew
    COMPARE_BYTES(received(m_board), frames({kReset}) + Frames({sent(1, 0, 256)}));
}

void TestLoader::refusedDatasets_data()
{
    QTest::addColumn<QByteArray>("element");
    for (const char *count : {"-1", "256", "2147483647", "-2147483648"})
        QTest::addRow("SV %s", count)
            << QByteArray(kSv).replace("chNums=\"3", QByteArray("chNums=\"") + count);
    for (const char *count : {"-1", "65536", "2147483647", "-2147483648"})
        QTest::addRow("GOOSE %s", count)
            << QByteArray(kGoose).replace("datCount=\"3", QByteArray("datCount=\"") + count);
}

// Nothing is sent, but the stream number is used up.
void TestLoader::refusedDatasets()
{
    QFETCH(QByteArray, element);
    LumtarEngine engine;
    gblGooseDataOffsetAddr[0].SetPara(5);
    const DebugLines caught;
    QCOMPARE(load(engine, ied(element + kSv + kGoose)), 1);
    const bool isSv = element.contains("in_smv");
    COMPARE_BYTES(received(m_board),
                  Frames({numbered(kReset, 0, {}), numbered(kSvFrame, isSv, {4}),
                          numbered(kSvDescription, isSv, {5, 6}), numbered(kGooseFrame, !isSv, {4}),
                          numbered(kGooseDescription, !isSv, {5})}));
    QCOMPARE(int(caught.lines().size()), 1);
    if (!isSv) {
        QCOMPARE(gblGooseDataOffsetAddr[0].Num, 0);
        m_board.clear();
        load(engine, ied(element));
        QVERIFY(counters(engine).endsWith(QLatin1String("outputs - - - -")));
    }
}

// The frame fits no datagram; its description is sent all the same.
void TestLoader::streamsTooLargeToSend()
{
    LumtarEngine engine;
    const DebugLines caught;
    QCOMPARE(load(engine,
                  "<ied><in_smv chNums='255'/><in_smv chNums='191'/>"
                  "<in_goose><goose datCount='65535'/></in_goose><in_smv/></ied>"),
             1);
    const QByteArray tail = bytes("2700 0000 a00f 3600");
    COMPARE_BYTES(received(m_board),
                  Frames({numbered(kReset, 0, {}),
                          padded({bytes("8c908c90 04 00 00") + tail + bytes("ff ff*255")}).first(),
                          padded({bytes("8c908c90 04 01 01") + tail + bytes("bf ff*191")}).first(),
                          bytes("8c908c90 05 00 34 24"), numbered(kEmptySvFrame, 2, {4}),
                          numbered(kEmptySvDescription, 2, {5, 6})}));
    QCOMPARE(int(caught.lines().size()), 3);
    QCOMPARE(gblGooseDataOffsetAddr[0].Num, 65535);
}

void TestLoader::bindings_data()
{
    QTest::addColumn<QByteArray>(
        "mapInfos"); // of a stream with a boolean, a bit string, an integer
    QTest::addColumn<QString>("outputs");
    QTest::addColumn<int>("debugLines");
    const auto row = [](const char *name, const char *mapInfos, const char *outputs,
                        int debugLines) {
        QTest::newRow(name) << QByteArray(mapInfos) << QString::fromLatin1(outputs) << debugLines;
    };
    row("all outputs",
        "<MapInfo Which='4' Pos='1'/><mapinfo Which='3' Pos='1'/>"
        "<mapinfo Which='2' Pos='2'/><mapinfo Which='1' Pos='2'/>",
        "0:2 0:2 0:1 0:1", 0);
    row("the last one counts", "<mapinfo Which='1' Pos='1'/><mapinfo Which='1' Pos='2'/>",
        "0:2 - - -", 0);
    row("outputs that do not exist",
        "<mapinfo Which='0' Pos='1'/><mapinfo Which='5' Pos='1'/>"
        "<mapinfo Which='-1' Pos='1'/><mapinfo Pos='1'/>",
        "- - - -", 4);
    row("entry that carries no output", "<mapinfo Which='1' Pos='3'/>", "0:3 - - -", 1);
    row("entry that does not exist", "<mapinfo Which='2' Pos='4'/><mapinfo Which='3'/>",
        "- 0:4 0:0 -", 2);
    row("low byte of the position", "<mapinfo Which='2' Pos='260'/><mapinfo Which='3' Pos='-1'/>",
        "- 0:4 0:255 -", 2);
    row("misspelt", "<mapinfo which='1' pos='1'/><map Which='1' Pos='1'/>", "- - - -", 1);
}

void TestLoader::bindings()
{
    QFETCH(QByteArray, mapInfos);
    QFETCH(QString, outputs);
    QFETCH(int, debugLines);
    const QByteArray stream = "<in_goose><goose datCount='3'><a gstype_tp='1'/><b gstype_tp='13'/>"
                              "<c gstype_tp='3'/></goose>"
        + mapInfos + "</in_goose>";
    LumtarEngine engine;
    const DebugLines caught;
    QCOMPARE(load(engine, ied(stream)), 1);
    QCOMPARE(counters(engine).section(QLatin1String("outputs "), 1), outputs);
    QVERIFY2(caught.lines().size() == debugLines,
             qPrintable(caught.lines().join(QLatin1Char('|'))));

    // As the fifth stream nothing is bound; as the fourth it is.
    QCOMPARE(load(engine, ied(QByteArray("<in_goose/>").repeated(3) + stream + stream)), 1);
    QCOMPARE(counters(engine).section(QLatin1String("outputs "), 1),
             outputs.replace(QLatin1String("0:"), QLatin1String("3:")));
}

void TestLoader::directCalls()
{
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    QDomDocument document;
    QVERIFY(
        document.setContent(ied(QByteArray(kSv) + kGoose
                                + "<goose datCount='1' portIndex='5'><mapinfo Pos='1'/></goose>")));
    QDomElement sv = document.documentElement().firstChildElement();
    QDomElement goose = sv.nextSiblingElement();
    QDomElement subscription = goose.nextSiblingElement();
    QByteArray work;
    engine.smvCount = 63;
    engine.gooseCount = 5;
    engine.groupNum = 255;
    engine.lightGroup[4] = 31;
    engine.SetSMV(sv, work);
    COMPARE_BYTES(padded({work}), Frames{numbered(kSvDescription, 63, {5, 6})});
    engine.SetGoose(goose, work);
    COMPARE_BYTES(work, numbered(kGooseDescription, 5, {5}));
    engine.SetBinMap(subscription, work);
    COMPARE_BYTES(work, bytes("ac12ac12 ff 9f 0000 0000 0100 04"));
    COMPARE_BYTES(received(m_board),
                  Frames({numbered(kSvFrame, 63, {4}), numbered(kSvDescription, 63, {5, 6}),
                          numbered(kGooseFrame, 5, {4}), numbered(kGooseDescription, 5, {5}),
                          padded({work}).first()}));
    QVERIFY(engine.smvCount == 63 && engine.gooseCount == 5); // InitGPP() counts, not these

    m_board.clear();
    engine.smvCount = 64;
    engine.gooseCount = 6;
    const DebugLines caught;
    engine.SetSMV(sv, work);
    engine.SetGoose(goose, work);
    engine.SetBinMap(subscription, work);
    engine.smvCount = engine.gooseCount = 255;
    engine.SetSMV(sv, work);
    engine.SetGoose(goose, work);
    QVERIFY(m_board.receptions().isEmpty());
    QCOMPARE(int(caught.lines().size()), 5);
    QDomElement null;
    engine.SetBinMap(null, work);
    QVERIFY(m_board.receptions().isEmpty());
}

void TestLoader::eventsRunOncePerElement()
{
    LumtarEngine engine;
    QVector<int> seen;
    std::function<void()> event = [&] {
        seen += int(m_board.receptions().size());
        QMetaObject::invokeMethod(this, event, Qt::QueuedConnection);
    };
    QMetaObject::invokeMethod(this, event, Qt::QueuedConnection);
    QCOMPARE(load(engine, "<ied><in_smv/><in_goose/><x/></ied>"), 1);
    event = [] {};
    QCoreApplication::processEvents();
    // Before each element: after the reset, after two commands, after four.
    QVERIFY(seen.contains(1) && seen.contains(3) && seen.contains(5));
    QVERIFY(!seen.contains(0) && !seen.contains(2) && !seen.contains(4));
}

void TestLoader::refusedFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    const QByteArray sound = ied(kSv);
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("no XML") << QByteArray("ied");
    QTest::newRow("unclosed") << QByteArray("<ied><in_smv/>");
    QTest::newRow("wrong end tag") << QByteArray("<ied><in_smv></ied></in_smv>");
    QTest::newRow("fault behind the streams") << sound.chopped(6) + "<in_smv svId=x/></ied>";
    QTest::newRow("two roots") << sound + sound;
    QTest::newRow("attribute twice") << QByteArray("<ied><in_smv svId='a' svId='b'/></ied>");
    QTest::newRow("undefined entity") << QByteArray("<ied><in_smv svId='&mu;'/></ied>");
    QTest::newRow("wrong root") << QByteArray("<iedx/>");
    QTest::newRow("root with a prefix") << QByteArray("<x:ied xmlns:x='x'/>");
    QTest::newRow("root one level down") << "<configuration>" + sound + "</configuration>";
    QTest::newRow("cut in the middle of a character") << QByteArray("<ied><in_smv svId='\xe4\xbf");
    QTest::newRow("zeros") << QByteArray(100, '\0');
}

void TestLoader::refusedFiles()
{
    QFETCH(QByteArray, file);
    LumtarEngine engine;
    engine.smvCount = engine.groupNum = 3;
    engine.outputGooseMap[0] = {2, 2};
    const QString before = counters(engine);
    const DebugLines caught;
    QCOMPARE(load(engine, file), 0);
    QCOMPARE(counters(engine), before);
    QVERIFY(m_board.receptions().isEmpty());
}

void TestLoader::refusedPaths_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("missing") << m_directory.filePath(QStringLiteral("missing.xml")).toLatin1();
    QTest::newRow("directory") << m_directory.path().toLatin1();
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("null") << QByteArray();
    QTest::newRow("endless") << QByteArray("/dev/zero");
    QTest::newRow("no path in this codec") << QByteArray("\xff\xff\x80/\x81");
}

void TestLoader::refusedPaths()
{
    QFETCH(QByteArray, path);
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    engine.gooseCount = 4;
    const QString before = counters(engine);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(engine.InitGPP(path.isNull() ? nullptr : path.data()), 0);
    QVERIFY(timer.elapsed() < 10000);
    QCOMPARE(counters(engine), before);
    QVERIFY(m_board.receptions().isEmpty());
}

// Each of these would take more than a gigabyte when expanded.
void TestLoader::expandingEntities_data()
{
    QTest::addColumn<QByteArray>("file");
    QByteArray nested = "<!ENTITY e0 'ten bytes.'>";
    for (int i = 1; i < 10; ++i) {
        const QByteArray inner = "&e" + QByteArray::number(i - 1) + ';';
        nested += "<!ENTITY e" + QByteArray::number(i) + " '" + inner.repeated(10) + "'>";
    }
    const QByteArray large = "<!ENTITY e9 '" + QByteArray(200000, 'x') + "'>";
    const auto row = [](const char *name, const QByteArray &entities, const QByteArray &children) {
        QTest::newRow(name) << "<!DOCTYPE ied [" + entities + "]>" + ied(children);
    };
    row("nested, text", nested, "&e9;");
    row("nested, attribute", nested, "<in_smv svId='&e9;'/>");
    row("large one, many attributes", large, QByteArray("<in_smv svId='&e9;'/>").repeated(8000));
    row("large one, many times in an attribute", large,
        "<in_smv svId='" + QByteArray("&e9;").repeated(8000) + "'/>");
    row("large one, many times in the text", large, QByteArray("&e9;").repeated(8000));
    const QByteArray small = "<!ENTITY e9 '" + QByteArray(4000, 'x') + "'>";
    row("small one, many times in an attribute", small,
        "<in_smv svId='" + QByteArray("&e9;").repeated(100000) + "'/>");
    row("small one, many attributes", small, QByteArray("<in_smv svId='&e9;'/>").repeated(100000));
    row("small one, many times in the text", small, QByteArray("&e9;").repeated(100000));
    row("itself", "<!ENTITY e9 '&e9;&e9;'>", "<in_smv svId='&e9;'/>");
    row("each other", "<!ENTITY a '&e9;&e9;'><!ENTITY e9 '&a;&a;'>", "&e9;");
    row("default attributes",
        large + "<!ATTLIST in_smv svId CDATA '" + QByteArray("&e9;").repeated(8000) + "'>",
        "<in_smv/>");
}

void TestLoader::expandingEntities()
{
    QFETCH(QByteArray, file);
    LumtarEngine engine;
    const DebugLines caught;
    const qint64 before = peakMemoryMiB();
    QElapsedTimer timer;
    timer.start();
    const int result = load(engine, file);
    QVERIFY(timer.elapsed() < 5000);
    QVERIFY2(peakMemoryMiB() - before < 300, qPrintable(QString::number(peakMemoryMiB() - before)));
    QCOMPARE(result, 0);
    QVERIFY(m_board.receptions().isEmpty());
}

void TestLoader::deepNesting_data()
{
    QTest::addColumn<QByteArray>("start");
    QTest::addColumn<QByteArray>("end");
    QTest::newRow("closed") << QByteArray("<ied>") + QByteArray("<a>").repeated(100000)
                            << QByteArray("</a>").repeated(100000) + "</ied>";
    QTest::newRow("unclosed") << QByteArray("<ied>") + QByteArray("<a>").repeated(100000)
                              << QByteArray();
    QTest::newRow("streams in streams")
        << QByteArray("<ied>") + QByteArray("<in_goose>").repeated(100000)
        << QByteArray("</in_goose>").repeated(100000) + "</ied>";
    QTest::newRow("declaration") << "<!DOCTYPE ied [<!ELEMENT ied "
            + QByteArray("(").repeated(100000) + "a" + QByteArray(")").repeated(100000)
            + ">]><ied>" << QByteArray("</ied");
}

// Must neither crash nor load half of it.
void TestLoader::deepNesting()
{
    QFETCH(QByteArray, start);
    QFETCH(QByteArray, end);
    LumtarEngine engine;
    const DebugLines caught;
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(load(engine, start + end), 0);
    QVERIFY(timer.elapsed() < 10000);
    QVERIFY(m_board.receptions().isEmpty());

    QCOMPARE(load(engine, ied(QByteArray("<a>").repeated(50) + QByteArray("</a>").repeated(50))),
             1);
    COMPARE_BYTES(received(m_board), frames({kReset}));
}

// Half a megabyte in one tag must not keep the application waiting.
void TestLoader::manyAttributes_data()
{
    QTest::addColumn<QByteArray>("file");
    const auto attributes = [](const char *value) {
        return repeated(40000, [value](int i) { return " a" + QByteArray::number(i) + value; });
    };
    QTest::newRow("written") << ied("<in_smv" + attributes("=''") + "/>");
    QTest::newRow("declared") << "<!DOCTYPE ied [<!ATTLIST in_smv" + attributes(" CDATA ''") + ">]>"
            + ied("<in_smv/>");
}

void TestLoader::manyAttributes()
{
    QFETCH(QByteArray, file);
    LumtarEngine engine;
    const DebugLines caught;
    QElapsedTimer timer;
    timer.start();
    load(engine, file);
    QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
}

void TestLoader::encodings_data()
{
    QTest::addColumn<QByteArray>("file");
    const QString text = QString::fromUtf8("<ied><in_smv svId='保护'/></ied>");
    const auto declared = [&text](const char *encoding) {
        return QStringLiteral("<?xml version='1.0' encoding='%1'?>\r\n")
                   .arg(QLatin1String(encoding))
            + text;
    };
    const auto encoded = [](const char *codec, const QString &content) {
        QTextCodec::ConverterState state(QTextCodec::IgnoreHeader); // no byte order mark
        return QTextCodec::codecForName(codec)->fromUnicode(content.constData(),
                                                            int(content.size()), &state);
    };
    QTest::newRow("UTF-8 by default") << text.toUtf8();
    QTest::newRow("UTF-8 with a byte order mark") << "\xef\xbb\xbf" + text.toUtf8();
    QTest::newRow("UTF-8") << declared("UTF-8").toUtf8();
    QTest::newRow("UTF-16, low byte first") << "\xff\xfe" + encoded("UTF-16LE", declared("UTF-16"));
    QTest::newRow("UTF-16, high byte first")
        << "\xfe\xff" + encoded("UTF-16BE", declared("UTF-16"));
    QTest::newRow("GBK") << encoded("GBK", declared("GBK"));
    QTest::newRow("GB2312") << encoded("GBK", declared("gb2312"));
    QTest::newRow("GB18030") << encoded("GB18030", declared("GB18030"));
}

void TestLoader::encodings()
{
    QFETCH(QByteArray, file);
    LumtarEngine engine;
    QCOMPARE(load(engine, file), 1);
    COMPARE_BYTES(
        received(m_board).value(1),
        padded({bytes("8c918c91 00 1d00 3200 ff*6 8100 0000 88ba 0000 0026 0000 0000"
                      "60 1c 80 01 01 a2 17 30 15 80 04 b1a3bba4 82 02 0000 83 04 00000000"
                      "85 01 01 87 00")})
            .first());
}

void TestLoader::pathInGbk()
{
    const QString path = m_directory.filePath(QString::fromUtf8("线路保护.xml"));
    QVERIFY(writeFile(path, "<ied/>"));
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    QByteArray gbk = m_directory.path().toLatin1() + "/\xcf\xdf\xc2\xb7\xb1\xa3\xbb\xa4.xml";
    QCOMPARE(engine.InitGPP(gbk.data()), 1);
    QByteArray utf8 = path.toUtf8();
    QCOMPARE(engine.InitGPP(utf8.data()), 0);
    COMPARE_BYTES(received(m_board), frames({kReset}));
}

void TestLoader::withoutLink()
{
    LumtarEngine engine;
    const QString path = m_directory.filePath(QStringLiteral("configuration.xml"));
    QVERIFY(writeFile(path, ied(QByteArray(kSv) + kGoose)));
    const DebugLines caught;
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(engine.InitGPP(path.toLatin1().data()), 1);
    QVERIFY(timer.elapsed() < 1000);
    QCOMPARE(counters(engine),
             QStringLiteral("sv 1 goose 1 group 1 logic 0 light 1 1 1 1 1 outputs - 0:2 - 0:1"));
}

static const SingleRun singleRun;

QTEST_GUILESS_MAIN(TestLoader)
#include "tst_loader.moc"
