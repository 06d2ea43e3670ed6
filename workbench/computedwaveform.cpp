#include "workbench/computedwaveform.h"

#include <QMap>
#include <QSet>

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

constexpr double kTwoPi = 6.28318530717958647692;
constexpr int kColumns = 800;
constexpr int kEnvelopeColumns = 300;
constexpr double kCyclesOfCurve = 25; ///< of more only the envelope can be seen
constexpr double kLeastLength = 1e-3; ///< of a picture, seconds
constexpr int kMostRows = 24; ///< of states
constexpr int kMostInputs = 50; ///< that are marked

using Nanoseconds = std::chrono::nanoseconds;

double seconds(Nanoseconds time)
{
    return std::chrono::duration<double>(time).count();
}

/// The time in one step.
struct Stay
{
    double begin = 0;
    double end = 0;
    int step = 0;
};

QVector<Stay> staysOf(const Observation &observation, Nanoseconds length)
{
    QVector<Stay> stays;
    const auto &changes = observation.changes;
    for (int i = 0; i < changes.size(); ++i) {
        if (changes[i].entered < 0 || changes[i].entered >= observation.stepNames.size())
            continue;
        const double begin = seconds(changes[i].entryTime);
        const double end =
            i + 1 < changes.size() ? seconds(changes[i + 1].entryTime) : seconds(length);
        stays.append({begin, std::max(begin, end), changes[i].entered});
    }
    return stays;
}

PlotData framed(const Observation &observation, Nanoseconds length, const PlotWindow &window)
{
    PlotData data;
    data.window = window;
    data.sinceSequence = true;
    for (const Stay &stay : staysOf(observation, length)) {
        if (stay.end > window.from && stay.begin < window.to)
            data.bands.append(
                {std::max(stay.begin, window.from), std::min(stay.end, window.to), stay.step});
    }
    statusreply::Changes changes;
    changes.last = observation.changes;
    for (int i = 0; i < changes.last.size() && data.inputs.size() < kMostInputs; ++i) {
        const statusreply::Change &change = changes.last[i];
        const double time = seconds(change.causeTime);
        if (change.cause != statusreply::Change::BinaryInput || time < window.from
            || time > window.to)
            continue;
        data.inputs.append({time, changes.timeInStep(i), change.channel,
                            change.entered == statusreply::kNoStep ? -1 : change.entered});
    }
    return data;
}

/// The output whose setting holds for \a output.
std::size_t source(const Sequence &sequence, int output)
{
    return std::size_t(sequence.dualAD && output % 2 == 1 ? output - 1 : output);
}

/// An output through all steps.
class Oscillator
{
public:
    Oscillator(const Sequence &sequence, int output)
        : m_sequence(sequence)
        , m_output(source(sequence, output))
        , m_frequency(sequence.nominalFrequency)
    { }

    /// Where it is not set it goes on, with an amplitude of 0.
    void enter(const Stay &stay)
    {
        m_ahead = std::remainder(m_ahead + m_frequency * (stay.begin - m_begin), 1.0);
        m_begin = stay.begin;
        m_amplitude = 0;
        const auto &setting = m_sequence.steps[stay.step].outputs[m_output];
        if (!setting)
            return;
        const double peak = m_sequence.amplitudesArePeak ? 1 : std::sqrt(2.0);
        m_amplitude = setting->amplitude * peak;
        m_phase = setting->phase / 360;
        m_frequency = setting->frequency.value_or(m_sequence.nominalFrequency);
    }
    [[nodiscard]] double at(double time) const
    {
        const double turns = m_frequency * (time - m_begin) + m_phase + m_ahead;
        return m_amplitude * std::sin(kTwoPi * std::remainder(turns, 1.0));
    }

private:
    const Sequence &m_sequence;
    std::size_t m_output;
    double m_frequency;
    double m_begin = 0;
    double m_amplitude = 0;
    double m_phase = 0; ///< turns
    double m_ahead = 0; ///< turns
};

bool isInUse(const Sequence &sequence, int output)
{
    return std::any_of(sequence.steps.begin(), sequence.steps.end(),
                       [number = source(sequence, output)](const SequenceStep &step) {
                           const auto &setting = step.outputs[number];
                           return setting && setting->amplitude != 0;
                       });
}

PlotSamples samplesOf(Oscillator oscillator, const QVector<Stay> &stays, const PlotColumns &columns,
                      double interval)
{
    PlotSamples samples(columns, interval);
    const double to = columns.begin(columns.count());
    for (const Stay &stay : stays) {
        oscillator.enter(stay);
        if (stay.end <= columns.from() || stay.begin >= to)
            continue;
        samples.breakAt(std::max(stay.begin, columns.from()));
        const double first = std::ceil((columns.from() - stay.begin) / interval - 1e-9);
        for (double n = std::max(first, 0.0);; ++n) {
            const double time = stay.begin + n * interval;
            if (time >= stay.end || !columns.contains(time))
                break;
            samples.add(time, oscillator.at(time));
        }
    }
    return samples;
}

/// What has changed, and what has a name, as rows.
class Rows
{
public:
    explicit Rows(const PlotWindow &window)
        : m_columns(window.from, window.to, kColumns)
        , m_before(window.from - 1)
    { }
    void begin(int number, bool on) { at(number).add(m_before, on); }
    void add(int number, double time, bool on) { at(number).add(time, on); }
    [[nodiscard]] bool has(int number) const { return m_rows.contains(number); }

    template <typename NameOf>
    [[nodiscard]] PlotGoose rows(const QString &title, NameOf nameOf) const
    {
        PlotGoose result{title, {}, {}};
        for (auto each = m_rows.begin(); each != m_rows.end(); ++each) {
            if (result.entries.size() < kMostRows)
                result.entries.append({nameOf(each.key()), each.value().points()});
        }
        return result;
    }

private:
    PlotChanges &at(int number)
    {
        auto found = m_rows.find(number);
        return found == m_rows.end() ? *m_rows.insert(number, PlotChanges(m_columns)) : *found;
    }

    PlotColumns m_columns;
    double m_before;
    QMap<int, PlotChanges> m_rows;
};

PlotGoose inputRows(const SignalNames &names, const Observation &observation,
                    const PlotWindow &window)
{
    Rows rows(window);
    for (const statusreply::Input &each : observation.inputs) {
        if (each.kind == statusreply::Input::Trigger)
            continue;
        const bool on = each.kind == statusreply::Input::On;
        if (!rows.has(each.channel))
            rows.begin(each.channel, !on);
        rows.add(each.channel, seconds(each.time), on);
    }
    for (auto each = names.inputs.begin(); each != names.inputs.end(); ++each) {
        if (!rows.has(each.key()))
            rows.begin(each.key(), observation.activeInputs.contains(each.key()));
    }
    return rows.rows(QStringLiteral("logic inputs"),
                     [&names](int channel) { return names.input(channel); });
}

PlotGoose outputRows(const Sequence &sequence, const SignalNames &names, const QVector<Stay> &stays,
                     const PlotWindow &window)
{
    Rows rows(window);
    for (int output = 0; output < SequenceStep::kBinaryOutputs; ++output) {
        const bool isUsed = std::any_of(
            sequence.steps.begin(), sequence.steps.end(),
            [output](const SequenceStep &step) { return step.binaryOutputs[std::size_t(output)]; });
        if (!isUsed && !names.outputs.contains(output + 1))
            continue;
        for (const Stay &stay : stays)
            rows.add(output + 1, stay.begin,
                     sequence.steps[stay.step].binaryOutputs[std::size_t(output)]);
    }
    return rows.rows(QStringLiteral("binary outputs"),
                     [&names](int output) { return names.output(output); });
}

/// The curves of one quantity; those that are alike are one.
PlotPanel panelOf(const QVector<PlotSamples> &all, const QVector<int> &outputs, bool ofCurrents,
                  bool isEnvelope)
{
    PlotPanel panel;
    panel.quantity = ofCurrents ? QStringLiteral("current") : QStringLiteral("voltage");
    panel.unit = ofCurrents ? QStringLiteral("A") : QStringLiteral("V");
    QVector<int> drawn; // first ones of the lines
    for (int i = 0; i < outputs.size(); ++i) {
        if (isCurrent(outputs[i]) != ofCurrents)
            continue;
        const QString name = outputNames()[outputs[i]];
        const auto same = std::find_if(drawn.begin(), drawn.end(),
                                       [&](int other) { return all[other] == all[i]; });
        if (all[i].isZero()) {
            panel.zero += name;
        } else if (same != drawn.end()) {
            panel.lines[int(same - drawn.begin())].names += name;
        } else {
            drawn.append(i);
            panel.lines.append({{name}, isEnvelope ? all[i].envelope() : all[i].curve()});
        }
    }
    return panel;
}

} // namespace

PlotWindow eventWindow(const Sequence &sequence, const Observation &observation, Nanoseconds length)
{
    constexpr double kCyclesBefore = 3;
    constexpr double kCyclesAfter = 4;
    constexpr double kMostBefore = 10; // seconds
    const double cycle = 1.0 / sequence.nominalFrequency;
    const double end = std::max(seconds(length), kLeastLength);
    const auto &changes = observation.changes;
    const auto byInput =
        std::find_if(changes.begin(), changes.end(), [](const statusreply::Change &change) {
            return change.cause == statusreply::Change::BinaryInput;
        });
    double from = 0;
    double to = 0;
    if (byInput != changes.end()) {
        to = seconds(byInput->entryTime);
        from = byInput == changes.begin() ? to : seconds(std::prev(byInput)->entryTime);
    } else if (changes.size() > 1) {
        from = to = seconds(changes[1].entryTime);
    }
    const PlotWindow window{std::max(std::max(from, to - kMostBefore) - kCyclesBefore * cycle, 0.0),
                            std::min(to + kCyclesAfter * cycle, end)};
    return window.to - window.from < kLeastLength ? PlotWindow{0, std::min(end, kMostBefore)}
                                                  : window;
}

PlotData computedWaveform(const Sequence &sequence, const Observation &observation,
                          Nanoseconds length, const PlotWindow &window)
{
    PlotData data = framed(observation, length, window);
    const QVector<Stay> stays = staysOf(observation, length);
    const double cycles = (window.to - window.from) * sequence.nominalFrequency;
    const bool isEnvelope = cycles > kCyclesOfCurve;
    const PlotColumns columns(window.from, window.to,
                              isEnvelope ? std::min(kEnvelopeColumns, int(cycles / 1.25))
                                         : kColumns);
    if (isEnvelope)
        data.envelope = columns.width();
    QVector<int> outputs;
    QVector<PlotSamples> all;
    for (int output = 0; output < SequenceStep::kAnalogOutputs; ++output) {
        if (!isInUse(sequence, output))
            continue;
        outputs.append(output);
        all.append(samplesOf(Oscillator(sequence, output), stays, columns,
                             1.0 / sequence.samplesPerSecond()));
    }
    for (const bool ofCurrents : {false, true}) {
        const PlotPanel panel = panelOf(all, outputs, ofCurrents, isEnvelope);
        if (!panel.lines.isEmpty())
            data.panels.append(panel);
    }
    return data;
}

PlotData playedStates(const Sequence &sequence, const SignalNames &names,
                      const Observation &observation, Nanoseconds length)
{
    const PlotWindow window{0, std::max(seconds(length), kLeastLength)};
    PlotData data = framed(observation, length, window);
    data.inputs.clear(); // their rows show them
    for (const PlotGoose &rows :
         {inputRows(names, observation, window),
          outputRows(sequence, names, staysOf(observation, length), window)}) {
        if (!rows.entries.isEmpty())
            data.goose.append(rows);
    }
    return data;
}

} // namespace workbench
