#include "sequencefile.h"

#include "jsonnode.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr int kMaxSteps = 5;
constexpr int kBinaryInputFlag = 0x08; // in CStep::ctlCondition
constexpr int kMaxStepTime = 65; // seconds; the board gets 16 bits of milliseconds
constexpr int kByte = 255;
constexpr int kMaxNameLength = 40;

// The board is told the microseconds per sample at 50 Hz in one byte, and the samples per second in
// two.
constexpr int kLeastSamplesPerCycle = 79;
constexpr int kMostSamplesPerCycle = 20000;
constexpr int kMostSamplesPerSecond = 65535;

const QString endName = QStringLiteral("end"); // where a step goes to end the sequence

constexpr double kLargestCount = 2147483647.0; // of a sampled value (IEC 61850-9-2: INT32)
constexpr double kPeakOfRms = 1.41421;
constexpr double kDegrees = 360.0;

const QStringList outputNames = {
    QStringLiteral("Va1"), QStringLiteral("Va2"), QStringLiteral("Vb1"), QStringLiteral("Vb2"),
    QStringLiteral("Vc1"), QStringLiteral("Vc2"), QStringLiteral("Vn1"), QStringLiteral("Vn2"),
    QStringLiteral("Ia1"), QStringLiteral("Ia2"), QStringLiteral("Ib1"), QStringLiteral("Ib2"),
    QStringLiteral("Ic1"), QStringLiteral("Ic2"), QStringLiteral("In1"), QStringLiteral("In2")};

/// Reads the steps of one file with the settings that hold for all of them.
class Reader
{
public:
    Sequence read(const JsonNode &root);

private:
    void readSettings(const JsonNode &settings);
    void readRatios(const JsonNode &ratios);
    void readNames(const QVector<JsonNode> &steps);
    [[nodiscard]] CStep readStep(const JsonNode &node) const;
    void readTransitions(const JsonNode &node, CStep &step) const;
    void readOutputs(const JsonNode &node, CStep &step) const;
    void readOutput(const JsonNode &node, OutChannelPara_tag &output) const;
    [[nodiscard]] quint8 stepNamed(const JsonNode &node) const;
    [[nodiscard]] double largestAmplitude(bool isCurrent) const;

    Sequence m_sequence;
    bool m_amplitudesArePeak = false;
};

Sequence Reader::read(const JsonNode &root)
{
    root.expectKeys(
        {QStringLiteral("description"), QStringLiteral("settings"), QStringLiteral("steps")});
    if (root.has(QStringLiteral("description")))
        (void)root[QStringLiteral("description")].text();
    if (root.has(QStringLiteral("settings")))
        readSettings(root[QStringLiteral("settings")]);
    const QVector<JsonNode> steps = root[QStringLiteral("steps")].elements(1, kMaxSteps);
    readNames(steps);
    for (const JsonNode &step : steps)
        m_sequence.steps.append(readStep(step));
    return m_sequence;
}

void Reader::readSettings(const JsonNode &settings)
{
    const QString frequency = QStringLiteral("nominalFrequency");
    const QString samples = QStringLiteral("samplesPerCycle");
    const QString resolution = QStringLiteral("svResolution");
    const QString amplitudes = QStringLiteral("amplitudes");
    const QString dualAD = QStringLiteral("dualAD");
    const QString ratios = QStringLiteral("ratios");
    settings.expectKeys({frequency, samples, resolution, amplitudes, dualAD, ratios});

    Sequence &all = m_sequence;
    if (settings.has(frequency))
        all.nominalFrequency = static_cast<quint8>(settings[frequency].integer(1, kByte));
    if (settings.has(samples))
        all.samplesPerCycle = static_cast<quint16>(
            settings[samples].integer(kLeastSamplesPerCycle, kMostSamplesPerCycle));
    if (all.nominalFrequency * all.samplesPerCycle > kMostSamplesPerSecond)
        settings.refuse(QStringLiteral("%1 Hz times %2 samples per cycle are %3 samples per "
                                       "second; the most is %4")
                            .arg(all.nominalFrequency)
                            .arg(all.samplesPerCycle)
                            .arg(all.nominalFrequency * all.samplesPerCycle)
                            .arg(kMostSamplesPerSecond));
    if (settings.has(resolution))
        all.protocol = settings[resolution].choice(
            {QStringLiteral("0.01 V, 0.001 A"), QStringLiteral("1 V, 1 A")});
    if (settings.has(amplitudes))
        m_amplitudesArePeak =
            settings[amplitudes].choice({QStringLiteral("RMS"), QStringLiteral("peak")}) == 1;
    if (settings.has(dualAD))
        all.dualAD = settings[dualAD].boolean();
    if (settings.has(ratios))
        readRatios(settings[ratios]);
}

void Reader::readRatios(const JsonNode &ratios)
{
    constexpr int kMostRatio = 100000;
    constexpr int kVoltageUnit = 10; // the engine counts voltage ratios in tens
    const QString voltage = QStringLiteral("voltage");
    const QString current = QStringLiteral("current");
    ratios.expectKeys({voltage, current});
    const int voltageRatio = ratios[voltage].integer(kVoltageUnit, kMostRatio);
    if (voltageRatio % kVoltageUnit != 0)
        ratios[voltage].refuse(
            QStringLiteral("%1 is not a multiple of %2").arg(voltageRatio).arg(kVoltageUnit));
    m_sequence.amplitudesAreSecondary = true;
    m_sequence.voltageRatio = voltageRatio / kVoltageUnit;
    m_sequence.currentRatio = ratios[current].integer(1, kMostRatio);
}

/// All names come first, for a step may go to a later one.
void Reader::readNames(const QVector<JsonNode> &steps)
{
    for (const JsonNode &step : steps) {
        const JsonNode node = step[QStringLiteral("name")];
        const QString name = node.text();
        if (name.trimmed().isEmpty() || name.size() > kMaxNameLength)
            node.refuse(QStringLiteral("must have 1 to %1 characters").arg(kMaxNameLength));
        if (name == endName)
            node.refuse(QStringLiteral("\"%1\" names the end of the sequence").arg(name));
        if (m_sequence.names.contains(name))
            node.refuse(QStringLiteral("\"%1\" names an earlier step too").arg(name));
        m_sequence.names.append(name);
    }
}

CStep Reader::readStep(const JsonNode &node) const
{
    const QString time = QStringLiteral("time");
    const QString option = QStringLiteral("stepOption");
    const QString states = QStringLiteral("binaryOutputs");
    const QString outputs = QStringLiteral("outputs");
    node.expectKeys({QStringLiteral("name"), time, QStringLiteral("onTimeout"),
                     QStringLiteral("onBinaryInput"), QStringLiteral("onTrigger"),
                     QStringLiteral("conditionFlags"), option, states, outputs});

    CStep step;
    step.stateTime = static_cast<quint32>(node[time].integer(0, kMaxStepTime));
    readTransitions(node, step);
    if (node.has(option))
        step.stepOption = static_cast<quint8>(node[option].integer(0, 1));
    if (node.has(states)) {
        constexpr int kBinaryOutputs = static_cast<int>(std::size(decltype(step.binOut){}));
        const QVector<JsonNode> given = node[states].elements(kBinaryOutputs, kBinaryOutputs);
        std::transform(given.begin(), given.end(), step.binOut, [](const JsonNode &state) {
            return state.boolean() ? quint8(1) : quint8(0);
        });
    }
    for (OutChannelPara_tag &output : step.outPara) {
        output.frequency = m_sequence.nominalFrequency;
        output.ampIsPeak = m_amplitudesArePeak ? 1 : 0;
    }
    readOutputs(node[outputs], step);
    return step;
}

void Reader::readTransitions(const JsonNode &node, CStep &step) const
{
    const QString flags = QStringLiteral("conditionFlags");
    const QString input = QStringLiteral("onBinaryInput");
    const QString trigger = QStringLiteral("onTrigger");

    step.stateTimeJump = stepNamed(node[QStringLiteral("onTimeout")]);
    if (node.has(flags)) {
        step.ctlCondition = static_cast<quint8>(node[flags].integer(0, kByte));
        if ((step.ctlCondition & kBinaryInputFlag) != 0)
            node[flags].refuse(QStringLiteral("flag 8 is set by onBinaryInput alone"));
    }
    if (node.has(input)) {
        step.ctlCondition |= kBinaryInputFlag;
        step.binInpJump = stepNamed(node[input]);
    }
    if (node.has(trigger)) {
        const JsonNode setting = node[trigger];
        setting.expectKeys({QStringLiteral("trigger"), QStringLiteral("goTo")});
        step.stateTrige = static_cast<quint8>(setting[QStringLiteral("trigger")].integer(1, kByte));
        step.stateTrigeJump = stepNamed(setting[QStringLiteral("goTo")]);
    }
}

void Reader::readOutputs(const JsonNode &node, CStep &step) const
{
    node.expectKeys(outputNames);
    for (int i = 0; i < outputNames.size(); ++i) {
        if (!node.has(outputNames[i]))
            continue;
        const bool isSecond = i % 2 != 0;
        if (isSecond && m_sequence.dualAD)
            node[outputNames[i]].refuse(
                QStringLiteral("mirrors %1, because dualAD is true").arg(outputNames[i - 1]));
        readOutput(node[outputNames[i]], step.outPara[i]);
    }
}

void Reader::readOutput(const JsonNode &node, OutChannelPara_tag &output) const
{
    const QString amplitude = QStringLiteral("amplitude");
    const QString frequency = QStringLiteral("frequency");
    const QString phase = QStringLiteral("phase");
    const QString jump = QStringLiteral("phaseJump");
    node.expectKeys({amplitude, frequency, phase, jump});

    const double halfTheSampleRate = m_sequence.samplesPerCycle * m_sequence.nominalFrequency / 2.0;
    output.amplitude =
        static_cast<float>(node[amplitude].number(0.0, largestAmplitude(output.isCurrent != 0)));
    if (node.has(frequency))
        output.frequency = static_cast<float>(node[frequency].number(0.0, halfTheSampleRate));
    output.phasePosition = static_cast<float>(node[phase].number(-kDegrees, kDegrees));
    if (node.has(jump))
        output.phaseJump = static_cast<float>(node[jump].number(-kDegrees, kDegrees));
}

quint8 Reader::stepNamed(const JsonNode &node) const
{
    const int step = node.choice(m_sequence.names + QStringList{endName});
    return step < m_sequence.names.size() ? static_cast<quint8>(step) : Sequence::end;
}

/// The amplitude whose peak is the largest count of a sampled-value stream.
double Reader::largestAmplitude(bool isCurrent) const
{
    double unit = 1.0;
    if (m_sequence.protocol == 0)
        unit = isCurrent ? 0.001 : 0.01;
    double factor = m_amplitudesArePeak ? 1.0 : kPeakOfRms;
    if (m_sequence.amplitudesAreSecondary)
        factor *= isCurrent ? m_sequence.currentRatio : m_sequence.voltageRatio * 10.0;
    return kLargestCount * unit / factor;
}

} // namespace

QString Sequence::nameOf(int number) const
{
    return number == end ? endName : names.value(number, QString::number(number));
}

Sequence readSequence(const QString &path)
{
    return Reader().read(JsonNode::fromFile(path));
}

void apply(const Sequence &sequence, LumtarEngine &engine)
{
    engine.samplesPerCycle = sequence.samplesPerCycle;
    engine.nominalFrequency = sequence.nominalFrequency;
    engine.stepCount = static_cast<qint32>(sequence.steps.size());
    std::copy(sequence.steps.begin(), sequence.steps.end(), engine.steps);
    engine.SetProtocal(sequence.protocol);
    engine.SetVIInputWay(sequence.amplitudesAreSecondary ? 0 : 1, sequence.voltageRatio,
                         sequence.currentRatio);
    if (sequence.dualAD)
        engine.SetDoubleAD();
}
