#include "workbench/statusjson.h"

#include "workbench/statustext.h"

#include <QJsonArray>

#include <optional>

using statusreply::Change;
using statusreply::Changes;
using statusreply::Input;
using statusreply::Inputs;
using statusreply::State;
using std::chrono::nanoseconds;

namespace workbench {

namespace {

double seconds(nanoseconds time)
{
    constexpr double kNanosecondsPerSecond = 1e9;
    return double(time.count()) / kNanosecondsPerSecond;
}

/// Nothing for no step.
void insertStep(QJsonObject &object, const QString &key, int step, const Sequence &sequence)
{
    if (step == statusreply::kNoStep)
        return;
    object[key] = step;
    if (step < sequence.steps.size())
        object[key + QStringLiteral("Name")] = sequence.steps[step].name;
}

QJsonObject toJson(const Changes &changes, int index, const Sequence &sequence)
{
    const Change &change = changes.last[index];
    QJsonObject result{{QStringLiteral("cause"), causeName(change.cause)},
                       {QStringLiteral("time"), seconds(change.causeTime)},
                       {QStringLiteral("entry"), seconds(change.entryTime)},
                       {QStringLiteral("late"), seconds(change.lateness)}};
    insertStep(result, QStringLiteral("left"), change.left, sequence);
    insertStep(result, QStringLiteral("entered"), change.entered, sequence);
    if (change.cause == Change::BinaryInput)
        result[QStringLiteral("channel")] = change.channel;
    if (const std::optional<nanoseconds> time = changes.timeInStep(index)) {
        result[QStringLiteral("timeInStep")] = seconds(*time);
        result[QStringLiteral("doubtful")] =
            QJsonArray::fromStringList(disturbanceNames(change.disturbances));
    }
    return result;
}

} // namespace

QJsonObject toJson(const State &state, const Sequence &sequence)
{
    QJsonArray active;
    for (std::size_t channel = 0; channel < state.active.size(); ++channel) {
        if (state.active[channel])
            active << int(channel);
    }
    QJsonObject result{{QStringLiteral("state"), stateName(state.playing)},
                       {QStringLiteral("timeInStep"), seconds(state.timeInStep)},
                       {QStringLiteral("totalTime"), seconds(state.totalTime)},
                       {QStringLiteral("frames"), qint64(state.frames)},
                       {QStringLiteral("active"), active},
                       {QStringLiteral("problems"), qint64(state.problems)},
                       {QStringLiteral("start"), qint64(state.start)},
                       {QStringLiteral("latenessP50"), seconds(state.latenessP50)},
                       {QStringLiteral("latenessP99"), seconds(state.latenessP99)},
                       {QStringLiteral("latenessMax"), seconds(state.latenessMax)},
                       {QStringLiteral("missedDeadlines"), qint64(state.missedDeadlines)},
                       {QStringLiteral("framesRefused"), qint64(state.framesRefused)}};
    insertStep(result, QStringLiteral("step"), state.step, sequence);
    return result;
}

QJsonObject toJson(const Changes &changes, const Sequence &sequence)
{
    QJsonArray last;
    for (int i = 0; i < changes.last.size(); ++i)
        last << toJson(changes, i, sequence);
    return {{QStringLiteral("total"), qint64(changes.total)},
            {QStringLiteral("start"), qint64(changes.start)},
            {QStringLiteral("last"), last}};
}

QJsonObject toJson(const Inputs &inputs)
{
    QJsonArray part;
    for (const Input &each : inputs.part) {
        QJsonObject input{{QStringLiteral("kind"), inputName(each.kind)},
                          {QStringLiteral("time"), seconds(each.time)}};
        if (each.kind != Input::Trigger)
            input[QStringLiteral("channel")] = each.channel;
        part << input;
    }
    return {{QStringLiteral("total"), qint64(inputs.total)},
            {QStringLiteral("start"), qint64(inputs.start)},
            {QStringLiteral("first"), inputs.first},
            {QStringLiteral("part"), part}};
}

} // namespace workbench
