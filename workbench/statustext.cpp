#include "workbench/statustext.h"

using statusreply::Change;
using statusreply::Changes;
using statusreply::Input;
using statusreply::State;

namespace workbench {

QString stateName(State::Playing playing)
{
    switch (playing) {
    case State::Idle:
        return QStringLiteral("idle");
    case State::Armed:
        return QStringLiteral("armed");
    case State::Running:
        return QStringLiteral("running");
    case State::Finished:
        return QStringLiteral("finished");
    case State::Stopped:
        return QStringLiteral("stopped");
    }
    return {};
}

QString causeName(Change::Cause cause)
{
    switch (cause) {
    case Change::Start:
        return QStringLiteral("start");
    case Change::Time:
        return QStringLiteral("time");
    case Change::Trigger:
        return QStringLiteral("trigger");
    case Change::BinaryInput:
        return QStringLiteral("binary input");
    case Change::Stop:
        return QStringLiteral("stop");
    case Change::Ring:
        return QStringLiteral("ring");
    case Change::Limit:
        return QStringLiteral("limit");
    }
    return {};
}

QStringList disturbanceNames(int disturbances)
{
    QStringList names;
    if ((disturbances & Change::SentLate) != 0)
        names << QStringLiteral("sent late");
    if ((disturbances & Change::FramesRefused) != 0)
        names << QStringLiteral("frames refused");
    if ((disturbances & Change::InputsLost) != 0)
        names << QStringLiteral("inputs lost");
    return names;
}

QString inputName(Input::Kind kind)
{
    switch (kind) {
    case Input::Off:
        return QStringLiteral("off");
    case Input::On:
        return QStringLiteral("on");
    case Input::Trigger:
        return QStringLiteral("trigger");
    }
    return {};
}

QString whyDoubtful(const Changes &changes, int index)
{
    return changes.timeInStep(index)
        ? disturbanceNames(changes.last[index].disturbances).join(QLatin1String(", "))
        : QString();
}

bool hasDoubtfulTimes(const Changes &changes)
{
    for (int i = 0; i < changes.last.size(); ++i) {
        const Change::Cause cause = changes.last[i].cause;
        const bool isMeasured = cause == Change::BinaryInput || cause == Change::Trigger;
        if (isMeasured && !whyDoubtful(changes, i).isEmpty())
            return true;
    }
    return false;
}

} // namespace workbench
