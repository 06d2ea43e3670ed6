#pragma once

#include "commands.h"
#include "playback.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <array>
#include <map>
#include <optional>

namespace virtualboard {

/// A sampled-value stream as it is published.
struct SvStream
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
struct GooseStream
{
    int number = 0;
    int port = 0;
    QByteArray frame;
    qint64 timeAllowedToLive = 0; ///< ms
    int tOffset = 0;
    int stNumOffset = 0;
    int sqNumOffset = 0;
    /// What is written when a step begins; everything lies within the frame.
    std::array<QVector<GooseItem>, stepLimit> items;
};

/// One analog channel in one step.
struct Wave
{
    double amplitude = 0; ///< counts, peak
    double frequency = 0; ///< Hz
    double phase = 0; ///< degrees, when the step begins
    float scaleFactor = 0; ///< V or A per count; 0: never told
};

using Waves = std::array<Wave, analogChannels>;

/// One state of the sequence.
struct Step
{
    Waves waves;
    int milliseconds = 0; ///< 0: no end in time
    int timeJump = 0;
    bool triggerEnabled = false;
    int triggerJump = 0;
    bool binaryInputEnabled = false;
    int binaryInputJump = 0;
};

/**
 * What the link has downloaded: streams, steps and subscriptions, as far as they can be played.
 *
 * A command with problems of its own is reported and changes nothing; only a frame template
 * replaces the earlier one of its stream nevertheless. So does every later command of the same kind
 * for the same thing; a reset clears everything.
 */
class TestProgram
{
public:
    /// Takes over what @p decoded says. Commands that are no part of a program (stop, status, ...)
    /// change nothing. Returns one line per problem.
    QStringList take(const DecodedCommand &decoded);

    /// The streams that can be published: template and description are there and fit each other.
    QVector<SvStream> svStreams() const;
    QVector<GooseStream> gooseStreams() const;
    QVector<Subscription> subscriptions() const;
    /// The step, or null when its step condition has not been downloaded.
    const Step *step(int number) const;
    /// Microseconds between two samples, from the last start command; 0 before.
    int sampleInterval() const { return m_sampleInterval; }

    /// Why nothing can be played: no step 0, no sample interval. Empty if something can.
    QString whyNotPlayable() const;
    /// What was downloaded, at least in part, but cannot be published: streams, and items of GOOSE
    /// signal control commands; one line each.
    QStringList unpublished() const;

private:
    template <typename Description>
    struct Stream
    {
        std::optional<FrameTemplate> frame;
        QString frameFault; ///< why the template cannot be used; empty if it can
        std::optional<Description> description;
    };
    using SvEntry = Stream<SvDescription>;
    using GooseEntry = Stream<GooseDescription>;
    struct StepEntry
    {
        Step step;
        bool hasCondition = false;
        std::map<int, QVector<GooseItem>> items; ///< by GOOSE stream
    };

    template <typename Other>
    QString apply(const Other &)
    {
        return {};
    }
    QString apply(const ResetParameters &);
    QString apply(const StartStop &command);
    QString apply(const SvDescription &command);
    QString apply(const GooseDescription &command);
    QString apply(const ChannelSignal &command);
    QString apply(const StepCondition &command);
    QString apply(const GooseControl &command);
    QString apply(const Subscription &command);
    QString takeTemplate(const FrameTemplate &command, const DecodedCommand &decoded);

    std::map<int, SvEntry> m_sampledValues; ///< by stream number
    std::map<int, GooseEntry> m_goose;
    std::array<StepEntry, stepLimit> m_steps;
    std::map<int, Subscription> m_subscriptions; ///< by group
    int m_sampleInterval = 0;
};

} // namespace virtualboard
