#include "virtualboard/inputs/deviceinputs.h"

#include "virtualboard/wire/bytes.h"
#include "virtualboard/wire/goosemessage.h"

#include <algorithm>

namespace virtualboard {

namespace {

/// \param timeAllowedToLive ms
template <typename Time>
Time endOfLife(Time time, quint64 timeAllowedToLive)
{
    const Duration longest = Time::max() - time;
    return timeAllowedToLive > quint64(longest / 1ms)
        ? Time::max()
        : time + std::chrono::milliseconds(timeAllowedToLive);
}

void setBit(ActiveChannels &channels, int channel, bool on)
{
    quint64 &word = channels[std::size_t(channel) / 64];
    const quint64 bit = quint64(1) << channel % 64;
    word = on ? word | bit : word & ~bit;
}

} // namespace

template <typename Time>
DeviceInputs<Time>::DeviceInputs(const QVector<SubscriptionCommand> &subscriptions)
{
    for (const SubscriptionCommand &each : subscriptions) {
        SubscriptionCommand subscription = each;
        const int room = std::max(0, kLogicChannels - each.logicChannel);
        if (each.mappedPositions.size() > room) {
            m_reports << QStringLiteral("GOOSE subscription %1: %2 entries from logic channel %3 "
                                        "reach beyond channel %4; the rest is left out")
                             .arg(each.group)
                             .arg(each.mappedPositions.size())
                             .arg(each.logicChannel)
                             .arg(kLogicChannels - 1);
            subscription.mappedPositions = each.mappedPositions.mid(0, room);
        }
        for (int i = 0; i < int(subscription.mappedPositions.size()); ++i)
            setBit(m_subscribed, each.logicChannel + i, true);
        streamOf(each).subscriptions << subscription;
    }
}

template <typename Time>
typename DeviceInputs<Time>::Stream &
DeviceInputs<Time>::streamOf(const SubscriptionCommand &subscription)
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

template <typename Time>
QVector<InputAt<Time>> DeviceInputs<Time>::take(Time time, int port, const QByteArray &frame)
{
    QVector<InputAt<Time>> events;
    if (!GooseMessage::isGoose(frame))
        return events;
    const GooseMessage message(frame);
    for (Stream &stream : m_streams) {
        if (stream.appId != message.appId || (port != kAnyPort && port != stream.port))
            continue;
        if (stream.lostAt < time)
            lose(stream);
        if (!message.problems.isEmpty()) {
            report(stream, Damaged, QStringLiteral("damaged: ") + message.problems.first());
            continue;
        }
        stream.lostAt = endOfLife(time, message.timeAllowedToLive);
        for (const SubscriptionCommand &subscription : stream.subscriptions) {
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

template <typename Time>
void DeviceInputs<Time>::evaluate(const GooseMessage &message,
                                  const SubscriptionCommand &subscription, Time time,
                                  QVector<InputAt<Time>> &events)
{
    int channel = subscription.logicChannel;
    for (const int position : subscription.mappedPositions) {
        const bool isThere = position >= 1 && position <= message.entries.size();
        const bool on = isThere && binaryState(message.entries[position - 1]) == BinaryState::On;
        if (isThere && on != isActive(channel)) {
            setBit(m_active, channel, on);
            events << InputAt<Time>{time, on ? InputKind::ChannelOn : InputKind::ChannelOff,
                                    quint16(channel)};
        }
        ++channel;
    }
}

template <typename Time>
Time DeviceInputs<Time>::nextLoss() const
{
    Time next = kNever;
    for (const Stream &stream : m_streams)
        next = std::min(next, stream.lostAt);
    return next;
}

template <typename Time>
void DeviceInputs<Time>::expire(Time now)
{
    for (Stream &stream : m_streams) {
        if (stream.lostAt <= now && stream.lostAt != kNever)
            lose(stream);
    }
}

template <typename Time>
QStringList DeviceInputs<Time>::takeReports()
{
    QStringList reports;
    reports.swap(m_reports);
    return reports;
}

template <typename Time>
bool DeviceInputs<Time>::contains(const ActiveChannels &channels, int channel)
{
    return channel >= 0 && channel < kLogicChannels
        && (channels[std::size_t(channel) / 64] >> channel % 64 & 1) != 0;
}

template <typename Time>
void DeviceInputs<Time>::lose(Stream &stream)
{
    stream.lostAt = kNever;
    const bool last = stream.faults[Lost] == kReportedLosses - 1;
    report(stream, Lost,
           QStringLiteral("lost: timeAllowedtoLive has run out without another message")
               + QLatin1String(last ? "; later losses are not reported" : ""));
}

template <typename Time>
void DeviceInputs<Time>::report(Stream &stream, Fault fault, const QString &text)
{
    if (stream.faults[fault] >= (fault == Lost ? kReportedLosses : 1))
        return;
    ++stream.faults[fault];
    m_reports << QStringLiteral("GOOSE of APPID 0x%1 at light port %2: %3")
                     .arg(hexNumber(quint64(stream.appId), 4))
                     .arg(stream.port)
                     .arg(text);
}

template class DeviceInputs<WallTime>;
template class DeviceInputs<MonotonicTime>;

} // namespace virtualboard
