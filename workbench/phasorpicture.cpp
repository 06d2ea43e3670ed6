#include "workbench/phasorpicture.h"

#include "workbench/axis.h"
#include "workbench/drawing.h"

#include <QLineF>
#include <QPainter>
#include <QPolygonF>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace workbench {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kPad = 8;
constexpr QSizeF kNameRoom(38, 20); ///< around the outermost ring, for the names
constexpr double kNameGap = 4; ///< from a tip to its name
constexpr double kSmallText = 11;
constexpr double kSample = 26; ///< of a line in the legend
constexpr double kLineWidth = 2;
constexpr int kRings = 3;
constexpr int kSpokes = 30; ///< degrees

QPointF pointAt(const QPointF &centre, double radius, double angle)
{
    const double radians = angle * kPi / 180;
    return centre + QPointF(radius * std::cos(radians), -radius * std::sin(radians));
}

QString textOf(const SequenceOutput &output, const QString &unit, int nominalFrequency)
{
    QString text = QStringLiteral("%1 %2 \u2220 %3\u00b0")
                       .arg(QString::number(output.amplitude, 'g', 6), unit,
                            QString::number(output.phase, 'g', 6));
    const double frequency = output.frequency.value_or(nominalFrequency);
    if (frequency != nominalFrequency)
        text += QStringLiteral(", %1 Hz").arg(frequency, 0, 'g', 6);
    return text;
}

void drawArrow(QPainter &painter, const QPointF &from, const QPointF &tip, const Stroke &stroke)
{
    constexpr double kHeadLength = 11;
    constexpr double kHeadWidth = 4;
    const QPointF way = tip - from;
    const double length = std::hypot(way.x(), way.y());
    if (length < 1)
        return;
    const QPointF along = way / length;
    const QPointF across(-along.y(), along.x());
    const double head = std::min(kHeadLength, length / 2);
    const QPointF neck = tip - along * head;
    drawLine(painter, {from, neck}, penOf(stroke, kLineWidth));
    painter.setPen(Qt::NoPen);
    painter.setBrush(stroke.colour);
    const QPointF side = across * (kHeadWidth * head / kHeadLength);
    painter.drawPolygon(QPolygonF({tip, neck + side, neck - side}));
}

bool crosses(const QLineF &line, const QRectF &box)
{
    if (box.contains(line.p1()) || box.contains(line.p2()))
        return true;
    const QLineF sides[] = {{box.topLeft(), box.topRight()},
                            {box.topRight(), box.bottomRight()},
                            {box.bottomRight(), box.bottomLeft()},
                            {box.bottomLeft(), box.topLeft()}};
    return std::any_of(std::begin(sides), std::end(sides), [&line](const QLineF &side) {
        return side.intersects(line, nullptr) == QLineF::BoundedIntersection;
    });
}

/// Rings, arrows and their names, where they cover neither each other nor leave the area.
class Rose
{
public:
    Rose(QPainter &painter, const QRectF &area, const QVector<PhasorPicture::Phasor> &phasors);
    void paint();

private:
    void paintRings();
    void paintFigures();
    void paintName(const PhasorPicture::Phasor &phasor);
    [[nodiscard]] double emptyAngle() const;
    [[nodiscard]] double reachOf(const PhasorPicture::Phasor &phasor) const;
    [[nodiscard]] QPointF tipOf(const PhasorPicture::Phasor &phasor) const;
    [[nodiscard]] bool isFree(const QRectF &box) const;
    [[nodiscard]] bool isNearest(const PhasorPicture::Phasor &phasor, double angle) const;

    QPainter &m_painter;
    QRectF m_area;
    const QVector<PhasorPicture::Phasor> &m_phasors;
    QPointF m_centre;
    double m_radius;
    Axis m_axis; ///< from the centre outwards
    QVector<QRectF> m_taken; ///< by texts
};

Axis axisOf(const QVector<PhasorPicture::Phasor> &phasors)
{
    double largest = 0;
    for (const PhasorPicture::Phasor &phasor : phasors)
        largest = std::max(largest, phasor.amplitude);
    return Axis(0, largest > 0 ? largest : 1).rounded(kRings);
}

Rose::Rose(QPainter &painter, const QRectF &area, const QVector<PhasorPicture::Phasor> &phasors)
    : m_painter(painter)
    , m_area(area)
    , m_phasors(phasors)
    , m_centre(area.center())
    , m_radius(
          std::min(area.width() / 2 - kNameRoom.width(), area.height() / 2 - kNameRoom.height()))
    , m_axis(axisOf(phasors))
{ }

/// Not beyond the outermost ring, however far that would be.
double Rose::reachOf(const PhasorPicture::Phasor &phasor) const
{
    return m_radius * std::clamp(m_axis.place(phasor.amplitude), -1.0, 1.0);
}

QPointF Rose::tipOf(const PhasorPicture::Phasor &phasor) const
{
    return pointAt(m_centre, reachOf(phasor), phasor.angle);
}

bool Rose::isFree(const QRectF &box) const
{
    return m_area.contains(box)
        && std::none_of(m_taken.begin(), m_taken.end(),
                        [&box](const QRectF &other) { return other.intersects(box); })
        && std::none_of(m_phasors.begin(), m_phasors.end(),
                        [this, &box](const PhasorPicture::Phasor &phasor) {
                            return crosses(QLineF(m_centre, tipOf(phasor)), box);
                        });
}

void Rose::paintRings()
{
    m_painter.setBrush(Qt::NoBrush);
    for (const Axis::Tick &ring : m_axis.ticks(kRings + 1)) {
        const double radius = m_radius * m_axis.place(ring.value);
        m_painter.setPen(QPen(ring.value == m_axis.most() ? ink::kFrame : ink::kGrid, 1));
        m_painter.drawEllipse(m_centre, radius, radius);
    }
    m_painter.setPen(QPen(ink::kGrid, 1));
    for (int angle = 0; angle < 360; angle += kSpokes)
        m_painter.drawLine(m_centre, pointAt(m_centre, m_radius, angle));
}

/// Between two spokes, and as far from all arrows as possible.
double Rose::emptyAngle() const
{
    double best = 0;
    double widest = -1;
    for (int angle = -kSpokes * 5 / 2; angle < 360 - kSpokes * 5 / 2; angle += kSpokes) {
        double distance = 180;
        for (const PhasorPicture::Phasor &phasor : m_phasors)
            distance = std::min(distance, std::fabs(std::remainder(angle - phasor.angle, 360)));
        if (distance > widest + 1) {
            widest = distance;
            best = angle;
        }
    }
    return best;
}

/// What the rings are worth.
void Rose::paintFigures()
{
    const QFont small = textFont(kSmallText);
    const double angle = emptyAngle();
    for (const Axis::Tick &ring : m_axis.ticks(kRings + 1)) {
        if (ring.value <= 0)
            continue;
        const QPointF place = pointAt(m_centre, m_radius * m_axis.place(ring.value), angle);
        const QSizeF size(widthOf(ring.label, small) + 4, kSmallText + 2);
        const QRectF box(place - QPointF(size.width() / 2, size.height() / 2), size);
        m_painter.fillRect(box, Qt::white);
        drawText(m_painter, box, Qt::AlignHCenter | Qt::AlignVCenter, ring.label, small);
        m_taken.append(box);
    }
}

/// Whether a name in this direction could not be taken for another one's.
bool Rose::isNearest(const PhasorPicture::Phasor &phasor, double angle) const
{
    const auto distance = [angle](const PhasorPicture::Phasor &each) {
        return std::fabs(std::remainder(angle - each.angle, 360));
    };
    return std::none_of(m_phasors.begin(), m_phasors.end(), [&](const auto &other) {
        return other.amplitude > 0 && distance(other) < distance(phasor);
    });
}

/// Beyond the tip; the name goes without where there is no place: the legend has it.
void Rose::paintName(const PhasorPicture::Phasor &phasor)
{
    const QFont font = textFont(kTextSize, true);
    const QString name = phasor.name.section(QLatin1Char(','), 0, 0);
    const QSizeF size(widthOf(name, font), kTextSize + 1);
    const double radius = reachOf(phasor);
    for (const double further : {0, 8, 16, 24, 32, 44}) {
        for (const double turn : {0, 10, -10, 20, -20, 30, -30}) {
            const double angle = phasor.angle + turn;
            if (!isNearest(phasor, angle))
                continue;
            const QPointF way = pointAt({0, 0}, 1, angle);
            const double half = std::min(size.width() / 2 / std::max(std::fabs(way.x()), 1e-6),
                                         size.height() / 2 / std::max(std::fabs(way.y()), 1e-6));
            const QPointF middle = m_centre + way * (radius + kNameGap + further + half);
            const QRectF box(middle - QPointF(size.width() / 2, size.height() / 2), size);
            if (!isFree(box))
                continue;
            m_taken.append(box);
            drawText(m_painter, box, Qt::AlignHCenter | Qt::AlignVCenter, name, font);
            return;
        }
    }
}

void Rose::paint()
{
    if (m_radius <= 0)
        return;
    paintRings();
    paintFigures();
    for (const PhasorPicture::Phasor &phasor : m_phasors)
        drawArrow(m_painter, m_centre, tipOf(phasor), strokeOf(phasor.output, 0));
    for (const PhasorPicture::Phasor &phasor : m_phasors) {
        if (phasor.amplitude > 0)
            paintName(phasor);
    }
}

void drawLegend(QPainter &painter, const QRectF &area,
                const QVector<PhasorPicture::Phasor> &phasors)
{
    double names = 0;
    for (const PhasorPicture::Phasor &phasor : phasors)
        names = std::max(names, widthOf(phasor.name) + kPad);
    QRectF line(area.left(), area.top(), area.width(), kTextLine);
    for (const PhasorPicture::Phasor &phasor : phasors) {
        if (line.bottom() > area.bottom() + 1)
            break;
        drawLine(painter,
                 {{line.left(), line.center().y()}, {line.left() + kSample, line.center().y()}},
                 penOf(strokeOf(phasor.output, 0), kLineWidth));
        const QRectF texts = line.adjusted(kSample + kPad, 0, 0, 0);
        drawText(painter, {texts.left(), texts.top(), names, texts.height()}, Qt::AlignVCenter,
                 phasor.name);
        drawText(painter, texts.adjusted(names, 0, 0, 0), Qt::AlignVCenter, phasor.text);
        line.translate(0, kTextLine);
    }
}

} // namespace

PhasorPicture::PhasorPicture(const Sequence &sequence, int step)
{
    const QString kind =
        sequence.amplitudesArePeak ? QStringLiteral("peak") : QStringLiteral("RMS");
    const QString side = sequence.ratios ? QStringLiteral(", secondary") : QString();
    m_voltages = {QStringLiteral("voltage (V %1%2)").arg(kind, side), QStringLiteral("V"), {}};
    m_currents = {QStringLiteral("current (A %1%2)").arg(kind, side), QStringLiteral("A"), {}};
    if (step < 0 || step >= sequence.steps.size())
        return;
    for (int output = 0; output < SequenceStep::kAnalogOutputs; ++output)
        add(sequence, sequence.steps[step], output);
}

/// Outputs that are alike share an arrow.
void PhasorPicture::add(const Sequence &sequence, const SequenceStep &step, int output)
{
    const bool isMirror = sequence.dualAD && output % 2 == 1;
    const auto &setting = step.outputs[std::size_t(isMirror ? output - 1 : output)];
    if (!setting || !std::isfinite(setting->amplitude) || !std::isfinite(setting->phase))
        return;
    Diagram &diagram = isCurrent(output) ? m_currents : m_voltages;
    const QString name = outputNames()[output];
    const QString text = textOf(*setting, diagram.unit, sequence.nominalFrequency);
    for (Phasor &other : diagram.phasors) {
        if (other.text == text && other.name.mid(1, 1) == name.mid(1, 1)) {
            other.name += QStringLiteral(", ") + name;
            return;
        }
    }
    diagram.phasors.append({name, text, setting->amplitude, setting->phase, name});
}

void PhasorPicture::paint(QPainter &painter, const QRectF &area) const
{
    painter.save();
    QVector<const Diagram *> diagrams;
    for (const Diagram *each : {&m_voltages, &m_currents}) {
        if (!each->phasors.isEmpty())
            diagrams.append(each);
    }
    const bool isWide = area.width() >= area.height();
    QRectF part = area;
    if (isWide)
        part.setWidth(area.width() / 2);
    else
        part.setHeight(area.height() / 2);
    for (const Diagram *each : diagrams) {
        paint(painter, part.adjusted(kPad, kPad, -kPad, -kPad), *each);
        part.translate(isWide ? part.width() : 0, isWide ? 0 : part.height());
    }
    painter.restore();
}

void PhasorPicture::paint(QPainter &painter, const QRectF &area, const Diagram &diagram) const
{
    const double legend = std::min(int(diagram.phasors.size()) * kTextLine, area.height() / 2);
    const QRectF circle = area.adjusted(0, kTextLine, 0, -legend - kPad);
    drawText(painter, {area.left(), area.top(), area.width(), kTextLine},
             Qt::AlignHCenter | Qt::AlignVCenter, diagram.title, textFont(kTextSize, true));
    drawLegend(painter, {area.left(), area.bottom() - legend, area.width(), legend},
               diagram.phasors);
    Rose(painter, circle, diagram.phasors).paint();
}

} // namespace workbench
