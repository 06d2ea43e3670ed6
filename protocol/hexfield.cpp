#include "protocol/hexfield.h"

#include <QtEndian>

#include <algorithm>
#include <cstring>

namespace hexfield {

namespace {

/// Smallest number of bytes that holds \a value; at least one.
int bytesNeeded(quint64 value)
{
    int width = 1;
    while (value >>= 8)
        ++width;
    return width;
}

/// Value of a hexadecimal digit; above 15 for any other character.
quint32 nibbleOf(quint32 character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    const quint32 lower = character | 0x20;
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : 0x10;
}

/// The number that a decimal text holds, negative ones as two's complement; 0 for a text that holds
/// none.
quint64 decimal(const QString &text)
{
    return quint64(text.toLongLong());
}

} // namespace

QByteArray fromText(const QString &hex)
{
    return QByteArray::fromHex(hex.toLatin1());
}

int shortNumber(const QString &hex, quint32 &value)
{
    constexpr int kMaxDigits = 8;
    int digits = 0;
    value = 0;
    for (const QChar c : hex) {
        const quint32 nibble = nibbleOf(c.unicode());
        if (nibble > 0xf)
            continue;
        if (++digits > kMaxDigits)
            return -1;
        value = value << 4 | nibble;
    }
    return (digits + 1) / 2;
}

void setDecimal(QByteArray &field, const QString &text, int width)
{
    setFixedWidth(field, decimal(text), width);
}

void setDecimalLowHigh(QByteArray &low, QByteArray &high, const QString &text)
{
    const quint64 value = decimal(text);
    setFixedWidth(low, value, 1);
    setFixedWidth(high, value >> 8, 1);
}

void setNumber(QByteArray &field, qint64 value, int minimumWidth)
{
    const auto bits = quint64(value);
    setFixedWidth(field, bits, std::max(bytesNeeded(bits), minimumWidth));
}

void setDecimalDigits(QByteArray &field, qint64 value)
{
    // Read as hexadecimal, a decimal text packs its digits two per byte and drops the sign.
    field = QByteArray::fromHex(QByteArray::number(value));
}

void setFixedWidth(QByteArray &field, quint64 value, int width)
{
    field.resize(width);
    char *bytes = field.data();
    for (int i = width - 1; i >= 0; --i, value >>= 8)
        bytes[i] = char(value & 0xff);
}

void putLittleEndian16(char *out, int value)
{
    qToLittleEndian(quint16(value), out);
}

int setLittleEndian16(QByteArray &field, int value)
{
    if (value < 0 || value > kMax16)
        return -1;
    field.resize(2);
    putLittleEndian16(field.data(), value);
    return 0;
}

int setBerLength(QByteArray &field, int length)
{
    if (length < 0)
        return -1;
    const auto bits = quint64(length);
    if (length < 0x80) {
        setFixedWidth(field, bits, 1);
        return 0;
    }
    const int width = bytesNeeded(bits);
    const quint64 prefix = 0x80U + quint64(width);
    setFixedWidth(field, prefix << (8 * width) | bits, width + 1);
    return 0;
}

int setFloat(QByteArray &field, float value)
{
    if (field.size() != sizeof value)
        return -1;
    field.resize(0); // which keeps the room of a field of our own
    appendFloat(field, value);
    return 0;
}

void appendByte(QByteArray &out, quint32 value)
{
    out.append(char(value & 0xff));
}

void appendLittleEndian16(QByteArray &out, quint32 value)
{
    char bytes[2];
    putLittleEndian16(bytes, int(value & 0xffff));
    out.append(bytes, sizeof bytes);
}

void appendFloat(QByteArray &out, float value)
{
    quint32 bits = 0;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    char bytes[sizeof bits];
    qToLittleEndian(bits, bytes);
    out.append(bytes, sizeof bytes);
}

void setByte(QByteArray &field, int index, int value, char filler)
{
    const int missing = index + 1 - int(field.size());
    if (missing > 0)
        field.append(missing, filler);
    const char byte = char(value & 0xff);
    if (field.at(index) != byte) // or else a default value would be copied to be left as it is
        field[index] = byte;
}

int byteAt(const QByteArray &field, int index)
{
    return index < field.size() ? static_cast<unsigned char>(field.at(index)) : 0;
}

} // namespace hexfield
