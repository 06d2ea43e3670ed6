/// \file
/// What lumtarctl prints.
#pragma once

#include <QString>

/// Prints a line on stdout.
void say(const QString &line);
/// Prints lines that end with a line break each.
void sayLines(const QString &lines);

/// Why what was printed could not all be written, such as "No space left on device"; empty if it
/// could.
[[nodiscard]] QString outputFailure();

/// A line that is rewritten while things go on. Where stdout is no terminal, the texts that bring
/// news are lines of their own.
class LiveLine
{
    Q_DISABLE_COPY(LiveLine)

public:
    LiveLine();
    ~LiveLine() { keep(); }

    [[nodiscard]] bool isOnTerminal() const { return m_isOnTerminal; }
    void show(const QString &text, bool isNews);
    /// Leaves the line to other output: as it is, or empty.
    void keep();
    void clear();

private:
    bool m_isOnTerminal;
    bool m_isOpen = false; ///< the cursor is in the line
};

/// Prints "lumtarctl: MESSAGE" on stderr, on one line whatever a file or an argument put into it.
void complain(const QString &message);
