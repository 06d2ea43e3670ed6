#include "virtualboard/play/download.h"

#include "virtualboard/wire/analogchannels.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace virtualboard {

namespace {

QString text(const char *ascii)
{
    return QString::fromLatin1(ascii);
}

QString misplaced(const char *field, int offset, int size, const QByteArray &frame)
{
    if (offset + size <= frame.size())
        return {};
    return QStringLiteral("%1, %2 bytes from offset %3, leaves the frame of %4 bytes")
        .arg(text(field))
        .arg(size)
        .arg(offset)
        .arg(frame.size());
}

QString firstOf(std::initializer_list<QString> faults)
{
    const auto *const fault = std::find_if(faults.begin(), faults.end(),
                                           [](const QString &each) { return !each.isEmpty(); });
    return fault == faults.end() ? QString() : *fault;
}

/// Why the template cannot be published, whatever its description says.
QString faultOf(const FrameTemplateCommand &command)
{
    const EthernetFrame &ethernet = command.ethernet;
    const int lengthBegin = (ethernet.tagged ? 16 : 12) + 2; // APPID is the first that it counts
    if (command.size != command.announcedSize)
        return QStringLiteral("its length field announces %1 bytes, %2 came")
            .arg(command.announcedSize)
            .arg(command.size);
    if (command.bytes.size() > kLargestFrame)
        return QStringLiteral("%1 bytes are more than the %2 of an Ethernet frame")
            .arg(command.bytes.size())
            .arg(kLargestFrame);
    if (ethernet.length != ethernet.size - lengthBegin)
        return QStringLiteral("its Length field does not fit the frame of %1 bytes")
            .arg(ethernet.size);
    if (command.kind == FrameTemplateCommand::SampledValueFrame)
        return ethernet.etherType == kEtherTypeSampledValues
            ? QString()
            : text("its EtherType is not that of sampled values");
    if (ethernet.etherType != kEtherTypeGoose)
        return text("its EtherType is not that of GOOSE");
    const auto *const goose = std::get_if<Goose>(&ethernet.pdu);
    if (!goose || goose->stNumOffset < 0)
        return text("timeAllowedtoLive and stNum cannot be read from it");
    return {};
}

QString faultOf(const SvDescriptionCommand &description, const QByteArray &frame)
{
    return firstOf({misplaced("smpCnt", description.smpCntOffset, kSmpCntSize, frame),
                    misplaced("the dataset", description.seqDataOffset,
                              int(description.channelKinds.size()) * kSvEntrySize, frame)});
}

QString faultOf(const GooseDescriptionCommand &description, const QByteArray &frame)
{
    return firstOf({misplaced("sqNum", description.sqNumOffset, kGooseCounterSize, frame),
                    misplaced("t", description.tOffset, kUtcTimeSize, frame)});
}

template <typename Stream>
QString streamFault(const Stream &stream)
{
    if (!stream.frame)
        return text("no frame template was downloaded");
    if (!stream.frameFault.isEmpty())
        return stream.frameFault;
    if (!stream.description)
        return text("no stream description was downloaded");
    return faultOf(*stream.description, stream.frame->bytes);
}

QString notPublished(const char *kind, int number, const QString &fault)
{
    return fault.isEmpty() ? QString()
                           : QStringLiteral("%1 stream %2 is not published: %3")
                                 .arg(text(kind))
                                 .arg(number)
                                 .arg(fault);
}

/// As soon as both parts of a stream are there; what is missing may still come.
template <typename Stream>
QString misfit(const char *kind, int number, const Stream &stream)
{
    if (!stream.frame || !stream.description)
        return {};
    return notPublished(kind, number, whyNotPublished(stream));
}

QString outOfRange(const char *name, int value, int end)
{
    if (value < end)
        return {};
    return QStringLiteral("%1 %2: 0 to %3 expected").arg(text(name)).arg(value).arg(end - 1);
}

} // namespace

QString whyNotPublished(const DownloadedSv &stream)
{
    return streamFault(stream);
}

QString whyNotPublished(const DownloadedGoose &stream)
{
    return streamFault(stream);
}

QStringList Download::take(const DecodedCommand &decoded)
{
    QStringList faults;
    if (!decoded.problems.isEmpty())
        faults << commandName(decoded.command) + QStringLiteral(": ")
                + decoded.problems.join(QLatin1Char(' '));
    if (isObeyed(decoded))
        faults << std::visit([this](const auto &each) { return apply(each); }, decoded.command);
    faults.removeAll(QString());
    return faults;
}

QString Download::apply(const ResetCommand &)
{
    *this = Download();
    return {};
}

QString Download::apply(const StartStopCommand &command)
{
    if (!command.start)
        return {};
    m_sampleInterval = std::chrono::microseconds(command.sampleInterval);
    m_sequenceIsComplete = true;
    return {};
}

QString Download::apply(const FrameTemplateCommand &command)
{
    const auto replace = [&command](const char *kind, auto &streams) {
        auto &stream = streams[command.stream];
        stream.frame = command;
        stream.frameFault = faultOf(command);
        return notPublished(kind, command.stream, stream.frameFault);
    };
    if (command.kind == FrameTemplateCommand::SampledValueFrame)
        return replace("SV", m_sampledValues);
    if (command.kind == FrameTemplateCommand::GooseFrame)
        return replace("GOOSE", m_goose);
    return {}; // the decoder has reported the kind
}

QString Download::apply(const SvDescriptionCommand &command)
{
    DownloadedSv &stream = m_sampledValues[command.stream];
    stream.description = command;
    return misfit("SV", command.stream, stream);
}

QString Download::apply(const GooseDescriptionCommand &command)
{
    const QString fault = outOfRange("GOOSE stream", command.stream, kStreamLimit);
    if (!fault.isEmpty())
        return fault;
    DownloadedGoose &stream = m_goose[command.stream];
    stream.description = command;
    return misfit("GOOSE", command.stream, stream);
}

template <typename Change>
void Download::changeStep(int number, const Change &change)
{
    if (std::exchange(m_sequenceIsComplete, false))
        m_lastSequence.clear();
    change(m_steps[number]);
    change(m_lastSequence[number]);
}

QString Download::apply(const ChannelSignalCommand &command)
{
    const QString fault =
        firstOf({outOfRange("channel signal: step", command.step, kStepLimit),
                 outOfRange("channel signal: channel", command.channel, kAnalogChannels)});
    if (!fault.isEmpty())
        return fault;
    const bool usable = std::isfinite(command.scaleFactor) && command.scaleFactor != 0.0F
        && std::isfinite(command.frequency) && std::isfinite(command.amplitude)
        && std::isfinite(command.phase) && std::isfinite(command.phaseJump.value_or(0));
    if (!usable)
        return QStringLiteral("channel signal: %1 of step %2: finite numbers and a scale factor "
                              "other than 0 expected")
            .arg(channelName(command.channel))
            .arg(command.step);
    changeStep(command.step,
               [&](DownloadedStep &step) { step.channels[command.channel] = command; });
    return {};
}

QString Download::apply(const StepConditionCommand &command)
{
    const QString fault = outOfRange("step condition: step", command.step, kStepLimit);
    if (fault.isEmpty())
        changeStep(command.step, [&](DownloadedStep &step) { step.condition = command; });
    return fault;
}

QString Download::apply(const StepOptionCommand &command)
{
    // Nothing is played differently, so a step that does not exist is left to the cross-check.
    changeStep(command.step, [&](DownloadedStep &step) { step.option = command; });
    return {};
}

QString Download::apply(const GooseControlCommand &command)
{
    const QString fault =
        firstOf({outOfRange("GOOSE signal control: step", command.step, kStepLimit),
                 outOfRange("GOOSE signal control: group", command.group, kStreamLimit)});
    if (fault.isEmpty())
        changeStep(command.step,
                   [&](DownloadedStep &step) { step.gooseControls[command.group] = command; });
    return fault;
}

QString Download::apply(const SubscriptionCommand &command)
{
    m_subscriptions[command.group] = command;
    return {};
}

QStringList Download::unpublished() const
{
    QStringList result;
    for (const auto &[number, stream] : m_sampledValues)
        result << notPublished("SV", number, whyNotPublished(stream));
    for (const auto &[number, stream] : m_goose)
        result << notPublished("GOOSE", number, whyNotPublished(stream));
    for (const auto &[number, step] : m_steps) {
        for (const auto &[stream, control] : step.gooseControls)
            result << unwritten(number, control);
    }
    result.removeAll(QString());
    return result;
}

QStringList Download::unwritten(int step, const GooseControlCommand &control) const
{
    const QString place = QStringLiteral("step %1, GOOSE stream %2: ").arg(step).arg(control.group);
    const auto stream = m_goose.find(control.group);
    if (stream == m_goose.end() || !stream->second.frame)
        return {place + text("there is no such stream for the step's values")};
    QStringList result;
    for (const GooseItem &item : control.items) {
        const QString fault =
            misplaced("an item", item.offset, int(item.data.size()), stream->second.frame->bytes);
        if (!fault.isEmpty())
            result << place + fault;
    }
    return result;
}

} // namespace virtualboard
