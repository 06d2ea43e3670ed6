#include "workbench/jsonremarks.h"

#include <QJsonObject>

namespace workbench {

QStringList Remarks::lines() const
{
    QStringList result;
    for (const Remark &each : shown)
        result += testconfiguration::toString(each, path);
    const int more = errors + warnings - int(shown.size());
    if (more > 0)
        result += QStringLiteral("%1: and %2 more problem%3")
                      .arg(path)
                      .arg(more)
                      .arg(more == 1 ? QString() : QStringLiteral("s"));
    return result;
}

QJsonArray Remarks::toJson() const
{
    QJsonArray result;
    for (const Remark &each : shown)
        result.append(QJsonObject{
            {QStringLiteral("severity"),
             each.severity == Remark::Error ? QStringLiteral("error") : QStringLiteral("warning")},
            {QStringLiteral("line"), each.place.line},
            {QStringLiteral("column"), each.place.column},
            {QStringLiteral("text"), each.text}});
    return result;
}

Expected<void> Remarks::expectNoErrors() const
{
    if (errors == 0)
        return {};
    const QStringList all = lines();
    return tl::unexpected<Failure>(Failure{Failure::Input, all.first(), all.mid(1)});
}

} // namespace workbench
