#include "virtualtime.h"

#include "player.h"
#include "testprogram.h"

#include <memory>
#include <utility>

namespace virtualboard {

namespace {

constexpr qint64 second = 1'000'000'000; // ns

class NullSink : public FrameSink
{
public:
    void publish(qint64, const OutgoingFrame *, int) override { }
};

/// Hands out the planned inputs when their time comes.
class InputFeed
{
public:
    InputFeed(const PlannedInputs &inputs, const Report &report)
        : m_inputs(inputs)
        , m_report(report)
    { }

    void feed(Player &player)
    {
        const qint64 now = player.nextInstant();
        for (; m_event < m_inputs.events.size() && m_inputs.events[m_event].time <= now; ++m_event)
            player.input(m_inputs.events[m_event]);
        for (; m_reported < m_inputs.reports.size() && m_inputs.reports[m_reported].time <= now;
             ++m_reported)
            m_report(m_inputs.reports[m_reported].text);
    }

private:
    const PlannedInputs &m_inputs;
    const Report &m_report;
    int m_event = 0;
    int m_reported = 0;
};

} // namespace

VirtualTimePerformer::VirtualTimePerformer(Options options, Report report)
    : m_options(std::move(options))
    , m_report(std::move(report))
    , m_nextStart(m_options.startTime)
{ }

VirtualTimePerformer::~VirtualTimePerformer()
{
    stop();
}

void VirtualTimePerformer::start(const TestProgram &program)
{
    stop();
    forgetLog();
    m_stop = false;
    m_trigger = false;
    const qint64 startTime = m_nextStart;
    auto player = std::make_unique<Player>(program, startTime);
    show(*player);
    PlannedInputs inputs;
    if (m_options.inputs)
        inputs = m_options.inputs->plan(program.subscriptions(), startTime);
    if (m_options.sink)
        m_options.sink->begin(program);
    m_thread = std::thread([this, player = std::move(player), inputs = std::move(inputs)] {
        play(*player, inputs);
        m_nextStart = (player->nextInstant() / second + 1) * second;
    });
}

void VirtualTimePerformer::stop()
{
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
}

void VirtualTimePerformer::play(Player &player, const PlannedInputs &inputs)
{
    NullSink nowhere;
    FrameSink &sink = m_options.sink ? *m_options.sink : nowhere;
    const qint64 limit = player.nextInstant() + m_options.limit;
    InputFeed feed(inputs, m_report);
    while (!player.hasEnded()) {
        feed.feed(player);
        if (m_trigger.exchange(false))
            player.input({player.nextInstant(), InputEvent::Trigger, noChannel});
        if (m_stop)
            player.stop(Cause::Stop);
        else if (player.nextInstant() >= limit)
            player.stop(Cause::Limit);
        player.play(sink);
        if (player.hasEnded())
            sink.end(); // before anyone sees the end, so that the capture is complete by then
        show(player);
    }
    reportEnd(player, m_options.limit, m_report);
}

} // namespace virtualboard
