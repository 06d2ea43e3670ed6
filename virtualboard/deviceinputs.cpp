#include "deviceinputs.h"

#include "berreader.h"
#include "bytes.h"

#include <algorithm>

namespace virtualboard {

namespace {

constexpr int typeOffset = 12; // behind both MAC addresses
constexpr quint16 tpid8021Q = 0x8100;
constexpr int headerSize = 8; // APPID, Length and two reserved words

quint16 wordAt(const QByteArray &frame, int index)
{
    return quint16(byteAt(frame, index) << 8 | byteAt(frame, index + 1));
}

int appIdOffset(const QByteArray &frame)
{
    return typeOffset + (wordAt(frame, typeOffset) == tpid8021Q ? 4 : 0) + 2;
}

qint64 endOfLife(qint64 time, quint64 timeAllowedToLive)
{
    constexpr qint64 never = DeviceInputs::never;
    constexpr qint64 nsPerMs = 1000000;
    if (timeAllowedToLive > quint64(never / nsPerMs))
        return never;
    const qint64 life = qint64(timeAllowedToLive) * nsPerMs;
    return time > never - life ? never : time + life;
}

void setBit(std::array<quint64, logicChannels / 64> &channels, int channel, bool on)
{
    quint64 &word = channels[std::size_t(channel) / 64];
    const quint64 bit = quint64(1) << channel % 64;
    word = on ? word | bit : word & ~bit;
}

} // namespace

/**
 * What counts in a message of a device under test.
 *
 * decodeEthernetFrame() expects the form of a template, with every element in it and counters of
 * four bytes. A device may leave elements out that have a default, encodes integers as short as
 * they are (IEC 61850-8-1, Annex A; ITU-T X.690, 8.3), and may have structures in its dataset.
 */
struct DeviceInputs::Message
{
    explicit Message(const QByteArray &bytes);

    bool isActive(const BerElement &entry) const;

    QByteArray frame;
    QStringList problems; ///< empty when the message is sound
    quint64 timeAllowedToLive = 0; ///< ms
    QVector<BerElement> entries;

private:
    void readPdu(BerReader pdu);
    quint64 number(BerReader &pdu, const BerElement &element);
    void readEntries(BerReader allData);
};

DeviceInputs::Message::Message(const QByteArray &bytes)
    : frame(bytes)
{
    const int begin = appIdOffset(frame);
    const int available = int(frame.size()) - begin;
    const int length = wordAt(frame, begin + 2);
    if (length < headerSize || length > available) {
        problems << QStringLiteral("Length: %1 to %2 expected, %3 found.")
                        .arg(headerSize)
                        .arg(available)
                        .arg(length);
        return;
    }
    BerReader apdu(frame, begin + headerSize, begin + length, problems);
    const auto pdu = apdu.expect(0x61, "goosePdu", 0, length);
    apdu.expectEnd("goosePdu");
    if (pdu)
        readPdu(apdu.inside(*pdu));
}

void DeviceInputs::Message::readPdu(BerReader pdu)
{
    bool hasLife = false;
    bool hasData = false;
    quint64 announced = 0;
    while (const auto element = pdu.next()) {
        if (element->tag == 0x81) {
            timeAllowedToLive = number(pdu, *element);
            hasLife = true;
        } else if (element->tag == 0x8a) {
            announced = number(pdu, *element);
        } else if (element->tag == 0xab) {
            readEntries(pdu.inside(*element));
            hasData = true;
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

quint64 DeviceInputs::Message::number(BerReader &pdu, const BerElement &element)
{
    if (element.size < 1 || element.size > 8)
        pdu.problem(QStringLiteral("Number at offset %1: 1 to 8 bytes expected, %2 found.")
                        .arg(element.offset)
                        .arg(element.size));
    return bigEndian(pdu.contents(element));
}

void DeviceInputs::Message::readEntries(BerReader allData)
{
    entries.clear();
    while (const auto entry = allData.next())
        entries << *entry;
}

/// ISO 9506-2: a boolean has one byte; a bit string begins with the number of unused bits, so that
/// a double point (IEC 61850-8-1, 8.1.3) is 06 and a byte whose two highest bits count.
bool DeviceInputs::Message::isActive(const BerElement &entry) const
{
    const quint8 first = byteAt(frame, entry.offset);
    if (entry.tag == 0x83)
        return entry.size == 1 && first != 0;
    return entry.tag == 0x84 && entry.size == 2 && first == 6
        && (byteAt(frame, entry.offset + 1) & 0xc0) == 0x80;
}

DeviceInputs::DeviceInputs(const QVector<Subscription> &subscriptions)
{
    for (const Subscription &each : subscriptions) {
        Subscription subscription = each;
        const int room = std::max(0, logicChannels - each.logicChannel);
        if (each.mappedPositions.size() > room) {
            m_reports << QStringLiteral("GOOSE subscription %1: %2 entries from logic channel %3 "
                                        "reach beyond channel %4; the rest is left out")
                             .arg(each.group)
                             .arg(each.mappedPositions.size())
                             .arg(each.logicChannel)
                             .arg(logicChannels - 1);
            subscription.mappedPositions = each.mappedPositions.mid(0, room);
        }
        for (int i = 0; i < int(subscription.mappedPositions.size()); ++i)
            setBit(m_subscribed, each.logicChannel + i, true);
        streamOf(each).subscriptions << subscription;
    }
}

DeviceInputs::Stream &DeviceInputs::streamOf(const Subscription &subscription)
{
    for (Stream &stream : m_streams) {
        if (stream.appId == subscription.appId && stream.port == subscription.lightPort)
            return stream;
    }
    Stream stream;
    stream.appId = subscription.appId;
    stream.port = subscription.lightPort;
    m_streams << stream;
    return m_streams.last();
}

bool DeviceInputs::isGoose(const QByteArray &frame)
{
    const int begin = appIdOffset(frame);
    return frame.size() >= begin + 2 && wordAt(frame, begin - 2) == etherTypeGoose;
}

QVector<InputEvent> DeviceInputs::take(qint64 time, int port, const QByteArray &frame)
{
    QVector<InputEvent> events;
    if (!isGoose(frame))
        return events;
    const int appId = wordAt(frame, appIdOffset(frame));
    std::optional<Message> message;
    for (Stream &stream : m_streams) {
        if (stream.appId != appId || (port != anyPort && port != stream.port))
            continue;
        if (stream.lostAt < time)
            lose(stream);
        if (!message)
            message.emplace(frame);
        if (!message->problems.isEmpty()) {
            report(stream, Damaged, QStringLiteral("damaged: ") + message->problems.first());
            continue;
        }
        stream.lostAt = endOfLife(time, message->timeAllowedToLive);
        for (const Subscription &subscription : stream.subscriptions) {
            if (message->entries.size() != subscription.entryCount)
                report(stream, OtherSize,
                       QStringLiteral("dataset of %1 entries expected, %2 found")
                           .arg(subscription.entryCount)
                           .arg(message->entries.size()));
            evaluate(*message, subscription, time, events);
        }
    }
    return events;
}

void DeviceInputs::evaluate(const Message &message, const Subscription &subscription, qint64 time,
                            QVector<InputEvent> &events)
{
    int channel = subscription.logicChannel;
    for (const int position : subscription.mappedPositions) {
        const bool isThere = position >= 1 && position <= message.entries.size();
        if (isThere && message.isActive(message.entries[position - 1]) != isActive(channel)) {
            const bool on = !isActive(channel);
            setBit(m_active, channel, on);
            events << InputEvent{time, on ? InputEvent::ChannelOn : InputEvent::ChannelOff,
                                 quint16(channel)};
        }
        ++channel;
    }
}

qint64 DeviceInputs::nextLoss() const
{
    qint64 next = never;
    for (const Stream &stream : m_streams)
        next = std::min(next, stream.lostAt);
    return next;
}

void DeviceInputs::expire(qint64 now)
{
    for (Stream &stream : m_streams) {
        if (stream.lostAt <= now && stream.lostAt != never)
            lose(stream);
    }
}

QStringList DeviceInputs::takeReports()
{
    QStringList reports;
    reports.swap(m_reports);
    return reports;
}

bool DeviceInputs::contains(const Channels &channels, int channel)
{
    return channel >= 0 && channel < logicChannels
        && (channels[std::size_t(channel) / 64] >> channel % 64 & 1) != 0;
}

void DeviceInputs::lose(Stream &stream)
{
    stream.lostAt = never;
    const bool last = stream.faults[Lost] == reportedLosses - 1;
    report(stream, Lost,
           QStringLiteral("lost: timeAllowedtoLive has run out without another message")
               + QLatin1String(last ? "; later losses are not reported" : ""));
}

void DeviceInputs::report(Stream &stream, Fault fault, const QString &text)
{
    if (stream.faults[fault] >= (fault == Lost ? reportedLosses : 1))
        return;
    ++stream.faults[fault];
    m_reports << QStringLiteral("GOOSE of APPID 0x%1 at light port %2: %3")
                     .arg(hexNumber(quint64(stream.appId), 4))
                     .arg(stream.port)
                     .arg(text);
}

} // namespace virtualboard
