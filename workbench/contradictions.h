/// \file
/// Whether a sequence and a configuration make one test.
#pragma once

#include "configuration/testconfiguration.h"
#include "workbench/sequence.h"

#include <QStringList>

namespace workbench {

/// What \a sequence asks for and \a configuration does not carry, so that the test cannot mean what
/// it says: an analog output that no channel shows, a binary output that drives no GOOSE value, a
/// wait for a binary input without a subscription. Each once, with its first place in the sequence:
/// "steps[1].outputs.Ia1 (fault): reason".
[[nodiscard]] QStringList
contradictions(const Sequence &sequence,
               const testconfiguration::CheckedConfiguration &configuration);

} // namespace workbench
