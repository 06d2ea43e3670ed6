#include "workbench/sequencefile.h"

#include "workbench/sequencedoubts.h"
#include "workbench/sequencekeys.h"

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

/// Reads the steps of one file with the settings that hold for all of them.
class SequenceReader
{
public:
    Sequence read(const JsonNode &root, const Parameters &values);

private:
    void readSettings(const JsonNode &settings);
    [[nodiscard]] Sequence::Ratios readRatios(const JsonNode &ratios);
    void readSteps(QVector<JsonNode> steps);
    void readNames(QVector<JsonNode> &steps);
    void checkName(const JsonNode &node, const QString &name) const;
    [[nodiscard]] SequenceStep readStep(const JsonNode &node, const QString &name);
    [[nodiscard]] std::chrono::milliseconds readTime(const JsonNode &node);
    void readTransitions(const JsonNode &node, SequenceStep &step) const;
    void readOutputs(const JsonNode &node, SequenceStep &step);
    [[nodiscard]] SequenceOutput readOutput(const JsonNode &node, bool ofCurrent);
    [[nodiscard]] int stepNamed(const JsonNode &node) const;
    [[nodiscard]] double largestAmplitude(bool ofCurrent) const;
    [[nodiscard]] double largestFrequency() const;

    Sequence m_sequence;
    SequenceParameters m_parameters;
    bool m_areSettingsSound = true; ///< else nothing is held against them
    bool m_areNamesSound = true; ///< likewise
};

Sequence SequenceReader::read(const JsonNode &root, const Parameters &values)
{
    root.expectKeys({key::description, key::names, key::parameters, key::settings, key::steps});
    m_sequence.description = root.optional(key::description).text();
    m_sequence.signalNames = readSignalNames(root.optional(key::names));
    const int errorsAtFirst = root.file().errors();
    m_parameters.read(root, values);
    const int errorsBefore = root.file().errors();
    readSettings(root.optional(key::settings));
    m_areSettingsSound = root.file().errors() == errorsBefore;
    readSteps(root[key::steps].elements(1, kMaxSteps));
    if (root.file().errors() == errorsAtFirst) // what is misspelt is not used either
        m_parameters.warnOfUnused();
    return m_sequence;
}

void SequenceReader::readSteps(QVector<JsonNode> steps)
{
    const JsonFile *const file = steps.isEmpty() ? nullptr : &steps.first().file();
    const int errorsBefore = file ? file->errors() : 0;
    readNames(steps);
    m_areNamesSound = !file || file->errors() == errorsBefore;
    for (int i = 0; i < steps.size(); ++i)
        m_sequence.steps[i] = readStep(steps[i], m_sequence.steps[i].name);
}

void SequenceReader::readSettings(const JsonNode &settings)
{
    settings.expectKeys({key::nominalFrequency, key::samplesPerCycle, key::svResolution,
                         key::amplitudes, key::dualAD, key::ratios});
    Sequence &all = m_sequence;
    const int errorsBefore = settings.file().errors();
    all.nominalFrequency = m_parameters.integer(settings.optional(key::nominalFrequency), 1, kByte,
                                                all.nominalFrequency);
    all.samplesPerCycle = m_parameters.integer(settings.optional(key::samplesPerCycle), 1,
                                               kMostSamplesPerSecond, all.samplesPerCycle);
    const qint64 rate = qint64(all.nominalFrequency) * all.samplesPerCycle;
    const bool isRate = settings.file().errors() == errorsBefore;
    if (isRate && (rate < kLeastSamplesPerSecond || rate > kMostSamplesPerSecond))
        settings.refuse(QStringLiteral("%1 Hz times %2 samples per cycle are %3 samples per "
                                       "second; allowed is %4 to %5")
                            .arg(all.nominalFrequency)
                            .arg(all.samplesPerCycle)
                            .arg(rate)
                            .arg(kLeastSamplesPerSecond)
                            .arg(kMostSamplesPerSecond));
    all.resolution = Sequence::Resolution(settings.optional(key::svResolution).choice(resolutions));
    all.amplitudesArePeak = settings.optional(key::amplitudes).choice(amplitudeKinds) == 1;
    all.dualAD = settings.optional(key::dualAD).boolean();
    if (settings.has(key::ratios))
        all.ratios = readRatios(settings[key::ratios]);
}

Sequence::Ratios SequenceReader::readRatios(const JsonNode &ratios)
{
    ratios.expectKeys({key::voltage, key::current});
    const int voltage =
        m_parameters.integer(ratios[key::voltage], kVoltageUnit, kMostRatio, kVoltageUnit);
    if (voltage % kVoltageUnit != 0)
        ratios[key::voltage].refuse(
            QStringLiteral("%1 is not a multiple of %2").arg(voltage).arg(kVoltageUnit));
    return {voltage, m_parameters.integer(ratios[key::current], 1, kMostRatio, 1)};
}

/// All names come first, for a step may go to a later one.
void SequenceReader::readNames(QVector<JsonNode> &steps)
{
    for (JsonNode &step : steps) {
        const JsonNode node = step[key::name];
        SequenceStep named;
        named.name = node.text();
        if (node.isText())
            checkName(node, named.name);
        if (!named.name.isEmpty())
            step = step.named(named.name.left(kMaxNameLength));
        m_sequence.steps.append(named);
    }
}

void SequenceReader::checkName(const JsonNode &node, const QString &name) const
{
    if (name.trimmed().isEmpty() || name.size() > kMaxNameLength)
        node.refuse(QStringLiteral("must have 1 to %1 characters").arg(kMaxNameLength));
    else if (name == m_sequence.nameOf(Sequence::kEnd))
        node.refuse(QStringLiteral("\"%1\" names the end of the sequence").arg(name));
    else if (m_sequence.names().contains(name))
        node.refuse(QStringLiteral("\"%1\" names an earlier step too").arg(name));
}

SequenceStep SequenceReader::readStep(const JsonNode &node, const QString &name)
{
    SequenceStep step;
    step.name = name;
    node.expectKeys({key::name, key::time, key::onTimeout, key::onBinaryInput, key::onTrigger,
                     key::conditionFlags, key::stepOption, key::binaryOutputs, key::outputs});
    step.time = readTime(node[key::time]);
    readTransitions(node, step);
    step.stepOption = node.optional(key::stepOption).integer(0, 1);
    const QVector<JsonNode> given =
        node.optional(key::binaryOutputs)
            .elements(SequenceStep::kBinaryOutputs, SequenceStep::kBinaryOutputs);
    for (int i = 0; i < given.size(); ++i)
        step.binaryOutputs.at(std::size_t(i)) = given[i].boolean();
    readOutputs(node[key::outputs], step);
    return step;
}

std::chrono::milliseconds SequenceReader::readTime(const JsonNode &node)
{
    constexpr double kRounding = 1e-6; // 0.08 times 1000 is no whole number
    const auto seconds = m_parameters.resolve(node);
    if (!seconds || !node.expectRange(seconds->value, 0.0, kMaxStepTime, seconds->shown))
        return {};
    const double milliseconds = std::round(seconds->value * kMilliseconds);
    if (std::fabs(seconds->value * kMilliseconds - milliseconds) > kRounding)
        node.refuse(QStringLiteral("%1 s is no whole number of milliseconds").arg(seconds->shown));
    return std::chrono::milliseconds(qint64(milliseconds));
}

void SequenceReader::readTransitions(const JsonNode &node, SequenceStep &step) const
{
    step.onTimeout = stepNamed(node[key::onTimeout]);
    const JsonNode flags = node.optional(key::conditionFlags);
    step.conditionFlags = flags.integer(0, kByte);
    if ((step.conditionFlags & kBinaryInputFlag) != 0)
        flags.refuse(QStringLiteral("flag 8 is set by onBinaryInput alone"));
    if (node.has(key::onBinaryInput))
        step.onBinaryInput = stepNamed(node[key::onBinaryInput]);
    if (node.has(key::onTrigger)) {
        const JsonNode setting = node[key::onTrigger];
        setting.expectKeys({key::trigger, key::goTo});
        const int trigger = setting[key::trigger].integer(1, kByte);
        step.onTrigger = SequenceStep::OnTrigger{trigger, stepNamed(setting[key::goTo])};
    }
}

void SequenceReader::readOutputs(const JsonNode &node, SequenceStep &step)
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

SequenceOutput SequenceReader::readOutput(const JsonNode &node, bool ofCurrent)
{
    node.expectKeys({key::amplitude, key::frequency, key::phase, key::phaseJump});
    const auto number = [&](const QString &key, double least, double most) {
        return m_parameters.number(node[key], least, most, 0.0);
    };
    SequenceOutput output;
    output.amplitude = number(key::amplitude, 0.0, largestAmplitude(ofCurrent));
    if (node.has(key::frequency))
        output.frequency = number(key::frequency, 0.0, largestFrequency());
    output.phase = number(key::phase, -kDegrees, kDegrees);
    if (node.has(key::phaseJump))
        output.phaseJump = number(key::phaseJump, -kDegrees, kDegrees);
    return output;
}

int SequenceReader::stepNamed(const JsonNode &node) const
{
    const QStringList names = m_sequence.names();
    const QStringList known = names + QStringList{m_sequence.nameOf(Sequence::kEnd)};
    const int step = m_areNamesSound ? node.choice(known) : int(known.indexOf(node.text()));
    return step >= 0 && step < names.size() ? step : Sequence::kEnd;
}

/// Half the sample rate.
double SequenceReader::largestFrequency() const
{
    return (m_areSettingsSound ? m_sequence.samplesPerSecond() : kMostSamplesPerSecond) / 2.0;
}

/// The amplitude whose peak is the largest count of a sampled-value stream.
double SequenceReader::largestAmplitude(bool ofCurrent) const
{
    if (!m_areSettingsSound)
        return kLargestCount;
    double unit = 1.0;
    if (m_sequence.resolution == Sequence::Resolution::Centivolt)
        unit = ofCurrent ? 0.001 : 0.01;
    double factor = m_sequence.amplitudesArePeak ? 1.0 : kPeakOfRms;
    if (m_sequence.ratios)
        factor *= ofCurrent ? m_sequence.ratios->current : m_sequence.ratios->voltage;
    return kLargestCount * unit / factor;
}

} // namespace

Sequence readSequence(const JsonNode &node, const Parameters &values)
{
    const Sequence sequence = SequenceReader().read(node, values);
    tellDoubts(node, sequence);
    return sequence;
}

Expected<Sequence> readSequence(const QString &path, const Parameters &values)
{
    JsonFile file(path);
    const Sequence sequence = readSequence(file.root(), values);
    return file.remarks().expectNoErrors().map([&sequence] { return sequence; });
}

Parameters parameterDefaults(const JsonNode &node)
{
    Parameters result;
    const QJsonObject all = node.optional(key::parameters).isObject()
        ? node.optional(key::parameters).object()
        : QJsonObject();
    for (auto each = all.begin(); each != all.end(); ++each) {
        if (each->isDouble())
            result.insert(each.key(), each->toDouble());
    }
    return result;
}

} // namespace workbench
