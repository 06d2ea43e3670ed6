#include "workbench/characteristic.h"

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

double inverseTime(const InverseTime &inverse, double value)
{
    const double multiple = std::min(value / inverse.pickUp, inverse.constantAbove);
    // expm1(alpha ln M) is M^alpha - 1 without its loss of digits near the pick-up
    const double growth = std::expm1(inverse.curve.alpha * std::log(multiple));
    const double time = inverse.timeMultiplier * (inverse.curve.k / growth + inverse.curve.c);
    return std::max(time, inverse.leastTime);
}

double timeBetween(const TimeTable::Point &before, const TimeTable::Point &after, double value)
{
    const double share = (value - before.value) / (after.value - before.value);
    return before.time + share * (after.time - before.time);
}

struct TimeOf
{
    double value;

    std::optional<double> operator()(double time) const { return time; }
    std::optional<double> operator()(const DefiniteTime &definite) const
    {
        return value > definite.pickUp ? std::optional<double>(definite.time) : std::nullopt;
    }
    std::optional<double> operator()(const InverseTime &inverse) const
    {
        return value > inverse.pickUp ? std::optional<double>(inverseTime(inverse, value))
                                      : std::nullopt;
    }
    std::optional<double> operator()(const TimeTable &table) const
    {
        const auto &points = table.points;
        const auto next = std::upper_bound(
            points.begin(), points.end(), value,
            [](double wanted, const TimeTable::Point &point) { return wanted < point.value; });
        if (next == points.begin())
            return std::nullopt;
        return next == points.end() ? std::prev(next)->time
                                    : timeBetween(*std::prev(next), *next, value);
    }
};

/// A number of a characteristic, and what is asked of it.
struct Condition
{
    const char *name;
    double value;
    bool mayBeZero;
};

Expected<void> expect(std::initializer_list<Condition> conditions)
{
    for (const Condition &condition : conditions) {
        const bool isFine = std::isfinite(condition.value)
            && (condition.value > 0 || (condition.mayBeZero && condition.value == 0));
        if (!isFine)
            return failure(Failure::Input,
                           QStringLiteral("%1 is %2; it must be %3")
                               .arg(QLatin1String(condition.name))
                               .arg(condition.value)
                               .arg(condition.mayBeZero ? QStringLiteral("0 or more")
                                                        : QStringLiteral("above 0")));
    }
    return {};
}

struct Check
{
    Expected<void> operator()(double time) const { return expect({{"the time", time, true}}); }
    Expected<void> operator()(const DefiniteTime &definite) const
    {
        return expect({{"the pick-up", definite.pickUp, true}, {"the time", definite.time, true}});
    }
    Expected<void> operator()(const InverseTime &inverse) const
    {
        const Expected<void> numbers =
            expect({{"k", inverse.curve.k, false},
                    {"c", inverse.curve.c, true},
                    {"alpha", inverse.curve.alpha, false},
                    {"the pick-up", inverse.pickUp, false},
                    {"the time multiplier", inverse.timeMultiplier, false},
                    {"the least time", inverse.leastTime, true}});
        if (numbers && !(inverse.constantAbove > 1))
            return failure(Failure::Input,
                           QStringLiteral("the multiple above which the time is constant is %1; it "
                                          "must be above 1")
                               .arg(inverse.constantAbove));
        return numbers;
    }
    Expected<void> operator()(const TimeTable &table) const
    {
        if (table.points.isEmpty())
            return failure(Failure::Input, QStringLiteral("the table has no points"));
        for (int i = 0; i < table.points.size(); ++i) {
            const TimeTable::Point &point = table.points[i];
            const Expected<void> numbers = expect({{"a value of the table", point.value, true},
                                                   {"a time of the table", point.time, true}});
            if (!numbers)
                return numbers;
            if (i > 0 && point.value <= table.points[i - 1].value)
                return failure(Failure::Input,
                               QStringLiteral("the values of the table do not rise: %1 comes after "
                                              "%2")
                                   .arg(point.value)
                                   .arg(table.points[i - 1].value));
        }
        return {};
    }
};

/// Where a time between the two values may be an extreme one.
QVector<double> candidates(const Characteristic &characteristic, double from, double to)
{
    QVector<double> values = {from, to};
    if (const auto *table = std::get_if<TimeTable>(&characteristic)) {
        for (const TimeTable::Point &point : table->points) {
            if (point.value > from && point.value < to)
                values.append(point.value);
        }
    }
    return values;
}

} // namespace

const QVector<InverseCurve> &standardCurves()
{
    static const QVector<InverseCurve> curves = {
        {QStringLiteral("normal inverse"), 0.14, 0, 0.02},
        {QStringLiteral("very inverse"), 13.5, 0, 1},
        {QStringLiteral("extremely inverse"), 80, 0, 2},
        {QStringLiteral("IEEE moderately inverse"), 0.0515, 0.114, 0.02},
        {QStringLiteral("IEEE very inverse"), 19.61, 0.491, 2},
        {QStringLiteral("IEEE extremely inverse"), 28.2, 0.1217, 2},
    };
    return curves;
}

std::optional<InverseCurve> standardCurve(const QString &letterOrName)
{
    for (int i = 0; i < standardCurves().size(); ++i) {
        const InverseCurve &curve = standardCurves()[i];
        if (letterOrName.compare(QChar('A' + i), Qt::CaseInsensitive) == 0
            || letterOrName.compare(curve.name, Qt::CaseInsensitive) == 0)
            return curve;
    }
    return std::nullopt;
}

std::optional<double> timeFor(const Characteristic &characteristic, double value)
{
    return std::visit(TimeOf{value}, characteristic);
}

Expected<void> check(const Characteristic &characteristic)
{
    return std::visit(Check{}, characteristic);
}

ExpectedTime expectedTime(const Expectation &expectation, double value)
{
    const double error = std::abs(value) * expectation.valueTolerance / 100;
    ExpectedTime expected;
    Band &band = expected.band;
    band.nominal = timeFor(expectation.characteristic, value);
    band.lowest = std::numeric_limits<double>::infinity();
    band.highest = 0;
    bool mayStayAway = false;
    for (const double candidate :
         candidates(expectation.characteristic, value - error, value + error)) {
        const std::optional<double> time = timeFor(expectation.characteristic, candidate);
        if (!time) {
            mayStayAway = true;
            continue;
        }
        band.lowest = std::min(band.lowest, *time - expectation.minus.of(*time));
        band.highest = std::max(band.highest, *time + expectation.plus.of(*time));
    }
    if (std::isinf(band.lowest))
        return {};
    expected.trip = mayStayAway ? ExpectedTime::Possible : ExpectedTime::Certain;
    if (mayStayAway)
        band.highest = std::numeric_limits<double>::infinity();
    return expected;
}

} // namespace workbench
