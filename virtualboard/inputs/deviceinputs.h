#pragma once

#include "virtualboard/play/playback.h"
#include "virtualboard/wire/commands.h"

#include <QByteArray>
#include <QStringList>
#include <QVector>

#include <array>

namespace virtualboard {

struct GooseMessage;

/// Watches the GOOSE messages of the device under test: turns them into inputs, by the
/// subscriptions, and notices when a stream stops.
///
/// A stream is what has an APPID at a light port; several subscriptions may share one. What comes
/// behind the Length of a message (padding, a redundancy trailer) is no part of it.
///
/// A stream has each kind of fault reported once, and its first #reportedLosses losses: the reports
/// cannot grow without bound, whatever comes in.
///
/// All times are of one clock, WallTime or MonotonicTime.
template <typename Time>
class DeviceInputs
{
public:
    static constexpr int kAnyPort = 0;
    static constexpr int kReportedLosses = 100; ///< of each stream
    static constexpr Time kNever = Time::max();

    /// Channels beyond the last one are reported and left out.
    explicit DeviceInputs(const QVector<SubscriptionCommand> &subscriptions);

    /// A frame has come in. Anything that is no subscribed GOOSE message is ignored; damaged ones
    /// are reported.
    /// \param time not before that of the frame before
    /// \param port light port, 1 to 8, or anyPort
    /// Returns the logic channels that have changed.
    QVector<InputAt<Time>> take(Time time, int port, const QByteArray &frame);

    /// When the next stream is lost unless a message comes; #kNever if none is awaited.
    Time nextLoss() const;
    /// Takes the streams as lost whose time has run out at \a now; reports them.
    void expire(Time now);

    bool isSubscribed(int channel) const { return contains(m_subscribed, channel); }
    bool isActive(int channel) const { return contains(m_active, channel); }
    ActiveChannels activeChannels() const { return m_active; }

    /// What there was to report since the last call, one line each.
    QStringList takeReports();

private:
    enum Fault { Damaged, OtherSize, Lost, FaultCount };

    struct Stream
    {
        int appId = 0;
        int port = 0;
        QVector<SubscriptionCommand> subscriptions;
        Time lostAt = kNever;
        std::array<int, FaultCount> faults = {}; ///< how often each was reported
    };

    static bool contains(const ActiveChannels &channels, int channel);
    Stream &streamOf(const SubscriptionCommand &subscription);
    void evaluate(const GooseMessage &message, const SubscriptionCommand &subscription, Time time,
                  QVector<InputAt<Time>> &events);
    void lose(Stream &stream);
    void report(Stream &stream, Fault fault, const QString &text);

    QVector<Stream> m_streams;
    ActiveChannels m_subscribed = {}; ///< those that a subscription feeds
    ActiveChannels m_active = {};
    QStringList m_reports;
};

} // namespace virtualboard
