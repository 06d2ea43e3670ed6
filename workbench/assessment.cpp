#include "workbench/assessment.h"

#include "workbench/printabletext.h"

#include <algorithm>

using statusreply::Change;
using statusreply::kNoStep;
using std::chrono::nanoseconds;

namespace workbench {

namespace {

constexpr nanoseconds kBeforeAll = nanoseconds::min();
constexpr nanoseconds kAfterAll = nanoseconds::max();

double seconds(nanoseconds time)
{
    return std::chrono::duration<double>(time).count();
}

QString timeText(nanoseconds time)
{
    return valueText(seconds(time), QStringLiteral("s"));
}

/// "35.250 ms after entry into step fault"
QString distanceText(nanoseconds distance, const QString &from)
{
    return distance < nanoseconds(0) ? timeText(-distance) + QStringLiteral(" before ") + from
                                     : timeText(distance) + QStringLiteral(" after ") + from;
}

AssessmentResult resultOf(Verdict verdict, const QString &reason)
{
    AssessmentResult result;
    result.verdict = verdict;
    result.reason = reason;
    return result;
}

/// Where there are \a doubts, the verdict is no longer sure.
AssessmentResult doubted(AssessmentResult result, QStringList doubts)
{
    doubts.removeDuplicates();
    if (doubts.isEmpty())
        return result;
    result.verdict = Verdict::Doubtful;
    result.reason += QStringLiteral("; doubtful: ") + doubts.join(QLatin1String(", "));
    return result;
}

/// One of an event that is counted from the start may be lost before the one that was found.
QStringList countingDoubts(const Timeline &timeline, const Event &event, nanoseconds time)
{
    return event.occurrence == Event::kFirstAfter ? QStringList()
                                                  : timeline.losses(event, kBeforeAll, time);
}

/// An event that anything else needs is not there.
AssessmentResult withoutEvent(const Timeline &timeline, const Event &event)
{
    const QString text = eventText(event, timeline.observation().stepNames);
    return doubted(resultOf(Verdict::NotMeasured, text + QStringLiteral(" did not come")),
                   timeline.losses(event, kBeforeAll, kAfterAll));
}

/// Judges a time whose first event was found.
class TimeJudge
{
public:
    TimeJudge(const TimeAssessment &wanted, bool isAfter, const Timeline &timeline,
              const Moment &from)
        : m_wanted(wanted)
        , m_isAfter(isAfter)
        , m_timeline(timeline)
        , m_from(from)
        , m_fromText(eventText(wanted.from, timeline.observation().stepNames))
        , m_toText(eventText(wanted.to, timeline.observation().stepNames))
    { }

    AssessmentResult present(const Moment &to) const;
    AssessmentResult absent() const;

private:
    AssessmentResult absentResult(nanoseconds until) const;

    const TimeAssessment &m_wanted;
    const bool m_isAfter; ///< the second event counts from the first one on
    const Timeline &m_timeline;
    const Moment &m_from;
    const QString m_fromText;
    const QString m_toText;
};

AssessmentResult TimeJudge::present(const Moment &to) const
{
    const nanoseconds time = to.time - m_from.time;
    AssessmentResult result;
    result.actual = seconds(time);
    result.reason = m_toText + QStringLiteral(" came ") + distanceText(time, m_fromText);
    if (m_wanted.coming == TimeAssessment::MustNot) {
        result.verdict = Verdict::Failed;
        result.reason += QStringLiteral("; it must not come");
        if (m_wanted.within)
            result.reason += QStringLiteral(" within ") + timeText(*m_wanted.within);
    } else {
        result.allowed = m_wanted.allowed;
        result.verdict =
            m_wanted.allowed.contains(*result.actual) ? Verdict::Passed : Verdict::Failed;
        if (!m_wanted.allowed.isUnlimited())
            result.reason +=
                QStringLiteral("; allowed is ") + rangeText(m_wanted.allowed, result.unit);
    }
    const nanoseconds since = m_isAfter ? m_from.instant : kBeforeAll;
    return doubted(result,
                   m_timeline.disturbances(std::min(m_from.instant, to.instant),
                                           std::max(m_from.time, to.time))
                       + countingDoubts(m_timeline, m_wanted.from, m_from.time)
                       + m_timeline.losses(m_wanted.to, since, to.time));
}

AssessmentResult TimeJudge::absent() const
{
    const nanoseconds until = m_wanted.coming == TimeAssessment::MustNot && m_wanted.within
        ? m_from.time + *m_wanted.within
        : m_timeline.knownUntil();
    const nanoseconds since = m_isAfter ? m_from.instant : kBeforeAll;
    return doubted(absentResult(until),
                   m_timeline.disturbances(m_from.instant, until)
                       + m_timeline.losses(m_wanted.to, since, until)
                       + countingDoubts(m_timeline, m_wanted.from, m_from.time));
}

AssessmentResult TimeJudge::absentResult(nanoseconds until) const
{
    const std::optional<nanoseconds> end = m_timeline.end();
    const bool isWindow = m_wanted.coming == TimeAssessment::MustNot && m_wanted.within;
    const double known = seconds(m_timeline.knownUntil() - m_from.time);
    const bool isOverdue =
        m_wanted.coming == TimeAssessment::Must && known > m_wanted.allowed.highest;
    const bool isSeen = isWindow ? end && *end >= until : m_timeline.isComplete() || isOverdue;

    AssessmentResult result;
    result.reason = QStringLiteral("%1 did not come").arg(m_toText);
    if (isWindow)
        result.reason += QStringLiteral(" within ") + timeText(*m_wanted.within);
    result.reason += QStringLiteral(" after ") + m_fromText;
    if (m_wanted.coming != TimeAssessment::MustNot) {
        result.allowed = m_wanted.allowed;
        if (!m_wanted.allowed.isUnlimited())
            result.reason +=
                QStringLiteral("; allowed is ") + rangeText(m_wanted.allowed, result.unit);
    }
    if (!isSeen)
        result.reason += QStringLiteral("; the sequence ended too early to tell");
    else if (m_wanted.coming != TimeAssessment::Must)
        result.verdict = Verdict::Passed;
    return result; // without the event there is nothing to measure
}

/// A step that was entered, and left if #left says when.
struct Stay
{
    nanoseconds entered{0};
    std::optional<nanoseconds> left;
};

Stay stayAt(const Timeline &timeline, const Moment &entry)
{
    const QVector<Change> &changes = timeline.observation().changes;
    Stay stay{entry.time, std::nullopt};
    if (entry.change + 1 < changes.size())
        stay.left = changes[entry.change + 1].causeTime;
    return stay;
}

/// When the input of \a wanted first was not as wanted; nothing if it always was.
std::optional<nanoseconds> firstViolation(const LevelAssessment &wanted, const Timeline &timeline,
                                          nanoseconds from, nanoseconds to)
{
    if (timeline.isActive(wanted.channel, from) != wanted.on)
        return from;
    const Event::Kind wrong = wanted.on ? Event::InputOff : Event::InputOn;
    for (const Moment &moment : timeline.moments()) {
        if (moment.kind == wrong && moment.number == wanted.channel && moment.time > from
            && moment.time <= to)
            return moment.time;
    }
    return std::nullopt;
}

AssessmentResult assessStay(const LevelAssessment &wanted, const Timeline &timeline,
                            const Stay &stay)
{
    const QString step = stepText(wanted.step, timeline.observation().stepNames);
    const QString input = wanted.name.isEmpty()
        ? QStringLiteral("logic channel %1").arg(wanted.channel)
        : printable(wanted.name);
    const QString is = wanted.on ? QStringLiteral("on") : QStringLiteral("off");
    const QString isNot = wanted.on ? QStringLiteral("off") : QStringLiteral("on");
    const QString when = (wanted.when == LevelAssessment::AtEnd ? QStringLiteral("at the end of ")
                                                                : QStringLiteral("throughout "))
        + step;
    if (stay.left && *stay.left < stay.entered)
        return resultOf(Verdict::NotMeasured,
                        step + QStringLiteral(" was left before its first frames were sent"));
    if (!stay.left && wanted.when == LevelAssessment::AtEnd)
        return resultOf(Verdict::NotMeasured, step + QStringLiteral(" was not left"));

    const nanoseconds to = stay.left.value_or(kAfterAll);
    const nanoseconds from = wanted.when == LevelAssessment::AtEnd ? to : stay.entered;
    const std::optional<nanoseconds> violation = firstViolation(wanted, timeline, from, to);
    if (violation)
        return resultOf(
            Verdict::Failed,
            QStringLiteral("%1 was %2 %3; it must be %4 %5")
                .arg(input, isNot,
                     distanceText(*violation - stay.entered, QStringLiteral("entry into ") + step),
                     is, when));
    if (!stay.left)
        return resultOf(Verdict::NotMeasured, step + QStringLiteral(" was not left"));
    return resultOf(Verdict::Passed, QStringLiteral("%1 was %2 %3").arg(input, is, when));
}

/// "prefault, fault, end"; of a long path the end.
QString pathText(const QVector<int> &steps, const QStringList &stepNames)
{
    constexpr int kMost = 12;
    QStringList names;
    const int first = std::max(0, int(steps.size()) - kMost);
    if (first > 0)
        names << QStringLiteral("(%1 more)").arg(first);
    for (int i = first; i < steps.size(); ++i)
        names << printable(stepNames.value(steps[i], QString::number(steps[i])));
    return names.isEmpty() ? QStringLiteral("none") : names.join(QLatin1String(", "));
}

} // namespace

TimeAssessment expecting(const ExpectedTime &expected, TimeAssessment assessment)
{
    constexpr TimeAssessment::Coming kComing[] = {TimeAssessment::Must, TimeAssessment::May,
                                                  TimeAssessment::MustNot};
    assessment.coming = kComing[expected.trip];
    assessment.allowed = expected.band;
    return assessment;
}

AssessmentResult assess(const TimeAssessment &wanted, const Observation &observation)
{
    const Timeline timeline(observation);
    const int first = timeline.find(wanted.from);
    if (first < 0)
        return withoutEvent(timeline, wanted.from);
    const Moment &from = timeline.moments()[first];
    const bool isAfter = wanted.to.occurrence == Event::kFirstAfter
        || wanted.coming == TimeAssessment::MustNot || wanted.ignoreBefore > nanoseconds(0);
    const int second = timeline.find(wanted.to, isAfter ? first + 1 : 0,
                                     isAfter ? from.time + wanted.ignoreBefore : kBeforeAll);

    const TimeJudge judge(wanted, isAfter, timeline, from);
    const bool isPast = second >= 0 && wanted.coming == TimeAssessment::MustNot && wanted.within
        && timeline.moments()[second].time > from.time + *wanted.within;
    return second < 0 || isPast ? judge.absent() : judge.present(timeline.moments()[second]);
}

AssessmentResult assess(const LevelAssessment &wanted, const Observation &observation)
{
    const Timeline timeline(observation);
    Event entry;
    entry.kind = Event::StepEntered;
    entry.number = wanted.step;
    entry.occurrence = wanted.occurrence;
    const int index = timeline.find(entry);
    if (index < 0)
        return withoutEvent(timeline, entry);
    const Moment &entered = timeline.moments()[index];
    const Stay stay = stayAt(timeline, entered);
    const nanoseconds to = stay.left.value_or(timeline.knownUntil());

    const AssessmentResult result = assessStay(wanted, timeline, stay);
    QStringList doubts =
        timeline.disturbances(entered.instant, to) + countingDoubts(timeline, entry, entered.time);
    Event input;
    input.kind = Event::InputOn;
    if (result.verdict != Verdict::Failed) // what was lost can only break it
        doubts += timeline.losses(input, kBeforeAll, to);
    return doubted(result, doubts);
}

AssessmentResult assess(const NeverAssessment &wanted, const Observation &observation)
{
    const Timeline timeline(observation);
    const QString text = eventText(wanted.event, observation.stepNames);
    const int index = timeline.find(wanted.event);
    if (index >= 0) {
        const nanoseconds time = timeline.moments()[index].time;
        return resultOf(Verdict::Failed,
                        QStringLiteral("%1 came %2; it must not come")
                            .arg(text, distanceText(time, QStringLiteral("the start"))));
    }
    AssessmentResult result = resultOf(Verdict::Passed, text + QStringLiteral(" did not come"));
    if (!timeline.isComplete()) {
        result.verdict = Verdict::NotMeasured;
        result.reason += QStringLiteral("; the sequence ended too early to tell");
    }
    return doubted(result, timeline.losses(wanted.event, kBeforeAll, kAfterAll));
}

AssessmentResult assess(const PathAssessment &wanted, const Observation &observation)
{
    const Timeline timeline(observation);
    QVector<int> walked;
    for (const Change &change : observation.changes) {
        if (change.entered != kNoStep)
            walked.append(change.entered);
    }
    const bool isBegun = walked.size() <= wanted.steps.size()
        && std::equal(walked.begin(), walked.end(), wanted.steps.begin());
    const bool isWhole = isBegun && walked.size() == wanted.steps.size();

    AssessmentResult result;
    result.reason = QStringLiteral("the steps were ") + pathText(walked, observation.stepNames);
    if (!isWhole)
        result.reason +=
            QStringLiteral("; expected are ") + pathText(wanted.steps, observation.stepNames);
    if (isBegun && !timeline.isComplete())
        result.reason += QStringLiteral("; the sequence ended too early to tell");
    else
        result.verdict = isWhole ? Verdict::Passed : Verdict::Failed;
    return doubted(result,
                   observation.changesLost > 0
                       ? QStringList(QStringLiteral("changes of steps lost"))
                       : QStringList());
}

AssessmentResult assess(const Assessment &wanted, const Observation &observation)
{
    return std::visit([&](const auto &one) { return assess(one, observation); }, wanted);
}

QString timeKindName(TimeAssessment::Kind kind)
{
    constexpr const char *kNames[] = {"time", "start time", "operate time", "reset time"};
    return QLatin1String(kNames[kind]);
}

} // namespace workbench
