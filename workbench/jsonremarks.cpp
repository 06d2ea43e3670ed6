#include "workbench/jsonremarks.h"

#include "virtualboard/board/texttable.h"

#include <QJsonObject>

#include <algorithm>

namespace workbench {

QStringList Remarks::lines() const
{
    QStringList result;
    for (const Remark &each : shown)
        result += testconfiguration::toString(each, path);
    const int more = errors + warnings - int(shown.size());
    if (more > 0)
        result += QStringLiteral("%1: and %2")
                      .arg(path, virtualboard::counted(more, QStringLiteral("more problem")));
    return result;
}

QJsonArray Remarks::toJson() const
{
    return workbench::toJson(shown);
}

void Remarks::show(const QVector<Remark> &all)
{
    const auto isError = [](const Remark &each) { return each.severity == Remark::Error; };
    const int ofErrors = int(std::count_if(all.begin(), all.end(), isError));
    int room = kMostShown - int(shown.size());
    int roomForWarnings = std::max(room - ofErrors, 0);
    for (const Remark &each : all) {
        int &left = isError(each) ? room : roomForWarnings;
        if (left-- > 0)
            shown.append(each);
    }
}

Expected<void> Remarks::expectNoErrors() const
{
    return workbench::expectNoErrors({*this});
}

QJsonArray toJson(const QVector<testconfiguration::Remark> &remarks)
{
    QJsonArray result;
    for (const testconfiguration::Remark &each : remarks)
        result.append(QJsonObject{{QStringLiteral("severity"),
                                   each.severity == testconfiguration::Remark::Error
                                       ? QStringLiteral("error")
                                       : QStringLiteral("warning")},
                                  {QStringLiteral("line"), each.place.line},
                                  {QStringLiteral("column"), each.place.column},
                                  {QStringLiteral("text"), each.text}});
    return result;
}

Remarks remarksOf(const testconfiguration::CheckedConfiguration &configuration)
{
    Remarks result{configuration.document.path(), {}, configuration.errors, configuration.warnings};
    result.show(configuration.remarks);
    return result;
}

Expected<void> expectNoErrors(const QVector<Remarks> &files)
{
    QStringList errors;
    QStringList others;
    for (const Remarks &file : files) {
        const QStringList lines = file.lines();
        for (int i = 0; i < lines.size(); ++i) {
            const bool isError =
                i < file.shown.size() && file.shown[i].severity == Remarks::Remark::Error;
            (isError ? errors : others) += lines[i];
        }
    }
    if (errors.isEmpty())
        return {};
    return tl::unexpected<Failure>(Failure{Failure::Input, errors.first(), errors.mid(1) + others});
}

} // namespace workbench
