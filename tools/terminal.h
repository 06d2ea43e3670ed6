/// \file
/// What lumtarctl prints.
#pragma once

#include <QString>

/// \a text on one line, whatever a file put into it: control characters become "?".
[[nodiscard]] QString printable(QString text);

/// Prints a line on stdout.
void say(const QString &line);

/// Prints "lumtarctl: MESSAGE" on stderr, on one line whatever a file or an argument put into it.
void complain(const QString &message);
