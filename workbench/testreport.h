/// \file
/// The report of a test: what one hands over.
#pragma once

#include "workbench/report.h"
#include "workbench/testresult.h"

namespace workbench {

/// A summary, then every case: its assessments, the characteristic of a sweep, the thresholds of a
/// search, and one shot in full, the first one of the worst verdict. Of a case with many shots the
/// tables have the first thousand rows. The same record gives the same report.
[[nodiscard]] Report reportOf(const RecordedTest &test, const TestResult &result);

} // namespace workbench
