/// \file
/// A number of a file that may stand for a parameter.
#pragma once

#include "workbench/jsonreader.h"
#include "workbench/parameters.h"

#include <QString>
#include <QStringList>

namespace workbench {

/// A number, or a parameter times a factor.
struct Quantity
{
    QString parameter; ///< empty: the factor alone
    double factor = 0;

    /// Its value with these parameters; a parameter that is not among them counts as 0.
    [[nodiscard]] double in(const Parameters &values) const;
};

/// A number, the name of a parameter, or {"parameter": NAME, "factor": NUMBER}.
/// \param known the parameters that there are; others are refused with a suggestion
[[nodiscard]] Quantity readQuantity(const JsonNode &node, const QStringList &known);

} // namespace workbench
