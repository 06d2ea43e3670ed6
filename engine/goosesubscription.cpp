#include "lumtarengine.h"

#include "configurationattributes.h"
#include "configurationlimits.h"
#include "subscription.h"

#include <QDebug>

#include <iterator>

namespace {

constexpr int kMaxOutput = 4; // a mapinfo of a higher output is not ours

} // namespace

void LumtarEngine::SetBinMap(QDomElement &element, QByteArray &work)
{
    const int port = attributes::decimal(element, QStringLiteral("portIndex"));
    if (port < 1 || port > static_cast<int>(std::size(lightGroup))) {
        qDebug() << "SetBinMap: refused, portIndex" << port << "is outside 1 to"
                 << std::size(lightGroup);
        return;
    }
    const int entries = attributes::decimal(element, QStringLiteral("datCount"));
    if (entries < 0 || entries > kMaxGooseEntries) {
        qDebug() << "SetBinMap: refused, datCount" << entries << "is outside 0 to"
                 << kMaxGooseEntries;
        return;
    }
    quint8 &group = lightGroup[port - 1];
    if (group > kMaxLightGroup) {
        qDebug() << "SetBinMap: refused, light group" << group << "of port" << port << "is above"
                 << kMaxLightGroup;
        return;
    }

    Goose_command command;
    command.setAppId(element.attribute(QStringLiteral("appid")));
    command.setChanelNum(entries);
    command.setLightPort(port);
    command.setCurrentLigthGROUP(group);
    command.setLogicCH(logicChannel);
    if (!mapEntries(command, entries, element))
        return;
    command.setGroupNUM(groupNum);
    ++groupNum;
    ++group;
    work = command.data();
    SendCommand(work);
}

bool LumtarEngine::mapEntries(Goose_command &command, int entries, const QDomElement &subscription)
{
    bool mapped = false;
    for (QDomElement child = subscription.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (!attributes::hasTag(child, QLatin1String("mapinfo"))
            || attributes::decimal(child, QStringLiteral("Which")) > kMaxOutput)
            continue;
        const int position = attributes::decimal(child, QStringLiteral("Pos"));
        if (position < 1 || position > entries) {
            qDebug() << "SetBinMap: ignored, Pos" << position << "is outside 1 to datCount"
                     << entries;
            continue;
        }
        if (allLogicChannelsUsed && logicChannel == 0) {
            qDebug() << "SetBinMap: ignored, Pos" << position << "needs a logic channel above 255";
            continue;
        }
        allLogicChannelsUsed = ++logicChannel == 0;
        command.setStart_Module(position);
        mapped = true;
    }
    return mapped;
}
