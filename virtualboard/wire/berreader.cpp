#include "virtualboard/wire/berreader.h"

#include "virtualboard/wire/bytes.h"

namespace virtualboard {

std::optional<BerElement> BerReader::next()
{
    if (atEnd())
        return std::nullopt;
    BerElement element;
    element.tag = byteAt(m_frame, m_position);
    constexpr int kSeveralBytes = 0x1f;
    if ((element.tag & kSeveralBytes) == kSeveralBytes) {
        problem(QStringLiteral("BER tag at offset %1: one byte expected, %2 found.")
                    .arg(m_position)
                    .arg(hexNumber(element.tag, 2)));
        return std::nullopt;
    }
    ++m_position;
    const std::optional<int> size = length();
    if (!size)
        return std::nullopt;
    element.offset = m_position;
    element.size = *size;
    m_position += *size;
    return element;
}

std::optional<int> BerReader::length()
{
    const int start = m_position;
    const int available = m_end - start;
    const int first = byteAt(m_frame, start);
    const int more = available > 0 && first >= 0x80 ? first - 0x80 : 0;
    constexpr int kMostBytes = 3; // more than any frame needs
    const bool indefinite = available > 0 && first == 0x80;
    if (available < 1 + more || indefinite || more > kMostBytes) {
        problem(QStringLiteral("BER length at offset %1: definite length expected, %2 found.")
                    .arg(start)
                    .arg(hexText(m_frame.mid(start, qBound(0, available, 1 + kMostBytes)))));
        return std::nullopt;
    }
    const int size = more == 0 ? first : int(bigEndian(m_frame.mid(start + 1, more)));
    const int shortest = size < 0x80 ? 0 : size < 0x100 ? 1 : size < 0x10000 ? 2 : 3;
    if (more != shortest) {
        problem(QStringLiteral("BER length at offset %1: shortest form expected, %2 found.")
                    .arg(start)
                    .arg(hexText(m_frame.mid(start, 1 + more))));
        return std::nullopt;
    }
    m_position += 1 + more;
    if (size > m_end - m_position) {
        problem(QStringLiteral("BER length at offset %1: at most %2 byte(s) expected, %3 found.")
                    .arg(start)
                    .arg(m_end - m_position)
                    .arg(size));
        return std::nullopt;
    }
    return size;
}

std::optional<BerElement> BerReader::expect(quint8 tag, const char *name, int minimum, int maximum)
{
    const int start = m_position;
    const bool wasAtEnd = atEnd();
    const int found = byteAt(m_frame, start);
    if (wasAtEnd || found != tag) {
        problem(QStringLiteral("%1 at offset %2: tag %3 expected, %4 found.")
                    .arg(QLatin1String(name))
                    .arg(start)
                    .arg(hexNumber(tag, 2),
                         wasAtEnd ? QStringLiteral("the end") : hexNumber(quint64(found), 2)));
        return std::nullopt;
    }
    const std::optional<BerElement> element = next();
    if (element && (element->size < minimum || element->size > maximum)) {
        const QString range = minimum == maximum
            ? QString::number(minimum)
            : QStringLiteral("%1 to %2").arg(minimum).arg(maximum);
        problem(QStringLiteral("%1 at offset %2: %3 byte(s) expected, %4 found.")
                    .arg(QLatin1String(name))
                    .arg(element->offset)
                    .arg(range)
                    .arg(element->size));
        return std::nullopt;
    }
    return element;
}

void BerReader::expectEnd(const char *name)
{
    if (!atEnd())
        problem(QStringLiteral("%1: end expected at offset %2, %3 more byte(s) found.")
                    .arg(QLatin1String(name))
                    .arg(m_position)
                    .arg(m_end - m_position));
}

void BerReader::problem(const QString &sentence)
{
    m_problems << sentence;
    m_position = m_end;
}

} // namespace virtualboard
