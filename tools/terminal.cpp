#include "terminal.h"

#include <algorithm>
#include <cstdio>

QString printable(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar c) { return c.category() == QChar::Other_Control; },
        QLatin1Char('?'));
    return text;
}

void say(const QString &line)
{
    std::fputs((line + QLatin1Char('\n')).toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
}

void complain(const QString &message)
{
    std::fprintf(stderr, "lumtarctl: %s\n", printable(message).toLocal8Bit().constData());
}
