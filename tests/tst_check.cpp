// The check of a configuration: what it says about faulty ones, and where; how "lumtarctl" shows
// it.

#include "tests/testsupport.h"

#include "configuration/suggestion.h"
#include "configuration/testconfiguration.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace testsupport;
using namespace testconfiguration;

namespace {

const char *const kGood = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- 间隔 --><ied desc="间隔">
  <in_smv chNums="2" portindex="1" vlan="065" priority="4" confRev="1" appid="16385"
          mac="01-0C-CD-04-00-01" svId="MU01">
    <chninfo channel="DelayTRtg" delayt="750" quality="0"/>
    <chninfo channel="Ia1" quality="00000000"/>
  </in_smv>
  <in_smv svId="MU02" appid="16386" mac="01-0C-CD-04-00-02" chNums="0" portindex="2" vlan="0" priority="0" confRev="1"/>
  <in_goose portindex="3">
    <goose gcRef="A" datSet="B" goId="C" mac="01-0C-CD-01-00-11" vLan="00C" priority="4" appid="17" confRev="1" t0="5000" datCount="3">
      <entry gstype_tp="13"/>
      <entry gstype_tp="1" desc="间隔>"/>  <entry gstype_tp="3"/>
    </goose>
    <mapinfo Which="1" Pos="1"/>
    <mapinfo Which="2" Pos="2"/>
  </in_goose>
  <In_Goose portindex="3">
    <goose gcRef="D" datSet="E" goId="F" mac="01-0C-CD-01-00-12" vLan="00C" priority="4" appid="18" confRev="1" t0="5000" datCount="0"/>
  </In_Goose>
  <goose portIndex="1" appid="257" datCount="4">
    <mapinfo Which="3" Pos="2"/>
    <mapinfo Which="4" Pos="3"/>
  </goose>
</ied>
)";

const QString kMismatch = QStringLiteral("Opening and ending tag mismatch.");

/// The members of \a object that \a keys names.
QJsonArray members(const QJsonValue &object, const char *keys)
{
    QJsonArray result;
    for (const QString &key : QString::fromLatin1(keys).split(QLatin1Char(' ')))
        result += object.toObject()[key];
    return result;
}

} // namespace

class TestCheck : public QObject
{
    Q_OBJECT

private slots:
    void suggests_data();
    void suggests();
    void tellsProblems_data();
    void tellsProblems();
    void refusesUnreadableFiles_data();
    void refusesUnreadableFiles();
    void tellsStrayBytes_data();
    void tellsStrayBytes();
    void countsWhatItDoesNotShow();
    void showsTheExample();
    void runTellsWarningsAndGoesOn();
    void checksSequences_data();
    void checksSequences();
    void checksPlans_data();
    void checksPlans();

private:
    void lumtarctl(const QStringList &arguments);

    QTemporaryDir m_directory;
    const QString m_file = m_directory.filePath(QString::fromUtf8("\u95f4\u9694.xml"));
    int m_exitStatus = -1;
    QByteArray m_output;
    QString m_errors;
};

void TestCheck::lumtarctl(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(LUMTARCTL), arguments);
    m_exitStatus = process.waitForFinished() && process.exitStatus() == QProcess::NormalExit
        ? process.exitCode()
        : -1;
    m_output = process.readAllStandardOutput();
    m_errors = QString::fromLocal8Bit(process.readAllStandardError());
}

void TestCheck::suggests_data()
{
    addRows(R"(
        letter for digit | Ial   | Va1 Ia1 Ib1     | Ia1
        case             | IA1   | Va1 Ia1         | Ia1
        too short        | Ia    | Va1 Ia1 Ia2     | Ia1
        another phase    | ib1   | Va1 Ia1 Ib1     | Ib1
        letters swapped  | wacth | match wait watch | watch
        letter missing   | wath  | board watch     | watch
        longer word      | onTimout | onTimeout time | onTimeout
        nothing like it  | Sync  | Va1 Ia1         |
        three changes    | baard | watch           |
        one letter       | I     | Ia1 V           |
        nothing          |       | a b             |)");
}

void TestCheck::suggests()
{
    QFETCH(QStringList, row);
    QCOMPARE(suggestion::nearest(row[1], row[2].split(QLatin1Char(' '))), row[3]);
}

void TestCheck::tellsProblems_data()
{
    // name | text of kGood | what it is replaced with, "^" at the place of every problem, LONG for
    // 150 letters | every problem in the order of their places: its severity and a part of it
    QTest::addColumn<QStringList>("row");
    const QString table = QStringLiteral(R"(
        misspelt on SV | <in_smv chNums="2" portindex | ^<in_smv chNums="2" ^portIndex | error: portindex of in_smv is missing and counts as 0; allowed is 1 to 8 | warning: portIndex of in_smv is not read; did you mean portindex?
        unknown attribute | svId="MU01" | svId="MU01" ^colour="red" | warning: attribute colour of in_smv
        unknown element | <in_goose p | ^<in_gose/><in_goose p | warning: element in_gose
        no frame | <in_goose p | ^<in_goose portindex="1"/><in_goose p | error: has no goose
        two frames | <mapinfo Which="1" | ^<goose gcRef="x" datSet="x" goId="x" mac="01-0C-CD-01-00-33" vLan="0" priority="0" appid="1" confRev="1" t0="1" datCount="0"/><mapinfo Which="1" | error: only the first goose
        port | portindex="2" | ^portindex="9" | error: portindex of in_smv is "9"
        VLAN of 13 bits | vlan="065" | ^vlan="1000" | error: vlan of in_smv is "1000"; allowed is 0 to FFF, hexadecimal
        hexadecimal appid | appid="16385" | ^appid="0x4001" | error: appid of in_smv is "0x4001"; allowed is 0 to 65535
        APPID of SV | appid="16385" | ^appid="32768" | warning: appid 32768 (0x8000) is outside 16384 to 32767, which IEC 61850-9-2 recommends
        MAC of five bytes | mac="01-0C-CD-04-00-01" | ^mac="01-0C-CD-04-00" | error: mac of in_smv is
        MAC of odd digits | mac="01-0C-CD-04-00-01" | ^^mac="01-0C-CD-4-00-01" | error: mac of in_smv is | warning: mac 00-10-CC-D4-00-01 is outside
        MAC with colons | mac="01-0C-CD-04-00-01" | ^mac="01:0C:CD:04:00:01" | warning: mac of in_smv is
        long value | vlan="065" | ^vlan="LONGLONGLONG" | error: x…x
        attributes in unusual ways | <in_smv chNums="2" portindex="1" | <in_smv desc='portindex="1" >' chNums = "2"  ^portindex= '9' ^x='>' | error: portindex of in_smv is "9" | warning: attribute x of in_smv
        MAC of SV | mac="01-0C-CD-04-00-01" | ^mac="01-0C-CD-04-02-00" | warning: outside 01-0C-CD-04-00-00 to 01-0C-CD-04-01-FF
        same address twice | <in_smv svId="MU02" appid="16386" mac="01-0C-CD-04-00-02" | ^<in_smv svId="MU02" appid="16385" mac="01-0C-CD-04-00-01" | warning: the same SV APPID as in line 3
        same GOOSE address | <goose gcRef="D" datSet="E" goId="F" mac="01-0C-CD-01-00-12" vLan="00C" priority="4" appid="18" | ^^<goose gcRef="D" datSet="E" goId="F" mac="01-0C-CD-01-00-11" vLan="00C" priority="4" appid="17" | warning: the same GOOSE APPID as in line | warning: the same GOOSE destination MAC as in line
        quality missing | <chninfo channel="Ia1" quality="00000000"/> | <chninfo channel="Ia1"/>
        letter for a digit | channel="Ia1" | ^channel="Ial" | warning: no analog output feeds channel Ial; did you mean Ia1?
        digit missing | channel="Ia1" | ^channel="IB" | warning: did you mean Ib1?
        name within a name | channel="Ia1" | channel="MeasIa1"
        no output's name | channel="Ia1" | channel="SyncV"
        same svID twice | <in_smv svId="MU02" | ^<in_smv svId="MU01" | warning: the same svID as in line 3
        same subscription twice | </ied> | ^<goose portIndex="1" appid="257" datCount="1"><mapinfo Which="1" Pos="1"/></goose></ied> | warning: the same port and APPID
        svID beyond ASCII | svId="MU01" | ^svId="间" | warning: besides printable ASCII
        frame too long | <in_smv svId="MU02" appid="16386" mac="01-0C-CD-04-00-02" chNums="0" | ^<in_smv svId="MU2" appid="16386" mac="01-0C-CD-04-00-02" ^chNums="182" | error: the frame of 1519 bytes | warning: 0 chninfo
        command too long | <in_smv svId="MU02" appid="16386" mac="01-0C-CD-04-00-02" chNums="0" | ^<in_smv svId="MU02xxxx" appid="16386" mac="01-0C-CD-04-00-02" ^chNums="189" | error: a command of 1589 bytes; the most is 1588 | warning: 0 chninfo
        surplus channel | <in_smv chNums="2" | ^<in_smv chNums="1" | error: 1 chninfo beyond the 1
        refused stream | <in_smv chNums="2" | ^<in_smv chNums="256" | error: refused, chNums 256
        delay of a current | "Ia1" q | "Ia1" ^delayt="1" q | warning: delayt of chninfo is not read in a channel without DelayT
        delay missing | <chninfo channel="DelayTRtg" delayt="750" | ^<chninfo channel="DelayTRtg" | warning: delayt of chninfo is missing
        lifetime 0 | t0="5000" | ^t0="0" | warning: timeAllowedtoLive
        lifetime negative | t0="5000" | ^t0="16384" | warning: timeAllowedtoLive, twice t0, is sent in its fewest bytes
        lifetime negative in one byte | t0="5000" | ^t0="64" | warning: reads it as negative
        lifetime negative in three bytes | t0="5000" | ^t0="4194304" | warning: reads it as negative
        lifetime with a byte to spare | t0="5000" | t0="16385"
        confRev of SV | confRev="1" appid | confRev="4294967295" appid
        confRev beyond its byte | confRev="1" t0="5000" | ^confRev="10001" t0="5000" | warning: confRev 10001 is sent as 17
        confRev negative in its byte | confRev="1" t0="5000" | ^^confRev="384" t0="5000" | warning: reads it as negative | warning: confRev 384 is sent as 128
        confRev beyond the standard | confRev="1" t0="5000" | ^confRev="4294967296" t0="5000" | error: confRev of goose is "4294967296"
        confRev negative | confRev="1" t0="5000" | ^confRev="128" t0="5000" | warning: confRev is sent in its fewest bytes
        surplus entry | <entry gstype_tp="3"/> | <entry gstype_tp="3"/>^<entry gstype_tp="1"/> | error: 1 entries beyond the 3
        entry missing | datCount="3" | ^datCount="4" | error: datCount is 4, but there are 3 entries
        unknown type | gstype_tp="3" | ^gstype_tp="8" | error: gstype_tp of entry is "8", which is no known type code
        type missing | <entry gstype_tp="3"/> | ^<entry/> | error: gstype_tp of entry is missing
        integer bound | <mapinfo Which="2" Pos="2" | ^<mapinfo Which="2" Pos="3" | error: Pos 3 names no boolean
        output bound twice | <mapinfo Which="2" | ^<mapinfo Which="1" | warning: output 1 was bound to entry 1 of GOOSE stream 0
        entry bound twice | <mapinfo Which="2" Pos="2" | ^<mapinfo Which="2" Pos="1" | warning: Pos 1 is bound to output 1 too
        stNum out of reach | <goose gcRef="A" datSet="B" | ^^^<goose ^gcRef="LONG" ^datSet="LONG" | warning: t is at byte 345 | warning: sqNum is at byte 361 | error: stNum is at byte 355 | warning: has 150 characters | warning: has 150 characters
        stNum without binding | <goose gcRef="D" datSet="E" | ^^^<goose ^gcRef="LONG" ^datSet="LONG" | warning: t is at | warning: sqNum is at | warning: stNum is at | warning: has 150 | warning: has 150
        Which of a subscription | Which="3" | ^Which="5" | error: Which 5 is above 4
        nothing mapped | </ied> | ^<goose portIndex="1" appid="258" datCount="1"/></ied> | error: maps no entry
        mapped twice | Which="4" Pos="3" | Which="4" ^Pos="2" | error: Pos 2 is mapped twice
        mapped backwards | Which="4" Pos="3" | Which="4" ^Pos="1" | warning: Pos 1 is listed after Pos 2
        long subscription | <goose portIndex="1" appid="257" datCount="4" | ^<goose portIndex="1" appid="257" datCount="3153" | error: a command of 1589 bytes; the most is 1588)");
    for (const QString &line : table.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        QStringList cells = line.split(QLatin1String(" | "));
        QTest::newRow(qPrintable(cells[0].trimmed())) << QStringList(cells.mid(1));
    }
}

void TestCheck::tellsProblems()
{
    QFETCH(QStringList, row);
    QString text = QString::fromUtf8(kGood);
    QVERIFY(text.contains(row[0]));
    text.replace(text.indexOf(row[0]), row[0].size(), row[1]);
    text.replace(QLatin1String("LONG"), QString(150, QLatin1Char('x')));
    const QStringList places = takeMarks(text);
    QCOMPARE(places.size(), row.size() - 2);

    QString withReturns = text;
    withReturns.replace(QLatin1Char('\n'), QLatin1String("\r\n"));
    QString inUtf16 = text;
    inUtf16.replace(QLatin1String("encoding=\"UTF-8\""), QLatin1String("encoding='UTF16'"));
    const QByteArray utf16(reinterpret_cast<const char *>(inUtf16.utf16()),
                           2 * int(inUtf16.size()));
    for (const QByteArray &file : {text.toUtf8(), withReturns.toUtf8(), utf16}) {
        QVERIFY(writeFile(m_file, file));
        const CheckedConfiguration checked = check(Document::read(m_file), 4000);
        QStringList lines;
        for (const Remark &each : checked.remarks)
            lines += toString(each, QStringLiteral("F"));
        const QByteArray all = lines.join(QLatin1Char('\n')).toUtf8();
        QVERIFY2(lines.size() == places.size(), all.constData());
        for (int i = 0; i < places.size(); ++i) {
            const QStringList expected = row[i + 2].split(QLatin1String(": "));
            const QString start = QStringLiteral("F:%1: %2: ").arg(places[i], expected[0]);
            QVERIFY2(lines[i].startsWith(start) && lines[i].contains(expected[1]), all.constData());
        }
        QCOMPARE(checked.errors, int(lines.filter(QLatin1String(": error: ")).size()));
        QCOMPARE(checked.errors + checked.warnings, int(lines.size()));
    }
}

void TestCheck::refusesUnreadableFiles_data()
{
    QTest::addColumn<QString>("path"); // PIPE: one that nobody writes to
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("error"); // with the place
    const auto path = [](const char *where, const QString &error) {
        QTest::newRow(where) << where << QByteArray() << ": error: " + error;
    };
    path("none", QStringLiteral("no such file"));
    path("/", QStringLiteral("is a directory, not a file"));
    path("/dev/null", QStringLiteral("is a device, not a file"));
    path("PIPE", QStringLiteral("is a pipe, not a file"));
    const auto file = [](const char *name, const QByteArray &content, const QString &error) {
        QTest::newRow(name) << QString() << content << error;
    };
    file("empty", "", QStringLiteral(": error: is empty"));
    file("blank", "\xef\xbb\xbf \n", QStringLiteral(": error: is empty"));
    file("not closed", "<ied>\n<goose></ied>", QStringLiteral(":2:8: error: ") + kMismatch);
    file("cut short", "<ied>\n", QStringLiteral(":1:6: error: Premature end of document."));
    file("no character in a comment", "<ied>\n<!-- a\n b\x01 --></ied>",
         QStringLiteral(":3:3: error: Invalid XML character."));
    file("other root", "\n <scl/>",
         QStringLiteral(":2:2: error: the root element is scl, not ied"));
    file("station file", "<scl:SCL><x></scl:SCL>",
         QStringLiteral(":1:1: error: the root element is scl:SCL, not ied: this is a station file "
                        "of IEC 61850-6; a test configuration is wanted"));
    file("unknown encoding", "<?xml version='1.0'\n encoding='KLINGON'?><ied/>",
         QStringLiteral(":2:12: error: the encoding KLINGON is unknown"));
    file("other encoding", "<?xml version='1.0' encoding='UTF-16'?><ied/>",
         QStringLiteral(":1:31: error: the file is not in UTF-16, which it declares"));
    file("no UTF-8", "<ied>\n <!-- \xef\xbf\xbd \xc3\xa4\xe4 --></ied>",
         QStringLiteral(":2:10: error: the byte e4 is no UTF-8"));
    file("cut UTF-8", "<ied>\xe9\x97\n</ied>",
         QStringLiteral(":1:6: error: the byte e9 is no UTF-8"));
}

void TestCheck::refusesUnreadableFiles()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, content);
    QFETCH(QString, error);
    if (path == QLatin1String("PIPE")) {
        path = m_directory.filePath(QStringLiteral("pipe"));
        QCOMPARE(mkfifo(qPrintable(path), 0600), 0);
    } else if (path.isEmpty()) {
        path = m_file;
        QVERIFY(writeFile(path, content));
    }
    lumtarctl({QStringLiteral("check"), path});
    QCOMPARE(m_exitStatus, 2);
    QVERIFY2(QString::fromUtf8(m_output).startsWith(path + error), m_output.constData());
    QVERIFY(m_output.endsWith("\n\n 1 error, 0 warnings\n"));
}

void TestCheck::tellsStrayBytes_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("remark"); // none: empty
    const QByteArray gbk = "<?xml version='1.0' encoding='GBK'?>\n<ied><in_goose/><!-- \xbc\xe4";
    QTest::newRow("GBK") << gbk + " --></ied>" << QString();
    QTest::newRow("no GBK") << gbk + "\xbc --></ied>"
                            << QStringLiteral(
                                   "F:2:23: warning: bytes that are no GBK are replaced");
    QTest::newRow("replaced already")
        << QByteArray("<ied><in_goose/><!-- \xef\xbf\xbd --></ied>") << QString();
    QTest::newRow("behind the end") << QByteArray("<ied><in_goose/></ied>\n\xe9\x97")
                                    << QStringLiteral("F:2:1: warning: the byte e9 is no UTF-8");
}

void TestCheck::tellsStrayBytes()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, remark);
    QVERIFY(writeFile(m_file, file));
    const CheckedConfiguration checked = check(Document::read(m_file), 4000);
    QVERIFY(checked.isRead());
    QStringList told;
    for (const Remark &each : checked.remarks)
        told += toString(each, QStringLiteral("F"));
    told = told.filter(QRegularExpression(QStringLiteral("bytes? ")));
    QCOMPARE(int(told.size()), remark.isEmpty() ? 0 : 1);
    QVERIFY2(told.value(0).startsWith(remark), qPrintable(told.value(0)));
}

void TestCheck::countsWhatItDoesNotShow()
{
    QVERIFY(writeFile(m_file, "<ied>" + QByteArray("<x/>").repeated(3000) + "<goose/></ied>"));
    const CheckedConfiguration checked = check(Document::read(m_file), 4000);
    QCOMPARE(checked.errors, 1);
    QCOMPARE(checked.warnings, 3000 + 3);
    QCOMPARE(int(checked.remarks.size()), 1000 + 1);
    lumtarctl({QStringLiteral("check"), m_file});
    QCOMPARE(m_exitStatus, 2);
    QVERIFY(m_output.endsWith("and 2904 more problems\n\n 1 error, 3003 warnings\n"));
    QCOMPARE(m_output.count(": warning: "), 99);
    QCOMPARE(m_output.count(": error: "), 1);
    lumtarctl({QStringLiteral("check"), QStringLiteral("--json"), m_file});
    const QJsonObject all = QJsonDocument::fromJson(m_output).object();
    QCOMPARE(members(all, "errors warnings problemsLeftOut"), QJsonArray({1, 3003, 2003}));
    QCOMPARE(all[QLatin1String("problems")].toArray().size(), 1001);
}

void TestCheck::showsTheExample()
{
    // As the board made of software reports what it receives.
    const QStringList expected = QStringLiteral(R"(
0 1 01-0C-CD-04-00-01 101 (0x065) 4 16385 (0x4001) 22 254 263
Stream 0 svID E1Q01MU01/LLN0.MSVCB01 confRev 1 smpCnt at 64 dataset at 78 channels 1:DelayTRtg=750 2:Ia1=Ia1
10:MeasIa1=Ia1
22:SyncV2=–
1 3 01-0C-CD-01-00-12 12 (0x00c) 4 18 (0x0012) 4 10000 154 163
datSet E1Q00BP01/LLN0$dsTrip goID E1Q00BP01.Trip confRev 1 t at 98 stNum at 108 sqNum at 114 dataset 1-2 boolean 3 integer 4 UTC time
3 0 5 boolean 4 1 2 boolean
2 1 2 258 (0x0102) 4 14
Group 2 entry→logic input 1→4 3→5
0 errors, 0 warnings)")
                                     .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    const QString example = QFINDTESTDATA("../examples/feeder-bay.xml");
    lumtarctl({QStringLiteral("check"), example});
    QCOMPARE(m_exitStatus, 0);
    for (const QString &each : expected)
        QVERIFY2(QString::fromUtf8(m_output).simplified().contains(each), qPrintable(each));

    lumtarctl({QStringLiteral("check"), QStringLiteral("--json"), example});
    const QJsonObject all = QJsonDocument::fromJson(m_output).object(); // all that is printed
    QCOMPARE(members(all, "errors warnings problems"), QJsonArray({0, 0, QJsonArray()}));
    QCOMPARE(members(all[QLatin1String("gooseStreams")].toArray()[1],
                     "port destinationMac vlanId appId gocbRef stNumOffset frameSize"),
             QJsonArray({3, "01-0C-CD-01-00-12", 12, 18, "E1Q00BP01/LLN0$GO$gocb1", 108, 154}));
}

void TestCheck::runTellsWarningsAndGoesOn()
{
    const SingleRun alone;
    virtualboard::LinkResponder board(boardAddress());
    QVERIFY(
        board.start()
        && writeFile(m_file, QByteArray(kGood).replace("01-0C-CD-04-00-01", "01:0C:CD:04:00:01")));
    const QString sequence = m_directory.filePath(QStringLiteral("sequence.json"));
    QVERIFY(writeFile(sequence, R"({"steps": [{"name": "fault", "time": 1, "onTimeout": "end",
                                    "outputs": {"Ia1": {"amplitude": 1, "phase": 0}}}]})"));
    lumtarctl({QStringLiteral("run"), QStringLiteral("--board"), boardAddress().toString(),
               QStringLiteral("--local-port"), QString::number(localPort()),
               QStringLiteral("--config"), m_file, QStringLiteral("--sequence"), sequence});
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    QVERIFY2(m_errors.startsWith(QStringLiteral("lumtarctl: %1:4:11: warning: mac of").arg(m_file)),
             qPrintable(m_errors));
    QCOMPARE(m_errors.count(QLatin1Char('\n')), 1);
    lumtarctl({QStringLiteral("check"), m_file});
    QCOMPARE(m_exitStatus, 1);
}

void TestCheck::checksSequences_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("exitStatus");
    QTest::addColumn<QStringList>("parts"); // of what is printed
    const QByteArray good = R"({"steps": [{"name": "a", "time": 1, "onTimeout": "end", )"
                            R"("outputs": {}}]})";
    QTest::newRow("good") << good << 0
                          << QStringList{QStringLiteral("1 step, 4000 samples per second"),
                                         QStringLiteral("step 0  a"),
                                         QStringLiteral("0 errors, 0 warnings")};
    QTest::newRow("byte order mark")
        << "\xef\xbb\xbf\n " + good << 0 << QStringList{QStringLiteral("1 step, 4000")};
    QTest::newRow("warning") << QByteArray(good).replace("1,", "0,") << 1
                             << QStringList{QStringLiteral(":1:34: warning: steps[0].time (a): "),
                                            QStringLiteral("0 errors, 1 warning\n")};
    QTest::newRow("errors") << QByteArray(good).replace("1,", "-1,").replace("end", "eng") << 2
                            << QStringList{QStringLiteral(":1:34: error: steps[0].time (a): -1 is"),
                                           QStringLiteral(":1:51: error: steps[0].onTimeout (a): "),
                                           QStringLiteral("2 errors, 0 warnings")};
    QTest::newRow("no JSON") << QByteArray("{]") << 2
                             << QStringList{QStringLiteral(":1:3: error:")};
    QTest::newRow("list") << QByteArray("[1]") << 2
                          << QStringList{QStringLiteral(":1:1: error: must be an object")};
    QByteArray many;
    for (int i = 0; i < 150; ++i)
        many += ", \"k" + QByteArray::number(i) + "\": 0";
    QTest::newRow("many errors") << QByteArray(good).replace("]}", "]" + many + "}") << 2
                                 << QStringList{QStringLiteral("k99: unknown"),
                                                QStringLiteral(": and 50 more problems\n"),
                                                QStringLiteral("150 errors, 0 warnings")};
}

/// Whatever the file is called.
void TestCheck::checksSequences()
{
    QFETCH(QByteArray, json);
    QFETCH(int, exitStatus);
    QFETCH(QStringList, parts);
    QVERIFY(writeFile(m_file, json));
    lumtarctl({QStringLiteral("check"), m_file});
    const QString printed = QString::fromUtf8(m_output);
    QVERIFY2(m_exitStatus == exitStatus, qPrintable(printed + m_errors));
    for (const QString &part : parts)
        QVERIFY2(printed.contains(part), qPrintable(printed));
    lumtarctl({QStringLiteral("check"), QStringLiteral("--json"), m_file});
    QCOMPARE(m_exitStatus, exitStatus);
    const QJsonObject report = QJsonDocument::fromJson(m_output).object();
    QCOMPARE(report[QLatin1String("errors")].toInt() > 0, exitStatus == 2);
    QCOMPARE(report.contains(QLatin1String("content")), exitStatus < 2);
    QCOMPARE(report[QLatin1String("problems")].toArray().isEmpty(), exitStatus == 0);
    if (exitStatus < 2)
        QCOMPARE(report[QLatin1String("content")][QLatin1String("steps")].toArray().size(), 1);
    lumtarctl({QStringLiteral("check"), m_file, QStringLiteral("--sequence"), m_file});
    QCOMPARE(m_exitStatus, 2);
    QVERIFY2(m_errors.contains(QLatin1String("is a state sequence")), qPrintable(m_errors));
}

void TestCheck::checksPlans_data()
{
    // name | text of the example | what it is replaced with | exit status | a part of what is
    // printed
    addRows(R"(
        good | 0.03 | 0.02 | 0 | instantaneous overcurrent: 1 shot
        word | "enter": "fault" | "enter": "fualt" | 2 | :12:64: error: cases[0].assessments[0].time.from.enter: "fualt"
        value | "device" | "parameters": {"I": 1e8}, "device" | 2 | :7:5: error: cases[0]: the sequence cannot be played
        no configuration | feeder-bay.xml | nowhere.xml | 2 | nowhere.xml: error: no such file
        not fed | "0": "trip A" | "9": "trip A" | 2 | no subscription feeds logic channel 9 (trip A))");
}

/// With the sequence and the configuration that it names.
void TestCheck::checksPlans()
{
    QFETCH(QStringList, row);
    const QString examples = QFINDTESTDATA("../examples/");
    QFile example(examples + QStringLiteral("feeder-test/too-slow.json"));
    QVERIFY(example.open(QIODevice::ReadOnly));
    QString text = QString::fromUtf8(example.readAll());
    QVERIFY(text.contains(row[1]));
    text.replace(row[1], row[2]);
    text.replace(QLatin1String("\"../"), QLatin1Char('"') + examples);
    text.replace(QLatin1String("fault.json"), examples + QStringLiteral("feeder-test/fault.json"));
    QVERIFY(writeFile(m_file, text.toUtf8()));
    lumtarctl({QStringLiteral("check"), m_file});
    const QString printed = QString::fromUtf8(m_output);
    QCOMPARE(QString::number(m_exitStatus), row[3]);
    QVERIFY2(printed.contains(row[4]), qPrintable(printed + m_errors));
    lumtarctl({QStringLiteral("check"), QStringLiteral("--json"), m_file});
    const QJsonObject report = QJsonDocument::fromJson(m_output).object();
    QCOMPARE(report[QLatin1String("errors")].toInt() > 0, row[3] == QLatin1String("2"));
    lumtarctl({QStringLiteral("check"), m_file, QStringLiteral("--sequence"), m_file});
    QVERIFY2(m_errors.contains(QLatin1String("is a test plan")), qPrintable(m_errors));
}

QTEST_GUILESS_MAIN(TestCheck)
#include "tst_check.moc"
