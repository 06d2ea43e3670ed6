#pragma once

#include "virtualboard/play/transitions.h"

#include <QByteArray>
#include <QString>

namespace virtualboard {

/// The payloads of the status read-back, laid out in docs/virtual-board.md.
enum StatusKind { StateStatus = 0, LogStatus = 1, InputStatus = 2 }; ///< the last: its part 0

/// \param problems number of problems reported
/// \param start number of the last start that was obeyed, from 1 since the board was switched on;
///              0: none was
[[nodiscard]] QByteArray encodeState(const PlayStatus &status, quint32 problems, quint32 start = 0);
[[nodiscard]] QByteArray encodeLog(const TransitionLog &log);
[[nodiscard]] QByteArray encodeInputs(const InputLog &log);
/// The payload for a `which` that means nothing.
[[nodiscard]] QByteArray encodeNothing();

/// "sample instants late by 12.3 us (p50), ..., 0 missed deadlines, 0 frames not sent".
[[nodiscard]] QString punctualityText(const Punctuality &punctuality);

} // namespace virtualboard
