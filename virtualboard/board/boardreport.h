#pragma once

#include "virtualboard/board/boardstatus.h"
#include "virtualboard/board/linkresponder.h"

#include <QString>
#include <QVector>

namespace virtualboard {

/// What the board received, as tables of plain text (UTF-8, at most about 110 columns): published
/// streams, subscriptions, the state sequence, start, status reads and stops, and all problems.
/// Counts one command per acknowledged exchange.
[[nodiscard]] QString receivedReport(const QVector<Reception> &receptions);

/// What the board played: the changes of steps of the last sequence, and how it stands. In the
/// manner of receivedReport().
[[nodiscard]] QString playedReport(const PlayStatus &status, const TransitionLog &log);

} // namespace virtualboard
