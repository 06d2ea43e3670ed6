#include "virtualboard/wire/goosemessage.h"

#include "virtualboard/wire/berreader.h"
#include "virtualboard/wire/bytes.h"

namespace virtualboard {

namespace {

constexpr int kHeaderSize = 8; // APPID, Length and two reserved words
constexpr quint8 kBooleanTag = 0x83;
constexpr quint8 kBitStringTag = 0x84;

int appIdOffset(const QByteArray &frame)
{
    return etherTypeOffset(frame) + 2;
}

quint64 number(BerReader &pdu, const BerElement &element)
{
    if (element.size < 1 || element.size > 8)
        pdu.problem(QStringLiteral("Number at offset %1: 1 to 8 bytes expected, %2 found.")
                        .arg(element.offset)
                        .arg(element.size));
    return bigEndian(pdu.contents(element));
}

} // namespace

bool GooseMessage::isGoose(const QByteArray &frame)
{
    const int begin = appIdOffset(frame);
    return frame.size() >= begin + 2 && bigEndian16(frame, begin - 2) == kEtherTypeGoose;
}

GooseMessage::GooseMessage(const QByteArray &frame)
{
    const int begin = appIdOffset(frame);
    header = frame.left(begin + 2);
    appId = bigEndian16(frame, begin);
    const int available = int(frame.size()) - begin;
    const int length = bigEndian16(frame, begin + 2);
    if (length < kHeaderSize || length > available) {
        problems << QStringLiteral("Length: %1 to %2 expected, %3 found.")
                        .arg(kHeaderSize)
                        .arg(available)
                        .arg(length);
        return;
    }
    BerReader apdu(frame, begin + kHeaderSize, begin + length, problems);
    const auto pdu = apdu.expect(0x61, "goosePdu", 0, length);
    apdu.expectEnd("goosePdu");
    if (pdu)
        readPdu(apdu.inside(*pdu));
}

void GooseMessage::readPdu(BerReader pdu)
{
    bool hasLife = false;
    bool hasData = false;
    quint64 announced = 0;
    while (const auto element = pdu.next()) {
        switch (element->tag) {
        case 0x80:
            gocbRef = QString::fromLatin1(pdu.contents(*element));
            break;
        case 0x81:
            timeAllowedToLive = number(pdu, *element);
            hasLife = true;
            break;
        case 0x83:
            goId = QString::fromLatin1(pdu.contents(*element));
            break;
        case 0x85:
            stNum = number(pdu, *element);
            break;
        case 0x8a:
            announced = number(pdu, *element);
            break;
        case 0xab:
            readEntries(pdu.inside(*element));
            hasData = true;
            break;
        default:
            break;
        }
    }
    if (!problems.isEmpty())
        return;
    if (!hasLife || !hasData)
        pdu.problem(QStringLiteral("%1 is missing.")
                        .arg(QLatin1String(hasData ? "timeAllowedtoLive" : "allData")));
    else if (announced != quint64(entries.size()))
        pdu.problem(QStringLiteral("numDatSetEntries: %1 announced, %2 found in allData.")
                        .arg(announced)
                        .arg(entries.size()));
}

void GooseMessage::readEntries(BerReader allData)
{
    entries.clear();
    while (const auto entry = allData.next())
        entries << GooseEntry{entry->tag, allData.contents(*entry), entry->offset};
}

BinaryState binaryState(const GooseEntry &entry)
{
    constexpr int kUnusedBits = 6; // of a double point; they come behind its two
    const QByteArray &value = entry.value;
    if (entry.tag == kBooleanTag && value.size() == 1)
        return byteAt(value, 0) != 0 ? BinaryState::On : BinaryState::Off;
    if (entry.tag != kBitStringTag || value.size() != 2 || byteAt(value, 0) != kUnusedBits)
        return BinaryState::None;
    constexpr BinaryState kStates[] = {BinaryState::Intermediate, BinaryState::Off, BinaryState::On,
                                       BinaryState::Bad};
    return kStates[byteAt(value, 1) >> kUnusedBits];
}

} // namespace virtualboard
