/// \file
/// What a tester reads about a sequence: its steps, where it stands, how its steps have changed.
/// Texts of several lines end each with a line break.
#pragma once

#include "protocol/statusreply.h"
#include "workbench/sequence.h"

#include <QString>

namespace workbench {

/// A line for every step: its time, and where it goes.
[[nodiscard]] QString stepTexts(const Sequence &sequence);

/// The start command gives the sample interval in whole microseconds; the configuration's streams
/// count as many samples a second as the sequence asks for. A line about the difference, empty if
/// there is none.
[[nodiscard]] QString rateWarning(const Sequence &sequence);

/// "running: step 1 (fault) 0.020 s, total 1.020 s, 8160 frames"
[[nodiscard]] QString stateText(const statusreply::State &state, const Sequence &sequence);

/// ", active: 0 (trip A) 255": the logic inputs behind stateText(), or "none".
[[nodiscard]] QString activeText(const statusreply::State &state, const Sequence &sequence);

/// A table of the changes of steps, in \a width characters; below it, for each binary input, the
/// time that it took, which is what a test is made for.
[[nodiscard]] QString changeTexts(const statusreply::Changes &changes, const Sequence &sequence,
                                  int width);

/// A table of \a inputs, which are some of a sequence's, in \a width characters.
[[nodiscard]] QString inputTexts(const statusreply::Inputs &inputs, const Sequence &sequence,
                                 int width);

/// What the board's last state says about problems and, of a live board that did not keep it well,
/// about its time. Empty if there is nothing to tell.
[[nodiscard]] QString concerns(const statusreply::State &last);

} // namespace workbench
