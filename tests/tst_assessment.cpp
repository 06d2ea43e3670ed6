// Verdicts without a board: what observations are worth, when a protection function is expected to
// operate, and the search for its thresholds.

#include "workbench/assessment.h"
#include "workbench/bisection.h"
#include "workbench/characteristic.h"

#include <QTest>

#include <cmath>

using namespace workbench;
using statusreply::Change;
using statusreply::Input;
using statusreply::kNoChannel;
using statusreply::kNoStep;
using namespace std::chrono_literals;

namespace {

/// What a row does to the observation of a test that went well.
struct Edit
{
    void (*apply)(Observation &) = [](Observation &) {};
};

constexpr double kNone = -1000; // no such number
constexpr double kAnything = std::numeric_limits<double>::infinity();

Change change(int left, int entered, Change::Cause cause, std::chrono::nanoseconds time,
              std::chrono::nanoseconds entry)
{
    Change result;
    result.left = left;
    result.entered = entered;
    result.cause = cause;
    result.channel = cause == Change::BinaryInput ? 0 : kNoChannel;
    result.causeTime = time;
    result.entryTime = entry;
    return result;
}

/// Prefault for 1 s; the fault trips channel 0 after 35.25 ms less the 0.25 ms of its late frames;
/// the breaker's channel 1 opens; channel 0 bounces once; the end after half a second.
Observation wentWell()
{
    Observation result;
    result.changes = {change(kNoStep, 0, Change::Start, 0ns, 0ns),
                      change(0, 1, Change::Time, 1s, 1s),
                      change(1, 2, Change::BinaryInput, 1'035'500us, 1'035'750us),
                      change(2, kNoStep, Change::Time, 1'535'750us, 1'535'750us)};
    result.changes[1].lateness = 250us;
    result.inputs = {{Input::Trigger, kNoChannel, 500ms},
                     {Input::On, 0, 1'035'500us},
                     {Input::Off, 1, 1'080ms},
                     {Input::Off, 0, 1'100ms},
                     {Input::On, 0, 1'101ms},
                     {Input::Off, 0, 1'102ms}};
    result.stepNames << QStringLiteral("prefault") << QStringLiteral("fault\n")
                     << QStringLiteral("post");
    result.activeInputs = {7};
    return result;
}

Event eventOf(Event::Kind kind, int number = 0, int occurrence = 1)
{
    Event result;
    result.kind = kind;
    result.number = number;
    result.occurrence = occurrence;
    return result;
}

const Event kFault = eventOf(Event::StepEntered, 1);
const Event kTrip = eventOf(Event::InputOn, 0);

Band milliseconds(double lowest, double highest)
{
    Band band;
    band.lowest = lowest / 1000;
    band.highest = highest / 1000;
    return band;
}

TimeAssessment time(const Event &from, const Event &to, const Band &allowed = {},
                    std::chrono::nanoseconds ignoreBefore = 0ns,
                    TimeAssessment::Coming coming = TimeAssessment::Must)
{
    TimeAssessment result;
    result.from = from;
    result.to = to;
    result.allowed = allowed;
    result.ignoreBefore = ignoreBefore;
    result.coming = coming;
    return result;
}

TimeAssessment mustNot(const Event &from, const Event &to,
                       std::optional<std::chrono::nanoseconds> within = std::nullopt)
{
    TimeAssessment result = time(from, to, {}, 0ns, TimeAssessment::MustNot);
    result.within = within;
    return result;
}

LevelAssessment level(int channel, bool on, int step,
                      LevelAssessment::When when = LevelAssessment::Throughout)
{
    return {channel, on, step, 1, when, {}};
}

InverseTime inverse(const char *letter, double pickUp, double multiplier, double least = 0,
                    double constantAbove = 20)
{
    return {*standardCurve(QLatin1String(letter)), pickUp, multiplier, least, constantAbove};
}

} // namespace

Q_DECLARE_METATYPE(Edit)
Q_DECLARE_METATYPE(workbench::Assessment)
Q_DECLARE_METATYPE(workbench::Band)
Q_DECLARE_METATYPE(workbench::Bisection::Range)
Q_DECLARE_METATYPE(workbench::Characteristic)
Q_DECLARE_METATYPE(workbench::Expectation)
Q_DECLARE_METATYPE(workbench::ExpectedTime::Trip)
Q_DECLARE_METATYPE(workbench::Verdict)

class TestAssessment : public QObject
{
    Q_OBJECT

private slots:
    void judges_data();
    void judges();
    void writesValues_data();
    void writesValues();
    void takesTheWorst();
    void knowsCurves_data();
    void knowsCurves();
    void allowsWhatTheValueMayBe_data();
    void allowsWhatTheValueMayBe();
    void refusesCharacteristics_data();
    void refusesCharacteristics();
    void findsThresholds_data();
    void findsThresholds();
    void refusesSearches_data();
    void refusesSearches();

private:
    void timesAreJudged();
    void absencesAreJudged();
    void levelsAndPathsAreJudged();
    void doubtsAreTold();
};

void TestAssessment::judges_data()
{
    QTest::addColumn<Assessment>("wanted");
    QTest::addColumn<Edit>("edit");
    QTest::addColumn<Verdict>("verdict");
    QTest::addColumn<double>("actual"); // ms
    QTest::addColumn<QString>("reason");
    timesAreJudged();
    absencesAreJudged();
    levelsAndPathsAreJudged();
    doubtsAreTold();
}

namespace {

void row(const char *name, const Assessment &wanted, Verdict verdict, double actual,
         const char *reason, void (*edit)(Observation &) = Edit().apply)
{
    QTest::newRow(name) << wanted << Edit{edit} << verdict << actual << QString::fromUtf8(reason);
}

void lateTrip(Observation &observation)
{
    observation.changes[2].disturbances = Change::SentLate;
}

/// The relay did nothing.
void noTrip(Observation &observation)
{
    observation.changes[2] = change(1, 2, Change::Time, 1100ms, 1100ms);
    observation.inputs.clear();
}

/// The fault ended before its first frames were sent.
void leftAtOnce(Observation &observation)
{
    observation.changes[2].causeTime = observation.changes[2].entryTime = 1'000'200us;
}

/// The user had enough at 1.05 s.
void stopped(Observation &observation)
{
    noTrip(observation);
    observation.changes.removeLast();
    observation.changes.last() = change(1, kNoStep, Change::Stop, 1050ms, 1050ms);
    observation.complete = false;
}

void inputsLost(Observation &observation)
{
    noTrip(observation);
    observation.inputs = {{Input::On, 3, 20ms}};
    observation.inputsLost = 1;
}

} // namespace

void TestAssessment::timesAreJudged()
{
    const Event after = eventOf(Event::InputOff, 0, Event::kFirstAfter);
    Event named = kTrip;
    named.name = QStringLiteral("the \ttrip");
    row("within, from the first frames", time(kFault, named, milliseconds(25, 35.25)),
        Verdict::Passed, 35.25,
        "the ?trip came 35.250 ms after entry into step fault?; allowed is 25.000 to 35.250 ms");
    row("too late", time(kFault, kTrip, milliseconds(25, 35.249)), Verdict::Failed, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?; allowed is 25.000 to "
        "35.249 ms");
    row("too early", time(kFault, kTrip, milliseconds(35.251, kAnything)), Verdict::Failed, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?; allowed is at least "
        "35.251 ms");
    row("only measured", time(kTrip, eventOf(Event::StepEntered, 2)), Verdict::Passed, 0.25,
        "entry into step post came 0.250 ms after rise of logic channel 0");
    row("second of its kind", time(kFault, eventOf(Event::InputOn, 0, 2)), Verdict::Passed, 100.75,
        "rise 2 of logic channel 0 came 100.750 ms after entry into step fault?");
    row("before the first event", time(kFault, eventOf(Event::Trigger), milliseconds(0, 10)),
        Verdict::Failed, -500.25,
        "trigger came 500.250 ms before entry into step fault?; allowed is 0.000 to 10.000 ms");
    row("first one after the other", time(eventOf(Event::StepEntered, 2), after), Verdict::Passed,
        64.25, "fall of logic channel 0 came 64.250 ms after entry into step post");
    row("a bounce is ignored", time(kTrip, eventOf(Event::InputOff, 0), {}, 65ms), Verdict::Passed,
        66.5, "fall of logic channel 0 came 66.500 ms after rise of logic channel 0");
    row("an input comes before the change that it causes",
        time(kTrip, eventOf(Event::StepLeft, 1, Event::kFirstAfter)), Verdict::Passed, 0,
        "end of step fault? came 0.000 ms after rise of logic channel 0");
    row("the same again", time(kTrip, eventOf(Event::InputOn, 0, Event::kFirstAfter)),
        Verdict::Passed, 65.5,
        "rise of logic channel 0 came 65.500 ms after rise of logic channel 0");
    row("whole sequence", time(eventOf(Event::Start), eventOf(Event::End)), Verdict::Passed,
        1535.75, "the end came 1535.750 ms after the start");
}

void TestAssessment::absencesAreJudged()
{
    const Event never = eventOf(Event::InputOn, 9);
    row("did not come", time(kFault, never, milliseconds(0, 35)), Verdict::NotMeasured, kNone,
        "rise of logic channel 9 did not come after entry into step fault?; allowed is 0.000 to "
        "35.000 ms");
    row("nothing to measure", time(kFault, never), Verdict::NotMeasured, kNone,
        "rise of logic channel 9 did not come after entry into step fault?");
    row("from what did not come", time(eventOf(Event::StepEntered, 4), kTrip, milliseconds(0, 35)),
        Verdict::NotMeasured, kNone, "entry into step 4 did not come");
    row("stopped too early", time(kFault, kTrip, milliseconds(0, 60)), Verdict::NotMeasured, kNone,
        "rise of logic channel 0 did not come after entry into step fault?; allowed is 0.000 to "
        "60.000 ms; the sequence ended too early to tell",
        stopped);
    row("stopped when it was overdue", time(kFault, kTrip, milliseconds(0, 40)),
        Verdict::NotMeasured, kNone,
        "rise of logic channel 0 did not come after entry into step fault?; allowed is 0.000 to "
        "40.000 ms",
        stopped);
    const Assessment may =
        time(kFault, kTrip, milliseconds(36, kAnything), 0ns, TimeAssessment::May);
    row("need not come", may, Verdict::Passed, kNone,
        "rise of logic channel 0 did not come after entry into step fault?; allowed is at least "
        "36.000 ms",
        noTrip);
    row("need not come, came wrong", may, Verdict::Failed, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?; allowed is at least "
        "36.000 ms");
    row("must not come", mustNot(eventOf(Event::Start), kTrip), Verdict::Failed, 1035.5,
        "rise of logic channel 0 came 1035.500 ms after the start; it must not come");
    row("must not come, came earlier", mustNot(kFault, eventOf(Event::Trigger)), Verdict::Passed,
        kNone, "trigger did not come after entry into step fault?");
    row("must not come so soon", mustNot(kFault, kTrip, 35ms), Verdict::Passed, kNone,
        "rise of logic channel 0 did not come within 35.000 ms after entry into step fault?");
    row("came too soon", mustNot(kFault, kTrip, 35'250us), Verdict::Failed, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?; it must not come "
        "within 35.250 ms");
    row("ended before it could come", mustNot(kFault, never, 1s), Verdict::NotMeasured, kNone,
        "rise of logic channel 9 did not come within 1000.000 ms after entry into step fault?; the "
        "sequence ended too early to tell");
    row("never", NeverAssessment{eventOf(Event::StepEntered, 4)}, Verdict::Passed, kNone,
        "entry into step 4 did not come");
    row("never, and did", NeverAssessment{kTrip}, Verdict::Failed, kNone,
        "rise of logic channel 0 came 1035.500 ms after the start; it must not come",
        [](Observation &observation) { observation.inputsLost = 1; });
    row("once, and no more", NeverAssessment{eventOf(Event::InputOn, 0, 3)}, Verdict::Passed, kNone,
        "rise 3 of logic channel 0 did not come");
    row("never, without an end", NeverAssessment{eventOf(Event::InputOn, 9)}, Verdict::NotMeasured,
        kNone, "rise of logic channel 9 did not come; the sequence ended too early to tell",
        [](Observation &observation) { observation.changes.removeLast(); });
    row("never, as far as it went", NeverAssessment{kTrip}, Verdict::NotMeasured, kNone,
        "rise of logic channel 0 did not come; the sequence ended too early to tell", stopped);
}

void TestAssessment::levelsAndPathsAreJudged()
{
    row("off until the fault", level(0, false, 0), Verdict::Passed, kNone,
        "logic channel 0 was off throughout step prefault");
    row("the trip that ends the step belongs to it", level(0, false, 1), Verdict::Failed, kNone,
        "logic channel 0 was on 35.250 ms after entry into step fault?; it must be off throughout "
        "step fault?");
    row("on at the end", level(0, true, 1, LevelAssessment::AtEnd), Verdict::Passed, kNone,
        "logic channel 0 was on at the end of step fault?");
    row("on throughout, but for a bounce", level(0, true, 2), Verdict::Failed, kNone,
        "logic channel 0 was off 64.250 ms after entry into step post; it must be on throughout "
        "step post");
    row("on since before its first change", level(1, true, 0), Verdict::Passed, kNone,
        "logic channel 1 was on throughout step prefault");
    row("off and on at once", level(0, true, 2, LevelAssessment::AtEnd), Verdict::Passed, kNone,
        "logic channel 0 was on at the end of step post", [](Observation &observation) {
            observation.inputs.removeLast();
            observation.inputs[4].time = observation.inputs[3].time;
        });
    row("on without any change", level(7, false, 2), Verdict::Failed, kNone,
        "logic channel 7 was on 0.000 ms after entry into step post; it must be off throughout "
        "step "
        "post");
    row("not entered", level(0, true, 3), Verdict::NotMeasured, kNone,
        "entry into step 3 did not come");
    row("not left", level(0, false, 1), Verdict::NotMeasured, kNone, "step fault? was not left",
        [](Observation &observation) {
            stopped(observation);
            observation.changes.removeLast();
        });
    row("left before it began", level(0, false, 1), Verdict::NotMeasured, kNone,
        "step fault? was left before its first frames were sent", leftAtOnce);
    row("wrong level before inputs were lost", level(0, true, 2), Verdict::Failed, kNone,
        "logic channel 0 was off 64.250 ms after entry into step post; it must be on throughout "
        "step post",
        [](Observation &observation) {
            observation.inputs.resize(4);
            observation.inputsLost = 2;
        });
    row("level with lost inputs", level(0, false, 1), Verdict::Doubtful, kNone,
        "logic channel 0 was off throughout step fault?; doubtful: changes of inputs not recorded",
        inputsLost);
    row("path", PathAssessment{{0, 1, 2}}, Verdict::Passed, kNone,
        "the steps were prefault, fault?, post");
    row("shorter path", PathAssessment{{0, 1}}, Verdict::Failed, kNone,
        "the steps were prefault, fault?, post; expected are prefault, fault?");
    row("begun path", PathAssessment{{0, 1, 2}}, Verdict::NotMeasured, kNone,
        "the steps were prefault, fault?; expected are prefault, fault?, post; the sequence ended "
        "too early to tell",
        stopped);
    row("wrong path, not to its end", PathAssessment{{0, 2}}, Verdict::Failed, kNone,
        "the steps were prefault, fault?; expected are prefault, post", stopped);
    row("long path", PathAssessment{QVector<int>(14, 1)}, Verdict::Failed, kNone,
        "the steps were prefault, fault?, post; expected are (2 more), fault?, fault?, fault?, "
        "fault?, fault?, fault?, fault?, fault?, fault?, fault?, fault?, fault?");
}

void TestAssessment::doubtsAreTold()
{
    const Event after = eventOf(Event::InputOn, 0, Event::kFirstAfter);
    row("failing, sent late", time(kFault, kTrip, milliseconds(0, 10)), Verdict::Doubtful, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?; allowed is 0.000 to "
        "10.000 ms; doubtful: sent late",
        lateTrip);
    row("disturbed before and after", time(kFault, kTrip), Verdict::Passed, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?",
        [](Observation &observation) {
            observation.changes[1].disturbances = Change::SentLate;
            observation.changes[2].entryTime = observation.changes[2].causeTime;
            observation.changes[3].disturbances = Change::FramesRefused;
        });
    row("disturbed in a step that was left before its first frames",
        time(kFault, eventOf(Event::InputOff, 1)), Verdict::Doubtful, 79.75,
        "fall of logic channel 1 came 79.750 ms after entry into step fault?; doubtful: sent late",
        [](Observation &observation) {
            lateTrip(observation);
            leftAtOnce(observation);
        });
    row("an input lost before the first event", time(kFault, after), Verdict::Passed, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?",
        [](Observation &observation) { observation.changes[1].disturbances = Change::InputsLost; });
    row("last one of the record of inputs", time(kFault, kTrip), Verdict::Passed, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?",
        [](Observation &observation) {
            observation.inputs.resize(2);
            observation.inputsLost = 4;
        });
    row("disturbed across steps", time(eventOf(Event::Start), eventOf(Event::End)),
        Verdict::Doubtful, 1535.75,
        "the end came 1535.750 ms after the start; doubtful: sent late, frames refused",
        [](Observation &observation) {
            lateTrip(observation);
            observation.changes[3].disturbances = Change::FramesRefused;
        });
    row("absent while disturbed", time(kFault, eventOf(Event::InputOn, 9), milliseconds(0, 35)),
        Verdict::Doubtful, kNone,
        "rise of logic channel 9 did not come after entry into step fault?; allowed is 0.000 to "
        "35.000 ms; doubtful: sent late",
        lateTrip);
    row("counted where one may be lost before", time(kTrip, eventOf(Event::InputOff, 1)),
        Verdict::Doubtful, 44.5,
        "fall of logic channel 1 came 44.500 ms after rise of logic channel 0; doubtful: inputs "
        "lost",
        [](Observation &observation) { observation.changes[1].disturbances = Change::InputsLost; });
    row("behind the record of inputs", time(kFault, kTrip, milliseconds(0, 35)), Verdict::Doubtful,
        kNone,
        "rise of logic channel 0 did not come after entry into step fault?; allowed is 0.000 to "
        "35.000 ms; doubtful: changes of inputs not recorded",
        inputsLost);
    row("within the record of inputs", mustNot(kFault, kTrip, 35ms), Verdict::Passed, kNone,
        "rise of logic channel 0 did not come within 35.000 ms after entry into step fault?",
        [](Observation &observation) { observation.inputsLost = 9; });
    row("never, as far as recorded", NeverAssessment{eventOf(Event::Trigger)}, Verdict::Doubtful,
        kNone, "trigger did not come; doubtful: changes of inputs not recorded", inputsLost);
    row("step before the record", time(eventOf(Event::StepEntered, 0), kTrip), Verdict::Doubtful,
        kNone, "entry into step prefault did not come; doubtful: changes of steps lost",
        [](Observation &observation) {
            observation.changes.remove(0);
            observation.changesLost = 1;
        });
    row("step counted without its first", time(kFault, after), Verdict::Doubtful, 35.25,
        "rise of logic channel 0 came 35.250 ms after entry into step fault?; doubtful: changes of "
        "steps lost",
        [](Observation &observation) {
            observation.changes.remove(0);
            observation.changes[0].entryTime = 1s;
            observation.changesLost = 1;
        });
    row("path without its first step", PathAssessment{{1, 2}}, Verdict::Doubtful, kNone,
        "the steps were fault?, post; doubtful: changes of steps lost",
        [](Observation &observation) {
            observation.changes.remove(0, 1);
            observation.changesLost = 1;
        });
    row("nothing is known", time(eventOf(Event::Trigger), kTrip), Verdict::Doubtful, 535.5,
        "rise of logic channel 0 came 535.500 ms after trigger; doubtful: the record of steps ends "
        "before",
        [](Observation &observation) { observation.changes.clear(); });
}

void TestAssessment::judges()
{
    QFETCH(Assessment, wanted);
    QFETCH(Edit, edit);
    QFETCH(Verdict, verdict);
    QFETCH(double, actual);
    QFETCH(QString, reason);
    Observation observation = wentWell();
    edit.apply(observation);
    const AssessmentResult result = assess(wanted, observation);
    QCOMPARE(result.reason, reason);
    QCOMPARE(verdictName(result.verdict), verdictName(verdict));
    QCOMPARE(result.actual ? *result.actual * 1000 : kNone, actual);
}

void TestAssessment::writesValues_data()
{
    QTest::addColumn<double>("actual");
    QTest::addColumn<Band>("allowed");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<double>("deviation");
    const Band fivePercent = bandAround(1.2, {0, 5}, {0.01, 5});
    QTest::newRow("at the limit") << 1.26 << fivePercent << "A"
                                  << "x is 1.26 A; allowed is 1.14 to 1.26 A" << 0.06;
    QTest::newRow("at a limit that is not a round number")
        << 0.8 << bandAround(0.7, {}, {0.1, 0}) << "A"
        << "x is 0.8 A; allowed is 0.7 to 0.8 A" << 0.1;
    QTest::newRow("the absolute tolerance is the larger one")
        << 0.11 << bandAround(0.1, {0.01, 1}, {0.02, 1}) << "s"
        << "x is 110.000 ms; allowed is 90.000 to 120.000 ms" << 0.01;
    QTest::newRow("below a negative nominal value")
        << -10.5 << bandAround(-10, {0, 5}, {}) << QString::fromUtf8("°")
        << QString::fromUtf8("x is -10.5 °; allowed is -10.5 to -10 °") << -0.5;
    QTest::newRow("exactly") << 1.0 << bandAround(1, {}, {}) << ""
                             << "x is 1; allowed is exactly 1" << 0.0;
    Band most;
    most.highest = 2;
    QTest::newRow("at most") << 1.0 << most << "%"
                             << "x is 1 %; allowed is at most 2 %" << kNone;
    QTest::newRow("anything") << 1.0 << Band() << "V"
                              << "x is 1 V" << kNone;
}

void TestAssessment::writesValues()
{
    QFETCH(double, actual);
    QFETCH(Band, allowed);
    QFETCH(QString, unit);
    QFETCH(QString, reason);
    QFETCH(double, deviation);
    const AssessmentResult result = assessValue(actual, allowed, unit, QStringLiteral("x"));
    QCOMPARE(result.reason, reason);
    QCOMPARE(result.verdict, Verdict::Passed);
    QCOMPARE(result.deviation().value_or(kNone), deviation);
    if (!allowed.isUnlimited())
        QCOMPARE(assessValue(allowed.highest + 1e-6, allowed, unit, {}).verdict, Verdict::Failed);
    QCOMPARE(assessValue({}, allowed, unit, {}).verdict, Verdict::NotMeasured);
}

void TestAssessment::takesTheWorst()
{
    QCOMPARE(worst(QVector<Verdict>()), Verdict::NotMeasured);
    QVector<Verdict> verdicts;
    for (const Verdict worse :
         {Verdict::Passed, Verdict::NotMeasured, Verdict::Doubtful, Verdict::Failed}) {
        verdicts.prepend(worse);
        QCOMPARE(worst(verdicts), worse);
    }
}

void TestAssessment::knowsCurves_data()
{
    QTest::addColumn<Characteristic>("characteristic");
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("expected"); // s; made with 50 digits elsewhere
    // At multiples of 1.0001, 2, 10 and 20 of the pick-up
    const struct
    {
        const char *letter;
        std::array<double, 4> times;
    } curves[] = {
        {"A", {70003.4299416929, 10.0290270200468, 2.97059862418842, 2.26735636724706}},
        {"b", {135000, 13.5, 1.5, 0.710526315789474}},
        {"C", {399980.000999950, 26.6666666666667, 0.808080808080808, 0.200501253132832}},
        {"D", {25751.3757285513, 3.80324922523151, 1.20675592246931, 0.94806323509445}},
        {"E", {98045.5887451127, 7.02766666666667, 0.689080808080808, 0.540147869674185}},
        {"F", {140993.072052482, 9.5217, 0.406548484848485, 0.192376691729323}},
    };
    const double multiples[] = {1.0001, 2, 10, 20};
    for (const auto &curve : curves) {
        for (std::size_t i = 0; i < curve.times.size(); ++i)
            QTest::addRow("%s at %g", curve.letter, multiples[i])
                << Characteristic(inverse(curve.letter, 1, 1)) << multiples[i] << curve.times[i];
    }
    QTest::newRow("multiplier and pick-up")
        << Characteristic(inverse("A", 1.2, 0.05)) << 6.0 << 0.213986003547269;
    QTest::newRow("by its name") << Characteristic(inverse("very inverse", 2, 0.3)) << 3.0 << 8.1;
    QTest::newRow("at the pick-up") << Characteristic(inverse("C", 1.2, 1)) << 1.2 << kNone;
    QTest::newRow("constant") << Characteristic(inverse("B", 2, 1)) << 1000.0 << 0.710526315789474;
    QTest::newRow("constant earlier") << Characteristic(inverse("B", 2, 1, 0, 10)) << 30.0 << 1.5;
    QTest::newRow("least time") << Characteristic(inverse("B", 2, 1, 0.8)) << 60.0 << 0.8;
    QTest::newRow("no number") << Characteristic(inverse("B", 2, 1)) << std::nan("") << kNone;
    QTest::newRow("number") << Characteristic(0.25) << 0.0 << 0.25;
    QTest::newRow("definite, at the pick-up")
        << Characteristic(DefiniteTime{2, 0.5}) << 2.0 << kNone;
    QTest::newRow("definite") << Characteristic(DefiniteTime{2, 0.5}) << 2.1 << 0.5;
    const Characteristic table = TimeTable{{{1, 10}, {2, 4}, {10, 1}}};
    QTest::newRow("below the table") << table << 0.999 << kNone;
    QTest::newRow("first point") << table << 1.0 << 10.0;
    QTest::newRow("between points") << table << 4.0 << 3.25;
    QTest::newRow("last point") << table << 10.0 << 1.0;
    QTest::newRow("behind the table") << table << 11.0 << 1.0;
}

void TestAssessment::knowsCurves()
{
    QFETCH(Characteristic, characteristic);
    QFETCH(double, value);
    QFETCH(double, expected);
    QVERIFY(check(characteristic));
    const double time = timeFor(characteristic, value).value_or(kNone);
    QVERIFY2(std::abs(time - expected) <= 1e-12 * std::abs(expected),
             qPrintable(QString::number(time, 'g', 16)));
}

void TestAssessment::allowsWhatTheValueMayBe_data()
{
    QTest::addColumn<Expectation>("expectation");
    QTest::addColumn<double>("value");
    QTest::addColumn<ExpectedTime::Trip>("trip");
    QTest::addColumn<double>("nominal");
    QTest::addColumn<double>("lowest");
    QTest::addColumn<double>("highest");
    const Tolerance five = {0.05, 5};
    const InverseTime normal = inverse("A", 1, 1);
    QTest::newRow("tolerances of the time")
        << Expectation{normal, {}, five, 0} << 2.0 << ExpectedTime::Certain << 10.0290270200468
        << 10.0290270200468 << 10.5304783710491;
    QTest::newRow("and of the value")
        << Expectation{normal, {}, {}, 5} << 2.0 << ExpectedTime::Certain << 10.0290270200468
        << 9.36493206332775 << 10.8360586503719;
    QTest::newRow("the absolute one is the larger one")
        << Expectation{DefiniteTime{1, 0.1}, five, five, 5} << 2.0 << ExpectedTime::Certain << 0.1
        << 0.05 << 0.15;
    QTest::newRow("near above the pick-up")
        << Expectation{DefiniteTime{1, 0.1}, five, five, 5} << 1.01 << ExpectedTime::Possible << 0.1
        << 0.05 << kAnything;
    QTest::newRow("near below the pick-up")
        << Expectation{DefiniteTime{1, 0.1}, five, five, 5} << 0.99 << ExpectedTime::Possible
        << kNone << 0.05 << kAnything;
    QTest::newRow("far below the pick-up")
        << Expectation{normal, five, five, 5} << 0.9 << ExpectedTime::None << kNone << -kAnything
        << kAnything;
    QTest::newRow("a table's peak within")
        << Expectation{TimeTable{{{1, 1}, {10, 2}, {20, 1}}}, {}, {}, 10} << 10.5
        << ExpectedTime::Certain << 1.95 << 1.845 << 2.0;
}

void TestAssessment::allowsWhatTheValueMayBe()
{
    QFETCH(Expectation, expectation);
    QFETCH(double, value);
    QFETCH(ExpectedTime::Trip, trip);
    QFETCH(double, nominal);
    QFETCH(double, lowest);
    QFETCH(double, highest);
    const ExpectedTime expected = expectedTime(expectation, value);
    QCOMPARE(expected.trip, trip);
    QCOMPARE(expected.band.nominal.value_or(kNone), nominal);
    QCOMPARE(expected.band.lowest, lowest);
    QCOMPARE(expected.band.highest, highest);

    // A relay that does nothing
    Observation observation = wentWell();
    noTrip(observation);
    const AssessmentResult result = assess(expecting(expected, time(kFault, kTrip)), observation);
    QCOMPARE(result.verdict,
             trip == ExpectedTime::Certain ? Verdict::NotMeasured : Verdict::Passed);
}

void TestAssessment::refusesCharacteristics_data()
{
    QTest::addColumn<Characteristic>("characteristic");
    QTest::addColumn<QString>("message");
    QTest::newRow("pick-up of 0") << Characteristic(inverse("A", 0, 1))
                                  << "the pick-up is 0; it must be above 0";
    QTest::newRow("no number") << Characteristic(inverse("A", 1, std::nan("")))
                               << "the time multiplier is nan; it must be above 0";
    QTest::newRow("constant too early")
        << Characteristic(inverse("A", 1, 1, 0, 1))
        << "the multiple above which the time is constant is 1; it must be above 1";
    QTest::newRow("negative time")
        << Characteristic(DefiniteTime{1, -0.1}) << "the time is -0.1; it must be 0 or more";
    QTest::newRow("negative number")
        << Characteristic(-1.0) << "the time is -1; it must be 0 or more";
    QTest::newRow("no points") << Characteristic(TimeTable()) << "the table has no points";
    QTest::newRow("endless point") << Characteristic(TimeTable{{{1, kAnything}}})
                                   << "a time of the table is inf; it must be 0 or more";
    QTest::newRow("falling points") << Characteristic(TimeTable{{{2, 1}, {2, 1}}})
                                    << "the values of the table do not rise: 2 comes after 2";
}

void TestAssessment::refusesCharacteristics()
{
    QFETCH(Characteristic, characteristic);
    QFETCH(QString, message);
    const Expected<void> result = check(characteristic);
    QVERIFY(!result);
    QCOMPARE(result.error().message, message);
}

void TestAssessment::findsThresholds_data()
{
    QTest::addColumn<Bisection::Range>("range");
    QTest::addColumn<double>("trips"); // from this value on; above it, if the search rises
    QTest::addColumn<double>("drops"); // from this value on, backwards
    QTest::addColumn<int>("shots"); // at most
    QTest::addColumn<QStringList>("reasons"); // for pick-up, drop-off and reset ratio

    const auto found = QStringList();
    const auto refused = [](const char *pickUp) {
        return QStringList{QStringLiteral("pick-up was not measured: ") + QLatin1String(pickUp),
                           QStringLiteral("drop-off was not measured: there is no pick-up"),
                           QStringLiteral("reset ratio was not measured: it needs both values")};
    };
    const auto range = [](double from, double to, const Tolerance &resolution, int shots = 40) {
        return Bisection::Range{from, to, resolution, shots};
    };
    QTest::newRow("over-current") << range(0.5, 2, {0.001, 0}) << 1.0123 << 0.957 << 26 << found;
    QTest::newRow("resolution in percent") << range(0, 100, {0, 0.1}) << 7.77 << 7.5 << 36 << found;
    QTest::newRow("undervoltage") << range(110, 10, {0.1, 0}) << 57.3 << 59.1 << 24 << found;
    QTest::newRow("as fine as numbers are")
        << range(1, 2, {1e-300, 0}, 80) << 1.1 << 1.05 << 160 << found;
    QTest::newRow("pick-up of 0")
        << range(-1, 1, {1, 0}) << 0.0 << -0.5 << 6
        << QStringList{QString(), QString(),
                       QStringLiteral("reset ratio was not measured: the pick-up is 0")};
    QTest::newRow("wider than the range") << range(1, 2, {1, 0}) << 1.5 << 1.2 << 4 << found;
    QTest::newRow("does not trip") << range(0.5, 2, {0.001, 0}) << 3.0 << 2.9 << 2
                                   << refused("the relay does not trip at 0.5 A, and not at 2 A");
    QTest::newRow("trips always") << range(0.5, 2, {0.001, 0}) << 0.4 << 0.3 << 2
                                  << refused("the relay does trip at 2 A, and already at 0.5 A");
    QTest::newRow("the other way round") << range(0.5, 2, {0.001, 0}) << -1.0 << 0.3 << 2
                                         << refused("the relay does trip at 0.5 A, but not at 2 A");
    QTest::newRow("out of shots")
        << range(0, 1, {0.001, 0}, 4) << 0.3 << 0.2 << 4
        << refused("after 4 shots it is known to lie between 0.25 A and 0.5 A only");
    QTest::newRow("does not drop off")
        << range(0.5, 2, {0.001, 0}) << 1.0 << 0.4 << 15
        << QStringList{QString(),
                       QStringLiteral("drop-off was not measured: the relay does not drop off at "
                                      "2 A, and not at 0.5 A"),
                       QStringLiteral("reset ratio was not measured: it needs both values")};
}

void TestAssessment::findsThresholds()
{
    QFETCH(Bisection::Range, range);
    QFETCH(double, trips);
    QFETCH(double, drops);
    QFETCH(int, shots);
    QFETCH(QStringList, reasons);
    const double sign = range.to > range.from ? 1 : -1;
    ThresholdSettings settings;
    settings.range = range;
    settings.unit = QStringLiteral("A");
    const Tolerance near = {range.resolution.absolute, 2};
    settings.pickUp = bandAround(trips, near, near);
    QVERIFY(Bisection::check(range));
    ThresholdSearch search(settings);
    while (const std::optional<ThresholdSearch::Shot> shot = search.next()) {
        const bool isPickUp = shot->phase == ThresholdSearch::Shot::PickUp;
        const double threshold = isPickUp ? std::abs(trips) : drops;
        const bool isBeyond = isPickUp ? sign * shot->value >= sign * threshold
                                       : sign * shot->value > sign * threshold;
        search.take(trips < 0 ? !isBeyond : isBeyond); // negative: trips below it
        QVERIFY(search.shots() <= shots);
    }
    const QVector<AssessmentResult> results = search.results();
    QCOMPARE(results.size(), 3);
    for (int i = 0; i < 3; ++i) {
        const QString reason = reasons.value(i);
        QCOMPARE(results[i].verdict, reason.isEmpty() ? Verdict::Passed : Verdict::NotMeasured);
        if (!reason.isEmpty())
            QCOMPARE(results[i].reason, reason);
    }
    const auto isNear = [&](std::optional<double> value, double threshold, double side) {
        const double beyond = side * (value.value_or(kNone) - threshold);
        return beyond >= 0 && beyond <= range.resolution.of(threshold) * 1.01 + 1e-15;
    };
    if (reasons.isEmpty()) {
        QVERIFY(isNear(search.pickUp(), trips, sign));
        QVERIFY(isNear(search.dropOff(), drops, -sign));
        QCOMPARE(results[2].actual.value_or(kNone), *search.dropOff() / *search.pickUp());
    }
}

void TestAssessment::refusesSearches_data()
{
    QTest::addColumn<Bisection::Range>("range");
    QTest::addColumn<QString>("message");
    QTest::newRow("no range") << Bisection::Range{1, 1, {1, 0}, 9}
                              << "a search from 1 to 1 has no range";
    QTest::newRow("endless") << Bisection::Range{1, kAnything, {1, 0}, 9}
                             << "a search from 1 to inf has no range";
    QTest::newRow("no resolution")
        << Bisection::Range{1, 2, {}, 9} << "the resolution of a search must be above 0";
    QTest::newRow("no shots") << Bisection::Range{1, 2, {1, 0}, 2}
                              << "a search with 2 shots is too short; the least is 3";
}

void TestAssessment::refusesSearches()
{
    QFETCH(Bisection::Range, range);
    QFETCH(QString, message);
    const Expected<void> result = Bisection::check(range);
    QVERIFY(!result);
    QCOMPARE(result.error().message, message);
}

QTEST_GUILESS_MAIN(TestAssessment)

#include "tst_assessment.moc"
