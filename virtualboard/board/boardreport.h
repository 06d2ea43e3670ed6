#pragma once

#include "virtualboard/board/boardstatus.h"
#include "virtualboard/board/linkresponder.h"
#include "virtualboard/board/texttable.h"

#include <QString>
#include <QVector>

namespace virtualboard {

/// What the board received, as tables of plain text, \a width characters wide: published streams,
/// subscriptions, the state sequence, start, status reads and stops, and all problems. Counts one
/// command per acknowledged exchange.
[[nodiscard]] QString receivedReport(const QVector<Reception> &receptions, int width = kPageWidth,
                                     int reported = 0);

/// What the board played: the changes of steps of the last sequence, and how it stands. In the
/// manner of receivedReport().
[[nodiscard]] QString playedReport(const PlayStatus &status, const TransitionLog &log,
                                   int width = kPageWidth);

} // namespace virtualboard
