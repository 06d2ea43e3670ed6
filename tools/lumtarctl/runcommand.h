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

/// What is shown of a sequence that has been started.
enum class Watching {
    No, ///< nothing
    AsText, ///< the state until it ends, and a table of its changes of steps
    AsJson, ///< the same in lines of JSON
};

/// Loads and executes, and if that is being watched follows the board until the sequence has ended;
/// returns the exit status. When an interruption comes, the board is stopped.
[[nodiscard]] workbench::Expected<int> run(const Endpoint &endpoint, const QString &configPath,
                                           const QString &sequencePath, Watching watching);
