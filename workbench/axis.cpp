#include "workbench/axis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace workbench {

namespace {

constexpr double kLargest = 1e100; ///< so that no difference overflows
constexpr double kSmallest = 1e-100; ///< of a logarithmic axis
constexpr double kSlack = 1e-9; ///< of a step: what rounding may have moved an end by

/// Which of the nine multiples of a decade have a label, and every which decade, from dense to
/// bare.
struct Division
{
    std::array<bool, 10> isLabelled; ///< by multiple
    int decades;
};
constexpr std::array<Division, 8> kDivisions = {{{{0, 1, 1, 1, 1, 1, 1, 1, 1, 1}, 1},
                                                 {{0, 1, 1, 1, 1, 1, 1, 0, 1, 0}, 1},
                                                 {{0, 1, 1, 0, 0, 1, 0, 0, 0, 0}, 1},
                                                 {{0, 1, 0, 1, 0, 0, 0, 0, 0, 0}, 1},
                                                 {{0, 1, 0, 0, 0, 0, 0, 0, 0, 0}, 1},
                                                 {{0, 1, 0, 0, 0, 0, 0, 0, 0, 0}, 2},
                                                 {{0, 1, 0, 0, 0, 0, 0, 0, 0, 0}, 5},
                                                 {{0, 1, 0, 0, 0, 0, 0, 0, 0, 0}, 50}}};

/// Plain digits where they are few.
QString labelOf(double value, int decimals)
{
    constexpr double kLongest = 1e7;
    constexpr int kMostDecimals = 9;
    constexpr int kSignificant = 6;
    if (std::fabs(value) >= kLongest || decimals > kMostDecimals)
        return QString::number(value, 'g', kSignificant);
    return QString::number(value, 'f', decimals);
}

} // namespace

Axis::Axis(double least, double most, Scale scale)
    : m_least(std::isfinite(least) ? std::clamp(least, -kLargest, kLargest) : 0)
    , m_most(std::isfinite(most) ? std::clamp(most, -kLargest, kLargest) : 0)
    , m_scale(scale)
{
    if (m_least > m_most)
        std::swap(m_least, m_most);
    if (scale == Scale::Linear) {
        const double room = m_least == 0 ? 1 : std::fabs(m_least);
        if (m_most - m_least <= kSlack * room) {
            m_least -= room;
            m_most += room;
        }
        return;
    }
    constexpr double kDecades = 1000;
    if (m_most <= kSmallest)
        m_most = 1;
    if (m_least <= kSmallest)
        m_least = m_most / kDecades;
    if (m_most / m_least <= 1 + kSlack) {
        m_least /= 2;
        m_most *= 2;
    }
}

double Axis::place(double value) const
{
    if (m_scale == Scale::Linear)
        return (value - m_least) / (m_most - m_least);
    return value > 0 ? std::log(value / m_least) / std::log(m_most / m_least) : 0;
}

double Axis::at(double place) const
{
    if (m_scale == Scale::Linear)
        return m_least + place * (m_most - m_least);
    return m_least * std::pow(m_most / m_least, place);
}

/// The smallest of 1, 2, 5, 10, ... that makes no more labels than wanted.
double Axis::step(int mostLabels) const
{
    const double least = (m_most - m_least) / std::max(mostLabels, 1);
    const double decade = std::pow(10, std::floor(std::log10(least)));
    for (const double multiple : {1, 2, 5}) {
        if (multiple * decade >= least)
            return multiple * decade;
    }
    return 10 * decade;
}

QVector<Axis::Tick> Axis::ticks(int mostLabels) const
{
    return m_scale == Scale::Linear ? linearTicks(mostLabels) : logarithmicTicks(mostLabels);
}

QVector<Axis::Tick> Axis::linearTicks(int mostLabels) const
{
    QVector<Tick> ticks;
    double step = this->step(mostLabels);
    double first = std::ceil(m_least / step - kSlack);
    if (std::floor(m_most / step + kSlack) - first + 1 > mostLabels) { // one at either end
        step = this->step(std::max(mostLabels - 1, 1));
        first = std::ceil(m_least / step - kSlack);
    }
    const int decimals = std::max(-int(std::floor(std::log10(step) + kSlack)), 0);
    for (int i = 0; i < mostLabels && (first + i) * step <= m_most + kSlack * step; ++i) {
        const double value = (first + i) * step;
        ticks.append({value, labelOf(value == 0 ? 0 : value, decimals)}); // no "-0"
    }
    return ticks;
}

QVector<Axis::Tick> Axis::logarithmicTicks(int mostLabels) const
{
    const int first = int(std::floor(std::log10(m_least)));
    const int last = int(std::ceil(std::log10(m_most)));
    QVector<Tick> ticks;
    for (const Division &division : kDivisions) {
        ticks.clear();
        int labels = 0;
        for (int decade = first; decade <= last; ++decade) {
            for (int multiple = 1; multiple <= 9; ++multiple) {
                const double value = multiple * std::pow(10, decade);
                if (value < m_least * (1 - kSlack) || value > m_most * (1 + kSlack))
                    continue;
                const bool isLabelled =
                    division.isLabelled[std::size_t(multiple)] && decade % division.decades == 0;
                labels += isLabelled ? 1 : 0;
                if (isLabelled || division.decades == 1)
                    ticks.append(
                        {value, isLabelled ? labelOf(value, std::max(-decade, 0)) : QString()});
            }
        }
        if (labels <= std::max(mostLabels, 1))
            break;
    }
    return ticks;
}

Axis Axis::rounded(int mostLabels) const
{
    if (m_scale == Scale::Linear) {
        const double step = this->step(mostLabels);
        return {std::floor(m_least / step + kSlack) * step,
                std::ceil(m_most / step - kSlack) * step};
    }
    const auto decade = [](double value) { return std::pow(10, std::floor(std::log10(value))); };
    const double lowest = decade(m_least * (1 + kSlack));
    const double highest = decade(m_most * (1 - kSlack));
    return {std::floor(m_least / lowest + kSlack) * lowest,
            std::ceil(m_most / highest - kSlack) * highest, m_scale};
}

} // namespace workbench
