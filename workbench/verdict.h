/// \file
/// What came out of an assessment, and whether a measured value is within what is allowed.
#pragma once

#include <QString>
#include <QVector>

#include <limits>
#include <optional>

namespace workbench {

/// From the best to the worst.
enum class Verdict {
    Passed,
    NotMeasured, ///< there is nothing to judge
    Doubtful, ///< the board did not keep its time, or has lost what may have happened
    Failed,
};

/// "passed", "not measured", "doubtful", "failed".
[[nodiscard]] QString verdictName(Verdict verdict);
/// The worst of \a verdicts; of none, not measured.
[[nodiscard]] Verdict worst(const QVector<Verdict> &verdicts);

/// By how much a value may differ from its nominal one; the larger counts.
struct Tolerance
{
    double absolute = 0; ///< in the unit of the value; 0 or more
    double percent = 0; ///< of the nominal value; 0 or more

    [[nodiscard]] double of(double nominal) const;
};

/// What is allowed of a value, both ends included. Everything is, if nothing is said.
struct Band
{
    std::optional<double> nominal;
    double lowest = -std::numeric_limits<double>::infinity();
    double highest = std::numeric_limits<double>::infinity();

    /// Up to the rounding of a calculation, one part in 10^9.
    [[nodiscard]] bool contains(double value) const;
    [[nodiscard]] bool isUnlimited() const;
};

[[nodiscard]] Band bandAround(double nominal, const Tolerance &minus, const Tolerance &plus);

/// What an assessment has found.
struct AssessmentResult
{
    Verdict verdict = Verdict::NotMeasured;
    std::optional<double> actual; ///< in #unit
    Band allowed; ///< likewise
    QString unit = QStringLiteral("s");
    QString reason; ///< one sentence, without a full stop

    /// The actual value less the nominal one, if there are both.
    [[nodiscard]] std::optional<double> deviation() const;
};

[[nodiscard]] Verdict worst(const QVector<AssessmentResult> &results);

/// \param actual what was measured, if it was
/// \param allowed unlimited: the value is only measured
/// \param name what the value is, as "pick-up"
/// \param whyNot the reason, where nothing was measured
[[nodiscard]] AssessmentResult assessValue(std::optional<double> actual, const Band &allowed,
                                           const QString &unit, const QString &name,
                                           const QString &whyNot = {});

/// "35.250 ms" for seconds, "1.25 A" for others, which have six digits.
[[nodiscard]] QString valueText(double value, const QString &unit);
/// "25.000 to 35.000 ms", "at most 35.000 ms", "at least 1.25 A", "exactly 1 A", "anything".
[[nodiscard]] QString rangeText(const Band &band, const QString &unit);

} // namespace workbench
