#include "virtualboard/board/virtualtime.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/play/player.h"
#include "virtualboard/play/testprogram.h"

#include <memory>
#include <utility>

namespace virtualboard {

namespace {

/// Sample instants after which the player's state is shown although nothing has happened.
constexpr unsigned kInstantsUnseen = 64;

/// Hands out the planned inputs when their time comes.
class InputFeed
{
public:
    InputFeed(const PlannedInputs &inputs, const NoticeHandler &report)
        : m_inputs(inputs)
        , m_report(report)
    { }

    void feed(Player &player)
    {
        const WallTime now = player.nextInstant();
        for (; m_event < m_inputs.events.size() && m_inputs.events[m_event].time <= now; ++m_event)
            player.input(m_inputs.events[m_event]);
        for (; m_reported < m_inputs.reports.size() && m_inputs.reports[m_reported].time <= now;
             ++m_reported)
            m_report(m_inputs.reports[m_reported].text);
    }

private:
    const PlannedInputs &m_inputs;
    const NoticeHandler &m_report;
    int m_event = 0;
    int m_reported = 0;
};

} // namespace

VirtualTimePerformer::VirtualTimePerformer(Options options, NoticeHandler report)
    : m_options(std::move(options))
    , m_report(std::move(report))
    , m_nextStart(m_options.startTime)
{ }

VirtualTimePerformer::~VirtualTimePerformer()
{
    VirtualTimePerformer::stop();
}

void VirtualTimePerformer::start(const TestProgram &program)
{
    const std::lock_guard<std::mutex> lock(m_commands);
    end();
    forgetLog();
    m_stop = false;
    m_trigger = false;
    const WallTime startTime = m_nextStart;
    auto player = std::make_unique<Player>(program, startTime, m_options.phases);
    show(*player);
    PlannedInputs inputs;
    if (m_options.inputs)
        inputs = m_options.inputs->plan(program.subscriptions(), startTime);
    if (m_options.capture)
        m_options.capture->begin(program);
    setPlaying(true);
    m_thread = std::thread([this, player = std::move(player), inputs = std::move(inputs)] {
        play(*player, inputs);
        m_nextStart = std::chrono::floor<std::chrono::seconds>(player->nextInstant()) + 1s;
        setPlaying(false);
    });
}

void VirtualTimePerformer::stop()
{
    const std::lock_guard<std::mutex> lock(m_commands);
    end();
}

void VirtualTimePerformer::prepare(Options options)
{
    const std::lock_guard<std::mutex> lock(m_commands);
    end();
    m_options = std::move(options);
    m_nextStart = m_options.startTime;
    m_failureReported = false;
}

void VirtualTimePerformer::setPlaying(bool isPlaying)
{
    const std::lock_guard<std::mutex> lock(m_playing);
    m_isPlaying = isPlaying;
    m_ended.notify_all();
}

bool VirtualTimePerformer::waitForEnd(std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(m_playing);
    return m_ended.wait_for(lock, timeout, [this] { return !m_isPlaying; });
}

void VirtualTimePerformer::end()
{
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
}

void VirtualTimePerformer::play(Player &player, const PlannedInputs &inputs)
{
    CaptureSink *const sink = m_options.capture;
    unsigned unseen = 0;
    const WallTime limit = player.nextInstant() + m_options.limit;
    InputFeed feed(inputs, m_report);
    for (quint64 instant = 0; !player.hasEnded(); ++instant) {
        constexpr quint64 kInstantsBetweenLooks = 20000; // a look costs as much as some frames
        if (instant % kInstantsBetweenLooks == kInstantsBetweenLooks - 1)
            watchCapture();
        if (player.nextInstant() >= limit || captureIsFull())
            player.stop(Cause::Limit); // first, so that no input of this instant ends the step
        feed.feed(player);
        if (m_trigger.exchange(false))
            player.input({player.nextInstant(), InputKind::Trigger, kNoChannel});
        if (m_stop)
            player.stop(Cause::Stop);
        sink ? player.play(*sink) : player.play();
        if (sink && player.hasEnded())
            sink->end(); // before anyone sees the end, so that the capture is complete by then
        if (player.hasEnded() || player.changeCount() > 0 || ++unseen == kInstantsUnseen) {
            show(player);
            unseen = 0;
        }
    }
    watchCapture();
    reportEnd(player);
}

bool VirtualTimePerformer::captureIsFull() const
{
    return m_options.captureLimit > 0 && m_options.capture
        && m_options.capture->size() >= m_options.captureLimit;
}

/// Who waits for the capture shall not wait until the board ends.
void VirtualTimePerformer::watchCapture()
{
    if (!m_options.capture || m_failureReported)
        return;
    if (const Expected<void> written = m_options.capture->flush(); !written) {
        m_failureReported = true;
        m_report(written.error());
    }
}

void VirtualTimePerformer::reportEnd(const Player &player)
{
    const bool isLimit = player.changes()[player.changeCount() - 1].cause == Cause::Limit;
    if (isLimit && captureIsFull())
        m_report(QStringLiteral("the sequence was ended: the capture has reached its limit of %1 "
                                "MiB")
                     .arg(m_options.captureLimit >> 20));
    else
        Performer::reportEnd(player, m_options.limit, m_report);
}

} // namespace virtualboard
