#include "tools/lumtarctl/plotcommand.h"

#include "tools/lumtarctl/terminal.h"
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
    PlotFormat format;
    PlotRange range;
    Sequence sequence;
};

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
            return options.isSet(sequenceOption) ? readSequence(options.value(sequenceOption))
                                                 : Sequence();
        })
        .map([&](const Sequence &sequence) {
            order.sequence = sequence;
            return order;
        });
}

Expected<PlotData> read(const PlotOrder &order, const PlotOutline &outline)
{
    const double cycle = 1.0 / order.sequence.nominalFrequency;
    const Expected<int> stream = order.stream.isEmpty() ? 0 : outline.streams.named(order.stream);
    if (!stream)
        return refusal(QStringLiteral("--stream ") + stream.error().message);
    return windowOf(order.range, outline, cycle).and_then([&](const PlotWindow &window) {
        return readPlotData(order.capture, outline, *stream, window, cycle);
    });
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
    const QString title =
        QFileInfo(order->capture).fileName() + QStringLiteral(": ") + data->stream.toString();
    const Expected<QByteArray> picture =
        drawPicture(*gnuplot, plotScript(*data, order->format, title, order->sequence.names()));
    if (!picture)
        return tl::unexpected<Failure>(picture.error());
    if (file.write(*picture) != picture->size() || !file.commit())
        return refusal(QStringLiteral("%1: %2").arg(order->output, file.errorString()));
    tell(order->output, *outline, *data);
    return 0;
}
