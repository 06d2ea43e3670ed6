/// \file
/// Whether a sequence and a configuration make one test.
#pragma once

#include "configuration/testconfiguration.h"
#include "workbench/jsonreader.h"
#include "workbench/sequence.h"

namespace workbench {

/// Refuses what \a sequence, which has been read from \a node, asks for and \a configuration does
/// not carry, so that the test cannot mean what it says: an analog output that no channel shows, a
/// binary output that drives no GOOSE value, a wait for a binary input without a subscription. Each
/// once, at its first place. Does nothing if either could not be read.
void tellContradictions(const JsonNode &node, const Sequence &sequence,
                        const testconfiguration::CheckedConfiguration &configuration);

} // namespace workbench
