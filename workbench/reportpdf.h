/// \file
/// A report as pages of paper.
#pragma once

#include "workbench/report.h"

#include <QByteArray>

namespace workbench {

/// A PDF document on A4, with numbered pages, parts that begin on pages of their own and tables
/// that repeat their heads. The same report gives the same bytes on the same machine: its date of
/// creation is always the same one. Needs a QGuiApplication.
[[nodiscard]] QByteArray toPdf(const Report &report);

} // namespace workbench
