/// \file
/// What a test expects of a sequence that has been played, and what came of it. Pure: a verdict
/// never looks at anything but the observation, so that it can be given again from a record.
///
/// A verdict is doubtful, whatever it would be, if the board was disturbed between the events, and
/// if an event may be missing from the records that ended too early. What has happened although it
/// must never, or was wrong before anything was lost, has failed.
#pragma once

#include "workbench/characteristic.h"
#include "workbench/observation.h"
#include "workbench/timeline.h"
#include "workbench/verdict.h"

#include <QVector>

#include <chrono>
#include <optional>
#include <variant>

namespace workbench {

/// The time from one event to another.
struct TimeAssessment
{
    /// What a time measures, as in IEC 60255-1; a label only.
    enum Kind { Plain, Start, Operate, Reset };
    enum Coming {
        Must, ///< the second event has to come
        May, ///< if it comes, then within what is allowed
        MustNot, ///< it has to stay away
    };

    Event from;
    Event to; ///< counted from the first event on, for #MustNot and with #ignoreBefore
    Kind kind = Plain;
    Coming coming = Must;
    Band allowed; ///< seconds; unlimited: the time is only measured. Not for #MustNot.
    /// After the first event: what comes earlier does not count.
    std::chrono::nanoseconds ignoreBefore{0};
    /// After the first event, for #MustNot: how long; else to the end.
    std::optional<std::chrono::nanoseconds> within;
};

/// \a assessment of what is expected: the time has to be in the band, or the trip may stay away, or
/// must.
[[nodiscard]] TimeAssessment expecting(const ExpectedTime &expected, TimeAssessment assessment);

/// A logic input is on, or off, while a step lasts.
struct LevelAssessment
{
    enum When { Throughout, AtEnd };

    int channel = 0;
    bool on = false;
    int step = 0;
    int occurrence = 1; ///< of the entry into the step, from 1
    When when = Throughout; ///< from the entry to the end of the step, both included
    QString name; ///< of the input, in sentences; empty: made from the channel
};

/// Something does not happen in the whole sequence: the rise of an input, the entry into a step.
/// With an event's occurrence of 2 it may happen once.
struct NeverAssessment
{
    Event event;
};

/// The sequence walks through these steps, and no others.
struct PathAssessment
{
    QVector<int> steps;
};

using Assessment = std::variant<TimeAssessment, LevelAssessment, NeverAssessment, PathAssessment>;

[[nodiscard]] AssessmentResult assess(const TimeAssessment &wanted, const Observation &observation);
[[nodiscard]] AssessmentResult assess(const LevelAssessment &wanted,
                                      const Observation &observation);
[[nodiscard]] AssessmentResult assess(const NeverAssessment &wanted,
                                      const Observation &observation);
[[nodiscard]] AssessmentResult assess(const PathAssessment &wanted, const Observation &observation);
[[nodiscard]] AssessmentResult assess(const Assessment &wanted, const Observation &observation);

/// "time", "start time", "operate time", "reset time".
[[nodiscard]] QString timeKindName(TimeAssessment::Kind kind);

} // namespace workbench
