/// \file
/// When a protection function is expected to operate, for a value that it measures.
#pragma once

#include "workbench/failure.h"
#include "workbench/verdict.h"

#include <QString>
#include <QVector>

#include <optional>
#include <variant>

namespace workbench {

/// The constants of t(G) = multiplier * (k / ((G / pick-up)^alpha - 1) + c).
struct InverseCurve
{
    QString name; ///< empty for one of the user's own
    double k = 0; ///< seconds, as c
    double c = 0;
    double alpha = 1;
};

/// The curves A to F of IEC 60255-151:2009, by that letter.
[[nodiscard]] const QVector<InverseCurve> &standardCurves();
/// The one of that letter, in either case, or of that name ("normal inverse"); else nothing.
[[nodiscard]] std::optional<InverseCurve> standardCurve(const QString &letterOrName);

struct InverseTime
{
    InverseCurve curve;
    double pickUp = 1; ///< in the unit of the values; above 0
    double timeMultiplier = 1; ///< above 0
    double leastTime = 0; ///< seconds: it is never faster
    double constantAbove = 20; ///< multiple of the pick-up from which on the time stays as it is
};

struct DefiniteTime
{
    double pickUp = 1; ///< 0 or more
    double time = 0; ///< seconds
};

/// Points with straight lines between them. Below the first one no trip is expected, behind the
/// last one its time.
struct TimeTable
{
    struct Point
    {
        double value = 0;
        double time = 0; ///< seconds
    };
    QVector<Point> points; ///< 1 or more, by rising value
};

/// A plain number is the same time, in seconds, for every value.
using Characteristic = std::variant<double, DefiniteTime, InverseTime, TimeTable>;

/// The expected time in seconds. Nothing where no trip is expected: at the pick-up or below. The
/// characteristic is one that check() accepts.
[[nodiscard]] std::optional<double> timeFor(const Characteristic &characteristic, double value);
/// Refuses numbers that are out of range or not finite, and a table that does not rise.
[[nodiscard]] Expected<void> check(const Characteristic &characteristic);

/// A characteristic with what is allowed around it.
struct Expectation
{
    Characteristic characteristic = 0.0;
    Tolerance minus; ///< of the time
    Tolerance plus; ///< likewise
    double valueTolerance = 0; ///< percent, by which the value itself may be wrong; below 100
};

/// What is to be expected for one value.
struct ExpectedTime
{
    enum Trip {
        Certain, ///< within the band
        Possible, ///< near the pick-up: it may stay away, or come no earlier than the band says
        None,
    };
    Trip trip = None;
    Band band; ///< seconds
};

/// The band around the times of all values that \a value may be in truth.
[[nodiscard]] ExpectedTime expectedTime(const Expectation &expectation, double value);

} // namespace workbench
