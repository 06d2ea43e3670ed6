/// \file
/// The records of a sequence: the changes of steps, with the times between them, and the inputs.
#pragma once

#include "virtualboard/play/playback.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

namespace virtualboard {

/// The time from the entry into the step that \a change leaves to the cause of \a change. It counts
/// from when the step's first frames were sent, however late: no device could see the step before.
/// So it is negative for a cause that came earlier than they.
/// \param before the change before; null if it is not known
/// \return nothing if \a change leaves no step, or \a before does not enter that step
[[nodiscard]] std::optional<Duration> timeInStep(const Transition *before,
                                                 const Transition &change);

/// The changes of steps of a sequence, as a log that keeps the last ones.
struct TransitionLog
{
    static constexpr int kCapacity = 48;
    quint32 total = 0; ///< since the start of the sequence
    QVector<Transition> last; ///< at most #kCapacity, oldest first
    quint32 start = 0; ///< which of the board's starts began the sequence, from 1; 0: unknown

    /// As above, for the change at \a index of `last`.
    [[nodiscard]] std::optional<Duration> timeInStep(int index) const;
    /// Why that time is doubtful, as "sent late, inputs lost"; empty if it is not, or there is
    /// none.
    [[nodiscard]] QString whyDoubtful(int index) const;
};

/// The inputs of a sequence, as a log that keeps the first ones and is read part by part.
struct InputLog
{
    static constexpr int kPartSize = 96; ///< inputs
    static constexpr int kParts = 8;
    static constexpr int kCapacity = kPartSize * kParts;
    quint32 total = 0; ///< since the start of the sequence, kept or not
    quint32 start = 0; ///< as TransitionLog::start
    int first = 0; ///< number of the part's first input, from 0
    QVector<RecordedInput> part; ///< at most #kPartSize, in the order of their times
};

/// "sent late", "frames refused", "inputs lost": the names of the bits that are set.
[[nodiscard]] QStringList disturbanceNames(quint8 disturbances);

/// "start", "time", "trigger", "binary input", "stop", "ring", "limit".
[[nodiscard]] const char *causeName(Cause cause);
/// "idle", "armed", "running", "finished", "stopped".
[[nodiscard]] const char *stateName(PlayState state);

// How times are printed, whoever prints them: to the microsecond, without the unit.
[[nodiscard]] QString secondsText(Duration time); ///< "1.030250"
[[nodiscard]] QString millisecondsText(Duration time); ///< "30.250"

} // namespace virtualboard
