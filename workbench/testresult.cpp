#include "workbench/testresult.h"

#include <algorithm>

namespace workbench {

namespace {

/// Whether the function operated in a shot of a search: picked up, or did not drop off.
bool hasOperated(const Search &search, const ShotRecord &shot)
{
    const bool isPickUp = shot.shot.role == Shot::PickUp;
    const Search::Edge &edge = isPickUp ? search.pickUp : search.dropOff;
    Event entry;
    entry.kind = Event::StepEntered;
    entry.number = edge.step;
    const Timeline timeline(shot.observation);
    const int entered = timeline.find(entry);
    const bool hasCome = entered >= 0 && timeline.find(edge.event, entered + 1) >= 0;
    return hasCome == isPickUp;
}

/// Judges a search by going through it again with what its shots have shown.
QVector<NamedResult> thresholdsOf(const TestCase &testCase, const CaseResult &result,
                                  const TestRecord &record)
{
    const Search &search = *testCase.search();
    ThresholdSearch again(search.settings);
    QString stopped;
    for (const ShotResult &each : result.shots) {
        const ShotRecord &shot = record.shots[each.record];
        const auto next = again.next();
        if (!shot.wasPlayed())
            stopped = shot.error.isEmpty() ? shot.skipped : shot.error;
        else if (!next || next->value != shot.shot.values.value(search.parameter))
            stopped = QStringLiteral("its shots are not those of the search");
        if (!stopped.isEmpty())
            break;
        again.take(each.operated);
    }
    QVector<NamedResult> results;
    const QStringList names{QStringLiteral("pick-up"), QStringLiteral("drop-off"),
                            QStringLiteral("reset ratio")};
    for (const AssessmentResult &each : again.results()) {
        NamedResult named{names.value(int(results.size())), TimeAssessment::Plain, each};
        if (each.verdict == Verdict::NotMeasured && !stopped.isEmpty())
            named.result.reason = QStringLiteral("the search was broken off: ") + stopped;
        results.append(named);
    }
    return results;
}

/// The measured values of each assessment over the repetitions of a point.
QVector<Spread> spreadsOf(const CaseResult &result, const TestRecord &record)
{
    QVector<Spread> spreads;
    for (const ShotResult &shot : result.shots) {
        const int point = record.shots[shot.record].shot.point;
        for (const NamedResult &each : shot.results) {
            if (!each.result.actual)
                continue;
            const double value = *each.result.actual;
            auto found = std::find_if(spreads.begin(), spreads.end(), [&](const Spread &spread) {
                return spread.point == point && spread.name == each.name;
            });
            if (found == spreads.end()) {
                spreads.append({each.name, point, 0, value, 0, value, each.result.unit});
                found = spreads.end() - 1;
            }
            ++found->count;
            found->least = std::min(found->least, value);
            found->most = std::max(found->most, value);
            found->mean += (value - found->mean) / found->count;
        }
    }
    spreads.erase(std::remove_if(spreads.begin(), spreads.end(),
                                 [](const Spread &spread) { return spread.count < 2; }),
                  spreads.end());
    return spreads;
}

/// "operate time, Ifault = 8: reason" of the first result that is as bad as the case.
QString reasonOf(const TestPlan &plan, const TestRecord &record, const CaseResult &result)
{
    if (result.verdict == Verdict::Passed)
        return {};
    const auto told = [](const NamedResult &each, const QString &shot) {
        return each.name + (shot.isEmpty() ? QString() : QStringLiteral(", ") + shot)
            + QStringLiteral(": ") + each.result.reason;
    };
    for (const NamedResult &each : result.thresholds) {
        if (each.result.verdict == result.verdict)
            return told(each, QString());
    }
    const TestCase &testCase = plan.cases[result.number];
    for (const ShotResult &shot : result.shots) {
        for (const NamedResult &each : shot.results) {
            if (each.result.verdict == result.verdict)
                return told(each, shotText(testCase, record.shots[shot.record].shot));
        }
    }
    return {};
}

/// Puts together what the shots of a case have shown.
void conclude(const TestPlan &plan, const TestRecord &record, CaseResult &result)
{
    const TestCase &testCase = plan.cases[result.number];
    result.skipped = std::all_of(result.shots.begin(), result.shots.end(),
                                 [](const ShotResult &each) { return each.skipped; });
    if (testCase.search())
        result.thresholds = thresholdsOf(testCase, result, record);
    result.spreads = spreadsOf(result, record);
    QVector<Verdict> verdicts;
    for (const NamedResult &each : std::as_const(result.thresholds))
        verdicts.append(each.result.verdict);
    for (const ShotResult &each : std::as_const(result.shots)) {
        if (!testCase.search())
            verdicts.append(each.verdict);
    }
    result.verdict = worst(verdicts);
    result.reason = reasonOf(plan, record, result);
}

} // namespace

ShotResult evaluate(const TestPlan &plan, const ShotRecord &shot)
{
    ShotResult result;
    result.skipped = !shot.skipped.isEmpty();
    const TestCase &testCase = plan.cases[shot.shot.caseNumber];
    if (const Search *search = testCase.search()) {
        if (shot.wasPlayed()) {
            result.operated = hasOperated(*search, shot);
            result.verdict = Verdict::Passed;
        }
        return result;
    }
    for (const PlannedAssessment &each : testCase.assessments) {
        const Assessment wanted = each.in(shot.shot.values);
        NamedResult named;
        named.name = each.name;
        if (const auto *time = std::get_if<TimeAssessment>(&wanted))
            named.kind = time->kind;
        if (shot.wasPlayed())
            named.result = assess(wanted, shot.observation);
        else
            named.result.reason = result.skipped ? shot.skipped : shot.error;
        result.results.append(named);
    }
    QVector<Verdict> verdicts;
    for (const NamedResult &each : std::as_const(result.results))
        verdicts.append(each.result.verdict);
    result.verdict = worst(verdicts);
    return result;
}

TestResult evaluate(const TestPlan &plan, const TestRecord &record)
{
    TestResult result;
    for (int i = 0; i < int(record.shots.size()); ++i) {
        const ShotRecord &shot = record.shots[i];
        if (result.cases.isEmpty() || result.cases.last().number != shot.shot.caseNumber) {
            result.cases.append(CaseResult());
            result.cases.last().number = shot.shot.caseNumber;
        }
        ShotResult judged = evaluate(plan, shot);
        judged.record = i;
        result.cases.last().shots.append(judged);
    }
    QVector<Verdict> verdicts;
    for (CaseResult &each : result.cases) {
        conclude(plan, record, each);
        verdicts.append(each.verdict);
        int *const counts[] = {&result.passed, &result.notMeasured, &result.doubtful,
                               &result.failed};
        ++*(each.skipped ? &result.skipped : counts[int(each.verdict)]);
    }
    result.verdict = worst(verdicts);
    return result;
}

} // namespace workbench
