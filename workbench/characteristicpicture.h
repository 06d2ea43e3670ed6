/// \file
/// A characteristic of a protection function: what it should do, and what it did.
#pragma once

#include "workbench/axis.h"
#include "workbench/verdict.h"

#include <QRectF>
#include <QString>
#include <QVector>

#include <functional>
#include <optional>

class QPainter;

namespace workbench {

/// The time (or another quantity) that belongs to a value; nothing where the characteristic has
/// none, as below the pick-up.
using Curve = std::function<std::optional<double>(double)>;

struct CharacteristicPicture
{
    /// A measured point.
    struct Point
    {
        double value = 0;
        std::optional<double> time; ///< nothing: the device did not trip; marked at the upper edge
        Verdict verdict = Verdict::Passed;
        QString name; ///< beside the mark where there is room; may be empty
    };

    QString valueTitle; ///< what is across, with its unit: "current (A)"
    QString timeTitle; ///< what is upwards: "operate time (s)"
    Axis::Scale valueScale = Axis::Scale::Linear;
    Axis::Scale timeScale = Axis::Scale::Linear;
    Curve nominal; ///< empty functions are left out
    Curve least; ///< lower edge of the tolerance band
    Curve most; ///< upper edge
    std::optional<double> pickUp; ///< a line where the characteristic begins
    QVector<Point> points;

    /// The values that the axis shows, in any order; by themselves the points and the pick-up.
    std::optional<double> from;
    std::optional<double> to;
};

/// 480 by 330 pixels are enough. The functions are called for every pixel across.
void paint(QPainter &painter, const QRectF &area, const CharacteristicPicture &picture);

} // namespace workbench
