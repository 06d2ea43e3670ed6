#include "workbench/resulttext.h"

#include "workbench/printabletext.h"

#include "virtualboard/board/texttable.h"

#include <algorithm>

using virtualboard::counted;
using virtualboard::TextTable;

namespace workbench {

namespace {

constexpr int kMostRows = 40; ///< of a table in a terminal

const QString kIndent = QStringLiteral("    ");

QString line(const QString &text)
{
    return printable(text) + QLatin1Char('\n');
}

/// Below the line of a case, in as many lines as it takes.
QString sentence(const QString &text, int width)
{
    QString lines;
    QString rest = kIndent + printable(text);
    while (rest.size() > width) {
        const int blank = int(rest.lastIndexOf(QLatin1Char(' '), width));
        const int end = blank > kIndent.size() ? blank : width;
        lines += rest.left(end) + QLatin1Char('\n');
        rest = kIndent + rest.mid(end).trimmed();
    }
    return lines + rest + QLatin1Char('\n');
}

QString indented(const QString &lines)
{
    QStringList all = lines.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    std::for_each(all.begin(), all.end(), [](QString &each) { each.prepend(kIndent); });
    return all.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

/// Those of a sweep that are shown: all, or first those that have not passed.
QVector<const ShotResult *> shownShots(const CaseResult &result)
{
    QVector<const ShotResult *> shots;
    for (const ShotResult &each : result.shots)
        shots.append(&each);
    if (shots.size() <= kMostRows)
        return shots;
    std::stable_partition(shots.begin(), shots.end(),
                          [](const ShotResult *shot) { return shot->verdict != Verdict::Passed; });
    shots.resize(kMostRows);
    std::sort(shots.begin(), shots.end());
    return shots;
}

QString sweepTable(const TestCase &testCase, const TestRecord &record, const CaseResult &result,
                   int width)
{
    QStringList headings{QLatin1Char('>') + printable(testCase.sweep()->parameter)};
    const bool isRepeated = testCase.repetitions > 1;
    if (isRepeated)
        headings += QStringLiteral(">repetition");
    for (const PlannedAssessment &each : testCase.assessments)
        headings += QLatin1Char('>') + printable(each.name);
    headings += QStringLiteral("verdict");
    TextTable table(headings);
    const QVector<const ShotResult *> shown = shownShots(result);
    for (const ShotResult *shot : shown) {
        const Shot &played = record.shots[shot->record].shot;
        QStringList row{QString::number(played.values.value(testCase.sweep()->parameter))};
        if (isRepeated)
            row += QString::number(played.repetition + 1);
        for (const NamedResult &each : shot->results)
            row += measuredText(each.result);
        table.addRow(row + QStringList(outcomeName(shot->verdict, shot->skipped)));
    }
    QString text = indented(table.toString(width - int(kIndent.size())));
    const qint64 hidden = result.shots.size() - shown.size();
    if (hidden > 0)
        text += line(kIndent
                     + QStringLiteral("and %1 more").arg(counted(hidden, QStringLiteral("shot"))));
    return text;
}

QString thresholdLines(const CaseResult &result, int width)
{
    QString text;
    for (const NamedResult &each : result.thresholds) {
        QString line = each.result.reason;
        if (!line.startsWith(each.name)) // as that of a search that was broken off
            line = each.name + QStringLiteral(": ") + line;
        if (each.result.verdict != Verdict::Passed)
            line = verdictName(each.result.verdict) + QStringLiteral(": ") + line;
        text += sentence(line, width);
    }
    return text;
}

QString spreadLines(const CaseResult &result, int width)
{
    QString text;
    for (const Spread &each : result.spreads)
        text += sentence(QStringLiteral("%1: %2 to %3, mean %4, of %5")
                             .arg(each.name, valueText(each.least, each.unit),
                                  valueText(each.most, each.unit), valueText(each.mean, each.unit))
                             .arg(each.count),
                         width);
    return text;
}

} // namespace

QString outcomeName(Verdict verdict, bool skipped)
{
    return skipped ? QStringLiteral("not played") : verdictName(verdict);
}

QString measuredText(const AssessmentResult &result)
{
    return result.actual ? valueText(*result.actual, result.unit) : verdictName(result.verdict);
}

QString caseText(const TestPlan &plan, const TestRecord &record, const CaseResult &result,
                 int width)
{
    constexpr int kOutcomeWidth = 14; // of the longest, and two blanks
    const TestCase &testCase = plan.cases[result.number];
    QString text =
        outcomeName(result.verdict, result.skipped).leftJustified(kOutcomeWidth) + testCase.name;
    if (result.shots.size() > 1)
        text += QStringLiteral(" (%1)").arg(counted(result.shots.size(), QStringLiteral("shot")));
    text = line(text);
    if (testCase.search() && !result.skipped)
        return text + thresholdLines(result, width);
    if (!result.reason.isEmpty())
        text += sentence(result.reason, width);
    if (result.skipped)
        return text;
    return text
        + (testCase.sweep() ? sweepTable(testCase, record, result, width)
                            : spreadLines(result, width));
}

QString totalText(const TestResult &result)
{
    qint64 shots = 0;
    for (const CaseResult &each : result.cases)
        shots += each.shots.size();
    QStringList parts;
    const auto add = [&parts](int count, const QString &what) {
        if (count > 0)
            parts += QStringLiteral("%1 %2").arg(count).arg(what);
    };
    add(result.passed, verdictName(Verdict::Passed));
    add(result.failed, verdictName(Verdict::Failed));
    add(result.doubtful, verdictName(Verdict::Doubtful));
    add(result.notMeasured, verdictName(Verdict::NotMeasured));
    add(result.skipped, outcomeName(Verdict::NotMeasured, true));
    const QString counts =
        parts.isEmpty() ? QStringLiteral("nothing to judge") : parts.join(QStringLiteral(", "));
    return QStringLiteral("%1, %2: %3")
        .arg(counted(result.cases.size(), QStringLiteral("case")),
             counted(shots, QStringLiteral("shot")), counts);
}

QString resultText(const TestPlan &plan, const TestRecord &record, const TestResult &result,
                   int width)
{
    QString text;
    for (const CaseResult &each : result.cases)
        text += caseText(plan, record, each, width);
    return text + line(totalText(result));
}

int exitStatus(const TestResult &result)
{
    constexpr int kFailed = 3;
    constexpr int kUnsettled = 4;
    if (result.failed > 0)
        return kFailed;
    return result.verdict == Verdict::Passed ? 0 : kUnsettled;
}

} // namespace workbench
