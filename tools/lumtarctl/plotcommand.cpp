#include "tools/lumtarctl/plotcommand.h"

#include "tools/lumtarctl/captureoptions.h"
#include "tools/terminal/terminal.h"
#include "workbench/drawing.h"
#include "workbench/picturefile.h"
#include "workbench/printabletext.h"
#include "workbench/waveformpicture.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QSaveFile>

using namespace workbench;

namespace {

tl::unexpected<Failure> refusal(const QString &message)
{
    return failure(Failure::Input, message);
}

Expected<PictureFormat> formatOf(const QString &path)
{
    const QString ending = QFileInfo(path).suffix().toLower();
    if (ending != QLatin1String("svg") && ending != QLatin1String("png"))
        return refusal(QStringLiteral("--output \"%1\" does not end with .svg or .png").arg(path));
    return ending == QLatin1String("svg") ? PictureFormat::Svg : PictureFormat::Png;
}

/// Everything that the command line says, checked.
struct PlotOrder
{
    CaptureOrder what;
    QString output;
    PictureFormat format = PictureFormat::Svg;
};

Expected<PlotOrder> orderOf(const QCommandLineParser &options)
{
    PlotOrder order;
    order.output = options.value(QStringLiteral("output"));
    return formatOf(order.output)
        .and_then([&](PictureFormat format) {
            order.format = format;
            return captureOrderOf(options);
        })
        .and_then([&](const CaptureOrder &what) -> Expected<PlotOrder> {
            order.what = what;
            order.what.range.all = options.isSet(QStringLiteral("all"));
            if (order.what.range.all && (what.range.from || what.range.to))
                return refusal(QStringLiteral("--all goes without --from and --to"));
            return order;
        });
}

Expected<PlotData> read(const CaptureOrder &order, const PlotOutline &outline)
{
    const double cycle = 1.0 / order.sequence.value_or(Sequence()).nominalFrequency;
    const Expected<PlotChoice> choice = choiceOf(order, outline);
    if (!choice)
        return tl::unexpected<Failure>(choice.error());
    return windowOf(order.range, outline.runs[choice->run], cycle)
        .and_then([&](const PlotWindow &window) {
            return readPlotData(order.capture, outline, *choice, window, cycle);
        });
}

QByteArray draw(const PlotOrder &order, const PlotOutline &outline, const PlotData &data)
{
    constexpr int kWidth = 1200; // pixels
    WaveformTexts texts;
    texts.title =
        QFileInfo(order.what.capture).fileName() + QStringLiteral(": ") + data.stream.toString();
    if (outline.runs.size() > 1)
        texts.title += QStringLiteral(", sequence %1").arg(data.run + 1);
    if (order.what.sequence) {
        texts.steps = order.what.sequence->names();
        texts.inputs = order.what.sequence->signalNames.inputs;
    }
    const WaveformPicture picture(data, texts);
    const QSize size(kWidth, picture.heightFor(kWidth));
    const auto paint = [&picture](QPainter &painter, const QRectF &area) {
        picture.paint(painter, area);
    };
    return order.format == PictureFormat::Svg ? toSvg(size, paint) : toPng(size, paint);
}

void tell(const QString &output, const PlotOutline &outline, const PlotData &data)
{
    const PlotRun &run = outline.runs[data.run];
    QStringList lines{output + QStringLiteral(": ") + data.stream.toString(),
                      QStringLiteral("from %1 s to %2 s; the capture reaches from %3 s to %4 s")
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
    if (data.inputsLeftOut > 0)
        lines +=
            QStringLiteral("not drawn: %1 more logic inputs that change").arg(data.inputsLeftOut);
    for (const QString &line : lines)
        sayWrapped(printable(line));
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
    if (const Expected<void> fonts = checkFonts(); !fonts)
        return tl::unexpected<Failure>(fonts.error());

    const Expected<PlotOutline> outline = readOutline(order->what.capture);
    if (!outline)
        return tl::unexpected<Failure>(outline.error());
    if (!outline->damage.isEmpty())
        warn(outline->damage + QStringLiteral("; what comes before it is drawn"));
    const Expected<PlotData> data = read(order->what, *outline);
    if (!data)
        return tl::unexpected<Failure>(data.error());
    const QByteArray picture = draw(*order, *outline, *data);
    if (file.write(picture) != picture.size() || !file.commit())
        return refusal(QStringLiteral("%1: %2").arg(order->output, file.errorString()));
    tell(order->output, *outline, *data);
    return 0;
}
