#include "tools/lumtarctl/terminal.h"

#include "workbench/printabletext.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace {

// ECMA-48, and DEC private mode 7: without it a long line is cut off instead of taking two.
constexpr char kWithoutWrapping[] = "\r\x1b[?7l";
constexpr char kRestOfLineEmpty[] = "\x1b[K\x1b[?7h";

QString failureOfOutput;

void print(const QString &text)
{
    const int written = std::fputs(text.toLocal8Bit().constData(), stdout);
    if ((std::fflush(stdout) != 0 || written < 0) && failureOfOutput.isEmpty())
        failureOfOutput = QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

void say(const QString &line)
{
    print(line + QLatin1Char('\n'));
}

void sayLines(const QString &lines)
{
    print(lines);
}

QString outputFailure()
{
    return failureOfOutput;
}

LiveLine::LiveLine()
    : m_isOnTerminal(isatty(STDOUT_FILENO) != 0 && qgetenv("TERM") != "dumb")
{ }

void LiveLine::show(const QString &text, bool isNews)
{
    if (m_isOnTerminal) {
        print(QLatin1String(kWithoutWrapping) + text + QLatin1String(kRestOfLineEmpty));
        m_isOpen = true;
    } else if (isNews) {
        say(text);
    }
}

void LiveLine::keep()
{
    if (m_isOpen)
        say({});
    m_isOpen = false;
}

void LiveLine::clear()
{
    if (m_isOpen)
        show({}, false);
    m_isOpen = false;
}

void complain(const QString &message)
{
    std::fprintf(stderr, "lumtarctl: %s\n",
                 workbench::printable(message).toLocal8Bit().constData());
}
