/// \file
/// What came of a test: verdicts with their reasons, made from a record.
#pragma once

#include "workbench/testrecord.h"

#include <optional>

namespace workbench {

/// One assessment of one shot.
struct NamedResult
{
    QString name;
    TimeAssessment::Kind kind = TimeAssessment::Plain; ///< of a time
    AssessmentResult result;
};

struct ShotResult
{
    int record = 0; ///< index into TestRecord::shots
    Verdict verdict = Verdict::NotMeasured;
    bool skipped = false;
    QVector<NamedResult> results; ///< none of a shot of a search
    bool operated = false; ///< of a shot of a search
};

/// An assessment over the repetitions of a case or of a point of a sweep, where several were
/// measured. In the unit of the assessment.
struct Spread
{
    QString name;
    int point = 0;
    int count = 0;
    double least = 0;
    double mean = 0;
    double most = 0;
    QString unit;
};

struct CaseResult
{
    int number = 0; ///< of the case
    Verdict verdict = Verdict::NotMeasured;
    bool skipped = false; ///< all of it
    QVector<ShotResult> shots;
    QVector<NamedResult> thresholds; ///< of a search: pick-up, drop-off, reset ratio
    QVector<Spread> spreads;
    QString reason; ///< one sentence on what decided the verdict; empty if it passed
};

struct TestResult
{
    QVector<CaseResult> cases; ///< those that were to be played, in the order of the plan
    Verdict verdict = Verdict::NotMeasured;
    int passed = 0; ///< cases
    int failed = 0;
    int doubtful = 0;
    int notMeasured = 0;
    int skipped = 0;
};

/// Judges every shot of the record.
[[nodiscard]] TestResult evaluate(const TestPlan &plan, const TestRecord &record);
/// Judges one shot; of a search only whether the function operated.
[[nodiscard]] ShotResult evaluate(const TestPlan &plan, const ShotRecord &shot);

} // namespace workbench
