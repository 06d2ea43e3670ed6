#include "protocol/svchannels.h"

#include "protocol/hexfield.h"

QByteArray SMV_CH_Command::data() const
{
    return hexfield::joined(head, LogicNUM, Property1, Property2, Property3, Property4, Spare);
}

int SMV_CH_Command::setLogicNUM(int v)
{
    hexfield::setNumber(LogicNUM, v);
    return 0;
}

int SMV_CH_Command::setProperty(int preset)
{
    if (preset == 1) {
        Property1 = QByteArrayLiteral("\x06");
        Property2 = QByteArrayLiteral("\x01\xff");
        Property3 = QByteArrayLiteral("\x7f");
        Property4 = QByteArrayLiteral("\xff");
    } else if (preset == 2) {
        Property1 = QByteArrayLiteral("\x05");
        Property2 = QByteArrayLiteral("\x22\xff");
        Property3 = QByteArrayLiteral("\x00");
        Property4 = QByteArrayLiteral("\x00");
    }
    return 0;
}

QByteArray SMV_CMB_Command::data() const
{
    return hexfield::joined(head, GroupNUM, LightPort, AppId_Low, AppId_High, Protocol,
                            StartLogicNUM, Chamount, ChannelEntries);
}

int SMV_CMB_Command::setGroupNUM(int v)
{
    hexfield::setNumber(GroupNUM, v);
    return 0;
}

int SMV_CMB_Command::setLightPort(int port)
{
    if (port < 0)
        return -1;
    const int portBits = int(uint(port) << 4 & 0xf0U);
    hexfield::setByte(LightPort, 0, (hexfield::byteAt(LightPort, 0) & 0x0f) | portBits);
    return 0;
}

int SMV_CMB_Command::setCurrentLigthGROUP(int group)
{
    if (group < 0)
        return -1;
    hexfield::setByte(LightPort, 0, (hexfield::byteAt(LightPort, 0) & 0xf0) | (group & 0xff));
    return 0;
}

int SMV_CMB_Command::setAppId(QString text)
{
    hexfield::setDecimalLowHigh(AppId_Low, AppId_High, text);
    return 1;
}

int SMV_CMB_Command::setProtocol(int v)
{
    hexfield::setNumber(Protocol, v);
    return 0;
}

int SMV_CMB_Command::setStartLogicNUM(int v)
{
    hexfield::setNumber(StartLogicNUM, v);
    return 0;
}

int SMV_CMB_Command::setChamount(int n)
{
    if (n < 0 || n > hexfield::kMax16)
        return -1;
    hexfield::setNumber(Chamount, n);
    const int missing = 2 * n - int(ChannelEntries.size());
    if (missing > 0)
        ChannelEntries.append(missing, '\0');
    else
        ChannelEntries.truncate(2 * n);
    return 0;
}

int SMV_CMB_Command::setProperty(int index, char value, bool used)
{
    constexpr int kUsed = 0x20;
    constexpr int kUnused = 0x1f;
    if (index < 0 || index > hexfield::kMax16)
        return -1;
    hexfield::setByte(ChannelEntries, 2 * index, used ? kUsed : kUnused);
    hexfield::setByte(ChannelEntries, 2 * index + 1, used ? value : 0);
    return 0;
}
