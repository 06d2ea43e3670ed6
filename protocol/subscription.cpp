#include "protocol/subscription.h"

#include "protocol/hexfield.h"

QByteArray Goose_command::data() const
{
    return hexfield::joined(head, GroupNUM, LightPort, AppId_Low, AppId_High, LogicCH_Low,
                            LogicCH_High, ChanelNum, Start_Module);
}

int Goose_command::setGroupNUM(int v)
{
    hexfield::setNumber(GroupNUM, v);
    return 0;
}

int Goose_command::setLightPort(int p)
{
    if (p < 0)
        return -1;
    hexfield::setByte(LightPort, 0,
                      ((p - 1) & 0x07) << 5 | (hexfield::byteAt(LightPort, 0) & 0x1f));
    return 0;
}

int Goose_command::setCurrentLigthGROUP(int g)
{
    if (g < 0)
        return -1;
    hexfield::setByte(LightPort, 0, (hexfield::byteAt(LightPort, 0) & 0xe0) | (g & 0x1f));
    return 0;
}

int Goose_command::setAppId(QString text)
{
    hexfield::setDecimalLowHigh(AppId_Low, AppId_High, text);
    return 1;
}

int Goose_command::setLogicCH(int c)
{
    if (c >= 0 && c <= hexfield::kMax16) {
        hexfield::setNumber(LogicCH_Low, c & 0xff);
        hexfield::setNumber(LogicCH_High, c >> 8);
    }
    return 0;
}

int Goose_command::setChanelNum(int n)
{
    const int result = hexfield::setLittleEndian16(ChanelNum, n);
    if (result == 0)
        Start_Module = QByteArray((n + 1) / 2, '\0');
    return result;
}

int Goose_command::setStart_Module(int pos)
{
    constexpr int kMapped = 4;
    if (pos < 1 || pos > hexfield::kMax16)
        return -1;
    const int index = (pos - 1) / 2;
    const bool lowNibble = pos % 2 == 1;
    const int other = hexfield::byteAt(Start_Module, index) & (lowNibble ? 0xf0 : 0x0f);
    hexfield::setByte(Start_Module, index, other | (lowNibble ? kMapped : kMapped << 4));
    return 0;
}
