#include "workbench/plottrace.h"

#include <algorithm>

namespace workbench {

PlotColumns::PlotColumns(double from, double to, int count)
    : m_from(from)
    , m_to(to)
    , m_width((to - from) / count)
    , m_count(count)
{ }

int PlotColumns::at(double time) const
{
    return std::min(int((time - m_from) / m_width), m_count - 1);
}

PlotSamples::PlotSamples(const PlotColumns &columns)
    : m_columns(columns)
    , m_content(columns.count())
{ }

void PlotSamples::add(double time, double value)
{
    Column &column = m_content[m_columns.at(time)];
    if (!column.used || value < column.lowest.value)
        column.lowest = {time, value};
    if (!column.used || value > column.highest.value)
        column.highest = {time, value};
    column.used = true;
    m_isZero = m_isZero && value == 0;
}

QVector<PlotPoint> PlotSamples::curve() const
{
    QVector<PlotPoint> points;
    for (const Column &column : m_content) {
        if (!column.used)
            continue;
        const bool rises = column.lowest.time < column.highest.time;
        points.append(rises ? column.lowest : column.highest);
        if (column.lowest.time != column.highest.time)
            points.append(rises ? column.highest : column.lowest);
    }
    return points;
}

/// Level over every column; levels that follow each other without a change are one.
QVector<PlotPoint> PlotSamples::edge(PlotPoint Column::*extreme) const
{
    QVector<PlotPoint> points;
    for (int i = 0; i < m_content.size(); ++i) {
        if (!m_content[i].used)
            continue;
        const double value = (m_content[i].*extreme).value;
        if (points.isEmpty() || points.last().value != value)
            points += {{m_columns.begin(i), value}, {m_columns.begin(i + 1), value}};
        else
            points.last().time = m_columns.begin(i + 1);
    }
    return points;
}

QVector<PlotPoint> PlotSamples::envelope() const
{
    QVector<PlotPoint> points = edge(&Column::highest);
    QVector<PlotPoint> back = edge(&Column::lowest);
    std::reverse(back.begin(), back.end());
    points += back;
    if (!points.isEmpty())
        points.append(points.first());
    return points;
}

bool PlotSamples::operator==(const PlotSamples &other) const
{
    const auto same = [](const Column &a, const Column &b) {
        return a.used == b.used && a.lowest.value == b.lowest.value
            && a.highest.value == b.highest.value && a.lowest.time == b.lowest.time
            && a.highest.time == b.highest.time;
    };
    return std::equal(m_content.begin(), m_content.end(), other.m_content.begin(),
                      other.m_content.end(), same);
}

PlotChanges::PlotChanges(const PlotColumns &columns)
    : m_columns(columns)
{ }

void PlotChanges::add(double time, double value)
{
    constexpr int kPerColumn = 4;
    if (time < m_columns.from())
        m_points = {{m_columns.from(), value}};
    if (!m_columns.contains(time) || (!m_points.isEmpty() && m_points.last().value == value))
        return;
    const auto size = m_points.size();
    if (size >= kPerColumn && m_columns.at(m_points[size - kPerColumn].time) == m_columns.at(time))
        m_points.last() = {time, value};
    else
        m_points.append({time, value});
}

} // namespace workbench
