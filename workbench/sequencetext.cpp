#include "workbench/sequencetext.h"

#include "workbench/printabletext.h"

#include "virtualboard/board/texttable.h"

#include <optional>

using namespace virtualboard;

namespace workbench {

namespace {

/// "1.030", for a line that changes all the time.
QString shortSeconds(Duration time)
{
    return secondsText(time).chopped(3);
}

/// "1 (fault)"
QString stepText(const Sequence &sequence, int step)
{
    return printable(QStringLiteral("%1 (%2)").arg(step).arg(sequence.nameOf(step)));
}

QString activeChannels(const PlayStatus &status)
{
    QStringList active;
    for (int channel = 0; channel < kLogicChannels; ++channel) {
        if (status.isActive(channel))
            active << QString::number(channel);
    }
    return active.isEmpty() ? QStringLiteral("none") : active.join(QLatin1Char(' '));
}

QString causeText(const Transition &change)
{
    const QString name = QLatin1String(causeName(change.cause));
    return change.cause == Cause::BinaryInput
        ? QStringLiteral("%1 %2").arg(name).arg(change.channel)
        : name;
}

/// The number that a test is made for, with what makes it doubtful.
QString inputText(const Transition &before, const Transition &change, Duration duration,
                  const QString &whyDoubtful, const Sequence &sequence)
{
    constexpr Duration kWorthTelling = 100us;
    QString text = QStringLiteral("binary input: logic channel %1, %2 ms after entry into step %3")
                       .arg(QString::number(change.channel), millisecondsText(duration),
                            stepText(sequence, change.left));
    if (before.lateness > kWorthTelling)
        text += QStringLiteral(", which began %1 ms late").arg(millisecondsText(before.lateness));
    if (!whyDoubtful.isEmpty())
        text += QStringLiteral(", doubtful: ") + whyDoubtful;
    if (duration < 0ns)
        text += QStringLiteral(": before its first frames were sent, so not because of them");
    return text;
}

/// One line each.
QString lines(const QStringList &texts)
{
    return texts.isEmpty() ? QString() : texts.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

} // namespace

QString stepTexts(const Sequence &sequence)
{
    QStringList texts;
    for (const SequenceStep &step : sequence.steps) {
        QString text = QStringLiteral("  step %1  %2 %3 s, then %4")
                           .arg(texts.size())
                           .arg(step.name, -12)
                           .arg(shortSeconds(step.time), 6)
                           .arg(sequence.nameOf(step.onTimeout));
        if (step.onTrigger)
            text +=
                QStringLiteral("; on the trigger %1").arg(sequence.nameOf(step.onTrigger->goTo));
        if (step.onBinaryInput)
            text += QStringLiteral("; on the binary input %1")
                        .arg(sequence.nameOf(*step.onBinaryInput));
        texts += printable(text);
    }
    return lines(texts);
}

QString rateWarning(const Sequence &sequence)
{
    constexpr int kMicroseconds = 1'000'000;
    const int interval = timesOf(sequence).sampleInterval;
    const int samples = sequence.samplesPerSecond();
    if (interval * samples == kMicroseconds)
        return {};
    return QStringLiteral("the start command has whole microseconds, %1 for %2: a board that goes "
                          "by it alone sends the %3 samples of a second in %4 s")
        .arg(interval)
        .arg(double(kMicroseconds) / samples)
        .arg(samples)
        .arg(double(interval) * samples / kMicroseconds);
}

QString stateText(const PlayStatus &status, const Sequence &sequence)
{
    return QStringLiteral("%1: step %2 %3 s, total %4 s, %5 frames, active: %6")
        .arg(QLatin1String(stateName(status.state)), stepText(sequence, status.step),
             shortSeconds(status.timeInStep), shortSeconds(status.totalTime),
             QString::number(status.framesSent), activeChannels(status));
}

QString changeTexts(const TransitionLog &log, const Sequence &sequence)
{
    const int count = int(log.last.size());
    QString lost;
    if (log.total > quint32(count))
        lost = QStringLiteral("%1 changes of steps; the board has kept the last %2\n")
                   .arg(log.total)
                   .arg(count);
    TextTable table({QStringLiteral(">time, s"), QStringLiteral("left"), QStringLiteral("entered"),
                     QStringLiteral("cause"), QStringLiteral(">time of cause, s"),
                     QStringLiteral(">time in step, ms"),
                     hasDoubtfulTimes(log) ? QStringLiteral("doubtful") : QString()});
    QStringList inputs;
    for (int i = 0; i < count; ++i) {
        const Transition &change = log.last[i];
        const std::optional<Duration> duration = log.timeInStep(i);
        table.addRow(
            {secondsText(change.entryTime),
             change.left == kNoStep ? QString() : stepText(sequence, change.left),
             change.entered == kNoStep ? QStringLiteral("end") : stepText(sequence, change.entered),
             causeText(change), secondsText(change.causeTime),
             duration ? millisecondsText(*duration) : QString(), log.whyDoubtful(i)});
        if (change.cause == Cause::BinaryInput && duration)
            inputs << inputText(log.last[i - 1], change, *duration, log.whyDoubtful(i), sequence);
    }
    return lost + (table.isEmpty() ? QString() : table.toString()) + lines(inputs);
}

bool hasDoubtfulTimes(const TransitionLog &log)
{
    for (int i = 0; i < log.last.size(); ++i) {
        const bool isMeasured =
            log.last[i].cause == Cause::BinaryInput || log.last[i].cause == Cause::Trigger;
        if (isMeasured && !log.whyDoubtful(i).isEmpty())
            return true;
    }
    return false;
}

QString concerns(const DecodedState &last)
{
    QStringList texts;
    const Punctuality &times = last.status.punctuality;
    if (times.latenessMax != 0ns || times.missedDeadlines != 0 || times.sendFailures != 0)
        texts << punctualityText(times);
    if (last.problems > 0)
        texts << QStringLiteral("the board has reported %1 problems since it was started")
                     .arg(last.problems);
    return lines(texts);
}

} // namespace workbench
