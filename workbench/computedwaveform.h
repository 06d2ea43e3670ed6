/// \file
/// What a shot put out, computed from its sequence and from when its steps were entered: for
/// pictures of shots of which no capture was kept.
#pragma once

#include "workbench/observation.h"
#include "workbench/plotdata.h"
#include "workbench/sequence.h"

#include <chrono>

namespace workbench {

/// The time that tells most of a shot: a few cycles around the step that an input ended first, or
/// around the first change of steps; at most ten seconds before the change.
[[nodiscard]] PlotWindow eventWindow(const Sequence &sequence, const Observation &observation,
                                     std::chrono::nanoseconds length);

/// Voltages and currents, steps and what changed them. The phases go on through changes of steps;
/// a board that jumps puts out something else behind the first change.
/// \param length of the whole sequence as it was played
[[nodiscard]] PlotData computedWaveform(const Sequence &sequence, const Observation &observation,
                                        std::chrono::nanoseconds length, const PlotWindow &window);

/// States of logic inputs and binary outputs over the whole sequence, with its steps: those that
/// change or have a name. There are no curves in it.
[[nodiscard]] PlotData playedStates(const Sequence &sequence, const SignalNames &names,
                                    const Observation &observation,
                                    std::chrono::nanoseconds length);

} // namespace workbench
