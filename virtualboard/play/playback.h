/// \file
/// What goes into and comes out of the playing of a test. All times are nanoseconds; an absolute
/// time counts from 1970-01-01 00:00 UTC without leap seconds.
#pragma once

#include <QtGlobal>

#include <array>

namespace virtualboard {

constexpr int stepLimit = 5; ///< steps of a sequence: 0 to 4
constexpr int analogChannels = 16; ///< 0 to 7: Ia1 ... In2, 8 to 15: Va1 ... Vn2
constexpr int streamLimit = 64; ///< streams of one kind: 0 to 63
constexpr int logicChannels = 256; ///< logic binary inputs: 0 to 255
constexpr quint8 noStep = 0xff;
constexpr quint16 noChannel = 0xffff;

/// Which logic channels are active: bit c % 64 of word c / 64 for channel c.
using ActiveChannels = std::array<quint64, logicChannels / 64>;

/// Something that happens to the board from outside while it plays.
struct InputEvent
{
    enum Kind : quint8 { ChannelOff, ChannelOn, Trigger };
    qint64 time = 0; ///< absolute
    Kind kind = ChannelOff;
    quint16 channel = noChannel; ///< logic channel; meaningless for a trigger
};

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

/// One change of steps.
struct Transition
{
    quint8 left = noStep; ///< the step left; noStep at the start
    quint8 entered = noStep; ///< noStep when the sequence ended
    Cause cause = Cause::Start;
    quint16 channel = noChannel; ///< the logic channel, for Cause::BinaryInput
    qint64 causeTime = 0; ///< of the cause itself, since the start of the sequence
    qint64 entryTime = 0; ///< of the sample instant at which the change took effect, likewise
    qint64 lateness = 0; ///< by which a live board sent that instant's frames late
};

enum class PlayState : quint8 { Idle, Armed, Running, Finished, Stopped };

/// How well a live board keeps its time. All 0 in virtual time.
struct Punctuality
{
    quint64 missedDeadlines = 0; ///< sample instants sent later than one sample interval
    quint64 sendFailures = 0; ///< frames that the interface did not take
    quint32 latenessP50 = 0; ///< ns; how late a sample instant was sent
    quint32 latenessP99 = 0; ///< ns
    quint32 latenessMax = 0; ///< ns
};

/// Where the playing stands.
struct PlayStatus
{
    PlayState state = PlayState::Idle;
    quint8 step = noStep; ///< the current step, or the last one
    qint64 timeInStep = 0;
    qint64 totalTime = 0; ///< since the start of the sequence
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
    /// All frames of one sample instant. @param time absolute. Must not throw; a live board calls
    /// this from its sample loop, where nothing may wait or allocate.
    virtual void publish(qint64 time, const OutgoingFrame *frames, int count) = 0;
    /// A change of steps that takes effect at @p time (absolute), called before the frames of that
    /// instant. As publish(), part of the sample loop.
    virtual void note(qint64 time, const Transition &transition)
    {
        Q_UNUSED(time)
        Q_UNUSED(transition)
    }
    /// The sequence has ended. Not part of the sample loop.
    virtual void end() { }
};

} // namespace virtualboard
