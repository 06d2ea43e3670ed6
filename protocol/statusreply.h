/// \file
/// What the board made of software says of itself: the payloads that LumtarEngine::CheckSeqExec()
/// reads from it, decoded. Another board has a layout of its own.
///
///     unsigned char buffer[1600];
///     if (engine.CheckSeqExec(statusreply::kState, buffer) != 0) {
///         const QByteArray payload(reinterpret_cast<char *>(buffer), engine.replyLength);
///         const std::optional<statusreply::State> state = statusreply::decodeState(payload);
///     }
#pragma once

#include "lumtar_export.h"

#include <QByteArray>
#include <QVector>

#include <array>
#include <chrono>
#include <optional>

/// What the software board tells in its status.
namespace statusreply {

constexpr int kState = 0; ///< `which` of the state
constexpr int kChanges = 1; ///< `which` of the changes of steps
constexpr int kInputs = 2; ///< `which` of the first part of the inputs
constexpr int kInputParts = 8; ///< their `which` is #kInputs to #kInputs + 7
constexpr int kNoStep = 255; ///< before the first step, or behind the last one
constexpr int kNoChannel = 65535; ///< of a change that no binary input caused, and of a trigger

/// Where the board stands.
struct LUMTAR_EXPORT State
{
    /// What the board is doing.
    enum Playing { Idle, Armed, Running, Finished, Stopped };

    Playing playing = Idle; ///< idle: nothing to play; armed: waits for a start
    int step = kNoStep; ///< 0 to 4, the current step or the last one; else kNoStep
    std::chrono::nanoseconds timeInStep{0}; ///< since the entry into it
    std::chrono::nanoseconds totalTime{0}; ///< since the start of the sequence
    quint64 frames = 0; ///< published since the start
    std::array<bool, 256> active = {}; ///< logic channels of the subscriptions
    quint32 problems = 0; ///< reported since the board was started
    quint32 start = 0; ///< number of the start command that was obeyed last, from 1; 0: none was

    // Of a live board; 0 in virtual time.
    std::chrono::nanoseconds latenessP50{0}; ///< half of the sample instants were not sent later
    std::chrono::nanoseconds latenessP99{0}; ///< 99 of 100
    std::chrono::nanoseconds latenessMax{0}; ///< the latest
    quint64 missedDeadlines = 0; ///< sample instants sent later than one sample interval
    quint64 framesRefused = 0; ///< that an interface did not take
};

/// One change of steps.
struct LUMTAR_EXPORT Change
{
    /// Why a step is left.
    enum Cause { Start, Time, Trigger, BinaryInput, Stop, Ring, Limit };
    /// What makes the time since the change before doubtful; bits.
    enum Disturbance { SentLate = 1, FramesRefused = 2, InputsLost = 4 };

    int left = kNoStep; ///< kNoStep for the start
    int entered = kNoStep; ///< kNoStep when the sequence ended
    Cause cause = Start; ///< why the step was left
    int channel = kNoChannel; ///< logic channel 0 to 255, for BinaryInput
    int disturbances = 0; ///< any of #Disturbance
    std::chrono::nanoseconds lateness{0}; ///< by which the first frames of the new step were late
    std::chrono::nanoseconds causeTime{0}; ///< since the start of the sequence
    std::chrono::nanoseconds entryTime{0}; ///< of the sample instant at which it took effect
};

/// The last changes of steps of a sequence.
struct LUMTAR_EXPORT Changes
{
    quint32 total = 0; ///< since the start of the sequence
    quint32 start = 0; ///< as State::start, of the start that began it
    QVector<Change> last; ///< at most 48, oldest first

    /// From the first frames of the step that change \a index of `last` leaves to the cause of that
    /// change: the time in which a relay tripped, if it was a binary input. Doubtful if the change
    /// has any Change::disturbances. Nothing for the start, for an index out of range, and where
    /// the change before has not been kept.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> timeInStep(int index) const;
};

/// A logic channel that a subscription feeds has changed, or a trigger has come.
struct LUMTAR_EXPORT Input
{
    /// What has happened.
    enum Kind { Off, On, Trigger };

    Kind kind = Off; ///< of the channel, unless it is a trigger
    int channel = kNoChannel; ///< logic channel 0 to 255; kNoChannel for a trigger
    std::chrono::nanoseconds time{0}; ///< since the start of the sequence
};

/// A part of the inputs of a sequence, whether or not a step waited for them. The board keeps the
/// first 768 of a sequence.
struct LUMTAR_EXPORT Inputs
{
    quint32 total = 0; ///< since the start of the sequence, those that are not kept included
    quint32 start = 0; ///< as State::start, of the start that began it
    int first = 0; ///< number of the part's first input, from 0, among those of the sequence
    QVector<Input> part; ///< at most 96, in the order of their times
};

/// The payload of status #kState. Nothing if it is of another board or layout, too short, or has
/// values out of range.
[[nodiscard]] LUMTAR_EXPORT std::optional<State> decodeState(const QByteArray &payload);
/// The payload of status #kChanges, likewise.
[[nodiscard]] LUMTAR_EXPORT std::optional<Changes> decodeChanges(const QByteArray &payload);
/// The payload of a status #kInputs to #kInputs + #kInputParts - 1, likewise: nothing from a board
/// that keeps no inputs, too.
[[nodiscard]] LUMTAR_EXPORT std::optional<Inputs> decodeInputs(const QByteArray &payload);

} // namespace statusreply
