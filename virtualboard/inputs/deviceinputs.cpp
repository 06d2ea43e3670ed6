#include "deviceinputs.h"

#include "bytes.h"
#include "goosemessage.h"

#include <algorithm>

namespace virtualboard {

namespace {

qint64 endOfLife(qint64 time, quint64 timeAllowedToLive)
{
    constexpr qint64 never = DeviceInputs::never;
    constexpr qint64 nsPerMs = 1000000;
    if (timeAllowedToLive > quint64(never / nsPerMs))
        return never;
    const qint64 life = qint64(timeAllowedToLive) * nsPerMs;
    return time > never - life ? never : time + life;
}

void setBit(ActiveChannels &channels, int channel, bool on)
{
    quint64 &word = channels[std::size_t(channel) / 64];
    const quint64 bit = quint64(1) << channel % 64;
    word = on ? word | bit : word & ~bit;
}

} // namespace

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

QVector<InputEvent> DeviceInputs::take(qint64 time, int port, const QByteArray &frame)
{
    QVector<InputEvent> events;
    if (!GooseMessage::isGoose(frame))
        return events;
    const GooseMessage message(frame);
    for (Stream &stream : m_streams) {
        if (stream.appId != message.appId || (port != anyPort && port != stream.port))
            continue;
        if (stream.lostAt < time)
            lose(stream);
        if (!message.problems.isEmpty()) {
            report(stream, Damaged, QStringLiteral("damaged: ") + message.problems.first());
            continue;
        }
        stream.lostAt = endOfLife(time, message.timeAllowedToLive);
        for (const Subscription &subscription : stream.subscriptions) {
            if (message.entries.size() != subscription.entryCount)
                report(stream, OtherSize,
                       QStringLiteral("dataset of %1 entries expected, %2 found")
                           .arg(subscription.entryCount)
                           .arg(message.entries.size()));
            evaluate(message, subscription, time, events);
        }
    }
    return events;
}

void DeviceInputs::evaluate(const GooseMessage &message, const Subscription &subscription,
                            qint64 time, QVector<InputEvent> &events)
{
    int channel = subscription.logicChannel;
    for (const int position : subscription.mappedPositions) {
        const bool isThere = position >= 1 && position <= message.entries.size();
        const bool on = isThere && binaryState(message.entries[position - 1]) == BinaryState::On;
        if (isThere && on != isActive(channel)) {
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

bool DeviceInputs::contains(const ActiveChannels &channels, int channel)
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
