/// \file
/// The search for the values at which a relay picks up and drops off. No clock and no board: it
/// says what to try next and is told what came of it.
#pragma once

#include "workbench/failure.h"
#include "workbench/verdict.h"

#include <QString>
#include <QVector>

#include <optional>

namespace workbench {

/// Finds between two values the one from which on a relay behaves otherwise, by halving.
class Bisection
{
public:
    struct Range
    {
        double from = 0; ///< there it does not
        double to = 1; ///< there it does; may be below #from
        Tolerance resolution; ///< the threshold is known to that, or better
        int mostShots = 40;
    };
    enum State {
        Searching,
        Found,
        NeverChanged, ///< alike at both ends
        AlwaysChanged, ///< likewise
        Reversed, ///< the other way round
        OutOfShots,
    };

    /// \a range is one that check() accepts. Both ends are tried first.
    explicit Bisection(const Range &range);

    /// Refuses numbers that are not finite, no range, no resolution, fewer than 3 shots.
    [[nodiscard]] static Expected<void> check(const Range &range);

    [[nodiscard]] State state() const { return m_state; }
    /// What to try next; the same until take(). Nothing when the search is over.
    [[nodiscard]] std::optional<double> next() const;
    /// \param behavesOtherwise at the value that next() said. Without effect when it is over.
    void take(bool behavesOtherwise);

    [[nodiscard]] int shots() const { return m_shots; }
    [[nodiscard]] const Range &range() const { return m_range; }
    /// The last value as at `from`, and the first one that is otherwise, as far as they are known.
    [[nodiscard]] double before() const { return m_before; }
    [[nodiscard]] double behind() const { return m_behind; }
    /// behind(), once it is found: too far from `from` by the resolution at most.
    [[nodiscard]] std::optional<double> threshold() const;

private:
    [[nodiscard]] double middle() const { return m_before + (m_behind - m_before) / 2; }
    [[nodiscard]] State stateOfEnds(bool atTo) const;
    [[nodiscard]] State stateOfBracket() const;

    Range m_range;
    State m_state = Searching;
    int m_shots = 0;
    bool m_atFrom = false;
    double m_before;
    double m_behind;
};

struct ThresholdSettings
{
    Bisection::Range range; ///< for the pick-up; the drop-off is looked for from its end backwards
    bool withDropOff = true;
    QString unit; ///< of the values
    Band pickUp; ///< what is allowed; unlimited: the value is only measured
    Band dropOff; ///< likewise
    Band resetRatio; ///< likewise; drop-off by pick-up
};

/// Finds the pick-up, then the drop-off.
class ThresholdSearch
{
public:
    struct Shot
    {
        enum Phase {
            PickUp, ///< apply the value to a relay that is at rest
            DropOff, ///< make it operate, then change to the value
        };
        Phase phase = PickUp;
        double value = 0;
    };

    explicit ThresholdSearch(const ThresholdSettings &settings);

    /// The shot to make next; the same until take(), so that one whose result is doubtful can be
    /// made again. Nothing when the search is over; the drop-off is left out without a pick-up.
    [[nodiscard]] std::optional<Shot> next() const;
    /// \param operated for a pick-up: it has tripped; for a drop-off: it has not dropped off
    void take(bool operated);
    [[nodiscard]] int shots() const { return m_pickUp.shots() + m_dropOff.shots(); }

    [[nodiscard]] std::optional<double> pickUp() const { return m_pickUp.threshold(); }
    [[nodiscard]] std::optional<double> dropOff() const { return m_dropOff.threshold(); }
    /// Drop-off by pick-up. Nothing for a pick-up of 0.
    [[nodiscard]] std::optional<double> resetRatio() const;

    /// Pick-up; with drop-off also that and the reset ratio. What was not found is not measured.
    [[nodiscard]] QVector<AssessmentResult> results() const;

private:
    [[nodiscard]] QString whyNot(const Bisection &search, const char *behaviour) const;

    ThresholdSettings m_settings;
    Bisection m_pickUp;
    Bisection m_dropOff;
};

} // namespace workbench
