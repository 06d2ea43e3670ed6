#include "workbench/report.h"

#include "workbench/drawing.h"

namespace workbench {

QString reportText(const QString &text)
{
    return drawable(text.simplified());
}

} // namespace workbench
