#include "lumtarengine.h"

#include "configurationreading.h"

namespace testconfiguration {

namespace {

/// Maps the entries that the `mapinfo` children of \a element name, each onto the next logic
/// channel.
QVector<MappedEntry> mapEntries(Goose_command &command, int entries, const QDomElement &element,
                                SubscriptionNumbers numbers, Remarks &remarks)
{
    QVector<MappedEntry> mapped;
    for (QDomElement child = element.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (!hasTag(child, QLatin1String("mapinfo"))
            || decimal(child, QStringLiteral("Which")) > kBinaryOutputs)
            continue;
        const int position = decimal(child, QStringLiteral("Pos"));
        if (position < 1 || position > entries) {
            remark(remarks, Remark::Error, child,
                   QStringLiteral("ignored, Pos %1 is outside 1 to datCount %2")
                       .arg(position)
                       .arg(entries));
            continue;
        }
        if (numbers.logicChannelsUsedUp && numbers.logicChannel == 0) {
            remark(remarks, Remark::Error, child,
                   QStringLiteral("ignored, Pos %1 needs a logic channel above 255").arg(position));
            continue;
        }
        mapped.append({position, numbers.logicChannel});
        numbers.logicChannelsUsedUp = ++numbers.logicChannel == 0;
        command.setStart_Module(position);
    }
    return mapped;
}

} // namespace

std::optional<Subscription> readSubscription(const QDomElement &element,
                                             SubscriptionNumbers numbers, Remarks &remarks)
{
    const auto refuse = [&](const QString &text) {
        remark(remarks, Remark::Error, element, QStringLiteral("refused, ") + text);
        return std::nullopt;
    };
    const int port = decimal(element, QStringLiteral("portIndex"));
    if (port < 1 || port > kLightPorts)
        return refuse(QStringLiteral("portIndex %1 is outside 1 to %2").arg(port).arg(kLightPorts));
    const int entries = decimal(element, QStringLiteral("datCount"));
    if (entries < 0 || entries > kMaxGooseEntries)
        return refuse(
            QStringLiteral("datCount %1 is outside 0 to %2").arg(entries).arg(kMaxGooseEntries));
    quint8 &lightGroup = numbers.lightGroup[port - 1];
    if (lightGroup > kMaxLightGroup)
        return refuse(QStringLiteral("light group %1 of port %2 is above %3")
                          .arg(lightGroup)
                          .arg(port)
                          .arg(kMaxLightGroup));

    Goose_command command;
    command.setAppId(element.attribute(QStringLiteral("appid")));
    command.setChanelNum(entries);
    command.setLightPort(port);
    command.setCurrentLigthGROUP(lightGroup);
    command.setLogicCH(numbers.logicChannel);
    const QVector<MappedEntry> mapped = mapEntries(command, entries, element, numbers, remarks);
    if (mapped.isEmpty())
        return std::nullopt;
    command.setGroupNUM(numbers.group);
    return Subscription{command, numbers.group++, port, lightGroup++, mapped};
}

} // namespace testconfiguration

void LumtarEngine::SetBinMap(QDomElement &element, QByteArray &work)
{
    testconfiguration::Remarks remarks;
    const auto subscription = testconfiguration::readSubscription(
        element, {groupNum, logicChannel, logicChannelsUsedUp, lightGroup}, remarks);
    testconfiguration::report(QStringLiteral("SetBinMap"), remarks);
    if (!subscription)
        return;
    work = subscription->command.data();
    SendCommand(work);
}
