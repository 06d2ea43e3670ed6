#pragma once

#include "virtualboard/wire/commands.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <map>
#include <optional>

namespace virtualboard {

/// A published stream: its frame, and where the run-time fields of that lie.
template <typename Description>
struct DownloadedStream
{
    std::optional<FrameTemplateCommand> frame;
    QString frameFault; ///< why the frame cannot be used, whatever its description says
    std::optional<Description> description;
};
using DownloadedSv = DownloadedStream<SvDescriptionCommand>;
using DownloadedGoose = DownloadedStream<GooseDescriptionCommand>;

/// Why the stream cannot be published; empty if it can.
[[nodiscard]] QString whyNotPublished(const DownloadedSv &stream);
[[nodiscard]] QString whyNotPublished(const DownloadedGoose &stream);

/// The contents of the frame that was downloaded for stream \a number, or null.
template <typename Pdu, typename Stream>
const Pdu *downloadedPdu(const std::map<int, Stream> &streams, int number)
{
    const auto found = streams.find(number);
    return found == streams.end() || !found->second.frame
        ? nullptr
        : std::get_if<Pdu>(&found->second.frame->ethernet.pdu);
}

struct DownloadedStep
{
    std::map<int, ChannelSignalCommand> channels; ///< by number of the channel
    std::optional<StepConditionCommand> condition;
    std::optional<StepOptionCommand> option;
    std::map<int, GooseControlCommand> gooseControls; ///< by stream
};
using DownloadedSteps = std::map<int, DownloadedStep>; ///< by number

/// What has been downloaded over the link, and is in force.
///
/// A command with problems of its own changes nothing; only a frame template replaces the earlier
/// one of its stream nevertheless. So does every later command of the same kind for the same
/// thing; a reset clears everything.
class Download
{
public:
    /// Takes over what \a decoded says. Commands that download nothing (stop, status, ...) change
    /// nothing. Returns one line per problem.
    QStringList take(const DecodedCommand &decoded);

    const std::map<int, DownloadedSv> &sampledValues() const { return m_sampledValues; }
    const std::map<int, DownloadedGoose> &goose() const { return m_goose; }
    const DownloadedSteps &steps() const { return m_steps; }
    /// The part of the steps that came for the last sequence: since the first command for a step
    /// that followed a start.
    const DownloadedSteps &lastSequence() const { return m_lastSequence; }
    /// By group.
    const std::map<int, SubscriptionCommand> &subscriptions() const { return m_subscriptions; }
    /// From the last start command; 0 before.
    std::chrono::microseconds sampleInterval() const { return m_sampleInterval; }

    /// What cannot be published: streams, and items of GOOSE signal control commands; one line
    /// each.
    QStringList unpublished() const;

private:
    // Each returns what is wrong, or nothing.
    QString apply(const ResetCommand &);
    QString apply(const FrameTemplateCommand &command);
    QString apply(const SvDescriptionCommand &command);
    QString apply(const GooseDescriptionCommand &command);
    QString apply(const ChannelSignalCommand &command);
    QString apply(const StepConditionCommand &command);
    QString apply(const StepOptionCommand &command);
    QString apply(const GooseControlCommand &command);
    QString apply(const SubscriptionCommand &command);
    QString apply(const StartStopCommand &command);
    template <typename Other>
    std::enable_if_t<
        kIsOneOf<Other, UnknownCommand, DisableCurrentStateCommand, StateChangeCommand,
                 Ft3TemplateCommand, StatusReadBackCommand, StopCommand, FpgaResetCommand,
                 DspConfigurationCommand, SvCombinationCommand, SvChannelCommand>,
        QString>
    apply(const Other &)
    {
        return {};
    }

    QStringList unwritten(int step, const GooseControlCommand &control) const;
    template <typename Change>
    void changeStep(int number, const Change &change);

    std::map<int, DownloadedSv> m_sampledValues; ///< by stream
    std::map<int, DownloadedGoose> m_goose;
    DownloadedSteps m_steps;
    DownloadedSteps m_lastSequence;
    bool m_sequenceIsComplete = false; ///< the next command for a step begins another
    std::map<int, SubscriptionCommand> m_subscriptions;
    std::chrono::microseconds m_sampleInterval{0};
};

} // namespace virtualboard
