/// \file
/// Events of a sequence that has been played, in the order in which they happened.
#pragma once

#include "workbench/observation.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <chrono>
#include <optional>

namespace workbench {

/// One event of a sequence, as an assessment names it.
struct Event
{
    enum Kind {
        Start, ///< of the sequence: the first frames of its first step
        InputOn, ///< a logic channel becomes active
        InputOff,
        Trigger,
        StepLeft, ///< the cause for which a step is left
        StepEntered, ///< the first frames of a step are sent, however late
        End, ///< the cause for which the sequence ends
    };
    /// Of #occurrence: the first one after the other event. Only for the second of two events.
    static constexpr int kFirstAfter = 0;

    Kind kind = Start;
    int number = 0; ///< step, from 0, or logic channel
    int occurrence = 1; ///< first, second, ...
    QString name; ///< in sentences, as "the trip"; empty: made from the other members
};

/// "the trip", "entry into step fault", "rise 2 of logic channel 0".
[[nodiscard]] QString eventText(const Event &event, const QStringList &stepNames);
/// "step fault", or "step 1" where there is no name.
[[nodiscard]] QString stepText(int step, const QStringList &stepNames);

/// One that happened.
struct Moment
{
    Event::Kind kind = Event::Start;
    int number = 0;
    std::chrono::nanoseconds time{0}; ///< since the start of the sequence
    /// The sample instant, where #time is that at which its frames were sent; else the same.
    std::chrono::nanoseconds instant{0};
    int change = -1; ///< index of the change of steps; -1 for an input or a trigger
};

/// What is known of a sequence, sorted by time. At the same time inputs come before the change that
/// they caused, and leaving a step before entering the next one.
class Timeline
{
public:
    /// \a observation must outlive the timeline.
    explicit Timeline(const Observation &observation);

    [[nodiscard]] const QVector<Moment> &moments() const { return m_moments; }
    [[nodiscard]] const Observation &observation() const { return m_observation; }

    /// Index of the event among moments(), or -1.
    /// \param begin first index to look at
    /// \param notBefore earlier ones do not count
    [[nodiscard]] int
    find(const Event &event, int begin = 0,
         std::chrono::nanoseconds notBefore = std::chrono::nanoseconds::min()) const;
    /// When the sequence ended, by itself or not.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> end() const;
    /// Up to when the steps are known: the end, or the last entry into one.
    [[nodiscard]] std::chrono::nanoseconds knownUntil() const;
    /// Whether the sequence is known to have been played to its own end.
    [[nodiscard]] bool isComplete() const { return m_observation.complete && end(); }

    /// What happened to the board between the two times, which makes a time between them doubtful,
    /// as "sent late".
    [[nodiscard]] QStringList disturbances(std::chrono::nanoseconds from,
                                           std::chrono::nanoseconds to) const;
    /// What has been lost so that \a event may have happened between the two times and is not here.
    [[nodiscard]] QStringList losses(const Event &event, std::chrono::nanoseconds from,
                                     std::chrono::nanoseconds to) const;

    /// Whether logic channel \a channel was active at \a time, with what changed just then.
    [[nodiscard]] bool isActive(int channel, std::chrono::nanoseconds time) const;

private:
    [[nodiscard]] int disturbanceBits(std::chrono::nanoseconds from,
                                      std::chrono::nanoseconds to) const;

    const Observation &m_observation;
    QVector<Moment> m_moments;
};

} // namespace workbench
