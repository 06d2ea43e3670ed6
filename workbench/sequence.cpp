#include "workbench/sequence.h"

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

constexpr int kBinaryInputFlag = 0x08; // in CStep::ctlCondition

void apply(const SequenceOutput &from, OutChannelPara_tag &to)
{
    to.amplitude = float(from.amplitude);
    to.phasePosition = float(from.phase);
    if (from.frequency)
        to.frequency = float(*from.frequency);
}

/// From \a before to \a after, degrees; an output that is left out has phase 0. In the range -180
/// to 180, without -180.
double phaseJump(const std::optional<SequenceOutput> &before,
                 const std::optional<SequenceOutput> &after)
{
    if (after && after->phaseJump)
        return *after->phaseJump;
    constexpr double kTurn = 360.0;
    const double jump = std::remainder(
        after.value_or(SequenceOutput()).phase - before.value_or(SequenceOutput()).phase, kTurn);
    return jump == -kTurn / 2 ? -jump : jump;
}

CStep engineStep(const SequenceStep &from, const Sequence &sequence)
{
    CStep step;
    step.stateTimeJump = quint8(from.onTimeout);
    step.ctlCondition = quint8(from.conditionFlags);
    if (from.onBinaryInput) {
        step.ctlCondition |= kBinaryInputFlag;
        step.binInpJump = quint8(*from.onBinaryInput);
    }
    if (from.onTrigger) {
        step.stateTrige = quint8(from.onTrigger->trigger);
        step.stateTrigeJump = quint8(from.onTrigger->goTo);
    }
    step.stepOption = quint8(from.stepOption);
    for (std::size_t i = 0; i < from.binaryOutputs.size(); ++i)
        step.binOut[i] = from.binaryOutputs[i] ? 1 : 0;
    for (std::size_t i = 0; i < from.outputs.size(); ++i) {
        step.outPara[i].frequency = float(sequence.nominalFrequency);
        step.outPara[i].ampIsPeak = sequence.amplitudesArePeak ? 1 : 0;
        if (from.outputs[i])
            apply(*from.outputs[i], step.outPara[i]);
    }
    return step;
}

} // namespace

QStringList Sequence::names() const
{
    QStringList result;
    for (const SequenceStep &step : steps)
        result += step.name;
    return result;
}

QString Sequence::nameOf(int number) const
{
    return number == kEnd ? QStringLiteral("end") : names().value(number, QString::number(number));
}

const QStringList &outputNames()
{
    static const QStringList names = {
        QStringLiteral("Va1"), QStringLiteral("Va2"), QStringLiteral("Vb1"), QStringLiteral("Vb2"),
        QStringLiteral("Vc1"), QStringLiteral("Vc2"), QStringLiteral("Vn1"), QStringLiteral("Vn2"),
        QStringLiteral("Ia1"), QStringLiteral("Ia2"), QStringLiteral("Ib1"), QStringLiteral("Ib2"),
        QStringLiteral("Ic1"), QStringLiteral("Ic2"), QStringLiteral("In1"), QStringLiteral("In2")};
    return names;
}

void apply(const Sequence &sequence, LumtarEngine &engine)
{
    constexpr int kVoltageUnit = 10; // the engine counts voltage ratios in tens
    engine.samplesPerCycle = quint16(sequence.samplesPerCycle);
    engine.nominalFrequency = quint8(sequence.nominalFrequency);
    engine.stepCount = qint32(sequence.steps.size());
    std::transform(sequence.steps.begin(), sequence.steps.end(), engine.steps,
                   [&](const SequenceStep &step) { return engineStep(step, sequence); });
    for (int i = 0; i < sequence.steps.size(); ++i) {
        const auto &after = sequence.steps[i].outputs;
        const auto &before = sequence.steps[std::max(i - 1, 0)].outputs;
        for (std::size_t output = 0; output < after.size(); ++output)
            engine.steps[i].outPara[output].phaseJump =
                float(phaseJump(before[output], after[output]));
    }
    engine.SetProtocal(int(sequence.resolution));
    const Sequence::Ratios ratios = sequence.ratios.value_or(Sequence::Ratios{0, 0});
    engine.SetVIInputWay(sequence.ratios ? 0 : 1, ratios.voltage / kVoltageUnit, ratios.current);
    if (sequence.dualAD)
        engine.SetDoubleAD();
}

SequenceTimes timesOf(const Sequence &sequence)
{
    constexpr double kMicroseconds = 1e6;
    constexpr int kMostInterval = 255;
    SequenceTimes times;
    std::transform(sequence.steps.begin(), sequence.steps.end(), times.milliseconds,
                   [](const SequenceStep &step) { return quint16(step.time.count()); });
    times.sampleInterval =
        quint8(std::min(qRound(kMicroseconds / sequence.samplesPerSecond()), kMostInterval));
    return times;
}

} // namespace workbench
