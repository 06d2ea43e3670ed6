#pragma once

#include "virtualboard/inputs/deviceinputs.h"
#include "virtualboard/live/packetports.h"
#include "virtualboard/play/performer.h"

#include <QByteArray>
#include <QMap>
#include <QVector>

#include <array>
#include <atomic>
#include <mutex>
#include <thread>

#include <readerwriterqueue.h>

namespace virtualboard {

class LiveCapture;

/// From one thread to one other; try_enqueue() never allocates.
using LiveInputQueue = moodycamel::ReaderWriterQueue<InputAt<MonotonicTime>>;

/// Receives the GOOSE messages of the device under test, in a thread of its own, from construction
/// to destruction.
///
/// Remembers the last message of every stream, subscribed or not: so a subscription knows at once
/// what is active, however rarely its device repeats a message.
class LiveInputs
{
public:
    /// \param capture gets what comes in during a sequence; null: none
    /// \param prepare is called first by the thread
    LiveInputs(PacketPorts &ports, LiveCapture *capture, NoticeHandler report,
               const std::function<void()> &prepare);
    ~LiveInputs();

    /// These subscriptions are in force from now on. Without effect during a sequence.
    void watch(const QVector<SubscriptionCommand> &subscriptions);
    /// From now on, inputs of these subscriptions are queued. Returns which channels are active
    /// already. Whoever reads the queue must not do so meanwhile.
    ActiveChannels beginSequence(const QVector<SubscriptionCommand> &);
    void endSequence();

    /// Of the sequence.
    LiveInputQueue &events() { return m_events; }
    /// Inputs that found the queue full, and GOOSE messages that the system dropped, since
    /// construction; for any thread. Counts a loss before any input that came after it is queued.
    quint64 losses() const { return m_losses.load() + m_ports.losses(); }
    /// Counts and reports an input that was lost on another way to the player; for any thread.
    void countLoss() { ++m_losses; }
    /// To set how it is scheduled.
    std::thread &thread() { return m_thread; }

private:
    struct Message
    {
        MonotonicTime time;
        int port = 0;
        QByteArray frame;
    };

    void run();
    int patience();
    void take(const Message &message);
    void subscribe(const QVector<SubscriptionCommand> &subscriptions);
    void remember(const Message &message);

    PacketPorts &m_ports;
    LiveCapture *const m_capture;
    const NoticeHandler m_report;
    LiveInputQueue m_events{4096};

    std::mutex m_mutex; ///< for what follows
    QVector<SubscriptionCommand> m_subscriptions;
    DeviceInputs<MonotonicTime> m_inputs{{}};
    bool m_playing = false;
    quint64 m_reportedLosses = 0; ///< of m_losses
    MonotonicTime m_lastTime;
    QMap<QByteArray, Message> m_lastMessages; ///< by port, addresses, EtherType and APPID

    std::atomic<quint64> m_losses = 0; ///< all but those of the interfaces
    std::atomic<bool> m_stopping = false;
    std::thread m_thread;
};

} // namespace virtualboard
