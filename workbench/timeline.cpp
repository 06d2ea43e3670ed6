#include "workbench/timeline.h"

#include "workbench/printabletext.h"
#include "workbench/statustext.h"

#include <algorithm>
#include <utility>

using statusreply::Change;
using statusreply::Input;
using statusreply::kNoStep;
using std::chrono::nanoseconds;

namespace workbench {

namespace {

bool isOfInputs(Event::Kind kind)
{
    return kind == Event::InputOn || kind == Event::InputOff || kind == Event::Trigger;
}

bool hasNumber(Event::Kind kind)
{
    return kind != Event::Start && kind != Event::End && kind != Event::Trigger;
}

/// Among events of the same time; inputs stay in the order of their record.
int rank(Event::Kind kind)
{
    return isOfInputs(kind) ? Event::InputOn : kind;
}

bool isSame(const Moment &moment, const Event &event)
{
    return moment.kind == event.kind && (!hasNumber(event.kind) || moment.number == event.number);
}

Moment momentOf(const Input &input)
{
    constexpr Event::Kind kKinds[] = {Event::InputOff, Event::InputOn, Event::Trigger};
    return {kKinds[input.kind], input.channel, input.time, input.time, -1};
}

/// "entry 2 into"
QString counted(const char *noun, const char *preposition, int occurrence)
{
    const QString name = QLatin1String(noun);
    return occurrence > 1
        ? QStringLiteral("%1 %2 %3").arg(name).arg(occurrence).arg(QLatin1String(preposition))
        : name + QLatin1Char(' ') + QLatin1String(preposition);
}

} // namespace

QString stepText(int step, const QStringList &stepNames)
{
    return QStringLiteral("step ") + printable(stepNames.value(step, QString::number(step)));
}

QString eventText(const Event &event, const QStringList &stepNames)
{
    if (!event.name.isEmpty())
        return printable(event.name);
    const QString step = QLatin1Char(' ') + stepText(event.number, stepNames);
    const QString channel = QStringLiteral(" logic channel %1").arg(event.number);
    switch (event.kind) {
    case Event::Start:
        return QStringLiteral("the start");
    case Event::InputOn:
        return counted("rise", "of", event.occurrence) + channel;
    case Event::InputOff:
        return counted("fall", "of", event.occurrence) + channel;
    case Event::Trigger:
        return counted("trigger", "", event.occurrence).trimmed();
    case Event::StepLeft:
        return counted("end", "of", event.occurrence) + step;
    case Event::StepEntered:
        return counted("entry", "into", event.occurrence) + step;
    case Event::End:
        return QStringLiteral("the end");
    }
    return {};
}

Timeline::Timeline(const Observation &observation)
    : m_observation(observation)
{
    for (const Input &input : observation.inputs)
        m_moments.append(momentOf(input));
    for (int i = 0; i < observation.changes.size(); ++i) {
        const Change &change = observation.changes[i];
        const nanoseconds sent = change.entryTime + change.lateness;
        if (change.cause == Change::Start)
            m_moments.append({Event::Start, 0, sent, change.entryTime, i});
        else if (change.left != kNoStep)
            m_moments.append({Event::StepLeft, change.left, change.causeTime, change.causeTime, i});
        if (change.entered != kNoStep)
            m_moments.append({Event::StepEntered, change.entered, sent, change.entryTime, i});
        else
            m_moments.append({Event::End, 0, change.causeTime, change.causeTime, i});
    }
    std::stable_sort(m_moments.begin(), m_moments.end(), [](const Moment &a, const Moment &b) {
        return std::make_pair(a.time, rank(a.kind)) < std::make_pair(b.time, rank(b.kind));
    });
}

int Timeline::find(const Event &event, int begin, nanoseconds notBefore) const
{
    int toCome = std::max(event.occurrence, 1);
    for (int i = begin; i < m_moments.size(); ++i) {
        if (isSame(m_moments[i], event) && m_moments[i].time >= notBefore && --toCome == 0)
            return i;
    }
    return -1;
}

std::optional<nanoseconds> Timeline::end() const
{
    if (m_observation.changes.isEmpty() || m_observation.changes.last().entered != kNoStep)
        return std::nullopt;
    return m_observation.changes.last().causeTime;
}

nanoseconds Timeline::knownUntil() const
{
    if (m_observation.changes.isEmpty())
        return nanoseconds(0);
    const Change &last = m_observation.changes.last();
    return last.entered == kNoStep ? last.causeTime : last.entryTime;
}

int Timeline::disturbanceBits(nanoseconds from, nanoseconds to) const
{
    int bits = 0;
    for (int i = 1; i < m_observation.changes.size(); ++i) {
        const Change &change = m_observation.changes[i];
        if (change.entryTime > from && m_observation.changes[i - 1].entryTime < to)
            bits |= change.disturbances;
    }
    return bits;
}

QStringList Timeline::disturbances(nanoseconds from, nanoseconds to) const
{
    QStringList result = disturbanceNames(disturbanceBits(from, to));
    const QVector<Change> &changes = m_observation.changes;
    if (changes.isEmpty() || (changes.last().entered != kNoStep && to > changes.last().entryTime))
        result << QStringLiteral("the record of steps ends before");
    if (m_observation.changesLost > 0 && !changes.isEmpty() && from < changes.first().entryTime)
        result << QStringLiteral("the record of steps begins later");
    return result;
}

QStringList Timeline::losses(const Event &event, nanoseconds from, nanoseconds to) const
{
    const QVector<Change> &changes = m_observation.changes;
    const QVector<Input> &inputs = m_observation.inputs;
    QStringList result;
    if (!isOfInputs(event.kind)) {
        if (event.kind != Event::End && m_observation.changesLost > 0
            && (changes.isEmpty() || from < changes.first().entryTime))
            result << QStringLiteral("changes of steps lost");
        return result;
    }
    if (m_observation.inputsLost > 0 && (inputs.isEmpty() || to > inputs.last().time))
        result << QStringLiteral("changes of inputs not recorded");
    if ((disturbanceBits(from, to) & Change::InputsLost) != 0)
        result << disturbanceNames(Change::InputsLost);
    return result;
}

bool Timeline::isActive(int channel, nanoseconds time) const
{
    std::optional<bool> active;
    for (const Moment &moment : m_moments) {
        const bool isChange = moment.kind == Event::InputOn || moment.kind == Event::InputOff;
        if (!isChange || moment.number != channel)
            continue;
        if (moment.time > time)
            return active ? *active : moment.kind == Event::InputOff;
        active = moment.kind == Event::InputOn;
    }
    return active ? *active : m_observation.activeInputs.contains(channel);
}

} // namespace workbench
