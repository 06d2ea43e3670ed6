#include "workbench/resultdata.h"

#include "workbench/junit.h"
#include "workbench/resulttext.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace workbench {

namespace {

constexpr int kJsonVersion = 1;

const QString resultFormat = QStringLiteral("lumtar test result");
const QString roleNames[] = {QStringLiteral("plain"), QStringLiteral("pick-up"),
                             QStringLiteral("drop-off")};
const QString kindNames[] = {QStringLiteral("plain"), QStringLiteral("start"),
                             QStringLiteral("operate"), QStringLiteral("reset")};

/// What is not known, and what has no limit, is left out.
void addNumber(QJsonObject &object, const char *key, std::optional<double> value)
{
    if (value && std::isfinite(*value))
        object[QLatin1String(key)] = *value;
}

void addText(QJsonObject &object, const char *key, const QString &text)
{
    if (!text.isEmpty())
        object[QLatin1String(key)] = text;
}

QJsonObject toJson(const NamedResult &named)
{
    const AssessmentResult &result = named.result;
    QJsonObject object{{QStringLiteral("name"), named.name},
                       {QStringLiteral("verdict"), verdictName(result.verdict)},
                       {QStringLiteral("kind"), kindNames[named.kind]},
                       {QStringLiteral("reason"), result.reason}};
    const bool isNumber = result.actual || !result.allowed.isUnlimited();
    addText(object, "unit", isNumber ? result.unit : QString());
    addNumber(object, "actual", result.actual);
    addNumber(object, "nominal", result.allowed.nominal);
    addNumber(object, "lowest", result.allowed.lowest);
    addNumber(object, "highest", result.allowed.highest);
    addNumber(object, "deviation", result.deviation());
    return object;
}

QJsonArray toJson(const QVector<NamedResult> &results)
{
    QJsonArray array;
    for (const NamedResult &each : results)
        array.append(toJson(each));
    return array;
}

QJsonObject toJson(const ShotRecord &record, const ShotResult &result, bool isOfSearch)
{
    QJsonObject values;
    for (auto each = record.shot.values.begin(); each != record.shot.values.end(); ++each)
        values[each.key()] = each.value();
    QJsonObject object{{QStringLiteral("role"), roleNames[record.shot.role]},
                       {QStringLiteral("point"), record.shot.point},
                       {QStringLiteral("repetition"), record.shot.repetition},
                       {QStringLiteral("values"), values},
                       {QStringLiteral("verdict"), outcomeName(result.verdict, result.skipped)}};
    addText(object, "error", record.error);
    addText(object, "notPlayed", record.skipped);
    addText(object, "capture", record.capture);
    if (isOfSearch)
        object[QStringLiteral("operated")] = result.operated;
    else
        object[QStringLiteral("assessments")] = toJson(result.results);
    return object;
}

QJsonObject toJson(const Spread &spread)
{
    return {{QStringLiteral("name"), spread.name},   {QStringLiteral("point"), spread.point},
            {QStringLiteral("count"), spread.count}, {QStringLiteral("least"), spread.least},
            {QStringLiteral("mean"), spread.mean},   {QStringLiteral("most"), spread.most},
            {QStringLiteral("unit"), spread.unit}};
}

QJsonObject toJson(const RecordedTest &test, const CaseResult &result)
{
    const TestCase &testCase = test.plan->cases[result.number];
    QJsonArray shots;
    for (const ShotResult &each : result.shots)
        shots.append(toJson(test.record.shots[each.record], each, testCase.search() != nullptr));
    QJsonArray spreads;
    for (const Spread &each : result.spreads)
        spreads.append(toJson(each));
    QJsonObject object{{QStringLiteral("name"), testCase.name},
                       {QStringLiteral("verdict"), outcomeName(result.verdict, result.skipped)},
                       {QStringLiteral("shots"), shots}};
    addText(object, "reason", result.reason);
    if (testCase.search())
        object[QStringLiteral("thresholds")] = toJson(result.thresholds);
    if (!spreads.isEmpty())
        object[QStringLiteral("spreads")] = spreads;
    return object;
}

JUnitCase::Outcome outcomeOf(const CaseResult &result)
{
    if (result.skipped)
        return JUnitCase::Skipped;
    if (result.verdict == Verdict::Failed)
        return JUnitCase::Failed;
    return result.verdict == Verdict::Passed ? JUnitCase::Passed : JUnitCase::Error;
}

double secondsOf(const TestRecord &record, const CaseResult &result)
{
    std::chrono::nanoseconds time{0};
    for (const ShotResult &each : result.shots)
        time += record.shots[each.record].end.totalTime;
    return std::chrono::duration<double>(time).count();
}

/// A name with dots only where they part groups.
QString classNameOf(QString title)
{
    return title.replace(QLatin1Char('.'), QLatin1Char('_'));
}

} // namespace

QByteArray toResultJson(const RecordedTest &test, const TestResult &result)
{
    QJsonArray cases;
    for (const CaseResult &each : result.cases)
        cases.append(toJson(test, each));
    QJsonObject object{{QStringLiteral("format"), resultFormat},
                       {QStringLiteral("version"), kJsonVersion},
                       {QStringLiteral("title"), test.plan->title},
                       {QStringLiteral("program"), test.record.program},
                       {QStringLiteral("board"), test.record.board},
                       {QStringLiteral("interrupted"), test.record.interrupted},
                       {QStringLiteral("verdict"), verdictName(result.verdict)},
                       {QStringLiteral("passed"), result.passed},
                       {QStringLiteral("failed"), result.failed},
                       {QStringLiteral("doubtful"), result.doubtful},
                       {QStringLiteral("notMeasured"), result.notMeasured},
                       {QStringLiteral("notPlayed"), result.skipped},
                       {QStringLiteral("cases"), cases}};
    addText(object, "played", test.record.played);
    return QJsonDocument(object).toJson();
}

QByteArray toResultJUnit(const RecordedTest &test, const TestResult &result)
{
    constexpr int kWidth = 100;
    JUnitSuite suite;
    suite.name = test.plan->title;
    suite.started = QDateTime::fromString(test.record.played, Qt::ISODate);
    for (const CaseResult &each : result.cases) {
        JUnitCase one;
        one.name = test.plan->cases[each.number].name;
        one.className = classNameOf(test.plan->title);
        one.seconds = secondsOf(test.record, each);
        one.outcome = outcomeOf(each);
        one.message = each.reason;
        one.details = caseText(*test.plan, test.record, each, kWidth);
        suite.cases.append(one);
    }
    return toJUnit({suite});
}

} // namespace workbench
