/// \file
/// What a sequence file may say, but hardly means.
#pragma once

#include "workbench/jsonreader.h"
#include "workbench/sequence.h"

namespace workbench {

/// Warns of steps of \a sequence, which has been read from \a node, that are never reached, that
/// nothing ends, or that a wait leads back to. Does nothing if there are errors.
void tellDoubts(const JsonNode &node, const Sequence &sequence);

} // namespace workbench
