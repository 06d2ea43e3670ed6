#include "performer.h"

#include "player.h"

namespace virtualboard {

void Performer::show(const Player &player, const Punctuality &punctuality)
{
    // First the changes, so that whoever sees the end of a sequence also sees why it ended.
    for (int i = 0; i < player.changeCount(); ++i) {
        if (!m_changes.push(player.changes()[i]))
            m_lostChanges.fetch_add(1, std::memory_order_relaxed);
    }
    PlayStatus status = player.status();
    status.punctuality = punctuality;
    m_status.write(status);
}

void Performer::reportEnd(const Player &player, qint64 limit, const Report &report)
{
    constexpr qint64 second = 1'000'000'000; // ns
    const Cause cause = player.changes()[player.changeCount() - 1].cause;
    if (cause == Cause::Ring)
        report(QStringLiteral("the sequence was ended: its steps led to each other without taking "
                              "any time"));
    else if (cause == Cause::Limit)
        report(QStringLiteral("the sequence was ended: it had been played for %1 s")
                   .arg(limit / second));
}

TransitionLog Performer::log()
{
    m_log.total += m_lostChanges.exchange(0, std::memory_order_relaxed);
    while (const Transition *const change = m_changes.front()) {
        ++m_log.total;
        if (m_log.last.size() == TransitionLog::capacity)
            m_log.last.removeFirst();
        m_log.last << *change;
        m_changes.pop();
    }
    return m_log;
}

void Performer::forgetLog()
{
    log();
    m_log = TransitionLog();
}

} // namespace virtualboard
