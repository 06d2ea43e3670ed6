/// \file
/// The command line of lumtar-board.
#pragma once

#include "virtualboard/board/virtualboard.h"

#include <QMap>
#include <QString>
#include <QStringList>

struct BoardOptions
{
    virtualboard::VirtualBoardOptions board;
    bool once = false;
    int timeout = 0; ///< seconds; 0: none
    QMap<QString, int> expected; ///< commands by kind
};

/// Ends the program for --help and --version. Fails with one line of text when the command line is
/// wrong.
[[nodiscard]] virtualboard::Expected<BoardOptions> readBoardOptions(const QStringList &arguments);
