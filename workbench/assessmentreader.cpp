#include "workbench/assessmentreader.h"

#include "configuration/suggestion.h"
#include "workbench/jsonwords.h"

#include <chrono>
#include <cmath>
#include <utility>

namespace workbench {

namespace {

constexpr int kMostNameLength = 64; // characters
constexpr int kMostOccurrences = 1000;
constexpr double kMostSeconds = 1e6;
constexpr double kMostPercent = 1000;
constexpr double kMostValue = 1e9; // of a parameter
constexpr int kMostPathSteps = 100;
constexpr int kMostTablePoints = 1000;
constexpr int kMostChannel = 255; // logic channels of a board

namespace key {

const QString name = QStringLiteral("name");
const QString time = QStringLiteral("time");
const QString level = QStringLiteral("level");
const QString never = QStringLiteral("never");
const QString path = QStringLiteral("path");

const QString occurrence = QStringLiteral("occurrence");

const QString from = QStringLiteral("from");
const QString to = QStringLiteral("to");
const QString is = QStringLiteral("is");
const QString nominal = QStringLiteral("nominal");
const QString tolerance = QStringLiteral("tolerance");
const QString atLeast = QStringLiteral("atLeast");
const QString atMost = QStringLiteral("atMost");
const QString ignoreBefore = QStringLiteral("ignoreBefore");
const QString mustNotCome = QStringLiteral("mustNotCome");

const QString minus = QStringLiteral("minus");
const QString plus = QStringLiteral("plus");
const QString absolute = QStringLiteral("absolute");
const QString percent = QStringLiteral("percent");

const QString of = QStringLiteral("of");
const QString curve = QStringLiteral("curve");
const QString definite = QStringLiteral("definite");
const QString table = QStringLiteral("table");
const QString pickUp = QStringLiteral("pickUp");
const QString timeMultiplier = QStringLiteral("timeMultiplier");
const QString leastTime = QStringLiteral("leastTime");
const QString constantAbove = QStringLiteral("constantAbove");
const QString valueTolerance = QStringLiteral("valueTolerance");
const QString k = QStringLiteral("k");
const QString c = QStringLiteral("c");
const QString alpha = QStringLiteral("alpha");

const QString input = QStringLiteral("input");
const QString state = QStringLiteral("state");
const QString step = QStringLiteral("step");
const QString when = QStringLiteral("when");

} // namespace key

/// What an event is called in the file, and what must stand behind it.
const struct EventWord
{
    QString key;
    Event::Kind kind;
    enum Operand { Step, Channel, True } operand;
} eventWords[] = {
    {QStringLiteral("enter"), Event::StepEntered, EventWord::Step},
    {QStringLiteral("leave"), Event::StepLeft, EventWord::Step},
    {QStringLiteral("on"), Event::InputOn, EventWord::Channel},
    {QStringLiteral("off"), Event::InputOff, EventWord::Channel},
    {QStringLiteral("trigger"), Event::Trigger, EventWord::True},
    {QStringLiteral("start"), Event::Start, EventWord::True},
    {QStringLiteral("end"), Event::End, EventWord::True},
};

/// In the order of TimeAssessment::Kind.
const QStringList timeKinds = {QStringLiteral("time"), QStringLiteral("start"),
                               QStringLiteral("operate"), QStringLiteral("reset")};

std::chrono::nanoseconds readSeconds(const JsonNode &node)
{
    return std::chrono::nanoseconds(std::llround(node.number(0, kMostSeconds, 0) * 1e9));
}

/// The one key of \a words that the object has, which must be one; empty if there is none.
QString onlyKey(const JsonNode &node, const QStringList &words)
{
    QStringList found;
    for (const QString &word : words) {
        if (node.has(word))
            found += word;
    }
    if (found.size() == 1)
        return found.first();
    if (node.isObject())
        node.refuse(QStringLiteral("must have exactly one of ") + jsonwords::quotedList(words));
    else
        (void)node.object(); // says that it must be one
    return {};
}

Tolerance readTolerance(const JsonNode &node)
{
    if (!node.isObject())
        return {node.number(0, kMostValue, 0), 0};
    node.expectKeys({key::absolute, key::percent});
    if (!node.has(key::absolute) && !node.has(key::percent))
        node.refuse(QStringLiteral("needs \"absolute\", \"percent\" or both"));
    return {node.optional(key::absolute).number(0, kMostValue, 0),
            node.optional(key::percent).number(0, kMostPercent, 0)};
}

} // namespace

AssessmentReader::AssessmentReader(QStringList steps, const SignalNames &names,
                                   QStringList parameters)
    : m_steps(std::move(steps))
    , m_names(names)
    , m_parameters(std::move(parameters))
{ }

PlannedAssessment AssessmentReader::read(const JsonNode &node) const
{
    static const QStringList kinds{key::time, key::level, key::never, key::path};
    node.expectKeys(QStringList{key::name} + kinds);
    PlannedAssessment planned;
    planned.name = node[key::name].text().left(kMostNameLength);
    if (node[key::name].isText() && planned.name.trimmed().isEmpty())
        node[key::name].refuse(QStringLiteral("must not be empty"));
    const QString kind = onlyKey(node, kinds);
    if (kind == key::time)
        planned.what = readTime(node[kind]);
    else if (kind == key::level)
        planned.what = readLevel(node[kind]);
    else if (kind == key::never)
        planned.what = NeverAssessment{readEvent(node[kind], 1)};
    else if (kind == key::path)
        planned.what = readPath(node[kind]);
    return planned;
}

Event AssessmentReader::readEvent(const JsonNode &node, int occurrence) const
{
    QStringList words;
    for (const EventWord &each : eventWords)
        words += each.key;
    node.expectKeys(words + QStringList{key::occurrence});
    const QString found = onlyKey(node, words);
    Event event;
    event.occurrence = node.optional(key::occurrence).integer(1, kMostOccurrences, occurrence);
    for (const EventWord &each : eventWords) {
        if (each.key != found)
            continue;
        event.kind = each.kind;
        if (each.operand == EventWord::Step) {
            event.number = readStep(node[found]);
        } else if (each.operand == EventWord::Channel) {
            event.number = readChannel(node[found]);
            event.name = eventName(event);
        } else if (!node[found].boolean(true)) {
            node[found].refuse(QStringLiteral("must be true"));
        }
    }
    return event;
}

/// "trip A" for an input with a name, so that sentences can use it; else empty.
QString AssessmentReader::eventName(const Event &event) const
{
    const QString name = m_names.inputs.value(event.number);
    if (name.isEmpty())
        return {};
    return event.kind == Event::InputOn ? name : QStringLiteral("the end of ") + name;
}

int AssessmentReader::readStep(const JsonNode &node) const
{
    return node.choice(m_steps, 0);
}

int AssessmentReader::readChannel(const JsonNode &node) const
{
    if (!node.isText())
        return node.integer(0, kMostChannel);
    const QString name = node.text();
    const int channel = m_names.inputs.key(name, -1);
    if (channel >= 0)
        return channel;
    node.refuse(QStringLiteral("\"%1\" is the name of no binary input%2")
                    .arg(name, suggestion::didYouMean(name, m_names.inputs.values())));
    return 0;
}

QString AssessmentReader::readParameter(const JsonNode &node) const
{
    const int index = node.choice(m_parameters, 0);
    return m_parameters.value(index);
}

AssessmentReader::Tolerances AssessmentReader::readTolerances(const JsonNode &node)
{
    if (!node.has(key::minus) && !node.has(key::plus)) {
        const Tolerance both = readTolerance(node);
        return {both, both};
    }
    node.expectKeys({key::minus, key::plus});
    return {readTolerance(node[key::minus]), readTolerance(node[key::plus])};
}

PlannedAssessment::Time AssessmentReader::readTime(const JsonNode &node) const
{
    node.expectKeys({key::from, key::to, key::is, key::nominal, key::tolerance, key::atLeast,
                     key::atMost, key::ignoreBefore, key::mustNotCome});
    PlannedAssessment::Time time;
    time.fixed.from = readEvent(node[key::from], 1);
    time.fixed.to = readEvent(node[key::to], Event::kFirstAfter);
    time.fixed.kind = TimeAssessment::Kind(node.optional(key::is).choice(timeKinds));
    time.fixed.ignoreBefore = readSeconds(node.optional(key::ignoreBefore));
    if (const JsonNode mustNot = node.optional(key::mustNotCome); !mustNot.isAbsent()) {
        time.fixed.coming = TimeAssessment::MustNot;
        if (mustNot.isNumber())
            time.fixed.within = readSeconds(mustNot);
        else if (!mustNot.boolean(true))
            mustNot.refuse(QStringLiteral("must be true, or how many seconds"));
        for (const QString &other : {key::nominal, key::tolerance, key::atLeast, key::atMost})
            node.optional(other).refuseKey(
                QStringLiteral("does not go with \"%1\"").arg(key::mustNotCome));
        return time;
    }
    if (node.has(key::atLeast))
        time.atLeast = quantity(node[key::atLeast]);
    if (node.has(key::atMost))
        time.atMost = quantity(node[key::atMost]);
    readNominal(node, time);
    return time;
}

void AssessmentReader::readNominal(const JsonNode &node, PlannedAssessment::Time &time) const
{
    const JsonNode nominal = node.optional(key::nominal);
    const JsonNode tolerance = node.optional(key::tolerance);
    if (nominal.isAbsent()) {
        tolerance.refuseKey(QStringLiteral("needs a \"%1\"").arg(key::nominal));
        return;
    }
    for (const QString &other : {key::atLeast, key::atMost})
        node.optional(other).refuseKey(QStringLiteral("does not go with \"%1\"").arg(key::nominal));
    const Tolerances tolerances = readTolerances(node[key::tolerance]);
    if (!nominal.has(key::of)) {
        time.nominal = quantity(nominal);
        time.minus = tolerances.minus;
        time.plus = tolerances.plus;
        return;
    }
    Expectation expectation;
    expectation.characteristic = readCharacteristic(nominal);
    expectation.minus = tolerances.minus;
    expectation.plus = tolerances.plus;
    expectation.valueTolerance = nominal.optional(key::valueTolerance).number(0, 99, 0);
    if (const Expected<void> sound = check(expectation.characteristic); !sound)
        nominal.refuse(sound.error().message);
    time.of = readParameter(nominal[key::of]);
    time.characteristic = expectation;
}

Characteristic AssessmentReader::readCharacteristic(const JsonNode &node) const
{
    static const QStringList kinds{key::curve, key::definite, key::table};
    node.expectKeys(kinds
                    + QStringList{key::of, key::pickUp, key::timeMultiplier, key::leastTime,
                                  key::constantAbove, key::valueTolerance});
    const QString kind = onlyKey(node, kinds);
    if (kind == key::definite)
        return DefiniteTime{node[key::pickUp].number(0, kMostValue),
                            node[kind].number(0, kMostSeconds)};
    if (kind == key::table) {
        TimeTable table;
        for (const JsonNode &point : node[kind].elements(1, kMostTablePoints)) {
            const QVector<JsonNode> pair = point.elements(2, 2);
            if (pair.size() == 2)
                table.points.append(
                    {pair[0].number(-kMostValue, kMostValue), pair[1].number(0, kMostSeconds)});
        }
        if (table.points.isEmpty()) // which has been told
            return 0.0;
        return table;
    }
    InverseTime inverse;
    inverse.curve = readCurve(node.optional(key::curve));
    inverse.pickUp = node[key::pickUp].number(1e-9, kMostValue);
    inverse.timeMultiplier = node[key::timeMultiplier].number(1e-6, 1e6);
    inverse.leastTime = node.optional(key::leastTime).number(0, kMostSeconds, 0);
    inverse.constantAbove =
        node.optional(key::constantAbove).number(1.001, 1e6, inverse.constantAbove);
    return inverse;
}

/// A to F of IEC 60255-151, or constants of its own.
InverseCurve AssessmentReader::readCurve(const JsonNode &node)
{
    if (node.isObject()) {
        node.expectKeys({key::k, key::c, key::alpha});
        return {QString(), node[key::k].number(0, 1e6), node.optional(key::c).number(0, 1e6, 0),
                node[key::alpha].number(1e-6, 100)};
    }
    const QString name = node.text();
    if (const std::optional<InverseCurve> curve = standardCurve(name))
        return *curve;
    if (node.isText())
        node.refuse(
            QStringLiteral("\"%1\" is no curve of IEC 60255-151, which are A to F").arg(name));
    return standardCurves().first();
}

LevelAssessment AssessmentReader::readLevel(const JsonNode &node) const
{
    node.expectKeys({key::input, key::state, key::step, key::occurrence, key::when});
    LevelAssessment level;
    level.channel = readChannel(node[key::input]);
    level.name = m_names.inputs.value(level.channel);
    level.on = node[key::state].choice({QStringLiteral("off"), QStringLiteral("on")}) == 1;
    level.step = readStep(node[key::step]);
    level.occurrence = node.optional(key::occurrence).integer(1, kMostOccurrences, 1);
    level.when = LevelAssessment::When(
        node.optional(key::when).choice({QStringLiteral("throughout"), QStringLiteral("atEnd")}));
    return level;
}

PathAssessment AssessmentReader::readPath(const JsonNode &node) const
{
    PathAssessment path;
    for (const JsonNode &step : node.elements(1, kMostPathSteps))
        path.steps.append(readStep(step));
    return path;
}

} // namespace workbench
