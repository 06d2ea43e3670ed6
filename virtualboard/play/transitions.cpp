#include "virtualboard/play/transitions.h"

namespace virtualboard {

namespace {

const char *const causeNames[] = {"start", "time", "trigger", "binary input",
                                  "stop",  "ring", "limit"};
const char *const stateNames[] = {"idle", "armed", "running", "finished", "stopped"};

} // namespace

std::optional<Duration> timeInStep(const Transition *before, const Transition &change)
{
    if (!before || change.left == kNoStep || before->entered != change.left)
        return std::nullopt;
    return change.causeTime - (before->entryTime + before->lateness);
}

std::optional<Duration> TransitionLog::timeInStep(int index) const
{
    return virtualboard::timeInStep(index > 0 ? &last[index - 1] : nullptr, last[index]);
}

const char *causeName(Cause cause)
{
    return causeNames[std::size_t(cause)];
}

const char *stateName(PlayState state)
{
    return stateNames[std::size_t(state)];
}

QString secondsText(Duration time)
{
    return QString::number(std::chrono::duration<double>(time).count(), 'f', 6);
}

QString millisecondsText(Duration time)
{
    return QString::number(std::chrono::duration<double, std::milli>(time).count(), 'f', 3);
}

} // namespace virtualboard
