/// \file
/// One object per published stream: its frame, and what changes in it from message to message.
#pragma once

#include "virtualboard/play/testprogram.h"
#include "virtualboard/play/waveforms.h"

#include <QByteArray>

#include <vector>

namespace virtualboard {

/// A sampled-value stream: one frame per sample.
class SvPublisher
{
public:
    explicit SvPublisher(const PlayedSv &stream);

    /// Writes the next sample into the frame.
    void sample(const Waveforms::Counts &counts);
    OutgoingFrame frame() const;

private:
    struct Slot
    {
        int offset = 0; ///< of the value in the frame
        std::size_t channel = 0; ///< analog channel
    };
    QByteArray m_frame;
    uchar *m_bytes = nullptr; ///< of m_frame
    int m_port = 0;
    int m_smpCntOffset = 0;
    int m_smpCnt = 0;
    int m_smpCntMax = 0;
    std::vector<Slot> m_slots;
};

/// A GOOSE stream: sent on a state change and repeated with growing pauses (IEC 61850-8-1,
/// clause 18).
class GoosePublisher
{
public:
    /// The first state begins at \a startTime.
    GoosePublisher(const PlayedGoose &stream, WallTime startTime);

    /// The step begins: writes its items; one that reaches into stNum makes a state change. A state
    /// that another one follows before it was sent has never been: stNum stays.
    void enter(std::size_t step, WallTime now);
    /// Whether a message is due at the sample instant \a now; if so, frame() is that message.
    bool isDue(WallTime now) const { return m_due <= now; }
    /// Writes the counter of the message that is due, and sets the time of the next one.
    void prepare();
    OutgoingFrame frame() const;

private:
    void beginState(WallTime now);

    PlayedGoose m_stream;
    uchar *m_bytes = nullptr; ///< of m_stream.frame
    uchar m_timeQuality = 0;
    quint32 m_stNum = 0;
    bool m_wasSent = false; ///< the state
    quint32 m_sqNum = 0;
    WallTime m_due;
    Duration m_pause = {};
    Duration m_longestPause = {};
};

} // namespace virtualboard
