// The Wireshark dissector, run by tshark over a load and a sequence as they passed between the
// engine and the board, over the application's own commands, and over damaged datagrams.

#include "tests/testsupport.h"
#include "tests/writecapture.h"

#include "engine/lumtarengine.h"
#include "virtualboard/board/boardstatus.h"
#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"

#include <QDataStream>
#include <QNetworkDatagram>
#include <QProcess>
#include <QRandomGenerator>
#include <QSemaphore>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QUdpSocket>

using namespace testsupport;

namespace {

struct Datagram
{
    bool fromBoard;
    QByteArray bytes;
};
using Capture = QVector<Datagram>;

/// Stands between the engine and the board and keeps every datagram that passes.
class Tap : public QThread
{
public:
    QSemaphore ready;
    bool bound = false;
    Capture passed; ///< complete once the engine has its answer

protected:
    void run() override
    {
        QUdpSocket socket;
        bound = socket.bind(boardAddress(0), 2001);
        ready.release();
        QNetworkDatagram command;
        connect(&socket, &QUdpSocket::readyRead, &socket, [&] {
            while (socket.hasPendingDatagrams()) {
                const QNetworkDatagram datagram = socket.receiveDatagram();
                const bool fromBoard = datagram.senderAddress() == boardAddress(1);
                passed.append({fromBoard, datagram.data()});
                if (fromBoard) {
                    socket.writeDatagram(datagram.data(), command.senderAddress(),
                                         quint16(command.senderPort()));
                } else {
                    command = datagram;
                    socket.writeDatagram(datagram.data(), boardAddress(1), 2001);
                }
            }
        });
        exec();
    }
};

Frames ipPackets(const Capture &capture)
{
    constexpr quint32 kEngine = 0x7f000001, kBoard = 0x7f000002;
    constexpr quint16 kEnginePort = 20000, kBoardPort = 2001;
    Frames packets;
    for (const Datagram &datagram : capture) {
        const auto udpSize = quint16(8 + datagram.bytes.size());
        const auto ipSize = quint16(20 + udpSize);
        QByteArray packet;
        QDataStream out(&packet, QIODevice::WriteOnly);
        out << quint16(0x4500) << ipSize << quint32(0) << quint16(0x4011) << quint16(0);
        if (datagram.fromBoard)
            out << kBoard << kEngine << kBoardPort << kEnginePort;
        else
            out << kEngine << kBoard << kEnginePort << kBoardPort;
        out << udpSize << quint16(0);
        out.writeRawData(datagram.bytes.constData(), int(datagram.bytes.size()));
        packets += packet;
    }
    return packets;
}

/// A packet, found by the first bytes of its command frame, and what must be shown of it.
struct Row
{
    const char *name;
    const char *frame;
    const char *fields; ///< "name=value; ..."; ".name" stands for "lumtar.name"
    int later = 0; ///< 1: the first packet after that command, 2: the second
    int damaged = 0; ///< in damagedRows: the byte of the datagram whose lowest bit is inverted
};

/// What examples/feeder-bay.xml and configureSequence() say.
const QVector<Row> engineRows = {
    {"reset", "8c908c9002", ".command=Reset message parameters; .length=8"},
    {"SV template", "8c918c9100",
     ".command=Frame template; .stream=0; .frame_kind=0; .port=1; .frame_length=254; "
     "eth.dst=01:0c:cd:04:00:01; eth.src=ff:ff:ff:ff:ff:ff; vlan.id=101; vlan.priority=4; "
     "sv.appid=0x4001; sv.svID=E1Q01MU01/LLN0.MSVCB01; sv.confRev=1; _ws.col.Source=127.0.0.1; "
     "sv.meas_value=750,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0; "
     "_ws.col.Info=Frame template  SV stream 0  port 1  254 bytes to 01:0c:cd:04:00:01"},
    {"SV description", "8c908c900400",
     ".command=SV stream description; .stream=0; .protocol=0; .smpcnt.offset=64; .number=0; "
     ".smpcnt.start=0; .smpcnt.wrap=4000; .dataset.offset=78; .channel_count=22; "
     ".channel_kind=255,0,1,2,3,4,5,6,7,0,2,4,8,9,10,11,12,13,14,15,255,255"},
    {"GOOSE template", "8c918c9140",
     ".stream=0; .frame_kind=1; .port=3; eth.dst=01:0c:cd:01:00:11; vlan.id=12; goose.stNum=1; "
     "goose.appid=0x0011; goose.gocbRef=E1Q01SC01/LLN0$GO$gocb1; goose.confRev=1; "
     "goose.datSet=E1Q01SC01/LLN0$dsPosition; goose.goID=E1Q01SC01.Position; "
     "goose.timeAllowedtoLive=10000; goose.numDatSetEntries=7"},
    {"GOOSE description", "8c908c900500",
     ".command=GOOSE stream description; .stream=0; .sqnum.offset=123; .t.offset=107"},
    {"subscription", "ac12ac1202",
     ".command=GOOSE subscription; .group=2; .light=0x02; .light.port=1; .light.group=2; "
     ".appid=0x0102; .logic_channel=4; .entry_count=4; .entry=4,0,4,0; .mapped=1,3"},
    {"channel signal", "8c908c90010200",
     ".command=Channel signal; .step=2; .channel=0; .scale_factor=0.001; .peak_flag=1; "
     ".frequency=50; .amplitude=5.94; .phase=-80; .phase_jump=0; "
     "_ws.col.Info=Channel signal  step 2  Ia1  5.94 A peak 50 Hz -80°"},
    {"GOOSE signals", "8c908c90090200",
     ".command=GOOSE signal control; .step=2; .group=0; .item_count=4; .item.length=4,2,2,1; "
     ".item_layout=with item count; .item.offset=117,143,157,171; "
     ".item.data=00000000,0680,0640,01; _ws.col.Info=GOOSE signal control  step 2  stream 0  "
     "117: 00 00 00 00  143: 10  157: 01  171: true"},
    {"step option", "8c908c900a02", ".command=Step option; .step=2; .option=1"},
    {"step condition", "8c908c900702",
     ".command=Step condition; .step=2; .conditions=0x08; .conditions.binary_input=1; "
     ".step_time=3000; .time_jump=3; .trigger=1; .trigger_jump=4; .input=1; .input_jump=5; "
     "_ws.col.Info=Step condition  step 2  conditions 0x08  3000 ms -> 3  trigger 1 -> 4  "
     "binary input yes -> end"},
    {"start", "8c908c900301",
     ".command=Start and stop; .start=1; .sample_interval=250; .start.parameter=5,2,4,8"},
    {"stop", "8c908c900300", "_ws.col.Info=Start and stop  stop  sample interval 250 us"},
    {"status", "8c928c9207", ".command=Status read-back; .which=0x07"},
    {"acknowledgement", "8c928c9207", ".acknowledgement=0f5af0a5", 1},
    {"data reply", "8c928c9207", ".reply.length=3; .reply.payload=a1b2c3", 2},
    {"state", "8c928c9200",
     ".status.state=2; .status.step=1; .status.time=1012500000; .status.channel=0,65; "
     ".status.frames=16204; .status.problems=3; .status.start=2; .status.missed=4; "
     "_ws.col.Info=Status  running  step 1  1.012500 s  16204 frames",
     2},
    {"changes", "8c928c9201",
     ".changes.total=50; .changes.count=2; .status.start=2; .change.left=255,1; "
     ".change.entered=0,255; .change.cause=0,3; .change.disturbed=0x00,0x05; "
     ".change.disturbed.late=0,1; .change.disturbed.refused=0,0; .change.disturbed.lost=0,1; "
     ".change.channel=65535,7; .change.late=0,1000; .change.cause_time=0,1030000000; "
     ".change.time=0,1030250000; "
     "_ws.col.Info=Status  50 changes  last 1 -> end (binary input 7) at 1.030000 s, "
     "disturbed",
     2},
    {"inputs", "8c928c9203",
     ".inputs.total=98; .inputs.count=2; .inputs.size=16; .inputs.first=96; .status.start=2; "
     ".inputs.kind=0,2; .inputs.channel=300,65535; .inputs.time=1030000000,2000000000; "
     "_ws.col.Info=Status  98 inputs  96 to 97  last trigger at 2.000000 s",
     2},
};

/// Commands that only the application sends; here whole frames.
const QVector<Row> applicationRows = {
    {"channel signal without jump", "8c908c90 01 09 09 6f12833a 00 00004842 a4b42942 00000000",
     ".step=9; .phase_jump=; _ws.col.Info=Channel signal  step 9  Va2  42.426 V peak 50 Hz 0°"},
    {"GOOSE signals without count", "8c908c90 09 0a 03 0401 0500 2c01 02 0680",
     ".item_layout=without item count; .step=10; .group=3; .block.offset=260; .block.length=5; "
     ".item.offset=300; .item.data=0680"},
    {"wide GOOSE offsets", "8c908c90 05 09 010a fa", ".sqnum.offset=266; .t.offset=250"},
    {"FT3 basic", "8c918c91 05 09 2e00 002c 02 01 1234 0001 0002 0003 01f4 0007 00*4 0008 0009",
     ".command=Frame template; .group=5; .ft3.layout=basic; .ft3.flag.value=0; .ft3.delay=500; "
     ".ft3.header_length=46; .ft3.dataset_length=44; .ft3.ln_name=2; .ft3.dataset_name=1; "
     ".ft3.ld_name=4660; .ft3.phs_a_artg=1; .ft3.neut_artg=2; .ft3.phs_a_vrtg=3; "
     ".ft3.smpcnt=7; .ft3.channel=0,0; .ft3.status_word1=0x0008; .ft3.status_word2=0x0009; .port="},
    {"FT3 extended", "8c918c91 06 29 3000 002c 02 01 00*10 000a 0000 0008 0009 0007 000b",
     ".ft3.layout=extended; .ft3.flag.value=2; .ft3.ext_word1=0x000a; .ft3.channel=0; "
     ".ft3.status_word2=0x0009; .ft3.smpcnt=7; .ft3.ext_word2=0x000b"},
    {"SV channel", "bc12bc12 03 06 01ff 7f ff 00*38 ",
     ".command=SV channel; .logic_channel=3; .property1=0x06; .property2=0x01ff; "
     ".property3=0x7f; .property4=0xff"},
    {"SV combination", "9c129c12 01 25 0140 04 06 02 2007 1f00",
     ".command=SV combination; .group=1; .light.port=2; .light.group=5; .appid=0x4001; "
     ".protocol=4; .logic_channel=6; .channel_count=2; .channel_entry.use=0x20,0x1f; "
     ".channel_entry.value=7,0"},
    {"DSP configuration", "88128812 00*14 2c01 00010000 06",
     ".command=DSP configuration; .dig_no=300; .goose_num=6"},
    {"FPGA reset", "84538453 ffff", ".command=FPGA reset; .select1=0xff; .select2=0xff"},
    {"stop command", "8c938c93", ".command=Stop"},
    {"disable state", "8c908c90 06 01", ".command=Disable current state; .flag=1"},
    {"state change", "8c908c90 08 02", ".command=State change; .flag=2"},
};

/// Commands that the board does not know or that lack fields, in sound envelopes.
const QVector<Row> wrongRows = {
    {"unknown", "8c908c90 7f", ".command=; _ws.expert.message=Unknown command"},
    {"ends early", "8c908c90 01 07", "_ws.col.Info=Channel signal  [truncated]"},
};

/// Damaged copies of the stop command: bytes 9 to 20 are its frame, 21 and 22 the check bytes.
const QVector<Row> damagedRows = {
    {"even check byte", "8c908c900300",
     ".checksum.status=0,1; _ws.expert.message=Wrong check byte: 0xf3 expected", 0, 21},
    {"odd check byte", "8c908c900300", ".checksum.status=1,0; .checksum.odd=0x00", 0, 22},
    {"frame", "8c908c900300", ".checksum.status=0,1; .sample_interval=251", 0, 15},
    {"second length", "8c908c900300",
     ".length=14; .length_again=15; _ws.expert.message=Wrong length: the datagram has 14 bytes of "
     "padded frame and check bytes",
     0, 7},
    {"marker", "8c908c900300", ".command=; _ws.expert.severity=8388608", 0, 2},
};

/// "name=value" of each field.
QStringList fieldsOf(const QByteArray &text)
{
    QStringList fields = QString::fromUtf8(text).split(QStringLiteral("; "));
    for (QString &field : fields)
        field = field.startsWith(QLatin1Char('.')) ? "lumtar" + field : field;
    return fields;
}

QString nameOf(const QString &field)
{
    return field.section(QLatin1Char('='), 0, 0);
}

/// Peaks, so that amplitudes are sent as they are.
void configureSequence(LumtarEngine &engine)
{
    engine.viInputWay = 1;
    engine.stepCount = 3;
    CStep &step = engine.steps[2];
    step.outPara[8] = {1, 0.001F, 50.0F, 5.94F, -80.0F, 1, 0.0F};
    step.ctlCondition = 0x08;
    step.stateTime = 3;
    step.stateTimeJump = 3;
    step.stateTrige = 1;
    step.stateTrigeJump = 4;
    step.binInpJump = 5;
    step.binOut[0] = step.binOut[2] = 1;
}

QByteArray statusPayload(int which)
{
    using namespace virtualboard;
    if (which == StateStatus) {
        PlayStatus status;
        status.state = PlayState::Running;
        status.step = 1;
        status.totalTime = 1012500us;
        status.framesSent = 16204;
        status.activeChannels = {1, 2};
        status.punctuality.missedDeadlines = 4;
        return encodeState(status, 3, 2);
    }
    if (which == InputStatus + 1)
        return encodeInputs(
            {98, 2, 96, {{1030ms, InputKind::ChannelOff, 300}, {2s, InputKind::Trigger}}});
    if (which != LogStatus)
        return bytes("a1b2c3");
    TransitionLog log;
    log.total = 50;
    log.start = 2;
    log.last = {{kNoStep, 0, Cause::Start, kNoChannel, 0s, 0s, 0s, 0},
                {1, kNoStep, Cause::BinaryInput, 7, 1030ms, 1030250us, 1us, 5}};
    return encodeLog(log);
}

} // namespace

class DissectorTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void packet_data();
    void packet();
    void wholeConversation();
    void anyBytes();
    void marks();

private:
    void record(); ///< drives the board through the tap
    int packetOf(const Row &row) const;
    QString value(int packet, const QString &field) const
    {
        return m_shown.at(packet).value(m_fieldNames.indexOf(field));
    }
    QVector<QStringList> dissect(const Capture &packets, const QStringList &fields);
    QVector<QStringList> dissectFile(const QString &file, const QStringList &fields);

    QString m_tshark;
    QTemporaryDir m_folder;
    Capture m_capture;
    QStringList m_fieldNames;
    QVector<QStringList> m_shown; ///< per packet the values of m_fieldNames
};

/// Where in the capture it is; beyond its end when it is not there.
int DissectorTest::packetOf(const Row &row) const
{
    const QByteArray frame = bytes(row.frame);
    int packet = 0;
    while (packet < m_capture.size() && m_capture.at(packet).bytes.mid(9, frame.size()) != frame)
        ++packet;
    return packet + row.later;
}

QVector<QStringList> DissectorTest::dissect(const Capture &packets, const QStringList &fields)
{
    const QString file = m_folder.filePath(QStringLiteral("link.pcap"));
    return writeCapture(file, DLT_RAW, ipPackets(packets)) ? dissectFile(file, fields)
                                                           : QVector<QStringList>();
}

/// The values of the fields per packet, as tshark gives them; none when it fails.
QVector<QStringList> DissectorTest::dissectFile(const QString &file, const QStringList &fields)
{
    QStringList arguments = {"-r", file,     "-X", QStringLiteral("lua_script:" DISSECTOR),
                             "-T", "fields", "-o", "sv.decode_data_as_phsmeas:TRUE"};
    for (const QString &field : fields)
        arguments << QStringLiteral("-e") << field;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), m_folder.path()); // none of the user's plugins
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(m_tshark, arguments);
    if (!process.waitForFinished(60000) || process.exitCode() != 0)
        qWarning("tshark: %s", process.readAllStandardError().constData());

    QVector<QStringList> values;
    const QByteArray output = process.readAllStandardOutput();
    for (const QByteArray &line : output.left(output.size() - 1).split('\n'))
        values << QString::fromUtf8(line).split(QLatin1Char('\t'));
    return values;
}

void DissectorTest::record()
{
    virtualboard::LinkResponder board(boardAddress(1));
    QCOMPARE(testsupport::failure(board.start()), QString());
    board.setStatusSource(statusPayload);
    Tap tap;
    tap.start();
    tap.ready.acquire();
    LumtarEngine engine;
    QByteArray example = EXAMPLE;
    configureSequence(engine);
    bool done = tap.bound && engine.SetUdpConnect(localPort(), boardAddress(0)) == 1
        && engine.StopExec() == 1 && engine.InitGPP(example.data()) == 1 && engine.ExecSeq() == 1
        && engine.CheckSeqExec(7, nullptr) == 1 && engine.CheckSeqExec(0, nullptr) == 1
        && engine.CheckSeqExec(1, nullptr) == 1 && engine.CheckSeqExec(3, nullptr) == 1;
    for (const Row &row : applicationRows + wrongRows)
        done = done && engine.SendCommand(bytes(row.frame)) == 1;
    tap.quit();
    tap.wait();
    QVERIFY(done);
    m_capture = tap.passed;
    for (const Row &row : damagedRows) {
        QByteArray datagram = m_capture.at(packetOf(row)).bytes;
        datagram[row.damaged] = char(datagram.at(row.damaged) ^ 1);
        m_capture.append({false, datagram});
    }
}

void DissectorTest::initTestCase()
{
    m_tshark = QStandardPaths::findExecutable(QStringLiteral("tshark"));
    if (m_tshark.isEmpty())
        QSKIP("tshark is not installed (Debian package tshark): the dissector cannot be tested");
    record();
    if (QTest::currentTestFailed())
        return;
    m_fieldNames = QStringList{"lumtar.command", "lumtar.checksum.status", "_ws.expert.severity",
                               "lumtar.response_to", "eth.dst"};
    for (const Row &row : engineRows + applicationRows + wrongRows + damagedRows) {
        for (const QString &field : fieldsOf(row.fields))
            m_fieldNames << nameOf(field);
    }
    m_fieldNames.removeDuplicates();
    m_shown = dissect(m_capture, m_fieldNames);
    QCOMPARE(m_shown.size(), m_capture.size());
}

void DissectorTest::packet_data()
{
    QTest::addColumn<int>("packet");
    QTest::addColumn<QByteArray>("fields");
    for (const Row &row : engineRows + applicationRows + wrongRows)
        QTest::newRow(row.name) << packetOf(row) << QByteArray(row.fields);
    int packet = int(m_capture.size() - damagedRows.size());
    for (const Row &row : damagedRows)
        QTest::newRow(row.name) << packet++ << QByteArray(row.fields);
}

void DissectorTest::packet()
{
    QFETCH(int, packet);
    QFETCH(QByteArray, fields);
    QVERIFY2(packet < m_shown.size(), "the command was not sent");
    for (const QString &field : fieldsOf(fields))
        QCOMPARE(nameOf(field) + '=' + value(packet, nameOf(field)), field);
}

/// No sound datagram is called damaged, and every answer is joined to its command.
void DissectorTest::wholeConversation()
{
    const int end = packetOf(wrongRows.first());
    QVERIFY(end > 100 && end < m_capture.size());
    QString command;
    for (int packet = 0; packet < end; ++packet) {
        const QString severity = value(packet, "_ws.expert.severity");
        const QByteArray where = "packet " + QByteArray::number(packet + 1) + ' '
            + m_shown.at(packet).join(QLatin1Char(' ')).toUtf8();
        if (m_capture.at(packet).fromBoard) {
            QVERIFY2(value(packet, "lumtar.response_to") == command, where);
        } else {
            command = QString::number(packet + 1);
            QVERIFY2(!value(packet, "lumtar.command").isEmpty(), where);
            QVERIFY2(value(packet, "lumtar.checksum.status") == QLatin1String("1,1"), where);
        }
        // Wireshark warns of the templates' broadcast source address.
        const QString allowed = value(packet, "eth.dst").isEmpty() ? QString() : "6291456";
        QVERIFY2(severity == allowed, where);
    }
}

/// No bytes, whoever they are from, make the script fail.
void DissectorTest::anyBytes()
{
    QRandomGenerator random(61850);
    Capture damaged;
    while (damaged.size() < 4000) {
        Datagram datagram = m_capture.at(random.bounded(int(m_capture.size())));
        for (int i = random.bounded(6); i > 0; --i)
            datagram.bytes[random.bounded(int(datagram.bytes.size()))] = char(random.bounded(256));
        datagram.bytes.truncate(random.bounded(int(datagram.bytes.size())) + 1);
        damaged << datagram;
    }
    const QVector<QStringList> lines = dissect(damaged, {"_ws.expert.message", "_ws.col.Info"});
    QCOMPARE(lines.size(), damaged.size());
    for (const QStringList &line : lines)
        QVERIFY2(!line.join(QLatin1Char(' ')).contains("Lua"), qPrintable(line.first()));
}

/// Marks among frames as the board made of software captures them, with their times.
void DissectorTest::marks()
{
    using namespace virtualboard;
    const QString file = m_folder.filePath(QStringLiteral("bus.pcap"));
    const StreamMark stream = {1, QStringLiteral("MU\u00fc\"01"), {QStringLiteral("Ia1"), {}}};
    const QVector<QByteArray> frames = {
        encodeMark(stream), bytes("00*12 88b5 '{\"Mark\":1}' 00*40"), encodeMark(stream).left(31)};
    const QVector<Transition> changes = {
        {kNoStep, 0, Cause::Start, kNoChannel, 0s, 0s},
        {0, 1, Cause::Time, kNoChannel, 1s, 1s, 160ms},
        {1, kNoStep, Cause::BinaryInput, 7, 1030000001ns, 1030250us}};
    CaptureSink sink;
    QVERIFY(sink.open(file));
    const RecordedInput inputs[] = {{1ns, InputKind::ChannelOff, 12}, {20ms, InputKind::Trigger}};
    sink.noteInputs(WallTime(1700000000000000000ns), inputs, 2);
    for (const Transition &change : changes)
        sink.note(WallTime(1700000000000000001ns) + change.entryTime, change);
    for (const QByteArray &frame : frames) {
        const OutgoingFrame outgoing = {reinterpret_cast<const uchar *>(frame.constData()),
                                        int(frame.size()), 1};
        sink.publish(WallTime(1700000001999999999ns), &outgoing, 1);
    }
    QVERIFY(sink.flush());
    const QVector<QStringList> expected = {
        {"1700000000.000000000", "Input channel 12 off at 0.000000 s", "input", ""},
        {"1700000000.000000000", "Input trigger at 0.020000 s", "input", ""},
        {"1700000000.000000001", "Step 0 (start) at 0.000000 s", "step", ""},
        {"1700000001.000000001", "Step 0 -> 1 (time) at 1.000000 s, 160.000 ms late", "step", ""},
        {"1700000001.030250001", "Step 1 -> end (binary input 7) at 1.030000 s", "step", ""},
        {"1700000001.999999999", "Stream MU\u00fc\\\"01", "stream", ""},
        {"1700000001.999999999", "Local Experimental Ethertype 1", "", "7b"},
        {"1700000001.999999999", "Stream ?", "", ""}};
    const QVector<QStringList> lines =
        dissectFile(file, {"frame.time_epoch", "_ws.col.Info", "json.value.string", "data.data"});
    QCOMPARE(lines.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        for (int column = 0; column < expected[i].size(); ++column)
            QVERIFY2(expected[i][column].isEmpty()
                         ? lines[i][column].isEmpty()
                         : lines[i][column].startsWith(expected[i][column]),
                     qPrintable(lines[i].join(QLatin1Char('|'))));
    }
}

QTEST_GUILESS_MAIN(DissectorTest)
#include "tst_dissector.moc"
