// The time that a device took, from the record of the changes of steps: one number, whichever way
// the record has gone before somebody prints it.

#include "virtualboard/board/boardreport.h"
#include "virtualboard/board/boardstatus.h"
#include "virtualboard/capture/capturemarks.h"
#include "virtualboard/play/transitions.h"

#include <QTest>

using namespace virtualboard;

Q_DECLARE_METATYPE(TransitionLog)

class TestTransitions : public QObject
{
    Q_OBJECT

private slots:
    void oneNumber_data();
    void oneNumber();
};

/// The last change of each row is the one that is timed.
void TestTransitions::oneNumber_data()
{
    QTest::addColumn<TransitionLog>("log");
    QTest::addColumn<QString>("milliseconds"); // a dash if it cannot be known
    const Transition start = {kNoStep, 0, Cause::Start, kNoChannel, 0s, 0s};
    const auto fault = [](Duration lateness) {
        return Transition{0, 1, Cause::Time, kNoChannel, 1s, 1000250us, lateness};
    };
    const Transition trip = {1, 2, Cause::BinaryInput, 7, 1219636700ns, 1219750us, 3ms};
    const auto row = [](const char *name, quint32 total, const QVector<Transition> &last,
                        const char *milliseconds) {
        QTest::newRow(name) << TransitionLog{total, last} << QString::fromUtf8(milliseconds);
    };
    row("in time", 3, {start, fault(0s), trip}, "219.387");
    row("late by more than 16 bits of microseconds", 3, {start, fault(160ms), trip}, "59.387");
    row("late by less than a microsecond", 3, {start, fault(300ns), trip}, "219.386");
    row("late by more than 32 bits of nanoseconds", 3,
        {start, fault(5s), {1, 2, Cause::Trigger, kNoChannel, 6001s, 6001s}}, "5994999.750");
    row("before the first frames", 3, {start, fault(300ms), trip}, "-80.613");
    row("nothing left", 1, {start}, "\u2013");
    row("older changes lost", 100, {trip}, "\u2013");
    row("another step entered", 100, {start, trip}, "\u2013");
}

void TestTransitions::oneNumber()
{
    QFETCH(TransitionLog, log);
    QFETCH(QString, milliseconds);
    const auto shown = [](std::optional<Duration> time) {
        return time ? millisecondsText(*time) : QStringLiteral("\u2013");
    };
    const int last = int(log.last.size()) - 1;
    QCOMPARE(shown(log.timeInStep(last)), milliseconds);

    const TransitionLog read = decodeLog(encodeLog(log)).value();
    QCOMPARE(shown(read.timeInStep(last)), milliseconds);

    TransitionLog marked = log;
    for (Transition &each : marked.last) {
        const auto mark = decodeMark(encodeMark(StepMark{each, {}}));
        each = std::get<StepMark>(mark.value()).transition;
    }
    QCOMPARE(shown(marked.timeInStep(last)), milliseconds);

    const QString row =
        playedReport({}, read).split('\n').filter(causeName(log.last[last].cause))[0];
    QCOMPARE(row.simplified().split(' ')[3], milliseconds);
}

QTEST_GUILESS_MAIN(TestTransitions)
#include "tst_transitions.moc"
