/// \file
/// What a sequence file may say, but hardly means.
#pragma once

#include "workbench/jsonreader.h"
#include "workbench/sequence.h"

#include <set>

namespace workbench {

/// The steps that may follow \a step, Sequence::kEnd among them. Flags that are handed to the board
/// as they are may mean anything.
[[nodiscard]] std::set<int> waysOut(const SequenceStep &step);
/// The steps that the first one leads to, directly or not.
[[nodiscard]] std::set<int> reachedSteps(const Sequence &sequence);

/// Warns of steps of \a sequence, which has been read from \a node, that are never reached, that
/// nothing ends, or that a wait leads back to. Does nothing if there are errors.
void tellDoubts(const JsonNode &node, const Sequence &sequence);

} // namespace workbench
