#include "workbench/planreader.h"

#include "configuration/suggestion.h"
#include "workbench/assessmentreader.h"
#include "workbench/sequencefile.h"
#include "workbench/shot.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

constexpr int kMostNameLength = 64; // characters
constexpr int kMostTitleLength = 200; // likewise
constexpr int kMostPathLength = 1000; // likewise
constexpr int kMostTextLength = 2000; // likewise
constexpr int kMostRepetitions = 1000;
constexpr int kMostEvents = 1000; // of a stand-in
constexpr int kMostAssessments = 100; // of a case
constexpr double kMostSeconds = 1e6; // as in a script of inputs
constexpr double kMostValue = 1e9; // of a parameter

namespace key {

const QString title = QStringLiteral("title");
const QString description = QStringLiteral("description");
const QString configuration = QStringLiteral("configuration");
const QString relay = QStringLiteral("relay");
const QString names = QStringLiteral("names");
const QString device = QStringLiteral("device");
const QString cases = QStringLiteral("cases");

const QString name = QStringLiteral("name");
const QString sequence = QStringLiteral("sequence");
const QString parameters = QStringLiteral("parameters");
const QString repetitions = QStringLiteral("repetitions");
const QString sweep = QStringLiteral("sweep");
const QString search = QStringLiteral("search");
const QString assessments = QStringLiteral("assessments");

const QString file = QStringLiteral("file");
const QString inputs = QStringLiteral("inputs");
const QString time = QStringLiteral("time");
const QString input = QStringLiteral("input");
const QString on = QStringLiteral("on");
const QString trigger = QStringLiteral("trigger");
const QString condition = QStringLiteral("if");
const QString parameter = QStringLiteral("parameter");
const QString atLeast = QStringLiteral("atLeast");
const QString below = QStringLiteral("below");

const QString values = QStringLiteral("values");
const QString from = QStringLiteral("from");
const QString to = QStringLiteral("to");
const QString step = QStringLiteral("step");
const QString count = QStringLiteral("count");
const QString spacing = QStringLiteral("spacing");
const QString with = QStringLiteral("with");

const QString resolution = QStringLiteral("resolution");
const QString unit = QStringLiteral("unit");
const QString pickUp = QStringLiteral("pickUp");
const QString dropOff = QStringLiteral("dropOff");
const QString resetRatio = QStringLiteral("resetRatio");
const QString event = QStringLiteral("event");
const QString in = QStringLiteral("in");
const QString nominal = QStringLiteral("nominal");
const QString tolerance = QStringLiteral("tolerance");

} // namespace key

/// Keys of the relay's facts, and what a report calls them.
const struct
{
    QString key;
    QString name;
} relayFacts[] = {
    {QStringLiteral("maker"), QStringLiteral("Maker")},
    {QStringLiteral("type"), QStringLiteral("Type")},
    {QStringLiteral("serial"), QStringLiteral("Serial number")},
    {QStringLiteral("bay"), QStringLiteral("Bay")},
    {QStringLiteral("tester"), QStringLiteral("Tester")},
    {QStringLiteral("remarks"), QStringLiteral("Remarks")},
};

QString boundedText(const JsonNode &node, int most)
{
    const QString text = node.text();
    if (text.size() > most)
        node.refuse(QStringLiteral("is longer than %1 characters").arg(most));
    return text.left(most);
}

/// A text that must not be empty.
QString nameText(const JsonNode &node, int most)
{
    const QString text = boundedText(node, most);
    if (node.isText() && text.trimmed().isEmpty())
        node.refuse(QStringLiteral("must not be empty"));
    return text;
}

Parameters readValues(const JsonNode &node)
{
    Parameters values;
    for (const JsonMember &each : node.members())
        values[each.key] = each.node.number(-kMostValue, kMostValue);
    return values;
}

/// Names of parameters that the stand-in and the assessments of \a testCase use.
QStringList namesUsed(const TestCase &testCase)
{
    QStringList names;
    for (const StandIn::Event &each : testCase.device.events) {
        names += each.time.parameter;
        if (each.condition)
            names += each.condition->parameter;
    }
    for (const PlannedAssessment &each : testCase.assessments) {
        const auto *time = std::get_if<PlannedAssessment::Time>(&each.what);
        if (!time)
            continue;
        names += time->of;
        for (const auto *quantity : {&time->nominal, &time->atLeast, &time->atMost})
            names += *quantity ? (*quantity)->parameter : QString();
    }
    return names;
}

/// \a path as it can be opened from where the plan lies.
QString besidePlan(const QString &path, const QString &planPath)
{
    return QDir::cleanPath(QFileInfo(planPath).dir().filePath(path));
}

Expected<QByteArray> readFile(const QString &path)
{
    const auto refusal = [&path](const QString &reason) {
        return failure(Failure::Input, path + QStringLiteral(": ") + reason);
    };
    const QFileInfo info(path);
    if (!info.exists())
        return refusal(QStringLiteral("there is no such file"));
    if (!info.isFile())
        return refusal(QStringLiteral("is not a regular file"));
    if (info.size() > JsonFile::kMostBytes)
        return refusal(QStringLiteral("has %1 bytes; the most is %2")
                           .arg(info.size())
                           .arg(JsonFile::kMostBytes));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return refusal(file.errorString());
    return file.readAll();
}

// Sweeps.

QVector<double> steppedValues(const JsonNode &node, double from, double to)
{
    const double step = node[key::step].number(-kMostValue, kMostValue, 1);
    const double steps = step == 0 ? -1 : std::floor((to - from) / step + 1e-9);
    QVector<double> values;
    if (steps < 0 || steps >= TestPlan::kMostShots)
        node[key::step].refuse(
            steps < 0 ? QStringLiteral("does not lead from %1 to %2").arg(from).arg(to)
                      : QStringLiteral("makes more than %1 points").arg(TestPlan::kMostShots));
    else
        for (int i = 0; i <= int(steps); ++i)
            values.append(from + i * step);
    return values;
}

QVector<double> spacedValues(const JsonNode &node, double from, double to, bool isLogarithmic)
{
    const int count = node[key::count].integer(2, TestPlan::kMostShots);
    QVector<double> values;
    for (int i = 0; i < count; ++i) {
        const double part = double(i) / (count - 1);
        values.append(isLogarithmic ? from * std::pow(to / from, part) : from + part * (to - from));
    }
    values.last() = to; // whatever the rounding
    return values;
}

QVector<double> sweptValues(const JsonNode &node, bool isLogarithmic)
{
    QVector<double> values;
    if (node.has(key::values)) {
        for (const JsonNode &each : node[key::values].elements(1, TestPlan::kMostShots))
            values.append(each.number(-kMostValue, kMostValue));
        for (const QString &other : {key::from, key::to, key::step, key::count})
            node.optional(other).refuseKey(
                QStringLiteral("does not go with \"%1\"").arg(key::values));
        return values;
    }
    const double from = node[key::from].number(-kMostValue, kMostValue, 1);
    const double to = node[key::to].number(-kMostValue, kMostValue, 2);
    if (isLogarithmic && (from <= 0 || to <= 0)) {
        node[key::spacing].refuse(QStringLiteral("logarithmic needs values above 0"));
        return {from};
    }
    if (node.has(key::step) == node.has(key::count)) {
        node.refuse(QStringLiteral("needs either \"step\" or \"count\""));
        return {from};
    }
    return node.has(key::step) ? steppedValues(node, from, to)
                               : spacedValues(node, from, to, isLogarithmic);
}

Sweep readSweep(const JsonNode &node)
{
    node.expectKeys({key::parameter, key::values, key::from, key::to, key::step, key::count,
                     key::spacing, key::with});
    Sweep sweep;
    sweep.parameter = nameText(node[key::parameter], kMostNameLength);
    sweep.isLogarithmic = node.optional(key::spacing)
                              .choice({QStringLiteral("linear"), QStringLiteral("logarithmic")})
        == 1;
    for (const double value : sweptValues(node, sweep.isLogarithmic))
        sweep.points.append({{sweep.parameter, value}});
    if (!node.has(key::with))
        return sweep;
    for (const JsonMember &other : node[key::with].members()) {
        const int count = int(sweep.points.size());
        const QVector<JsonNode> values = other.node.elements(count, count);
        for (int i = 0; i < values.size(); ++i)
            sweep.points[i][other.key] = values[i].number(-kMostValue, kMostValue);
    }
    return sweep;
}

// Searches.

Band readBand(const JsonNode &node)
{
    if (!node.has(key::nominal)) {
        node.optional(key::tolerance).refuseKey(QStringLiteral("needs a \"%1\"").arg(key::nominal));
        return {};
    }
    const AssessmentReader::Tolerances allowed =
        AssessmentReader::readTolerances(node[key::tolerance]);
    return bandAround(node[key::nominal].number(-kMostValue, kMostValue), allowed.minus,
                      allowed.plus);
}

/// The parameters of a search, whose names the stand-in may use.
Search searchParameters(const JsonNode &node)
{
    Search search;
    search.parameter = nameText(node[key::parameter], kMostNameLength);
    search.pickUp.parameters = readValues(node.optional(key::pickUp).optional(key::parameters));
    search.dropOff.parameters = readValues(node.optional(key::dropOff).optional(key::parameters));
    return search;
}

void readEdge(const JsonNode &node, const AssessmentReader &reader, Search::Edge &edge, Band &band)
{
    node.expectKeys({key::event, key::in, key::parameters, key::nominal, key::tolerance});
    edge.event = reader.readEvent(node[key::event], Event::kFirstAfter);
    edge.step = reader.readStep(node[key::in]);
    band = readBand(node);
}

void readSearch(const JsonNode &node, const AssessmentReader &reader, Search &search)
{
    node.expectKeys({key::parameter, key::from, key::to, key::resolution, key::unit, key::pickUp,
                     key::dropOff, key::resetRatio});
    ThresholdSettings &settings = search.settings;
    settings.range.from = node[key::from].number(-kMostValue, kMostValue);
    settings.range.to = node[key::to].number(-kMostValue, kMostValue);
    settings.range.resolution = AssessmentReader::readTolerances(node[key::resolution]).minus;
    settings.unit = boundedText(node.optional(key::unit), kMostNameLength);
    settings.withDropOff = node.has(key::dropOff);
    readEdge(node[key::pickUp], reader, search.pickUp, settings.pickUp);
    if (settings.withDropOff)
        readEdge(node[key::dropOff], reader, search.dropOff, settings.dropOff);
    if (const JsonNode ratio = node.optional(key::resetRatio); !ratio.isAbsent()) {
        ratio.expectKeys({key::nominal, key::tolerance});
        settings.resetRatio = readBand(ratio);
        if (!settings.withDropOff)
            ratio.refuseKey(QStringLiteral("needs a \"%1\"").arg(key::dropOff));
    }
    if (const Expected<void> sound = Bisection::check(settings.range); !sound)
        node.refuse(sound.error().message);
}

// Stand-ins.

StandIn::Event readInput(const JsonNode &node, const AssessmentReader &reader)
{
    node.expectKeys({key::time, key::input, key::on, key::trigger, key::condition});
    StandIn::Event event;
    event.time = reader.quantity(node[key::time]);
    if (node.has(key::trigger)) {
        event.channel = statusreply::kNoChannel;
        if (!node[key::trigger].boolean(true))
            node[key::trigger].refuse(QStringLiteral("must be true"));
        for (const QString &other : {key::input, key::on})
            node.optional(other).refuseKey(
                QStringLiteral("does not go with \"%1\"").arg(key::trigger));
    } else {
        event.channel = reader.readChannel(node[key::input]);
        event.on = node[key::on].boolean();
    }
    if (const JsonNode condition = node.optional(key::condition); !condition.isAbsent()) {
        condition.expectKeys({key::parameter, key::atLeast, key::below});
        StandIn::Event::Condition only;
        only.parameter = reader.readParameter(condition[key::parameter]);
        only.atLeast =
            condition.optional(key::atLeast).number(-kMostValue, kMostValue, only.atLeast);
        only.below = condition.optional(key::below).number(-kMostValue, kMostValue, only.below);
        event.condition = only;
    }
    return event;
}

StandIn readDevice(const JsonNode &node, const AssessmentReader &reader, const QString &planPath)
{
    StandIn device;
    if (node.isAbsent())
        return device;
    node.expectKeys({key::file, key::inputs});
    if (node.has(key::file) == node.has(key::inputs))
        node.refuse(QStringLiteral("needs either \"file\" or \"inputs\""));
    if (node.has(key::file))
        device.file = besidePlan(nameText(node[key::file], kMostPathLength), planPath);
    for (const JsonNode &each : node.optional(key::inputs).elements(0, kMostEvents))
        device.events.append(readInput(each, reader));
    return device;
}

/// All parameters of a case, those of its sweep or search included.
QStringList parameterNames(const TestCase &testCase)
{
    Parameters all = testCase.parameters;
    if (const Sweep *sweep = testCase.sweep(); sweep && !sweep->points.isEmpty())
        add(all, sweep->points.first());
    if (const Search *search = testCase.search()) {
        add(all, search->pickUp.parameters);
        add(all, search->dropOff.parameters);
        all[search->parameter] = 0;
    }
    return all.keys();
}

} // namespace

/// Reads one plan.
class PlanReader
{
public:
    PlanReader(const QByteArray &text, const QString &path, FileReader files);

    [[nodiscard]] PlanReading read();

private:
    [[nodiscard]] JsonFile &keep(const QString &name, const QString &path, const QByteArray &text);
    void readHead(const JsonNode &root);
    void readCase(const JsonNode &node);
    [[nodiscard]] JsonNode sequenceOf(const JsonNode &node, TestCase &testCase);
    static void readParameters(const JsonNode &node, const Parameters &ofSequence,
                               TestCase &testCase);
    static void readVariation(const JsonNode &node, TestCase &testCase);
    static void readAssessments(const JsonNode &node, const AssessmentReader &reader,
                                TestCase &testCase);
    static void checkNames(const JsonNode &node, const Parameters &ofSequence,
                           const TestCase &testCase);
    void checkValues(const JsonNode &node, int number) const;
    void count(const JsonNode &node, const TestCase &testCase);

    FileReader m_files;
    std::shared_ptr<TestPlan> m_plan;
    JsonFile &m_file; ///< the plan's own
    SignalNames m_names;
    JsonNode m_device;
    QMap<QString, JsonFile *> m_sequences; ///< by their paths
    int m_caseCount = 0;
    qint64 m_shots = 0; ///< of the cases so far, but for searches
};

PlanReader::PlanReader(const QByteArray &text, const QString &path, FileReader files)
    : m_files(std::move(files))
    , m_plan(std::make_shared<TestPlan>())
    , m_file(keep(QFileInfo(path).fileName(), path, text))
    , m_device(m_file.root().optional(key::device))
{
    m_plan->path = path;
    // As it is called from its own folder, so that its records do not say where that was.
    m_plan->sources.first().path = QFileInfo(path).fileName();
}

/// \param name as the plan has it
/// \param path as it can be opened
JsonFile &PlanReader::keep(const QString &name, const QString &path, const QByteArray &text)
{
    m_plan->sources.append(
        {name, text, QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex()});
    m_plan->m_files.push_back(std::make_unique<JsonFile>(path, text));
    return *m_plan->m_files.back();
}

PlanReading PlanReader::read()
{
    const JsonNode root = m_file.root();
    root.expectKeys({key::title, key::description, key::configuration, key::relay, key::names,
                     key::device, key::cases});
    readHead(root);
    const QVector<JsonNode> cases = root[key::cases].elements(1, TestPlan::kMostCases);
    m_caseCount = int(cases.size());
    for (const JsonNode &each : cases) {
        if (m_shots <= TestPlan::kMostShots) // or time and memory had no bounds
            readCase(each);
    }

    PlanReading reading;
    reading.remarks = m_plan->remarks();
    const auto hasErrors = [](const Remarks &each) { return each.errors > 0; };
    if (std::none_of(reading.remarks.begin(), reading.remarks.end(), hasErrors))
        reading.plan = m_plan;
    return reading;
}

void PlanReader::readHead(const JsonNode &root)
{
    m_plan->title = nameText(root[key::title], kMostTitleLength);
    m_plan->description = boundedText(root.optional(key::description), kMostTextLength);
    m_plan->configuration = nameText(root[key::configuration], kMostPathLength);
    m_plan->configurationPath = besidePlan(m_plan->configuration, m_plan->path);
    const JsonNode relay = root.optional(key::relay);
    QStringList known;
    for (const auto &each : relayFacts) {
        known += each.key;
        if (relay.has(each.key))
            m_plan->relay.append({each.name, boundedText(relay[each.key], kMostTextLength)});
    }
    relay.expectKeys(known);
    m_names = readSignalNames(root.optional(key::names));
}

void PlanReader::readCase(const JsonNode &node)
{
    node.expectKeys({key::name, key::description, key::sequence, key::parameters, key::repetitions,
                     key::device, key::sweep, key::search, key::assessments});
    TestCase testCase;
    testCase.name = nameText(node[key::name], kMostNameLength);
    for (const TestCase &other : std::as_const(m_plan->cases)) {
        if (other.name == testCase.name)
            node[key::name].refuse(
                QStringLiteral("\"%1\" names an earlier case too").arg(testCase.name));
    }
    const int errorsBefore = m_file.errors();
    testCase.description = boundedText(node.optional(key::description), kMostTextLength);
    testCase.repetitions = node.optional(key::repetitions).integer(1, kMostRepetitions, 1);
    const JsonNode sequence = sequenceOf(node[key::sequence], testCase);
    readVariation(node, testCase);
    count(node, testCase);
    readParameters(node, parameterDefaults(sequence), testCase);
    const AssessmentReader reader(testCase.stepNames, testCase.names, parameterNames(testCase));
    const JsonNode device = node.optional(key::device);
    testCase.device = readDevice(device.isAbsent() ? m_device : device, reader, m_plan->path);
    if (Search *const search = std::get_if<Search>(&testCase.variation))
        readSearch(node[key::search], reader, *search);
    readAssessments(node, reader, testCase);
    checkNames(node, parameterDefaults(sequence), testCase);
    m_plan->cases.append(testCase);
    m_plan->m_caseNodes.push_back(node);
    m_plan->m_sequences.push_back(sequence);
    if (!sequence.isAbsent() && m_file.errors() == errorsBefore)
        checkValues(node, int(m_plan->cases.size()) - 1);
}

/// The sequence, from the plan or from a file of its own, whose defaults must make a sound one.
JsonNode PlanReader::sequenceOf(const JsonNode &node, TestCase &testCase)
{
    JsonNode root = node;
    if (node.isText()) {
        testCase.sequenceName = node.text();
        if (!m_sequences.contains(testCase.sequenceName)) {
            const Expected<QByteArray> text = m_files(testCase.sequenceName);
            if (!text) {
                node.refuse(text.error().message);
                return node.optional({});
            }
            m_sequences[testCase.sequenceName] = &keep(
                testCase.sequenceName, besidePlan(testCase.sequenceName, m_plan->path), *text);
        }
        root = m_sequences[testCase.sequenceName]->root();
    }
    const Sequence sequence = readSequence(root, {});
    testCase.stepNames = sequence.names();
    testCase.names = m_names;
    testCase.names.complete(sequence.signalNames);
    return root;
}

void PlanReader::readParameters(const JsonNode &node, const Parameters &ofSequence,
                                TestCase &testCase)
{
    testCase.parameters = ofSequence;
    if (node.has(key::parameters))
        add(testCase.parameters, readValues(node[key::parameters]));
}

void PlanReader::readVariation(const JsonNode &node, TestCase &testCase)
{
    if (node.has(key::search)) {
        testCase.variation = searchParameters(node[key::search]);
        for (const QString &other : {key::sweep, key::repetitions})
            node.optional(other).refuseKey(QStringLiteral("does not go with a search"));
    } else if (node.has(key::sweep)) {
        testCase.variation = readSweep(node[key::sweep]);
    }
}

void PlanReader::readAssessments(const JsonNode &node, const AssessmentReader &reader,
                                 TestCase &testCase)
{
    if (testCase.search()) { // which judges by itself
        node.optional(key::assessments)
            .refuseKey(QStringLiteral("a search has none but its own thresholds"));
        return;
    }
    for (const JsonNode &each : node[key::assessments].elements(1, kMostAssessments))
        testCase.assessments.append(reader.read(each));
}

/// A parameter that nothing uses is a slip of the pen.
void PlanReader::checkNames(const JsonNode &node, const Parameters &ofSequence,
                            const TestCase &testCase)
{
    const QStringList used = ofSequence.keys() + namesUsed(testCase);
    for (const QString &each : parameterNames(testCase)) {
        if (used.contains(each))
            continue;
        const JsonNode given = node.optional(key::parameters).optional(each);
        const QString reason = QStringLiteral("nothing uses the parameter \"%1\"%2")
                                   .arg(each, suggestion::didYouMean(each, used));
        if (given.isAbsent())
            node.refuse(reason);
        else
            given.refuseKey(reason);
    }
}

/// Holds the sequence against the values that it is played with.
void PlanReader::checkValues(const JsonNode &node, int number) const
{
    const auto check = [&](const Shot &shot) {
        const Expected<Sequence> sequence = m_plan->sequence(number, shot.values);
        const QString values = shotText(m_plan->cases[number], shot); // none in a plain case
        if (!sequence)
            node.refuse((values.isEmpty() ? QString() : QStringLiteral("with %1: ").arg(values))
                        + sequence.error().message);
        return sequence.has_value();
    };
    for (const Shot &shot : checkedShots(*m_plan, number, m_caseCount)) {
        if (!check(shot))
            return;
    }
}

void PlanReader::count(const JsonNode &node, const TestCase &testCase)
{
    m_shots += countPlainShots(testCase);
    if (m_shots > TestPlan::kMostShots)
        node.refuse(QStringLiteral("with this case the plan makes %1 shots; the most is %2")
                        .arg(m_shots)
                        .arg(TestPlan::kMostShots));
}

PlanReading readPlan(const QString &path)
{
    const Expected<QByteArray> text = readFile(path);
    if (!text) {
        PlanReading reading;
        reading.remarks.append(JsonFile(path).remarks()); // says why in the way of all JSON files
        return reading;
    }
    return readPlan(*text, path,
                    [&path](const QString &other) { return readFile(besidePlan(other, path)); });
}

PlanReading readPlan(const QByteArray &text, const QString &path, const FileReader &files)
{
    return PlanReader(text, path, files).read();
}

} // namespace workbench
