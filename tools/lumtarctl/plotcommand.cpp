#include "tools/lumtarctl/plotcommand.h"

#include "tools/lumtarctl/terminal.h"
#include "workbench/plotnames.h"
#include "workbench/plotpicture.h"
#include "workbench/plotscript.h"
#include "workbench/printabletext.h"
#include "workbench/sequencefile.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QSaveFile>

#include <cmath>

using namespace workbench;

namespace {

constexpr double kMostSeconds = 1e9; // of a time

const QString sequenceOption = QStringLiteral("sequence");
const QString runOption = QStringLiteral("run");

tl::unexpected<Failure> refusal(const QString &message)
{
    return failure(Failure::Input, message);
}

Expected<PlotFormat> formatOf(const QString &path)
{
    const QString ending = QFileInfo(path).suffix().toLower();
    if (ending != QLatin1String("svg") && ending != QLatin1String("png"))
        return refusal(QStringLiteral("--output \"%1\" does not end with .svg or .png").arg(path));
    return ending == QLatin1String("svg") ? PlotFormat::Svg : PlotFormat::Png;
}

/// The value of an option in seconds; nothing if it is not given.
Expected<std::optional<double>> seconds(const QCommandLineParser &options, const QString &name)
{
    if (!options.isSet(name))
        return std::nullopt;
    bool ok = false;
    const double value = options.value(name).toDouble(&ok);
    if (!ok || !(std::fabs(value) <= kMostSeconds))
        return refusal(
            QStringLiteral("--%1 \"%2\" is no number of seconds").arg(name, options.value(name)));
    return value;
}

Expected<PlotRange> rangeOf(const QCommandLineParser &options)
{
    const auto from = seconds(options, QStringLiteral("from"));
    const auto to = seconds(options, QStringLiteral("to"));
    for (const auto *each : {&from, &to}) {
        if (!*each)
            return tl::unexpected<Failure>(each->error());
    }
    const PlotRange range{*from, *to, options.isSet(QStringLiteral("all"))};
    if (range.all && (range.from || range.to))
        return refusal(QStringLiteral("--all goes without --from and --to"));
    if (range.from && range.to && *range.to - *range.from < PlotWindow::kLeast)
        return refusal(
            QStringLiteral("--from %1 is not before --to %2").arg(*range.from).arg(*range.to));
    return range;
}

/// Everything that the command line says, checked.
struct PlotOrder
{
    QString capture;
    QString output;
    QString stream; ///< empty: the first one
    int run = 0; ///< number of the sequence in the capture, from 0
    PlotFormat format;
    PlotRange range;
    std::optional<Sequence> sequence;
};

/// The value of --run, which counts from 1, from 0.
Expected<int> runOf(const QCommandLineParser &options)
{
    if (!options.isSet(runOption))
        return 0;
    bool ok = false;
    const int number = options.value(runOption).toInt(&ok);
    if (!ok || number < 1)
        return refusal(QStringLiteral("--run \"%1\" is no number of a sequence; they count from 1")
                           .arg(options.value(runOption)));
    return number - 1;
}

Expected<PlotOrder> orderOf(const QCommandLineParser &options)
{
    PlotOrder order;
    order.capture = options.positionalArguments().value(1);
    order.output = options.value(QStringLiteral("output"));
    order.stream = options.value(QStringLiteral("stream"));
    return formatOf(order.output)
        .and_then([&](PlotFormat format) {
            order.format = format;
            return rangeOf(options);
        })
        .and_then([&](const PlotRange &range) {
            order.range = range;
            return runOf(options);
        })
        .and_then([&](int run) -> Expected<PlotOrder> {
            order.run = run;
            if (!options.isSet(sequenceOption))
                return order;
            return readSequence(options.value(sequenceOption)).map([&](const Sequence &sequence) {
                order.sequence = sequence;
                return order;
            });
        });
}

Expected<PlotData> read(const PlotOrder &order, const PlotOutline &outline)
{
    const double cycle = 1.0 / order.sequence.value_or(Sequence()).nominalFrequency;
    const Expected<int> stream = order.stream.isEmpty() ? 0 : outline.streams.named(order.stream);
    if (!stream)
        return refusal(QStringLiteral("--stream ") + stream.error().message);
    if (order.run >= outline.runs.size())
        return refusal(QStringLiteral("--run %1: the capture has %2 sequences")
                           .arg(order.run + 1)
                           .arg(outline.runs.size()));
    const PlotRun &run = outline.runs[order.run];
    if (order.sequence) {
        const std::optional<QString> contradiction = contradictionOf(run.changes, *order.sequence);
        if (contradiction)
            return refusal(QStringLiteral("--sequence is not what the capture shows: ")
                           + *contradiction);
    }
    return windowOf(order.range, run, cycle).and_then([&](const PlotWindow &window) {
        return readPlotData(order.capture, outline, {*stream, order.run}, window, cycle);
    });
}

void tell(const QString &output, const PlotOutline &outline, const PlotData &data)
{
    const PlotRun &run = outline.runs[data.run];
    QStringList lines{output + QStringLiteral(": ") + data.stream.toString()
                      + QStringLiteral(" from %1 s to %2 s; the capture reaches from %3 s to %4 s")
                            .arg(data.window.from)
                            .arg(data.window.to)
                            .arg(run.seconds(run.first))
                            .arg(run.seconds(run.last))};
    if (outline.runs.size() > 1)
        lines += QStringLiteral("drawn is sequence %1 of %2; --run N draws another")
                     .arg(data.run + 1)
                     .arg(outline.runs.size());
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

Expected<int> plotCapture(const QCommandLineParser &options)
{
    const Expected<PlotOrder> order = orderOf(options);
    if (!order)
        return tl::unexpected<Failure>(order.error());
    if (QFileInfo::exists(order->output) && !QFileInfo(order->output).isFile())
        return refusal(order->output + QStringLiteral(": there is something that is no file"));
    QSaveFile file(order->output);
    if (!file.open(QIODevice::WriteOnly))
        return refusal(QStringLiteral("%1: %2").arg(order->output, file.errorString()));
    const Expected<QString> gnuplot = findGnuplot();
    if (!gnuplot)
        return tl::unexpected<Failure>(gnuplot.error());

    const Expected<PlotOutline> outline = readOutline(order->capture);
    if (!outline)
        return tl::unexpected<Failure>(outline.error());
    if (!outline->damage.isEmpty())
        complain(outline->damage + QStringLiteral("; what comes before it is drawn"));
    const Expected<PlotData> data = read(*order, *outline);
    if (!data)
        return tl::unexpected<Failure>(data.error());
    QString title =
        QFileInfo(order->capture).fileName() + QStringLiteral(": ") + data->stream.toString();
    if (outline->runs.size() > 1)
        title += QStringLiteral(", sequence %1").arg(data->run + 1);
    const Expected<QByteArray> picture = drawPicture(
        *gnuplot,
        plotScript(*data, order->format, title, order->sequence.value_or(Sequence()).names()));
    if (!picture)
        return tl::unexpected<Failure>(picture.error());
    if (file.write(*picture) != picture->size() || !file.commit())
        return refusal(QStringLiteral("%1: %2").arg(order->output, file.errorString()));
    tell(order->output, *outline, *data);
    return 0;
}
