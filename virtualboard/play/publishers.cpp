#include "virtualboard/play/publishers.h"

#include <QtEndian>

#include <algorithm>
#include <iterator>
#include <utility>

namespace virtualboard {

namespace {

constexpr Duration kFirstPause = 2ms;
constexpr Duration kLeastPause = 1ms;

/// stNum and sqNum skip 0 when they roll over (IEC 61850-8-1).
quint32 rolledOver(quint32 counter)
{
    return counter == 0 ? 1 : counter;
}

constexpr int kTimeQualityOffset = 7; ///< in t

/// Seconds since 1970, a fraction of 24 bits and the time quality (IEC 61850-8-1, 8.1.3.6).
void writeTime(WallTime time, uchar quality, uchar *bytes)
{
    constexpr int kFractionBits = 24;
    const Duration sinceEpoch = time.time_since_epoch();
    qToBigEndian(quint32(sinceEpoch / 1s), bytes);
    const auto fraction =
        quint32(((sinceEpoch % 1s).count() << kFractionBits) / Duration(1s).count());
    bytes[4] = uchar(fraction >> 16);
    bytes[5] = uchar(fraction >> 8);
    bytes[6] = uchar(fraction);
    bytes[kTimeQualityOffset] = quality;
}

/// No station may send from a group address, and switches drop what seems to come from one (IEEE
/// Std 802.3, 3.2.3; IEEE Std 802.1Q): such an address becomes one of our own.
QByteArray withSource(QByteArray frame, int port)
{
    constexpr int kSourceOffset = 6;
    constexpr uchar kGroupBit = 1;
    constexpr uchar kOwn[] = {0x02, 0, 0, 0, 0}; // locally administered; then comes the port
    auto *const source = reinterpret_cast<uchar *>(frame.data()) + kSourceOffset;
    if ((source[0] & kGroupBit) != 0) {
        std::copy(std::begin(kOwn), std::end(kOwn), source);
        source[std::size(kOwn)] = uchar(port);
    }
    return frame;
}

OutgoingFrame outgoing(const QByteArray &frame, int port)
{
    return {reinterpret_cast<const uchar *>(frame.constData()), int(frame.size()), port};
}

} // namespace

SvPublisher::SvPublisher(const PlayedSv &stream)
    : m_frame(withSource(stream.frame, stream.port))
    , m_port(stream.port)
    , m_smpCntOffset(stream.smpCntOffset)
    , m_smpCnt(stream.smpCntStart)
    , m_smpCntMax(stream.smpCntMax)
{
    m_bytes = reinterpret_cast<uchar *>(m_frame.data());
    for (int i = 0; i < stream.channelKinds.size(); ++i) {
        const auto kind = quint8(stream.channelKinds.at(i));
        if (kind < kAnalogChannels)
            m_slots.push_back({stream.seqDataOffset + i * kSvEntrySize, kind});
    }
}

void SvPublisher::sample(const Waveforms::Counts &counts)
{
    for (const Slot &slot : m_slots)
        qToBigEndian(counts[slot.channel], m_bytes + slot.offset);
    qToBigEndian(quint16(m_smpCnt), m_bytes + m_smpCntOffset);
    ++m_smpCnt;
    if (m_smpCnt >= m_smpCntMax)
        m_smpCnt = 0;
}

OutgoingFrame SvPublisher::frame() const
{
    return outgoing(m_frame, m_port);
}

GoosePublisher::GoosePublisher(const PlayedGoose &stream, WallTime startTime)
    : m_stream(stream)
    , m_longestPause(
          std::max(Duration(std::chrono::milliseconds(stream.timeAllowedToLive)) / 2, kLeastPause))
{
    m_stream.frame = withSource(stream.frame, stream.port);
    m_bytes = reinterpret_cast<uchar *>(m_stream.frame.data());
    m_stNum = qFromBigEndian<quint32>(m_bytes + m_stream.stNumOffset);
    m_timeQuality = m_bytes[m_stream.tOffset + kTimeQualityOffset];
    for (const GooseItem &item : std::as_const(m_stream.items[0]))
        std::copy(item.data.begin(), item.data.end(), m_bytes + item.offset);
    beginState(startTime);
}

void GoosePublisher::enter(std::size_t step, WallTime now)
{
    bool changes = false;
    for (const GooseItem &item : std::as_const(m_stream.items[step])) {
        std::copy(item.data.begin(), item.data.end(), m_bytes + item.offset);
        changes = changes
            || (item.offset < m_stream.stNumOffset + kGooseCounterSize
                && item.offset + item.data.size() > m_stream.stNumOffset);
    }
    if (!changes)
        return;
    if (m_wasSent)
        m_stNum = rolledOver(m_stNum + 1);
    beginState(now);
}

void GoosePublisher::beginState(WallTime now)
{
    m_sqNum = 0;
    m_wasSent = false;
    m_due = now;
    m_pause = std::min(kFirstPause, m_longestPause);
    qToBigEndian(m_stNum, m_bytes + m_stream.stNumOffset);
    writeTime(now, m_timeQuality, m_bytes + m_stream.tOffset);
}

void GoosePublisher::prepare()
{
    qToBigEndian(m_sqNum, m_bytes + m_stream.sqNumOffset);
    m_sqNum = rolledOver(m_sqNum + 1);
    m_wasSent = true;
    m_due += m_pause;
    m_pause = std::min(2 * m_pause, m_longestPause);
}

OutgoingFrame GoosePublisher::frame() const
{
    return outgoing(m_stream.frame, m_stream.port);
}

} // namespace virtualboard
