#include "terminal.h"

#include <algorithm>
#include <cstdio>

#include <unistd.h>

namespace {

// ECMA-48, and DEC private mode 7: without it a long line is cut off instead of taking two.
constexpr char kWithoutWrapping[] = "\r\x1b[?7l";
constexpr char kRestOfLineEmpty[] = "\x1b[K\x1b[?7h";

void print(const QString &text)
{
    std::fputs(text.toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
}

} // namespace

QString printable(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar c) { return c.category() == QChar::Other_Control; },
        QLatin1Char('?'));
    return text;
}

void say(const QString &line)
{
    print(line + QLatin1Char('\n'));
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
    std::fprintf(stderr, "lumtarctl: %s\n", printable(message).toLocal8Bit().constData());
}
