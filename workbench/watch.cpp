#include "watch.h"

#include "failures.h"
#include "terminal.h"

#include <boardstatus.h>
#include <texttable.h>

#include <QThread>

#include <optional>

using namespace virtualboard;

namespace {

constexpr unsigned long kPause = 150; // ms between two readings

/// Payload of \a which, as \a decode understands it.
template <typename Decoded>
Decoded read(BoardSession &session, StatusKind which,
             std::optional<Decoded> (*decode)(const QByteArray &))
{
    const QByteArray payload = session.readStatus(which);
    const std::optional<Decoded> decoded = decode(payload);
    if (!decoded)
        throw BoardError{
            QStringLiteral("--watch cannot read this board's status: status %1 has %2 bytes of "
                           "another layout%3")
                .arg(which)
                .arg(payload.size())
                .arg(which == StateStatus ? QLatin1String("; the sequence goes on")
                                          : QLatin1String())};
    return *decoded;
}

QString seconds(qint64 ns)
{
    return QString::number(double(ns) / 1e9, 'f', 6);
}

QString milliseconds(qint64 ns)
{
    return QString::number(double(ns) / 1e6, 'f', 3);
}

/// "1 (fault)"
QString stepText(const Sequence &sequence, int step)
{
    return printable(QStringLiteral("%1 (%2)").arg(step).arg(sequence.nameOf(step)));
}

QString activeChannels(const PlayStatus &status)
{
    QStringList active;
    for (int channel = 0; channel < logicChannels; ++channel) {
        if (status.isActive(channel))
            active << QString::number(channel);
    }
    return active.isEmpty() ? QStringLiteral("none") : active.join(QLatin1Char(' '));
}

QString liveText(const PlayStatus &status, const Sequence &sequence)
{
    return QStringLiteral("%1: step %2 %3 s, total %4 s, %5 frames, active: %6")
        .arg(QLatin1String(stateName(status.state)), stepText(sequence, status.step),
             QString::number(double(status.timeInStep) / 1e9, 'f', 3),
             QString::number(double(status.totalTime) / 1e9, 'f', 3),
             QString::number(status.framesSent), activeChannels(status));
}

/// Shows the state of the board until the sequence has ended; returns the last one.
DecodedState follow(BoardSession &session, const Sequence &sequence)
{
    LiveLine line;
    PlayStatus before;
    while (true) {
        const DecodedState decoded = read(session, StateStatus, decodeState);
        const PlayStatus &now = decoded.status;
        if (now.state == PlayState::Idle || now.state == PlayState::Armed)
            throw BoardError{QStringLiteral("the board does not play the sequence: it is %1")
                                 .arg(QLatin1String(stateName(now.state)))};
        line.show(liveText(now, sequence), now.state != before.state || now.step != before.step);
        if (now.state != PlayState::Running)
            return decoded;
        before = now;
        QThread::msleep(kPause);
    }
}

QString causeText(const Transition &change)
{
    const QString name = QLatin1String(causeName(change.cause));
    return change.cause == Cause::BinaryInput
        ? QStringLiteral("%1 %2").arg(name).arg(change.channel)
        : name;
}

/// The time from the entry into the step that \a change leaves to the cause; nothing when \a
/// before, the change before it, does not tell. It counts from when the step's first frames were
/// sent: no device could see the step before.
std::optional<qint64> timeInStep(const Transition *before, const Transition &change)
{
    if (!before || change.left == noStep || before->entered != change.left)
        return std::nullopt;
    return change.causeTime - before->entryTime - before->lateness;
}

/// The number that a test is made for, with what makes it doubtful.
QString inputText(const Transition &before, const Transition &change, qint64 duration,
                  const Sequence &sequence)
{
    constexpr qint64 kWorthTelling = 100'000; // ns
    QString text = QStringLiteral("binary input: logic channel %1, %2 ms after entry into step %3")
                       .arg(QString::number(change.channel), milliseconds(duration),
                            stepText(sequence, change.left));
    if (before.lateness > kWorthTelling)
        text += QStringLiteral(", which began %1 ms late").arg(milliseconds(before.lateness));
    if (duration < 0)
        text += QStringLiteral(": before its first frames were sent, so not because of them");
    return text;
}

/// The changes of steps, and for each binary input the time that it took.
void showChanges(const TransitionLog &log, const Sequence &sequence)
{
    const int count = static_cast<int>(log.last.size());
    if (log.total > quint32(count))
        say(QStringLiteral("%1 changes of steps; the board has kept the last %2")
                .arg(log.total)
                .arg(count));
    TextTable table({QStringLiteral(">time, s"), QStringLiteral("left"), QStringLiteral("entered"),
                     QStringLiteral("cause"), QStringLiteral(">time of cause, s"),
                     QStringLiteral(">time in step, ms")});
    QStringList inputs;
    for (int i = 0; i < count; ++i) {
        const Transition &change = log.last[i];
        const auto duration = timeInStep(i > 0 ? &log.last[i - 1] : nullptr, change);
        table.addRow(
            {seconds(change.entryTime),
             change.left == noStep ? QString() : stepText(sequence, change.left),
             change.entered == noStep ? QStringLiteral("end") : stepText(sequence, change.entered),
             causeText(change), seconds(change.causeTime),
             duration ? milliseconds(*duration) : QString()});
        if (change.cause == Cause::BinaryInput && duration)
            inputs << inputText(log.last[i - 1], change, *duration, sequence);
    }
    if (!table.isEmpty())
        say(table.toString().chopped(1));
    for (const QString &line : inputs)
        say(line);
}

/// How well a live board kept its time, unless there is nothing to tell.
void showPunctuality(const Punctuality &times)
{
    if (times.latenessMax == 0 && times.missedDeadlines == 0 && times.sendFailures == 0)
        return;
    say(punctualityText(times));
}

} // namespace

void watch(BoardSession &session, const Sequence &sequence)
{
    const DecodedState last = follow(session, sequence);
    showChanges(read(session, LogStatus, decodeLog), sequence);
    showPunctuality(last.status.punctuality);
    if (last.problems > 0)
        say(QStringLiteral("the board has reported %1 problems since it was started")
                .arg(last.problems));
    if (last.status.state == PlayState::Stopped)
        throw BoardError{QStringLiteral("the sequence was stopped before its end")};
}
