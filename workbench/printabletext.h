#pragma once

#include <QString>

namespace workbench {

/// \a text on one line, whatever a file put into it: control characters become "?".
[[nodiscard]] QString printable(QString text);

} // namespace workbench
