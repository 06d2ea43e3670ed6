#pragma once

#include "virtualboard/play/transitions.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace virtualboard {

/// The payloads of the status read-back, laid out in docs/virtual-board.md.
enum StatusKind { StateStatus = 0, LogStatus = 1 };

/// \param problems number of problems reported
[[nodiscard]] QByteArray encodeState(const PlayStatus &status, quint32 problems);
[[nodiscard]] QByteArray encodeLog(const TransitionLog &log);
/// The payload for a `which` that means nothing.
[[nodiscard]] QByteArray encodeNothing();

struct DecodedState
{
    PlayStatus status;
    quint32 problems = 0;
};

/// Nothing if the payload is of another board or version, too short, or has values out of range.
[[nodiscard]] std::optional<DecodedState> decodeState(const QByteArray &payload);
[[nodiscard]] std::optional<TransitionLog> decodeLog(const QByteArray &payload);

/// "sample instants late by 12.3 us (p50), ..., 0 missed deadlines, 0 frames not sent".
[[nodiscard]] QString punctualityText(const Punctuality &punctuality);

} // namespace virtualboard
