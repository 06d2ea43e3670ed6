#include "workbench/plottrace.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace workbench {

namespace {

constexpr double kMissedIntervals = 3; ///< fewer may be a late frame
constexpr double kSeenGap = 0.25; ///< columns

} // namespace

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

PlotSamples::PlotSamples(const PlotColumns &columns, double interval)
    : m_columns(columns)
    , m_gap(std::max(kMissedIntervals * interval, kSeenGap * columns.width()))
{
    if (interval <= 0)
        m_gap = std::numeric_limits<double>::infinity();
}

bool PlotSamples::isGap(double time) const
{
    return m_pieces.empty() || time - m_pieces.back().end > m_gap;
}

/// More pieces than this cannot be told apart.
bool PlotSamples::isDivisible(int column) const
{
    constexpr int kMostPieces = 8;
    const auto size = m_pieces.size();
    return size < kMostPieces || m_pieces[size - kMostPieces].column != column;
}

/// Begins the piece that the sample at \a time belongs to, if it is not the last one.
void PlotSamples::begin(double time)
{
    // Time never goes back, so that there are not more pieces than columns allow.
    const int column = std::max(m_columns.at(time), m_pieces.empty() ? 0 : m_pieces.back().column);
    const bool afterGap = isGap(time);
    const bool isDivided = (afterGap || m_break) && isDivisible(column);
    const std::optional<double> broken = std::exchange(m_break, std::nullopt);
    if (!m_pieces.empty() && m_pieces.back().column == column && !isDivided)
        return;
    double begin = time;
    if (!afterGap) {
        Piece &last = m_pieces.back();
        const double border = broken && isDivided ? *broken : m_columns.begin(column);
        begin = std::max(last.begin, std::min(border, time));
        last.end = begin;
    }
    m_pieces.push_back({{}, {}, begin, begin, column, afterGap, broken.has_value()});
    m_pieces.back().lowest = {time, std::numeric_limits<double>::infinity()};
    m_pieces.back().highest = {time, -std::numeric_limits<double>::infinity()};
}

void PlotSamples::add(double time, double value)
{
    begin(time);
    Piece &piece = m_pieces.back();
    if (value < piece.lowest.value)
        piece.lowest = {time, value};
    if (value > piece.highest.value)
        piece.highest = {time, value};
    piece.end = std::max(piece.end, time);
    m_isZero = m_isZero && value == 0;
}

void PlotSamples::breakAt(double time)
{
    if (!m_break)
        m_break = time;
}

QVector<PlotPoint> PlotSamples::curve() const
{
    QVector<PlotPoint> points;
    for (const Piece &piece : m_pieces) {
        const bool rises = piece.lowest.time < piece.highest.time;
        points.append(rises ? piece.lowest : piece.highest);
        points.last().isFirst = piece.isFirst;
        if (piece.lowest.time != piece.highest.time)
            points.append(rises ? piece.highest : piece.lowest);
    }
    return points;
}

void PlotSamples::Piece::join(const Piece &next)
{
    end = next.end;
    if (next.lowest.value < lowest.value)
        lowest = next.lowest;
    if (next.highest.value > highest.value)
        highest = next.highest;
}

/// Parts of columns joined to a neighbour that they continue or that continues them: within less
/// than a column a wave may not come to its peaks.
std::vector<PlotSamples::Piece> PlotSamples::wholePieces() const
{
    const double least = 0.999 * m_columns.width();
    const auto isPart = [least](const Piece &piece) { return piece.end - piece.begin < least; };
    std::vector<Piece> whole;
    for (std::size_t i = 0; i < m_pieces.size(); ++i) {
        const Piece &piece = m_pieces[i];
        const bool isLast = i + 1 == m_pieces.size() || !m_pieces[i + 1].continues();
        const bool isJoined = piece.continues() && !whole.empty()
            && (isPart(whole.back()) || (isLast && isPart(piece)));
        if (isJoined)
            whole.back().join(piece);
        else
            whole.push_back(piece);
    }
    return whole;
}

/// Level over every piece; levels that follow each other without a change are one.
QVector<PlotPoint> PlotSamples::envelope() const
{
    QVector<PlotPoint> areas;
    QVector<PlotPoint> upper;
    QVector<PlotPoint> lower;
    const auto extend = [](QVector<PlotPoint> &edge, const Piece &piece, double value) {
        if (edge.isEmpty() || edge.last().value != value)
            edge += {{piece.begin, value}, {piece.end, value}};
        else
            edge.last().time = piece.end;
    };
    const auto close = [&] {
        if (upper.isEmpty())
            return;
        upper.first().isFirst = true;
        std::reverse(lower.begin(), lower.end());
        areas += upper + lower;
        areas.append({upper.first().time, upper.first().value});
        upper.clear();
        lower.clear();
    };
    for (const Piece &piece : wholePieces()) {
        if (piece.isFirst)
            close();
        extend(upper, piece, piece.highest.value);
        extend(lower, piece, piece.lowest.value);
    }
    close();
    return areas;
}

bool PlotSamples::operator==(const PlotSamples &other) const
{
    const auto same = [](const Piece &a, const Piece &b) {
        return a.lowest.value == b.lowest.value && a.highest.value == b.highest.value
            && a.lowest.time == b.lowest.time && a.highest.time == b.highest.time;
    };
    return std::equal(m_pieces.begin(), m_pieces.end(), other.m_pieces.begin(),
                      other.m_pieces.end(), same);
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
