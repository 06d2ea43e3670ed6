#include "workbench/plotdata.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "virtualboard/play/transitions.h"
#include "virtualboard/wire/analogchannels.h"
#include "virtualboard/wire/ethernetframes.h"
#include "virtualboard/wire/goosemessage.h"

#include <QMap>
#include <QtEndian>

#include <algorithm>
#include <functional>

using namespace virtualboard;

namespace workbench {

namespace {

constexpr int kSvColumns = 1200;
constexpr int kEnvelopeColumns = 400;
constexpr int kSvColumnsOfAll = 30000; ///< over all dataset entries
constexpr int kStateColumns = 300;
constexpr int kMostStates = 1000; ///< dataset entries whose states are recorded
constexpr int kFewStates = 12; ///< are all shown, changed or not
constexpr int kShownStates = 24;
constexpr int kMostInputs = 50;
constexpr int kShownInputs = 12;
constexpr int kCyclesOfCurve = 50; ///< of more cycles only the envelope can be seen
constexpr double kCyclesPerColumn = 1.25; ///< of an envelope; finds the peaks from 40 Hz on

/// At which height the state of a dataset entry is drawn; nothing if it has none.
std::optional<double> heightOf(BinaryState state)
{
    switch (state) {
    case BinaryState::Off:
        return 0.0;
    case BinaryState::On:
        return 1.0;
    case BinaryState::Intermediate:
    case BinaryState::Bad:
        return 0.5;
    case BinaryState::None:
        break;
    }
    return std::nullopt;
}

struct Channel
{
    int entry = 0; ///< of the dataset
    QString name;
    const AnalogChannel *analog = nullptr; ///< null: unknown
    double scale = 1; ///< V, A or counts per count
    bool isScaled = false; ///< the scale is known
    PlotSamples samples;
};

/// Of the channel among the \a factors of all analog channels; 0: unknown.
float scaleOf(const Channel &channel, const std::array<float, kAnalogChannels> &factors)
{
    return channel.analog ? factors[std::size_t(channel.analog->number)] : 0;
}

/// What a channel is drawn over.
struct Quantity
{
    const char *name;
    const char *unit;
};
constexpr std::array<Quantity, 3> kQuantities = {
    {{"voltage", "V"}, {"current", "A"}, {"value", "counts"}}};

std::size_t quantityOf(const Channel &channel)
{
    if (!channel.analog || (!channel.isScaled && !channel.samples.isZero()))
        return 2;
    return channel.analog->isVoltage ? 0 : 1;
}

struct States
{
    struct Entry
    {
        QString name;
        PlotChanges changes;
    };
    QString name;
    PlotChanges stNum;
    QMap<int, Entry> entries; ///< by number in the dataset, from 1
};

/// Collects what lies in the window, packet by packet.
class Collector
{
public:
    Collector(const PlotOutline &outline, const PlotChoice &choice, const PlotWindow &window,
              double cycle);
    void take(const CapturedFrame &frame);
    [[nodiscard]] Expected<PlotData> finish();

private:
    void addChannels();
    void takeSamples(double time, const QByteArray &frame);
    void takeStates(double time, const QByteArray &frame);
    void take(const StreamMark &, double) { }
    void take(const StepMark &mark, double time);
    void take(const InputMark &mark, double);
    void endBand(double time);
    [[nodiscard]] PlotPanel panel(std::size_t quantity) const;
    [[nodiscard]] QVector<PlotPanel> panels() const;
    void showStates();
    void showInputs();

    PlotStreams m_streams;
    PlotChoice m_choice;
    PlotRun m_run; ///< the chosen one
    PlotRunCounter m_counter;
    PlotData m_data;
    PlotColumns m_svColumns;
    PlotColumns m_stateColumns;
    PlotColumns m_bandColumns;
    QVector<Channel> m_channels;
    qint64 m_samples = 0;
    int m_states = 0;
    QMap<QByteArray, States> m_goose; ///< by what precedes the PDU, and by gocbRef
    QMap<int, PlotChanges> m_inputs; ///< by logic channel
    std::optional<PlotBand> m_band; ///< the current one
    std::optional<Transition> m_before; ///< the last change
};

/// Columns for the samples of \a entries dataset entries: as many as can be seen, or wide enough
/// for an envelope.
int columnCount(const PlotWindow &window, double cycle, int entries)
{
    const int most = std::min(kSvColumns, kSvColumnsOfAll / std::max(entries, 1));
    const double cycles = (window.to - window.from) / cycle;
    if (cycles <= kCyclesOfCurve)
        return most;
    const int mostOfEnvelope = std::min(kEnvelopeColumns, most);
    return int(std::min<double>(cycles / kCyclesPerColumn, mostOfEnvelope));
}

Collector::Collector(const PlotOutline &outline, const PlotChoice &choice, const PlotWindow &window,
                     double cycle)
    : m_streams(outline.streams)
    , m_choice(choice)
    , m_run(outline.runs[choice.run])
    , m_svColumns(window.from, window.to,
                  columnCount(window, cycle, outline.streams.all()[choice.stream].entries))
    , m_stateColumns(window.from, window.to, kStateColumns)
    , m_bandColumns(window.from, window.to, kSvColumns)
{
    m_data.stream = outline.streams.all()[choice.stream];
    m_data.run = choice.run;
    m_data.window = window;
    m_data.start = m_run.start;
    m_data.sinceSequence = !m_run.changes.isEmpty();
    const double length = window.to - window.from;
    if (length > kCyclesOfCurve * cycle)
        m_data.envelope = length / m_svColumns.count();
    addChannels();
}

void Collector::addChannels()
{
    for (const StreamChannel &each : channelsOf(m_data.stream, m_run)) {
        Channel channel{each.entry, each.name, each.analog,
                        1,          false,     PlotSamples(m_svColumns, m_data.stream.interval)};
        const float scale = scaleOf(channel, m_run.scale);
        channel.isScaled = scale != 0;
        if (channel.isScaled)
            channel.scale = double(scale);
        m_channels.append(channel);
    }
}

void Collector::take(const CapturedFrame &frame)
{
    const double time = m_run.seconds(frame.time);
    const int type = etherType(frame.bytes);
    const bool isChosen = m_counter.current() == m_choice.run;
    if (type == kEtherTypeSampledValues && isChosen && m_svColumns.contains(time)) {
        takeSamples(time, frame.bytes);
    } else if (type == kEtherTypeGoose && m_counter.current() <= m_choice.run
               && time <= m_data.window.to) {
        takeStates(time, frame.bytes);
    } else if (type == kEtherTypeMark) {
        if (const std::optional<Mark> mark = decodeMark(frame.bytes))
            std::visit([&](const auto &each) { take(each, time); }, *mark);
    }
}

void Collector::takeSamples(double time, const QByteArray &frame)
{
    const std::optional<PlotStreams::Place> place = m_streams.find(frame);
    if (!place || place->stream != m_choice.stream)
        return;
    for (Channel &channel : m_channels) {
        const int offset = place->seqDataOffset + kSvEntrySize * channel.entry;
        if (offset + kSvEntrySize > frame.size())
            break;
        channel.samples.add(time,
                            qFromBigEndian<qint32>(frame.constData() + offset) * channel.scale);
    }
    ++m_samples;
}

void Collector::takeStates(double time, const QByteArray &frame)
{
    if (!GooseMessage::isGoose(frame))
        return;
    const GooseMessage message(frame);
    if (!message.problems.isEmpty())
        return;
    const QByteArray key = message.header + message.gocbRef.toLatin1();
    auto stream = m_goose.find(key);
    if (stream == m_goose.end()) {
        if (m_states >= kMostStates)
            return;
        ++m_states;
        const QString name = message.goId.isEmpty() ? message.gocbRef : message.goId;
        stream = m_goose.insert(key, {name, PlotChanges(m_stateColumns), {}});
    }
    stream->stNum.add(time, double(message.stNum));
    for (int i = 0; i < message.entries.size(); ++i) {
        const std::optional<double> height = heightOf(binaryState(message.entries[i]));
        if (!height)
            continue;
        auto entry = stream->entries.find(i + 1);
        if (entry == stream->entries.end()) {
            if (m_states >= kMostStates)
                return;
            ++m_states;
            const QString name =
                QStringLiteral("entry %1, %2")
                    .arg(i + 1)
                    .arg(gooseTypeName(message.entries[i].tag)
                             .replace(QLatin1String("bit string"), QLatin1String("double point")));
            entry = stream->entries.insert(i + 1, {name, PlotChanges(m_stateColumns)});
        }
        entry->changes.add(time, *height);
    }
}

void Collector::take(const StepMark &mark, double time)
{
    m_counter.take(mark);
    if (m_counter.current() != m_choice.run)
        return;
    for (Channel &channel : m_channels)
        channel.samples.breakAt(time);
    const Transition &change = mark.transition;
    endBand(time);
    if (change.entered != kNoStep)
        m_band = PlotBand{time, time, change.entered};
    const Duration sinceCause = change.lateness + change.entryTime - change.causeTime;
    const double cause = time - std::chrono::duration<double>(sinceCause).count();
    if (change.cause == Cause::BinaryInput && m_svColumns.contains(cause)
        && m_data.inputs.size() < kMostInputs)
        m_data.inputs.append({cause, timeInStep(m_before ? &*m_before : nullptr, change),
                              change.channel, change.entered == kNoStep ? -1 : change.entered});
    m_before = change;
    for (Channel &channel : m_channels) {
        const float scale = scaleOf(channel, mark.scale);
        if (scale != 0)
            channel.scale = double(scale);
    }
}

/// It counts its time from the start of the sequence itself. Before an input's first change it was
/// what it then is not.
void Collector::take(const InputMark &mark, double)
{
    const RecordedInput &input = mark.input;
    if (m_counter.current() != m_choice.run || input.kind == InputKind::Trigger
        || !m_data.sinceSequence)
        return;
    const bool isOn = input.kind == InputKind::ChannelOn;
    auto changes = m_inputs.find(input.channel);
    if (changes == m_inputs.end()) {
        changes = m_inputs.insert(input.channel, PlotChanges(m_stateColumns));
        changes->add(m_data.window.from, isOn ? 0 : 1);
    }
    changes->add(std::chrono::duration<double>(input.time).count(), isOn ? 1 : 0);
}

/// Ends the current band; one of several that begin in the same column is enough.
void Collector::endBand(double time)
{
    if (m_band && time > m_data.window.from && m_band->begin < m_data.window.to) {
        m_band->begin = std::max(m_band->begin, m_data.window.from);
        m_band->end = std::min(time, m_data.window.to);
        if (!m_data.bands.isEmpty()
            && m_bandColumns.at(m_data.bands.last().begin) == m_bandColumns.at(m_band->begin))
            m_data.bands.removeLast();
        m_data.bands.append(*m_band);
    }
    m_band.reset();
}

PlotPanel Collector::panel(std::size_t quantity) const
{
    PlotPanel result;
    result.quantity = QLatin1String(kQuantities[quantity].name);
    result.unit = QLatin1String(kQuantities[quantity].unit);
    QVector<const Channel *> drawn;
    for (const Channel &channel : m_channels) {
        if (quantityOf(channel) == quantity)
            drawn.append(&channel);
    }
    const auto isZero = [](const Channel *channel) { return channel->samples.isZero(); };
    if (!std::all_of(drawn.begin(), drawn.end(), isZero)) {
        const auto zero = std::stable_partition(drawn.begin(), drawn.end(), std::not_fn(isZero));
        for (auto each = zero; each != drawn.end(); ++each)
            result.zero += (*each)->name;
        drawn.erase(zero, drawn.end());
    }
    while (!drawn.isEmpty()) {
        const PlotSamples &samples = drawn.first()->samples;
        PlotPanel::Line line{{}, m_data.envelope > 0 ? samples.envelope() : samples.curve()};
        const auto others =
            std::stable_partition(drawn.begin(), drawn.end(), [&](const Channel *channel) {
                return channel->samples == samples;
            });
        for (auto each = drawn.begin(); each != others; ++each)
            line.names += (*each)->name;
        drawn.erase(drawn.begin(), others);
        result.lines.append(line);
    }
    return result;
}

QVector<PlotPanel> Collector::panels() const
{
    QVector<PlotPanel> result;
    for (std::size_t i = 0; i < kQuantities.size(); ++i) {
        const PlotPanel each = panel(i);
        if (!each.lines.isEmpty())
            result.append(each);
    }
    return result;
}

/// Shows the states that change, and those that do not if all of them are few.
void Collector::showStates()
{
    int all = 0;
    for (const States &stream : m_goose)
        all += int(stream.entries.size());
    int shown = 0;
    for (const States &stream : m_goose) {
        PlotGoose goose{stream.name, stream.stNum.points(), {}};
        for (const States::Entry &entry : stream.entries) {
            if (entry.changes.points().isEmpty()
                || (all > kFewStates && !entry.changes.hasChanged()))
                continue;
            if (shown++ < kShownStates)
                goose.entries.append({entry.name, entry.changes.points()});
        }
        if (!goose.entries.isEmpty())
            m_data.goose.append(goose);
    }
    m_data.statesLeftOut = std::max(shown - kShownStates, 0);
}

void Collector::showInputs()
{
    for (auto each = m_inputs.cbegin(); each != m_inputs.cend(); ++each) {
        if (!each->hasChanged())
            continue;
        if (m_data.inputStates.size() < kShownInputs)
            m_data.inputStates.append({each.key(), each->points()});
        else
            ++m_data.inputsLeftOut;
    }
}

Expected<PlotData> Collector::finish()
{
    if (m_samples == 0)
        return failure(Failure::Input,
                       QStringLiteral("the capture has no samples from %1 s to %2 s of ")
                               .arg(m_data.window.from)
                               .arg(m_data.window.to)
                           + m_data.stream.toString());
    endBand(m_run.seconds(m_run.last));
    m_data.thinned = m_samples > qint64(2) * m_svColumns.count();
    m_data.panels = panels();
    showStates();
    showInputs();
    return m_data;
}

} // namespace

Expected<PlotData> readPlotData(const QString &path, const PlotOutline &outline,
                                const PlotChoice &choice, const PlotWindow &window, double cycle)
{
    CaptureReader capture;
    if (const auto opened = capture.open(path); !opened)
        return failure(Failure::Input, opened.error());
    Collector collector(outline, choice, window, cycle);
    while (const std::optional<CapturedFrame> frame = capture.next())
        collector.take(*frame);
    return collector.finish();
}

} // namespace workbench
