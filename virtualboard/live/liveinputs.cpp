#include "liveinputs.h"

#include "livecapture.h"
#include "liveclock.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace virtualboard {

namespace {

constexpr qint64 millisecond = 1'000'000; // ns
constexpr qint64 checkInterval = 100 * millisecond; // of the interfaces
constexpr int rememberedStreams = 1024;

bool isSame(const Subscription &a, const Subscription &b)
{
    return std::tie(a.group, a.lightPort, a.appId, a.logicChannel, a.entryCount, a.mappedPositions)
        == std::tie(b.group, b.lightPort, b.appId, b.logicChannel, b.entryCount, b.mappedPositions);
}

} // namespace

LiveInputs::LiveInputs(PacketPorts &ports, LiveCapture *capture, Report report)
    : m_ports(ports)
    , m_capture(capture)
    , m_report(std::move(report))
    , m_thread([this] { run(); })
{ }

LiveInputs::~LiveInputs()
{
    m_stopping = true;
    m_thread.join();
}

void LiveInputs::watch(const QVector<Subscription> &subscriptions)
{
    const std::lock_guard lock(m_mutex);
    if (!m_playing)
        subscribe(subscriptions);
}

ActiveChannels LiveInputs::beginSequence(const QVector<Subscription> &subscriptions)
{
    const std::lock_guard lock(m_mutex);
    subscribe(subscriptions);
    while (m_events.front())
        m_events.pop();
    m_playing = true;
    return m_inputs.activeChannels();
}

void LiveInputs::endSequence()
{
    const std::lock_guard lock(m_mutex);
    m_playing = false;
}

void LiveInputs::subscribe(const QVector<Subscription> &subscriptions)
{
    if (subscriptions.size() == m_subscriptions.size()
        && std::equal(subscriptions.begin(), subscriptions.end(), m_subscriptions.begin(), isSame))
        return;
    m_subscriptions = subscriptions;
    m_inputs = DeviceInputs(subscriptions);
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
    qint64 nextCheck = 0;
    while (!m_stopping) {
        const bool sound = m_ports.receive(
            patience(), [this](qint64 arrival, const QVector<int> &ports, const QByteArray &frame) {
                const std::lock_guard lock(m_mutex);
                m_lastTime = std::max(m_lastTime, arrival); // interfaces are read in turn
                if (m_capture && m_playing)
                    m_capture->hear(m_lastTime, frame);
                for (const int port : ports)
                    take({m_lastTime, port, frame});
            });
        QStringList reports;
        const qint64 now = monotonicTime();
        if (!sound || now >= nextCheck) {
            reports << m_ports.check();
            nextCheck = now + checkInterval;
        }
        {
            const std::lock_guard lock(m_mutex);
            m_inputs.expire(now);
            reports << m_inputs.takeReports();
            if (const quint64 lost = std::exchange(m_lost, 0))
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
    const qint64 untilLoss = m_inputs.nextLoss() - monotonicTime();
    return int(std::clamp<qint64>(untilLoss, 0, checkInterval - 1) / millisecond) + 1;
}

void LiveInputs::take(const Message &message)
{
    remember(message);
    const QVector<InputEvent> events = m_inputs.take(message.time, message.port, message.frame);
    for (const InputEvent &event : events) {
        if (m_playing && !m_events.push(event))
            ++m_lost;
    }
}

void LiveInputs::remember(const Message &message)
{
    constexpr int headerSize = 20; // both addresses, tag, EtherType, APPID
    const QByteArray key = message.frame.left(headerSize) + char(message.port);
    if (m_lastMessages.size() < rememberedStreams || m_lastMessages.contains(key))
        m_lastMessages.insert(key, message);
}

} // namespace virtualboard
