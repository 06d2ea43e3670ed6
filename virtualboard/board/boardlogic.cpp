#include "virtualboard/board/boardlogic.h"

#include "virtualboard/wire/problems.h"

#include <utility>

namespace virtualboard {

NoticeCounter::NoticeCounter(NoticeHandler next)
    : m_next(std::move(next))
{ }

void NoticeCounter::report(const QString &line)
{
    ++m_count;
    m_next(line);
}

BoardLogic::BoardLogic(Performer &performer, NoticeCounter &reports)
    : m_performer(performer)
    , m_reports(reports)
{ }

void BoardLogic::obey(const DecodedCommand &decoded)
{
    const QStringList problems = fewOf(m_program.take(decoded));
    if (!problems.isEmpty() || !m_told.isEmpty())
        tell(problems);
    if (!isObeyed(decoded))
        return;
    std::visit([this](const auto &command) { act(command); }, decoded.command);
    // The sample interval is part of the start command: whatever it is then, step 0 is what arms.
    m_playable = m_program.step(0).has_value();
}

/// Each stream that cannot be published is told of once, until it can be or all are forgotten.
void BoardLogic::tell(const QStringList &problems)
{
    const QStringList unpublished = m_program.unpublished();
    QStringList told;
    for (const QString &line : std::as_const(m_told)) {
        if (unpublished.contains(line))
            told << line;
    }
    for (const QString &problem : problems) {
        if (told.contains(problem))
            continue;
        m_reports.report(problem);
        if (unpublished.contains(problem))
            told << problem;
    }
    m_told = told;
}

void BoardLogic::start()
{
    m_started = true;
    m_stopped = false;
    tell(m_program.unpublished() + m_program.rateConflicts());
    const QString fault = m_program.whyNotPlayable();
    m_played = fault.isEmpty(); // else nobody shall take the last sequence for this one
    if (m_played) {
        ++m_starts;
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

void BoardLogic::act(const ResetCommand &)
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
    if (which == LogStatus) {
        TransitionLog log = m_played ? m_performer.log() : TransitionLog();
        log.start = m_starts;
        return encodeLog(log);
    }
    if (which >= InputStatus && which < InputStatus + InputLog::kParts) {
        const int part = which - InputStatus;
        InputLog log = m_played ? m_performer.inputs(part) : InputLog();
        log.first = part * InputLog::kPartSize;
        log.start = m_starts;
        return encodeInputs(log);
    }
    if (which != StateStatus)
        return encodeNothing();
    PlayStatus status;
    if (m_played)
        status = m_performer.status();
    else
        status.state = m_playable ? PlayState::Armed : PlayState::Idle;
    return encodeState(status, m_reports.count(), m_starts);
}

} // namespace virtualboard
