#pragma once

#include <QString>
#include <QStringList>

namespace virtualboard {

/// The first few of the problems that one command has, and how many there are beside.
[[nodiscard]] inline QStringList fewOf(const QStringList &problems)
{
    constexpr int kFew = 5;
    if (problems.size() <= kFew + 1)
        return problems;
    return problems.mid(0, kFew)
        + QStringList{QStringLiteral("and %1 more like it").arg(problems.size() - kFew)};
}

} // namespace virtualboard
