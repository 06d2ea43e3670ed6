/// \file
/// Named numbers that a sequence or a test plan leaves open.
#pragma once

#include <QMap>
#include <QString>

namespace workbench {

using Parameters = QMap<QString, double>; ///< values by name

/// Sets those of \a further, too.
inline void add(Parameters &values, const Parameters &further)
{
    for (auto each = further.begin(); each != further.end(); ++each)
        values[each.key()] = each.value();
}

} // namespace workbench
