/// \file
/// What a capture holds, as far as it has to be known before anything of it can be drawn.
#pragma once

#include "virtualboard/play/playback.h"
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
    QStringList channels; ///< analog channel of every entry; empty without a mark of the stream

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
        int seqDataOffset = 0; ///< of the first dataset entry: value and quality, 4 bytes each
    };

    /// Nothing for other frames, for those that cannot be read, and for streams beyond the 256th.
    [[nodiscard]] std::optional<Place> find(const QByteArray &frame);
    [[nodiscard]] const QVector<PlotStream> &all() const { return m_streams; }
    void setChannels(const QString &svId, int appId, const QStringList &channels);
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

struct PlotOutline
{
    PlotStreams streams;
    bool hasSteps = false; ///< there are marks of steps
    virtualboard::WallTime start; ///< of the sequence, or the first packet
    virtualboard::WallTime last; ///< the last packet
    double first = 0; ///< the first packet, seconds since the start
    /// Of the first step that a binary input ended: entry and end, seconds since the start.
    std::optional<std::array<double, 2>> ended;
    /// The first known scale of every analog channel, V or A per count; 0: unknown.
    std::array<float, virtualboard::kAnalogChannels> scale = {};
    QString damage; ///< why the capture could not be read to its end; empty if it could

    /// Seconds since the start.
    [[nodiscard]] double seconds(virtualboard::WallTime time) const;
};

/// EtherType of a frame, behind an IEEE 802.1Q tag if there is one; 0 if the frame is too short.
[[nodiscard]] int etherType(const QByteArray &frame);

/// Reads the whole capture once. Fails when it cannot be read or has no stream.
[[nodiscard]] Expected<PlotOutline> readOutline(const QString &path);

} // namespace workbench
