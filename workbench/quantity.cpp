#include "workbench/quantity.h"

#include "configuration/suggestion.h"
#include "workbench/jsonwords.h"

namespace workbench {

namespace {

constexpr double kMostFactor = 1e9;

QString knownParameter(const JsonNode &node, const QStringList &known)
{
    const QString name = node.text();
    if (known.contains(name))
        return name;
    if (node.isText())
        node.refuse(QStringLiteral("there is no parameter %1%2")
                        .arg(jsonwords::quoted(name), suggestion::didYouMean(name, known)));
    return {};
}

} // namespace

double Quantity::in(const Parameters &values) const
{
    return parameter.isEmpty() ? factor : factor * values.value(parameter);
}

Quantity readQuantity(const JsonNode &node, const QStringList &known)
{
    const QString parameter = QStringLiteral("parameter");
    const QString factor = QStringLiteral("factor");
    if (node.isText())
        return {knownParameter(node, known), 1};
    if (!node.isObject())
        return {QString(), node.number(-kMostFactor, kMostFactor, 0)};
    node.expectKeys({parameter, factor});
    return {knownParameter(node[parameter], known),
            node.optional(factor).number(-kMostFactor, kMostFactor, 1)};
}

} // namespace workbench
