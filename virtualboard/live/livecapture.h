#pragma once

#include "virtualboard/live/liveclock.h"
#include "virtualboard/play/performer.h"
#include "virtualboard/play/playback.h"

#include <QByteArray>

#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace virtualboard {

class CaptureSink;

/// Bytes from one thread to one other, in records that are put and taken as a whole. Everything is
/// allocated, and touched, by the constructor.
class RecordQueue
{
public:
    /// \param capacity bytes, a power of two
    explicit RecordQueue(std::size_t capacity)
        : m_bytes(capacity)
    { }

    /// The writer's: false, and nothing changes, when less than \a reserve bytes would stay free.
    [[nodiscard]] bool put(const void *head, std::size_t headSize, const void *body,
                           std::size_t bodySize, std::size_t reserve = 0);
    /// The reader's: false when there is no record. Takes the next \a size bytes of it otherwise.
    [[nodiscard]] bool take(void *bytes, std::size_t size);

private:
    void copyIn(std::size_t at, const void *bytes, std::size_t size);

    std::vector<uchar> m_bytes;
    // Both only grow (and wrap): what is between them is in the queue.
    alignas(64) std::atomic<std::size_t> m_begin = 0;
    alignas(64) std::atomic<std::size_t> m_end = 0;
};

/// Writes a capture beside a live test: what is published, and what the device under test sends.
/// Two queues, and a thread that empties them into the file, in the order of time.
///
/// publish(), hear() and the notes never wait: what finds its queue full is left out, and counted.
/// The times of published frames are when they were sent.
class LiveCapture
{
public:
    /// \param sink used by the writing thread only, from now until the destructor returns
    /// \param prepare is called first by that thread
    LiveCapture(CaptureSink &sink, NoticeHandler report, const std::function<void()> &prepare);
    ~LiveCapture(); ///< returns when what is in the queues has been written

    /// \param offset which the time stamps in the file have until the next begin()
    void begin(const TestProgram &program, ClockOffset offset);
    /// For the publishing thread.
    void publish(MonotonicTime time, const OutgoingFrame *frames, int count);
    void note(MonotonicTime time, const Transition &transition);
    void noteInputs(MonotonicTime time, const RecordedInput *inputs, int count);
    /// For one other thread: a frame has come in.
    void hear(MonotonicTime time, const QByteArray &frame);
    /// The sequence has ended. When all of it is in the file, what is missing there is reported.
    void end();

private:
    enum Kind : quint16 { Begin, Frame, Note, Input, End };
    struct Head
    {
        MonotonicTime time;
        quint32 size = 0; ///< of the body
        Kind kind = Frame;
        quint16 port = 0;
    };
    struct Start
    {
        const TestProgram *program = nullptr; ///< a copy, which the writer deletes
        ClockOffset offset;
    };
    static constexpr std::size_t kLargestBody = 2048;
    static_assert(kLargestBody > kLargestFrame, "any frame fits");
    /// A queue, and the record that has been taken from it last.
    struct Source
    {
        explicit Source(std::size_t size)
            : queue(size)
        { }
        bool put(const Head &head, const void *body);
        bool look(); ///< whether there is a record, which is in the next two then
        Head head;
        std::array<uchar, kLargestBody> body;
        bool isFull = false;
        RecordQueue queue;
        std::atomic<quint64> leftOut = 0;
    };

    void write();
    void deliver(Source &source);
    void deliverEnd();
    void reportFailure();

    CaptureSink &m_sink;
    const NoticeHandler m_report;
    Source m_published;
    Source m_heard;
    ClockOffset m_offset; ///< the writer's
    bool m_failureReported = false; ///< the writer's
    std::atomic<bool> m_stopping = false;
    std::thread m_writer;
};

} // namespace virtualboard
