/// \file
/// What came of a test, as lines for a terminal. Texts end each line with a line break; lines of
/// sentences are to be wrapped by whoever prints them.
#pragma once

#include "workbench/testresult.h"

#include <QString>

namespace workbench {

/// A case: "passed", "failed" and so on with its name; below it, why it has not passed, what its
/// assessments have measured over repetitions, the points of a sweep, the thresholds of a search.
/// \param width characters that a table may take, 40 and more
[[nodiscard]] QString caseText(const TestPlan &plan, const TestRecord &record,
                               const CaseResult &result, int width);

/// "10 cases, 26 shots: 9 passed, 1 failed"
[[nodiscard]] QString totalText(const TestResult &result);

/// All cases, and the total.
[[nodiscard]] QString resultText(const TestPlan &plan, const TestRecord &record,
                                 const TestResult &result, int width);

/// Of a program that has run a test: 0 if all cases have passed, 3 if one has failed; else 4:
/// something was not measured, is doubtful, or was not played.
[[nodiscard]] int exitStatus(const TestResult &result);

/// "not played" of what was skipped, else the name of the verdict.
[[nodiscard]] QString outcomeName(Verdict verdict, bool skipped);

/// What a shot shows in a table: "26.000 ms", or the verdict where nothing was measured.
[[nodiscard]] QString measuredText(const AssessmentResult &result);

} // namespace workbench
