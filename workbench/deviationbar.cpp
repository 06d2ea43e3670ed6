#include "workbench/deviationbar.h"

#include "workbench/drawing.h"

#include <QPainter>
#include <QPolygonF>

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

constexpr double kTolerances = 2; ///< from the middle to an end

/// Where a value lies: -1 at the left end, 0 in the middle, 1 at the right end, and beyond.
double placeOf(double value, const DeviationBar &bar)
{
    double tolerance = 0;
    for (const double width : {bar.nominal - bar.least, bar.most - bar.nominal})
        tolerance = std::isfinite(width) ? std::max(tolerance, width) : tolerance;
    const double deviation = value - bar.nominal;
    if (std::isnan(deviation) || deviation == 0)
        return 0;
    return deviation / (kTolerances * tolerance); // infinite without a tolerance: beyond the end
}

} // namespace

void paint(QPainter &painter, const QRectF &area, const DeviationBar &bar)
{
    constexpr double kTrack = 0.3; // of the height
    constexpr double kMark = 0.35; // of the height, half of the mark
    const double mark = area.height() * kMark;
    const double half = area.width() / 2 - mark;
    const QPointF middle = area.center();
    const auto x = [&](double place) { return middle.x() + std::clamp(place, -1.0, 1.0) * half; };
    painter.save();
    const double track = area.height() * kTrack;
    painter.setPen(Qt::NoPen);
    painter.setBrush(ink::kBand);
    painter.drawRect(QRectF(x(-1), middle.y() - track / 2, 2 * half, track));
    painter.setBrush(ink::kTolerance);
    const double least = x(placeOf(bar.least, bar));
    painter.drawRect(
        QRectF(least, middle.y() - track / 2, x(placeOf(bar.most, bar)) - least, track));
    painter.setPen(QPen(ink::kText, 1));
    painter.drawLine(QPointF(middle.x(), area.top()), QPointF(middle.x(), area.bottom()));
    if (bar.actual) {
        const double place = placeOf(*bar.actual, bar);
        const QPointF at(x(place), middle.y());
        if (std::fabs(place) <= 1) {
            drawMark(painter, at, mark, bar.verdict);
        } else {
            const QPointF way(place > 0 ? mark : -mark, 0);
            const QPointF up(0, mark);
            painter.setPen(Qt::NoPen);
            painter.setBrush(colourOf(bar.verdict));
            painter.drawPolygon(QPolygonF({at + way, at - way + up, at - way - up}));
        }
    }
    painter.restore();
}

} // namespace workbench
