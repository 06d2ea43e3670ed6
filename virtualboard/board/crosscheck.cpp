#include "virtualboard/board/crosscheck.h"

#include "virtualboard/play/download.h"
#include "virtualboard/wire/analogchannels.h"
#include "virtualboard/wire/problems.h"

#include <algorithm>
#include <utility>

namespace virtualboard {

namespace {

/// Keeps the first of all problems, each once, and counts the others.
class ProblemList
{
public:
    void add(const QStringList &problems)
    {
        constexpr int kMost = 100;
        for (const QString &each : problems) {
            if (m_kept.contains(each)) // a retry has the problems of the first attempt
                continue;
            if (m_kept.size() < kMost)
                m_kept << each;
            else
                ++m_more;
        }
    }
    void add(const ProblemList &others)
    {
        add(others.m_kept);
        m_more += others.m_more;
    }
    QStringList lines() const
    {
        return m_more == 0 ? m_kept
                           : m_kept + QStringList{QStringLiteral("and %1 more").arg(m_more)};
    }

private:
    QStringList m_kept;
    int m_more = 0;
};

/// Checks the commands, in their order, against what was downloaded before each.
class Checker
{
public:
    void take(const Reception &reception)
    {
        m_found.clear();
        m_place = QStringLiteral("Exchange %1 (%2): ")
                      .arg(reception.exchange)
                      .arg(commandName(reception.decoded.command));
        std::visit([this](const auto &command) { check(command); }, reception.decoded.command);
        m_download.take(reception.decoded);
        m_problems.add(fewOf(m_found));
    }
    const ProblemList &problems() const { return m_problems; }

private:
    template <typename Other>
    std::enable_if_t<
        kIsOneOf<Other, UnknownCommand, ResetCommand, StartStopCommand, DisableCurrentStateCommand,
                 StateChangeCommand, Ft3TemplateCommand, StatusReadBackCommand, StopCommand,
                 FpgaResetCommand, DspConfigurationCommand, SvCombinationCommand, SvChannelCommand>>
    check(const Other &)
    { }
    void check(const FrameTemplateCommand &frame);
    void check(const SvDescriptionCommand &description);
    void check(const GooseDescriptionCommand &description);
    void check(const GooseControlCommand &control);
    void check(const SubscriptionCommand &subscription);
    void check(const ChannelSignalCommand &signal);
    void check(const StepConditionCommand &condition) { checkStep(condition.step); }
    void check(const StepOptionCommand &option) { checkStep(option.step); }

    void checkStep(int step) { range("step", step, kStepLimit); }
    void checkItem(const GooseItem &item, const Goose &goose);
    void range(const char *name, int found, int end);
    void equal(const char *name, int expected, int found);
    void problem(const QString &sentence) { m_found << m_place + sentence; }

    QString m_place;
    QStringList m_found; ///< in the command
    ProblemList m_problems;
    Download m_download;
};

void Checker::range(const char *name, int found, int end)
{
    if (found < 0 || found >= end)
        problem(QStringLiteral("%1 0 to %2 expected, %3 found.")
                    .arg(QLatin1String(name))
                    .arg(end - 1)
                    .arg(found));
}

void Checker::equal(const char *name, int expected, int found)
{
    if (expected != found)
        problem(QStringLiteral("%1 %2 expected, %3 found.")
                    .arg(QLatin1String(name))
                    .arg(expected)
                    .arg(found));
}

void Checker::check(const FrameTemplateCommand &frame)
{
    const bool fits = frame.kind == FrameTemplateCommand::SampledValueFrame
        ? std::holds_alternative<SampledValues>(frame.ethernet.pdu)
        : frame.kind == FrameTemplateCommand::GooseFrame
            && std::holds_alternative<Goose>(frame.ethernet.pdu);
    if (!fits)
        problem(QStringLiteral("frame kind %1 does not go with the frame's EtherType %2.")
                    .arg(frame.kind)
                    .arg(frame.ethernet.etherType, 4, 16, QLatin1Char('0')));
}

void Checker::check(const SvDescriptionCommand &description)
{
    equal("second stream number", description.stream, description.number);
    range("smpCnt start", description.smpCntStart, description.smpCntMax);
    const auto *const frame =
        downloadedPdu<SampledValues>(m_download.sampledValues(), description.stream);
    if (!frame) {
        problem(
            QStringLiteral("no frame was downloaded for SV stream %1.").arg(description.stream));
        return;
    }
    equal("smpCnt offset", frame->smpCntOffset, description.smpCntOffset);
    equal("dataset offset", frame->seqDataOffset, description.seqDataOffset);
    equal("channel count", int(frame->entries.size()), int(description.channelKinds.size()));
    for (const char kind : description.channelKinds) {
        if (quint8(kind) != kNoAnalogChannel)
            range("channel kind 255 or", quint8(kind), kAnalogChannels);
    }
}

void Checker::check(const GooseDescriptionCommand &description)
{
    const auto *const frame = downloadedPdu<Goose>(m_download.goose(), description.stream);
    if (!frame) {
        problem(
            QStringLiteral("no frame was downloaded for GOOSE stream %1.").arg(description.stream));
        return;
    }
    equal("sqNum offset", frame->sqNumOffset, description.sqNumOffset);
    equal("t offset", frame->tOffset, description.tOffset);
}

void Checker::check(const GooseControlCommand &control)
{
    checkStep(control.step);
    const auto *const frame = downloadedPdu<Goose>(m_download.goose(), control.group);
    if (!frame) {
        problem(QStringLiteral("no frame was downloaded for GOOSE stream %1.").arg(control.group));
        return;
    }
    for (const GooseItem &item : control.items)
        checkItem(item, *frame);
}

void Checker::checkItem(const GooseItem &item, const Goose &goose)
{
    int size = item.offset == goose.stNumOffset ? kGooseCounterSize : -1;
    for (const GooseEntry &entry : goose.entries) {
        if (item.offset == entry.valueOffset)
            size = int(entry.value.size());
    }
    if (size < 0)
        problem(QStringLiteral("offset %1 is neither that of stNum (%2) nor of a dataset value.")
                    .arg(item.offset)
                    .arg(goose.stNumOffset));
    else
        equal("length of the value written", size, item.length);
}

void Checker::check(const SubscriptionCommand &subscription)
{
    const auto end = [](const SubscriptionCommand &each) {
        return each.logicChannel + int(each.mappedPositions.size());
    };
    for (const auto &[group, other] : m_download.subscriptions()) {
        if (group == subscription.group)
            problem(QStringLiteral("group %1 is used twice.").arg(group));
        if (other.lightPort == subscription.lightPort
            && other.lightGroup == subscription.lightGroup)
            problem(QStringLiteral("light group %1 of port %2 is used twice.")
                        .arg(other.lightGroup)
                        .arg(other.lightPort));
        if (subscription.logicChannel < end(other) && other.logicChannel < end(subscription))
            problem(QStringLiteral("logic channel %1 is fed by groups %2 and %3.")
                        .arg(std::max(subscription.logicChannel, other.logicChannel))
                        .arg(group)
                        .arg(subscription.group));
    }
}

void Checker::check(const ChannelSignalCommand &signal)
{
    checkStep(signal.step);
    range("channel", signal.channel, kAnalogChannels);
}

QStringList ownProblems(const Reception &reception)
{
    QStringList result;
    for (const QString &sentence : reception.problems)
        result << QStringLiteral("Exchange %1, envelope: %2").arg(reception.exchange).arg(sentence);
    for (const QString &sentence : reception.decoded.problems)
        result << QStringLiteral("Exchange %1 (%2): %3")
                      .arg(reception.exchange)
                      .arg(commandName(reception.decoded.command), sentence);
    return result;
}

ProblemList contradictions(const QVector<Reception> &receptions)
{
    Checker checker;
    const QVector<Reception> acknowledged = acknowledgedExchanges(receptions);
    for (const Reception &reception : acknowledged)
        checker.take(reception);
    return checker.problems();
}

/// All datagrams that were too long in one line.
QStringList oversized(const QVector<Reception> &receptions)
{
    const auto isOversized = [](const Reception &each) { return each.oversize > 0; };
    const auto first = std::find_if(receptions.begin(), receptions.end(), isOversized);
    if (first == receptions.end())
        return {};
    return {
        QStringLiteral("%1 datagrams are longer than the %2 bytes that the link allows (the first: "
                       "exchange %3, %4 bytes); they were not looked at.")
            .arg(std::count_if(first, receptions.end(), isOversized))
            .arg(kLargestDatagram)
            .arg(first->exchange)
            .arg(first->oversize)};
}

} // namespace

QStringList crossCheck(const QVector<Reception> &receptions)
{
    return contradictions(receptions).lines();
}

QStringList allProblems(const QVector<Reception> &receptions)
{
    ProblemList result;
    result.add(oversized(receptions));
    for (const Reception &reception : receptions)
        result.add(ownProblems(reception));
    result.add(contradictions(receptions));
    return result.lines();
}

} // namespace virtualboard
