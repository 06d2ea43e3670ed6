#pragma once

#include "virtualboard/play/transitions.h"

#include <array>
#include <memory>

namespace virtualboard {

/// Plays a test once, from its start to its end.
///
/// A plain class without sockets, files and threads: inputs go in, in the order of their times;
/// frames come out, one sample instant after the other. Everything is allocated by the constructor;
/// no other operation allocates, locks or waits.
///
///     Player player(program, startTime);
///     while (!player.hasEnded()) {
///         for (every input that has happened up to player.nextInstant())
///             player.input(event);
///         player.play(sink);
///     }
class Player
{
public:
    /// Changes of steps that one sample instant can bring, the end included.
    static constexpr int kMaximumChanges = kStepLimit + 2;

    /// \param program must be playable (TestProgram::whyNotPlayable()).
    /// \param startTime of the first sample instant.
    /// \param active the logic channels that are active already; they leave no step.
    Player(const TestProgram &program, WallTime startTime, Phases phases = Phases::Continuous,
           const ActiveChannels &active = {});
    ~Player();
    Player(const Player &) = delete;
    Player &operator=(const Player &) = delete;

    bool hasEnded() const;
    /// Time of the sample instant that play() will do.
    WallTime nextInstant() const;

    /// Something has happened, not later than nextInstant() and not earlier than the input before.
    void input(const InputEvent &event);
    /// Ends the sequence at nextInstant(), for \a cause; play() then notes it.
    void stop(Cause cause);

    /// Does one sample instant: notes the changes of steps that take effect at it, then, unless the
    /// sequence has ended, publishes its frames.
    void play(FrameSink &sink);
    /// Likewise, for frames that nobody gets: they are counted, and not made. A sequence is played
    /// all in one way or all in the other.
    void play();

    /// The changes that the last play() noted.
    const Transition *changes() const;
    int changeCount() const;
    /// The first inputs since the start of the sequence, at most InputLog::kCapacity: triggers, and
    /// changes of logic channels, whether or not they leave a step.
    const RecordedInput *inputs() const;
    quint32 inputCount() const; ///< all of them
    /// All but `punctuality`, which is for whoever keeps the time.
    PlayStatus status() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace virtualboard
