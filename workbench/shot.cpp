#include "workbench/shot.h"

#include <algorithm>

namespace workbench {

qint64 countPlainShots(const TestCase &testCase)
{
    if (testCase.search())
        return 0;
    const qint64 points = testCase.sweep() ? qint64(testCase.sweep()->points.size()) : 1;
    return points * testCase.repetitions;
}

QVector<Shot> distinctShots(const TestPlan &plan, int number)
{
    const TestCase &testCase = plan.cases[number];
    QVector<Shot> shots;
    if (const Search *const search = testCase.search()) {
        const auto add = [&](ThresholdSearch::Shot::Phase phase) {
            for (const double end : {search->settings.range.from, search->settings.range.to})
                shots.append(searchShot(plan, number, int(shots.size()), {phase, end}));
        };
        add(ThresholdSearch::Shot::PickUp);
        if (search->settings.withDropOff)
            add(ThresholdSearch::Shot::DropOff);
        return shots;
    }
    const QVector<Parameters> points =
        testCase.sweep() ? testCase.sweep()->points : QVector<Parameters>{Parameters()};
    for (int point = 0; point < points.size(); ++point) {
        Shot shot;
        shot.caseNumber = number;
        shot.point = point;
        shot.values = testCase.parameters;
        add(shot.values, points[point]);
        shots.append(shot);
    }
    return shots;
}

QVector<Shot> checkedShots(const TestPlan &plan, int number, int caseCount)
{
    constexpr int kMostChecked = 2 * TestPlan::kMostCases; // of a plan, unless of searches
    const QVector<Shot> all = distinctShots(plan, number);
    const int most = std::max(2, kMostChecked / std::max(1, caseCount));
    const int count = int(all.size());
    if (count <= std::max(most, 4)) // four: both ends of both thresholds of a search
        return all;
    QVector<Shot> spread;
    for (int i = 0; i < most; ++i)
        spread.append(all[int(qint64(i) * (count - 1) / (most - 1))]);
    return spread;
}

QVector<Shot> plainShots(const TestPlan &plan, int number)
{
    QVector<Shot> shots;
    if (plan.cases[number].search())
        return shots;
    for (Shot shot : distinctShots(plan, number)) {
        for (shot.repetition = 0; shot.repetition < plan.cases[number].repetitions;
             ++shot.repetition)
            shots.append(shot);
    }
    return shots;
}

QVector<Shot> plainShots(const TestPlan &plan)
{
    QVector<Shot> shots;
    for (int number = 0; number < plan.cases.size(); ++number)
        shots += plainShots(plan, number);
    return shots;
}

Shot searchShot(const TestPlan &plan, int number, int point, const ThresholdSearch::Shot &wanted)
{
    const TestCase &testCase = plan.cases[number];
    const Search &search = *testCase.search();
    const bool isPickUp = wanted.phase == ThresholdSearch::Shot::PickUp;
    Shot shot;
    shot.caseNumber = number;
    shot.role = isPickUp ? Shot::PickUp : Shot::DropOff;
    shot.point = point;
    shot.values = testCase.parameters;
    add(shot.values, isPickUp ? search.pickUp.parameters : search.dropOff.parameters);
    shot.values[search.parameter] = wanted.value;
    return shot;
}

QString shotText(const TestCase &testCase, const Shot &shot)
{
    QStringList parts;
    const auto value = [&shot](const QString &parameter) {
        return QStringLiteral("%1 = %2").arg(parameter).arg(shot.values.value(parameter));
    };
    if (testCase.sweep())
        parts += value(testCase.sweep()->parameter);
    if (testCase.search())
        parts += value(testCase.search()->parameter)
            + QLatin1String(shot.role == Shot::PickUp ? ", pick-up" : ", drop-off");
    if (testCase.repetitions > 1)
        parts += QStringLiteral("%1 of %2").arg(shot.repetition + 1).arg(testCase.repetitions);
    return parts.join(QStringLiteral(", "));
}

} // namespace workbench
