#include "liveperformer.h"

#include "livecapture.h"
#include "liveclock.h"
#include "livehistogram.h"
#include "liveinputs.h"
#include "liveprivileges.h"
#include "player.h"
#include "testprogram.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>

namespace virtualboard {

namespace {

constexpr qint64 second = 1'000'000'000; // ns
constexpr qint64 lead = 10'000'000; // ns; from the start command to the first instant

/// The wall-clock time, at least @p earliest, at which a sequence with this sample interval (ns)
/// may begin.
qint64 alignedStart(qint64 earliest, qint64 interval)
{
    const qint64 inSecond = earliest % second;
    return earliest - inSecond + (inSecond + interval - 1) / interval * interval;
}

/// Onto the wire, then into the capture, with the time at which it was sent.
class LiveSink : public FrameSink
{
public:
    LiveSink(PacketPorts &ports, LiveCapture *capture)
        : m_ports(ports)
        , m_capture(capture)
    { }

    void publish(qint64 time, const OutgoingFrame *frames, int count) override
    {
        m_ports.publish(time, frames, count);
        m_sentAt = monotonicTime();
        if (m_capture)
            m_capture->publish(m_sentAt, frames, count);
    }
    void note(qint64 /*time*/, const Transition &transition) override
    {
        if (m_capture)
            m_capture->note(monotonicTime(), transition);
    }
    /// When the frames of the instant were sent, by CLOCK_MONOTONIC; now, if it had none.
    qint64 takeSentAt()
    {
        const qint64 sentAt = std::exchange(m_sentAt, 0);
        return sentAt != 0 ? sentAt : monotonicTime();
    }

private:
    PacketPorts &m_ports;
    LiveCapture *const m_capture;
    qint64 m_sentAt = 0;
};

/// The reason if it is not possible, else empty.
QString setRealtime(std::thread &thread, int priority)
{
    sched_param parameters = {};
    parameters.sched_priority = priority;
    const int code = pthread_setschedparam(thread.native_handle(), SCHED_FIFO, &parameters);
    if (code == EPERM)
        return missingCapability(CAP_SYS_NICE);
    return code == 0 ? QString()
                     : QStringLiteral("Real-time priority %1 is not possible: %2.")
                           .arg(priority)
                           .arg(QString::fromLocal8Bit(strerror(code)));
}

QString lockMemory()
{
    return mlockall(MCL_CURRENT | MCL_FUTURE) == 0 ? QString() : missingCapability(CAP_IPC_LOCK);
}

QString setCpu(std::thread &thread, int cpu)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (cpu >= 0 && cpu < CPU_SETSIZE)
        CPU_SET(cpu, &set);
    const int code = pthread_setaffinity_np(thread.native_handle(), sizeof set, &set);
    return code == 0 ? QString()
                     : QStringLiteral("Processor %1 cannot be used: %2.")
                           .arg(cpu)
                           .arg(QString::fromLocal8Bit(strerror(code)));
}

} // namespace

struct LivePerformer::Private
{
    Private(std::unique_ptr<PacketPorts> openPorts, const LiveOptions &options, Report to)
        : report(std::move(to))
        , limit(options.limit)
        , ports(std::move(openPorts))
        , capture(options.capture ? std::make_unique<LiveCapture>(*options.capture, report)
                                  : nullptr)
        , inputs(*ports, capture.get(), report)
        , sink(*ports, capture.get())
    { }

    void begin(const TestProgram &program);
    void reportUnconnected(const TestProgram &program);
    void takeInputs(Player &player);
    void keepTime(qint64 lateness);
    void summarise();
    void finish();

    const Report report;
    const qint64 limit;
    const std::unique_ptr<PacketPorts> ports;
    const std::unique_ptr<LiveCapture> capture;
    LiveInputs inputs;
    LiveSink sink;
    SpscQueue<qint64> triggers{64}; ///< by CLOCK_MONOTONIC

    std::mutex mutex; ///< for the next two
    std::condition_variable changed; ///< one of them
    std::unique_ptr<Player> playing; ///< as long as there is one
    bool quit = false;
    std::atomic<bool> stopping = false;

    // Of the sequence; the playing thread's while there is a player.
    qint64 offset = 0; ///< absolute time less CLOCK_MONOTONIC
    qint64 startTime = 0; ///< absolute
    qint64 interval = 0; ///< ns
    qint64 lastInput = 0; ///< absolute
    quint64 earlierFailures = 0;
    LatenessHistogram lateness;
    Punctuality punctuality;

    std::thread thread;
};

LivePerformer::LivePerformer(std::unique_ptr<Private> state)
    : d(std::move(state))
{
    d->thread = std::thread([this] { run(); });
}

LivePerformer::~LivePerformer()
{
    LivePerformer::stop();
    {
        const std::lock_guard lock(d->mutex);
        d->quit = true;
    }
    d->changed.notify_all();
    d->thread.join();
}

std::unique_ptr<LivePerformer> LivePerformer::open(const LiveOptions &options, Report report,
                                                   QString *error)
{
    error->clear();
    if (!options.iKnow) {
        *error = defaultRouteWarning(options.interfaces);
        if (!error->isEmpty())
            return nullptr;
    }
    auto ports = PacketPorts::open(options.interfaces, error);
    if (!ports)
        return nullptr;
    std::unique_ptr<LivePerformer> result(
        new LivePerformer(std::make_unique<Private>(std::move(ports), options, std::move(report))));
    if (options.realtime) {
        *error = setRealtime(result->d->thread, *options.realtime);
        if (error->isEmpty())
            *error = setRealtime(result->d->inputs.thread(), std::max(1, *options.realtime - 1));
        if (error->isEmpty())
            *error = lockMemory();
    }
    if (error->isEmpty() && options.cpu)
        *error = setCpu(result->d->thread, *options.cpu);
    return error->isEmpty() ? std::move(result) : nullptr;
}

void LivePerformer::start(const TestProgram &program)
{
    stop();
    forgetLog();
    d->begin(program);
    const auto active = d->inputs.beginSequence(program.subscriptions());
    d->startTime = alignedStart(monotonicTime() + d->offset + lead, d->interval);
    auto player = std::make_unique<Player>(program, d->startTime, active);
    show(*player);
    {
        const std::lock_guard lock(d->mutex);
        d->playing = std::move(player);
    }
    d->changed.notify_all();
}

void LivePerformer::Private::begin(const TestProgram &program)
{
    reportUnconnected(program);
    while (triggers.front())
        triggers.pop();
    stopping = false;
    offset = wallClockOffset();
    if (capture)
        capture->begin(program, offset);
    interval = qint64(program.sampleInterval()) * 1000;
    lastInput = 0;
    earlierFailures = ports->failures();
    lateness = LatenessHistogram();
    punctuality = Punctuality();
}

void LivePerformer::Private::reportUnconnected(const TestProgram &program)
{
    std::array<int, portLimit + 1> streams = {};
    const auto count = [&](int port) {
        if (!ports->hasInterface(port) && port >= 1 && port <= portLimit)
            ++streams[std::size_t(port)];
    };
    for (const SvStream &stream : program.svStreams())
        count(stream.port);
    for (const GooseStream &stream : program.gooseStreams())
        count(stream.port);
    for (std::size_t port = 1; port < streams.size(); ++port) {
        if (streams[port] > 0)
            report(QStringLiteral("Port %1 has no interface: %2 of the streams are not sent.")
                       .arg(port)
                       .arg(streams[port]));
    }
}

void LivePerformer::stop()
{
    d->stopping = true;
    std::unique_lock lock(d->mutex);
    d->changed.wait(lock, [this] { return !d->playing; });
}

void LivePerformer::trigger()
{
    const std::lock_guard lock(d->mutex);
    if (d->playing && !d->triggers.push(monotonicTime()))
        d->report(QStringLiteral("A trigger was lost, too many came at once."));
}

void LivePerformer::watch(const TestProgram &program)
{
    d->inputs.watch(program.subscriptions());
}

qint64 LivePerformer::processorTime() const
{
    clockid_t clock = {};
    return pthread_getcpuclockid(d->thread.native_handle(), &clock) == 0 ? clockTime(clock) : 0;
}

void LivePerformer::run()
{
    prctl(PR_SET_TIMERSLACK, 1); // else the kernel may add 50 us to every sleep
    std::unique_lock lock(d->mutex);
    while (true) {
        d->changed.wait(lock, [this] { return d->quit || d->playing; });
        if (!d->playing)
            return;
        lock.unlock();
        play(*d->playing);
        d->finish();
        reportEnd(*d->playing, d->limit, d->report);
        show(*d->playing, d->punctuality); // last, so that whoever sees the end sees all of it
        lock.lock();
        d->playing.reset();
        d->changed.notify_all();
    }
}

/// The sample loop: nothing in it allocates, locks, or touches a file.
void LivePerformer::play(Player &player)
{
    while (true) {
        const qint64 instant = player.nextInstant();
        const qint64 deadline = instant - d->offset;
        sleepUntil(deadline);
        d->takeInputs(player);
        if (d->stopping.load(std::memory_order_relaxed))
            player.stop(Cause::Stop);
        else if (d->limit > 0 && instant - d->startTime >= d->limit)
            player.stop(Cause::Limit);
        player.play(d->sink);
        if (player.hasEnded())
            return;
        const qint64 late = d->sink.takeSentAt() - deadline;
        d->keepTime(late);
        show(player, d->punctuality, late);
    }
}

/// Hands on what has happened up to the next instant, in the order of time as far as it is known.
void LivePerformer::Private::takeInputs(Player &player)
{
    const qint64 instant = player.nextInstant();
    while (true) {
        const InputEvent *const event = inputs.events().front();
        const qint64 *const trigger = triggers.front();
        const bool triggerIsNext = trigger && (!event || *trigger < event->time);
        if (!triggerIsNext && !event)
            return;
        InputEvent next =
            triggerIsNext ? InputEvent{*trigger, InputEvent::Trigger, noChannel} : *event;
        next.time += offset;
        if (next.time > instant)
            return;
        triggerIsNext ? triggers.pop() : inputs.events().pop();
        // One that was on its way for long must not come before what has been played already.
        lastInput =
            std::max(next.time, instant == startTime ? lastInput : std::max(lastInput, startTime));
        next.time = lastInput;
        player.input(next);
    }
}

void LivePerformer::Private::keepTime(qint64 late)
{
    constexpr quint64 instantsBetweenSummaries = 256; // a percentile takes a while to find
    lateness.add(late);
    if (late > interval)
        ++punctuality.missedDeadlines;
    if (lateness.count() % instantsBetweenSummaries == 1)
        summarise();
}

void LivePerformer::Private::summarise()
{
    punctuality.sendFailures = ports->failures() - earlierFailures;
    punctuality.latenessP50 = lateness.percentile(50);
    punctuality.latenessP99 = lateness.percentile(99);
    punctuality.latenessMax = lateness.maximum();
}

void LivePerformer::Private::finish()
{
    summarise();
    inputs.endSequence();
    if (capture)
        capture->end();
}

} // namespace virtualboard
