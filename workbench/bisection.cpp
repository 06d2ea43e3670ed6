#include "workbench/bisection.h"

#include "virtualboard/board/texttable.h"

#include <cmath>
#include <utility>

namespace workbench {

namespace {

Bisection::Range reversed(Bisection::Range range)
{
    std::swap(range.from, range.to);
    return range;
}

} // namespace

Bisection::Bisection(const Range &range)
    : m_range(range)
    , m_before(range.from)
    , m_behind(range.to)
{ }

Expected<void> Bisection::check(const Range &range)
{
    constexpr int kFewestShots = 3; // both ends, and one between them
    const double width = std::abs(range.to - range.from);
    if (!std::isfinite(width) || width == 0)
        return failure(
            Failure::Input,
            QStringLiteral("a search from %1 to %2 has no range").arg(range.from).arg(range.to));
    const Tolerance &resolution = range.resolution;
    if (!std::isfinite(resolution.absolute) || !std::isfinite(resolution.percent)
        || resolution.absolute < 0 || resolution.percent < 0
        || (resolution.absolute == 0 && resolution.percent == 0))
        return failure(Failure::Input,
                       QStringLiteral("the resolution of a search must be above 0"));
    if (range.mostShots < kFewestShots)
        return failure(Failure::Input,
                       QStringLiteral("a search with %1 shots is too short; the least is %2")
                           .arg(range.mostShots)
                           .arg(kFewestShots));
    return {};
}

std::optional<double> Bisection::next() const
{
    if (m_state != Searching)
        return std::nullopt;
    if (m_shots == 0)
        return m_range.from;
    return m_shots == 1 ? m_range.to : middle();
}

void Bisection::take(bool behavesOtherwise)
{
    if (m_state != Searching)
        return;
    ++m_shots;
    if (m_shots == 1) {
        m_atFrom = behavesOtherwise;
        return;
    }
    if (m_shots == 2)
        m_state = stateOfEnds(behavesOtherwise);
    else
        (behavesOtherwise ? m_behind : m_before) = middle();
    if (m_state == Searching)
        m_state = stateOfBracket();
}

Bisection::State Bisection::stateOfEnds(bool atTo) const
{
    if (m_atFrom)
        return atTo ? AlwaysChanged : Reversed;
    return atTo ? Searching : NeverChanged;
}

Bisection::State Bisection::stateOfBracket() const
{
    // Where no number lies between the two any more, it cannot be known better.
    const bool isNarrow = std::abs(m_behind - m_before) <= m_range.resolution.of(m_behind)
        || middle() == m_before || middle() == m_behind;
    if (isNarrow)
        return Found;
    return m_shots < m_range.mostShots ? Searching : OutOfShots;
}

std::optional<double> Bisection::threshold() const
{
    return m_state == Found ? std::optional<double>(m_behind) : std::nullopt;
}

ThresholdSearch::ThresholdSearch(const ThresholdSettings &settings)
    : m_settings(settings)
    , m_pickUp(settings.range)
    , m_dropOff(reversed(settings.range))
{ }

std::optional<ThresholdSearch::Shot> ThresholdSearch::next() const
{
    if (const std::optional<double> value = m_pickUp.next())
        return Shot{Shot::PickUp, *value};
    if (!m_settings.withDropOff || !pickUp())
        return std::nullopt;
    if (const std::optional<double> value = m_dropOff.next())
        return Shot{Shot::DropOff, *value};
    return std::nullopt;
}

void ThresholdSearch::take(bool operated)
{
    const std::optional<Shot> shot = next();
    if (!shot)
        return;
    if (shot->phase == Shot::PickUp)
        m_pickUp.take(operated);
    else
        m_dropOff.take(!operated);
}

std::optional<double> ThresholdSearch::resetRatio() const
{
    if (!pickUp() || !dropOff() || *pickUp() == 0)
        return std::nullopt;
    return *dropOff() / *pickUp();
}

QString ThresholdSearch::whyNot(const Bisection &search, const char *behaviour) const
{
    const auto text = [&](double value) { return valueText(value, m_settings.unit); };
    const QString verb = QLatin1String(behaviour);
    const QString from = text(search.range().from);
    const QString to = text(search.range().to);
    switch (search.state()) {
    case Bisection::Searching:
        return QStringLiteral("the search did not come to its end");
    case Bisection::Found:
        return {};
    case Bisection::NeverChanged:
        return QStringLiteral("the relay does not %1 at %2, and not at %3").arg(verb, from, to);
    case Bisection::AlwaysChanged:
        return QStringLiteral("the relay does %1 at %2, and already at %3").arg(verb, to, from);
    case Bisection::Reversed:
        return QStringLiteral("the relay does %1 at %2, but not at %3").arg(verb, from, to);
    case Bisection::OutOfShots:
        return QStringLiteral("after %1 it is known to lie between %2 and %3 only")
            .arg(virtualboard::counted(search.shots(), QStringLiteral("shot")),
                 text(search.before()), text(search.behind()));
    }
    return {};
}

QVector<AssessmentResult> ThresholdSearch::results() const
{
    QVector<AssessmentResult> results = {assessValue(pickUp(), m_settings.pickUp, m_settings.unit,
                                                     QStringLiteral("pick-up"),
                                                     whyNot(m_pickUp, "trip"))};
    if (!m_settings.withDropOff)
        return results;
    const QString whyNoDropOff =
        pickUp() ? whyNot(m_dropOff, "drop off") : QStringLiteral("there is no pick-up");
    const QString whyNoRatio = pickUp() && dropOff() ? QStringLiteral("the pick-up is 0")
                                                     : QStringLiteral("it needs both values");
    results << assessValue(dropOff(), m_settings.dropOff, m_settings.unit,
                           QStringLiteral("drop-off"), whyNoDropOff)
            << assessValue(resetRatio(), m_settings.resetRatio, QString(),
                           QStringLiteral("reset ratio"), whyNoRatio);
    return results;
}

} // namespace workbench
