/// \file
/// How the loader reads the attributes of a test configuration.
#pragma once

#include <QDomElement>
#include <QString>

namespace attributes {

/// The number that the attribute \a name holds as decimal text: 0 when it is missing or no number,
/// the nearest int when it exceeds one.
int decimal(const QDomElement &element, const QString &name);

/// Whether the element's tag is \a lowerCaseTag; tags are compared without regard to case.
bool hasTag(const QDomElement &element, QLatin1String lowerCaseTag);

} // namespace attributes
