#pragma once

#include "virtualboard/board/linkresponder.h"

#include <QStringList>
#include <QVector>

namespace virtualboard {

/// Checks the acknowledged commands against each other, in their order: a stream description has to
/// point at the fields of the frame that was downloaded for its stream before, and an item of a
/// GOOSE signal control command at stNum or at a dataset value of its length. Numbers of steps,
/// channels and streams have to be in range.
///
/// \return one sentence per contradiction; empty when everything fits.
[[nodiscard]] QStringList crossCheck(const QVector<Reception> &receptions);

/// Everything that is wrong with the receptions: envelopes, command frames, then crossCheck(). Like
/// there, the first few of a command, at most a hundred of all, and how many there are beside.
[[nodiscard]] QStringList allProblems(const QVector<Reception> &receptions);

} // namespace virtualboard
