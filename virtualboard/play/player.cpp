#include "virtualboard/play/player.h"

#include "virtualboard/play/publishers.h"
#include "virtualboard/play/testprogram.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace virtualboard {

namespace {

/// Changes of steps at one sample instant; with one more the steps are a ring that takes no time.
constexpr int kMostChangesAtOnce = kStepLimit;

} // namespace

struct Player::Private
{
    std::array<PlayedStep, kStepLimit> steps;
    std::array<bool, kStepLimit> hasStep = {};
    std::vector<SvPublisher> sampledValues;
    std::vector<GoosePublisher> goose;
    /// Room for all streams; those of the sampled values are at the front and stay the same.
    std::vector<OutgoingFrame> frames;
    SampleRate rate;
    Phases phases = {};
    WallTime startTime;
    Waveforms waveforms;

    qint64 sample = 0; ///< number of the next instant
    WallTime instant; ///< the next one
    int step = 0;
    WallTime entry; ///< into the step
    WallTime lastCause; ///< of what led into the step
    bool stepIsNew = true;
    PlayState state = PlayState::Running;
    ActiveChannels active = {};
    quint64 framesSent = 0;
    std::array<Transition, kMaximumChanges> changes;
    int changeCount = 0; ///< noted by the last play(), or to be noted by the next one
    bool changesAreNoted = false;
    int changesAtInstant = 0;
    std::array<RecordedInput, InputLog::kCapacity> inputs; ///< the first ones
    quint32 inputCount = 0; ///< all of them
    std::size_t inputsNoted = 0; ///< by the plays until now

    std::size_t inputsKept() const { return std::min<std::size_t>(inputCount, inputs.size()); }
    void record(const InputEvent &event);
    void append(const Transition &change);
    void change(int next, Cause cause, WallTime causeTime, quint16 channel = kNoChannel);
    void end(Cause cause, WallTime causeTime);
    void leaveOnTime(WallTime now);
    void beginInstant();
    void publish(FrameSink &sink);
    void countFrames();
    void finishInstant(std::size_t framesOfInstant);
};

Player::Player(const TestProgram &program, WallTime startTime, Phases phases,
               const ActiveChannels &active)
    : d(std::make_unique<Private>())
{
    for (int i = 0; i < kStepLimit; ++i) {
        if (const std::optional<PlayedStep> step = program.step(i)) {
            d->steps[std::size_t(i)] = *step;
            d->hasStep[std::size_t(i)] = true;
        }
    }
    for (const PlayedSv &stream : program.svStreams())
        d->sampledValues.emplace_back(stream);
    for (const PlayedGoose &stream : program.gooseStreams())
        d->goose.emplace_back(stream, startTime);
    d->frames.resize(d->sampledValues.size() + d->goose.size());
    for (std::size_t i = 0; i < d->sampledValues.size(); ++i)
        d->frames[i] = d->sampledValues[i].frame();
    d->rate = program.sampleRate();
    d->phases = phases;
    d->startTime = startTime;
    d->instant = startTime;
    d->entry = startTime;
    d->lastCause = startTime - 1ns;
    d->active = active;
    Transition start;
    start.entered = 0;
    d->append(start);
}

Player::~Player() = default;

bool Player::hasEnded() const
{
    return d->state != PlayState::Running;
}

WallTime Player::nextInstant() const
{
    return d->instant;
}

void Player::Private::append(const Transition &change)
{
    if (changesAreNoted) {
        changeCount = 0;
        changesAreNoted = false;
    }
    changes[std::size_t(changeCount++)] = change;
}

void Player::Private::change(int next, Cause cause, WallTime causeTime, quint16 channel)
{
    if (changesAtInstant == kMostChangesAtOnce) {
        end(Cause::Ring, causeTime);
        return;
    }
    ++changesAtInstant;
    const bool exists = next < kStepLimit && hasStep[std::size_t(next)];
    Transition change;
    change.left = quint8(step);
    change.entered = exists ? quint8(next) : kNoStep;
    change.cause = cause;
    change.channel = channel;
    change.causeTime = causeTime - startTime;
    change.entryTime = instant - startTime;
    append(change);
    if (!exists) {
        state = PlayState::Finished;
        return;
    }
    step = next;
    entry = instant;
    lastCause = causeTime;
    stepIsNew = true;
    for (GoosePublisher &stream : goose)
        stream.enter(std::size_t(step), instant);
}

void Player::Private::end(Cause cause, WallTime causeTime)
{
    Transition change;
    change.left = quint8(step);
    change.cause = cause;
    change.causeTime = causeTime - startTime;
    change.entryTime = instant - startTime;
    append(change);
    state = PlayState::Stopped;
}

void Player::Private::leaveOnTime(WallTime now)
{
    const PlayedStep &current = steps[std::size_t(step)];
    const WallTime deadline = entry + std::chrono::milliseconds(current.milliseconds);
    if (state == PlayState::Running && current.milliseconds > 0 && deadline <= now)
        change(current.timeJump, Cause::Time, deadline);
}

/// What came before the start is no part of the sequence.
void Player::Private::record(const InputEvent &event)
{
    if (event.time < startTime || inputCount == std::numeric_limits<quint32>::max())
        return;
    if (inputCount < inputs.size())
        inputs[inputCount] = {event.time - startTime, event.kind, event.channel};
    ++inputCount;
}

void Player::input(const InputEvent &event)
{
    const bool isChannel = event.kind != InputKind::Trigger;
    if (isChannel && event.channel >= kLogicChannels)
        return;
    d->leaveOnTime(event.time);

    bool hasChanged = true;
    if (isChannel) {
        quint64 &word = d->active[event.channel / 64];
        const quint64 bit = quint64(1) << (event.channel % 64);
        hasChanged = ((word & bit) != 0) != (event.kind == InputKind::ChannelOn);
        word = event.kind == InputKind::ChannelOn ? word | bit : word & ~bit;
    }
    if (!hasChanged)
        return;
    d->record(event);
    const bool becameActive = event.kind == InputKind::ChannelOn;
    // What belongs to the cause of the last change, such as the other poles of a trip in the same
    // message, does not leave the next step, too.
    if (d->state != PlayState::Running || event.time <= d->lastCause)
        return;
    const PlayedStep &current = d->steps[std::size_t(d->step)];
    if (becameActive && current.binaryInputEnabled)
        d->change(current.binaryInputJump, Cause::BinaryInput, event.time, event.channel);
    else if (!isChannel && current.triggerEnabled)
        d->change(current.triggerJump, Cause::Trigger, event.time);
}

void Player::stop(Cause cause)
{
    if (d->state == PlayState::Running)
        d->end(cause, d->instant);
}

void Player::Private::beginInstant()
{
    leaveOnTime(instant);
    if (changesAreNoted)
        changeCount = 0;
    changesAreNoted = true;
    changesAtInstant = 0;
}

void Player::play()
{
    d->beginInstant();
    if (d->state == PlayState::Running)
        d->countFrames();
}

void Player::play(FrameSink &sink)
{
    d->beginInstant();
    if (const std::size_t kept = d->inputsKept(); d->inputsNoted < kept) {
        sink.noteInputs(d->instant, &d->inputs[d->inputsNoted], int(kept - d->inputsNoted));
        d->inputsNoted = kept;
    }
    for (int i = 0; i < d->changeCount; ++i)
        sink.note(d->instant, d->changes[std::size_t(i)]);
    if (d->state == PlayState::Running)
        d->publish(sink);
}

void Player::Private::publish(FrameSink &sink)
{
    if (stepIsNew)
        waveforms.enter(steps[std::size_t(step)].waves, rate, phases);
    stepIsNew = false;

    const Waveforms::Counts &counts = waveforms.next();
    for (SvPublisher &stream : sampledValues)
        stream.sample(counts);
    std::size_t count = sampledValues.size();
    for (GoosePublisher &stream : goose) {
        if (!stream.isDue(instant))
            continue;
        stream.prepare();
        frames[count++] = stream.frame();
    }
    if (count > 0)
        sink.publish(instant, frames.data(), int(count));
    finishInstant(count);
}

void Player::Private::countFrames()
{
    std::size_t count = sampledValues.size();
    for (GoosePublisher &stream : goose) {
        if (!stream.isDue(instant))
            continue;
        stream.prepare(); // which says when the next one is due
        ++count;
    }
    finishInstant(count);
}

void Player::Private::finishInstant(std::size_t framesOfInstant)
{
    framesSent += framesOfInstant;
    instant = startTime + rate.timeOf(++sample);
}

const Transition *Player::changes() const
{
    return d->changes.data();
}

int Player::changeCount() const
{
    return d->changesAreNoted ? d->changeCount : 0;
}

const RecordedInput *Player::inputs() const
{
    return d->inputs.data();
}

quint32 Player::inputCount() const
{
    return d->inputCount;
}

PlayStatus Player::status() const
{
    PlayStatus status;
    status.state = d->state;
    status.step = quint8(d->step);
    status.timeInStep = d->instant - d->entry;
    status.totalTime = d->instant - d->startTime;
    status.framesSent = d->framesSent;
    status.activeChannels = d->active;
    return status;
}

} // namespace virtualboard
