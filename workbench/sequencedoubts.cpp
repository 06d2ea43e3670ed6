#include "workbench/sequencedoubts.h"

#include "workbench/sequencekeys.h"

#include <vector>

namespace workbench {

std::set<int> waysOut(const SequenceStep &step)
{
    std::set<int> result;
    if (step.time.count() > 0 || step.conditionFlags != 0)
        result.insert(step.onTimeout);
    if (step.onBinaryInput)
        result.insert(*step.onBinaryInput);
    if (step.onTrigger)
        result.insert(step.onTrigger->goTo);
    return result;
}

std::set<int> reachedSteps(const Sequence &sequence)
{
    std::set<int> reached = {0};
    std::vector<int> next = {0};
    while (!next.empty()) {
        const int step = next.back();
        next.pop_back();
        for (const int way : waysOut(sequence.steps[step])) {
            if (way < sequence.steps.size() && reached.insert(way).second)
                next.push_back(way);
        }
    }
    return reached;
}

namespace {

void tellDoubts(const JsonNode &node, const SequenceStep &step, int number)
{
    if (waysOut(step).empty())
        node[key::time].warn(
            QStringLiteral("0 s and no wait: nothing ends this step but a stop of the board"));
    if (step.onBinaryInput == number)
        node[key::onBinaryInput].warn(
            QStringLiteral("leads back to its own step, which begins again"));
    if (step.onTrigger && step.onTrigger->goTo == number)
        node[key::onTrigger].warn(QStringLiteral("leads back to its own step, which begins again"));
}

} // namespace

void tellDoubts(const JsonNode &node, const Sequence &sequence)
{
    if (node.file().errors() > 0 || sequence.steps.isEmpty())
        return;
    const std::set<int> reached = reachedSteps(sequence);
    const int count = int(sequence.steps.size());
    const QVector<JsonNode> steps = node[key::steps].elements(count, count);
    for (int i = 0; i < count; ++i) {
        const JsonNode step = steps[i].named(sequence.steps[i].name);
        if (reached.count(i) == 0)
            step.warn(QStringLiteral("no step leads here"));
        tellDoubts(step, sequence.steps[i], i);
    }
}

} // namespace workbench
