#include "virtualboard/wire/commandmemory.h"

namespace virtualboard {

namespace {

constexpr qint64 kAllocation = 32; ///< the head of a block, and what it is rounded up by

// The overloads count what lies outside of the object itself.

qint64 outside(const QByteArray &bytes)
{
    return bytes.isEmpty() ? 0 : kAllocation + bytes.size();
}

qint64 outside(const QString &text)
{
    return text.isEmpty() ? 0 : kAllocation + text.size() * qint64(sizeof(QChar));
}

template <typename Number>
std::enable_if_t<std::is_arithmetic_v<Number>, qint64> outside(Number)
{
    return 0;
}

qint64 outside(const SvEntry &)
{
    return 0;
}

qint64 outside(const GooseEntry &entry)
{
    return outside(entry.value);
}

qint64 outside(const GooseItem &item)
{
    return outside(item.data);
}

template <typename List>
auto outside(const List &list) -> decltype(list.cbegin(), qint64())
{
    qint64 result = kAllocation;
    for (const auto &each : list)
        result += qint64(sizeof(each)) + outside(each);
    return result;
}

qint64 outside(const std::monostate &)
{
    return 0;
}

qint64 outside(const SampledValues &pdu)
{
    return outside(pdu.svId) + outside(pdu.entries);
}

qint64 outside(const Goose &pdu)
{
    return outside(pdu.gocbRef) + outside(pdu.datSet) + outside(pdu.goId) + outside(pdu.t)
        + outside(pdu.entries);
}

qint64 outside(const EthernetFrame &frame)
{
    return outside(frame.destination) + outside(frame.source) + outside(frame.problems)
        + std::visit([](const auto &pdu) { return outside(pdu); }, frame.pdu);
}

qint64 outside(const FrameTemplateCommand &command)
{
    return outside(command.bytes) + outside(command.ethernet);
}

qint64 outside(const Ft3TemplateCommand &command)
{
    return outside(command.words);
}

qint64 outside(const StartStopCommand &command)
{
    return outside(command.parameters);
}

qint64 outside(const SvDescriptionCommand &command)
{
    return outside(command.channelKinds);
}

qint64 outside(const GooseControlCommand &command)
{
    return outside(command.items);
}

qint64 outside(const SubscriptionCommand &command)
{
    return outside(command.mappedPositions);
}

qint64 outside(const SvCombinationCommand &command)
{
    return outside(command.entries);
}

qint64 outside(const SvChannelCommand &command)
{
    return outside(command.properties);
}

template <typename Other>
std::enable_if_t<kIsOneOf<Other, UnknownCommand, ChannelSignalCommand, ResetCommand,
                          GooseDescriptionCommand, DisableCurrentStateCommand, StepConditionCommand,
                          StateChangeCommand, StepOptionCommand, StatusReadBackCommand, StopCommand,
                          FpgaResetCommand, DspConfigurationCommand>,
                 qint64>
outside(const Other &)
{
    return 0;
}

} // namespace

qint64 memoryOf(const DecodedCommand &decoded)
{
    return qint64(sizeof(decoded)) + outside(decoded.frame) + outside(decoded.problems)
        + std::visit([](const auto &command) { return outside(command); }, decoded.command);
}

} // namespace virtualboard
