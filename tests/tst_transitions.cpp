// The time that a device took, from the record of the changes of steps: one number, whichever way
// the record has gone before somebody prints it.

#include "protocol/statusreply.h"
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
    void doubts_data();
    void doubts();
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

    const auto read = statusreply::decodeChanges(encodeLog(log)).value();
    QCOMPARE(shown(read.timeInStep(last)), milliseconds);

    TransitionLog marked = log;
    for (Transition &each : marked.last) {
        const auto mark = decodeMark(encodeMark(StepMark{each, {}}));
        each = std::get<StepMark>(mark.value()).transition;
    }
    QCOMPARE(shown(marked.timeInStep(last)), milliseconds);

    const QString row =
        playedReport({}, log).split('\n').filter(causeName(log.last[last].cause))[0];
    QCOMPARE(row.simplified().split(' ')[3], milliseconds);
}

void TestTransitions::doubts_data()
{
    QTest::addColumn<int>("disturbances"); // of the change out of the step
    QTest::addColumn<QString>("why");
    QTest::newRow("none") << 0 << "";
    QTest::newRow("late") << 1 << "sent late";
    QTest::newRow("refused") << 2 << "frames refused";
    QTest::newRow("lost") << 4 << "inputs lost";
    QTest::newRow("all") << 7 << "sent late, frames refused, inputs lost";
}

/// What disturbed the steps before is no reason to doubt this one, nor is a step that is not timed.
void TestTransitions::doubts()
{
    QFETCH(int, disturbances);
    QFETCH(QString, why);
    const TransitionLog log = {
        3,
        {{kNoStep, 0, Cause::Start, kNoChannel, 0s, 0s, 0s, 7},
         {0, 1, Cause::Time, kNoChannel, 1s, 1s, 0s, 7},
         {1, 2, Cause::BinaryInput, 7, 1030ms, 1030ms, 0s, quint8(disturbances)}},
        5};
    const auto read = statusreply::decodeChanges(encodeLog(log)).value();
    QCOMPARE(read.start, 5U);
    QCOMPARE(read.last[2].disturbances, disturbances);
    const auto mark = decodeMark(encodeMark(StepMark{log.last[2], {}}));
    QCOMPARE(int(std::get<StepMark>(mark.value()).transition.disturbances), disturbances);
    QCOMPARE(log.whyDoubtful(0), QString());
    QCOMPARE(log.whyDoubtful(1), QStringLiteral("sent late, frames refused, inputs lost"));
    QCOMPARE(log.whyDoubtful(2), why);
    const QString row = playedReport({}, log, 200).split('\n').filter("binary input")[0];
    QVERIFY(row.contains("doubtful: " + why) || why.isEmpty());
    QCOMPARE(row.contains("doubtful"), !why.isEmpty());
}

QTEST_GUILESS_MAIN(TestTransitions)
#include "tst_transitions.moc"
