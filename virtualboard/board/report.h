#pragma once

#include "boardstatus.h"
#include "virtualboard.h"

#include <QString>
#include <QStringList>
#include <QVector>

namespace virtualboard {

/**
 * What the board received, as tables of plain text (UTF-8, at most about 110 columns): published
 * streams, subscriptions, the state sequence, start, status reads and stops, and all problems.
 * Counts one command per acknowledged exchange.
 */
[[nodiscard]] QString report(const QVector<Reception> &receptions);

/// What the board played: the changes of steps of the last sequence, and how it stands. In the
/// manner of report().
[[nodiscard]] QString playReport(const PlayStatus &status, const TransitionLog &log);

/**
 * Checks the acknowledged commands against each other, in their order: a stream description has to
 * point at the fields of the frame that was downloaded for its stream before, and an item of a
 * GOOSE signal control command at stNum or at a dataset value of its length. Numbers of steps,
 * channels and streams have to be in range.
 *
 * @return one sentence per contradiction; empty when everything fits.
 */
[[nodiscard]] QStringList crossCheck(const QVector<Reception> &receptions);

/// Everything that is wrong with the receptions: envelopes, command frames, then crossCheck().
[[nodiscard]] QStringList allProblems(const QVector<Reception> &receptions);

} // namespace virtualboard
