#include "configuration/element.h"

#include <QRegularExpression>

namespace testconfiguration {

bool Element::hasTag(QLatin1String lowerCaseTag) const
{
    return !isNull() && (node().tag == lowerCaseTag || node().tag.toLower() == lowerCaseTag);
}

int Element::childCount() const
{
    int count = 0;
    for (Element child = firstChild(); !child.isNull(); child = child.nextSibling())
        ++count;
    return count;
}

const QString *Element::attribute(QLatin1String name) const
{
    if (isNull())
        return nullptr;
    for (std::size_t i = node().firstAttribute; i < node().attributeEnd; ++i) {
        const auto &[each, value] = m_tree->attributes[i];
        if (each == name)
            return &value;
    }
    return nullptr;
}

std::vector<QString> Element::attributeNames() const
{
    std::vector<QString> names;
    for (std::size_t i = isNull() ? 0 : node().firstAttribute; !isNull() && i < node().attributeEnd;
         ++i)
        names.push_back(m_tree->attributes[i].first);
    return names;
}

Place Element::placeOf(const QString &attribute) const
{
    static const QRegularExpression nameAndValue(
        QStringLiteral(R"(\G\s*([^\s=<>/]+)\s*=\s*("[^"]*"|'[^']*'))"));
    if (isNull() || node().begin < 0)
        return place();
    const QString &source = m_tree->source;
    int at = node().begin + 1 + int(node().tag.size());
    while (true) {
        const QRegularExpressionMatch match = nameAndValue.match(source, at);
        if (!match.hasMatch())
            return place(); // one that is declared, not written
        if (match.captured(1) == attribute) {
            at = int(match.capturedStart(1));
            break;
        }
        at = int(match.capturedEnd());
    }
    Place result = place();
    for (int i = node().begin; i < at; ++i, ++result.column) {
        const bool endsLine = source[i] == QLatin1Char('\n')
            || (source[i] == QLatin1Char('\r') && source[i + 1] != QLatin1Char('\n'));
        if (endsLine) {
            ++result.line;
            result.column = 0;
        }
    }
    return result;
}

} // namespace testconfiguration
