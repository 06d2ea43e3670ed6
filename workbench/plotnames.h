/// \file
/// Whether the names of a state sequence belong to a capture.
#pragma once

#include "virtualboard/play/playback.h"
#include "workbench/sequence.h"

#include <QString>
#include <QVector>

#include <optional>

namespace workbench {

/// Which of the \a changes of steps, in their order, \a sequence would not have made; nothing if it
/// could have made all. Changes that no step makes (a stop, a limit) fit every sequence.
[[nodiscard]] std::optional<QString>
contradictionOf(const QVector<virtualboard::Transition> &changes, const Sequence &sequence);

} // namespace workbench
