// The live board against its yardsticks, on a pair of virtual Ethernet interfaces in a network of
// its own. Needs the right to make one; run by hand or by "make bench-live".

#include "tests/liveprogram.h"

#include "virtualboard/live/liveclock.h"
#include "virtualboard/live/livehistogram.h"
#include "virtualboard/live/liveperformer.h"
#include "virtualboard/play/player.h"

#include <QCoreApplication>
#include <QStringList>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace virtualboard;

namespace {

constexpr int kStreams = 64;
constexpr double kWantedRate = 0.9; // of bare sendmmsg
constexpr double kWantedLoad = 0.5; // of a core

[[noreturn]] void giveUp(const QString &reason)
{
    std::fprintf(stderr, "live benchmark: %s\n", qPrintable(reason));
    std::exit(2);
}

PortInterfaces allPorts()
{
    PortInterfaces interfaces;
    interfaces.fill(QStringLiteral("board0"));
    return interfaces;
}

TestProgram program(int milliseconds)
{
    return liveprogram::program({kStreams, 1, {milliseconds}});
}

/// The frames of one instant, for bare sendmmsg: the same bytes, in the same order, again and
/// again.
class BareSink : public FrameSink
{
public:
    BareSink()
        : m_socket(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, 0))
    {
        sockaddr_ll address = {};
        address.sll_family = AF_PACKET;
        address.sll_ifindex = int(if_nametoindex("board0"));
        if (bind(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            giveUp(QStringLiteral("no raw socket"));
    }
    ~BareSink() override { close(m_socket); }

    void publish(WallTime, const OutgoingFrame *frames, int count) override
    {
        for (int i = 0; i < count; ++i) {
            m_frames.emplace_back(reinterpret_cast<const char *>(frames[i].bytes), frames[i].size);
            m_parts.push_back({m_frames.back().data(), std::size_t(frames[i].size)});
        }
        m_messages.resize(m_parts.size());
        for (std::size_t i = 0; i < m_parts.size(); ++i) {
            m_messages[i].msg_hdr.msg_iov = &m_parts[i];
            m_messages[i].msg_hdr.msg_iovlen = 1;
        }
    }
    int send()
    {
        return std::max(0, sendmmsg(m_socket, m_messages.data(), unsigned(m_messages.size()), 0));
    }

private:
    int m_socket;
    std::vector<QByteArray> m_frames;
    std::vector<iovec> m_parts;
    std::vector<mmsghdr> m_messages;
};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double secondsSince(MonotonicTime begin)
{
    return std::chrono::duration<double>(MonotonicClock::now() - begin).count();
}

/// (a) As fast as it goes, by turns, so that the machine's mood strikes both sides alike. Returns
/// the rate of bare sendmmsg.
double compareRates()
{
    constexpr int kTurns = 21, kInstants = 400;
    const auto opened = PacketPorts::open(allPorts());
    if (!opened)
        giveUp(opened.error());
    PacketPorts &ports = **opened;
    Player player(program(0), WallTime());
    BareSink bare;
    player.play(bare); // the first instant, GOOSE included; the later ones have almost only SV
    std::vector<double> ours, yardstick;
    for (int turn = 0; turn < kTurns; ++turn) {
        MonotonicTime begin = MonotonicClock::now();
        qint64 frames = 0;
        for (int i = 0; i < kInstants; ++i)
            frames += bare.send();
        yardstick.push_back(double(frames) / secondsSince(begin));

        begin = MonotonicClock::now();
        const quint64 before = player.status().framesSent - ports.failures();
        for (int i = 0; i < kInstants; ++i)
            player.play(ports);
        const quint64 sent = player.status().framesSent - ports.failures() - before;
        ours.push_back(double(sent) / secondsSince(begin));
    }
    const double ratio = median(ours) / median(yardstick);
    std::printf("sending without pacing, frames per second, medians of %d turns\n"
                "  bare sendmmsg   %9.0f\n"
                "  player          %9.0f   ratio %.3f (at least %.2f)%s\n",
                kTurns, median(yardstick), median(ours), ratio, kWantedRate,
                ratio < kWantedRate ? "  BELOW" : "");
    return median(yardstick);
}

void printLateness(const char *name, Duration p50, Duration p99, Duration maximum, quint64 missed)
{
    using Microseconds = std::chrono::duration<double, std::micro>;
    std::printf("  %-15s %9.1f %9.1f %9.1f   %8llu\n", name, Microseconds(p50).count(),
                Microseconds(p99).count(), Microseconds(maximum).count(),
                static_cast<unsigned long long>(missed));
}

/// Sleeps from deadline to deadline, and does nothing else.
void bareLoop(std::optional<int> realtime, const std::atomic<bool> &stopping,
              LatenessHistogram &lateness, quint64 &missed)
{
    constexpr Duration kInterval = 250us;
    sched_param parameters = {};
    parameters.sched_priority = realtime.value_or(0);
    if (realtime)
        pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
    prctl(PR_SET_TIMERSLACK, 1);
    for (MonotonicTime due = MonotonicClock::now() + kInterval; !stopping; due += kInterval) {
        sleepUntil(due);
        const Duration late = MonotonicClock::now() - due;
        lateness.add(late);
        missed += late > kInterval;
    }
}

/// (b) By the clock, with a bare loop beside it that feels the same machine.
void keepTime(double bareRate, int seconds, std::optional<int> realtime)
{
    LiveOptions options;
    options.interfaces = allPorts();
    options.realtime = realtime;
    const auto opened = LivePerformer::open(options, [](const QString &line) { giveUp(line); });
    if (!opened)
        giveUp(opened.error());
    LivePerformer *const performer = opened->get();
    std::atomic<bool> stopping = false;
    LatenessHistogram bareLateness;
    quint64 bareMissed = 0;
    std::thread bare([&] { bareLoop(realtime, stopping, bareLateness, bareMissed); });
    performer->start(program(seconds * 1000));
    while (performer->status().state == PlayState::Running)
        usleep(100'000);
    stopping = true;
    bare.join();

    const PlayStatus status = performer->status();
    const Punctuality &punctuality = status.punctuality;
    std::printf("\n%d streams of 8 channels, 4000 frames per second each, for %d s%s: lateness in "
                "microseconds\n  %-15s %9s %9s %9s   %8s\n",
                kStreams, seconds, realtime ? ", SCHED_FIFO" : "", "", "p50", "p99", "largest",
                "missed");
    printLateness("bare sleeping", bareLateness.percentile(50), bareLateness.percentile(99),
                  bareLateness.maximum(), bareMissed);
    printLateness("board, all sent", punctuality.latenessP50, punctuality.latenessP99,
                  punctuality.latenessMax, punctuality.missedDeadlines);
    const double load = std::chrono::duration<double>(performer->processorTime()).count() / seconds;
    std::printf("  %llu frames, %llu not taken; the playing thread took %.2f of a core (at most "
                "%.2f)%s;\n  bare sendmmsg without a pause takes %.2f for as many\n",
                static_cast<unsigned long long>(status.framesSent),
                static_cast<unsigned long long>(punctuality.sendFailures), load, kWantedLoad,
                load > kWantedLoad ? "  ABOVE" : "",
                double(status.framesSent) / seconds / bareRate);
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 10;
    if (argc > 2 || seconds < 1 || seconds > 3600)
        giveUp(QStringLiteral("its argument is how many seconds to keep time, 1 to 3600"));
    const char setUp[] = "ip link add board0 type veth peer name far0 && ip link set board0 up && "
                         "ip link set far0 up";
    if (unshare(CLONE_NEWNET) != 0 || std::system(setUp) != 0)
        giveUp(QStringLiteral("a network namespace with virtual Ethernet interfaces is needed"));
    const double bareRate = compareRates();
    keepTime(bareRate, seconds, {});
    keepTime(bareRate, seconds, 50);
    return 0;
}
