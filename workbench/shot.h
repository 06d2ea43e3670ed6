/// \file
/// One playing of a case with its values.
#pragma once

#include "workbench/testplan.h"

#include <QString>
#include <QVector>

#include <array>

namespace workbench {

/// What tells one shot of a plan from the others.
struct Shot
{
    enum Role {
        Plain, ///< of a case, or of a point of a sweep
        PickUp, ///< of a search
        DropOff, ///< likewise
    };

    int caseNumber = 0; ///< from 0
    Role role = Plain;
    int point = 0; ///< of a sweep, from 0; of a search: number of the shot
    int repetition = 0; ///< from 0
    Parameters values; ///< all that the sequence, the stand-in and the assessments need

    [[nodiscard]] bool isSameAs(const Shot &other) const
    {
        return caseNumber == other.caseNumber && role == other.role && point == other.point
            && repetition == other.repetition;
    }
};

/// All shots that do not depend on the result of others, in the order of the plan: the points of a
/// sweep one after the other, each with its repetitions.
[[nodiscard]] QVector<Shot> plainShots(const TestPlan &plan);
/// Those of case \a number.
[[nodiscard]] QVector<Shot> plainShots(const TestPlan &plan, int number);
/// One shot of case \a number for each set of values that it is played with; of a search, whose
/// values are not known before, those at both ends of its range.
[[nodiscard]] QVector<Shot> distinctShots(const TestPlan &plan, int number);
/// Those of distinctShots() that a check reads the sequence for: all, or where a plan of \a
/// caseCount cases has very many, some that are spread evenly and both ends, so that a check ends
/// soon. A range is left at an end; what only a value between does, such as a time in fractions of
/// a millisecond, comes out when it is its turn to be played.
[[nodiscard]] QVector<Shot> checkedShots(const TestPlan &plan, int number, int caseCount);
/// How many plain ones there are; a search has none.
[[nodiscard]] qint64 countPlainShots(const TestCase &testCase);

/// The shot with number \a point of the search of case \a number.
[[nodiscard]] Shot searchShot(const TestPlan &plan, int number, int point,
                              const ThresholdSearch::Shot &wanted);

/// "Ifault = 8, 2 of 3": what tells the shot from the others of its case; empty if it is alone.
[[nodiscard]] QString shotText(const TestCase &testCase, const Shot &shot);

} // namespace workbench
