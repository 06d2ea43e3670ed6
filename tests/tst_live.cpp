// The live board on pairs of virtual Ethernet interfaces: what comes out at the other end, and what
// goes in there. All of them are in a network of its own, which vanishes with this process.

#include "tests/liveprogram.h"
#include "tests/testsupport.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "virtualboard/live/livecapture.h"
#include "virtualboard/live/liveclock.h"
#include "virtualboard/live/livehistogram.h"
#include "virtualboard/live/liveperformer.h"
#include "virtualboard/live/liveprivileges.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <mutex>
#include <random>

#include <linux/capability.h>
#include <net/if.h>
#include <pcap/pcap.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace liveprogram;
using testsupport::boardAddress;
using namespace virtualboard;

namespace {

constexpr Duration kInterval = 250us;

bool ip(const QString &arguments)
{
    QProcess process;
    process.start(QStringLiteral("ip"), arguments.split(QLatin1Char(' ')));
    return process.waitForFinished() && process.exitCode() == 0;
}

/// What goes in and out at the far end of a pair, by libpcap.
class Wire
{
public:
    explicit Wire(const char *interface)
        : m_pcap(pcap_create(interface, nullptr))
    {
        char error[PCAP_ERRBUF_SIZE];
        pcap_set_snaplen(m_pcap, 256); // room for more frames than any test here sends
        pcap_set_buffer_size(m_pcap, 64 << 20);
        pcap_set_immediate_mode(m_pcap, 1);
        pcap_set_tstamp_precision(m_pcap, PCAP_TSTAMP_PRECISION_NANO);
        if (pcap_activate(m_pcap) < 0 || pcap_setnonblock(m_pcap, 1, error) < 0)
            qFatal("%s: %s", interface, pcap_geterr(m_pcap));
    }
    ~Wire() { pcap_close(m_pcap); }
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    /// All packets until now with this EtherType and APPID.
    QVector<CapturedFrame> packets(int type, int appId)
    {
        pcap_pkthdr *header = nullptr;
        const u_char *bytes = nullptr;
        while (pcap_next_ex(m_pcap, &header, &bytes) == 1)
            m_packets << CapturedFrame{
                WallTime(std::chrono::seconds(header->ts.tv_sec) + Duration(header->ts.tv_usec)),
                QByteArray(reinterpret_cast<const char *>(bytes), int(header->caplen))};
        QVector<CapturedFrame> result;
        for (const CapturedFrame &packet : std::as_const(m_packets)) {
            const int at = packet.bytes.mid(12, 2) == be(0x8100, 2) ? 16 : 12;
            if (packet.bytes.mid(at, 4) == be(type, 2) + be(appId, 2))
                result << packet;
        }
        return result;
    }
    void inject(const QByteArray &frame)
    {
        pcap_inject(m_pcap, frame.constData(), std::size_t(frame.size()));
    }

private:
    pcap_t *m_pcap;
    QVector<CapturedFrame> m_packets;
};

/// A board whose ports 1 and 2 are two interfaces.
class Board
{
public:
    explicit Board(CaptureSink *capture = nullptr)
    {
        auto opened = LivePerformer::open({{"board1", "board2"}, false, {}, {}, {}, capture},
                                          [this](const auto &line) { report(line); });
        if (!opened)
            qFatal("%s", qPrintable(opened.error()));
        m_performer = std::move(*opened);
    }
    LivePerformer *operator->() { return m_performer.get(); }
    /// Completes the capture.
    void close() { m_performer.reset(); }
    bool waitForEnd()
    {
        return QTest::qWaitFor([this] { return m_performer->status().state > PlayState::Running; },
                               20000);
    }
    /// Adds the line, if it is one; returns all.
    QStringList report(const QString &line = {})
    {
        const std::lock_guard lock(m_mutex);
        return m_reports << QStringList(line).filter(QLatin1String("."));
    }

private:
    std::mutex m_mutex;
    QStringList m_reports;
    std::unique_ptr<LivePerformer> m_performer; // ends before what it reports to
};

/// What the kernel says of a thread, as one line.
QString privilegesIn(const QString &taskFolder)
{
    QFile status(taskFolder + QStringLiteral("/status"));
    if (!status.open(QIODevice::ReadOnly))
        return {};
    const QStringList lines = QString::fromLatin1(status.readAll()).split(QLatin1Char('\n'));
    return lines.filter(QRegularExpression(QStringLiteral("^(Cap(Inh|Prm|Eff|Amb)|NoNewPrivs):")))
        .replaceInStrings(QRegularExpression(QStringLiteral("^.*:\t0*(?=.)")), QString())
        .join(QLatin1Char(' '));
}

/// The number of threads for every kind of privileges in a process.
QMap<QString, int> threadsByPrivileges(qint64 process)
{
    QMap<QString, int> result;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(process));
    const QStringList names = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &name : names)
        ++result[privilegesIn(tasks.filePath(name))];
    return result;
}

} // namespace

class LiveTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void refusals();
    void percentiles();
    void queueOfRecords();
    void framesArrive();
    void inputs();
    void commands();
    void interfacesFail();
    void disturbances();
    void lostMessages();
    void defaultRoutes();
    void closedLoop();
    void lostCapture_data();
    void lostCapture();
    void privileges_data();
    void privileges();
};

void LiveTest::initTestCase()
{
    if (unshare(CLONE_NEWNET) != 0 || !ip("link add board1 type veth peer name far1")
        || !ip("link add board2 type veth peer name far2"))
        QSKIP("This test needs network namespaces and virtual interfaces: root, and ip.");
    for (const char *each : {"board1", "far1", "board2", "far2"})
        QVERIFY(ip(QStringLiteral("link set %1 up").arg(QLatin1String(each))));
}

void LiveTest::refusals()
{
    QVERIFY(ip("address add 192.0.2.1/24 dev far2") && ip("route add default dev far2"));
    const struct
    {
        LiveOptions options;
        unsigned missing; // capability, as a bit
        const char *result;
    } cases[] = {
        {{}, 0, "No port has an interface"},
        {{{"nosuch0"}}, 0, "nosuch0: it cannot be used: No such device"},
        {{{"lo"}}, 0, "lo is no Ethernet interface"},
        {{{"far2"}}, 0, "far2 carries the default route"},
        {{{"far2"}, true}, 0, "opened"},
        {{{"board1"}}, 1 << CAP_NET_RAW, "sudo setcap cap_net_raw+ep "},
        {{{"board1"}, false, 10}, 1 << CAP_SYS_NICE, "cap_sys_nice,cap_ipc_lock+ep "},
        {{{"board1"}, false, 200}, 0, "Real-time priority 200"},
        {{{"board1"}, false, {}, 4000}, 0, "Processor 4000"},
        {{{"board1"}, false, 10, 0}, 0, "opened"},
    };
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct all[2] = {};
    syscall(SYS_capget, &header, all);
    for (const auto &each : cases) {
        __user_cap_data_struct fewer[] = {all[0], all[1]};
        fewer[0].effective &= ~each.missing;
        syscall(SYS_capset, &header, fewer); // of this thread
        const auto opened = LivePerformer::open(each.options, [](const QString &) {});
        syscall(SYS_capset, &header, all);
        const QString result = opened ? QStringLiteral("opened") : opened.error();
        QVERIFY2(result.contains(QString::fromLatin1(each.result)), qPrintable(result));
    }
}

/// Percentiles may lie above the exact ones by 1/32, never below.
void LiveTest::percentiles()
{
    std::mt19937 random(1);
    std::lognormal_distribution<> distribution(8, 3);
    LatenessHistogram histogram;
    std::vector<Duration> all(9999);
    for (Duration &each : all)
        histogram.add(each = Duration(qint64(distribution(random))));
    all.push_back(Duration::max());
    histogram.add(all.back());
    std::sort(all.begin(), all.end());
    for (const unsigned percent : {1U, 50U, 99U, 100U}) {
        const Duration exact = all[(all.size() * percent + 99) / 100 - 1];
        const Duration found = histogram.percentile(percent);
        QVERIFY(found >= exact && found - exact <= exact / 32);
    }
}

/// Records stay whole where the queue begins again; what does not fit changes nothing.
void LiveTest::queueOfRecords()
{
    RecordQueue queue(64);
    int size = 0, full = 0;
    QByteArray found;
    for (int i = 0; i < 1000; ++i) {
        const QByteArray body(i % 61, char(i));
        size = int(body.size());
        full += !queue.put(&size, sizeof size, QByteArray(61, 'x').data(), 61);
        QVERIFY(queue.put(&size, sizeof size, body.data(), std::size_t(size)));
        QVERIFY(queue.take(&size, sizeof size));
        found.resize(size);
        QVERIFY(queue.take(found.data(), std::size_t(size)) && found == body);
    }
    QCOMPARE(full, 1000);
    QVERIFY(!queue.take(&size, sizeof size));
}

/// Four streams at 4000 frames a second arrive at the interfaces of their ports, complete and in
/// order, and stand in the capture; t is the time of the wall clock.
void LiveTest::framesArrive()
{
    constexpr int kInstants = 12000, kStreams = 4;
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("live.pcap"));
    CaptureSink capture;
    QVERIFY(capture.open(path));
    Wire wires[] = {Wire("far1"), Wire("far2")};
    Board board(&capture);
    board->start(program({kStreams, 1, {kInstants / 4}}));
    QVERIFY(board.waitForEnd());
    QCOMPARE(board.report(), QStringList());
    QCOMPARE(board->status().punctuality.sendFailures, quint64(0));

    for (int stream = 0; stream < kStreams; ++stream) {
        int smpCnt = 0;
        for (const CapturedFrame &packet : wires[stream % 2].packets(0x88ba, kSvAppId + stream))
            QCOMPARE(packet.bytes.mid(smpCntOffset, 2), be(smpCnt++ % 4000, 2));
        QCOMPARE(smpCnt, kInstants);
    }
    const quint64 sent = board->status().framesSent;
    const auto goose = wires[0].packets(0x88b8, kGooseAppId);
    const auto t = qFromBigEndian<quint64>(goose[0].bytes.data() + tOffset) >> 8;
    QVERIFY(qAbs(double(goose[0].time.time_since_epoch().count()) / 1e9 - double(t) / (1 << 24))
            < 0.5);

    board.close();
    CaptureReader reader;
    QVERIFY(reader.open(path));
    int captured = 0;
    while (const auto frame = reader.next())
        captured += frame->bytes.mid(12, 2) == be(0x8100, 2); // the marks have no tag
    QCOMPARE(captured, kStreams * kInstants + int(goose.size()));
    QCOMPARE(quint64(captured), sent);
}

/// A message leaves the step if it comes in at the port of its subscription and is news.
void LiveTest::inputs()
{
    const QByteArray off = gooseFrame(kDeviceAppId, false), on = gooseFrame(kDeviceAppId, true, 2),
                     untagged = gooseFrame(kDeviceAppId, true, 2, false);
    const struct
    {
        const char *name;
        QByteArray before, frame;
        int wire;
        Cause cause;
    } cases[] = {
        {"untagged", {}, untagged, 0, Cause::BinaryInput},
        {"tagged", off, on, 0, Cause::BinaryInput},
        {"active already", on, on, 0, Cause::Time},
        {"another port", {}, on, 1, Cause::Time},
        {"from this machine", {}, untagged, 2, Cause::Time},
    };
    for (const auto &each : cases) {
        Wire wires[] = {Wire("far1"), Wire("far2"), Wire("board1")};
        Board board;
        wires[0].inject(each.before);
        QTest::qWait(50); // only then does the board get to know what it subscribes to
        board->start(program({1, 1, {400}, true}));
        QTest::qWait(100);
        const WallTime sent = WallClock::now();
        wires[each.wire].inject(each.frame);
        QVERIFY(board.waitForEnd());
        const Transition last = board->log().last.last();
        QVERIFY2(last.cause == each.cause, each.name);
        QVERIFY2(board->status().isActive(0) == (each.wire == 0), each.name);
        QVERIFY(last.entryTime >= last.causeTime && last.entryTime % kInterval == 0s);
        const WallTime cause = wires[0].packets(0x88ba, kSvAppId)[0].time + last.causeTime;
        QVERIFY2(last.cause == Cause::Time || std::chrono::abs(cause - sent) < 20ms, each.name);
    }
}

/// The trigger leaves the step; stop ends the sequence, and no frame follows.
void LiveTest::commands()
{
    Wire wire("far1");
    Board board;
    board->trigger(); // nothing plays: without effect
    board->start(program({1, 1, {0, 0}, true}));
    QTest::qWait(50);
    QCOMPARE(board->log().total, 1U);
    board->trigger();
    QTest::qWait(50);
    board->stop();
    const WallTime stopped = WallClock::now();
    const auto changes = board->log().last;
    QCOMPARE(changes.size(), 3);
    QCOMPARE(changes[1].cause, Cause::Trigger);
    QCOMPARE(changes[2].cause, Cause::Stop);
    const auto packets = wire.packets(0x88ba, kSvAppId);
    QCOMPARE(qint64(packets.size()), changes[2].entryTime / kInterval);
    QVERIFY(packets.last().time <= stopped);
}

/// Interfaces that go down, lose their link, vanish or do not take the frames are reported, cost
/// frames, which are counted, and go on afterwards.
void LiveTest::interfacesFail()
{
    const QString again = QStringLiteral("add board1 index %1 type veth peer name far1")
                              .arg(if_nametoindex("board1"));
    const QStringList changes = {"set far2 down", "set far2 up", "set board1 down", "del board1",
                                 again,           "set far1 up", "set board1 up"};
    Board board;
    board->start(program({2, 0, {0}}));
    for (const QString &change : changes) {
        QVERIFY2(ip(QStringLiteral("link ") + change), qPrintable(change));
        QTest::qWait(400);
    }
    Wire wires[] = {Wire("far1"), Wire("far2")};
    wires[0].inject(gooseFrame(kDeviceAppId, true, 2));
    QTest::qWait(100);
    for (int i = 0; i < 2; ++i)
        QVERIFY(!wires[i].packets(0x88ba, kSvAppId + i).isEmpty());
    QVERIFY(board->status().isActive(0));
    const quint64 failures = board->status().punctuality.sendFailures;
    QVERIFY(failures > 6000 && failures < board->status().framesSent / 2);
    QVERIFY(ip("link set board1 mtu 68")); // the frames are longer
    QTest::qWait(400);
    QVERIFY(ip("link set board1 mtu 1500"));
    QTest::qWait(400);
    board->stop();
    QVERIFY(board->status().punctuality.sendFailures > failures + 800);
    QCOMPARE(int(board->log().last.last().disturbances & FramesRefused), int(FramesRefused));

    QStringList reports = board.report();
    quint64 reported = 0;
    const QRegularExpression number(QStringLiteral("\\d+(?= frames)"));
    for (QString &each : reports) {
        reported += number.match(each).captured().toULongLong();
        each.replace(number, QStringLiteral("N"));
    }
    QCOMPARE(reported, board->status().punctuality.sendFailures);
    QCOMPARE(reports.join(QLatin1Char('\n')),
             QStringLiteral("Interface board2 has no link.\n"
                            "Interface board2 is up again.\n"
                            "Interface board2: N frames were not sent.\n"
                            "Interface board1 is down.\n"
                            "Interface board1 is gone.\n"
                            "Interface board1 is down.\n"
                            "Interface board1 is up again.\n"
                            "Interface board1: N frames were not sent.\n"
                            "Interface board1 does not take all frames: Message too long.\n"
                            "Interface board1: N frames were not sent."));
}

/// Each step's disturbances are told by the change that ends it, and by no other.
void LiveTest::disturbances()
{
    Board board;
    // Prefault, then three steps of which only the second is disturbed.
    board->start(program({1, 0, {300, 300, 300, 300}}));
    QTRY_COMPARE_WITH_TIMEOUT(int(board->status().step), 1, 5000);
    QTest::qWait(50);
    const QString stall = QStringLiteral("kill -STOP %1; sleep 0.1; kill -CONT %1").arg(getpid());
    QVERIFY(QProcess::startDetached(QStringLiteral("sh"), {QStringLiteral("-c"), stall}));
    QVERIFY(board.waitForEnd());
    const auto changes = board->log().last;
    QCOMPARE(changes.size(), 5);
    QCOMPARE(int(changes[2].disturbances), int(SentLate));
    for (const Transition &each : changes)
        QCOMPARE(each.disturbances & (FramesRefused | InputsLost), 0);
}

/// A message is handed on only when those that the system dropped before it have been counted.
void LiveTest::lostMessages()
{
    constexpr int kFlood = 5000;
    Wire wire("far1");
    const auto opened = PacketPorts::open({"board1"});
    QVERIFY(opened);
    PacketPorts &ports = **opened;
    const QByteArray frame = gooseFrame(kDeviceAppId, true);
    const auto received = [&](int count) {
        for (int i = 0; i < count; ++i)
            wire.inject(frame);
        int result = 0, before = -1;
        while (std::exchange(before, result) != result)
            ports.receive(100, [&](auto, auto, auto) { ++result; });
        return result;
    };
    QCOMPARE(received(10), 10);
    QCOMPARE(ports.losses(), quint64(0));
    int sum = received(kFlood);
    QVERIFY(sum < kFlood);
    QCOMPARE(received(1), 1);
    QCOMPARE(ports.losses(), quint64(kFlood - sum));
    sum += received(kFlood); // lost at the end: only the check tells
    QVERIFY(!ports.check().isEmpty());
    QCOMPARE(ports.losses(), quint64(2 * kFlood - sum));
}

/// The network of the default route is found whatever the route looks like, and however the
/// interface is called or built upon another. Ports on one interface are one, by whatever names.
void LiveTest::defaultRoutes()
{
    // The kernel tells what is built upon what in the /sys of this network.
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0
        || mount("", "/sys", "sysfs", 0, nullptr) != 0)
        QSKIP("This test needs a /sys of its own.");
    QVERIFY(ip("link property add dev far2 altname other2")
            && ip("link add upon2 link far2 type macvlan") && ip("link set upon2 up"));
    const struct
    {
        const char *family, *route, *interface, *result;
    } cases[] = {
        {"-4", "default dev far1", "board2", ""},
        {"-4", "blackhole default", "board2", ""},
        {"-6", "default dev board2", "board2", "board2 carries"},
        {"-4", "default dev board2 table 77", "board2", "board2 carries"},
        {"-4", "default nexthop dev far1 nexthop dev board2", "board2", "board2 carries"},
        {"-4", "default dev far2", "other2", "machine (through far2)"},
        {"-4", "default dev far2", "far2:1", "machine (through far2)"},
        {"-4", "default dev far2", "upon2", "machine (through far2)"},
        {"-4", "default dev upon2", "other2", "machine (through upon2)"},
    };
    ip("route flush default"); // left by another test
    for (const auto &each : cases) {
        const QString change =
            QStringLiteral("%1 route %2 %3")
                .arg(QLatin1String(each.family), QStringLiteral("%1"), QLatin1String(each.route));
        QVERIFY2(ip(change.arg(QStringLiteral("add"))), each.route);
        const QString warning = defaultRouteWarning({QLatin1String(each.interface)});
        QVERIFY2(ip(change.arg(QStringLiteral("del"))), each.route);
        QVERIFY2(*each.result ? warning.contains(QLatin1String(each.result)) : warning.isEmpty(),
                 qPrintable(QLatin1String(each.route) + QLatin1String(": ") + warning));
    }

    PortInterfaces names;
    names.fill(QStringLiteral("far2"));
    names[2] = QStringLiteral("other2");
    names[4] = QStringLiteral("far2:1");
    const auto ports = PacketPorts::open(names);
    QVERIFY(ports);
    Wire("board2").inject(gooseFrame(kDeviceAppId, true));
    QVector<QVector<int>> seen;
    (*ports)->receive(1000, [&](auto, const QVector<int> &each, auto) { seen << each; });
    QCOMPARE(seen, QVector<QVector<int>>({{0}}));
}

/// The board and a relay at the other end of the wire: the trip time that the board logs is the one
/// that the wire shows, within a sample interval, although the board stands still across the entry
/// into the fault; the marks of the capture tell the same, and the relay's trip stands in it.
void LiveTest::closedLoop()
{
    Wire wire("far1");
    QProcess relay;
    relay.start(STAND_IN_RELAY,
                {"--interface", "far1", "--threshold", "5000", "--delay", "20", "--goose-appid",
                 QString::number(kDeviceAppId)});
    QVERIFY(relay.waitForReadyRead());
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("live.pcap"));
    CaptureSink capture;
    QVERIFY(capture.open(path));
    Board board(&capture);
    board->start(program({1, 1, {1000, 2000, 100}, true})); // prefault, fault, dead time
    const QString stall =
        QStringLiteral("sleep 0.6; kill -STOP %1; sleep 0.8; kill -CONT %1").arg(getpid());
    QVERIFY(QProcess::startDetached(QStringLiteral("sh"), {QStringLiteral("-c"), stall}));
    QVERIFY(board.waitForEnd());
    relay.terminate();
    QVERIFY(relay.waitForFinished());

    const auto changes = board->log().last;
    QCOMPARE(changes.size(), 4);
    QCOMPARE(changes[2].cause, Cause::BinaryInput);
    const Duration logged = board->log().timeInStep(2).value();
    QVERIFY(changes[1].lateness > 66ms);
    const auto samples = wire.packets(0x88ba, kSvAppId);
    const auto messages = wire.packets(0x88b8, kDeviceAppId);
    const auto fault = std::find_if(samples.begin(), samples.end(), [](const auto &packet) {
        return qFromBigEndian<qint32>(packet.bytes.data() + dataOffset) > 5000;
    });
    const auto trip = std::find_if(messages.begin(), messages.end(),
                                   [](const auto &packet) { return packet.bytes.endsWith('\1'); });
    QVERIFY(fault != samples.end() && trip != messages.end());
    const Duration seen = trip->time - fault->time;
    qInfo("trip time logged: %lld us, on the wire: %lld us, from a frame %lld us late",
          qlonglong(logged / 1us), qlonglong(seen / 1us), qlonglong(changes[1].lateness / 1us));
    // The stall spoils the time in the fault, since the frames came in a burst then.
    QCOMPARE(int(changes[2].disturbances & SentLate), int(SentLate));
    const InputLog kept = board->inputs(0);
    QVERIFY(kept.total > 0 && kept.part[0].kind == InputKind::ChannelOn);
    QCOMPARE(kept.part[0].time, changes[2].causeTime);
    QVERIFY(seen >= 20ms && std::chrono::abs(logged - seen) <= kInterval);

    board.close();
    CaptureReader reader;
    QVERIFY(reader.open(path));
    TransitionLog marks;
    QVector<RecordedInput> inputs;
    WallTime captured, before;
    while (const auto frame = reader.next()) {
        QVERIFY(frame->time >= before);
        before = frame->time;
        if (captured == WallTime() && frame->bytes == trip->bytes)
            captured = frame->time;
        const auto mark = decodeMark(frame->bytes);
        if (mark && std::get_if<StepMark>(&*mark))
            marks.last << std::get<StepMark>(*mark).transition;
        else if (mark && std::get_if<InputMark>(&*mark))
            inputs << std::get<InputMark>(*mark).input;
    }
    QCOMPARE(inputs.size(), kept.part.size());
    for (int i = 0; i < inputs.size(); ++i)
        QCOMPARE(inputs[i].time, kept.part[i].time);
    QCOMPARE(marks.last.size(), changes.size());
    QCOMPARE(marks.timeInStep(2).value(), logged);
    QVERIFY(std::chrono::abs(captured - trip->time) < 1ms);
}

void LiveTest::lostCapture_data()
{
    QTest::addColumn<bool>("closed"); // the folder, to whom it does not belong
    QTest::addColumn<bool>("deleted");
    QTest::newRow("deleted") << false << true;
    QTest::newRow("deleted, out of sight") << true << true;
    QTest::newRow("there, out of sight") << true << false;
}

/// That a capture is deleted is told once, while the test goes on, and only if it is true: the
/// board has no right any more to look into the folder of another user.
void LiveTest::lostCapture()
{
    QFETCH(bool, closed);
    QFETCH(bool, deleted);
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("lost.pcap"));
    CaptureSink capture;
    QVERIFY(capture.open(path));
    constexpr uid_t kNobody = 65534;
    QVERIFY(!closed || chown(folder.path().toLocal8Bit().constData(), kNobody, kNobody) == 0);
    Board board(&capture);
    board->start(program({1, 0, {deleted ? 0 : 300}}));
    if (deleted) {
        QVERIFY(QFile::remove(path));
        QTRY_COMPARE_WITH_TIMEOUT(board.report().size(), 1, 20000);
        QCOMPARE(board->status().state, PlayState::Running);
        board->stop();
    }
    QVERIFY(board.waitForEnd());
    board.close(); // looks for the file a last time
    QCOMPARE(board.report(),
             deleted ? QStringList(path + ": No such file or directory") : QStringList());
}

void LiveTest::privileges_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("kept"); // inheritable, permitted, effective, ambient; no new ones
    QTest::newRow("plain") << QStringList() << "0 0 0 0 1";
    const QString locking = QString::number(1 << CAP_IPC_LOCK, 16);
    QTest::newRow("real time") << QStringList("--realtime")
                               << QStringLiteral("0 %1 %1 0 1").arg(locking);
}

/// Once a board started as root is ready, no thread of it has a privilege that it need not have,
/// and it plays all the same.
void LiveTest::privileges()
{
    QFETCH(QStringList, options);
    QFETCH(QString, kept);
#ifndef LUMTAR_BOARD
    QSKIP("The tools are not built.");
#else
    QVERIFY(ip("link set lo up"));
    const QTemporaryDir folder;
    const QString address = boardAddress().toString();
    QProcess board, control;
    board.setProcessChannelMode(QProcess::MergedChannels);
    board.start(LUMTAR_BOARD,
                options
                    + QStringList{"--interface", "board1", "--listen", address, "--capture",
                                  folder.filePath("live.pcap")});
    QVERIFY(board.waitForReadyRead());
    // The program's own, the link's, and those that play, take inputs and write the capture.
    QMap<QString, int> expected{{kept, 5}};
#ifdef __SANITIZE_THREAD__
    ++expected[privilegesIn("/proc/thread-self")]; // the sanitizer's own
#endif
    QTRY_COMPARE(threadsByPrivileges(board.processId()), expected);

    Wire wire("far1");
    const QString examples = QStringLiteral(EXAMPLES);
    control.start(LUMTARCTL,
                  {"run", "--board", address, "--config", examples + "/feeder-bay.xml",
                   "--sequence", examples + "/earth-fault.json"});
    QVERIFY(control.waitForFinished());
    QCOMPARE(control.exitCode(), 0);
    constexpr int kSvOfExample = 0x4001;
    QTRY_VERIFY(wire.packets(0x88ba, kSvOfExample).size() > 1000);
    QCOMPARE(threadsByPrivileges(board.processId()), expected);
    board.terminate();
    QVERIFY(board.waitForFinished());
    QVERIFY2(board.exitCode() == 0, board.readAll().constData());
#endif
}

QTEST_GUILESS_MAIN(LiveTest)
#include "tst_live.moc"
