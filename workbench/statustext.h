/// \file
/// The words for what the board tells in its status.
#pragma once

#include "protocol/statusreply.h"

#include <QString>
#include <QStringList>

namespace workbench {

/// "idle", "armed", "running", "finished", "stopped".
[[nodiscard]] QString stateName(statusreply::State::Playing playing);
/// "start", "time", "trigger", "binary input", "stop", "ring", "limit".
[[nodiscard]] QString causeName(statusreply::Change::Cause cause);
/// "sent late", "frames refused", "inputs lost": the names of the bits that are set.
[[nodiscard]] QStringList disturbanceNames(int disturbances);

/// "off", "on", "trigger".
[[nodiscard]] QString inputName(statusreply::Input::Kind kind);

/// Why the time that change \a index of \a changes ended is doubtful, as "sent late, inputs lost";
/// empty if it is not, or there is none.
[[nodiscard]] QString whyDoubtful(const statusreply::Changes &changes, int index);
/// Whether a time that a binary input or a trigger ended is doubtful; that of a step whose own time
/// ran out is the board's, and measures nothing.
[[nodiscard]] bool hasDoubtfulTimes(const statusreply::Changes &changes);

} // namespace workbench
