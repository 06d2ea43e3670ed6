#include "report.h"

#include <QMap>

#include <algorithm>
#include <utility>

namespace virtualboard {

namespace {

constexpr int stepCount = 5;
constexpr int channelCount = 16;
constexpr int noSource = 0xff; ///< channel kind of an SV channel that no analog output feeds
constexpr int stNumSize = 4;

/// Walks the commands in their order and remembers what later ones refer to.
class Checker
{
public:
    void take(const Reception &reception)
    {
        m_place = QStringLiteral("Exchange %1 (%2): ")
                      .arg(reception.exchange)
                      .arg(commandName(reception.decoded.command));
        std::visit([this](const auto &command) { check(command); }, reception.decoded.command);
    }
    QStringList problems() const { return m_problems; }

private:
    template <typename Other>
    void check(const Other &)
    { }
    void check(const ResetParameters &);
    void check(const FrameTemplate &frame);
    void check(const SvDescription &description);
    void check(const GooseDescription &description);
    void check(const GooseControl &control);
    void check(const Subscription &subscription);
    void check(const ChannelSignal &signal);
    void check(const StepCondition &condition) { checkStep(condition.step); }
    void check(const StepOption &option) { checkStep(option.step); }

    void checkStep(int step) { range("step", step, stepCount); }
    void checkItem(const GooseItem &item, const Goose &goose);
    void range(const char *name, int found, int end);
    void equal(const char *name, int expected, int found);
    void problem(const QString &sentence) { m_problems << m_place + sentence; }

    QString m_place;
    QStringList m_problems;
    QMap<int, SampledValues> m_sampledValues;
    QMap<int, Goose> m_goose;
    QVector<Subscription> m_subscriptions;
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

void Checker::check(const ResetParameters &)
{
    m_sampledValues.clear();
    m_goose.clear();
    m_subscriptions.clear();
}

void Checker::check(const FrameTemplate &frame)
{
    const auto *sampledValues = std::get_if<SampledValues>(&frame.ethernet.pdu);
    const auto *goose = std::get_if<Goose>(&frame.ethernet.pdu);
    if (frame.kind == FrameTemplate::SampledValueFrame && sampledValues)
        m_sampledValues.insert(frame.stream, *sampledValues);
    else if (frame.kind == FrameTemplate::GooseFrame && goose)
        m_goose.insert(frame.stream, *goose);
    else
        problem(QStringLiteral("frame kind %1 does not go with the frame's EtherType %2.")
                    .arg(frame.kind)
                    .arg(frame.ethernet.etherType, 4, 16, QLatin1Char('0')));
}

void Checker::check(const SvDescription &description)
{
    equal("second stream number", description.stream, description.number);
    range("smpCnt start", description.smpCntStart, description.smpCntMax);
    const auto frame = m_sampledValues.constFind(description.stream);
    if (frame == m_sampledValues.constEnd()) {
        problem(
            QStringLiteral("no frame was downloaded for SV stream %1.").arg(description.stream));
        return;
    }
    equal("smpCnt offset", frame->smpCntOffset, description.smpCntOffset);
    equal("dataset offset", frame->seqDataOffset, description.seqDataOffset);
    equal("channel count", int(frame->entries.size()), int(description.channelKinds.size()));
    for (const char kind : description.channelKinds) {
        if (quint8(kind) != noSource)
            range("channel kind 255 or", quint8(kind), channelCount);
    }
}

void Checker::check(const GooseDescription &description)
{
    const auto frame = m_goose.constFind(description.stream);
    if (frame == m_goose.constEnd()) {
        problem(
            QStringLiteral("no frame was downloaded for GOOSE stream %1.").arg(description.stream));
        return;
    }
    equal("sqNum offset", frame->sqNumOffset, description.sqNumOffset);
    equal("t offset", frame->tOffset, description.tOffset);
}

void Checker::check(const GooseControl &control)
{
    checkStep(control.step);
    const auto frame = m_goose.constFind(control.group);
    if (frame == m_goose.constEnd()) {
        problem(QStringLiteral("no frame was downloaded for GOOSE stream %1.").arg(control.group));
        return;
    }
    for (const GooseItem &item : control.items)
        checkItem(item, *frame);
}

void Checker::checkItem(const GooseItem &item, const Goose &goose)
{
    int size = item.offset == goose.stNumOffset ? stNumSize : -1;
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

void Checker::check(const Subscription &subscription)
{
    const auto end = [](const Subscription &each) {
        return each.logicChannel + int(each.mappedPositions.size());
    };
    for (const Subscription &other : std::as_const(m_subscriptions)) {
        if (other.group == subscription.group)
            problem(QStringLiteral("group %1 is used twice.").arg(other.group));
        if (other.lightPort == subscription.lightPort
            && other.lightGroup == subscription.lightGroup)
            problem(QStringLiteral("light group %1 of port %2 is used twice.")
                        .arg(other.lightGroup)
                        .arg(other.lightPort));
        if (subscription.logicChannel < end(other) && other.logicChannel < end(subscription))
            problem(QStringLiteral("logic channel %1 is fed by groups %2 and %3.")
                        .arg(std::max(subscription.logicChannel, other.logicChannel))
                        .arg(other.group)
                        .arg(subscription.group));
    }
    m_subscriptions << subscription;
}

void Checker::check(const ChannelSignal &signal)
{
    checkStep(signal.step);
    range("channel", signal.channel, channelCount);
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

} // namespace

QStringList crossCheck(const QVector<Reception> &receptions)
{
    Checker checker;
    const QVector<Reception> acknowledged = acknowledgedExchanges(receptions);
    for (const Reception &reception : acknowledged)
        checker.take(reception);
    return checker.problems();
}

QStringList allProblems(const QVector<Reception> &receptions)
{
    QStringList result;
    for (const Reception &reception : receptions)
        result += ownProblems(reception);
    result += crossCheck(receptions);
    result.removeDuplicates(); // a retry has the problems of the first attempt
    return result;
}

} // namespace virtualboard
