/// \file
/// What ends a run of lumtarctl early: one line of text for stderr, or an interruption.
#pragma once

#include <QString>

/// The command line or a file is wrong; nothing has been sent. Exit status 2.
struct InputError
{
    QString message;
};

/// The link could not be opened, or the board did not do its part. Exit status 1.
struct BoardError
{
    QString message;
};

/// The user has had enough; the board is to be stopped. Exit status 130.
struct Interrupted
{ };
