#include "virtualboard/live/liveperformer.h"

#include "virtualboard/live/livecapture.h"
#include "virtualboard/live/livehistogram.h"
#include "virtualboard/live/liveinputs.h"
#include "virtualboard/live/liveprivileges.h"
#include "virtualboard/play/player.h"
#include "virtualboard/play/testprogram.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>

namespace virtualboard {

namespace {

constexpr Duration kLead = 10ms; // from the start command to the first instant

/// The time, at least \a earliest, at which a sequence with this sample interval may begin.
WallTime alignedStart(WallTime earliest, SampleRate rate)
{
    const auto second = std::chrono::floor<std::chrono::seconds>(earliest);
    qint64 number = (earliest - second) / rate.interval(); // or a little later
    while (second + rate.timeOf(number) < earliest)
        ++number;
    return second + rate.timeOf(number);
}

/// Onto the wire, then into the capture, with the time at which it was sent. What an instant's
/// changes of steps were late by is known only when its frames are out; their marks stand in front
/// of them nevertheless. Also watches what disturbs the time between the changes.
class LiveSink : public FrameSink
{
public:
    LiveSink(PacketPorts &ports, const LiveInputs &inputs, LiveCapture *capture)
        : m_ports(ports)
        , m_inputs(inputs)
        , m_capture(capture)
    { }

    /// A sequence begins.
    void beginSequence(ClockOffset offset, Duration interval)
    {
        m_offset = offset;
        m_interval = interval;
        m_failures = m_ports.failures();
        m_losses = m_inputs.losses();
        m_disturbances = 0;
    }
    void beginInstant()
    {
        m_lateness.reset();
        m_changeCount = 0;
        m_inputCount = 0;
    }
    void publish(WallTime time, const OutgoingFrame *frames, int count) override
    {
        m_ports.publish(time, frames, count);
        const MonotonicTime sentAt = conclude(time);
        if (m_capture)
            m_capture->publish(sentAt, frames, count);
    }
    void note(WallTime /*time*/, const Transition &transition) override
    {
        m_changes[m_changeCount++] = transition;
    }
    void noteInputs(WallTime /*time*/, const RecordedInput *inputs, int count) override
    {
        m_newInputs = inputs;
        m_inputCount = count;
    }
    /// By how much the frames of the instant were late; if it had none, it is over now.
    Duration endInstant(WallTime instant)
    {
        if (!m_lateness)
            conclude(instant);
        return *m_lateness;
    }
    /// Those of the instant that is over, with what the player does not know of them.
    const Transition *changes() const { return m_changes.data(); }
    int changeCount() const { return int(m_changeCount); }

private:
    MonotonicTime conclude(WallTime instant)
    {
        const MonotonicTime now = MonotonicClock::now();
        m_lateness = now - m_offset.monotonic(instant);
        if (m_capture)
            m_capture->noteInputs(now, m_newInputs, m_inputCount);
        const quint8 disturbances = disturbancesOfInstant();
        for (std::size_t i = 0; i < m_changeCount; ++i) {
            m_changes[i].lateness = *m_lateness;
            // Inputs that are known to be lost by now may be older than the change.
            m_changes[i].disturbances = m_disturbances | (disturbances & InputsLost);
            m_disturbances = disturbances;
            if (m_capture)
                m_capture->note(now, m_changes[i]);
        }
        m_disturbances |= disturbances;
        return now;
    }
    quint8 disturbancesOfInstant()
    {
        quint8 result = *m_lateness > m_interval ? SentLate : 0;
        if (m_failures != m_ports.failures())
            result |= FramesRefused;
        if (m_losses != m_inputs.losses())
            result |= InputsLost;
        m_failures = m_ports.failures();
        m_losses = m_inputs.losses();
        return result;
    }

    PacketPorts &m_ports;
    const LiveInputs &m_inputs;
    LiveCapture *const m_capture;
    ClockOffset m_offset;
    Duration m_interval = {};
    quint64 m_failures = 0; ///< until the last instant
    quint64 m_losses = 0; ///< likewise
    quint8 m_disturbances = 0; ///< since the last change of steps
    std::array<Transition, Player::kMaximumChanges> m_changes;
    std::size_t m_changeCount = 0; ///< of the instant
    const RecordedInput *m_newInputs = nullptr; ///< the player's
    int m_inputCount = 0; ///< of those, of the instant
    std::optional<Duration> m_lateness; ///< of the instant, once that is known
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
    Private(std::unique_ptr<PacketPorts> openPorts, const LiveOptions &options, NoticeHandler to)
        : report(std::move(to))
        , locksMemory(options.realtime.has_value())
        , prepareThread([this] { giveUpCapabilities(locksMemory, report); })
        , limit(options.limit)
        , phases(options.phases)
        , ports(std::move(openPorts))
        , capture(options.capture
                      ? std::make_unique<LiveCapture>(*options.capture, report, prepareThread)
                      : nullptr)
        , inputs(*ports, capture.get(), report, prepareThread)
        , sink(*ports, inputs, capture.get())
    { }

    QString prefer(const LiveOptions &options);
    void begin(const TestProgram &program);
    void reportUnconnected(const TestProgram &program);
    void takeInputs(Player &player);
    void keepTime(Duration lateness);
    void summarise();
    void finish();

    const NoticeHandler report;
    const bool locksMemory;
    const std::function<void()> prepareThread; ///< each thread's first; the sockets are open then
    const Duration limit;
    const Phases phases;
    const std::unique_ptr<PacketPorts> ports;
    const std::unique_ptr<LiveCapture> capture;
    LiveInputs inputs;
    LiveSink sink;
    moodycamel::ReaderWriterQueue<MonotonicTime> triggers{64};

    std::mutex mutex; ///< for the next two
    std::condition_variable changed; ///< one of them
    std::unique_ptr<Player> playing; ///< as long as there is one
    bool quit = false;
    std::atomic<bool> stopping = false;

    // Of the sequence; the playing thread's while there is a player.
    ClockOffset offset;
    WallTime startTime;
    SampleRate rate;
    WallTime lastInput;
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
    if (d->locksMemory)
        munlockall(); // threads without CAP_IPC_LOCK may follow
}

Expected<std::unique_ptr<LivePerformer>> LivePerformer::open(const LiveOptions &options,
                                                             NoticeHandler report)
{
    if (!options.iKnow) {
        if (const QString warning = defaultRouteWarning(options.interfaces); !warning.isEmpty())
            return Refusal(warning);
    }
    auto ports = PacketPorts::open(options.interfaces);
    if (!ports)
        return Refusal(ports.error());
    std::unique_ptr<LivePerformer> result(new LivePerformer(
        std::make_unique<Private>(std::move(*ports), options, std::move(report))));
    if (const QString reason = result->d->prefer(options); !reason.isEmpty())
        return Refusal(reason);
    return result;
}

/// Gives the threads what the options ask for; the reason if that is not possible, else empty.
QString LivePerformer::Private::prefer(const LiveOptions &options)
{
    QString reason;
    if (options.realtime) {
        reason = setRealtime(thread, *options.realtime);
        if (reason.isEmpty())
            reason = setRealtime(inputs.thread(), std::max(1, *options.realtime - 1));
        if (reason.isEmpty())
            reason = lockMemory();
    }
    return reason.isEmpty() && options.cpu ? setCpu(thread, *options.cpu) : reason;
}

void LivePerformer::start(const TestProgram &program)
{
    stop();
    forgetLog();
    d->begin(program);
    const auto active = d->inputs.beginSequence(program.subscriptions());
    d->startTime = alignedStart(d->offset.wall(MonotonicClock::now()) + kLead, d->rate);
    auto player = std::make_unique<Player>(program, d->startTime, d->phases, active);
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
    while (triggers.pop()) { }
    stopping = false;
    offset = ClockOffset::measured();
    rate = program.sampleRate();
    sink.beginSequence(offset, rate.interval());
    if (capture)
        capture->begin(program, offset);
    lastInput = {};
    earlierFailures = ports->failures();
    lateness = LatenessHistogram();
    punctuality = Punctuality();
}

void LivePerformer::Private::reportUnconnected(const TestProgram &program)
{
    std::array<int, kPortLimit + 1> streams = {};
    const auto count = [&](int port) {
        if (!ports->hasInterface(port) && port >= 1 && port <= kPortLimit)
            ++streams[std::size_t(port)];
    };
    for (const PlayedSv &stream : program.svStreams())
        count(stream.port);
    for (const PlayedGoose &stream : program.gooseStreams())
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
    if (d->playing && !d->triggers.try_enqueue(MonotonicClock::now()))
        d->inputs.countLoss();
}

void LivePerformer::watch(const TestProgram &program)
{
    d->inputs.watch(program.subscriptions());
}

Duration LivePerformer::processorTime() const
{
    clockid_t clock = {};
    timespec time = {};
    if (pthread_getcpuclockid(d->thread.native_handle(), &clock) == 0)
        clock_gettime(clock, &time);
    return durationOf(time);
}

void LivePerformer::run()
{
    d->prepareThread();
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
        // Last, so that whoever sees the end sees all of it.
        show(*d->playing, d->sink.changes(), d->sink.changeCount(), d->punctuality);
        lock.lock();
        d->playing.reset();
        d->changed.notify_all();
    }
}

/// The sample loop: nothing in it allocates, locks, or touches a file.
void LivePerformer::play(Player &player)
{
    while (true) {
        const WallTime instant = player.nextInstant();
        sleepUntil(d->offset.monotonic(instant));
        if (d->limit > 0ns && instant - d->startTime >= d->limit)
            player.stop(Cause::Limit); // first, so that no input of this instant ends the step
        d->takeInputs(player);
        if (d->stopping.load(std::memory_order_relaxed))
            player.stop(Cause::Stop);
        d->sink.beginInstant();
        player.play(d->sink);
        const Duration late = d->sink.endInstant(instant);
        if (player.hasEnded())
            return;
        d->keepTime(late);
        show(player, d->sink.changes(), d->sink.changeCount(), d->punctuality);
    }
}

/// Hands on what has happened up to the next instant, in the order of time as far as it is known.
void LivePerformer::Private::takeInputs(Player &player)
{
    const WallTime instant = player.nextInstant();
    while (true) {
        const InputAt<MonotonicTime> *const event = inputs.events().peek();
        const MonotonicTime *const trigger = triggers.peek();
        const bool triggerIsNext = trigger && (!event || *trigger < event->time);
        if (!triggerIsNext && !event)
            return;
        InputEvent next = triggerIsNext
            ? InputEvent{offset.wall(*trigger), InputKind::Trigger, kNoChannel}
            : InputEvent{offset.wall(event->time), event->kind, event->channel};
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

void LivePerformer::Private::keepTime(Duration late)
{
    constexpr quint64 kInstantsBetweenSummaries = 256; // a percentile takes a while to find
    lateness.add(late);
    if (late > rate.interval())
        ++punctuality.missedDeadlines;
    if (lateness.count() % kInstantsBetweenSummaries == 1)
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
