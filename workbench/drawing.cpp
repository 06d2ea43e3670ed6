#include "workbench/drawing.h"

#include "workbench/axis.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPolygonF>
#include <QRawFont>

#include <algorithm>
#include <array>
#include <utility>

namespace workbench {

namespace {

constexpr double kTick = 4; ///< length
constexpr double kLabelGap = 6; ///< between an axis and its labels

// Colours that colour-blind people can tell apart (M. Okabe, K. Ito: Color Universal Design). The
// first four are the phases.
struct Look
{
    QRgb colour;
    std::array<double, 4> dash; ///< pixels; 0 where it ends
};
constexpr std::array<Look, 7> kLooks = {{{0xffd55e00, {}},
                                         {0xff009e73, {9, 2.5}},
                                         {0xff0072b2, {10, 2.5, 2, 2.5}},
                                         {0xff000000, {3, 2}},
                                         {0xffe69f00, {}},
                                         {0xff56b4e9, {9, 2.5}},
                                         {0xffcc79a7, {10, 2.5, 2, 2.5}}}};
const QVector<double> kSecondDash = {1.5, 2.5}; ///< of the second output of a phase

bool isPlain(const QString &text, int i)
{
    const QChar c = text[i];
    switch (c.category()) {
    case QChar::Other_Control:
    case QChar::Other_Format: // among them those that turn the direction of what follows
    case QChar::Other_NotAssigned:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    case QChar::Other_Surrogate:
        return c.isHighSurrogate() ? i + 1 < text.size() && text[i + 1].isLowSurrogate()
                                   : i > 0 && text[i - 1].isHighSurrogate();
    default:
        return !c.isNonCharacter();
    }
}

} // namespace

Stroke strokeOf(int line)
{
    const Look &look = kLooks[std::size_t(line) % kLooks.size()];
    Stroke stroke{QColor(look.colour), {}};
    for (const double length : look.dash) {
        if (length > 0)
            stroke.dash.append(length);
    }
    return stroke;
}

Stroke strokeOf(const QString &channel, int line)
{
    const int phase = int(QStringLiteral("abcn").indexOf(channel.mid(1, 1)));
    if (channel.size() != 3 || phase < 0) // no analog channel
        return strokeOf(line);
    Stroke stroke = strokeOf(phase);
    if (channel.endsWith(QLatin1Char('2')))
        stroke.dash = kSecondDash;
    return stroke;
}

QPen penOf(const Stroke &stroke, double width)
{
    QPen pen(stroke.colour, width, Qt::SolidLine, Qt::FlatCap, Qt::RoundJoin);
    QVector<qreal> pattern;
    for (const double length : stroke.dash)
        pattern.append(length / width); // a pen counts in its own widths
    if (!pattern.isEmpty())
        pen.setDashPattern(pattern);
    return pen;
}

QFont textFont(double size, bool isBold)
{
    QFont font(QStringLiteral("sans-serif"));
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(int(size));
    font.setBold(isBold);
    font.setHintingPreference(QFont::PreferNoHinting); // as wide on every device
    return font;
}

double widthOf(const QString &text, const QFont &font)
{
    return QFontMetricsF(font).horizontalAdvance(text);
}

QString drawable(const QString &text)
{
    QString result = text;
    for (int i = 0; i < result.size(); ++i) {
        if (!isPlain(text, i))
            result[i] = QLatin1Char('?');
    }
    return result;
}

QString fitted(const QString &text, double width, const QFont &font)
{
    constexpr int kLongest = 300; // what no picture shows needs no measuring
    QString cut = text;
    if (text.size() > kLongest)
        cut = text.left(kLongest / 2) + QChar(0x2026) + text.right(kLongest / 2);
    return QFontMetricsF(font).elidedText(drawable(cut), Qt::ElideMiddle, width + 0.5);
}

void drawText(QPainter &painter, const QRectF &box, Qt::Alignment alignment, const QString &text,
              const QFont &font)
{
    const QString shown = fitted(text, box.width(), font);
    if (shown.isEmpty())
        return;
    const QFontMetricsF metrics(font);
    const double spare = box.width() - metrics.horizontalAdvance(shown);
    const double x = alignment & Qt::AlignRight ? spare
        : alignment & Qt::AlignHCenter          ? spare / 2
                                                : 0;
    const double height = metrics.capHeight();
    const double y = alignment & Qt::AlignTop ? metrics.ascent()
        : alignment & Qt::AlignBottom         ? box.height() - metrics.descent()
                                              : (box.height() + height) / 2;
    painter.setFont(font);
    painter.setPen(ink::kText);
    painter.drawText(QPointF(box.left() + x, box.top() + y), shown);
}

void drawUpright(QPainter &painter, const QRectF &box, const QString &text)
{
    painter.save();
    painter.translate(box.left(), box.bottom());
    painter.rotate(-90);
    drawText(painter, {0, 0, box.height(), box.width()}, Qt::AlignHCenter | Qt::AlignVCenter, text);
    painter.restore();
}

void drawLine(QPainter &painter, const QVector<QPointF> &points, const QPen &pen)
{
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    painter.drawPolyline(points.constData(), int(points.size()));
}

QVector<QVector<QPointF>> clipped(const QVector<QPointF> &points, double top, double bottom)
{
    QVector<QVector<QPointF>> lines;
    for (int i = 1; i < points.size(); ++i) {
        const QPointF &from = points[i - 1];
        const QPointF way = points[i] - from;
        double begin = 0;
        double end = 1;
        if (way.y() == 0 && (from.y() < top || from.y() > bottom))
            continue;
        if (way.y() != 0) {
            const std::pair<double, double> ends =
                std::minmax({(top - from.y()) / way.y(), (bottom - from.y()) / way.y()});
            begin = std::max(begin, ends.first);
            end = std::min(end, ends.second);
        }
        if (begin > end)
            continue;
        const QPointF first = from + way * begin;
        if (lines.isEmpty() || lines.last().last() != first)
            lines.append(QVector<QPointF>{first});
        lines.last().append(end == 1 ? points[i] : from + way * end);
    }
    return lines;
}

QColor colourOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Passed:
        return ink::kPassed;
    case Verdict::Failed:
        return ink::kFailed;
    case Verdict::Doubtful:
        return ink::kDoubtful;
    case Verdict::NotMeasured:
        break;
    }
    return ink::kFrame;
}

/// A disc, a cross, a diamond, a ring.
void drawMark(QPainter &painter, const QPointF &place, double size, Verdict verdict)
{
    constexpr double kWidth = 2;
    const QColor colour = colourOf(verdict);
    painter.setPen(verdict == Verdict::Passed ? QPen(Qt::NoPen)
                                              : QPen(colour, kWidth, Qt::SolidLine, Qt::FlatCap));
    painter.setBrush(verdict == Verdict::Passed ? QBrush(colour) : QBrush(Qt::NoBrush));
    const QPointF right(size, 0);
    const QPointF down(0, size);
    switch (verdict) {
    case Verdict::Failed:
        painter.drawLine(place - right - down, place + right + down);
        painter.drawLine(place - right + down, place + right - down);
        break;
    case Verdict::Doubtful:
        painter.drawPolygon(QPolygonF({place - right, place - down, place + right, place + down}));
        break;
    case Verdict::Passed:
    case Verdict::NotMeasured:
        painter.drawEllipse(place, size * 0.9, size * 0.9);
        break;
    }
}

void drawArrowUp(QPainter &painter, const QPointF &place, double size, Verdict verdict)
{
    const QColor colour = colourOf(verdict);
    painter.setPen(QPen(colour, 1.5));
    painter.setBrush(verdict == Verdict::Passed ? QBrush(colour) : QBrush(Qt::white));
    painter.drawPolygon(QPolygonF(
        {place + QPointF(0, -size), place + QPointF(size, size), place + QPointF(-size, size)}));
}

QVector<PlacedTick> placedTicks(const Axis &axis, double length, Direction direction)
{
    constexpr double kLeastSpace = 16; // between two labels side by side
    constexpr double kAcross = 55; // from label to label, at least
    constexpr double kUpwards = 22;
    QVector<Axis::Tick> ticks;
    const double least = direction == Direction::Horizontal ? kAcross : kUpwards;
    for (int count = std::max(int(length / least), 1); count > 0; --count) {
        ticks = axis.ticks(count);
        double end = -length;
        bool fits = true;
        for (const Axis::Tick &tick : ticks) {
            if (tick.label.isEmpty())
                continue;
            const double half =
                direction == Direction::Horizontal ? widthOf(tick.label) / 2 + kLeastSpace / 2 : 8;
            const double place = axis.place(tick.value) * length;
            fits = fits && place - half >= end;
            end = place + half;
        }
        if (fits)
            break;
    }
    QVector<PlacedTick> placed;
    for (const Axis::Tick &tick : ticks)
        placed.append({axis.place(tick.value) * length, tick.label});
    return placed;
}

void drawTicks(QPainter &painter, const QRectF &area, const Axis &axis, Direction direction,
               TickStyle style)
{
    constexpr double kLongest = 200;
    const bool isHorizontal = direction == Direction::Horizontal;
    const double length = isHorizontal ? area.width() : area.height();
    const double across = isHorizontal ? area.height() : area.width();
    const QPointF inward = isHorizontal ? QPointF(0, -1) : QPointF(1, 0);
    for (const PlacedTick &tick : placedTicks(axis, length, direction)) {
        const QPointF foot = isHorizontal ? QPointF(area.left() + tick.place, area.bottom())
                                          : QPointF(area.left(), area.bottom() - tick.place);
        const bool isMajor = !tick.label.isEmpty();
        const bool isInside = tick.place > 1 && tick.place < length - 1;
        if (style == TickStyle::Grid && isMajor && isInside)
            drawLine(painter, {foot, foot + inward * across}, QPen(ink::kGrid, 1));
        drawLine(painter, {foot, foot + inward * (isMajor ? kTick : kTick / 2)},
                 QPen(ink::kFrame, 1));
        if (style == TickStyle::Bare)
            continue;
        const QRectF box = isHorizontal
            ? QRectF(foot.x() - kLongest / 2, foot.y() + kLabelGap, kLongest, kTextLine)
            : QRectF(foot.x() - kLongest - kLabelGap, foot.y() - kTextLine / 2, kLongest,
                     kTextLine);
        drawText(painter, box, isHorizontal ? Qt::AlignHCenter : Qt::AlignRight, tick.label);
    }
}

double labelWidth(const Axis &axis, double length)
{
    double width = 0;
    for (const PlacedTick &tick : placedTicks(axis, length, Direction::Vertical))
        width = std::max(width, widthOf(tick.label));
    return width + kLabelGap;
}

Expected<void> checkFonts()
{
    // Without one there are families by name all the same, and boxes for characters.
    if (QRawFont::fromFont(textFont()).fontTable("cmap").isEmpty())
        return failure(Failure::Helper,
                       QStringLiteral("no font is installed, which a picture's texts need; the "
                                      "package fonts-dejavu-core has some"));
    return {};
}

} // namespace workbench
