#include "workbench/plotscript.h"

#include "workbench/printabletext.h"

#include "virtualboard/play/transitions.h"

#include <QDateTime>

#include <algorithm>
#include <array>
#include <cstring>

namespace workbench {

namespace {

// All lengths are pixels of the SVG file.
constexpr int kWidth = 1200;
constexpr int kLeastLeft = 84; ///< margin
constexpr int kRight = 24; ///< margin
constexpr int kTitle = 36;
constexpr int kBandNames = 24;
constexpr int kInputLine = 18; ///< a line of texts of inputs
constexpr int kMostInputLines = 4;
constexpr int kLegendLine = 20;
constexpr int kLegendSample = 60; ///< width of a line sample and the space around it
constexpr int kPanel = 210;
constexpr int kStateRow = 20;
constexpr int kGap = 12;
constexpr int kTimeAxis = 64;
constexpr int kCharacter = 7; ///< width, roughly

// Characters.
constexpr int kMostName = 36;
constexpr int kMostTitle = 100;
constexpr int kMostNamesOfLine = 30;
constexpr int kMostZero = 60;

// Of the height of a row of states.
constexpr double kLow = 0.15;
constexpr double kHigh = 0.85;

// Colours that colour-blind people can tell apart (M. Okabe, K. Ito: Color Universal Design). The
// first four are the phases.
struct Stroke
{
    const char *colour;
    const char *dash;
};
constexpr std::array<Stroke, 7> kStrokes = {{{"#D55E00", "1"},
                                             {"#009E73", "(14,3)"},
                                             {"#0072B2", "(14,3,3,3)"},
                                             {"#000000", "(4,3)"},
                                             {"#E69F00", "1"},
                                             {"#56B4E9", "(14,3)"},
                                             {"#CC79A7", "(14,3,3,3)"}}};
constexpr const char *kSecondDash = "(2,3)"; ///< of the second output of a phase
constexpr const char *kStateColour = "#0072B2";
constexpr const char *kInputColour = "#CC79A7";
constexpr const char *kBandColour = "#ECEFF3";
constexpr const char *kFrameColour = "#808890";
constexpr const char *kTics = "set tics textcolor rgb 'black' scale 0.5\n";

QByteArray number(double value)
{
    return QByteArray::number(value, 'g', 12);
}

/// Only what gnuplot takes literally in double quotes stands there as it is.
QByteArray quoted(const QString &text)
{
    QByteArray result = "\"";
    bool isEscaped = false; // an escape takes all digits behind it
    for (const char c : printable(text).toUtf8()) {
        const bool isLiteral = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')
            || (!isEscaped && c >= '0' && c <= '9') || std::strchr(" .,:()+-", c) != nullptr;
        isEscaped = !isLiteral;
        if (isLiteral)
            result += c;
        else
            result += '\\' + QByteArray::number(uchar(c), 8).rightJustified(3, '0');
    }
    return result + '"';
}

QString shortened(const QString &text, int length)
{
    if (text.size() <= length)
        return text;
    return text.left(length / 2) + QChar(0x2026) + text.right(length - length / 2 - 1);
}

int widthOf(const QString &text)
{
    return int(text.size()) * kCharacter;
}

QString legendOf(const QStringList &names)
{
    QString text = names.join(QStringLiteral(", "));
    text.replace(QLatin1String(", entry "), QLatin1String(", "));
    return text;
}

QString legendOf(const PlotPanel::Line &line)
{
    return shortened(legendOf(line.names), kMostNamesOfLine);
}

Stroke strokeOf(const QString &name, int line)
{
    const int phase = int(QStringLiteral("abcn").indexOf(name.mid(1, 1)));
    if (name.size() != 3 || phase < 0) // no analog channel
        return kStrokes[std::size_t(line) % kStrokes.size()];
    Stroke stroke = kStrokes[std::size_t(phase)];
    if (name.endsWith(QLatin1Char('2')))
        stroke.dash = kSecondDash;
    return stroke;
}

/// The corners of a line that keeps its value between changes, up to \a end; 0 and 1 become \a low
/// and \a high. It begins and ends at \a low, so that it can be filled.
QVector<PlotPoint> pulses(const QVector<PlotPoint> &changes, double end, double low, double high)
{
    QVector<PlotPoint> corners{{changes.first().time, low}};
    for (const PlotPoint &change : changes) {
        corners.append({change.time, corners.last().value});
        corners.append({change.time, low + change.value * (high - low)});
    }
    corners.append({end, corners.last().value});
    corners.append({end, low});
    return corners;
}

class Script
{
public:
    Script(const PlotData &data, const QStringList &stepNames);
    [[nodiscard]] QByteArray write(PlotFormat format, const QString &title);

private:
    struct InputText
    {
        double time;
        QString text;
        bool isLeft; ///< of the line that it belongs to
        int line;
    };
    void measure();
    void placeInputs();
    [[nodiscard]] QByteArray terminal(PlotFormat format) const;
    void writeBackground();
    void writeTitle(const QString &title);
    void writeBands();
    void writePanel(const PlotPanel &panel, bool isLast);
    void writeLegend(const PlotPanel &panel);
    double writeRange(const PlotPanel &panel);
    void writeStates();
    QByteArray writeStNum(const QVector<PlotPoint> &changes, int row);
    void writeTimeAxis();
    void begin(int height);
    void label(const QString &text, const QByteArray &place);
    [[nodiscard]] QByteArray block(const QVector<PlotPoint> &points);
    [[nodiscard]] int legendLines(const PlotPanel &panel) const;
    [[nodiscard]] double pixel(double time) const;
    [[nodiscard]] QString stepName(int step) const;

    const PlotData &m_data;
    QStringList m_stepNames;
    int m_left = kLeastLeft;
    int m_rows = 0; ///< of states
    QVector<InputText> m_inputTexts;
    int m_inputLines = 0;
    int m_height = 0;

    int m_top = kTitle; ///< of what is not written yet
    int m_blockCount = 0;
    QByteArray m_blocks; ///< of data
    QByteArray m_text; ///< all the rest
};

Script::Script(const PlotData &data, const QStringList &stepNames)
    : m_data(data)
    , m_stepNames(stepNames)
{
    measure();
    placeInputs();
    m_height = kTitle + kTimeAxis + m_rows * kStateRow;
    if (!m_data.bands.isEmpty())
        m_height += kBandNames + m_inputLines * kInputLine;
    for (const PlotPanel &panel : m_data.panels)
        m_height += legendLines(panel) * kLegendLine + kPanel + kGap;
}

void Script::measure()
{
    for (const PlotGoose &goose : m_data.goose) {
        m_rows += 1 + int(goose.entries.size());
        m_left = std::max(m_left, widthOf(shortened(goose.name, kMostName)) + 2 * kGap);
        for (const PlotGoose::Entry &entry : goose.entries)
            m_left = std::max(m_left, widthOf(entry.name) + 2 * kGap);
    }
}

/// Every text of an input goes into the first line where it does not cover another one.
void Script::placeInputs()
{
    QVector<double> ends(kMostInputLines, m_left);
    for (const PlotInput &input : m_data.inputs) {
        const QString name = input.entered < 0
            ? QStringLiteral("end")
            : m_stepNames.value(input.entered, QStringLiteral("binary input"));
        const QString text =
            QStringLiteral("%1: channel %2, ").arg(name, QString::number(input.channel))
            + (input.afterEntry ? QStringLiteral("%1 ms after entry")
                                      .arg(virtualboard::millisecondsText(*input.afterEntry))
                                : QStringLiteral("unknown time after entry"));
        const int width = widthOf(text) + 2 * kGap;
        const bool isLeft = pixel(input.time) + width > kWidth;
        const double begin = pixel(input.time) - (isLeft ? width : 0);
        const auto line =
            std::find_if(ends.begin(), ends.end(), [begin](double end) { return end <= begin; });
        if (line == ends.end())
            continue;
        *line = begin + width;
        m_inputTexts.append({input.time, text, isLeft, int(line - ends.begin())});
        m_inputLines = std::max(m_inputLines, m_inputTexts.last().line + 1);
    }
}

/// gnuplot makes the columns of a legend as wide as the longest text.
int Script::legendLines(const PlotPanel &panel) const
{
    int widest = kLegendSample;
    for (const PlotPanel::Line &line : panel.lines)
        widest = std::max(widest, widthOf(legendOf(line)) + kLegendSample);
    const int columns = std::max((kWidth - m_left - kRight) / widest, 1);
    return (int(panel.lines.size()) + columns - 1) / columns;
}

double Script::pixel(double time) const
{
    const double share = (time - m_data.window.from) / (m_data.window.to - m_data.window.from);
    return m_left + share * (kWidth - m_left - kRight);
}

QString Script::stepName(int step) const
{
    return step < m_stepNames.size() ? QStringLiteral("%1 %2").arg(step).arg(m_stepNames[step])
                                     : QStringLiteral("step %1").arg(step);
}

QByteArray Script::write(PlotFormat format, const QString &title)
{
    writeBackground();
    writeTitle(title);
    if (!m_data.bands.isEmpty())
        writeBands();
    for (int i = 0; i < m_data.panels.size(); ++i)
        writePanel(m_data.panels[i], m_rows == 0 && i + 1 == m_data.panels.size());
    if (m_rows > 0)
        writeStates();
    return terminal(format) + m_blocks + "set multiplot\n" + m_text + "unset multiplot\n";
}

QByteArray Script::terminal(PlotFormat format) const
{
    const bool isPng = format == PlotFormat::Png;
    const int scale = isPng ? 2 : 1; // for print
    return QByteArray("set encoding utf8\nset terminal ")
        + (isPng ? "pngcairo fontscale 2 linewidth 2 font 'sans-serif,10'"
                 : "svg font 'sans-serif,13' background '#ffffff'")
        + " noenhanced size " + QByteArray::number(scale * kWidth) + ','
        + QByteArray::number(scale * m_height) + '\n';
}

/// What all panels share: side margins, range of time, bands of the steps, lines of the inputs.
void Script::writeBackground()
{
    m_text += "set lmargin at screen " + number(double(m_left) / kWidth)
        + "\nset rmargin at screen " + number(1 - double(kRight) / kWidth) + "\nset xrange ["
        + number(m_data.window.from) + ':' + number(m_data.window.to)
        + "]\nset format x ''\nset border lw 0.8 lc rgb '" + kFrameColour + "'\nunset key\n"
        + kTics;
    const auto line = [this](double time, const QByteArray &style) {
        m_text += "set arrow from " + number(time) + ", graph 0 to " + number(time)
            + ", graph 1 nohead " + style + '\n';
    };
    bool isShaded = false;
    for (const PlotBand &band : m_data.bands) {
        if (isShaded)
            m_text += "set object rectangle from " + number(band.begin) + ", graph 0 to "
                + number(band.end) + ", graph 1 behind fillcolor rgb '" + kBandColour
                + "' fillstyle solid noborder\n";
        isShaded = !isShaded;
        line(band.begin, QByteArray("back lw 0.8 lc rgb '") + kFrameColour + '\'');
    }
    for (const PlotInput &input : m_data.inputs)
        line(input.time, QByteArray("front lw 1.5 dashtype (6,3) lc rgb '") + kInputColour + '\'');
}

void Script::writeTitle(const QString &title)
{
    const QByteArray y = "screen " + number(1 - 0.5 * kTitle / m_height);
    label(shortened(title, kMostTitle),
          "screen " + number(double(kGap) / kWidth) + ", " + y + " left");
    const QDateTime start = QDateTime::fromMSecsSinceEpoch(
        m_data.start.time_since_epoch() / std::chrono::milliseconds(1), Qt::UTC);
    label(QStringLiteral("0 s = %1 UTC")
              .arg(start.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"))),
          "screen " + number(1 - double(kRight) / kWidth) + ", " + y + " right");
}

/// The names of the steps, and below them the inputs.
void Script::writeBands()
{
    const int height = kBandNames + m_inputLines * kInputLine;
    begin(height);
    for (const PlotBand &band : m_data.bands) {
        const double room = pixel(band.end) - pixel(band.begin);
        QString text = stepName(band.step);
        if (widthOf(text) > room)
            text = QString::number(band.step);
        if (widthOf(text) <= room)
            label(text,
                  number((band.begin + band.end) / 2) + ", " + number(height - kBandNames / 2.0)
                      + " center");
    }
    for (const InputText &input : m_inputTexts)
        label(input.text,
              number(input.time) + ", "
                  + number(height - kBandNames - kInputLine * (input.line + 0.5))
                  + (input.isLeft ? " right offset -0.8,0" : " left offset 0.8,0"));
    m_text += "unset tics\nset border 0\nset yrange [0:" + QByteArray::number(height)
        + "]\nplot NaN notitle\nunset label\nset border 15\nset xtics\nset ytics\n" + kTics;
}

void Script::writePanel(const PlotPanel &panel, bool isLast)
{
    writeLegend(panel);
    begin(kPanel);
    m_top += kGap;
    if (isLast)
        writeTimeAxis();
    const double unit = writeRange(panel);
    m_text += QByteArray("set xzeroaxis linetype 1 lw 0.8 lc rgb '") + kFrameColour + "'\n";
    const bool isDense = m_data.thinned && m_data.envelope <= 0;
    QByteArrayList plots;
    for (int i = 0; i < panel.lines.size(); ++i) {
        const PlotPanel::Line &line = panel.lines[i];
        const Stroke stroke = strokeOf(line.names.first(), i);
        const QByteArray values = block(line.points) + " using 1:($2/" + number(unit) + ')';
        const QByteArray colour = QByteArray(" lc rgb '") + stroke.colour + "' ";
        if (m_data.envelope > 0)
            plots += values + " with filledcurves closed fillstyle transparent solid 0.08 noborder"
                + colour + "notitle";
        plots += values + " with lines lw 1.4 dashtype " + (isDense ? "1" : stroke.dash) + colour
            + "title " + quoted(legendOf(line));
    }
    m_text += "plot " + plots.join(", ") + "\nunset label\nunset key\nunset ylabel\n";
}

/// Above the panel.
void Script::writeLegend(const PlotPanel &panel)
{
    m_top += legendLines(panel) * kLegendLine;
    m_text += "set key at screen " + number(double(m_left) / kWidth) + ", screen "
        + number(1 - (m_top - kGap / 4.0) / m_height)
        + " left bottom horizontal Left reverse samplen 2.5\n";
    if (!panel.zero.isEmpty())
        label(QStringLiteral("zero: ") + shortened(legendOf(panel.zero), kMostZero),
              "graph 1, 1 right offset 0,0.8");
}

/// Returns the unit of the axis, in the unit of the values.
double Script::writeRange(const PlotPanel &panel)
{
    constexpr double kRoom = 0.06; // above and below
    constexpr double kLongNumber = 10000;
    double least = 0;
    double most = 0;
    for (const PlotPanel::Line &line : panel.lines) {
        for (const PlotPoint &point : line.points) {
            least = std::min(least, point.value);
            most = std::max(most, point.value);
        }
    }
    if (least == most)
        least = -(most = 1);
    const bool isLong = std::max(most, -least) >= kLongNumber && panel.unit.size() == 1;
    const double unit = isLong ? 1000 : 1;
    const double room = (most - least) * kRoom;
    m_text += "set yrange [" + number((least - room) / unit) + ':' + number((most + room) / unit)
        + "]\nset ylabel "
        + quoted(QStringLiteral("%1 (%2%3)")
                     .arg(panel.quantity, QLatin1String(isLong ? "k" : ""), panel.unit))
        + '\n';
    return unit;
}

void Script::writeStates()
{
    begin(m_rows * kStateRow);
    writeTimeAxis();
    int row = m_rows;
    // Not as tics: in those a percent sign begins a number.
    const auto name = [this](const QString &text, int place) {
        label(text, "graph 0, first " + number(place + 0.5) + " right offset -0.8,0");
    };
    QByteArrayList plots;
    const QByteArray colour = QByteArray(" lc rgb '") + kStateColour + "' notitle";
    for (const PlotGoose &goose : m_data.goose) {
        --row;
        name(shortened(goose.name, kMostName), row);
        plots += writeStNum(goose.stNum, row) + " with lines lw 0.8 lc rgb '" + kFrameColour
            + "' notitle";
        for (const PlotGoose::Entry &entry : goose.entries) {
            --row;
            name(entry.name, row);
            const QByteArray corners =
                block(pulses(entry.changes, m_data.window.to, row + kLow, row + kHigh));
            plots += corners + " with filledcurves closed fillstyle transparent solid 0.25 noborder"
                + colour;
            plots += corners + " with lines lw 1.4" + colour;
        }
    }
    m_text += "unset xzeroaxis\nset yrange [0:" + QByteArray::number(m_rows)
        + "]\nunset ytics\nplot " + plots.join(", ") + '\n';
}

/// A box for every state, with its number where there is room. Returns the name of the boxes.
QByteArray Script::writeStNum(const QVector<PlotPoint> &changes, int row)
{
    QVector<PlotPoint> edges;
    for (int i = 0; i < changes.size(); ++i) {
        const double begin = changes[i].time;
        const double end = i + 1 < changes.size() ? changes[i + 1].time : m_data.window.to;
        edges += {{begin, row + kLow}, {begin, row + kHigh}, {end, row + kHigh},
                  {end, row + kLow},   {begin, row + kLow},  {end, row + kLow}};
        const QString value = QString::number(changes[i].value, 'f', 0);
        for (const QString &text : {QStringLiteral("stNum ") + value, value}) {
            if (widthOf(text) + kGap > pixel(end) - pixel(begin))
                continue;
            label(text, number(begin) + ", " + number(row + 0.5) + " left offset 0.6,0");
            break;
        }
    }
    return block(edges);
}

void Script::writeTimeAxis()
{
    QString text = m_data.sinceSequence ? QStringLiteral("time since the start of the sequence (s)")
                                        : QStringLiteral("time since the first packet (s)");
    if (m_data.envelope > 0)
        text += QStringLiteral("; envelopes: smallest and largest value of every %1 ms")
                    .arg(m_data.envelope * 1000, 0, 'g', 3);
    m_text += "set format x '%.9g'\nset xlabel " + quoted(text) + '\n';
}

/// The next plot is \a height high.
void Script::begin(int height)
{
    m_text += "set tmargin at screen " + number(1 - double(m_top) / m_height)
        + "\nset bmargin at screen " + number(1 - double(m_top + height) / m_height) + '\n';
    m_top += height;
}

void Script::label(const QString &text, const QByteArray &place)
{
    m_text += "set label " + quoted(text) + " at " + place + " front\n";
}

QByteArray Script::block(const QVector<PlotPoint> &points)
{
    QByteArray name = "$data" + QByteArray::number(++m_blockCount);
    m_blocks += name + " << END\n";
    for (const PlotPoint &point : points) {
        if (point.isFirst)
            m_blocks += '\n'; // lifts the pen
        m_blocks += number(point.time) + ' ' + number(point.value) + '\n';
    }
    m_blocks += "END\n";
    return name;
}

} // namespace

QByteArray plotScript(const PlotData &data, PlotFormat format, const QString &title,
                      const QStringList &stepNames)
{
    return Script(data, stepNames).write(format, title);
}

} // namespace workbench
