#include "virtualboard/play/performer.h"

#include "virtualboard/play/player.h"

#include <algorithm>

namespace virtualboard {

void Performer::show(const Player &player, const Transition *changes, int count,
                     const Punctuality &punctuality)
{
    showInputs(player);
    // First the changes, so that whoever sees the end of a sequence also sees why it ended.
    for (int i = 0; i < count; ++i)
        m_changes.last[m_changes.total++ % m_changes.last.size()] = changes[i];
    if (count > 0)
        m_shownChanges.write(m_changes);
    PlayStatus status = player.status();
    status.punctuality = punctuality;
    m_status.write(status);
}

/// Nothing in it waits, and nearly nothing is done without new inputs.
void Performer::showInputs(const Player &player)
{
    constexpr quint32 kCapacity = InputLog::kCapacity;
    const quint32 total = player.inputCount();
    const quint32 kept = std::min(total, kCapacity);
    quint32 number = std::min(m_inputTotal.load(std::memory_order_relaxed), kCapacity);
    for (number -= number % InputLog::kPartSize; number < kept; number += InputLog::kPartSize) {
        InputPart part;
        const quint32 count = std::min(kept - number, quint32(InputLog::kPartSize));
        std::copy_n(player.inputs() + number, count, part.begin());
        m_shownInputs[number / InputLog::kPartSize].write(part);
    }
    m_inputTotal.store(total, std::memory_order_release);
}

void Performer::show(const Player &player)
{
    show(player, player.changes(), player.changeCount());
}

void Performer::reportEnd(const Player &player, Duration limit, const NoticeHandler &report)
{
    const Cause cause = player.changes()[player.changeCount() - 1].cause;
    if (cause == Cause::Ring)
        report(QStringLiteral("the sequence was ended: its steps led to each other without taking "
                              "any time"));
    else if (cause == Cause::Limit)
        report(
            QStringLiteral("the sequence was ended: it had been played for %1 s").arg(limit / 1s));
}

TransitionLog Performer::log() const
{
    const Changes changes = m_shownChanges.read();
    TransitionLog log;
    log.total = changes.total;
    const quint32 kept = std::min(changes.total, quint32(TransitionLog::kCapacity));
    for (quint32 number = changes.total - kept; number < changes.total; ++number)
        log.last << changes.last[number % changes.last.size()];
    return log;
}

InputLog Performer::inputs(int part) const
{
    InputLog log;
    log.total = m_inputTotal.load(std::memory_order_acquire); // first: what it counts is there
    log.first = part * InputLog::kPartSize;
    const int kept = int(std::min(log.total, quint32(InputLog::kCapacity)));
    const InputPart records = m_shownInputs[std::size_t(part)].read();
    for (int i = 0; i < std::min(kept - log.first, InputLog::kPartSize); ++i)
        log.part << records[std::size_t(i)];
    return log;
}

void Performer::forgetLog()
{
    m_inputTotal = 0;
    m_changes = Changes();
    m_shownChanges.write(m_changes);
}

} // namespace virtualboard
