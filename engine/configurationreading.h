/// \file
/// How attributes and tags of a test configuration are read.
#pragma once

#include "testconfiguration.h"

namespace testconfiguration {

/// The number that the attribute \a name holds as decimal text: 0 when it is missing or no number,
/// the nearest int when it exceeds one.
int decimal(const QDomElement &element, const QString &name);

/// Whether the element's tag is \a lowerCaseTag; tags are compared without regard to case.
bool hasTag(const QDomElement &element, QLatin1String lowerCaseTag);

/// Adds a remark on \a element, unless there are a thousand already.
void remark(Remarks &remarks, Remark::Severity severity, const QDomElement &element,
            const QString &text);

/// Writes one debug line per remark, each beginning with \a context.
void report(const QString &context, const Remarks &remarks);

} // namespace testconfiguration
