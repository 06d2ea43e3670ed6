/// \file
/// What goes into and comes out of the playing of a test.
#pragma once

#include "virtualboard/play/clocks.h"
#include "virtualboard/wire/limits.h"

#include <QtGlobal>

#include <array>

namespace virtualboard {

constexpr quint8 kNoStep = 0xff;
constexpr quint16 kNoChannel = 0xffff;

/// Which logic channels are active: bit c % 64 of word c / 64 for channel c.
using ActiveChannels = std::array<quint64, kLogicChannels / 64>;

enum class InputKind : quint8 { ChannelOff, ChannelOn, Trigger };

/// Something that happens to the board from outside while it plays; Time: a time of one of the
/// clocks, or since the start of the sequence.
template <typename Time>
struct InputAt
{
    Time time = {};
    InputKind kind = InputKind::ChannelOff;
    quint16 channel = kNoChannel; ///< logic channel; meaningless for a trigger
};
using InputEvent = InputAt<WallTime>;
/// As it is recorded: a time since the start of the sequence.
using RecordedInput = InputAt<Duration>;

/// Why a step was left.
enum class Cause : quint8 {
    Start, ///< no step was left: the sequence began
    Time, ///< the step's time ran out
    Trigger,
    BinaryInput, ///< a subscribed logic channel became active
    Stop, ///< a stop command, or the end of the program
    Ring, ///< the steps led to each other without taking any time
    Limit, ///< the longest time that the board plays a sequence
};

/// What spoils the times that are measured across it.
enum Disturbance : quint8 {
    SentLate = 0x01, ///< a sample instant went out later than one sample interval
    FramesRefused = 0x02, ///< an interface did not take a frame
    InputsLost = 0x04, ///< what came in from the device under test, or a trigger, was lost
};
constexpr quint8 kDisturbances = SentLate | FramesRefused | InputsLost;

/// One change of steps.
struct Transition
{
    quint8 left = kNoStep; ///< the step left; noStep at the start
    quint8 entered = kNoStep; ///< noStep when the sequence ended
    Cause cause = Cause::Start;
    quint16 channel = kNoChannel; ///< the logic channel, for Cause::BinaryInput
    Duration causeTime = {}; ///< of the cause itself, since the start of the sequence
    Duration entryTime = {}; ///< of the sample instant at which it took effect, likewise
    Duration lateness = {}; ///< by which a live board sent that instant's frames late
    /// Any of #Disturbance, from the instant of the change before, which is part of it, to that of
    /// this one, which is not. A loss of inputs is known once the next input comes in, or after a
    /// tenth of a second.
    quint8 disturbances = 0;
};

/// The angle at which a channel enters a step from another one.
enum class Phases : quint8 {
    Continuous, ///< the angle it has come to, plus what the steps' phases differ by
    Restart, ///< the phase of the step
    Jump, ///< the angle it has come to, plus the phase jump of the step
};

enum class PlayState : quint8 { Idle, Armed, Running, Finished, Stopped };

/// How well a live board keeps its time. All 0 in virtual time.
struct Punctuality
{
    quint64 missedDeadlines = 0; ///< sample instants sent later than one sample interval
    quint64 sendFailures = 0; ///< frames that the interface did not take
    Duration latenessP50 = {}; ///< half of the sample instants were not sent later than this
    Duration latenessP99 = {}; ///< 99 of 100
    Duration latenessMax = {};
};

/// Where the playing stands.
struct PlayStatus
{
    PlayState state = PlayState::Idle;
    quint8 step = kNoStep; ///< the current step, or the last one
    Duration timeInStep = {};
    Duration totalTime = {}; ///< since the start of the sequence
    quint64 framesSent = 0;
    ActiveChannels activeChannels = {};
    Punctuality punctuality;

    bool isActive(int channel) const
    {
        return (activeChannels[std::size_t(channel) / 64] >> (channel % 64) & 1) != 0;
    }
};

/// One frame to publish. The bytes belong to the player and hold until the call returns.
struct OutgoingFrame
{
    const uchar *bytes = nullptr; ///< from the destination MAC address on
    int size = 0;
    int port = 0; ///< output port, 1 to 8
};

class TestProgram;

/// Where the frames of a test go.
class FrameSink
{
public:
    virtual ~FrameSink() = default;

    /// A sequence begins; what the sink needs to know of it must be taken now.
    virtual void begin(const TestProgram &program) { Q_UNUSED(program) }
    /// All frames of one sample instant. Must not throw; a live board calls this from its sample
    /// loop, where nothing may wait or allocate.
    virtual void publish(WallTime time, const OutgoingFrame *frames, int count) = 0;
    /// A change of steps that takes effect at \a time, called before the frames of that instant. As
    /// publish(), part of the sample loop.
    virtual void note(WallTime time, const Transition &transition)
    {
        Q_UNUSED(time)
        Q_UNUSED(transition)
    }
    /// Inputs that have come since the last sample instant, called before the changes of steps that
    /// take effect at \a time. The records hold until the sequence ends. As publish(), part of the
    /// sample loop.
    virtual void noteInputs(WallTime time, const RecordedInput *inputs, int count)
    {
        Q_UNUSED(time)
        Q_UNUSED(inputs)
        Q_UNUSED(count)
    }
    /// The sequence has ended. Not part of the sample loop.
    virtual void end() { }
};

} // namespace virtualboard
