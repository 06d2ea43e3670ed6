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
    void readNames(QVector<JsonNode> &steps);
    void checkName(const JsonNode &node, const QString &name) const;
    [[nodiscard]] SequenceStep readStep(const JsonNode &node, const QString &name) const;
    [[nodiscard]] static std::chrono::milliseconds readTime(const JsonNode &node);
    void readTransitions(const JsonNode &node, SequenceStep &step) const;
    void readOutputs(const JsonNode &node, SequenceStep &step) const;
    [[nodiscard]] SequenceOutput readOutput(const JsonNode &node, bool ofCurrent) const;
    [[nodiscard]] int stepNamed(const JsonNode &node) const;
    [[nodiscard]] double largestAmplitude(bool ofCurrent) const;
    [[nodiscard]] double largestFrequency() const;

    Sequence m_sequence;
    bool m_areSettingsSound = true; ///< else nothing is held against them
    bool m_areNamesSound = true; ///< likewise
};

Sequence SequenceReader::read(const JsonNode &root)
{
    root.expectKeys({key::description, key::settings, key::steps});
    m_sequence.description = root.optional(key::description).text();
    const int errorsBefore = root.file().errors();
    readSettings(root.optional(key::settings));
    m_areSettingsSound = root.file().errors() == errorsBefore;
    QVector<JsonNode> steps = root[key::steps].elements(1, kMaxSteps);
    const int errorsBeforeNames = root.file().errors();
    readNames(steps);
    m_areNamesSound = root.file().errors() == errorsBeforeNames;
    for (int i = 0; i < steps.size(); ++i)
        m_sequence.steps[i] = readStep(steps[i], m_sequence.steps[i].name);
    return m_sequence;
}

void SequenceReader::readSettings(const JsonNode &settings)
{
    settings.expectKeys({key::nominalFrequency, key::samplesPerCycle, key::svResolution,
                         key::amplitudes, key::dualAD, key::ratios});
    Sequence &all = m_sequence;
    const int errorsBefore = settings.file().errors();
    all.nominalFrequency =
        settings.optional(key::nominalFrequency).integer(1, kByte, all.nominalFrequency);
    all.samplesPerCycle = settings.optional(key::samplesPerCycle)
                              .integer(1, kMostSamplesPerSecond, all.samplesPerCycle);
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
    const int voltage = ratios[key::voltage].integer(kVoltageUnit, kMostRatio);
    if (voltage % kVoltageUnit != 0)
        ratios[key::voltage].refuse(
            QStringLiteral("%1 is not a multiple of %2").arg(voltage).arg(kVoltageUnit));
    return {voltage, ratios[key::current].integer(1, kMostRatio)};
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

SequenceStep SequenceReader::readStep(const JsonNode &node, const QString &name) const
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
    const double seconds = node.number(0.0, kMaxStepTime);
    const double milliseconds = std::round(seconds * kMilliseconds);
    if (std::fabs(seconds * kMilliseconds - milliseconds) > kRounding)
        node.refuse(QStringLiteral("%1 s is no whole number of milliseconds").arg(seconds));
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
        output.frequency = node[key::frequency].number(0.0, largestFrequency());
    output.phase = node[key::phase].number(-kDegrees, kDegrees);
    if (node.has(key::phaseJump))
        output.phaseJump = node[key::phaseJump].number(-kDegrees, kDegrees);
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
    JsonFile file(path);
    const Sequence sequence = SequenceReader().read(file.root());
    return file.remarks().expectNoErrors().map([&sequence] { return sequence; });
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
