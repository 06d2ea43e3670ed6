/// \file
/// The only place where a text or a number becomes the bytes of a field.
///
/// A field is a QByteArray. Unless a function says otherwise it is big-endian and as wide as its
/// value needs, so a larger value widens the field and moves the later ones.
#pragma once

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <tuple>

namespace hexfield {

/// Largest value of the board's 16-bit fields, and the most entries that any table may hold.
constexpr int kMax16 = 0xffff;

/// Bytes of a hexadecimal text: digits are paired from the right, other characters are skipped.
QByteArray fromText(const QString &hex);

/// Number of bytes that fromText() would give and, up to four of them, their big-endian value; -1
/// for a text of more.
int shortNumber(const QString &hex, quint32 &value);

/// Sets \a field to the low \a width bytes of the number that a decimal text holds: 0 for a text
/// that holds none.
void setDecimal(QByteArray &field, const QString &text, int width);

/// The same with the low two bytes in a field each.
void setDecimalLowHigh(QByteArray &low, QByteArray &high, const QString &text);

/// Sets \a field to \a value in the fewest bytes, but at least \a minimumWidth; a negative value
/// takes eight.
void setNumber(QByteArray &field, qint64 value, int minimumWidth = 1);

/// Sets \a field to the decimal digits of \a value, two per byte, without its sign.
void setDecimalDigits(QByteArray &field, qint64 value);

/// Sets \a field to the low \a width bytes of \a value.
void setFixedWidth(QByteArray &field, quint64 value, int width);

/// Writes the low 16 bits of \a value to \a out, low byte first.
void putLittleEndian16(char *out, int value);

/// Sets \a field to \a value as two bytes, low byte first. Returns 0; -1 for a value outside 0 to
/// 65535, which changes nothing.
int setLittleEndian16(QByteArray &field, int value);

/// Sets \a field to the shortest definite BER form of \a length (ITU-T X.690, 8.1.3): 127 gives 7f,
/// 128 gives 81 80, 256 gives 82 01 00.
/// Returns 0; -1 for a negative length, which changes nothing.
int setBerLength(QByteArray &field, int length);

/// Sets a field of four bytes to the IEEE 754 single-precision \a value, low byte first. Returns 0;
/// -1 for a field of another size, which stays as it is.
int setFloat(QByteArray &field, float value);

/// Appends the low byte of \a value.
void appendByte(QByteArray &out, quint32 value);

/// Appends the low 16 bits of \a value, low byte first.
void appendLittleEndian16(QByteArray &out, quint32 value);

/// Appends \a value as IEEE 754 single precision, low byte first.
void appendFloat(QByteArray &out, float value);

/// Writes one byte, lengthening \a field with \a filler when it ends before \a index.
void setByte(QByteArray &field, int index, int value, char filler = '\0');

/// The byte at \a index as an unsigned number, 0 beyond the end.
int byteAt(const QByteArray &field, int index);

/// Total size of the given fields in bytes.
template <typename... Fields>
int sizeOf(const Fields &...fields)
{
    return int((fields.size() + ... + 0));
}

/// Appends the given fields to \a out in order.
template <typename... Fields>
void append(QByteArray &out, const Fields &...fields)
{
    const int start = sizeOf(out);
    out.resize(start + sizeOf(fields...));
    char *cursor = out.data() + start;
    ((cursor = std::copy(fields.constBegin(), fields.constEnd(), cursor)), ...);
}

/// Total size of a group of fields, made with std::tie().
template <typename... Fields>
int sizeOf(const std::tuple<Fields...> &group)
{
    return std::apply([](const auto &...fields) { return sizeOf(fields...); }, group);
}

/// Appends a group of fields to \a out in order.
template <typename... Fields>
void append(QByteArray &out, const std::tuple<Fields...> &group)
{
    std::apply([&out](const auto &...fields) { append(out, fields...); }, group);
}

/// The given fields in order as one byte string.
template <typename... Fields>
QByteArray joined(const Fields &...fields)
{
    QByteArray out;
    out.reserve(sizeOf(fields...));
    append(out, fields...);
    return out;
}

} // namespace hexfield
