#include "tools/terminal/terminal.h"

#include "workbench/printabletext.h"

#include <QCoreApplication>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>

#include <langinfo.h>
#include <locale.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// ECMA-48, and DEC private mode 7: without it a long line is cut off instead of taking two.
constexpr char kWithoutWrapping[] = "\r\x1b[?7l";
constexpr char kRestOfLineEmpty[] = "\x1b[K\x1b[?7h";
constexpr char kUsualColour[] = "\x1b[0m";

constexpr int kLeastWidth = 40;
constexpr int kMostWidth = 1000;
constexpr int kUnknownWidth = 100;

int firstError = 0;
bool isUtf8 = true;

/// Whether the environment asks for UTF-8. A locale that is not installed goes by its name: the
/// terminal may be of another machine, which has it.
bool localeIsUtf8()
{
    if (const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr)) {
        const bool result = std::strcmp(nl_langinfo_l(CODESET, locale), "UTF-8") == 0;
        freelocale(locale);
        return result;
    }
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const QByteArray value = qgetenv(name).toUpper();
        if (!value.isEmpty())
            return value.contains("UTF-8") || value.contains("UTF8");
    }
    return false;
}

QByteArray encoded(const QString &text)
{
    return isUtf8 ? text.toUtf8() : inAscii(text).toLatin1();
}

bool isTerminal(int stream)
{
    return isatty(stream) != 0 && qgetenv("TERM") != "dumb";
}

const char *colourOf(Tone tone)
{
    switch (tone) {
    case Tone::Bad:
        return "\x1b[31m"; // red
    case Tone::Doubtful:
        return "\x1b[33m"; // yellow
    case Tone::Plain:
        break;
    }
    return "";
}

/// Line by line, since a pager or a terminal may forget a colour at the end of one.
QString inColour(const QString &lines, Tone tone, int stream)
{
    if (tone == Tone::Plain || !isTerminal(stream) || !qEnvironmentVariableIsEmpty("NO_COLOR"))
        return lines;
    QString result;
    for (const QString &line : lines.split(QLatin1Char('\n')))
        result += line.isEmpty() ? QStringLiteral("\n")
                                 : QLatin1String(colourOf(tone)) + line
                + QLatin1String(kUsualColour) + QLatin1Char('\n');
    return result.chopped(1);
}

void print(const QString &text)
{
    const int written = std::fputs(encoded(text).constData(), stdout);
    if ((std::fflush(stdout) != 0 || written < 0) && firstError == 0)
        firstError = errno;
}

void printError(const QString &message, Tone tone)
{
    const QString line = QStringLiteral("%1: %2").arg(QCoreApplication::applicationName(),
                                                      workbench::printable(message));
    std::fputs(encoded(inColour(line, tone, STDERR_FILENO) + QLatin1Char('\n')).constData(),
               stderr);
}

QString likenessOf(QChar c)
{
    static const std::map<char16_t, const char *> likenesses = {
        {u'\u2500', "-"}, // the rule of a table
        {u'\u2013', "-"},   {u'\u2014', "-"},  {u'\u2212', "-"}, {u'\u2026', "..."},
        {u'\u00b0', "deg"}, {u'\u2192', "->"}, {u'\u00d7', "x"}, {u'\u00b5', "u"},
    };
    if (c.unicode() < 0x80)
        return c;
    const auto found = likenesses.find(c.unicode());
    return QLatin1String(found == likenesses.end() ? "?" : found->second);
}

/// \a text and \a end in \a width characters, if need be without the last characters of \a text.
QString fitted(const QString &text, const QString &end, int width)
{
    const QString mark = QStringLiteral("\u2026");
    const int room = width - int(end.size());
    if (text.size() <= room)
        return text + end;
    return text.left(std::max(0, room - int(mark.size()))) + mark + end;
}

} // namespace

void prepareTerminal()
{
    isUtf8 = localeIsUtf8();
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    if (!isUtf8) // Qt 6 works in UTF-8 only, and would say so in four lines
        qputenv("LC_ALL", "C.UTF-8");
#endif
}

void say(const QString &line, Tone tone)
{
    sayLines(line + QLatin1Char('\n'), tone);
}

void sayLines(const QString &lines, Tone tone)
{
    print(inColour(lines, tone, STDOUT_FILENO));
}

void sayWrapped(const QString &lines, Tone tone)
{
    const QString indent(2, QLatin1Char(' '));
    const int width = outputWidth();
    QString result;
    for (QString line :
         lines.chopped(lines.endsWith(QLatin1Char('\n')) ? 1 : 0).split(QLatin1Char('\n'))) {
        while (line.size() > width) {
            const int blank = int(line.lastIndexOf(QLatin1Char(' '), width));
            const int end = blank > indent.size() ? blank : width;
            result += line.left(end) + QLatin1Char('\n');
            line = indent + line.mid(end).trimmed();
        }
        result += line + QLatin1Char('\n');
    }
    if (!lines.isEmpty())
        sayLines(result, tone);
}

void complain(const QString &message)
{
    printError(message, Tone::Bad);
}

void warn(const QString &message)
{
    printError(message, Tone::Doubtful);
}

int outputError()
{
    return firstError;
}

QString outputFailure()
{
    return firstError == 0 ? QString() : QString::fromLocal8Bit(std::strerror(firstError));
}

int outputWidth()
{
    winsize size = {};
    int width = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
    if (width == 0)
        width = qEnvironmentVariableIntValue("COLUMNS"); // 0 if it is no number
    return width <= 0 ? kUnknownWidth : std::clamp(width, kLeastWidth, kMostWidth);
}

QString inAscii(const QString &text)
{
    QString result;
    int surplus = 0; // characters by which the line has become longer
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        const bool isFiller = c == QLatin1Char(' ') && text.mid(i + 1, 1) == QLatin1String(" ");
        if (c == QLatin1Char('\n'))
            surplus = 0;
        if (surplus > 0 && isFiller) {
            --surplus;
        } else if (!c.isLowSurrogate()) {
            const QString likeness = likenessOf(c);
            surplus += int(likeness.size()) - 1;
            result += likeness;
        }
    }
    return result;
}

LiveLine::LiveLine()
    : m_isOnTerminal(isTerminal(STDOUT_FILENO))
{ }

void LiveLine::show(const QString &text, bool isNews, const QString &end)
{
    if (m_isOnTerminal) {
        print(QLatin1String(kWithoutWrapping) + fitted(text, end, outputWidth())
              + QLatin1String(kRestOfLineEmpty));
        m_isOpen = true;
    } else if (isNews) {
        sayWrapped(text + end);
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
