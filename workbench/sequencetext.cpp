#include "workbench/sequencetext.h"

#include "virtualboard/board/boardstatus.h"
#include "virtualboard/board/texttable.h"
#include "workbench/printabletext.h"
#include "workbench/statustext.h"

#include <optional>

using statusreply::Change;
using statusreply::Changes;
using statusreply::State;
using virtualboard::counted;
using virtualboard::millisecondsText;
using virtualboard::Punctuality;
using virtualboard::punctualityText;
using virtualboard::secondsText;
using virtualboard::TextTable;
using namespace std::chrono_literals;

namespace workbench {

namespace {

/// "1.030", for a line that changes all the time.
QString shortSeconds(std::chrono::nanoseconds time)
{
    return secondsText(time).chopped(3);
}

/// "1 (fault)", or "1" for a step that the sequence does not have.
QString stepText(const Sequence &sequence, int step)
{
    if (step >= sequence.steps.size())
        return QString::number(step);
    return printable(QStringLiteral("%1 (%2)").arg(step).arg(sequence.nameOf(step)));
}

/// "0", or "0 (trip A)" if the channel has a name.
QString channelText(const Sequence &sequence, int channel)
{
    const QString name = sequence.signalNames.inputs.value(channel);
    return printable(name.isEmpty() ? QString::number(channel)
                                    : QStringLiteral("%1 (%2)").arg(channel).arg(name));
}

QString causeText(const Change &change, const Sequence &sequence)
{
    const QString name = causeName(change.cause);
    return change.cause == Change::BinaryInput
        ? QStringLiteral("%1 %2").arg(name, channelText(sequence, change.channel))
        : name;
}

/// The number that a test is made for, with what makes it doubtful.
QString inputText(const Change &before, const Change &change, std::chrono::nanoseconds duration,
                  const QString &whyDoubtful, const Sequence &sequence)
{
    constexpr std::chrono::nanoseconds kWorthTelling = 100us;
    QString text = QStringLiteral("binary input: %1, %2 ms after entry into step %3")
                       .arg(printable(sequence.inputName(change.channel)),
                            millisecondsText(duration), stepText(sequence, change.left));
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

QString stateText(const State &state, const Sequence &sequence)
{
    QString text = stateName(state.playing) + QLatin1String(": ");
    if (state.step != statusreply::kNoStep)
        text += QStringLiteral("step %1 %2 s, ")
                    .arg(stepText(sequence, state.step), shortSeconds(state.timeInStep));
    return text
        + QStringLiteral("total %1 s, %2 frames")
              .arg(shortSeconds(state.totalTime), QString::number(state.frames));
}

QString activeText(const State &state, const Sequence &sequence)
{
    QStringList active;
    for (std::size_t channel = 0; channel < state.active.size(); ++channel) {
        if (state.active[channel])
            active << channelText(sequence, int(channel));
    }
    return QStringLiteral(", active: ")
        + (active.isEmpty() ? QStringLiteral("none") : active.join(QLatin1Char(' ')));
}

QString changeTexts(const Changes &changes, const Sequence &sequence, int width)
{
    const int count = int(changes.last.size());
    QString lost;
    if (changes.total > quint32(count))
        lost = QStringLiteral("%1 changes of steps; the board has kept the last %2\n")
                   .arg(changes.total)
                   .arg(count);
    TextTable table({QStringLiteral(">time, s"), QStringLiteral("left"), QStringLiteral("entered"),
                     QStringLiteral("cause"), QStringLiteral(">time of cause, s"),
                     QStringLiteral(">time in step, ms"),
                     hasDoubtfulTimes(changes) ? QStringLiteral("doubtful") : QString()});
    QStringList inputs;
    for (int i = 0; i < count; ++i) {
        const Change &change = changes.last[i];
        const std::optional<std::chrono::nanoseconds> duration = changes.timeInStep(i);
        table.addRow(
            {secondsText(change.entryTime),
             change.left == statusreply::kNoStep ? QString() : stepText(sequence, change.left),
             change.entered == statusreply::kNoStep ? QStringLiteral("end")
                                                    : stepText(sequence, change.entered),
             causeText(change, sequence), secondsText(change.causeTime),
             duration ? millisecondsText(*duration) : QString(), whyDoubtful(changes, i)});
        if (change.cause == Change::BinaryInput && duration)
            inputs << inputText(changes.last[i - 1], change, *duration, whyDoubtful(changes, i),
                                sequence);
    }
    return lost + (table.isEmpty() ? QString() : table.toString(width)) + lines(inputs);
}

QString inputTexts(const statusreply::Inputs &inputs, const Sequence &sequence, int width)
{
    if (inputs.part.isEmpty())
        return QStringLiteral("no inputs here; the sequence had %1\n").arg(inputs.total);
    TextTable table({QStringLiteral(">input"), QStringLiteral(">time, s"),
                     QStringLiteral("logic channel"), QStringLiteral("is")});
    for (int i = 0; i < inputs.part.size(); ++i) {
        const statusreply::Input &input = inputs.part[i];
        const bool isTrigger = input.kind == statusreply::Input::Trigger;
        table.addRow({QStringLiteral("%1 of %2").arg(inputs.first + i + 1).arg(inputs.total),
                      secondsText(input.time),
                      isTrigger ? QString() : channelText(sequence, input.channel),
                      inputName(input.kind)});
    }
    return table.toString(width);
}

QString concerns(const State &last)
{
    QStringList texts;
    const Punctuality times = {last.missedDeadlines, last.framesRefused, last.latenessP50,
                               last.latenessP99, last.latenessMax};
    if (times.latenessMax != 0ns || times.missedDeadlines != 0 || times.sendFailures != 0)
        texts << punctualityText(times);
    if (last.problems > 0)
        texts << QStringLiteral("the board has reported %1 since it was started")
                     .arg(counted(last.problems, QStringLiteral("problem")));
    return lines(texts);
}

} // namespace workbench
