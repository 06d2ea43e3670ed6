#include "workbench/testplan.h"

#include "workbench/sequencefile.h"

namespace workbench {

Assessment PlannedAssessment::in(const Parameters &values) const
{
    if (const auto *level = std::get_if<LevelAssessment>(&what))
        return *level;
    if (const auto *never = std::get_if<NeverAssessment>(&what))
        return *never;
    if (const auto *path = std::get_if<PathAssessment>(&what))
        return *path;
    const Time &time = std::get<Time>(what);
    TimeAssessment result = time.fixed;
    if (time.nominal)
        result.allowed = bandAround(time.nominal->in(values), time.minus, time.plus);
    if (time.atLeast)
        result.allowed.lowest = time.atLeast->in(values);
    if (time.atMost)
        result.allowed.highest = time.atMost->in(values);
    if (time.characteristic)
        return expecting(expectedTime(*time.characteristic, values.value(time.of)), result);
    return result;
}

const PlannedAssessment::Time *PlannedAssessment::alongCharacteristic() const
{
    const auto *time = std::get_if<Time>(&what);
    return time && time->characteristic ? time : nullptr;
}

Expected<Sequence> TestPlan::sequence(int number, const Parameters &values) const
{
    const JsonNode &node = m_sequences.at(std::size_t(number));
    Parameters known = parameterDefaults(node);
    for (auto each = known.begin(); each != known.end(); ++each)
        each.value() = values.value(each.key(), each.value());
    const qint64 refusalsBefore = node.file().refusals();
    const Sequence sequence = readSequence(node, known);
    if (node.file().refusals() > refusalsBefore)
        return failure(Failure::Input,
                       QStringLiteral("the sequence cannot be played with these values"));
    return sequence;
}

const JsonNode &TestPlan::caseNode(int number) const
{
    return m_caseNodes.at(std::size_t(number));
}

const JsonNode &TestPlan::sequenceNode(int number) const
{
    return m_sequences.at(std::size_t(number));
}

QVector<Remarks> TestPlan::remarks() const
{
    QVector<Remarks> all;
    for (const auto &file : m_files) {
        const Remarks remarks = file->remarks();
        if (!remarks.isEmpty())
            all.append(remarks);
    }
    return all;
}

} // namespace workbench
