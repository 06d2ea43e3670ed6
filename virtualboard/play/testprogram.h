#pragma once

#include "virtualboard/play/download.h"
#include "virtualboard/play/playback.h"
#include "virtualboard/play/samplerate.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <array>
#include <optional>

namespace virtualboard {

/// A sampled-value stream as it is published.
struct PlayedSv
{
    int number = 0; ///< of the stream, 0 to 63
    int port = 0; ///< output port, 1 to 8
    QByteArray frame; ///< template, from the destination MAC address on
    QString svId;
    int appId = 0;
    int smpCntOffset = 0;
    int smpCntStart = 0;
    int smpCntMax = 0; ///< the counter wraps to 0 here: 1 to 65536
    int seqDataOffset = 0;
    QByteArray channelKinds; ///< per dataset entry: analog channel 0 to 15, else none
};

/// A GOOSE stream as it is published.
struct PlayedGoose
{
    int number = 0;
    int port = 0;
    QByteArray frame;
    qint64 timeAllowedToLive = 0; ///< ms
    int tOffset = 0;
    int stNumOffset = 0;
    int sqNumOffset = 0;
    /// What is written when a step begins; everything lies within the frame.
    std::array<QVector<GooseItem>, kStepLimit> items;
};

/// One analog channel in one step.
struct Wave
{
    double amplitude = 0; ///< counts, peak
    double frequency = 0; ///< Hz
    double phase = 0; ///< degrees, when the step begins
    double phaseJump = 0; ///< degrees, for Phases::Jump
    float scaleFactor = 0; ///< V or A per count; 0: never told
};

using Waves = std::array<Wave, kAnalogChannels>;

/// One state of the sequence.
struct PlayedStep
{
    Waves waves;
    int milliseconds = 0; ///< 0: no end in time
    int timeJump = 0;
    bool triggerEnabled = false;
    int triggerJump = 0;
    bool binaryInputEnabled = false;
    int binaryInputJump = 0;
};

/// What the link has downloaded, as far as it can be played.
class TestProgram
{
public:
    /// See Download::take().
    QStringList take(const DecodedCommand &decoded) { return m_download.take(decoded); }

    /// The streams that can be published: template and description are there and fit each other.
    QVector<PlayedSv> svStreams() const;
    QVector<PlayedGoose> gooseStreams() const;
    QVector<SubscriptionCommand> subscriptions() const;
    /// The step; nothing when its step condition has not been downloaded.
    std::optional<PlayedStep> step(int number) const;
    /// As many samples a second as smpCnt counts up to, if all published SV streams agree on that
    /// and the interval of the last start command is that of such samples, rounded to a whole
    /// microsecond; else what the interval says. None before a start command, or if that says 0.
    SampleRate sampleRate() const;
    /// Which SV streams count up to something else than a second of the sample rate has samples:
    /// one line each.
    QStringList rateConflicts() const;

    /// Why nothing can be played: no step 0, no sample interval. Empty if something can.
    QString whyNotPlayable() const;
    /// See Download::unpublished().
    QStringList unpublished() const { return m_download.unpublished(); }

private:
    Download m_download;
};

} // namespace virtualboard
