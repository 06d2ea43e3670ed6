#include "virtualboard/live/liveinputs.h"

#include "virtualboard/live/livecapture.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace virtualboard {

namespace {

constexpr Duration kCheckInterval = 100ms; // of the interfaces
constexpr int kRememberedStreams = 1024;

bool isSame(const SubscriptionCommand &a, const SubscriptionCommand &b)
{
    return std::tie(a.group, a.lightPort, a.appId, a.logicChannel, a.entryCount, a.mappedPositions)
        == std::tie(b.group, b.lightPort, b.appId, b.logicChannel, b.entryCount, b.mappedPositions);
}

} // namespace

LiveInputs::LiveInputs(PacketPorts &ports, LiveCapture *capture, NoticeHandler report,
                       const std::function<void()> &prepare)
    : m_ports(ports)
    , m_capture(capture)
    , m_report(std::move(report))
    , m_thread([this, prepare] {
        prepare();
        run();
    })
{ }

LiveInputs::~LiveInputs()
{
    m_stopping = true;
    m_thread.join();
}

void LiveInputs::watch(const QVector<SubscriptionCommand> &subscriptions)
{
    const std::lock_guard lock(m_mutex);
    if (!m_playing)
        subscribe(subscriptions);
}

ActiveChannels LiveInputs::beginSequence(const QVector<SubscriptionCommand> &subscriptions)
{
    const std::lock_guard lock(m_mutex);
    subscribe(subscriptions);
    while (m_events.pop()) { }
    m_playing = true;
    return m_inputs.activeChannels();
}

void LiveInputs::endSequence()
{
    const std::lock_guard lock(m_mutex);
    m_playing = false;
}

void LiveInputs::subscribe(const QVector<SubscriptionCommand> &subscriptions)
{
    if (subscriptions.size() == m_subscriptions.size()
        && std::equal(subscriptions.begin(), subscriptions.end(), m_subscriptions.begin(), isSame))
        return;
    m_subscriptions = subscriptions;
    m_inputs = DeviceInputs<MonotonicTime>(subscriptions);
    QVector<Message> messages;
    for (const Message &message : std::as_const(m_lastMessages))
        messages << message;
    std::sort(messages.begin(), messages.end(),
              [](const Message &a, const Message &b) { return a.time < b.time; });
    for (const Message &message : std::as_const(messages))
        m_inputs.take(message.time, message.port, message.frame);
}

void LiveInputs::run()
{
    MonotonicTime nextCheck;
    while (!m_stopping) {
        const bool sound = m_ports.receive(
            patience(),
            [this](MonotonicTime arrival, const QVector<int> &ports, const QByteArray &frame) {
                const std::lock_guard lock(m_mutex);
                m_lastTime = std::max(m_lastTime, arrival); // interfaces are read in turn
                if (m_capture && m_playing)
                    m_capture->hear(m_lastTime, frame);
                for (const int port : ports)
                    take({m_lastTime, port, frame});
            });
        QStringList reports;
        const MonotonicTime now = MonotonicClock::now();
        if (!sound || now >= nextCheck) {
            reports << m_ports.check();
            nextCheck = now + kCheckInterval;
        }
        {
            const std::lock_guard lock(m_mutex);
            m_inputs.expire(now);
            reports << m_inputs.takeReports();
            const quint64 losses = m_losses;
            if (const quint64 lost = losses - std::exchange(m_reportedLosses, losses); lost > 0)
                reports << QStringLiteral("%1 inputs were lost, too many came at once.").arg(lost);
        }
        for (const QString &line : std::as_const(reports))
            m_report(line);
    }
}

/// How long to wait for frames, in ms.
int LiveInputs::patience()
{
    const std::lock_guard lock(m_mutex);
    const Duration untilLoss = m_inputs.nextLoss() - MonotonicClock::now();
    return int(std::clamp(untilLoss, Duration(0), kCheckInterval - 1ns) / 1ms) + 1;
}

void LiveInputs::take(const Message &message)
{
    remember(message);
    const auto events = m_inputs.take(message.time, message.port, message.frame);
    for (const InputAt<MonotonicTime> &event : events) {
        if (m_playing && !m_events.try_enqueue(event))
            ++m_losses;
    }
}

void LiveInputs::remember(const Message &message)
{
    constexpr int kHeaderSize = 20; // both addresses, tag, EtherType, APPID
    const QByteArray key = message.frame.left(kHeaderSize) + char(message.port);
    if (m_lastMessages.size() < kRememberedStreams || m_lastMessages.contains(key))
        m_lastMessages.insert(key, message);
}

} // namespace virtualboard
