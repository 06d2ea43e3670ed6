#include "workbench/testrecord.h"

#include "workbench/planreader.h"
#include "workbench/statustext.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <set>

namespace workbench {

namespace {

constexpr int kVersion = 1;
constexpr qint64 kMostBytes = qint64(256) * 1024 * 1024;
constexpr double kMostNanoseconds = 9e15; // a hundred days; JSON has every one up to here
constexpr int kMostCount = 1000000000;
constexpr int kMostChanges = 100000;
constexpr double kMostValue = 1e300;

const QString format = QStringLiteral("lumtar test record");
const QString digestKey = QStringLiteral("sha256");

/// What \a name calls the numbers up to \a last, in their order.
template <typename Enumerator>
QStringList wordsUpTo(Enumerator last, QString (*name)(Enumerator))
{
    QStringList words;
    for (int i = 0; i <= int(last); ++i)
        words += name(Enumerator(i));
    return words;
}

const QStringList states = wordsUpTo(statusreply::State::Stopped, stateName);
const QStringList causes = wordsUpTo(statusreply::Change::Limit, causeName);
const QStringList inputKinds = wordsUpTo(statusreply::Input::Trigger, inputName);
const QStringList roles{QStringLiteral("plain"), QStringLiteral("pick-up"),
                        QStringLiteral("drop-off")};

using Nanoseconds = std::chrono::nanoseconds;

double number(Nanoseconds time)
{
    return double(time.count());
}

/// Of a JSON number that is whole, as those of this file are.
Nanoseconds readTime(const JsonNode &node)
{
    return Nanoseconds(qint64(node.number(-kMostNanoseconds, kMostNanoseconds, 0)));
}

quint64 readCount(const JsonNode &node)
{
    return quint64(node.number(0, kMostNanoseconds, 0));
}

// Steps and channels that are none are left out.

void addUnless(QJsonObject &object, const QString &key, int value, int none)
{
    if (value != none)
        object[key] = value;
}

int readUnless(const JsonNode &node, int last, int none)
{
    return node.isAbsent() ? none : node.integer(0, last);
}

constexpr int kLastStep = 4;
constexpr int kLastChannel = 255;

namespace key {

const QString left = QStringLiteral("left");
const QString entered = QStringLiteral("entered");
const QString cause = QStringLiteral("cause");
const QString channel = QStringLiteral("channel");
const QString disturbances = QStringLiteral("disturbances");
const QString lateness = QStringLiteral("lateness");
const QString causeTime = QStringLiteral("causeTime");
const QString entryTime = QStringLiteral("entryTime");

const QString kind = QStringLiteral("kind");
const QString time = QStringLiteral("time");

const QString state = QStringLiteral("state");
const QString step = QStringLiteral("step");
const QString timeInStep = QStringLiteral("timeInStep");
const QString totalTime = QStringLiteral("totalTime");
const QString frames = QStringLiteral("frames");
const QString problems = QStringLiteral("problems");
const QString latenessP50 = QStringLiteral("latenessP50");
const QString latenessP99 = QStringLiteral("latenessP99");
const QString latenessMax = QStringLiteral("latenessMax");
const QString missedDeadlines = QStringLiteral("missedDeadlines");
const QString framesRefused = QStringLiteral("framesRefused");

const QString caseNumber = QStringLiteral("case");
const QString role = QStringLiteral("role");
const QString point = QStringLiteral("point");
const QString repetition = QStringLiteral("repetition");
const QString values = QStringLiteral("values");

const QString error = QStringLiteral("error");
const QString skipped = QStringLiteral("skipped");
const QString complete = QStringLiteral("complete");
const QString changes = QStringLiteral("changes");
const QString changesLost = QStringLiteral("changesLost");
const QString inputs = QStringLiteral("inputs");
const QString inputsLost = QStringLiteral("inputsLost");
const QString activeInputs = QStringLiteral("activeInputs");
const QString end = QStringLiteral("end");
const QString capture = QStringLiteral("capture");

const QString format = QStringLiteral("format");
const QString version = QStringLiteral("version");
const QString program = QStringLiteral("program");
const QString board = QStringLiteral("board");
const QString played = QStringLiteral("played");
const QString interrupted = QStringLiteral("interrupted");
const QString plan = QStringLiteral("plan");
const QString configuration = QStringLiteral("configuration");
const QString shots = QStringLiteral("shots");
const QString path = QStringLiteral("path");
const QString text = QStringLiteral("text");
const QString base64 = QStringLiteral("base64");

} // namespace key

QJsonObject toJson(const statusreply::Change &change)
{
    QJsonObject object;
    addUnless(object, key::left, change.left, statusreply::kNoStep);
    addUnless(object, key::entered, change.entered, statusreply::kNoStep);
    object[key::cause] = causes.value(change.cause);
    addUnless(object, key::channel, change.channel, statusreply::kNoChannel);
    addUnless(object, key::disturbances, change.disturbances, 0);
    if (change.lateness.count() != 0)
        object[key::lateness] = number(change.lateness);
    object[key::causeTime] = number(change.causeTime);
    object[key::entryTime] = number(change.entryTime);
    return object;
}

statusreply::Change readChange(const JsonNode &node)
{
    node.expectKeys({key::left, key::entered, key::cause, key::channel, key::disturbances,
                     key::lateness, key::causeTime, key::entryTime});
    statusreply::Change change;
    change.left = readUnless(node.optional(key::left), kLastStep, statusreply::kNoStep);
    change.entered = readUnless(node.optional(key::entered), kLastStep, statusreply::kNoStep);
    change.cause = statusreply::Change::Cause(node[key::cause].choice(causes));
    change.channel = readUnless(node.optional(key::channel), kLastChannel, statusreply::kNoChannel);
    change.disturbances = node.optional(key::disturbances).integer(0, 7, 0);
    change.lateness = readTime(node.optional(key::lateness));
    change.causeTime = readTime(node[key::causeTime]);
    change.entryTime = readTime(node[key::entryTime]);
    return change;
}

QJsonObject toJson(const statusreply::Input &input)
{
    QJsonObject object;
    object[key::kind] = inputKinds.value(input.kind);
    addUnless(object, key::channel, input.channel, statusreply::kNoChannel);
    object[key::time] = number(input.time);
    return object;
}

statusreply::Input readInput(const JsonNode &node)
{
    node.expectKeys({key::kind, key::channel, key::time});
    statusreply::Input input;
    input.kind = statusreply::Input::Kind(node[key::kind].choice(inputKinds));
    input.channel = readUnless(node.optional(key::channel), kLastChannel, statusreply::kNoChannel);
    input.time = readTime(node[key::time]);
    return input;
}

QJsonObject toJson(const statusreply::State &state)
{
    QJsonObject object;
    object[key::state] = states.value(state.playing);
    addUnless(object, key::step, state.step, statusreply::kNoStep);
    object[key::timeInStep] = number(state.timeInStep);
    object[key::totalTime] = number(state.totalTime);
    object[key::frames] = double(state.frames);
    object[key::problems] = double(state.problems);
    const bool isLive =
        state.latenessMax.count() != 0 || state.missedDeadlines != 0 || state.framesRefused != 0;
    if (!isLive)
        return object;
    object[key::latenessP50] = number(state.latenessP50);
    object[key::latenessP99] = number(state.latenessP99);
    object[key::latenessMax] = number(state.latenessMax);
    object[key::missedDeadlines] = double(state.missedDeadlines);
    object[key::framesRefused] = double(state.framesRefused);
    return object;
}

statusreply::State readState(const JsonNode &node)
{
    node.expectKeys({key::state, key::step, key::timeInStep, key::totalTime, key::frames,
                     key::problems, key::latenessP50, key::latenessP99, key::latenessMax,
                     key::missedDeadlines, key::framesRefused});
    statusreply::State state;
    state.playing = statusreply::State::Playing(node[key::state].choice(states));
    state.step = readUnless(node.optional(key::step), kLastStep, statusreply::kNoStep);
    state.timeInStep = readTime(node[key::timeInStep]);
    state.totalTime = readTime(node[key::totalTime]);
    state.frames = readCount(node[key::frames]);
    state.problems = quint32(node[key::problems].integer(0, kMostCount));
    state.latenessP50 = readTime(node.optional(key::latenessP50));
    state.latenessP99 = readTime(node.optional(key::latenessP99));
    state.latenessMax = readTime(node.optional(key::latenessMax));
    state.missedDeadlines = readCount(node.optional(key::missedDeadlines));
    state.framesRefused = readCount(node.optional(key::framesRefused));
    return state;
}

QJsonObject toJson(const TestPlan::Source &source)
{
    QJsonObject object{{key::path, source.path}, {digestKey, QString::fromLatin1(source.sha256)}};
    const QString text = QString::fromUtf8(source.text);
    if (text.toUtf8() == source.text)
        object[key::text] = text;
    else // a byte order mark, say
        object[key::base64] = QString::fromLatin1(source.text.toBase64());
    return object;
}

template <typename Element>
QJsonArray toJsonArray(const QVector<Element> &elements)
{
    QJsonArray array;
    for (const Element &each : elements)
        array.append(toJson(each));
    return array;
}

QByteArray sha256(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

TestPlan::Source readSource(const JsonNode &node)
{
    node.expectKeys({key::path, digestKey, key::text, key::base64});
    TestPlan::Source source;
    source.path = node[key::path].text();
    source.text = node.has(key::base64)
        ? QByteArray::fromBase64(node[key::base64].text().toLatin1())
        : node[key::text].text().toUtf8();
    source.sha256 = node[digestKey].text().toLatin1();
    if (source.sha256 != sha256(source.text))
        node[digestKey].refuse(QStringLiteral("is not the digest of the text"));
    return source;
}

TestRecord::File readFile(const JsonNode &node)
{
    node.expectKeys({key::path, digestKey});
    return {node[key::path].text(), node[digestKey].text().toLatin1()};
}

QByteArray digestOf(const QJsonObject &object)
{
    return sha256(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QJsonObject withoutDigest(QJsonObject object)
{
    object.remove(digestKey);
    return object;
}

/// The plan that stands in the record; tells the file if there is none that is sound.
std::shared_ptr<const TestPlan> planOf(const QVector<TestPlan::Source> &sources,
                                       const JsonNode &place)
{
    if (sources.isEmpty())
        return {};
    const FileReader files = [&sources](const QString &path) -> Expected<QByteArray> {
        for (const TestPlan::Source &each : sources.mid(1)) {
            if (each.path == path)
                return each.text;
        }
        return failure(Failure::Input, QStringLiteral("%1 is not in the record").arg(path));
    };
    const PlanReading reading = readPlan(sources.first().text, sources.first().path, files);
    if (!reading.plan) {
        const QStringList lines = reading.remarks.first().lines();
        place.refuse(QStringLiteral("the plan in it is not sound: ") + lines.value(0));
    }
    return reading.plan;
}

/// Whether \a next may follow \a before in a record.
bool isBehind(const Shot &before, const Shot &next)
{
    const auto order = [](const Shot &shot) {
        return std::make_tuple(shot.caseNumber, shot.point, shot.repetition);
    };
    return order(before) < order(next);
}

std::set<int> casesOf(const TestRecord &record)
{
    std::set<int> cases;
    for (const ShotRecord &each : record.shots)
        cases.insert(each.shot.caseNumber);
    return cases;
}

} // namespace

QJsonObject toJson(const Shot &shot)
{
    QJsonObject values;
    for (auto each = shot.values.begin(); each != shot.values.end(); ++each)
        values[each.key()] = each.value();
    QJsonObject object;
    object[key::caseNumber] = shot.caseNumber;
    object[key::role] = roles.value(shot.role);
    object[key::point] = shot.point;
    object[key::repetition] = shot.repetition;
    object[key::values] = values;
    return object;
}

Shot readShot(const JsonNode &node, const TestPlan &plan)
{
    Shot shot;
    shot.caseNumber = node[key::caseNumber].integer(0, int(plan.cases.size()) - 1);
    const TestCase &testCase = plan.cases[shot.caseNumber];
    shot.role = Shot::Role(node[key::role].choice(roles));
    if ((shot.role == Shot::Plain) == (testCase.search() != nullptr))
        node[key::role].refuse(QStringLiteral("does not go with the case"));
    const int points = testCase.sweep() ? int(testCase.sweep()->points.size()) : 1;
    shot.point = node[key::point].integer(0, testCase.search() ? kMostCount : points - 1);
    shot.repetition = node[key::repetition].integer(0, testCase.repetitions - 1);
    for (const JsonMember &each : node[key::values].members())
        shot.values[each.key] = each.node.number(-kMostValue, kMostValue, 0);
    return shot;
}

QJsonObject toJson(const ShotRecord &shot)
{
    QJsonObject object = toJson(shot.shot);
    if (!shot.skipped.isEmpty()) {
        object[key::skipped] = shot.skipped;
        return object;
    }
    if (!shot.error.isEmpty())
        object[key::error] = shot.error;
    const Observation &seen = shot.observation;
    object[key::complete] = seen.complete;
    object[key::changes] = toJsonArray(seen.changes);
    object[key::inputs] = toJsonArray(seen.inputs);
    if (seen.changesLost > 0)
        object[key::changesLost] = double(seen.changesLost);
    if (seen.inputsLost > 0)
        object[key::inputsLost] = double(seen.inputsLost);
    QJsonArray active;
    for (const int channel : seen.activeInputs)
        active.append(channel);
    object[key::activeInputs] = active;
    object[key::end] = toJson(shot.end);
    if (!shot.capture.isEmpty())
        object[key::capture] = shot.capture;
    return object;
}

ShotRecord readShotRecord(const JsonNode &node, const TestPlan &plan)
{
    node.expectKeys({key::caseNumber, key::role, key::point, key::repetition, key::values,
                     key::skipped, key::error, key::complete, key::changes, key::changesLost,
                     key::inputs, key::inputsLost, key::activeInputs, key::end, key::capture});
    ShotRecord record;
    record.shot = readShot(node, plan);
    record.observation.stepNames = plan.cases[record.shot.caseNumber].stepNames;
    record.skipped = node.optional(key::skipped).text();
    if (!record.skipped.isEmpty())
        return record;
    record.error = node.optional(key::error).text();
    Observation &seen = record.observation;
    seen.complete = node[key::complete].boolean();
    for (const JsonNode &each : node[key::changes].elements(0, kMostChanges))
        seen.changes.append(readChange(each));
    for (const JsonNode &each : node[key::inputs].elements(0, kMostChanges))
        seen.inputs.append(readInput(each));
    seen.changesLost = quint32(node.optional(key::changesLost).integer(0, kMostCount, 0));
    seen.inputsLost = quint32(node.optional(key::inputsLost).integer(0, kMostCount, 0));
    for (const JsonNode &each : node[key::activeInputs].elements(0, kLastChannel + 1))
        seen.activeInputs.append(each.integer(0, kLastChannel));
    record.end = readState(node[key::end]);
    record.capture = node.optional(key::capture).text();
    return record;
}

QByteArray toJson(const TestRecord &record)
{
    QJsonObject object;
    object[key::format] = format;
    object[key::version] = kVersion;
    object[key::program] = record.program;
    object[key::board] = record.board;
    if (!record.played.isEmpty())
        object[key::played] = record.played;
    if (record.interrupted)
        object[key::interrupted] = true;
    object[key::plan] = toJsonArray(record.sources);
    object[key::configuration] =
        QJsonObject{{key::path, record.configuration.path},
                    {digestKey, QString::fromLatin1(record.configuration.sha256)}};
    object[key::shots] = toJsonArray(record.shots);
    object[digestKey] = QString::fromLatin1(digestOf(object));
    return QJsonDocument(object).toJson();
}

Expected<RecordedTest> readRecord(const QString &path)
{
    JsonFile file(path, kMostBytes);
    const JsonNode root = file.root();
    if (root.isObject() && root.optional(key::format).text() != format) {
        root.refuse(QStringLiteral("is no record of a test"));
    } else if (root.isObject() && root[key::version].integer(0, kMostCount) != kVersion) {
        root[key::version].refuse(
            QStringLiteral("is another one than this program knows, which is %1").arg(kVersion));
    } else if (root.isObject()
               && root.optional(digestKey).text().toLatin1()
                   != digestOf(withoutDigest(root.object()))) {
        root.refuse(QStringLiteral("the record has been changed since it was written"));
    }
    if (const Expected<void> sound = file.remarks().expectNoErrors(); !sound)
        return tl::unexpected<Failure>(sound.error());

    root.expectKeys({key::format, key::version, key::program, key::board, key::played,
                     key::interrupted, key::plan, key::configuration, key::shots, digestKey});
    RecordedTest test;
    TestRecord &record = test.record;
    record.program = root[key::program].text();
    record.board = root[key::board].text();
    record.played = root.optional(key::played).text();
    record.interrupted = root.optional(key::interrupted).boolean();
    for (const JsonNode &each : root[key::plan].elements(1, TestPlan::kMostCases + 1))
        record.sources.append(readSource(each));
    record.configuration = readFile(root[key::configuration]);
    test.plan = planOf(record.sources, root[key::plan]);
    if (test.plan) {
        for (const JsonNode &each : root[key::shots].elements(0, kMostCount)) {
            record.shots.append(readShotRecord(each, *test.plan));
            const int last = int(record.shots.size()) - 1;
            if (last > 0 && !isBehind(record.shots[last - 1].shot, record.shots[last].shot))
                each.refuse(QStringLiteral("does not follow the shot before it"));
        }
    }
    return file.remarks().expectNoErrors().map([&test] { return test; });
}

Expected<RecordedTest> joined(const QVector<RecordedTest> &records)
{
    RecordedTest all = records.first();
    std::set<int> cases = casesOf(all.record);
    for (const RecordedTest &each : records.mid(1)) {
        const TestRecord &other = each.record;
        const bool isSame = other.sources.size() == all.record.sources.size()
            && std::equal(other.sources.begin(), other.sources.end(), all.record.sources.begin(),
                          [](const auto &a, const auto &b) { return a.sha256 == b.sha256; })
            && other.configuration.sha256 == all.record.configuration.sha256;
        if (!isSame)
            return failure(Failure::Input,
                           QStringLiteral("the records are of different plans: \"%1\" and \"%2\", "
                                          "or of different versions of one")
                               .arg(all.plan->title, each.plan->title));
        if (other.board != all.record.board || other.program != all.record.program)
            return failure(
                Failure::Input,
                QStringLiteral("the records are of different boards or programs: "
                               "%1 (%2) and %3 (%4)")
                    .arg(all.record.board, all.record.program, other.board, other.program));
        const std::set<int> others = casesOf(other);
        for (const int number : others) {
            if (cases.count(number) > 0)
                return failure(Failure::Input,
                               QStringLiteral("more than one record has the case \"%1\"")
                                   .arg(all.plan->cases[number].name));
        }
        cases.insert(others.begin(), others.end());
        all.record.interrupted = all.record.interrupted || other.interrupted;
        all.record.shots += other.shots;
    }
    QVector<ShotRecord> &shots = all.record.shots;
    std::stable_sort(shots.begin(), shots.end(), [](const ShotRecord &a, const ShotRecord &b) {
        return isBehind(a.shot, b.shot);
    });
    return all;
}

} // namespace workbench
