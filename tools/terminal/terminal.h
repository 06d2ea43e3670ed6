/// \file
/// What the programs print: on stdout and stderr, as wide, as colourful and in the characters that
/// the terminal behind them takes.
#pragma once

#include <QString>

/// How a line is meant; a terminal shows it in colour.
enum class Tone { Plain, Bad, Doubtful };

/// Finds out in which characters to print. To be called before the application object is made,
/// which changes the locale.
void prepareTerminal();

/// Prints a line on stdout.
void say(const QString &line, Tone tone = Tone::Plain);
/// Prints lines that end with a line break each.
void sayLines(const QString &lines, Tone tone = Tone::Plain);

/// The same, with lines that are wider than the output broken at blanks.
void sayWrapped(const QString &lines, Tone tone = Tone::Plain);

/// Prints "PROGRAM: MESSAGE" on stderr, on one line whatever a file or an argument put into it:
/// what has failed.
void complain(const QString &message);
/// Likewise: what is tolerated, but should be known.
void warn(const QString &message);

/// The error number of the first print on stdout that could not all be written; 0 if there is none.
[[nodiscard]] int outputError();
/// The same in words, such as "No space left on device"; empty if there is none.
[[nodiscard]] QString outputFailure();

/// Characters that a line on stdout has: those of its terminal; else what COLUMNS says; else 100.
/// From 40 to 1000.
[[nodiscard]] int outputWidth();

/// \a text in ASCII. What has a likeness gets that; what is longer then takes blanks that follow
/// away, so that columns stay in line. Everything else becomes "?".
[[nodiscard]] QString inAscii(const QString &text);

/// A line that is rewritten while things go on. Where stdout is no terminal, the texts that bring
/// news are lines of their own.
class LiveLine
{
    Q_DISABLE_COPY(LiveLine)

public:
    LiveLine();
    ~LiveLine() { keep(); }

    [[nodiscard]] bool isOnTerminal() const { return m_isOnTerminal; }
    /// \param end what stays in sight behind \a text where the terminal is too narrow for both
    void show(const QString &text, bool isNews, const QString &end = {});
    /// Leaves the line to other output: as it is, or empty.
    void keep();
    void clear();

private:
    bool m_isOnTerminal;
    bool m_isOpen = false; ///< the cursor is in the line
};
