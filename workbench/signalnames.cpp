#include "workbench/signalnames.h"

namespace workbench {

namespace {

constexpr int kMostNameLength = 64; // characters
constexpr int kLastChannel = 255;
constexpr int kOutputs = 4;

QMap<int, QString> readNames(const JsonNode &node, int first, int last)
{
    QMap<int, QString> names;
    if (node.isAbsent())
        return names;
    for (const JsonMember &each : node.members()) {
        bool isNumber = false;
        const int number = each.key.toInt(&isNumber);
        const QString name = each.node.text();
        if (!isNumber || number < first || number > last
            || QString::number(number) != each.key) // or 01 were the same as 1
            each.node.refuseKey(QStringLiteral("\"%1\" is no whole number from %2 to %3")
                                    .arg(each.key)
                                    .arg(first)
                                    .arg(last));
        else if (each.node.isText() && (name.trimmed().isEmpty() || name.size() > kMostNameLength))
            each.node.refuse(QStringLiteral("must have 1 to %1 characters").arg(kMostNameLength));
        else if (names.key(name, -1) >= 0)
            each.node.refuse(QStringLiteral("\"%1\" names another one too").arg(name));
        else if (!name.isEmpty())
            names[number] = name;
    }
    return names;
}

void addMissing(QMap<int, QString> &names, const QMap<int, QString> &others)
{
    for (auto each = others.begin(); each != others.end(); ++each) {
        if (!names.contains(each.key()) && names.key(each.value(), -1) < 0) // or it meant two
            names[each.key()] = each.value();
    }
}

} // namespace

QString SignalNames::input(int channel) const
{
    const QString name = inputs.value(channel);
    return name.isEmpty() ? QStringLiteral("logic channel %1").arg(channel) : name;
}

QString SignalNames::output(int number) const
{
    const QString name = outputs.value(number);
    return name.isEmpty() ? QStringLiteral("binary output %1").arg(number) : name;
}

void SignalNames::complete(const SignalNames &other)
{
    addMissing(inputs, other.inputs);
    addMissing(outputs, other.outputs);
}

SignalNames readSignalNames(const JsonNode &node)
{
    const QString inputs = QStringLiteral("binaryInputs");
    const QString outputs = QStringLiteral("binaryOutputs");
    if (node.isAbsent())
        return {};
    node.expectKeys({inputs, outputs});
    return {readNames(node.optional(inputs), 0, kLastChannel),
            readNames(node.optional(outputs), 1, kOutputs)};
}

} // namespace workbench
