#include "protocol/statusreply.h"

#include <QtEndian>

#include <limits>

using std::chrono::nanoseconds;

namespace statusreply {

namespace {

constexpr char kSignature[] = "LVB\x03"; // the last byte is the version of the layout
constexpr int kStateSize = 112;
constexpr int kChangesHeadSize = 16;
constexpr int kChangeSize = 32;
constexpr int kMostChanges = 48;
constexpr int kInputsHeadSize = 20;
constexpr int kInputSize = 16;
constexpr int kMostInputs = 96;
constexpr int kKeptInputs = kInputParts * kMostInputs;
constexpr int kSteps = 5;
constexpr int kChannels = 256;
constexpr int kAllDisturbances = Change::SentLate | Change::FramesRefused | Change::InputsLost;

bool isOurs(const QByteArray &payload, int least)
{
    return payload.startsWith(kSignature) && payload.size() >= least;
}

template <typename Number>
Number at(const QByteArray &payload, int offset)
{
    return qFromLittleEndian<Number>(payload.constData() + offset);
}

bool isStep(int step)
{
    return step < kSteps || step == kNoStep;
}

/// Clears \a sound for a time so long that sums of such would overflow.
nanoseconds timeAt(const QByteArray &payload, int offset, bool &sound)
{
    const auto time = at<quint64>(payload, offset);
    sound = sound && time <= quint64(std::numeric_limits<qint64>::max()) / 4;
    return nanoseconds(sound ? qint64(time) : 0);
}

std::optional<Change> changeAt(const QByteArray &payload, int offset)
{
    Change change;
    change.left = at<quint8>(payload, offset);
    change.entered = at<quint8>(payload, offset + 1);
    const int cause = at<quint8>(payload, offset + 2);
    change.disturbances = at<quint8>(payload, offset + 3);
    change.channel = at<quint16>(payload, offset + 4);
    bool sound = isStep(change.left) && isStep(change.entered) && cause <= Change::Limit
        && (change.disturbances & ~kAllDisturbances) == 0
        && (cause == Change::BinaryInput ? change.channel < kChannels
                                         : change.channel == kNoChannel);
    change.lateness = timeAt(payload, offset + 8, sound);
    change.causeTime = timeAt(payload, offset + 16, sound);
    change.entryTime = timeAt(payload, offset + 24, sound);
    if (!sound)
        return std::nullopt;
    change.cause = Change::Cause(cause);
    return change;
}

std::optional<Input> inputAt(const QByteArray &payload, int offset)
{
    Input input;
    const int kind = at<quint8>(payload, offset);
    input.channel = at<quint16>(payload, offset + 2);
    bool sound = kind <= Input::Trigger
        && (kind == Input::Trigger ? input.channel == kNoChannel : input.channel < kChannels);
    input.time = timeAt(payload, offset + 8, sound);
    if (!sound)
        return std::nullopt;
    input.kind = Input::Kind(kind);
    return input;
}

} // namespace

std::optional<nanoseconds> Changes::timeInStep(int index) const
{
    if (index < 1 || index >= last.size() || last[index].left == kNoStep
        || last[index - 1].entered != last[index].left)
        return std::nullopt;
    const Change &before = last[index - 1];
    return last[index].causeTime - before.entryTime - before.lateness;
}

std::optional<State> decodeState(const QByteArray &payload)
{
    if (!isOurs(payload, kStateSize))
        return std::nullopt;
    const int playing = at<quint8>(payload, 4);
    State state;
    state.step = at<quint8>(payload, 5);
    bool sound = playing <= State::Stopped && isStep(state.step);
    state.timeInStep = timeAt(payload, 8, sound);
    state.totalTime = timeAt(payload, 16, sound);
    state.frames = at<quint64>(payload, 24);
    for (int channel = 0; channel < kChannels; ++channel)
        state.active[std::size_t(channel)] =
            (at<quint8>(payload, 32 + channel / 8) >> channel % 8 & 1) != 0;
    state.problems = at<quint32>(payload, 64);
    state.start = at<quint32>(payload, 68);
    state.latenessP50 = timeAt(payload, 72, sound);
    state.latenessP99 = timeAt(payload, 80, sound);
    state.latenessMax = timeAt(payload, 88, sound);
    state.missedDeadlines = at<quint64>(payload, 96);
    state.framesRefused = at<quint64>(payload, 104);
    if (!sound)
        return std::nullopt;
    state.playing = State::Playing(playing);
    return state;
}

std::optional<Changes> decodeChanges(const QByteArray &payload)
{
    if (!isOurs(payload, kChangesHeadSize))
        return std::nullopt;
    Changes changes;
    changes.total = at<quint32>(payload, 4);
    const int count = at<quint16>(payload, 8);
    const int size = at<quint16>(payload, 10); // a later board may have more in a record
    changes.start = at<quint32>(payload, 12);
    if (count > kMostChanges || quint32(count) > changes.total || size < kChangeSize
        || payload.size() < kChangesHeadSize + count * size)
        return std::nullopt;
    for (int i = 0; i < count; ++i) {
        const std::optional<Change> change = changeAt(payload, kChangesHeadSize + i * size);
        if (!change)
            return std::nullopt;
        changes.last << *change;
    }
    return changes;
}

std::optional<Inputs> decodeInputs(const QByteArray &payload)
{
    if (!isOurs(payload, kInputsHeadSize))
        return std::nullopt;
    Inputs inputs;
    inputs.total = at<quint32>(payload, 4);
    const int count = at<quint16>(payload, 8);
    const int size = at<quint16>(payload, 10); // a later board may have more in a record
    inputs.start = at<quint32>(payload, 12);
    inputs.first = at<quint16>(payload, 16);
    const int end = inputs.first + count;
    if (count > kMostInputs || inputs.first >= kKeptInputs || end > kKeptInputs
        || (count > 0 && quint32(end) > inputs.total) || size < kInputSize
        || payload.size() < kInputsHeadSize + count * size)
        return std::nullopt;
    for (int i = 0; i < count; ++i) {
        const std::optional<Input> input = inputAt(payload, kInputsHeadSize + i * size);
        if (!input)
            return std::nullopt;
        inputs.part << *input;
    }
    return inputs;
}

} // namespace statusreply
