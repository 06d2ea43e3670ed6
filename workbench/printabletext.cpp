#include "workbench/printabletext.h"

#include <algorithm>

namespace workbench {

QString printable(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar c) { return c.category() == QChar::Other_Control; },
        QLatin1Char('?'));
    return text;
}

} // namespace workbench
