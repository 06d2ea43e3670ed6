#include "workbench/waveformpicture.h"

#include "workbench/axis.h"
#include "workbench/drawing.h"

#include "virtualboard/play/transitions.h"

#include <QDateTime>
#include <QPainter>
#include <QPolygonF>

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

constexpr double kLeastLeft = 84; ///< margin
constexpr double kMostLeft = 0.35; ///< of the width
constexpr double kRight = 26; ///< margin
constexpr double kTitle = 36;
constexpr double kBandNames = 24;
constexpr double kInputLine = 18; ///< a line of texts of inputs
constexpr int kMostInputLines = 4;
constexpr double kLegendLine = 20;
constexpr double kLegendSample = 30; ///< length of the line
constexpr double kMostLegendText = 260;
constexpr double kPanel = 210;
constexpr double kLeastPanel = 40;
constexpr double kStateRow = 20;
constexpr double kGap = 12;
constexpr double kTimeAxis = 56;
constexpr double kUprightTitle = 22;
constexpr double kCurveWidth = 1.4;
constexpr int kAreaAlpha = 20; ///< of an envelope
constexpr int kStateAlpha = 64;

// Of the height of a row of states.
constexpr double kLow = 0.85;
constexpr double kHigh = 0.15;

const Stroke kInputStroke = {QColor(0xb0, 0x3a, 0x87), {6, 3}};
const QColor kStateColour = QColor(0x00, 0x72, 0xb2);

/// An entry of the legend of a panel: a line of it, or what has no line.
struct LegendEntry
{
    double x = 0;
    int row = 0;
    QString text;
    int line = -1; ///< of the panel; -1: none
};

/// The text of an input, beside its line.
struct InputText
{
    QRectF box; ///< from the top of the texts
    bool isLeft = false;
    QString text;
};

QString joined(const QStringList &names)
{
    QString text = names.join(QStringLiteral(", "));
    return text.replace(QLatin1String(", entry "), QLatin1String(", "));
}

/// What lies between two gaps.
QVector<QVector<PlotPoint>> pieces(const QVector<PlotPoint> &points)
{
    QVector<QVector<PlotPoint>> pieces;
    for (const PlotPoint &point : points) {
        if (!std::isfinite(point.value))
            continue;
        if (pieces.isEmpty() || point.isFirst)
            pieces.append(QVector<PlotPoint>());
        pieces.last().append(point);
    }
    return pieces;
}

/// Of the axis of a panel, and the unit of its labels in the unit of the values.
struct Values
{
    Axis axis;
    double unit = 1;
};

Values valuesOf(const PlotPanel &panel)
{
    constexpr double kRoom = 0.06; // above and below
    constexpr double kLongNumber = 10000;
    double least = 0;
    double most = 0;
    for (const PlotPanel::Line &line : panel.lines) {
        for (const PlotPoint &point : line.points) {
            if (!std::isfinite(point.value))
                continue;
            least = std::min(least, point.value);
            most = std::max(most, point.value);
        }
    }
    if (least == most)
        least = -(most = 1);
    const bool isLong = std::max(most, -least) >= kLongNumber && panel.unit.size() == 1;
    const double unit = isLong ? 1000 : 1;
    const double room = (most - least) * kRoom;
    return {Axis((least - room) / unit, (most + room) / unit), unit};
}

/// A picture of one width.
class Layout
{
public:
    Layout(const PlotData &data, const WaveformTexts &texts, double width);
    [[nodiscard]] double fixedHeight() const;
    void paint(QPainter &painter, const QRectF &area);

private:
    [[nodiscard]] double leftMargin(double width) const;
    [[nodiscard]] QVector<LegendEntry> legendOf(const PlotPanel &panel) const;
    [[nodiscard]] int legendRows(int panel) const { return m_legends[panel].last().row + 1; }
    void placeInputs();
    [[nodiscard]] QString inputName(int channel) const;
    [[nodiscard]] QString textOf(const PlotInput &input) const;
    [[nodiscard]] double x(double time) const;
    [[nodiscard]] double bandsHeight() const;
    [[nodiscard]] QRectF next(double height);

    void paintTitle();
    void paintBandNames();
    void paintBackground(const QRectF &part);
    void paintPanel(int panel, double height);
    void paintLegend(int panel);
    void paintLine(const QRectF &area, const Axis &axis, double unit, const PlotPanel::Line &line,
                   int number);
    void paintStates();
    void paintStNum(const QRectF &row, const QVector<PlotPoint> &changes);
    void paintState(const QRectF &row, const QVector<PlotPoint> &changes, const QColor &colour);
    void paintFrame(const QRectF &part, bool isLast);
    void paintInputs(const QRectF &part);

    const PlotData &m_data;
    const WaveformTexts &m_texts;
    double m_left; ///< the parts' edges
    double m_right;
    Axis m_times;
    int m_rows = 0; ///< of states
    QVector<QVector<LegendEntry>> m_legends; ///< by panel
    QVector<InputText> m_inputTexts;
    int m_inputLines = 0;

    QPainter *m_painter = nullptr;
    QRectF m_area;
    double m_top = 0; ///< of what is not painted yet
};

Layout::Layout(const PlotData &data, const WaveformTexts &texts, double width)
    : m_data(data)
    , m_texts(texts)
    , m_left(leftMargin(width))
    , m_right(width - kRight)
    , m_times(data.window.from, data.window.to)
{
    m_rows = int(data.inputStates.size());
    for (const PlotGoose &goose : data.goose)
        m_rows += 1 + int(goose.entries.size());
    for (const PlotPanel &panel : data.panels)
        m_legends.append(legendOf(panel));
    placeInputs();
}

double Layout::leftMargin(double width) const
{
    double left = kLeastLeft;
    for (const PlotInputState &input : m_data.inputStates)
        left = std::max(left, widthOf(fitted(inputName(input.channel), width)) + 2 * kGap);
    for (const PlotGoose &goose : m_data.goose) {
        left = std::max(left, widthOf(fitted(goose.name, width)) + 2 * kGap);
        for (const PlotGoose::Entry &entry : goose.entries)
            left = std::max(left, widthOf(fitted(entry.name, width)) + 2 * kGap);
    }
    return std::min(left, std::max(kMostLeft * width, kLeastLeft));
}

double Layout::x(double time) const
{
    return m_area.left() + m_left + m_times.place(time) * (m_right - m_left);
}

/// One entry beside the other, in as many rows as it takes.
QVector<LegendEntry> Layout::legendOf(const PlotPanel &panel) const
{
    QVector<LegendEntry> entries;
    double x = m_left;
    int row = 0;
    const auto add = [&](const QString &text, int line) {
        const double sample = line < 0 ? 0 : kLegendSample + kGap / 2;
        const double width = sample + widthOf(text) + 2 * kGap;
        if (x + width > m_right && x > m_left) {
            x = m_left;
            ++row;
        }
        entries.append({x, row, text, line});
        x += width;
    };
    for (int i = 0; i < panel.lines.size(); ++i)
        add(fitted(joined(panel.lines[i].names), kMostLegendText), i);
    if (!panel.zero.isEmpty())
        add(fitted(QStringLiteral("zero: ") + joined(panel.zero), m_right - m_left), -1);
    return entries;
}

QString Layout::inputName(int channel) const
{
    return m_texts.inputs.value(channel, QStringLiteral("channel %1").arg(channel));
}

QString Layout::textOf(const PlotInput &input) const
{
    const QString entered = input.entered < 0
        ? QStringLiteral("end")
        : m_texts.steps.value(input.entered, QStringLiteral("binary input"));
    const QString time = input.afterEntry
        ? QStringLiteral("%1 ms after entry").arg(virtualboard::millisecondsText(*input.afterEntry))
        : QStringLiteral("unknown time after entry");
    return QStringLiteral("%1: %2, %3").arg(entered, inputName(input.channel), time);
}

/// Every text of an input goes into the first line where it does not cover another one.
void Layout::placeInputs()
{
    QVector<double> ends(kMostInputLines, m_left);
    for (const PlotInput &input : m_data.inputs) {
        const QString text = fitted(textOf(input), (m_right - m_left) / 2);
        const double width = widthOf(text) + kGap;
        const double at = x(input.time);
        const bool isLeft = at + width > m_right + kRight;
        const double begin = isLeft ? at - width : at;
        const auto line =
            std::find_if(ends.begin(), ends.end(), [begin](double end) { return end <= begin; });
        if (line == ends.end())
            continue;
        *line = begin + width;
        const int row = int(line - ends.begin());
        m_inputLines = std::max(m_inputLines, row + 1);
        const QRectF box(begin, kBandNames + row * kInputLine, width, kInputLine);
        const double gap = kGap / 2;
        m_inputTexts.append(
            {box.adjusted(isLeft ? 0 : gap, 0, isLeft ? -gap : 0, 0), isLeft, text});
    }
}

double Layout::bandsHeight() const
{
    return m_data.bands.isEmpty() ? 0 : kBandNames + m_inputLines * kInputLine;
}

/// Of all but the panels.
double Layout::fixedHeight() const
{
    double height = kTitle + kTimeAxis + m_rows * kStateRow + bandsHeight();
    for (int i = 0; i < m_data.panels.size(); ++i)
        height += legendRows(i) * kLegendLine + kGap;
    return height;
}

void Layout::paint(QPainter &painter, const QRectF &area)
{
    m_painter = &painter;
    m_area = area;
    m_top = area.top();
    const int panels = int(m_data.panels.size());
    const double height =
        std::max((area.height() - fixedHeight()) / std::max(panels, 1), kLeastPanel);
    paintTitle();
    if (!m_data.bands.isEmpty())
        paintBandNames();
    for (int i = 0; i < panels; ++i)
        paintPanel(i, height);
    if (m_rows > 0)
        paintStates();
}

/// The next part from the top, between the edges.
QRectF Layout::next(double height)
{
    const QRectF part(m_area.left() + m_left, m_top, m_right - m_left, height);
    m_top += height;
    return part;
}

void Layout::paintTitle()
{
    QRectF line = next(kTitle);
    line.setLeft(m_area.left() + kGap);
    if (m_texts.tellsStart) {
        const QDateTime start = QDateTime::fromMSecsSinceEpoch(
            m_data.start.time_since_epoch() / std::chrono::milliseconds(1), Qt::UTC);
        const QString zero = QStringLiteral("0 s = %1 UTC")
                                 .arg(start.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")));
        const double width = widthOf(zero) + 1;
        drawText(*m_painter, {line.right() - width, line.top(), width, kTitle}, Qt::AlignRight,
                 zero);
        line.adjust(0, 0, -width - kGap, 0);
    }
    drawText(*m_painter, line, Qt::AlignLeft, m_texts.title, textFont(kTextSize, true));
}

/// The names of the steps, and below them the inputs.
void Layout::paintBandNames()
{
    const QRectF part = next(bandsHeight());
    paintBackground(part);
    for (const PlotBand &band : m_data.bands) {
        const double room = x(band.end) - x(band.begin);
        QString text = m_texts.steps.value(band.step);
        text = text.isEmpty() ? QStringLiteral("step %1").arg(band.step)
                              : QStringLiteral("%1 %2").arg(band.step).arg(text);
        const QString number = QString::number(band.step);
        if (widthOf(fitted(text, room)) > room || fitted(text, room).size() < number.size() + 3)
            text = widthOf(number) <= room ? number : QString();
        drawText(*m_painter, {x(band.begin), part.top(), room, kBandNames}, Qt::AlignHCenter, text);
    }
    paintInputs(part);
    for (const InputText &input : m_inputTexts)
        drawText(*m_painter, input.box.translated(m_area.left(), part.top()),
                 input.isLeft ? Qt::AlignRight : Qt::AlignLeft, input.text);
}

/// What all parts share: the bands of the steps, every second one shaded.
void Layout::paintBackground(const QRectF &part)
{
    bool isShaded = false;
    for (const PlotBand &band : m_data.bands) {
        const double left = x(band.begin);
        if (isShaded)
            m_painter->fillRect(QRectF(left, part.top(), x(band.end) - left, part.height()),
                                ink::kBand);
        isShaded = !isShaded;
    }
    for (const PlotBand &band : m_data.bands)
        drawLine(*m_painter, {{x(band.begin), part.top()}, {x(band.begin), part.bottom()}},
                 penOf({ink::kFrame, {}}, 0.8));
}

void Layout::paintInputs(const QRectF &part)
{
    for (const PlotInput &input : m_data.inputs)
        drawLine(*m_painter, {{x(input.time), part.top()}, {x(input.time), part.bottom()}},
                 penOf(kInputStroke, 1.5));
}

/// The last part has the labels of the time.
void Layout::paintFrame(const QRectF &part, bool isLast)
{
    m_painter->setPen(QPen(ink::kFrame, 1));
    m_painter->setBrush(Qt::NoBrush);
    m_painter->drawRect(part);
    drawTicks(*m_painter, part, m_times, Direction::Horizontal,
              isLast ? TickStyle::Labels : TickStyle::Bare);
    if (!isLast)
        return;
    QString text = m_data.sinceSequence ? QStringLiteral("time since the start of the sequence (s)")
                                        : QStringLiteral("time since the first packet (s)");
    if (m_data.envelope > 0)
        text += QStringLiteral("; envelopes: smallest and largest value of every %1 ms")
                    .arg(m_data.envelope * 1000, 0, 'g', 3);
    drawText(*m_painter,
             {m_area.left() + kGap, part.bottom() + kTimeAxis - kTextLine - kGap,
              m_area.width() - 2 * kGap, kTextLine},
             Qt::AlignHCenter, text);
}

void Layout::paintPanel(int number, double height)
{
    const PlotPanel &panel = m_data.panels[number];
    paintLegend(number);
    const QRectF part = next(height);
    const Values values = valuesOf(panel);
    paintBackground(part);
    drawTicks(*m_painter, part, values.axis, Direction::Vertical, TickStyle::Labels);
    const double zero = part.bottom() - values.axis.place(0) * part.height();
    drawLine(*m_painter, {{part.left(), zero}, {part.right(), zero}},
             penOf({ink::kFrame, {}}, 0.8));
    for (int i = 0; i < panel.lines.size(); ++i)
        paintLine(part, values.axis, values.unit, panel.lines[i], i);
    paintFrame(part, m_rows == 0 && number + 1 == m_data.panels.size());
    paintInputs(part);
    const double labels = labelWidth(values.axis, height);
    drawUpright(
        *m_painter,
        {part.left() - labels - kUprightTitle - kGap / 2, part.top(), kUprightTitle, height},
        QStringLiteral("%1 (%2%3)")
            .arg(panel.quantity, QLatin1String(values.unit > 1 ? "k" : ""), panel.unit));
    m_top += kGap;
}

/// Above the panel.
void Layout::paintLegend(int panel)
{
    const QRectF part = next(legendRows(panel) * kLegendLine);
    for (const LegendEntry &entry : m_legends[panel]) {
        QRectF box(m_area.left() + entry.x, part.top() + entry.row * kLegendLine, 0, kLegendLine);
        if (entry.line >= 0) {
            const double y = box.center().y();
            const QString name = m_data.panels[panel].lines[entry.line].names.value(0);
            drawLine(*m_painter, {{box.left(), y}, {box.left() + kLegendSample, y}},
                     penOf(strokeOf(name, entry.line), kCurveWidth));
            box.translate(kLegendSample + kGap / 2, 0);
        }
        box.setWidth(widthOf(entry.text) + 1);
        drawText(*m_painter, box, Qt::AlignLeft, entry.text);
    }
}

void Layout::paintLine(const QRectF &area, const Axis &axis, double unit,
                       const PlotPanel::Line &line, int number)
{
    Stroke stroke = strokeOf(line.names.value(0), number);
    if (m_data.thinned && m_data.envelope <= 0)
        stroke.dash.clear(); // of a line that goes up and down in every column none would be seen
    const QPen pen = penOf(stroke, kCurveWidth);
    for (const QVector<PlotPoint> &piece : pieces(line.points)) {
        QPolygonF corners;
        for (const PlotPoint &point : piece)
            corners.append(
                {x(point.time), area.bottom() - axis.place(point.value / unit) * area.height()});
        if (m_data.envelope > 0) {
            QColor colour = stroke.colour;
            colour.setAlpha(kAreaAlpha);
            m_painter->setPen(Qt::NoPen);
            m_painter->setBrush(colour);
            m_painter->drawPolygon(corners);
        }
        drawLine(*m_painter, corners, pen);
    }
}

void Layout::paintStates()
{
    const QRectF part = next(m_rows * kStateRow);
    paintBackground(part);
    QRectF row(part.left(), part.top(), part.width(), kStateRow);
    const auto name = [&](const QString &text) {
        drawText(*m_painter, {m_area.left() + kGap, row.top(), m_left - 2 * kGap + 1, kStateRow},
                 Qt::AlignRight, text);
    };
    for (const PlotInputState &input : m_data.inputStates) {
        name(inputName(input.channel));
        paintState(row, input.changes, kInputStroke.colour);
        row.translate(0, kStateRow);
    }
    for (const PlotGoose &goose : m_data.goose) {
        name(goose.name);
        paintStNum(row, goose.stNum);
        row.translate(0, kStateRow);
        for (const PlotGoose::Entry &entry : goose.entries) {
            name(entry.name);
            paintState(row, entry.changes, kStateColour);
            row.translate(0, kStateRow);
        }
    }
    paintFrame(part, true);
    paintInputs(part);
}

/// A box for every state, with its number where there is room.
void Layout::paintStNum(const QRectF &row, const QVector<PlotPoint> &changes)
{
    const double top = row.top() + kHigh * kStateRow;
    const double bottom = row.top() + kLow * kStateRow;
    for (int i = 0; i < changes.size(); ++i) {
        const double begin = x(changes[i].time);
        const double end = i + 1 < changes.size() ? x(changes[i + 1].time) : row.right();
        m_painter->setPen(QPen(ink::kFrame, 0.8));
        m_painter->setBrush(Qt::NoBrush);
        m_painter->drawRect(QRectF(begin, top, end - begin, bottom - top));
        const QString value = QString::number(changes[i].value, 'f', 0);
        for (const QString &text : {QStringLiteral("stNum ") + value, value}) {
            if (widthOf(text) + kGap > end - begin)
                continue;
            drawText(*m_painter, {begin + kGap / 2, row.top(), end - begin, kStateRow},
                     Qt::AlignLeft, text);
            break;
        }
    }
}

/// A line that keeps its value between changes, filled down to the state of rest.
void Layout::paintState(const QRectF &row, const QVector<PlotPoint> &changes, const QColor &colour)
{
    if (changes.isEmpty())
        return;
    const double low = row.top() + kLow * kStateRow;
    const double high = row.top() + kHigh * kStateRow;
    QPolygonF corners(QVector<QPointF>{{x(changes.first().time), low}});
    for (const PlotPoint &change : changes) {
        corners.append({x(change.time), corners.last().y()});
        corners.append({x(change.time), low + change.value * (high - low)});
    }
    corners.append({row.right(), corners.last().y()});
    corners.append({row.right(), low});
    QColor fill = colour;
    fill.setAlpha(kStateAlpha);
    m_painter->setPen(Qt::NoPen);
    m_painter->setBrush(fill);
    m_painter->drawPolygon(corners);
    drawLine(*m_painter, corners, QPen(colour, kCurveWidth));
}

} // namespace

WaveformPicture::WaveformPicture(const PlotData &data, const WaveformTexts &texts)
    : m_data(data)
    , m_texts(texts)
{ }

int WaveformPicture::heightFor(int width) const
{
    return int(std::ceil(Layout(m_data, m_texts, width).fixedHeight()
                         + int(m_data.panels.size()) * kPanel));
}

void WaveformPicture::paint(QPainter &painter, const QRectF &area) const
{
    painter.save();
    Layout(m_data, m_texts, area.width()).paint(painter, area);
    painter.restore();
}

} // namespace workbench
