#pragma once

#include <QByteArray>
#include <QString>
#include <QtEndian>

namespace virtualboard {

/// Byte \a index, or 0 outside of \a bytes.
inline quint8 byteAt(const QByteArray &bytes, int index)
{
    return index >= 0 && index < bytes.size() ? quint8(bytes.at(index)) : quint8(0);
}

/// The 16-bit number at \a index, low byte first; bytes that are not there count as 0.
inline quint16 littleEndian16(const QByteArray &bytes, int index)
{
    const uchar raw[] = {byteAt(bytes, index), byteAt(bytes, index + 1)};
    return qFromLittleEndian<quint16>(raw);
}

/// The same, high byte first.
inline quint16 bigEndian16(const QByteArray &bytes, int index)
{
    return qbswap(littleEndian16(bytes, index));
}

/// The bytes as an unsigned number, high byte first; of more than eight bytes the last eight.
inline quint64 bigEndian(const QByteArray &bytes)
{
    quint64 value = 0;
    for (const char byte : bytes)
        value = value << 8 | quint8(byte);
    return value;
}

/// The bytes in hexadecimal, separated by blanks.
inline QString hexText(const QByteArray &bytes)
{
    return bytes.isEmpty() ? QStringLiteral("nothing") : QString::fromLatin1(bytes.toHex(' '));
}

/// \a value in hexadecimal with at least \a digits digits.
inline QString hexNumber(quint64 value, int digits)
{
    return QStringLiteral("%1").arg(value, digits, 16, QLatin1Char('0'));
}

/// Text from the wire: UTF-8 (and so ASCII) if it is that, else GBK if it is that, in which
/// configurations are often written, else Latin-1.
[[nodiscard]] QString wireText(const QByteArray &bytes);

} // namespace virtualboard
