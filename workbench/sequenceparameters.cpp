#include "workbench/sequenceparameters.h"

#include "configuration/suggestion.h"
#include "workbench/jsonwords.h"
#include "workbench/quantity.h"
#include "workbench/sequencekeys.h"

#include <QRegularExpression>

#include <cmath>

using namespace workbench::jsonwords;

namespace workbench {

namespace {

constexpr int kMostParameters = 64;
constexpr double kLargest = 1e12; // of a parameter and of a factor

} // namespace

void SequenceParameters::read(const JsonNode &root, const Parameters &values)
{
    const JsonNode node = root.optional(key::parameters);
    const QVector<JsonMember> members = node.members();
    if (members.size() > kMostParameters)
        node.refuse(QStringLiteral("has %1 parameters; allowed are %2")
                        .arg(members.size())
                        .arg(kMostParameters));
    for (const JsonMember &each : members.mid(0, kMostParameters))
        declare(each, values);
    for (const QString &name : values.keys()) {
        if (!m_all.contains(name))
            (node.isAbsent() ? root : node)
                .refuse(QStringLiteral("a value is given for %1, but there is no such parameter%2")
                            .arg(quoted(name), suggestion::didYouMean(name, m_all.keys())));
    }
}

void SequenceParameters::declare(const JsonMember &member, const Parameters &values)
{
    static const QRegularExpression name(QStringLiteral("\\A[A-Za-z_][A-Za-z0-9_]{0,63}\\z"));
    if (!name.match(member.key).hasMatch())
        member.node.refuseKey(QStringLiteral("a parameter's name has 1 to 64 letters, digits and "
                                             "underscores, and does not begin with a digit"));
    const double unusable = std::nan("");
    const double byDefault = member.node.number(-kLargest, kLargest, unusable);
    const double value = values.value(member.key, byDefault);
    Parameter parameter{std::nullopt, member.node};
    if (!std::isnan(byDefault)
        && member.node.expectRange(value, -kLargest, kLargest, numberText(value)))
        parameter.value = value;
    m_all.insert(member.key, parameter);
}

void SequenceParameters::warnOfUnused() const
{
    for (const Parameter &each : m_all) {
        if (!each.isUsed)
            each.node.warn(QStringLiteral("no number of the sequence refers to it"));
    }
}

std::optional<SequenceParameters::Number> SequenceParameters::resolve(const JsonNode &node)
{
    if (!node.isObject() && (!node.isText() || m_all.isEmpty())) {
        const double value = node.number(-HUGE_VAL, HUGE_VAL, std::nan(""));
        return std::isnan(value) ? std::nullopt
                                 : std::make_optional(Number{value, numberText(value)});
    }
    const Quantity quantity = readQuantity(node, m_all.keys());
    const auto parameter = m_all.find(quantity.parameter);
    if (parameter == m_all.end())
        return std::nullopt;
    parameter->isUsed = true;
    if (!parameter->value)
        return std::nullopt;
    QString shown = quantity.parameter + QStringLiteral(" = ") + numberText(*parameter->value);
    const double value = *parameter->value * quantity.factor;
    if (quantity.factor != 1.0)
        shown +=
            QStringLiteral(", times %1: %2").arg(numberText(quantity.factor), numberText(value));
    return Number{value, shown};
}

double SequenceParameters::number(const JsonNode &node, double least, double most, double fallback)
{
    const std::optional<Number> number = resolve(node);
    return number && node.expectRange(number->value, least, most, number->shown) ? number->value
                                                                                 : fallback;
}

int SequenceParameters::integer(const JsonNode &node, int least, int most, int fallback)
{
    const std::optional<Number> number = resolve(node);
    const bool isSound = number && node.expectRange(number->value, least, most, number->shown)
        && node.expectWhole(number->value, number->shown);
    return isSound ? int(number->value) : fallback;
}

} // namespace workbench
