#include "plotcommand.h"

#include "failures.h"
#include "plotscript.h"
#include "sequencefile.h"
#include "terminal.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>

#include <cmath>

namespace {

constexpr int kNotDrawn = 1; // exit status
constexpr int kLongestDrawing = 120000; // ms
constexpr double kLeastSeconds = 1e-6; // of a window
constexpr double kMostSeconds = 1e9; // of a time

/// What the window shows around the step that a binary input ended.
constexpr double kCyclesBefore = 4;
constexpr double kCyclesAfter = 6;

PlotFormat formatOf(const QString &path)
{
    const QString ending = QFileInfo(path).suffix().toLower();
    if (ending != QLatin1String("svg") && ending != QLatin1String("png"))
        throw InputError{
            QStringLiteral("--output \"%1\" does not end with .svg or .png").arg(path)};
    return ending == QLatin1String("svg") ? PlotFormat::Svg : PlotFormat::Png;
}

/// The value of an option in seconds; nothing if it is not given.
std::optional<double> seconds(const QCommandLineParser &options, const QString &name)
{
    if (!options.isSet(name))
        return std::nullopt;
    bool ok = false;
    const double value = options.value(name).toDouble(&ok);
    if (!ok || !(std::fabs(value) <= kMostSeconds))
        throw InputError{
            QStringLiteral("--%1 \"%2\" is no number of seconds").arg(name, options.value(name))};
    return value;
}

/// The part of the time axis that the options ask for.
class WindowChoice
{
public:
    explicit WindowChoice(const QCommandLineParser &options);
    [[nodiscard]] PlotWindow in(const PlotOutline &outline, double cycle) const;

private:
    std::optional<double> m_from;
    std::optional<double> m_to;
    bool m_all = false;
};

WindowChoice::WindowChoice(const QCommandLineParser &options)
    : m_from(seconds(options, QStringLiteral("from")))
    , m_to(seconds(options, QStringLiteral("to")))
    , m_all(options.isSet(QStringLiteral("all")))
{
    if (m_all && (m_from || m_to))
        throw InputError{QStringLiteral("--all goes without --from and --to")};
    if (m_from && m_to && *m_to - *m_from < kLeastSeconds)
        throw InputError{QStringLiteral("--from %1 is not before --to %2").arg(*m_from).arg(*m_to)};
}

PlotWindow WindowChoice::in(const PlotOutline &outline, double cycle) const
{
    const PlotWindow whole{outline.first, outline.seconds(outline.last)};
    PlotWindow window{m_from.value_or(whole.from), m_to.value_or(whole.to)};
    if (outline.ended && !m_all && !m_from && !m_to)
        window = {std::max(outline.ended->front() - kCyclesBefore * cycle, whole.from),
                  std::min(outline.ended->back() + kCyclesAfter * cycle, whole.to)};
    if (window.to - window.from < kLeastSeconds || window.from >= whole.to
        || window.to <= whole.from)
        throw InputError{
            QStringLiteral("there is nothing to draw: the capture reaches from %1 s to %2 s")
                .arg(whole.from)
                .arg(whole.to)};
    return window;
}

/// What gnuplot makes of \a script; nothing, after telling why, if it fails.
QByteArray draw(const QString &program, const QByteArray &script)
{
    QProcess gnuplot;
    gnuplot.start(program, {QStringLiteral("-d")}); // not with a user's settings
    gnuplot.write(script);
    gnuplot.closeWriteChannel();
    const bool drawn = gnuplot.waitForFinished(kLongestDrawing)
        && gnuplot.exitStatus() == QProcess::NormalExit && gnuplot.exitCode() == 0;
    QByteArray picture = drawn ? gnuplot.readAllStandardOutput() : QByteArray();
    if (picture.isEmpty()) {
        const QByteArray said = gnuplot.readAllStandardError().trimmed();
        const QByteArray reason = said.mid(said.lastIndexOf('\n') + 1); // behind the faulty line
        complain(
            QStringLiteral("%1 failed: %2")
                .arg(program,
                     reason.isEmpty() ? gnuplot.errorString() : QString::fromLocal8Bit(reason)));
    }
    return picture;
}

PlotData read(const QString &capture, const PlotOutline &outline, const QString &streamName,
              const WindowChoice &choice, double cycle)
{
    const int stream = streamName.isEmpty() ? 0 : outline.streams.named(streamName);
    return readPlotData(capture, outline, stream, choice.in(outline, cycle), cycle);
}

void tell(const QString &output, const PlotOutline &outline, const PlotData &data)
{
    QStringList lines{output + QStringLiteral(": ") + data.stream.toString()
                      + QStringLiteral(" from %1 s to %2 s; the capture reaches from %3 s to %4 s")
                            .arg(data.window.from)
                            .arg(data.window.to)
                            .arg(outline.first)
                            .arg(outline.seconds(outline.last))};
    for (const PlotStream &other : outline.streams.all()) {
        if (other.svId != data.stream.svId || other.appId != data.stream.appId)
            lines += QStringLiteral("not drawn: ") + other.toString();
    }
    if (data.statesLeftOut > 0)
        lines +=
            QStringLiteral("not drawn: %1 more GOOSE entries that change").arg(data.statesLeftOut);
    for (const QString &line : lines)
        say(printable(line));
}

} // namespace

int plotCapture(const QCommandLineParser &options)
{
    const QString capture = options.positionalArguments().value(1);
    const QString output = options.value(QStringLiteral("output"));
    const PlotFormat format = formatOf(output);
    const WindowChoice choice(options);
    Sequence sequence;
    if (options.isSet(QStringLiteral("sequence")))
        sequence = readSequence(options.value(QStringLiteral("sequence")));
    if (QFileInfo::exists(output) && !QFileInfo(output).isFile())
        throw InputError{output + QStringLiteral(": there is something that is no file")};
    QSaveFile file(output);
    if (!file.open(QIODevice::WriteOnly))
        throw InputError{QStringLiteral("%1: %2").arg(output, file.errorString())};
    const QString program = QStandardPaths::findExecutable(QStringLiteral("gnuplot"));
    if (program.isEmpty()) {
        complain(QStringLiteral("gnuplot, which draws the picture, is not installed"));
        return kNotDrawn;
    }

    const PlotOutline outline = readOutline(capture);
    if (!outline.damage.isEmpty())
        complain(outline.damage + QStringLiteral("; what comes before it is drawn"));
    const PlotData data = read(capture, outline, options.value(QStringLiteral("stream")), choice,
                               1.0 / sequence.nominalFrequency);
    const QString title =
        QFileInfo(capture).fileName() + QStringLiteral(": ") + data.stream.toString();
    const QByteArray picture = draw(program, plotScript(data, format, title, sequence.names));
    if (picture.isEmpty())
        return kNotDrawn;
    if (file.write(picture) != picture.size() || !file.commit())
        throw InputError{QStringLiteral("%1: %2").arg(output, file.errorString())};
    tell(output, outline, data);
    return 0;
}
