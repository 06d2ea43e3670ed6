/// \file
/// What all pictures share: their type, strokes and colours, and texts that stay in their place.
/// Lengths are pixels of a screen; a painter for something finer is to be scaled.
#pragma once

#include "workbench/failure.h"
#include "workbench/verdict.h"

#include <QColor>
#include <QFont>
#include <QPen>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QVector>

class QPainter;

namespace workbench {

class Axis;

/// How a line looks; each can be told from the others in grey, too.
struct Stroke
{
    QColor colour;
    QVector<double> dash; ///< pixels on and off; empty: solid
};

constexpr double kTextSize = 13;
constexpr double kTextLine = 18; ///< from one line of text to the next

namespace ink {
const QColor kText = QColor(0x1a, 0x1d, 0x21);
const QColor kFrame = QColor(0x80, 0x88, 0x90);
const QColor kGrid = QColor(0xdd, 0xe1, 0xe6);
const QColor kBand = QColor(0xec, 0xef, 0xf3);
const QColor kTolerance = QColor(0xb7, 0xd7, 0xee);
const QColor kPassed = QColor(0x00, 0x7a, 0x53);
const QColor kFailed = QColor(0xc4, 0x32, 0x0a);
const QColor kDoubtful = QColor(0x9a, 0x67, 0x00);
} // namespace ink

/// Of the \a line-th of several lines, from 0.
[[nodiscard]] Stroke strokeOf(int line);
/// Of an analog channel by its phase ("Ia1"), of anything else as above.
[[nodiscard]] Stroke strokeOf(const QString &channel, int line);
[[nodiscard]] QPen penOf(const Stroke &stroke, double width);

[[nodiscard]] QFont textFont(double size = kTextSize, bool isBold = false);
[[nodiscard]] double widthOf(const QString &text, const QFont &font = textFont());
/// \a text as a picture may show it: a single line in which nothing steers how the rest is
/// written or read. What does not belong there becomes "?".
[[nodiscard]] QString drawable(const QString &text);
/// The same, shortened in its middle to \a width.
[[nodiscard]] QString fitted(const QString &text, double width, const QFont &font = textFont());

/// Draws \a text into \a box, shortened where it does not fit.
void drawText(QPainter &painter, const QRectF &box, Qt::Alignment alignment, const QString &text,
              const QFont &font = textFont());
/// The same, from bottom to top.
void drawUpright(QPainter &painter, const QRectF &box, const QString &text);

/// A line through \a points.
void drawLine(QPainter &painter, const QVector<QPointF> &points, const QPen &pen);

/// What of a line lies between two heights, as lines: a device need not be able to clip.
[[nodiscard]] QVector<QVector<QPointF>> clipped(const QVector<QPointF> &points, double top,
                                                double bottom);

/// The mark of a measured value; each verdict has a colour and a shape of its own.
/// \param size half of its width
void drawMark(QPainter &painter, const QPointF &place, double size, Verdict verdict);
/// The same for a value that is beyond the upper edge.
void drawArrowUp(QPainter &painter, const QPointF &place, double size, Verdict verdict);
[[nodiscard]] QColor colourOf(Verdict verdict);

/// Ticks for an axis of \a length pixels, written side by side or one above the other.
enum class Direction { Horizontal, Vertical };
struct PlacedTick
{
    double place = 0; ///< pixels from the least value
    QString label;
};
[[nodiscard]] QVector<PlacedTick> placedTicks(const Axis &axis, double length, Direction direction);
enum class TickStyle { Bare, Labels, Grid }; ///< labels; these and lines across the area
/// Draws them at the lower or at the left edge of \a area, the labels outside.
void drawTicks(QPainter &painter, const QRectF &area, const Axis &axis, Direction direction,
               TickStyle style);
/// The room that the labels of a vertical axis of \a length pixels take to its left.
[[nodiscard]] double labelWidth(const Axis &axis, double length);

/// Fails where no text can be drawn, since no font is installed.
[[nodiscard]] Expected<void> checkFonts();

} // namespace workbench
