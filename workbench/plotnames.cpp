#include "workbench/plotnames.h"

#include "virtualboard/play/transitions.h"

#include <cmath>

using namespace virtualboard;

namespace workbench {

namespace {

QString numberOf(int step)
{
    return step == kNoStep ? QStringLiteral("the end") : QStringLiteral("step %1").arg(step);
}

/// Where \a step goes for this cause; nothing if it does not.
std::optional<int> jumpOf(const SequenceStep &step, Cause cause)
{
    switch (cause) {
    case Cause::Time:
        return step.onTimeout;
    case Cause::BinaryInput:
        return step.onBinaryInput;
    case Cause::Trigger:
        return step.onTrigger ? std::make_optional(step.onTrigger->goTo) : std::nullopt;
    default:
        return std::nullopt;
    }
}

std::optional<QString> contradictionOf(const Transition &before, const Transition &change,
                                       const Sequence &sequence)
{
    // The board rounds the end of a step to a sample, and counts on from the cause or the entry.
    constexpr double kTolerance = 0.002; // seconds
    const int steps = int(sequence.steps.size());
    if (change.entered != kNoStep && change.entered >= steps)
        return QStringLiteral("it has no step %1").arg(change.entered);
    const bool isJump = change.cause == Cause::Time || change.cause == Cause::Trigger
        || change.cause == Cause::BinaryInput;
    if (!isJump || change.left >= steps)
        return std::nullopt;
    const SequenceStep &step = sequence.steps[change.left];
    const QString name = QStringLiteral("step %1 (\"%2\")").arg(change.left).arg(step.name);
    const QString cause = QLatin1String(causeName(change.cause));
    const std::optional<int> jump = jumpOf(step, change.cause);
    if (!jump)
        return QStringLiteral("%1 does not end by %2").arg(name, cause);
    if (change.entered != (*jump < steps ? *jump : int(kNoStep)))
        return QStringLiteral("%1 leads by %2 to %3, not to %4")
            .arg(name, cause, numberOf(*jump < steps ? *jump : int(kNoStep)),
                 numberOf(change.entered));
    if (change.cause != Cause::Time || before.entered != change.left)
        return std::nullopt;
    const double length =
        std::chrono::duration<double>(change.causeTime - before.entryTime).count();
    const double asked = std::chrono::duration<double>(step.time).count();
    if (std::fabs(length - asked) > kTolerance)
        return QStringLiteral("%1 takes %2 s, not %3 s").arg(name).arg(asked).arg(length);
    return std::nullopt;
}

} // namespace

std::optional<QString> contradictionOf(const QVector<Transition> &changes, const Sequence &sequence)
{
    Transition before;
    for (const Transition &change : changes) {
        if (const auto contradiction = contradictionOf(before, change, sequence))
            return contradiction;
        before = change;
    }
    return std::nullopt;
}

} // namespace workbench
