/// \file
/// What the board tells in its status, for programs. Times are in seconds, with all nanoseconds.
#pragma once

#include "protocol/statusreply.h"
#include "workbench/sequence.h"

#include <QJsonObject>

namespace workbench {

/// Names of steps come from \a sequence, and are missing where it has none.
[[nodiscard]] QJsonObject toJson(const statusreply::State &state, const Sequence &sequence);
/// Likewise; each change with the time in the step that it left, and what makes that doubtful.
[[nodiscard]] QJsonObject toJson(const statusreply::Changes &changes, const Sequence &sequence);

[[nodiscard]] QJsonObject toJson(const statusreply::Inputs &inputs);

} // namespace workbench
