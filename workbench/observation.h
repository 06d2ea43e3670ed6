/// \file
/// What is known about a sequence that the board has played: what verdicts are made from.
#pragma once

#include "protocol/statusreply.h"

#include <QStringList>
#include <QVector>

namespace workbench {

struct Observation
{
    QVector<statusreply::Change> changes; ///< of steps, oldest first, the last one the newest
    quint32 changesLost = 0; ///< before the first of `changes`: the board keeps the last ones
    QVector<statusreply::Input> inputs; ///< changes of inputs and triggers, oldest first
    quint32 inputsLost = 0; ///< behind the last of `inputs`: the board keeps the first ones
    bool complete = true; ///< the sequence has ended by itself; else it was stopped or cut off
    QStringList stepNames; ///< of all steps of the sequence, in order
    /// Logic channels that were active at the end. Counts for those that have no changes: a channel
    /// that became active before the start has none.
    QVector<int> activeInputs;
};

} // namespace workbench
