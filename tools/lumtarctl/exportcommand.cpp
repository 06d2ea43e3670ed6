#include "tools/lumtarctl/exportcommand.h"

#include "tools/lumtarctl/captureoptions.h"
#include "tools/terminal/terminal.h"
#include "workbench/comtradeexport.h"
#include "workbench/printabletext.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QSaveFile>

using namespace workbench;

namespace {

tl::unexpected<Failure> refusal(const QString &message)
{
    return failure(Failure::Input, message);
}

tl::unexpected<Failure> refusal(const QFileDevice &file)
{
    return refusal(QStringLiteral("%1: %2").arg(file.fileName(), file.errorString()));
}

/// The two files of a record.
struct RecordPaths
{
    QString configuration;
    QString data;
};

Expected<RecordPaths> pathsOf(const QString &output)
{
    const QString suffix = QFileInfo(output).suffix();
    if (suffix.compare(QLatin1String("cfg"), Qt::CaseInsensitive) != 0)
        return refusal(QStringLiteral("--output \"%1\" does not end with .cfg").arg(output));
    const QLatin1String data(suffix.front().isUpper() ? "DAT" : "dat");
    return RecordPaths{output, output.chopped(suffix.size()) + data};
}

/// Whether the file at \a path can be replaced without harm: it is none, empty, or what
/// \a isExpected says of its begin.
template <typename Predicate>
Expected<void> checkReplaced(const QString &path, Predicate isExpected)
{
    constexpr qint64 kBegin = 4096;
    const QFileInfo info(path);
    if (!info.exists())
        return {};
    if (!info.isFile())
        return refusal(path + QStringLiteral(": there is something that is no file"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return refusal(file);
    const QByteArray begin = file.read(kBegin);
    if (!begin.isEmpty() && !isExpected(begin))
        return refusal(
            path
            + QStringLiteral(": is there already, and no COMTRADE file; it is not overwritten"));
    return {};
}

/// A data file has no mark of its own: it is one if its configuration file is.
Expected<void> checkReplaced(const RecordPaths &paths, const QString &capture)
{
    const QString there = QFileInfo(paths.data).canonicalFilePath();
    if (!there.isEmpty() && there == QFileInfo(capture).canonicalFilePath())
        return refusal(paths.data + QStringLiteral(": is the capture itself"));
    return checkReplaced(paths.configuration, isComtradeConfiguration).and_then([&] {
        return checkReplaced(paths.data, [&paths](const QByteArray &) {
            return QFileInfo(paths.configuration).size() > 0;
        });
    });
}

Expected<Comtrade::Revision> revisionOf(const QString &year)
{
    if (year == QLatin1String("1999"))
        return Comtrade::Revision::Y1999;
    if (year == QLatin1String("2013"))
        return Comtrade::Revision::Y2013;
    return refusal(QStringLiteral("--revision \"%1\" is neither 2013 nor 1999").arg(year));
}

/// Everything that the command line says, checked.
struct Order
{
    CaptureOrder what;
    RecordPaths paths;
    Comtrade::Revision revision = Comtrade::Revision::Y2013;
};

Expected<Order> orderOf(const QCommandLineParser &options)
{
    Order order;
    return pathsOf(options.value(QStringLiteral("output")))
        .and_then([&](const RecordPaths &paths) {
            order.paths = paths;
            return revisionOf(options.value(QStringLiteral("revision")));
        })
        .and_then([&](Comtrade::Revision revision) {
            order.revision = revision;
            return captureOrderOf(options);
        })
        .and_then([&](const CaptureOrder &what) {
            order.what = what;
            return checkReplaced(order.paths, what.capture);
        })
        .map([&] { return order; });
}

Expected<ExportOrder> partOf(const Order &order, const PlotOutline &outline)
{
    return choiceOf(order.what, outline).and_then([&](const PlotChoice &choice) {
        constexpr double kCycle = 0; // the whole sequence, if nothing else is asked for
        PlotRange range = order.what.range;
        range.all = true;
        return windowOf(range, outline.runs[choice.run], kCycle).map([&](const PlotWindow &window) {
            return ExportOrder{order.what.capture, choice, window, order.revision,
                               order.what.sequence};
        });
    });
}

/// Writes both files, or none.
Expected<ExportReport> write(const ExportOrder &part, const PlotOutline &outline,
                             const RecordPaths &paths)
{
    QSaveFile data(paths.data);
    QSaveFile configuration(paths.configuration);
    for (QSaveFile *each : {&data, &configuration}) {
        if (!each->open(QIODevice::WriteOnly))
            return refusal(*each);
    }
    return exportCapture(part, outline, data)
        .and_then([&](const ExportReport &report) -> Expected<ExportReport> {
            const QByteArray text = comtradeConfiguration(report.record);
            if (configuration.write(text) != text.size() || !configuration.flush())
                return refusal(configuration);
            for (QSaveFile *each : {&data, &configuration}) { // who sees the latter has both
                if (!each->commit())
                    return refusal(*each);
            }
            return report;
        });
}

/// What the record lacks of the capture.
QStringList remarksOn(const ExportReport &report)
{
    QStringList lines;
    if (report.missing > 0)
        lines += QStringLiteral("%1 samples are missing, in %2 gaps; the first begins behind %3 s. "
                                "They are marked as missing.")
                     .arg(report.missing)
                     .arg(report.gaps)
                     .arg(report.firstGap);
    if (report.surplus > 0)
        lines +=
            QStringLiteral("%1 frames are left out: repeated or out of order").arg(report.surplus);
    if (!report.isCounted)
        lines += QStringLiteral(
            "smpCnt does not count; the times of the frames put the samples in their places");
    if (report.areStatesLeftOut)
        lines += QStringLiteral("only the first 1000 GOOSE entries are exported");
    return lines;
}

void tell(const Order &order, const ExportReport &report, const PlotChoice &choice,
          const PlotOutline &outline)
{
    const Comtrade &record = report.record;
    const PlotRun &run = outline.runs[choice.run];
    const PlotStream &stream = outline.streams.all()[choice.stream];
    const double begin = run.seconds(record.start);
    QStringList lines{QStringLiteral("%1, %2: %3")
                          .arg(order.paths.configuration, order.paths.data, stream.toString()),
                      QStringLiteral("%1 samples, %2 a second, from %3 s to %4 s")
                          .arg(record.samples)
                          .arg(record.rate)
                          .arg(begin)
                          .arg(begin + double(record.samples - 1) / record.rate),
                      QStringLiteral("%1 analog and %2 digital channels")
                          .arg(record.analogs.size())
                          .arg(record.digitals.size())};
    lines += remarksOn(report);
    if (outline.runs.size() > 1)
        lines += QStringLiteral("this is sequence %1 of %2; --run N exports another")
                     .arg(choice.run + 1)
                     .arg(outline.runs.size());
    for (const PlotStream &other : outline.streams.all()) {
        if (other.svId != stream.svId || other.appId != stream.appId)
            lines += QStringLiteral("not exported: ") + other.toString();
    }
    for (const QString &line : lines)
        sayWrapped(printable(line));
}

} // namespace

Expected<int> exportCapture(const QCommandLineParser &options)
{
    const Expected<Order> order = orderOf(options);
    if (!order)
        return tl::unexpected<Failure>(order.error());
    const Expected<PlotOutline> outline = readOutline(order->what.capture);
    if (!outline)
        return tl::unexpected<Failure>(outline.error());
    if (!outline->damage.isEmpty())
        warn(outline->damage + QStringLiteral("; what comes before it is exported"));
    return partOf(*order, *outline).and_then([&](const ExportOrder &part) {
        return write(part, *outline, order->paths).map([&](const ExportReport &report) {
            tell(*order, report, part.choice, *outline);
            return 0;
        });
    });
}
