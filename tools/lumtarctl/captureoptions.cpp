#include "tools/lumtarctl/captureoptions.h"

#include "workbench/plotnames.h"
#include "workbench/sequencefile.h"

#include <QCommandLineParser>

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
    const PlotRange range{*from, *to, false};
    if (range.from && range.to && *range.to - *range.from < PlotWindow::kLeast)
        return refusal(
            QStringLiteral("--from %1 is not before --to %2").arg(*range.from).arg(*range.to));
    return range;
}

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

} // namespace

Expected<CaptureOrder> captureOrderOf(const QCommandLineParser &options)
{
    CaptureOrder order;
    order.capture = options.positionalArguments().value(1);
    order.stream = options.value(QStringLiteral("stream"));
    return rangeOf(options)
        .and_then([&](const PlotRange &range) {
            order.range = range;
            return runOf(options);
        })
        .and_then([&](int run) -> Expected<CaptureOrder> {
            order.run = run;
            if (!options.isSet(sequenceOption))
                return order;
            return readSequence(options.value(sequenceOption)).map([&](const Sequence &sequence) {
                order.sequence = sequence;
                return order;
            });
        });
}

Expected<PlotChoice> choiceOf(const CaptureOrder &order, const PlotOutline &outline)
{
    const Expected<int> stream = order.stream.isEmpty() ? 0 : outline.streams.named(order.stream);
    if (!stream)
        return refusal(QStringLiteral("--stream ") + stream.error().message);
    if (order.run >= outline.runs.size())
        return refusal(QStringLiteral("--run %1: the capture has %2 sequences")
                           .arg(order.run + 1)
                           .arg(outline.runs.size()));
    if (order.sequence) {
        const std::optional<QString> contradiction =
            contradictionOf(outline.runs[order.run].changes, *order.sequence);
        if (contradiction)
            return refusal(QStringLiteral("--sequence is not what the capture shows: ")
                           + *contradiction);
    }
    return PlotChoice{*stream, order.run};
}
