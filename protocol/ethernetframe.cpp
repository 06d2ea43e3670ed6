#include "protocol/ethernetframe.h"

namespace ethernetframe {

QByteArray macAddress(const QString &text)
{
    return hexfield::fromText(text); // skips the hyphens
}

bool setVlanId(QByteArray &tci, const QString &hex)
{
    bool ok = false;
    const uint id = hex.toUInt(&ok, 16) & 0xfffU;
    const uint upperBits = uint(hexfield::byteAt(tci, 0)) & 0xf0U;
    hexfield::setByte(tci, 0, int(upperBits | id >> 8));
    hexfield::setByte(tci, 1, int(id & 0xffU));
    return ok;
}

bool setPriority(QByteArray &tci, const QString &hex)
{
    bool ok = false;
    const uint priority = hex.toUInt(&ok, 16) & 0x07U;
    const uint lowerBits = uint(hexfield::byteAt(tci, 0)) & 0x1fU;
    hexfield::setByte(tci, 0, int(priority << 5 | lowerBits));
    return ok;
}

QByteArray portSelector(int port)
{
    // Unsigned, so that the smallest int has a predecessor too.
    const uint portBits = (uint(port) - 1U) & 0x07U;
    QByteArray selector(2, '\0');
    selector[0] = char(portBits << 2 | 1U);
    return selector;
}

void setLength(QByteArray &field, int reservedAndApdu)
{
    constexpr int kAppIdAndLength = 4;
    if (reservedAndApdu >= -kAppIdAndLength
        && reservedAndApdu <= hexfield::kMax16 - kAppIdAndLength)
        hexfield::setFixedWidth(field, quint64(reservedAndApdu + kAppIdAndLength), 2);
}

void setFrameLength(QByteArray &field, int frameSize)
{
    hexfield::setLittleEndian16(field, frameSize); // refuses one above 65535
}

} // namespace ethernetframe
