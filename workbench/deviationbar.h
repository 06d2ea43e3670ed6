/// \file
/// How far a measured value lies from the nominal one, as a small bar for a row of a table.
#pragma once

#include "workbench/verdict.h"

#include <QRectF>

#include <optional>

class QPainter;

namespace workbench {

/// All values are of one unit, whichever.
struct DeviationBar
{
    double nominal = 0;
    double least = 0; ///< that is allowed, at most `nominal`
    double most = 0; ///< that is allowed, at least `nominal`
    std::optional<double> actual; ///< nothing: not measured, and no mark is drawn
    Verdict verdict = Verdict::Passed; ///< colours the mark
};

/// The nominal value stands in the middle, the tolerance takes the middle half; a mark beyond the
/// ends is an arrow that points outwards. 120 by 16 pixels are enough.
void paint(QPainter &painter, const QRectF &area, const DeviationBar &bar);

} // namespace workbench
