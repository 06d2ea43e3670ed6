/// \file
/// What lumtarctl prints.
#pragma once

#include <QString>

/// Prints a line on stdout.
void say(const QString &line);

/// Prints "lumtarctl: MESSAGE" on stderr, on one line whatever a file or an argument put into it.
void complain(QString message);
