#include "virtualboard/live/livecapture.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/play/testprogram.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace virtualboard {

namespace {

/// Half a second of 64 streams with 8 channels at 4000 frames a second.
constexpr std::size_t kPublishedSize = 32 << 20;
constexpr std::size_t kHeardSize = 4 << 20;
constexpr std::size_t kReserve = 64 << 10; // for all but frames
constexpr Duration kNap = 5ms;
constexpr Duration kBetweenLooks = 1s; // whether the file is still there
/// After that, a frame that has come in stands in its queue for sure, or nearly so.
constexpr Duration kSettling = 50ms;

} // namespace

void RecordQueue::copyIn(std::size_t at, const void *bytes, std::size_t size)
{
    const std::size_t begin = at & (m_bytes.size() - 1);
    const std::size_t first = std::min(size, m_bytes.size() - begin);
    std::memcpy(m_bytes.data() + begin, bytes, first);
    if (size > first)
        std::memcpy(m_bytes.data(), static_cast<const uchar *>(bytes) + first, size - first);
}

bool RecordQueue::put(const void *head, std::size_t headSize, const void *body,
                      std::size_t bodySize, std::size_t reserve)
{
    const std::size_t end = m_end.load(std::memory_order_relaxed);
    const std::size_t used = end - m_begin.load(std::memory_order_acquire);
    if (headSize + bodySize + reserve > m_bytes.size() - used)
        return false;
    copyIn(end, head, headSize);
    if (body) // some records have none
        copyIn(end + headSize, body, bodySize);
    m_end.store(end + headSize + bodySize, std::memory_order_release);
    return true;
}

bool RecordQueue::take(void *bytes, std::size_t size)
{
    const std::size_t at = m_begin.load(std::memory_order_relaxed);
    if (m_end.load(std::memory_order_acquire) - at < size)
        return false;
    const std::size_t begin = at & (m_bytes.size() - 1);
    const std::size_t first = std::min(size, m_bytes.size() - begin);
    std::memcpy(bytes, m_bytes.data() + begin, first);
    if (size > first)
        std::memcpy(static_cast<uchar *>(bytes) + first, m_bytes.data(), size - first);
    m_begin.store(at + size, std::memory_order_release);
    return true;
}

/// Frames leave room for what the others mean nothing without.
bool LiveCapture::Source::put(const Head &next, const void *content)
{
    const bool fits = next.size <= kLargestBody
        && queue.put(&next, sizeof next, content, next.size, next.kind == Frame ? kReserve : 0);
    if (!fits)
        leftOut.fetch_add(1, std::memory_order_relaxed);
    return fits;
}

bool LiveCapture::Source::look()
{
    isFull = isFull || (queue.take(&head, sizeof head) && queue.take(body.data(), head.size));
    return isFull;
}

LiveCapture::LiveCapture(CaptureSink &sink, NoticeHandler report,
                         const std::function<void()> &prepare)
    : m_sink(sink)
    , m_report(std::move(report))
    , m_published(kPublishedSize)
    , m_heard(kHeardSize)
    , m_writer([this, prepare] {
        prepare();
        write();
    })
{ }

LiveCapture::~LiveCapture()
{
    m_stopping = true;
    m_writer.join();
}

void LiveCapture::begin(const TestProgram &program, ClockOffset offset)
{
    const Start start = {new TestProgram(program), offset};
    if (!m_published.put({MonotonicClock::now(), sizeof start, Begin, 0}, &start))
        delete start.program;
}

void LiveCapture::publish(MonotonicTime time, const OutgoingFrame *frames, int count)
{
    for (int i = 0; i < count; ++i)
        m_published.put({time, quint32(frames[i].size), Frame, quint16(frames[i].port)},
                        frames[i].bytes);
}

void LiveCapture::note(MonotonicTime time, const Transition &transition)
{
    m_published.put({time, sizeof transition, Note, 0}, &transition);
}

void LiveCapture::noteInputs(MonotonicTime time, const RecordedInput *inputs, int count)
{
    for (int i = 0; i < count; ++i)
        m_published.put({time, sizeof inputs[i], Input, 0}, &inputs[i]);
}

void LiveCapture::hear(MonotonicTime time, const QByteArray &frame)
{
    m_heard.put({time, quint32(frame.size()), Frame, 0}, frame.constData());
}

void LiveCapture::end()
{
    m_published.put({MonotonicClock::now(), 0, End, 0}, nullptr);
}

void LiveCapture::write()
{
    MonotonicTime nextLook = MonotonicClock::now() + kBetweenLooks;
    while (true) {
        const bool isLast = m_stopping; // what has been put before that, is still written
        const MonotonicTime settled = MonotonicClock::now() - kSettling;
        while (m_published.look() && (isLast || m_published.head.time <= settled)) {
            while (m_heard.look() && m_heard.head.time <= m_published.head.time)
                deliver(m_heard);
            deliver(m_published);
        }
        if (isLast)
            return;
        if (MonotonicClock::now() >= nextLook) {
            (void)m_sink.flush(); // also looks for the file
            reportFailure();
            nextLook = MonotonicClock::now() + kBetweenLooks;
        }
        std::this_thread::sleep_for(kNap);
    }
}

void LiveCapture::deliver(Source &source)
{
    const Head &head = source.head;
    const uchar *const body = source.body.data();
    if (head.kind == Begin) {
        Start start;
        std::memcpy(&start, body, sizeof start);
        m_offset = start.offset;
        m_sink.begin(*start.program);
        delete start.program;
    } else if (head.kind == Frame) {
        const OutgoingFrame frame = {body, int(head.size), head.port};
        m_sink.publish(m_offset.wall(head.time), &frame, 1);
    } else if (head.kind == Note) {
        Transition transition;
        std::memcpy(&transition, body, sizeof transition);
        m_sink.note(m_offset.wall(head.time), transition);
    } else if (head.kind == Input) {
        RecordedInput input;
        std::memcpy(&input, body, sizeof input);
        m_sink.noteInputs(m_offset.wall(head.time), &input, 1);
    } else {
        deliverEnd();
    }
    source.isFull = false;
}

void LiveCapture::deliverEnd()
{
    m_sink.end();
    const quint64 leftOut = m_published.leftOut.exchange(0) + m_heard.leftOut.exchange(0);
    if (leftOut > 0)
        m_report(QStringLiteral("The capture lacks %1 frames: they came faster than they could be "
                                "written.")
                     .arg(leftOut));
    reportFailure();
}

/// Once, as soon as it is seen.
void LiveCapture::reportFailure()
{
    if (!m_sink.errorString().isEmpty() && !std::exchange(m_failureReported, true))
        m_report(m_sink.errorString());
}

} // namespace virtualboard
