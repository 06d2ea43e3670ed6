#include "boardlogic.h"

#include <utility>

namespace virtualboard {

ReportCounter::ReportCounter(Report next)
    : m_next(std::move(next))
{ }

void ReportCounter::report(const QString &line)
{
    ++m_count;
    m_next(line);
}

BoardLogic::BoardLogic(Performer &performer, ReportCounter &reports)
    : m_performer(performer)
    , m_reports(reports)
{ }

void BoardLogic::obey(const DecodedCommand &decoded)
{
    const QStringList problems = m_program.take(decoded);
    for (const QString &problem : problems)
        m_reports.report(problem);
    const bool isTemplate = std::holds_alternative<FrameTemplate>(decoded.command);
    if (!decoded.problems.isEmpty() && !isTemplate)
        return;
    if (const auto *const startStop = std::get_if<StartStop>(&decoded.command))
        startStop->start ? start() : stop();
    else if (std::holds_alternative<Stop>(decoded.command))
        stop();
    else if (std::holds_alternative<StateChange>(decoded.command))
        m_performer.trigger();
    else if (std::holds_alternative<ResetParameters>(decoded.command))
        reset();
    else if (std::holds_alternative<Subscription>(decoded.command))
        m_performer.watch(m_program);
    // The sample interval is part of the start command: whatever it is then, step 0 is what arms.
    m_playable = m_program.step(0) != nullptr;
}

void BoardLogic::start()
{
    m_started = true;
    m_stopped = false;
    const QStringList unpublished = m_program.unpublished();
    for (const QString &line : unpublished)
        m_reports.report(line);
    const QString fault = m_program.whyNotPlayable();
    m_played = fault.isEmpty(); // else nobody shall take the last sequence for this one
    if (m_played) {
        m_performer.start(m_program);
    } else {
        m_performer.stop();
        m_reports.report(fault);
    }
}

void BoardLogic::stop()
{
    m_performer.stop();
    m_stopped = true;
}

void BoardLogic::reset()
{
    m_performer.stop();
    m_performer.watch(m_program);
    m_played = false;
}

PlayState BoardLogic::state() const
{
    if (m_played)
        return m_performer.status().state;
    return m_playable ? PlayState::Armed : PlayState::Idle;
}

QByteArray BoardLogic::status(int which)
{
    if (which == LogStatus)
        return encodeLog(m_played ? m_performer.log() : TransitionLog());
    if (which != StateStatus)
        return encodeNothing();
    PlayStatus status;
    if (m_played)
        status = m_performer.status();
    else
        status.state = m_playable ? PlayState::Armed : PlayState::Idle;
    return encodeState(status, m_reports.count());
}

} // namespace virtualboard
