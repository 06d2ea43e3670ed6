#include "engine/lumtarengine.h"

#include "protocol/analogoutputs.h"
#include "protocol/boardlimits.h"

#include <cmath>

using analogoutputs::indexOf;
using analogoutputs::kAnalogOutputs;

namespace {

/// One three-phase set of first outputs, by their indices in CStep::outPara.
struct ThreePhaseSet
{
    std::size_t a;
    std::size_t b;
    std::size_t c;
};
constexpr ThreePhaseSet kThreePhaseSets[] = {{indexOf("Va1"), indexOf("Vb1"), indexOf("Vc1")},
                                             {indexOf("Ia1"), indexOf("Ib1"), indexOf("Ic1")}};

bool isStep(int index)
{
    return index >= 0 && index < limits::kSteps;
}

void setUnits(CStep &step, float voltsPerCount, float amperesPerCount)
{
    for (std::size_t i = 0; i < kAnalogOutputs.size(); ++i) {
        const bool isCurrent = kAnalogOutputs[i].isCurrent;
        step.outPara[i].scaleFactor = isCurrent ? amperesPerCount : voltsPerCount;
        step.outPara[i].isCurrent = isCurrent ? 1 : 0;
    }
}

void silence(OutChannelPara_tag &output)
{
    output.amplitude = 0.0F;
    output.phaseJump = 0.0F;
}

/// Angle in degrees that a 50 Hz signal turns through during \a seconds, less whole turns: 0, as
/// long as a step lasts whole seconds.
float angleTurned(quint32 seconds)
{
    const auto cycles = float(50U * seconds);
    return (cycles - std::trunc(cycles)) * 360.0F;
}

} // namespace

void LumtarEngine::SetProtocal(int protocolNumber)
{
    protocol = quint8(protocolNumber);
    for (CStep &step : steps) {
        if (protocol == 0)
            setUnits(step, 0.01F, 0.001F);
        else if (protocol == 1)
            setUnits(step, 1.0F, 1.0F);
    }
}

void LumtarEngine::SetVIInputWay(int way, int voltageFactor, int currentFactor)
{
    viInputWay = way;
    voltageRatio = voltageFactor;
    currentRatio = currentFactor;
}

void LumtarEngine::SetDoubleAD()
{
    for (CStep &step : steps) {
        for (std::size_t first = 0; first < kAnalogOutputs.size(); first += 2) {
            OutChannelPara_tag &second = step.outPara[first + 1];
            const quint8 isCurrent = second.isCurrent;
            second = step.outPara[first];
            second.isCurrent = isCurrent;
        }
    }
}

void LumtarEngine::ReSetPhase(int step, int nextStep)
{
    if (!isStep(step) || !isStep(nextStep)) {
        refuse(QStringLiteral("ReSetPhase: refused, steps %1 and %2 must be 0 to %3")
                   .arg(step)
                   .arg(nextStep)
                   .arg(limits::kSteps - 1));
        return;
    }
    constexpr float kThird = 120.0F;
    constexpr int kAnchorC = 3;
    constexpr int kAnchorB = 4;
    CStep &a = steps[step];
    CStep &b = steps[nextStep];
    const auto phase = [](CStep &of, std::size_t output) -> float & {
        return of.outPara[output].phasePosition;
    };
    const float turned = angleTurned(a.stateTime);

    for (const auto &set : kThreePhaseSets) {
        if (b.phaseAnchor == kAnchorC) {
            phase(a, set.c) = phase(b, set.c) - turned;
            phase(a, set.a) = phase(a, set.c) - kThird;
        } else if (b.phaseAnchor == kAnchorB) {
            phase(a, set.b) = phase(b, set.b) - turned;
            phase(a, set.a) = phase(a, set.b) + kThird;
        } else {
            phase(a, set.a) = phase(b, set.a) - turned;
        }
        phase(a, set.b) = phase(a, set.a) - kThird;
        phase(a, set.c) = phase(a, set.a) + kThird;
        for (const std::size_t output : {set.a, set.b, set.c})
            b.outPara[output].phaseJump = phase(b, output) - (phase(a, output) + turned);
    }
    SetDoubleAD();
}

void LumtarEngine::InitSignal()
{
    for (const auto &set : kThreePhaseSets) {
        silence(steps[0].outPara[set.a]);
        silence(steps[2].outPara[set.b]);
        silence(steps[4].outPara[set.c]);
    }
    SetDoubleAD();
}

void LumtarEngine::OffSignal(int step)
{
    if (!isStep(step)) {
        refuse(QStringLiteral("OffSignal: refused, step %1 is outside 0 to %2")
                   .arg(step)
                   .arg(limits::kSteps - 1));
        return;
    }
    for (OutChannelPara_tag &output : steps[step].outPara)
        output.amplitude = 0.0F;
    for (quint8 &state : steps[step].binOut)
        state = 0;
}
