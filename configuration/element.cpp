#include "configuration/element.h"

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

template <typename Name>
const Attribute *Element::find(const Name &name) const
{
    if (isNull())
        return nullptr;
    for (std::size_t i = node().firstAttribute; i < node().attributeEnd; ++i) {
        if (m_tree->attributes[i].name == name)
            return &m_tree->attributes[i];
    }
    return nullptr;
}

const QString *Element::attribute(QLatin1String name) const
{
    const Attribute *const found = find(name);
    return found ? &found->value : nullptr;
}

std::vector<QString> Element::attributeNames() const
{
    std::vector<QString> names;
    for (std::size_t i = isNull() ? 0 : node().firstAttribute; !isNull() && i < node().attributeEnd;
         ++i)
        names.push_back(m_tree->attributes[i].name);
    return names;
}

Place Element::placeOf(const QString &attribute) const
{
    const Attribute *const found = find(attribute);
    return found && found->place.line > 0 ? found->place : place();
}

} // namespace testconfiguration
