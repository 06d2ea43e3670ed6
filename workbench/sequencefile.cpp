#include "workbench/sequencefile.h"

#include "workbench/jsonreader.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <cmath>

namespace workbench {

namespace {

constexpr int kMaxSteps = 5;
constexpr int kBinaryInputFlag = 0x08; // of the condition flags
constexpr double kMaxStepTime = 65.535; // seconds; the board gets 16 bits of milliseconds
constexpr double kMilliseconds = 1000.0;
constexpr int kByte = 255;
constexpr int kMaxNameLength = 40;
constexpr int kVoltageUnit = 10; // the engine counts voltage ratios in tens
constexpr int kMostRatio = 100000;

// The board is told the microseconds per sample in one byte, and the samples per second in two.
constexpr int kLeastSamplesPerSecond = 3915;
constexpr int kMostSamplesPerSecond = 65535;

constexpr double kLargestCount = 2147483647.0; // of a sampled value (IEC 61850-9-2: INT32)
constexpr double kPeakOfRms = 1.41421;
constexpr double kDegrees = 360.0;

namespace key {

const QString description = QStringLiteral("description");
const QString settings = QStringLiteral("settings");
const QString steps = QStringLiteral("steps");

const QString nominalFrequency = QStringLiteral("nominalFrequency");
const QString samplesPerCycle = QStringLiteral("samplesPerCycle");
const QString svResolution = QStringLiteral("svResolution");
const QString amplitudes = QStringLiteral("amplitudes");
const QString dualAD = QStringLiteral("dualAD");
const QString ratios = QStringLiteral("ratios");
const QString voltage = QStringLiteral("voltage");
const QString current = QStringLiteral("current");

const QString name = QStringLiteral("name");
const QString time = QStringLiteral("time");
const QString onTimeout = QStringLiteral("onTimeout");
const QString onBinaryInput = QStringLiteral("onBinaryInput");
const QString onTrigger = QStringLiteral("onTrigger");
const QString trigger = QStringLiteral("trigger");
const QString goTo = QStringLiteral("goTo");
const QString conditionFlags = QStringLiteral("conditionFlags");
const QString stepOption = QStringLiteral("stepOption");
const QString binaryOutputs = QStringLiteral("binaryOutputs");
const QString outputs = QStringLiteral("outputs");

const QString amplitude = QStringLiteral("amplitude");
const QString phase = QStringLiteral("phase");
const QString frequency = QStringLiteral("frequency");
const QString phaseJump = QStringLiteral("phaseJump");

} // namespace key

const QStringList resolutions = {QStringLiteral("0.01 V, 0.001 A"), QStringLiteral("1 V, 1 A")};
const QStringList amplitudeKinds = {QStringLiteral("RMS"), QStringLiteral("peak")};

/// Reads the steps of one file with the settings that hold for all of them.
class SequenceReader
{
public:
    Sequence read(const JsonNode &root);

private:
    void readSettings(const JsonNode &settings);
    [[nodiscard]] static Sequence::Ratios readRatios(const JsonNode &ratios);
    void readNames(const QVector<JsonNode> &steps);
    [[nodiscard]] SequenceStep readStep(const JsonNode &node, const QString &name) const;
    [[nodiscard]] static std::chrono::milliseconds readTime(const JsonNode &node);
    void readTransitions(const JsonNode &node, SequenceStep &step) const;
    void readOutputs(const JsonNode &node, SequenceStep &step) const;
    [[nodiscard]] SequenceOutput readOutput(const JsonNode &node, bool ofCurrent) const;
    [[nodiscard]] int stepNamed(const JsonNode &node) const;
    [[nodiscard]] double largestAmplitude(bool ofCurrent) const;

    Sequence m_sequence;
};

Sequence SequenceReader::read(const JsonNode &root)
{
    root.expectKeys({key::description, key::settings, key::steps});
    if (root.has(key::description))
        m_sequence.description = root[key::description].text();
    if (root.has(key::settings))
        readSettings(root[key::settings]);
    const QVector<JsonNode> steps = root[key::steps].elements(1, kMaxSteps);
    readNames(steps);
    for (int i = 0; i < steps.size(); ++i)
        m_sequence.steps[i] = readStep(steps[i], m_sequence.steps[i].name);
    return m_sequence;
}

void SequenceReader::readSettings(const JsonNode &settings)
{
    settings.expectKeys({key::nominalFrequency, key::samplesPerCycle, key::svResolution,
                         key::amplitudes, key::dualAD, key::ratios});
    Sequence &all = m_sequence;
    if (settings.has(key::nominalFrequency))
        all.nominalFrequency = settings[key::nominalFrequency].integer(1, kByte);
    if (settings.has(key::samplesPerCycle))
        all.samplesPerCycle = settings[key::samplesPerCycle].integer(1, kMostSamplesPerSecond);
    const qint64 rate = qint64(all.nominalFrequency) * all.samplesPerCycle;
    if (rate < kLeastSamplesPerSecond || rate > kMostSamplesPerSecond)
        settings.refuse(QStringLiteral("%1 Hz times %2 samples per cycle are %3 samples per "
                                       "second; allowed is %4 to %5")
                            .arg(all.nominalFrequency)
                            .arg(all.samplesPerCycle)
                            .arg(rate)
                            .arg(kLeastSamplesPerSecond)
                            .arg(kMostSamplesPerSecond));
    if (settings.has(key::svResolution))
        all.resolution = Sequence::Resolution(settings[key::svResolution].choice(resolutions));
    if (settings.has(key::amplitudes))
        all.amplitudesArePeak = settings[key::amplitudes].choice(amplitudeKinds) == 1;
    if (settings.has(key::dualAD))
        all.dualAD = settings[key::dualAD].boolean();
    if (settings.has(key::ratios))
        all.ratios = readRatios(settings[key::ratios]);
}

Sequence::Ratios SequenceReader::readRatios(const JsonNode &ratios)
{
    ratios.expectKeys({key::voltage, key::current});
    const int voltage = ratios[key::voltage].integer(kVoltageUnit, kMostRatio);
    if (voltage % kVoltageUnit != 0)
        ratios[key::voltage].refuse(
            QStringLiteral("%1 is not a multiple of %2").arg(voltage).arg(kVoltageUnit));
    return {voltage, ratios[key::current].integer(1, kMostRatio)};
}

/// All names come first, for a step may go to a later one.
void SequenceReader::readNames(const QVector<JsonNode> &steps)
{
    for (const JsonNode &step : steps) {
        const JsonNode node = step[key::name];
        SequenceStep named;
        named.name = node.text();
        if (named.name.trimmed().isEmpty() || named.name.size() > kMaxNameLength)
            node.refuse(QStringLiteral("must have 1 to %1 characters").arg(kMaxNameLength));
        if (named.name == m_sequence.nameOf(Sequence::kEnd))
            node.refuse(QStringLiteral("\"%1\" names the end of the sequence").arg(named.name));
        if (m_sequence.names().contains(named.name))
            node.refuse(QStringLiteral("\"%1\" names an earlier step too").arg(named.name));
        m_sequence.steps.append(named);
    }
}

SequenceStep SequenceReader::readStep(const JsonNode &node, const QString &name) const
{
    SequenceStep step;
    step.name = name;
    node.expectKeys({key::name, key::time, key::onTimeout, key::onBinaryInput, key::onTrigger,
                     key::conditionFlags, key::stepOption, key::binaryOutputs, key::outputs});
    step.time = readTime(node[key::time]);
    readTransitions(node, step);
    if (node.has(key::stepOption))
        step.stepOption = node[key::stepOption].integer(0, 1);
    if (node.has(key::binaryOutputs)) {
        const QVector<JsonNode> given = node[key::binaryOutputs].elements(
            SequenceStep::kBinaryOutputs, SequenceStep::kBinaryOutputs);
        for (int i = 0; i < given.size(); ++i)
            step.binaryOutputs.at(std::size_t(i)) = given[i].boolean();
    }
    readOutputs(node[key::outputs], step);
    return step;
}

std::chrono::milliseconds SequenceReader::readTime(const JsonNode &node)
{
    constexpr double kRounding = 1e-6; // 0.08 times 1000 is no whole number
    const double seconds = node.number(0.0, kMaxStepTime);
    const double milliseconds = std::round(seconds * kMilliseconds);
    if (std::fabs(seconds * kMilliseconds - milliseconds) > kRounding)
        node.refuse(QStringLiteral("%1 s is no whole number of milliseconds").arg(seconds));
    return std::chrono::milliseconds(qint64(milliseconds));
}

void SequenceReader::readTransitions(const JsonNode &node, SequenceStep &step) const
{
    step.onTimeout = stepNamed(node[key::onTimeout]);
    if (node.has(key::conditionFlags)) {
        step.conditionFlags = node[key::conditionFlags].integer(0, kByte);
        if ((step.conditionFlags & kBinaryInputFlag) != 0)
            node[key::conditionFlags].refuse(
                QStringLiteral("flag 8 is set by onBinaryInput alone"));
    }
    if (node.has(key::onBinaryInput))
        step.onBinaryInput = stepNamed(node[key::onBinaryInput]);
    if (node.has(key::onTrigger)) {
        const JsonNode setting = node[key::onTrigger];
        setting.expectKeys({key::trigger, key::goTo});
        const int trigger = setting[key::trigger].integer(1, kByte);
        step.onTrigger = SequenceStep::OnTrigger{trigger, stepNamed(setting[key::goTo])};
    }
}

void SequenceReader::readOutputs(const JsonNode &node, SequenceStep &step) const
{
    const QStringList &names = outputNames();
    node.expectKeys(names);
    for (int i = 0; i < names.size(); ++i) {
        if (!node.has(names[i]))
            continue;
        const bool isSecond = i % 2 != 0;
        if (isSecond && m_sequence.dualAD)
            node[names[i]].refuse(
                QStringLiteral("mirrors %1, because dualAD is true").arg(names[i - 1]));
        step.outputs[std::size_t(i)] = readOutput(node[names[i]], isCurrent(i));
    }
}

SequenceOutput SequenceReader::readOutput(const JsonNode &node, bool ofCurrent) const
{
    node.expectKeys({key::amplitude, key::frequency, key::phase, key::phaseJump});
    SequenceOutput output;
    output.amplitude = node[key::amplitude].number(0.0, largestAmplitude(ofCurrent));
    if (node.has(key::frequency))
        output.frequency = node[key::frequency].number(0.0, m_sequence.samplesPerSecond() / 2.0);
    output.phase = node[key::phase].number(-kDegrees, kDegrees);
    if (node.has(key::phaseJump))
        output.phaseJump = node[key::phaseJump].number(-kDegrees, kDegrees);
    return output;
}

int SequenceReader::stepNamed(const JsonNode &node) const
{
    const QStringList names = m_sequence.names();
    const int step = node.choice(names + QStringList{m_sequence.nameOf(Sequence::kEnd)});
    return step < names.size() ? step : Sequence::kEnd;
}

/// The amplitude whose peak is the largest count of a sampled-value stream.
double SequenceReader::largestAmplitude(bool ofCurrent) const
{
    double unit = 1.0;
    if (m_sequence.resolution == Sequence::Resolution::Centivolt)
        unit = ofCurrent ? 0.001 : 0.01;
    double factor = m_sequence.amplitudesArePeak ? 1.0 : kPeakOfRms;
    if (m_sequence.ratios)
        factor *= ofCurrent ? m_sequence.ratios->current : m_sequence.ratios->voltage;
    return kLargestCount * unit / factor;
}

// Writing. QJsonObject would sort the keys; a reader wants them in the order of the documentation.

QString member(const QString &name, const QString &value)
{
    return QLatin1Char('"') + name + QLatin1String("\": ") + value;
}

QString quoted(const QString &text)
{
    const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(list.mid(1).chopped(1));
}

QString number(double value)
{
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

QString line(const QStringList &members)
{
    return QStringLiteral("{ ") + members.join(QStringLiteral(", ")) + QStringLiteral(" }");
}

/// One below the other, between \a open and \a close.
QString block(QChar open, const QStringList &items, QChar close)
{
    if (items.isEmpty())
        return QString(open) + close;
    QString inside = QLatin1Char('\n') + items.join(QStringLiteral(",\n"));
    inside.replace(QLatin1Char('\n'), QLatin1String("\n  "));
    return open + inside + QLatin1Char('\n') + close;
}

QString object(const QStringList &members)
{
    return block(QLatin1Char('{'), members, QLatin1Char('}'));
}

QStringList settingsOf(const Sequence &sequence)
{
    const Sequence defaults;
    QStringList members;
    if (sequence.nominalFrequency != defaults.nominalFrequency)
        members += member(key::nominalFrequency, number(sequence.nominalFrequency));
    if (sequence.samplesPerCycle != defaults.samplesPerCycle)
        members += member(key::samplesPerCycle, number(sequence.samplesPerCycle));
    if (sequence.resolution != defaults.resolution)
        members += member(key::svResolution, quoted(resolutions[int(sequence.resolution)]));
    if (sequence.amplitudesArePeak)
        members += member(key::amplitudes, quoted(amplitudeKinds[1]));
    if (sequence.dualAD)
        members += member(key::dualAD, QStringLiteral("true"));
    if (sequence.ratios)
        members += member(key::ratios,
                          line({member(key::voltage, number(sequence.ratios->voltage)),
                                member(key::current, number(sequence.ratios->current))}));
    return members;
}

QString text(const SequenceOutput &output)
{
    QStringList members = {member(key::amplitude, number(output.amplitude)),
                           member(key::phase, number(output.phase))};
    if (output.frequency)
        members += member(key::frequency, number(*output.frequency));
    if (output.phaseJump)
        members += member(key::phaseJump, number(*output.phaseJump));
    return line(members);
}

QString outputsOf(const SequenceStep &step)
{
    QStringList members;
    for (int i = 0; i < outputNames().size(); ++i) {
        if (const auto &output = step.outputs[std::size_t(i)])
            members += member(outputNames()[i], text(*output));
    }
    return object(members);
}

QString statesOf(const SequenceStep &step)
{
    QStringList states;
    for (const bool state : step.binaryOutputs)
        states += QLatin1String(state ? "true" : "false");
    return QLatin1Char('[') + states.join(QStringLiteral(", ")) + QLatin1Char(']');
}

QString text(const SequenceStep &step, const Sequence &sequence)
{
    const auto named = [&sequence](int number) { return quoted(sequence.nameOf(number)); };
    QStringList members = {member(key::name, quoted(step.name)),
                           member(key::time, number(double(step.time.count()) / kMilliseconds)),
                           member(key::onTimeout, named(step.onTimeout))};
    if (step.onBinaryInput)
        members += member(key::onBinaryInput, named(*step.onBinaryInput));
    if (step.onTrigger)
        members += member(key::onTrigger,
                          line({member(key::trigger, number(step.onTrigger->trigger)),
                                member(key::goTo, named(step.onTrigger->goTo))}));
    if (step.conditionFlags != 0)
        members += member(key::conditionFlags, number(step.conditionFlags));
    if (step.stepOption != 0)
        members += member(key::stepOption, number(step.stepOption));
    if (step.binaryOutputs != SequenceStep().binaryOutputs)
        members += member(key::binaryOutputs, statesOf(step));
    members += member(key::outputs, outputsOf(step));
    return object(members);
}

} // namespace

Expected<Sequence> readSequence(const QString &path)
{
    JsonReader file(path);
    const Sequence sequence = SequenceReader().read(file.root());
    if (file.failure())
        return tl::unexpected<Failure>(*file.failure());
    return sequence;
}

QByteArray toJson(const Sequence &sequence)
{
    QStringList members;
    if (!sequence.description.isEmpty())
        members += member(key::description, quoted(sequence.description));
    const QStringList settings = settingsOf(sequence);
    if (!settings.isEmpty())
        members += member(key::settings, object(settings));
    QStringList steps;
    for (const SequenceStep &step : sequence.steps)
        steps += text(step, sequence);
    members += member(key::steps, block(QLatin1Char('['), steps, QLatin1Char(']')));
    return object(members).toUtf8() + '\n';
}

Expected<void> writeSequence(const Sequence &sequence, const QString &path)
{
    QSaveFile file(path);
    const QByteArray json = toJson(sequence);
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit())
        return failure(Failure::Input, path + QStringLiteral(": ") + file.errorString());
    return {};
}

} // namespace workbench
