#include "configurationproblems.h"

#include <QRegularExpression>

#include <algorithm>
#include <tuple>

using namespace testconfiguration;

namespace {

constexpr int kMaxHeld = 1000; // of each severity

} // namespace

ConfigurationProblems::ConfigurationProblems(const QString &file)
    : m_file(file)
{ }

void ConfigurationProblems::add(Severity severity, const QDomElement &element, const QString &text,
                                const QString &attribute)
{
    if (!count(severity))
        return;
    const Remark end{severity, element.lineNumber(), element.columnNumber(), text};
    Remark problem = startOfTag(end);
    if (!attribute.isEmpty())
        moveToAttribute(problem, end, attribute);
    m_problems.append(problem);
}

void ConfigurationProblems::add(const Remarks &remarks)
{
    for (const Remark &each : remarks) {
        if (count(each.severity))
            m_problems.append(startOfTag(each));
    }
}

int ConfigurationProblems::lineOf(const QDomElement &element)
{
    return startOfTag({Remark::Error, element.lineNumber(), element.columnNumber(), {}}).line;
}

bool ConfigurationProblems::count(Severity severity)
{
    return ++m_counts[severity] <= kMaxHeld;
}

/// The parser tells where a start tag ends. No other "<" can be in it, so it starts at the last one
/// before. A place that is no end of a tag stays as it is.
Remark ConfigurationProblems::startOfTag(const Remark &atItsEnd)
{
    if (m_lines.isEmpty())
        m_lines = readSource(m_file).split(QRegularExpression(QStringLiteral("\r\n|\r|\n")));
    Remark result = atItsEnd;
    const QString last = m_lines.value(result.line - 1);
    if (result.column < 1 || last.mid(result.column - 1, 1) != QLatin1String(">"))
        return result;
    int column = static_cast<int>(last.lastIndexOf(QLatin1Char('<'), result.column - 1));
    while (column < 0 && result.line > 1) {
        --result.line;
        column = static_cast<int>(m_lines[result.line - 1].lastIndexOf(QLatin1Char('<')));
    }
    if (column < 0)
        return atItsEnd;
    result.column = column + 1;
    return result;
}

/// Moves a problem from the start of a tag to the attribute in it.
void ConfigurationProblems::moveToAttribute(Remark &problem, const Remark &end,
                                            const QString &attribute) const
{
    static const QRegularExpression nameAndValue(
        QStringLiteral(R"(\s([^\s=]+)\s*=\s*("[^"]*"|'[^']*'))"));
    QStringList tag = m_lines.mid(problem.line - 1, end.line - problem.line + 1);
    if (tag.isEmpty())
        return;
    tag.last().truncate(end.column);
    tag.first().replace(0, problem.column - 1, QString(problem.column - 1, QLatin1Char(' ')));
    const QString text = tag.join(QLatin1Char('\n'));
    auto found = nameAndValue.globalMatch(text);
    while (found.hasNext()) {
        const QRegularExpressionMatch match = found.next();
        if (match.captured(1) != attribute)
            continue;
        const QString before = text.left(match.capturedStart(1));
        problem.line += static_cast<int>(before.count(QLatin1Char('\n')));
        problem.column = static_cast<int>(before.size() - before.lastIndexOf(QLatin1Char('\n')));
        return;
    }
}

Remarks ConfigurationProblems::sorted() const
{
    Remarks result = m_problems;
    std::stable_sort(result.begin(), result.end(), [](const Remark &a, const Remark &b) {
        return std::tie(a.line, a.column) < std::tie(b.line, b.column);
    });
    return result;
}

QString ConfigurationProblems::toString(const Remark &problem) const
{
    const QString severity =
        problem.severity == Remark::Error ? QStringLiteral("error") : QStringLiteral("warning");
    QString place = m_file;
    if (problem.line > 0)
        place += QStringLiteral(":%1:%2").arg(problem.line).arg(problem.column);
    return QStringLiteral("%1: %2: %3").arg(place, severity, problem.text);
}
