#include "testprogram.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace virtualboard {

namespace {

constexpr int downloadHeader = 9; ///< bytes in front of the frame of a template download
constexpr int largestFrame = 1518; ///< with IEEE 802.1Q tag, without frame check sequence
constexpr int smpCntSize = 2;
constexpr int entrySize = 8;
constexpr int counterSize = 4; ///< stNum, sqNum
constexpr int timeSize = 8;

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
QString faultOf(const FrameTemplate &command, int commandSize)
{
    const EthernetFrame &ethernet = command.ethernet;
    const int lengthBegin = (ethernet.tagged ? 16 : 12) + 2; // APPID is the first that it counts
    if (commandSize != downloadHeader + command.announcedSize)
        return QStringLiteral("its length field announces %1 bytes, %2 came")
            .arg(command.announcedSize)
            .arg(commandSize - downloadHeader);
    if (command.bytes.size() > largestFrame)
        return QStringLiteral("%1 bytes are more than the %2 of an Ethernet frame")
            .arg(command.bytes.size())
            .arg(largestFrame);
    if (ethernet.length != ethernet.size - lengthBegin)
        return QStringLiteral("its Length field does not fit the frame of %1 bytes")
            .arg(ethernet.size);
    if (command.kind == FrameTemplate::SampledValueFrame)
        return ethernet.etherType == etherTypeSampledValues
            ? QString()
            : text("its EtherType is not that of sampled values");
    if (ethernet.etherType != etherTypeGoose)
        return text("its EtherType is not that of GOOSE");
    const auto *const goose = std::get_if<Goose>(&ethernet.pdu);
    if (!goose || goose->stNumOffset < 0)
        return text("timeAllowedtoLive and stNum cannot be read from it");
    return {};
}

QString faultOf(const SvDescription &description, const QByteArray &frame)
{
    return firstOf({misplaced("smpCnt", description.smpCntOffset, smpCntSize, frame),
                    misplaced("the dataset", description.seqDataOffset,
                              int(description.channelKinds.size()) * entrySize, frame)});
}

QString faultOf(const GooseDescription &description, const QByteArray &frame)
{
    return firstOf({misplaced("sqNum", description.sqNumOffset, counterSize, frame),
                    misplaced("t", description.tOffset, timeSize, frame)});
}

/// Why the stream cannot be published; empty if it can.
template <typename Stream>
QString faultOf(const Stream &stream)
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
    return notPublished(kind, number, faultOf(stream));
}

QString outOfRange(const char *name, int value, int end)
{
    if (value < end)
        return {};
    return QStringLiteral("%1 %2: 0 to %3 expected").arg(text(name)).arg(value).arg(end - 1);
}

} // namespace

QStringList TestProgram::take(const DecodedCommand &decoded)
{
    QStringList reports;
    const auto *const frame = std::get_if<FrameTemplate>(&decoded.command);
    if (!decoded.problems.isEmpty())
        reports << commandName(decoded.command) + QStringLiteral(": ")
                + decoded.problems.join(QLatin1Char(' '));
    // The bytes of a template are published as they are: only some of the faults forbid that.
    if (!decoded.problems.isEmpty() && !frame)
        return reports;
    const QString report = frame
        ? takeTemplate(*frame, decoded)
        : std::visit([this](const auto &command) { return apply(command); }, decoded.command);
    if (!report.isEmpty())
        reports << report;
    return reports;
}

QString TestProgram::takeTemplate(const FrameTemplate &command, const DecodedCommand &decoded)
{
    const QString fault = faultOf(command, int(decoded.frame.size()));
    const auto replace = [&](const char *kind, auto &streams) {
        auto &stream = streams[command.stream];
        stream.frame = command;
        stream.frameFault = fault;
        return notPublished(kind, command.stream, fault);
    };
    if (command.kind == FrameTemplate::SampledValueFrame)
        return replace("SV", m_sampledValues);
    if (command.kind == FrameTemplate::GooseFrame)
        return replace("GOOSE", m_goose);
    return {}; // the decoder has reported the kind
}

QString TestProgram::apply(const ResetParameters &)
{
    *this = TestProgram();
    return {};
}

QString TestProgram::apply(const StartStop &command)
{
    if (command.start)
        m_sampleInterval = command.sampleInterval;
    return {};
}

QString TestProgram::apply(const SvDescription &command)
{
    SvEntry &stream = m_sampledValues[command.stream];
    stream.description = command;
    return misfit("SV", command.stream, stream);
}

QString TestProgram::apply(const GooseDescription &command)
{
    const QString fault = outOfRange("GOOSE stream", command.stream, streamLimit);
    if (!fault.isEmpty())
        return fault;
    GooseEntry &stream = m_goose[command.stream];
    stream.description = command;
    return misfit("GOOSE", command.stream, stream);
}

QString TestProgram::apply(const ChannelSignal &command)
{
    const QString fault =
        firstOf({outOfRange("channel signal: step", command.step, stepLimit),
                 outOfRange("channel signal: channel", command.channel, analogChannels)});
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
    Wave &wave = m_steps[std::size_t(command.step)].step.waves[std::size_t(command.channel)];
    wave.amplitude = double(command.amplitude) / double(command.scaleFactor);
    wave.frequency = double(command.frequency);
    wave.phase = double(command.phase);
    wave.scaleFactor = command.scaleFactor;
    return {};
}

QString TestProgram::apply(const StepCondition &command)
{
    const QString fault = outOfRange("step condition: step", command.step, stepLimit);
    if (!fault.isEmpty())
        return fault;
    StepEntry &entry = m_steps[std::size_t(command.step)];
    entry.hasCondition = true;
    Step &step = entry.step;
    step.milliseconds = command.milliseconds;
    step.timeJump = command.timeJump;
    step.triggerEnabled = command.trigger != 0;
    step.triggerJump = command.triggerJump;
    step.binaryInputEnabled = command.binaryInput != 0;
    step.binaryInputJump = command.binaryInputJump;
    return {};
}

QString TestProgram::apply(const GooseControl &command)
{
    const QString fault =
        firstOf({outOfRange("GOOSE signal control: step", command.step, stepLimit),
                 outOfRange("GOOSE signal control: group", command.group, streamLimit)});
    if (fault.isEmpty())
        m_steps[std::size_t(command.step)].items[command.group] = command.items;
    return fault;
}

QString TestProgram::apply(const Subscription &command)
{
    m_subscriptions[command.group] = command;
    return {};
}

QVector<SvStream> TestProgram::svStreams() const
{
    QVector<SvStream> result;
    for (const auto &[number, stream] : m_sampledValues) {
        if (!faultOf(stream).isEmpty())
            continue;
        SvStream published;
        published.number = number;
        published.port = stream.frame->port;
        published.frame = stream.frame->bytes;
        if (const auto *const pdu = std::get_if<SampledValues>(&stream.frame->ethernet.pdu))
            published.svId = pdu->svId;
        published.appId = stream.frame->ethernet.appId;
        const SvDescription &description = *stream.description;
        published.smpCntOffset = description.smpCntOffset;
        published.smpCntStart = description.smpCntStart;
        published.smpCntMax = description.smpCntMax == 0 ? 65536 : description.smpCntMax;
        published.seqDataOffset = description.seqDataOffset;
        published.channelKinds = description.channelKinds;
        result << published;
    }
    return result;
}

QVector<GooseStream> TestProgram::gooseStreams() const
{
    QVector<GooseStream> result;
    for (const auto &[number, stream] : m_goose) {
        if (!faultOf(stream).isEmpty())
            continue;
        const auto &pdu = std::get<Goose>(stream.frame->ethernet.pdu);
        GooseStream published;
        published.number = number;
        published.port = stream.frame->port;
        published.frame = stream.frame->bytes;
        published.timeAllowedToLive =
            qint64(std::min<quint64>(pdu.timeAllowedToLive, std::numeric_limits<quint32>::max()));
        published.tOffset = stream.description->tOffset;
        published.stNumOffset = pdu.stNumOffset;
        published.sqNumOffset = stream.description->sqNumOffset;
        for (std::size_t step = 0; step < m_steps.size(); ++step) {
            const auto items = m_steps[step].items.find(number);
            if (items == m_steps[step].items.end())
                continue;
            for (const GooseItem &item : items->second) {
                if (item.offset + item.data.size() <= published.frame.size())
                    published.items[step] << item;
            }
        }
        result << published;
    }
    return result;
}

QVector<Subscription> TestProgram::subscriptions() const
{
    QVector<Subscription> result;
    for (const auto &[group, subscription] : m_subscriptions)
        result << subscription;
    return result;
}

const Step *TestProgram::step(int number) const
{
    if (number < 0 || number >= stepLimit || !m_steps[std::size_t(number)].hasCondition)
        return nullptr;
    return &m_steps[std::size_t(number)].step;
}

QString TestProgram::whyNotPlayable() const
{
    if (!step(0))
        return text("nothing to start: step 0 was not downloaded");
    if (m_sampleInterval == 0)
        return text("nothing to start: the sample interval is 0");
    return {};
}

QStringList TestProgram::unpublished() const
{
    QStringList result;
    for (const auto &[number, stream] : m_sampledValues)
        result << notPublished("SV", number, faultOf(stream));
    for (const auto &[number, stream] : m_goose)
        result << notPublished("GOOSE", number, faultOf(stream));
    for (std::size_t step = 0; step < m_steps.size(); ++step) {
        for (const auto &[number, items] : m_steps[step].items) {
            const QString place =
                QStringLiteral("step %1, GOOSE stream %2: ").arg(step).arg(number);
            const auto stream = m_goose.find(number);
            if (stream == m_goose.end() || !stream->second.frame) {
                result << place + text("there is no such stream for the step's values");
                continue;
            }
            for (const GooseItem &item : items) {
                const QString fault = misplaced("an item", item.offset, int(item.data.size()),
                                                stream->second.frame->bytes);
                if (!fault.isEmpty())
                    result << place + fault;
            }
        }
    }
    result.removeAll(QString());
    return result;
}

} // namespace virtualboard
