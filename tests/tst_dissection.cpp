// What an independent protocol analyser reads in the frame templates of a configuration.

#include "tests/testsupport.h"
#include "tests/writecapture.h"

#include "engine/lumtarengine.h"

#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace testsupport;
using virtualboard::LinkResponder;

namespace {

const char kConfiguration[] = R"(<ied>
  <in_smv mac="01-0C-CD-04-00-01" vlan="123" appid="16385" priority="5" svId="MU01/LLN0.smv"
          confRev="70000" portindex="1" chNums="3">
    <chninfo quality="00000000" channel="DelayTRtg" delayt="750"/>
    <chninfo quality="00002000" channel="ia1"/>
  </in_smv>
  <in_smv mac="01-0C-CD-04-01-FF" vlan="FFF" appid="32767" priority="0" chNums="170"
          svId="%2"/>
  <in_goose portindex="2">
    <goose mac="01-0C-CD-01-00-01" priority="4" vLan="A" appid="12288" gcRef="PROT/LLN0$GO$gocb1"
           confRev="3" t0="20000" datSet="PROT/LLN0$trip" goId="trip" datCount="11">
      <e gstype_tp="1"/><e gstype_tp="13"/><e gstype_tp="2"/><e gstype_tp="3"/><e gstype_tp="15"/>
      <e gstype_tp="16"/><e gstype_tp="7"/><e gstype_tp="12"/><e gstype_tp="137"/>
      <e gstype_tp="141"/><e gstype_tp="5"/>
    </goose>
  </in_goose>
  <in_goose>
    <goose mac="01-0C-CD-01-01-FF" appid="1" gcRef="G" datSet="D" goId="I" t0="500" datCount="200">%1</goose>
  </in_goose>
</ied>)";

const QString kLongSvId = QStringLiteral("svID").repeated(35); // its length takes two bytes

const QStringList kFields = {"_ws.malformed",
                             "_ws.expert.message",
                             "eth.dst",
                             "eth.src",
                             "vlan.priority",
                             "vlan.id",
                             "sv.appid",
                             "sv.length",
                             "sv.noASDU",
                             "sv.svID",
                             "sv.smpCnt",
                             "sv.confRev",
                             "sv.smpSynch",
                             "sv.meas_value",
                             "sv.meas_quality",
                             "goose.appid",
                             "goose.length",
                             "goose.gocbRef",
                             "goose.timeAllowedtoLive",
                             "goose.datSet",
                             "goose.goID",
                             "goose.t",
                             "goose.stNum",
                             "goose.sqNum",
                             "goose.simulation",
                             "goose.confRev",
                             "goose.ndsCom",
                             "goose.numDatSetEntries",
                             "goose.allData",
                             "goose.Data",
                             "goose.boolean",
                             "goose.bit_string",
                             "goose.unsigned",
                             "goose.integer",
                             "goose.floating_point",
                             "goose.visible_string",
                             "goose.octet_string",
                             "goose.bcd"};

} // namespace

class TestDissection : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void fields_data();
    void fields();

private:
    QVector<QStringList> m_packets; ///< values of kFields per packet
};

void TestDissection::initTestCase()
{
    const QString tshark = QStandardPaths::findExecutable(QStringLiteral("tshark"));
    if (tshark.isEmpty())
        QSKIP("tshark is not installed: the frame templates are not dissected");

    const QTemporaryDir directory;
    const QString configuration = directory.filePath(QStringLiteral("configuration.xml"));
    const QString pcap = directory.filePath(QStringLiteral("templates.pcap"));
    QByteArray xml = kConfiguration;
    xml.replace("%1", QByteArray("<e gstype_tp='1'/>").repeated(200))
        .replace("%2", kLongSvId.toLatin1());
    QVERIFY(writeFile(configuration, xml));
    LinkResponder board(boardAddress());
    QVERIFY(board.start());
    LumtarEngine engine;
    QCOMPARE(engine.SetUdpConnect(localPort(), boardAddress()), 1);
    QCOMPARE(engine.InitGPP(configuration.toLatin1().data()), 1);
    Frames ethernet;
    for (const QByteArray &command : received(board)) {
        if (command.startsWith(bytes("8c918c91"))) {
            const int size = uchar(command.at(7)) + 256 * uchar(command.at(8));
            ethernet += command.mid(9, size);
        }
    }
    QVERIFY(writeCapture(pcap, DLT_EN10MB, ethernet));

    QStringList arguments = {
        QStringLiteral("-r"), pcap,
        QStringLiteral("-T"), QStringLiteral("fields"),
        QStringLiteral("-o"), QStringLiteral("sv.decode_data_as_phsmeas:TRUE")};
    for (const QString &field : kFields)
        arguments << QStringLiteral("-e") << field;
    QProcess analyser;
    analyser.start(tshark, arguments);
    QVERIFY2(analyser.waitForFinished(60000) && analyser.exitCode() == 0,
             analyser.readAllStandardError().constData());
    const QString output = QString::fromUtf8(analyser.readAllStandardOutput());
    for (const QString &line : output.split(QLatin1Char('\n')))
        m_packets += line.split(QLatin1Char('\t'));
    QCOMPARE(int(m_packets.size()), 4 + 1); // the last line is empty
}

void TestDissection::fields_data()
{
    QTest::addColumn<int>("packet");
    QTest::addColumn<QMap<QString, QString>>("values"); // other fields must be missing
    const auto row = [](const char *name, int packet, QMap<QString, QString> values) {
        // Templates carry the broadcast address as their source by design, which is no sender's.
        values[QStringLiteral("_ws.expert.message")] = QStringLiteral(
            "Source MAC must not be a group address: IEEE 802.3-2002, Section 3.2.3(b)");
        values[QStringLiteral("eth.src")] = QStringLiteral("ff:ff:ff:ff:ff:ff");
        QTest::newRow(name) << packet << values;
    };
    const auto many = [](const char *value, int count) {
        return QString(QLatin1String(value) + QLatin1Char(',')).repeated(count).chopped(1);
    };
    row("SV stream", 0,
        {{"eth.dst", "01:0c:cd:04:00:01"},
         {"vlan.priority", "5"},
         {"vlan.id", "291"},
         {"sv.appid", "0x4001"},
         {"sv.length", "71"},
         {"sv.noASDU", "1"},
         {"sv.svID", "MU01/LLN0.smv"},
         {"sv.smpCnt", "0"},
         {"sv.confRev", "70000"},
         {"sv.smpSynch", "1"},
         {"sv.meas_value", "750,0,0"},
         {"sv.meas_quality", "0x00000000,0x00200000,0x00000000"}});
    row("SV stream with long lengths", 1,
        {{"eth.dst", "01:0c:cd:04:01:ff"},
         {"vlan.priority", "0"},
         {"vlan.id", "4095"},
         {"sv.appid", "0x7fff"},
         {"sv.length", "1543"},
         {"sv.noASDU", "1"},
         {"sv.svID", kLongSvId},
         {"sv.smpCnt", "0"},
         {"sv.confRev", "0"},
         {"sv.smpSynch", "1"},
         {"sv.meas_value", many("0", 170)},
         {"sv.meas_quality", many("0x00000000", 170)}});
    row("GOOSE stream", 2,
        {{"eth.dst", "01:0c:cd:01:00:01"},
         {"vlan.priority", "4"},
         {"vlan.id", "10"},
         {"goose.appid", "0x3000"},
         {"goose.length", "146"},
         {"goose.gocbRef", "PROT/LLN0$GO$gocb1"},
         {"goose.timeAllowedtoLive", "40000"},
         {"goose.datSet", "PROT/LLN0$trip"},
         {"goose.goID", "trip"},
         {"goose.t", "Jan  1, 1970 00:00:00.000000000 UTC"},
         {"goose.stNum", "1"},
         {"goose.sqNum", "0"},
         {"goose.simulation", "0"},
         {"goose.confRev", "3"},
         {"goose.ndsCom", "0"},
         {"goose.numDatSetEntries", "11"},
         {"goose.allData", "11"},
         {"goose.Data", "3,4,6,5,5,5,7,10,9,13,17"},
         {"goose.boolean", "0"},
         {"goose.bit_string", "40"},
         {"goose.unsigned", "0"},
         {"goose.integer", "0,0,0"},
         {"goose.floating_point", "0000000000"},
         {"goose.visible_string", "ab"},
         {"goose.octet_string", "0000"},
         {"goose.bcd", "0"}});
    row("GOOSE stream with long lengths", 3,
        {{"eth.dst", "01:0c:cd:01:01:ff"},
         {"vlan.priority", "0"},
         {"vlan.id", "0"},
         {"goose.appid", "0x0001"},
         {"goose.length", "664"},
         {"goose.gocbRef", "G"},
         {"goose.timeAllowedtoLive", "1000"},
         {"goose.datSet", "D"},
         {"goose.goID", "I"},
         {"goose.t", "Jan  1, 1970 00:00:00.000000000 UTC"},
         {"goose.stNum", "1"},
         {"goose.sqNum", "0"},
         {"goose.simulation", "0"},
         {"goose.confRev", "0"},
         {"goose.ndsCom", "0"},
         {"goose.numDatSetEntries", "200"},
         {"goose.allData", "200"},
         {"goose.Data", many("3", 200)},
         {"goose.boolean", many("0", 200)}});
}

void TestDissection::fields()
{
    using Values = QMap<QString, QString>;
    QFETCH(int, packet);
    QFETCH(Values, values);
    for (int i = 0; i < kFields.size(); ++i)
        QCOMPARE(kFields.at(i) + '=' + m_packets.at(packet).value(i),
                 kFields.at(i) + '=' + values.value(kFields.at(i)));
}

static const SingleRun singleRun;

QTEST_GUILESS_MAIN(TestDissection)
#include "tst_dissection.moc"
