#include "virtualboard/play/transitions.h"

#include <iterator>

namespace virtualboard {

namespace {

const char *const causeNames[] = {"start", "time", "trigger", "binary input",
                                  "stop",  "ring", "limit"};
const char *const stateNames[] = {"idle", "armed", "running", "finished", "stopped"};
const char *const disturbanceTexts[] = {"sent late", "frames refused", "inputs lost"}; // by bit

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

QString TransitionLog::whyDoubtful(int index) const
{
    return timeInStep(index) ? disturbanceNames(last[index].disturbances).join(QLatin1String(", "))
                             : QString();
}

QStringList disturbanceNames(quint8 disturbances)
{
    QStringList result;
    for (std::size_t bit = 0; bit < std::size(disturbanceTexts); ++bit) {
        if ((disturbances >> bit & 1) != 0)
            result << QLatin1String(disturbanceTexts[bit]);
    }
    return result;
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
