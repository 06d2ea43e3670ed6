#include "workbench/verdict.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace workbench {

namespace {

const char *const verdictNames[] = {"passed", "not measured", "doubtful", "failed"};

QString numberText(double value, const QString &unit)
{
    constexpr double kMillisecondsPerSecond = 1000;
    return unit == QLatin1String("s") ? QString::number(value * kMillisecondsPerSecond, 'f', 3)
                                      : QString::number(value, 'g', 6);
}

/// With the blank before it.
QString unitText(const QString &unit)
{
    if (unit.isEmpty())
        return {};
    return QLatin1Char(' ') + (unit == QLatin1String("s") ? QStringLiteral("ms") : unit);
}

} // namespace

QString verdictName(Verdict verdict)
{
    return QLatin1String(verdictNames[std::size_t(verdict)]);
}

Verdict worst(const QVector<Verdict> &verdicts)
{
    const auto last = std::max_element(verdicts.begin(), verdicts.end());
    return last == verdicts.end() ? Verdict::NotMeasured : *last;
}

Verdict worst(const QVector<AssessmentResult> &results)
{
    QVector<Verdict> verdicts;
    std::transform(results.begin(), results.end(), std::back_inserter(verdicts),
                   [](const AssessmentResult &result) { return result.verdict; });
    return worst(verdicts);
}

double Tolerance::of(double nominal) const
{
    return std::max(absolute, percent / 100 * std::abs(nominal));
}

bool Band::contains(double value) const
{
    constexpr double kRounding = 1e-9;
    const double slack = kRounding * std::abs(value);
    return value >= lowest - slack && value <= highest + slack;
}

bool Band::isUnlimited() const
{
    return std::isinf(lowest) && std::isinf(highest);
}

Band bandAround(double nominal, const Tolerance &minus, const Tolerance &plus)
{
    return {nominal, nominal - minus.of(nominal), nominal + plus.of(nominal)};
}

std::optional<double> AssessmentResult::deviation() const
{
    if (!actual || !allowed.nominal)
        return std::nullopt;
    return *actual - *allowed.nominal;
}

AssessmentResult assessValue(std::optional<double> actual, const Band &allowed, const QString &unit,
                             const QString &name, const QString &whyNot)
{
    AssessmentResult result;
    result.actual = actual;
    result.allowed = allowed;
    result.unit = unit;
    if (!actual) {
        result.reason = QStringLiteral("%1 was not measured").arg(name);
        if (!whyNot.isEmpty())
            result.reason += QStringLiteral(": ") + whyNot;
        return result;
    }
    result.verdict = allowed.contains(*actual) ? Verdict::Passed : Verdict::Failed;
    result.reason = QStringLiteral("%1 is %2").arg(name, valueText(*actual, unit));
    if (!allowed.isUnlimited())
        result.reason += QStringLiteral("; allowed is ") + rangeText(allowed, unit);
    return result;
}

QString valueText(double value, const QString &unit)
{
    return numberText(value, unit) + unitText(unit);
}

QString rangeText(const Band &band, const QString &unit)
{
    if (band.isUnlimited())
        return QStringLiteral("anything");
    if (std::isinf(band.lowest))
        return QStringLiteral("at most ") + valueText(band.highest, unit);
    if (std::isinf(band.highest))
        return QStringLiteral("at least ") + valueText(band.lowest, unit);
    if (band.lowest == band.highest)
        return QStringLiteral("exactly ") + valueText(band.lowest, unit);
    return QStringLiteral("%1 to %2")
        .arg(numberText(band.lowest, unit), valueText(band.highest, unit));
}

} // namespace workbench
