#include "workbench/characteristicpicture.h"

#include "workbench/drawing.h"

#include <QPainter>
#include <QPolygonF>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace workbench {

namespace {

constexpr double kMarkSize = 5; ///< half of a mark
constexpr double kPad = 8;
constexpr double kUprightTitle = 22;
constexpr double kLegend = 26;
constexpr double kRight = 16;
constexpr double kBelow = 48; ///< labels and title of the values
constexpr double kNameWidth = 120;
constexpr double kFar = 1000; ///< times the height: where a curve without end is cut off
constexpr double kCurveWidth = 1.8;
constexpr int kBandAlpha = 140; ///< of 255

/// A piece of a curve: values, and the times that belong to them.
using Piece = QVector<QPointF>;

struct Reach
{
    double least = std::numeric_limits<double>::infinity();
    double most = -std::numeric_limits<double>::infinity();
    void take(double value)
    {
        if (!std::isfinite(value))
            return;
        least = std::min(least, value);
        most = std::max(most, value);
    }
};

Axis valueAxis(const CharacteristicPicture &picture)
{
    constexpr double kRoom = 0.08;
    Reach reach;
    for (const CharacteristicPicture::Point &point : picture.points)
        reach.take(point.value);
    reach.take(picture.pickUp.value_or(reach.most));
    if (picture.valueScale == Axis::Scale::Linear) {
        const double room = (reach.most - reach.least) * kRoom;
        reach.least = reach.least < 0 ? reach.least - room : std::max(reach.least - room, 0.0);
        reach.most += room;
    } else {
        reach.least /= 1 + kRoom;
        reach.most *= 1 + kRoom;
    }
    return {picture.from.value_or(reach.least), picture.to.value_or(reach.most),
            picture.valueScale};
}

class Painting
{
public:
    Painting(QPainter &painter, const QRectF &area, const CharacteristicPicture &picture)
        : m_painter(painter)
        , m_picture(picture)
        , m_area(area)
        , m_plot(area.adjusted(kUprightTitle, kLegend, -kRight, -kBelow))
        , m_values(valueAxis(picture))
        , m_times(0, 1)
        , m_columns(std::max(int(m_plot.width()), 1))
        , m_nominal(sampled(picture.nominal))
        , m_least(sampled(picture.least))
        , m_most(sampled(picture.most))
    {
        m_times = timeAxis();
        m_plot.setLeft(m_plot.left() + labelWidth(m_times, m_plot.height()));
    }
    void paint();

private:
    [[nodiscard]] QVector<Piece> sampled(const Curve &curve) const;
    [[nodiscard]] Axis timeAxis() const;
    [[nodiscard]] QPointF at(double value, double time) const;
    void paintAxes();
    void paintBand();
    void paintCurve(const QVector<Piece> &pieces, const QPen &pen);
    void paintPickUp();
    void paintPoint(const CharacteristicPicture::Point &point);
    void paintLegend();

    QPainter &m_painter;
    const CharacteristicPicture &m_picture;
    QRectF m_area;
    QRectF m_plot;
    Axis m_values;
    Axis m_times;
    int m_columns;
    QVector<Piece> m_nominal;
    QVector<Piece> m_least;
    QVector<Piece> m_most;
};

/// The end of a curve, which lies between \a with, where it has a time, and \a without.
QPointF endOf(const Curve &curve, double with, double without)
{
    constexpr int kHalvings = 40;
    for (int i = 0; i < kHalvings; ++i) {
        const double middle = (with + without) / 2;
        (curve(middle) ? with : without) = middle;
    }
    return {with, curve(with).value_or(0)};
}

/// At every column of the plot, and where the curve begins or ends between two.
QVector<Piece> Painting::sampled(const Curve &curve) const
{
    QVector<Piece> pieces;
    std::optional<double> before; // the value of the column before
    bool hadTime = false;
    for (int column = 0; curve && column <= m_columns; ++column) {
        const double value = m_values.at(double(column) / m_columns);
        const std::optional<double> time = curve(value);
        if (time && !hadTime) {
            pieces.append(Piece());
            if (before)
                pieces.last().append(endOf(curve, value, *before));
        } else if (!time && hadTime) {
            pieces.last().append(endOf(curve, *before, value));
        }
        if (time)
            pieces.last().append({value, *time});
        hadTime = time.has_value();
        before = value;
    }
    return pieces;
}

/// Holds all points, and of the curves what is not far beyond them: close to the pick-up they rise
/// without end.
Axis Painting::timeAxis() const
{
    constexpr int kTicks = 6;
    const bool isLinear = m_picture.timeScale == Axis::Scale::Linear;
    const auto canShow = [isLinear](double time) { return isLinear || time > 0; };
    Reach points;
    for (const CharacteristicPicture::Point &point : m_picture.points) {
        if (point.time && canShow(*point.time))
            points.take(*point.time);
    }
    Reach curves;
    for (const QVector<Piece> *pieces : {&m_nominal, &m_least, &m_most}) {
        for (const Piece &piece : *pieces) {
            for (const QPointF &each : piece) {
                if (canShow(each.y()))
                    curves.take(each.y());
            }
        }
    }
    const double beyondPoints = isLinear ? 1.5 : 4; // times the largest one
    const double beyondLeast = isLinear ? 6 : 100; // times the least time of the curves
    const double farthest =
        std::max(points.most * beyondPoints, std::fabs(curves.least) * beyondLeast);
    const bool hasPoints = points.most >= points.least;
    points.take(curves.least);
    points.take(std::min(curves.most, hasPoints ? points.most * beyondPoints : farthest));
    constexpr double kRoom = 1.1;
    const Axis axis = isLinear
        ? Axis(std::min(points.least, 0.0), points.most * kRoom)
        : Axis(points.least / kRoom, points.most * kRoom, m_picture.timeScale);
    return axis.rounded(kTicks);
}

QPointF Painting::at(double value, double time) const
{
    return {m_plot.left() + m_values.place(value) * m_plot.width(),
            m_plot.bottom() - std::clamp(m_times.place(time), -kFar, kFar) * m_plot.height()};
}

void Painting::paintAxes()
{
    m_painter.fillRect(m_plot, Qt::white);
    drawTicks(m_painter, m_plot, m_values, Direction::Horizontal, TickStyle::Grid);
    drawTicks(m_painter, m_plot, m_times, Direction::Vertical, TickStyle::Grid);
    drawText(m_painter, {m_plot.left(), m_area.bottom() - kTextLine - 2, m_plot.width(), kTextLine},
             Qt::AlignHCenter | Qt::AlignVCenter, m_picture.valueTitle);
    drawUpright(m_painter, {m_area.left(), m_plot.top(), kUprightTitle, m_plot.height()},
                m_picture.timeTitle);
}

/// The band reaches over the values that have a least time; without a largest one up to the edge.
void Painting::paintBand()
{
    QColor colour = ink::kTolerance;
    colour.setAlpha(kBandAlpha);
    m_painter.setPen(Qt::NoPen);
    m_painter.setBrush(colour);
    for (const Piece &piece : m_least) {
        QPolygonF band;
        for (const QPointF &each : piece)
            band.append(at(each.x(), each.y()));
        for (auto each = piece.crbegin(); each != piece.crend(); ++each) {
            const auto most = m_picture.most ? m_picture.most(each->x()) : std::nullopt;
            band.append(at(each->x(), most.value_or(m_times.most())));
        }
        for (QPointF &corner : band)
            corner.setY(std::clamp(corner.y(), m_plot.top(), m_plot.bottom()));
        m_painter.drawPolygon(band);
    }
}

void Painting::paintCurve(const QVector<Piece> &pieces, const QPen &pen)
{
    for (const Piece &piece : pieces) {
        QVector<QPointF> line;
        for (const QPointF &each : piece)
            line.append(at(each.x(), each.y()));
        for (const QVector<QPointF> &part : clipped(line, m_plot.top(), m_plot.bottom()))
            drawLine(m_painter, part, pen);
    }
}

void Painting::paintPickUp()
{
    if (!m_picture.pickUp || !m_values.contains(*m_picture.pickUp))
        return;
    const double x = m_plot.left() + m_values.place(*m_picture.pickUp) * m_plot.width();
    drawLine(m_painter, {{x, m_plot.top()}, {x, m_plot.bottom()}}, penOf({ink::kText, {6, 4}}, 1));
}

/// A point without a time stands at the upper edge, as an arrow that points upwards.
void Painting::paintPoint(const CharacteristicPicture::Point &point)
{
    if (!m_values.contains(point.value))
        return;
    QPointF place = at(point.value, m_times.most());
    if (point.time) {
        place = at(point.value, *point.time);
        place.setY(std::clamp(place.y(), m_plot.top(), m_plot.bottom()));
        drawMark(m_painter, place, kMarkSize, point.verdict);
    } else {
        place.ry() += kMarkSize + 2;
        drawArrowUp(m_painter, place, kMarkSize, point.verdict);
    }
    if (point.name.isEmpty())
        return;
    const double gap = kMarkSize + 3;
    const bool isLeft = place.x() + gap + widthOf(point.name) > m_plot.right();
    const QRectF box(isLeft ? place.x() - gap - kNameWidth : place.x() + gap,
                     std::max(place.y() - kTextLine, m_plot.top()), kNameWidth, kTextLine);
    drawText(m_painter, box, (isLeft ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter,
             point.name);
}

/// Tells the marks that are there.
void Painting::paintLegend()
{
    const std::pair<Verdict, QString> verdicts[] = {
        {Verdict::Passed, QStringLiteral("passed")},
        {Verdict::Failed, QStringLiteral("failed")},
        {Verdict::Doubtful, QStringLiteral("doubtful")},
        {Verdict::NotMeasured, QStringLiteral("not measured")}};
    QPointF place(m_plot.left() + kMarkSize, m_area.top() + kLegend / 2);
    const auto tell = [&](const QString &text) {
        const double left = place.x() + 2 * kMarkSize;
        const double width = std::min(widthOf(text) + 1, m_area.right() - left);
        drawText(m_painter, {left, m_area.top(), width, kLegend}, Qt::AlignVCenter, text);
        place.rx() = left + width + 2 * kPad;
    };
    const auto has = [this](const auto &isOne) {
        return std::any_of(m_picture.points.begin(), m_picture.points.end(), isOne);
    };
    for (const auto &[verdict, text] : verdicts) {
        const Verdict wanted = verdict;
        if (!has([wanted](const auto &point) { return point.verdict == wanted; }))
            continue;
        drawMark(m_painter, place, kMarkSize, verdict);
        tell(text);
    }
    if (has([](const auto &point) { return !point.time; })) {
        drawArrowUp(m_painter, place, kMarkSize, Verdict::NotMeasured);
        tell(QStringLiteral("no trip"));
    }
}

void Painting::paint()
{
    paintAxes();
    paintBand();
    const QPen edge = penOf({ink::kFrame, {4, 3}}, 1);
    paintCurve(m_least, edge);
    paintCurve(m_most, edge);
    paintCurve(m_nominal, penOf({strokeOf(2).colour, {}}, kCurveWidth));
    paintPickUp();
    m_painter.setPen(QPen(ink::kFrame, 1));
    m_painter.setBrush(Qt::NoBrush);
    m_painter.drawRect(m_plot);
    for (const CharacteristicPicture::Point &point : m_picture.points)
        paintPoint(point);
    paintLegend();
}

} // namespace

void paint(QPainter &painter, const QRectF &area, const CharacteristicPicture &picture)
{
    constexpr double kLeast = 100; // pixels, below which nothing can be seen
    if (area.width() < kLeast || area.height() < kLeast)
        return;
    painter.save();
    Painting(painter, area, picture).paint();
    painter.restore();
}

} // namespace workbench
