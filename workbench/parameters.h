/// \file
/// Named numbers that a sequence or a test plan leaves open.
#pragma once

#include <QMap>
#include <QString>

namespace workbench {

using Parameters = QMap<QString, double>; ///< values by name

} // namespace workbench
