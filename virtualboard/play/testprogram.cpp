#include "virtualboard/play/testprogram.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace virtualboard {

namespace {

/// Whether the interval is the whole number of microseconds that is nearest to 1 s / \a samples;
/// half a microsecond may have been rounded to either side.
bool isInterval(std::chrono::microseconds interval, int samples)
{
    constexpr qint64 kMicroseconds = 1'000'000;
    return 2 * std::abs(interval.count() * samples - kMicroseconds) <= samples;
}

} // namespace

QVector<PlayedSv> TestProgram::svStreams() const
{
    QVector<PlayedSv> result;
    for (const auto &[number, stream] : m_download.sampledValues()) {
        if (!whyNotPublished(stream).isEmpty())
            continue;
        PlayedSv published;
        published.number = number;
        published.port = stream.frame->port;
        published.frame = stream.frame->bytes;
        if (const auto *const pdu = std::get_if<SampledValues>(&stream.frame->ethernet.pdu))
            published.svId = pdu->svId;
        published.appId = stream.frame->ethernet.appId;
        const SvDescriptionCommand &description = *stream.description;
        published.smpCntOffset = description.smpCntOffset;
        published.smpCntStart = description.smpCntStart;
        published.smpCntMax = description.smpCntMax == 0 ? 65536 : description.smpCntMax;
        published.seqDataOffset = description.seqDataOffset;
        published.channelKinds = description.channelKinds;
        result << published;
    }
    return result;
}

QVector<PlayedGoose> TestProgram::gooseStreams() const
{
    QVector<PlayedGoose> result;
    for (const auto &[number, stream] : m_download.goose()) {
        if (!whyNotPublished(stream).isEmpty())
            continue;
        const auto &pdu = std::get<Goose>(stream.frame->ethernet.pdu);
        PlayedGoose published;
        published.number = number;
        published.port = stream.frame->port;
        published.frame = stream.frame->bytes;
        published.timeAllowedToLive =
            qint64(std::min<quint64>(pdu.timeAllowedToLive, std::numeric_limits<quint32>::max()));
        published.tOffset = stream.description->tOffset;
        published.stNumOffset = pdu.stNumOffset;
        published.sqNumOffset = stream.description->sqNumOffset;
        for (const auto &[step, contents] : m_download.steps()) {
            const auto control = contents.gooseControls.find(number);
            if (control == contents.gooseControls.end())
                continue;
            for (const GooseItem &item : control->second.items) {
                if (item.offset + item.data.size() <= published.frame.size())
                    published.items[std::size_t(step)] << item;
            }
        }
        result << published;
    }
    return result;
}

QVector<SubscriptionCommand> TestProgram::subscriptions() const
{
    QVector<SubscriptionCommand> result;
    for (const auto &[group, subscription] : m_download.subscriptions())
        result << subscription;
    return result;
}

std::optional<PlayedStep> TestProgram::step(int number) const
{
    const auto found = m_download.steps().find(number);
    if (found == m_download.steps().end() || !found->second.condition)
        return std::nullopt;
    PlayedStep result;
    for (const auto &[channel, command] : found->second.channels) {
        Wave &wave = result.waves[std::size_t(channel)];
        wave.amplitude = double(command.amplitude) / double(command.scaleFactor);
        wave.frequency = double(command.frequency);
        wave.phase = double(command.phase);
        wave.phaseJump = double(command.phaseJump.value_or(0.0F));
        wave.scaleFactor = command.scaleFactor;
    }
    const StepConditionCommand &condition = *found->second.condition;
    result.milliseconds = condition.milliseconds;
    result.timeJump = condition.timeJump;
    result.triggerEnabled = condition.trigger != 0;
    result.triggerJump = condition.triggerJump;
    result.binaryInputEnabled = condition.binaryInput != 0;
    result.binaryInputJump = condition.binaryInputJump;
    return result;
}

SampleRate TestProgram::sampleRate() const
{
    const std::chrono::microseconds interval = m_download.sampleInterval();
    const QVector<PlayedSv> streams = svStreams();
    const int samples = streams.isEmpty() ? 0 : streams[0].smpCntMax;
    const bool agree = samples > 0 && isInterval(interval, samples)
        && std::all_of(streams.begin(), streams.end(),
                       [samples](const PlayedSv &each) { return each.smpCntMax == samples; });
    return agree ? SampleRate::perSecond(samples) : SampleRate::every(interval);
}

QStringList TestProgram::rateConflicts() const
{
    QStringList result;
    const SampleRate rate = sampleRate();
    if (rate.isNone())
        return result;
    const QVector<PlayedSv> streams = svStreams();
    for (const PlayedSv &each : streams) {
        const Duration turn = rate.timeOf(each.smpCntMax);
        if (turn != 1s)
            result << QStringLiteral("SV stream %1: smpCnt goes to 0 after %2 samples, which take "
                                     "%3 s instead of 1 s at the sample interval of %4 us")
                          .arg(each.number)
                          .arg(each.smpCntMax)
                          .arg(std::chrono::duration<double>(turn).count())
                          .arg(m_download.sampleInterval().count());
    }
    return result;
}

QString TestProgram::whyNotPlayable() const
{
    if (!step(0))
        return QStringLiteral("nothing to start: step 0 was not downloaded");
    if (m_download.sampleInterval() == 0us)
        return QStringLiteral("nothing to start: the sample interval is 0");
    return {};
}

} // namespace virtualboard
