/// \file
/// A report as one page for a browser.
#pragma once

#include "workbench/report.h"

#include <QByteArray>

namespace workbench {

/// An HTML document that needs nothing besides itself, runs nothing and prints well; it is
/// well-formed XML, too. The same report gives the same bytes. Needs a QGuiApplication.
[[nodiscard]] QByteArray toHtml(const Report &report);

} // namespace workbench
