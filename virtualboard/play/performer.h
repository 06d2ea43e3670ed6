#pragma once

#include "virtualboard/play/snapshot.h"
#include "virtualboard/play/transitions.h"

#include <QString>

#include <array>
#include <atomic>
#include <functional>

namespace virtualboard {

class Player;
class TestProgram;

/// Takes one line of text; may be called from any thread, never from a live sample loop.
using NoticeHandler = std::function<void(const QString &)>;

/// Plays programs, one after the other, in a thread of its own. The operations are for one other
/// thread; none of them waits for the end of a sequence.
class Performer
{
public:
    virtual ~Performer() = default;

    /// Ends what is being played, and begins with \a program, which must be playable.
    virtual void start(const TestProgram &program) = 0;
    /// Ends what is being played; no frame goes out any more when this returns. A live board's
    /// capture is complete when the performer has been destroyed.
    virtual void stop() = 0;
    /// The trigger comes, now.
    virtual void trigger() = 0;
    /// Other subscriptions are in force from now on; a live board watches them between sequences.
    virtual void watch(const TestProgram &program) { Q_UNUSED(program) }

    /// Of the sequence being played, or the last one: Idle before the first.
    PlayStatus status() const { return m_status.read(); }
    /// The changes of steps of that sequence.
    TransitionLog log() const;
    /// Its inputs; \a part from 0 to InputLog::kParts - 1.
    InputLog inputs(int part) const;

protected:
    // For the playing thread:
    /// Leaves the player's state for others to see, the inputs, and the changes that its last
    /// instant brought.
    void show(const Player &player, const Transition *changes, int count,
              const Punctuality &punctuality = {});
    /// Likewise, with the changes as the player tells them.
    void show(const Player &player);
    /// Reports the end of a sequence that nobody had asked for.
    static void reportEnd(const Player &player, Duration limit, const NoticeHandler &report);
    // For the commanding thread, while nothing is played:
    void forgetLog();

private:
    /// The last changes; that with number n (from 0) is at n modulo the capacity.
    struct Changes
    {
        quint32 total = 0;
        std::array<Transition, TransitionLog::kCapacity> last;
    };
    void showInputs(const Player &player);

    Snapshot<PlayStatus> m_status;
    Changes m_changes; ///< the playing thread's
    Snapshot<Changes> m_shownChanges;
    using InputPart = std::array<RecordedInput, InputLog::kPartSize>;
    std::array<Snapshot<InputPart>, InputLog::kParts> m_shownInputs;
    std::atomic<quint32> m_inputTotal = 0; ///< says how many of those are of the sequence
};

} // namespace virtualboard
