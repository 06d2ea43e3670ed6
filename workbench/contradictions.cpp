#include "workbench/contradictions.h"

#include "protocol/analogoutputs.h"
#include "workbench/sequencekeys.h"

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

/// Refuses for \a reason what \a partOf gives of the first step that \a asks for it.
template <typename Asks, typename PartOf>
void refuseFirst(const QVector<JsonNode> &steps, const Sequence &sequence, const QString &reason,
                 Asks asks, PartOf partOf)
{
    const auto step = std::find_if(sequence.steps.begin(), sequence.steps.end(), asks);
    if (step != sequence.steps.end())
        partOf(steps[int(step - sequence.steps.begin())].named(step->name)).refuse(reason);
}

void tellOutputs(const QVector<JsonNode> &steps, const Sequence &sequence,
                 const CheckedConfiguration &configuration)
{
    const std::set<int> shown = shownChannels(configuration);
    const auto isShown = [&shown](std::size_t output) {
        return shown.count(analogoutputs::kAnalogOutputs[output].wireChannel) != 0;
    };
    for (std::size_t i = 0; i < std::size_t(SequenceStep::kAnalogOutputs); ++i) {
        const bool isMirrorShown = sequence.dualAD && i % 2 == 0 && isShown(i + 1);
        if (isShown(i) || isMirrorShown)
            continue;
        refuseFirst(
            steps, sequence, QStringLiteral("no channel of a sampled-value stream carries it"),
            [i](const SequenceStep &step) {
                return step.outputs[i] && step.outputs[i]->amplitude != 0.0;
            },
            [i](const JsonNode &step) {
                return step.optional(key::outputs).optional(outputNames()[int(i)]);
            });
    }
}

void tellBinaryOutputs(const QVector<JsonNode> &steps, const Sequence &sequence,
                       const CheckedConfiguration &configuration)
{
    for (std::size_t i = 0; i < configuration.outputs.size(); ++i) {
        if (configuration.outputs[i].stream >= 0)
            continue;
        const int output = int(i) + 1;
        const QString name = sequence.signalNames.outputs.contains(output)
            ? QStringLiteral(" (%1)").arg(sequence.outputName(output))
            : QString();
        refuseFirst(
            steps, sequence, QStringLiteral("no mapinfo binds binary output %1").arg(output) + name,
            [i](const SequenceStep &step) { return step.binaryOutputs.at(i); },
            [i](const JsonNode &step) {
                constexpr int kOutputs = SequenceStep::kBinaryOutputs;
                return step[key::binaryOutputs].elements(kOutputs, kOutputs).value(int(i), step);
            });
    }
}

} // namespace

void tellContradictions(const JsonNode &node, const Sequence &sequence,
                        const CheckedConfiguration &configuration)
{
    const int count = int(sequence.steps.size());
    if (count == 0 || !configuration.isRead())
        return;
    const QVector<JsonNode> steps = node[key::steps].elements(count, count);
    tellOutputs(steps, sequence, configuration);
    tellBinaryOutputs(steps, sequence, configuration);
    if (!hasInputs(configuration))
        refuseFirst(
            steps, sequence, QStringLiteral("no subscription feeds a logic channel"),
            [](const SequenceStep &step) { return step.onBinaryInput.has_value(); },
            [](const JsonNode &step) { return step.optional(key::onBinaryInput); });
}

} // namespace workbench
