/// \file
/// A whole test on the board: load, execute, watch.
#pragma once

#include <QHostAddress>
#include <QString>

struct SequenceRun
{
    QHostAddress board;
    int localPort;
    QString configPath;
    QString sequencePath;
    bool isWatched; ///< until the sequence has ended; else until it has been started
};

/// Does it; returns the exit status: 0, or 130 when an interruption came, upon which the board has
/// been stopped. Throws InputError or BoardError.
[[nodiscard]] int execute(const SequenceRun &run);
