#include "configurationreading.h"

#include <QDebug>

#include <algorithm>
#include <limits>

namespace testconfiguration {

namespace {

using IntLimits = std::numeric_limits<int>;

/// The end of the int range that a text of digits alone lies beyond; 0 for any other text.
int nearestInt(const QString &text)
{
    const QString trimmed = text.trimmed();
    const bool negative = trimmed.startsWith(QLatin1Char('-'));
    const bool hasSign = negative || trimmed.startsWith(QLatin1Char('+'));
    const auto digits = trimmed.begin() + (hasSign ? 1 : 0);
    const bool isNumber = digits != trimmed.end()
        && std::all_of(digits, trimmed.end(),
                       [](QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); });
    if (!isNumber)
        return 0;
    return negative ? IntLimits::min() : IntLimits::max();
}

} // namespace

int decimal(const QDomElement &element, const QString &name)
{
    const QString text = element.attribute(name);
    bool ok = false;
    const int value = text.toInt(&ok);
    return ok ? value : nearestInt(text);
}

bool hasTag(const QDomElement &element, QLatin1String lowerCaseTag)
{
    const QString tag = element.tagName();
    return tag == lowerCaseTag || tag.toLower() == lowerCaseTag;
}

void remark(Remarks &remarks, Remark::Severity severity, const QDomElement &element,
            const QString &text)
{
    constexpr int kMaxRemarks = 1000;
    if (remarks.size() < kMaxRemarks)
        remarks.append({severity, element.lineNumber(), element.columnNumber(), text});
    else if (remarks.size() == kMaxRemarks)
        remarks.append({severity, 0, 0, QStringLiteral("further remarks are left out")});
}

void report(const QString &context, const Remarks &remarks)
{
    for (const Remark &remark : remarks) {
        QDebug line = qDebug().noquote().nospace();
        line << context << ": ";
        if (remark.line > 0)
            line << "line " << remark.line << ", column " << remark.column << ": ";
        line << remark.text;
    }
}

} // namespace testconfiguration
