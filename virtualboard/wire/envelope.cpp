#include "virtualboard/wire/envelope.h"

#include "virtualboard/wire/bytes.h"

namespace virtualboard {

namespace {

const QByteArray marker("\xa5\xa5\xa5\xa5", 4);
constexpr int kMarkerSize = 4;
constexpr int kHeaderSize = 9;
constexpr int kCheckSize = 2;

void checkHeader(const QByteArray &datagram, QStringList &problems)
{
    const QByteArray start = datagram.left(kMarkerSize);
    if (start != marker)
        problems << QStringLiteral("Marker: a5 a5 a5 a5 expected, %1 found.").arg(hexText(start));
    if (byteAt(datagram, 4) != 0)
        problems << QStringLiteral("Byte 4: 00 expected, %1 found.")
                        .arg(hexNumber(byteAt(datagram, 4), 2));

    const int expected = int(datagram.size()) - kHeaderSize;
    const int first = littleEndian16(datagram, 5);
    const int second = littleEndian16(datagram, 7);
    if (first != second)
        problems << QStringLiteral("Lengths: twice the same expected, %1 and %2 found.")
                        .arg(first)
                        .arg(second);
    if (first != expected)
        problems << QStringLiteral("First length: %1 expected from the datagram's size, %2 found.")
                        .arg(expected)
                        .arg(first);
    if (second != expected)
        problems << QStringLiteral("Second length: %1 expected from the datagram's size, %2 found.")
                        .arg(expected)
                        .arg(second);
}

void checkFrame(const QByteArray &frame, const QByteArray &found, QStringList &problems)
{
    if (frame.size() % 2 != 0)
        problems << QStringLiteral("Padding: an even number of frame bytes expected, %1 found.")
                        .arg(frame.size());

    quint8 expected[kCheckSize] = {0, 0};
    for (int i = 0; i < frame.size(); ++i)
        expected[i % kCheckSize] = quint8(expected[i % kCheckSize] ^ byteAt(frame, i));

    const char *const names[kCheckSize] = {"first", "second"};
    for (int i = 0; i < kCheckSize; ++i) {
        if (byteAt(found, i) != expected[i])
            problems << QStringLiteral("Check byte, %1: %2 expected, %3 found.")
                            .arg(QLatin1String(names[i]), hexNumber(expected[i], 2),
                                 hexNumber(byteAt(found, i), 2));
    }
}

} // namespace

Envelope openEnvelope(const QByteArray &datagram)
{
    Envelope result;
    if (datagram.size() < kEnvelopeSize) {
        result.problems << QStringLiteral("Size: at least %1 bytes expected, %2 found.")
                               .arg(kEnvelopeSize)
                               .arg(datagram.size());
        return result;
    }
    result.frame = datagram.mid(kHeaderSize, int(datagram.size()) - kEnvelopeSize);
    checkHeader(datagram, result.problems);
    checkFrame(result.frame, datagram.right(kCheckSize), result.problems);
    return result;
}

} // namespace virtualboard
