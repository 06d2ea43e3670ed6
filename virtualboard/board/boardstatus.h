#pragma once

#include "playback.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <optional>

namespace virtualboard {

/// The payloads of the status read-back, laid out in docs/virtual-board.md.
enum StatusKind { StateStatus = 0, LogStatus = 1 };

/// The changes of steps of a sequence, as a log that keeps the last ones.
struct TransitionLog
{
    static constexpr int capacity = 64;
    quint32 total = 0; ///< since the start of the sequence
    QVector<Transition> last; ///< at most #capacity, oldest first
};

/// @param problems  number of problems reported
[[nodiscard]] QByteArray encodeState(const PlayStatus &status, quint32 problems);
[[nodiscard]] QByteArray encodeLog(const TransitionLog &log);
/// The payload for a `which` that means nothing.
[[nodiscard]] QByteArray encodeNothing();

struct DecodedState
{
    PlayStatus status; ///< times in ns, as everywhere, of whole microseconds
    quint32 problems = 0;
};

/// Nothing if the payload is of another board or version, too short, or has values out of range.
[[nodiscard]] std::optional<DecodedState> decodeState(const QByteArray &payload);
[[nodiscard]] std::optional<TransitionLog> decodeLog(const QByteArray &payload);

/// "start", "time", "trigger", "binary input", "stop", "ring", "limit".
[[nodiscard]] const char *causeName(Cause cause);
/// "idle", "armed", "running", "finished", "stopped".
[[nodiscard]] const char *stateName(PlayState state);

/// "sample instants late by 12.3 us (p50), ..., 0 missed deadlines, 0 frames not sent".
[[nodiscard]] QString punctualityText(const Punctuality &punctuality);

} // namespace virtualboard
