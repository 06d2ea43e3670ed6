/// \file
/// Whether a test plan and its configuration make one test.
#pragma once

#include "configuration/testconfiguration.h"
#include "workbench/testplan.h"

namespace workbench {

/// The samples per second of the first case, for which the configuration of \a plan is to be
/// checked.
[[nodiscard]] int samplesPerSecond(const TestPlan &plan);

/// Holds all cases of \a plan, each with all values that it is played with, against the
/// configuration. Refused: what tellContradictions() says of a sequence; a sequence with another
/// sample rate, because the configuration is loaded once; an input that no subscription feeds; a
/// stand-in's file that is missing or broken; an assessment of a step that is never reached, or of
/// a way that the sequence cannot go.
/// \returns what is to be said about the plan and its sequences, as PlanReading::remarks
[[nodiscard]] QVector<Remarks>
checkPlan(const TestPlan &plan, const testconfiguration::CheckedConfiguration &configuration);

} // namespace workbench
