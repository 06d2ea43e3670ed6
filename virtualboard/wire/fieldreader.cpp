#include "virtualboard/wire/fieldreader.h"

#include "virtualboard/wire/bytes.h"

namespace virtualboard {

int FieldReader::byte(const char *field)
{
    return byteAt(bytes(1, field), 0);
}

int FieldReader::word(const char *field)
{
    return littleEndian16(bytes(2, field), 0);
}

int FieldReader::wordBig(const char *field)
{
    return bigEndian16(bytes(2, field), 0);
}

float FieldReader::real(const char *field)
{
    static_assert(sizeof(float) == 4, "single precision expected");
    const QByteArray raw = bytes(sizeof(float), field);
    return m_truncated ? 0 : qFromLittleEndian<float>(raw.constData());
}

QByteArray FieldReader::bytes(int size, const char *field)
{
    if (m_truncated)
        return {};
    if (size > remaining()) {
        m_truncated = true;
        problem(QStringLiteral("Truncated: %1 needs %2 byte(s) at offset %3, %4 found.")
                    .arg(QLatin1String(field))
                    .arg(size)
                    .arg(m_position)
                    .arg(remaining()));
        size = remaining();
    }
    QByteArray result = m_frame.mid(m_position, size);
    m_position += size;
    return result;
}

void FieldReader::fixed(const QByteArray &expected, const char *field)
{
    const int start = m_position;
    const QByteArray found = bytes(int(expected.size()), field);
    if (!m_truncated && found != expected)
        problem(QStringLiteral("Fixed bytes at offset %1 (%2): %3 expected, %4 found.")
                    .arg(start)
                    .arg(QLatin1String(field), hexText(expected), hexText(found)));
}

void FieldReader::finish()
{
    if (m_truncated || remaining() == 0)
        return;
    const bool padByte = remaining() == 1 && m_position % 2 == 1;
    if (!padByte)
        problem(QStringLiteral("Surplus: the frame ends at offset %1, %2 more byte(s) found.")
                    .arg(m_position)
                    .arg(remaining()));
    else if (byteAt(m_frame, m_position) != 0)
        problem(QStringLiteral("Pad byte at offset %1: 00 expected, %2 found.")
                    .arg(m_position)
                    .arg(hexNumber(byteAt(m_frame, m_position), 2)));
}

} // namespace virtualboard
