#include "terminal.h"

#include <algorithm>
#include <cstdio>

void say(const QString &line)
{
    std::fputs((line + QLatin1Char('\n')).toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
}

void complain(QString message)
{
    std::replace_if(
        message.begin(), message.end(),
        [](QChar c) { return c.category() == QChar::Other_Control; }, QLatin1Char('?'));
    std::fprintf(stderr, "lumtarctl: %s\n", message.toLocal8Bit().constData());
}
