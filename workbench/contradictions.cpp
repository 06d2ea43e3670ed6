#include "workbench/contradictions.h"

#include "protocol/analogoutputs.h"

#include <algorithm>
#include <set>

using namespace testconfiguration;

namespace workbench {

namespace {

/// Wire channels that a dataset entry of a sampled-value stream shows.
std::set<int> shownChannels(const CheckedConfiguration &configuration)
{
    std::set<int> shown;
    for (const Stream &each : configuration.streams) {
        if (const auto *const stream = std::get_if<SvPublication>(&each)) {
            for (const char kind : stream->description.ChannelProperty)
                shown.insert(quint8(kind));
        }
    }
    return shown;
}

bool hasInputs(const CheckedConfiguration &configuration)
{
    return std::any_of(configuration.streams.begin(), configuration.streams.end(),
                       [](const Stream &each) {
                           const auto *const stream = std::get_if<GooseSubscription>(&each);
                           return stream && !stream->mapped.isEmpty();
                       });
}

/// "steps[1].KEY (fault): reason" for the first step that \a asks; nothing if none does.
template <typename Asks>
QStringList firstOf(const Sequence &sequence, const QString &key, const QString &reason, Asks asks)
{
    const auto step = std::find_if(sequence.steps.begin(), sequence.steps.end(), asks);
    if (step == sequence.steps.end())
        return {};
    return {QStringLiteral("steps[%1].%2 (%3): %4")
                .arg(step - sequence.steps.begin())
                .arg(key, step->name, reason)};
}

} // namespace

QStringList contradictions(const Sequence &sequence, const CheckedConfiguration &configuration)
{
    QStringList result;
    const std::set<int> shown = shownChannels(configuration);
    const auto isShown = [&shown](std::size_t output) {
        return shown.count(analogoutputs::kAnalogOutputs[output].wireChannel) != 0;
    };
    for (std::size_t i = 0; i < std::size_t(SequenceStep::kAnalogOutputs); ++i) {
        const bool isMirrorShown = sequence.dualAD && i % 2 == 0 && isShown(i + 1);
        if (!isShown(i) && !isMirrorShown)
            result += firstOf(sequence, QStringLiteral("outputs.") + outputNames()[int(i)],
                              QStringLiteral("no channel of a sampled-value stream carries it"),
                              [i](const SequenceStep &step) {
                                  return step.outputs[i] && step.outputs[i]->amplitude != 0.0;
                              });
    }
    for (std::size_t i = 0; i < configuration.outputs.size(); ++i) {
        if (configuration.outputs[i].stream < 0)
            result += firstOf(sequence, QStringLiteral("binaryOutputs[%1]").arg(i),
                              QStringLiteral("no mapinfo binds binary output %1").arg(i + 1),
                              [i](const SequenceStep &step) { return step.binaryOutputs.at(i); });
    }
    if (!hasInputs(configuration))
        result += firstOf(sequence, QStringLiteral("onBinaryInput"),
                          QStringLiteral("no subscription feeds a logic channel"),
                          [](const SequenceStep &step) { return step.onBinaryInput.has_value(); });
    return result;
}

} // namespace workbench
