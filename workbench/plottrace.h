/// \file
/// Curves reduced to what a picture of limited width can show, in memory of limited size.
#pragma once

#include <QVector>

#include <optional>
#include <vector>

namespace workbench {

struct PlotPoint
{
    double time = 0; ///< seconds since the start of the sequence
    double value = 0;
    bool isFirst = false; ///< does not continue what precedes it
};

/// A part of the time axis, divided into columns of equal width.
class PlotColumns
{
public:
    /// \a to must be above \a from and \a count above 0.
    PlotColumns(double from, double to, int count);

    [[nodiscard]] double from() const { return m_from; }
    [[nodiscard]] double width() const { return m_width; }
    [[nodiscard]] int count() const { return m_count; }
    [[nodiscard]] bool contains(double time) const { return time >= m_from && time <= m_to; }
    /// Number of the column that \a time, which must be contained, lies in.
    [[nodiscard]] int at(double time) const;
    /// Where column \a column begins; column count() would begin at the right edge.
    [[nodiscard]] double begin(int column) const { return m_from + column * m_width; }

private:
    double m_from;
    double m_to;
    double m_width;
    int m_count;
};

/// A sampled quantity: the smallest and the largest sample of every column. A column is divided
/// where the quantity breaks, and where samples are missing for long enough to be seen.
class PlotSamples
{
public:
    /// \a interval is the usual one between two samples, in seconds; 0 if it is not known.
    PlotSamples(const PlotColumns &columns, double interval);

    /// \a time must be contained in the columns.
    void add(double time, double value);
    /// From \a time on the samples have nothing to do with those before.
    void breakAt(double time);
    [[nodiscard]] bool isZero() const { return m_isZero; }
    /// The line through both samples of every column. All samples, if no column has more than two.
    /// As below, PlotPoint::isFirst tells where it is interrupted.
    [[nodiscard]] QVector<PlotPoint> curve() const;
    /// The areas between the smallest and the largest sample of every column: each along its upper
    /// edge, back along the lower one, and closed.
    [[nodiscard]] QVector<PlotPoint> envelope() const;
    /// Whether both would be drawn in the same way.
    [[nodiscard]] bool operator==(const PlotSamples &other) const;

private:
    /// A column, or a part of one.
    struct Piece
    {
        PlotPoint lowest;
        PlotPoint highest;
        double begin = 0;
        double end = 0; ///< of the last sample, or where the next piece begins
        int column = 0;
        bool isFirst = false; ///< samples are missing before it
        bool isBroken = false; ///< from the one before
        [[nodiscard]] bool continues() const { return !isFirst && !isBroken; }
        void join(const Piece &next);
    };
    [[nodiscard]] bool isGap(double time) const;
    [[nodiscard]] bool isDivisible(int column) const;
    void begin(double time);
    [[nodiscard]] std::vector<Piece> wholePieces() const;

    PlotColumns m_columns;
    double m_gap; ///< the shortest, seconds
    std::vector<Piece> m_pieces;
    std::optional<double> m_break; ///< since the last sample
    bool m_isZero = true;
};

/// A quantity that keeps its value until it changes: the changes, at most four per column, the last
/// one always among them.
class PlotChanges
{
public:
    explicit PlotChanges(const PlotColumns &columns);

    /// The quantity has \a value from \a time on. Before the columns only the last value counts,
    /// behind them nothing does.
    void add(double time, double value);
    [[nodiscard]] const QVector<PlotPoint> &points() const { return m_points; }
    [[nodiscard]] bool hasChanged() const { return m_points.size() > 1; }

private:
    PlotColumns m_columns;
    QVector<PlotPoint> m_points; ///< the first one may lie at the left edge
};

} // namespace workbench
