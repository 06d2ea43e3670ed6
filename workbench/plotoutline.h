/// \file
/// What a capture holds, as far as it has to be known before anything of it can be drawn.
#pragma once

#include "virtualboard/capture/capturemarks.h"
#include "virtualboard/wire/analogchannels.h"
#include "workbench/failure.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <array>
#include <optional>

namespace workbench {

/// A sampled-value stream of a capture.
struct PlotStream
{
    QString svId;
    int appId = 0;
    int entries = 0; ///< of the dataset
    double interval = 0; ///< the usual one between two frames, seconds; 0: unknown

    [[nodiscard]] QString toString() const; ///< "MU01 (APPID 0x4001)"
};

/// The sampled-value streams of a capture. Frames of a stream that is known are recognised by their
/// bytes in front of smpCnt, so that only the first one has to be decoded.
class PlotStreams
{
public:
    /// Where a sampled-value frame belongs.
    struct Place
    {
        int stream = 0;
        int smpCntOffset = 0; ///< two bytes, high byte first
        int seqDataOffset = 0; ///< of the first dataset entry: value and quality, 4 bytes each
    };

    /// Nothing for other frames, for those that cannot be read, and for streams beyond the 256th.
    [[nodiscard]] std::optional<Place> find(const QByteArray &frame);
    void setInterval(int stream, double interval) { m_streams[stream].interval = interval; }
    [[nodiscard]] const QVector<PlotStream> &all() const { return m_streams; }
    /// The stream with this svID or with this APPID (decimal, or hexadecimal with 0x). Fails when
    /// there is none, or more than one.
    [[nodiscard]] Expected<int> named(const QString &name) const;

private:
    struct Layout
    {
        QByteArray prefix; ///< the frame up to the value of smpCnt
        int size = 0; ///< of the frame
        Place place;
    };
    [[nodiscard]] const Layout *learn(const QByteArray &frame);

    QVector<PlotStream> m_streams;
    QVector<Layout> m_layouts;
};

/// One sequence of a capture: from its first change of steps, the first one from the first packet.
struct PlotRun
{
    virtualboard::WallTime start; ///< of the sequence, or the first packet
    virtualboard::WallTime first; ///< packet
    /// The last packet; if another sequence follows, the last sample or change of steps.
    virtualboard::WallTime last;
    QVector<virtualboard::StreamMark> streams;
    QVector<virtualboard::Transition>
        changes; ///< the first thousands; empty without marks of steps
    /// Of the first step that a binary input ended: entry and end, seconds since the start.
    std::optional<std::array<double, 2>> ended;
    /// The first known scale of every analog channel, V or A per count; 0: unknown.
    std::array<float, virtualboard::kAnalogChannels> scale = {};

    /// Seconds since the start.
    [[nodiscard]] double seconds(virtualboard::WallTime time) const;
};

/// A dataset entry of a stream that is worth showing.
struct StreamChannel
{
    int entry = 0; ///< of the dataset, from 0
    QString name; ///< "Ia1", or "entry 2" in a capture without a mark of the stream
    const virtualboard::AnalogChannel *analog = nullptr; ///< null: unknown
};

/// Every analog channel that feeds \a stream in \a run once; without a mark that tells them, every
/// dataset entry.
[[nodiscard]] QVector<StreamChannel> channelsOf(const PlotStream &stream, const PlotRun &run);

/// Tells the sequences of a capture apart while its marks are read in their order.
class PlotRunCounter
{
public:
    /// Returns whether a sequence begins that is not the first one.
    bool take(const virtualboard::StepMark &mark);
    [[nodiscard]] int current() const { return m_current; }

private:
    int m_current = 0;
    bool m_hasSteps = false;
};

struct PlotOutline
{
    PlotStreams streams;
    QVector<PlotRun> runs; ///< at least one, at most a thousand
    QString damage; ///< why the capture could not be read to its end; empty if it could
};

/// EtherType of a frame, behind an IEEE 802.1Q tag if there is one; 0 if the frame is too short.
[[nodiscard]] int etherType(const QByteArray &frame);

/// Reads the whole capture once. Fails when it cannot be read or has no stream.
[[nodiscard]] Expected<PlotOutline> readOutline(const QString &path);

} // namespace workbench
