/// \file
/// lumtarctl report: results of tests that have been recorded.
#pragma once

#include "workbench/failure.h"

class QCommandLineParser;

/// Joins the records, prints their result and writes the files that \a options name. Returns the
/// exit status of the test.
[[nodiscard]] workbench::Expected<int> reportTest(const QCommandLineParser &options);
