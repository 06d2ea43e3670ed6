#include "engine/lumtarengine.h"

#include "engine/answersdue.h"
#include "protocol/analogoutputs.h"
#include "protocol/boardlimits.h"
#include "protocol/textcodec.h"

#include <type_traits>

// The sizes that applications see, and the limits that the house goes by.
static_assert(std::extent_v<decltype(gblGooseDataOffsetAddr)> == limits::kGooseStreams);
static_assert(std::extent_v<decltype(CStep::binOut)> == limits::kBinaryOutputs);
static_assert(std::extent_v<decltype(LumtarEngine::steps)> == limits::kSteps);
static_assert(std::extent_v<decltype(LumtarEngine::lightGroup)> == limits::kLightPorts);
static_assert(std::extent_v<decltype(LumtarEngine::outputGooseMap)> == limits::kBinaryOutputs);
static_assert(limits::kSequenceGooseStreams <= limits::kGooseStreams);

GooseDataOffsetAddr gblGooseDataOffsetAddr[limits::kGooseStreams];

CStep::CStep()
{
    for (std::size_t i = 0; i < analogoutputs::kAnalogOutputs.size(); ++i) {
        if (analogoutputs::kAnalogOutputs[i].isCurrent) {
            outPara[i].scaleFactor = 0.001F;
            outPara[i].isCurrent = 1;
        }
    }
}

LumtarEngine::LumtarEngine()
{
    textcodec::installDefaultCodecs();
}

LumtarEngine::~LumtarEngine()
{
    closeLink();
}
