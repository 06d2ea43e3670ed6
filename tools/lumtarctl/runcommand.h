/// \file
/// lumtarctl run: a whole test on the board.
#pragma once

#include "workbench/failure.h"

#include <QHostAddress>
#include <QString>

/// Where the board is and how to reach it.
struct Endpoint
{
    QHostAddress board;
    int localPort = 0;
};

/// Loads and executes, and if it \a isWatched shows the state of the board until the sequence has
/// ended; returns the exit status. When an interruption comes, the board is stopped.
[[nodiscard]] workbench::Expected<int> run(const Endpoint &endpoint, const QString &configPath,
                                           const QString &sequencePath, bool isWatched);
