/// \file
/// What the attributes of a test configuration may be. The loader takes every text for something:
/// this is about whether it takes it for what the file says.
#pragma once

#include "configurationproblems.h"

#include <QDomElement>
#include <QSet>
#include <QString>

/// Checks the attributes and the tags of elements.
class AttributeRules
{
public:
    explicit AttributeRules(ConfigurationProblems &problems)
        : m_problems(problems)
    { }

    /// Checks the root itself.
    void checkRoot(const QDomElement &root);
    /// Checks \a child of the root and all below it.
    void checkStream(const QDomElement &child);

private:
    void checkElement(const QDomElement &element, const QString &path);
    void checkTag(const QDomElement &element, const QString &path);
    void checkUnknown(const QDomElement &element, const QString &path);

    ConfigurationProblems &m_problems;
    QSet<QString> m_told; ///< unknown attributes, each once per kind of element
};
