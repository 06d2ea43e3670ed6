#include "configuration/elementreader.h"

#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <utility>

namespace testconfiguration {

namespace {

using IntLimits = std::numeric_limits<int>;

constexpr int kMaxHeld = 1000; // remarks of each severity
constexpr int kLongestIdentifier = 129; // characters (IEC 61850-7-2)
constexpr int kLongestRemark = 400; // characters

/// \a text without most of what it quotes, if that is long.
QString shortened(const QString &text)
{
    constexpr int kHalf = kLongestRemark / 2;
    return text.size() <= kLongestRemark ? text
                                         : text.left(kHalf) + QChar(0x2026) + text.right(kHalf - 1);
}

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

/// One finding about an attribute.
struct Finding
{
    Remark::Severity severity;
    QString text;
};
using Findings = QVector<Finding>;

QString range(const AttributeRule &rule)
{
    if (rule.most == IntLimits::max() && rule.least != 0)
        return rule.least > 0 ? QStringLiteral("a whole number above 0")
                              : QStringLiteral("a whole number");
    const int base = rule.format == AttributeRule::Decimal ? 10 : 16;
    return QStringLiteral("%1 to %2, %3")
        .arg(QString::number(rule.least, base), QString::number(rule.most, base).toUpper(),
             base == 10 ? QStringLiteral("decimal") : QStringLiteral("hexadecimal"));
}

Findings checkNumber(const AttributeRule &rule, const QString &text)
{
    bool isNumber = false;
    const int base = rule.format == AttributeRule::Decimal ? 10 : 16;
    const qint64 number = text.toLongLong(&isNumber, base);
    if (isNumber && number >= rule.least && number <= rule.most)
        return {};
    return {{Remark::Error, QStringLiteral("is \"%1\"; allowed is %2").arg(text, range(rule))}};
}

Findings checkMac(const QString &text)
{
    static const QRegularExpression usual(QStringLiteral("^[0-9A-Fa-f]{2}(-[0-9A-Fa-f]{2}){5}$"));
    static const QRegularExpression readable(
        QStringLiteral("^\\s*[0-9A-Fa-f]{2}([-:. ]?[0-9A-Fa-f]{2}){5}\\s*$"));
    if (usual.match(text).hasMatch())
        return {};
    const auto severity = readable.match(text).hasMatch() ? Remark::Warning : Remark::Error;
    return {{severity,
             QStringLiteral("is \"%1\"; usual is six bytes such as 01-0C-CD-04-00-01").arg(text)}};
}

Findings checkIdentifier(const QString &text)
{
    Findings findings;
    if (text.size() > kLongestIdentifier)
        findings.append({Remark::Warning,
                         QStringLiteral("has %1 characters; IEC 61850-7-2 allows %2")
                             .arg(text.size())
                             .arg(kLongestIdentifier)});
    if (std::any_of(text.begin(), text.end(),
                    [](QChar c) { return c < QLatin1Char(' ') || c > QLatin1Char('~'); }))
        findings.append(
            {Remark::Warning,
             QStringLiteral("is \"%1\", which has characters besides printable ASCII").arg(text)});
    return findings;
}

/// Checks a text that is not empty.
Findings checkValue(const AttributeRule &rule, const QString &text)
{
    switch (rule.format) {
    case AttributeRule::Text:
        return {};
    case AttributeRule::Identifier:
        return checkIdentifier(text);
    case AttributeRule::Mac:
        return checkMac(text);
    case AttributeRule::Decimal:
    case AttributeRule::Hexadecimal:
        break;
    }
    return checkNumber(rule, text);
}

/// What it means that the text is empty or not there.
Finding checkEmpty(const AttributeRule &rule, const QString &state)
{
    switch (rule.format) {
    case AttributeRule::Text:
    case AttributeRule::Identifier:
        return {Remark::Warning, state};
    case AttributeRule::Mac:
        return {Remark::Error,
                state + QStringLiteral("; usual is six bytes such as 01-0C-CD-04-00-01")};
    case AttributeRule::Decimal:
    case AttributeRule::Hexadecimal:
        break;
    }
    const QString counts = state + QStringLiteral(" and counts as 0");
    if (rule.least <= 0)
        return {Remark::Warning, counts};
    return {Remark::Error, counts + QStringLiteral("; allowed is ") + range(rule)};
}

} // namespace

void RemarkList::add(Remark::Severity severity, Place place, const QString &text)
{
    if (++m_counts[severity] <= kMaxHeld)
        m_remarks.append({severity, place, shortened(text)});
    else if (m_counts[severity] == kMaxHeld + 1 && !isChecking()) // which tells the counts
        m_remarks.append({severity, {}, QStringLiteral("further remarks are left out")});
}

void RemarkList::add(Remark::Severity severity, const Element &element, const QString &text,
                     const QString &attribute)
{
    const bool isLookedFor = !attribute.isEmpty() && m_counts[severity] < kMaxHeld;
    add(severity, isLookedFor ? element.placeOf(attribute) : element.place(), text);
}

bool RemarkList::isNew(const QString &key)
{
    const auto before = m_told.size();
    m_told.insert(key);
    return m_told.size() > before;
}

QVector<Remark> RemarkList::take()
{
    return std::exchange(m_remarks, {});
}

QString ElementReader::text(const AttributeRule &rule)
{
    const QString *const value = m_element.attribute(rule.name);
    if (m_remarks.isChecking() && !m_element.isNull())
        check(rule, value);
    return value ? *value : QString();
}

int ElementReader::decimal(const AttributeRule &rule)
{
    const QString value = text(rule);
    bool ok = false;
    const int number = value.toInt(&ok);
    return ok ? number : nearestInt(value);
}

void ElementReader::check(const AttributeRule &rule, const QString *value)
{
    m_known.append({rule.name, {}});
    Findings findings;
    if (!value && rule.isOptional)
        return;
    if (!value)
        findings = {checkEmpty(rule, QStringLiteral("is missing"))};
    else if (value->isEmpty())
        findings = {checkEmpty(rule, QStringLiteral("is empty"))};
    else
        findings = checkValue(rule, *value);
    for (const Finding &each : std::as_const(findings))
        m_remarks.add(each.severity, m_element,
                      QStringLiteral("%1 of %2 %3").arg(rule.name, m_element.tag(), each.text),
                      rule.name);
}

void ElementReader::leaveOut(const AttributeRule &rule, const QString &here)
{
    if (m_remarks.isChecking())
        m_known.append({rule.name, here});
}

void ElementReader::finish(std::initializer_list<QLatin1String> tags)
{
    finish();
    if (!m_remarks.isChecking())
        return;
    for (Element child = m_element.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (std::none_of(tags.begin(), tags.end(),
                         [&child](QLatin1String tag) { return child.hasTag(tag); }))
            m_remarks.warn(
                child, QStringLiteral("element %1 is unknown here and skipped").arg(child.tag()));
    }
}

void ElementReader::finish()
{
    if (!m_remarks.isChecking())
        return;
    for (const QString &name : m_element.attributeNames())
        checkUnread(name);
}

void ElementReader::checkUnread(const QString &name)
{
    if (name == QLatin1String("desc")) // for the reader, in any element
        return;
    QString text = QStringLiteral("attribute %1 of %2 is not read").arg(name, m_element.tag());
    for (const Known &each : std::as_const(m_known)) {
        if (name == each.name && each.notHere.isEmpty())
            return;
        if (name == each.name)
            text += QLatin1Char(' ') + each.notHere;
        else if (name.compare(each.name, Qt::CaseInsensitive) == 0)
            text += QStringLiteral("; did you mean %1?").arg(each.name);
    }
    if (m_remarks.isNew(m_kind + QLatin1Char(' ') + name))
        m_remarks.warn(m_element, text + QStringLiteral(" (told once)"), name);
}

} // namespace testconfiguration
