/// \file
/// What came of a test, for programs.
#pragma once

#include "workbench/testresult.h"

#include <QByteArray>

namespace workbench {

/// A JSON document: verdicts, measured values and reasons of all cases and shots. The same record
/// gives the same bytes. docs/test-plans.md describes its members.
[[nodiscard]] QByteArray toResultJson(const RecordedTest &test, const TestResult &result);

/// For build servers: a suite with all cases. A case that has failed is a failure; one that was not
/// measured, or is doubtful, an error. The time of a case is what its sequences took.
[[nodiscard]] QByteArray toResultJUnit(const RecordedTest &test, const TestResult &result);

} // namespace workbench
