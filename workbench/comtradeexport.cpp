#include "workbench/comtradeexport.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/wire/bytes.h"
#include "virtualboard/wire/ethernetframes.h"
#include "virtualboard/wire/goosemessage.h"
#include "workbench/samplecount.h"

#include <QFileInfo>
#include <QIODevice>
#include <QMap>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace virtualboard;

namespace workbench {

namespace {

constexpr int kMostStates = 1000; ///< dataset entries that become digital channels
constexpr int kMostInputs = 100000; ///< of a sequence; the board keeps fewer
constexpr int kTrigger = -1; ///< among the numbers of logic channels

/// The decimal number that is meant by a float: 0.001 instead of 0.0010000000474974513.
double decimal(float value)
{
    using Limits = std::numeric_limits<float>;
    double number = double(value);
    for (int digits = Limits::digits10; digits <= Limits::max_digits10; ++digits) {
        number = QByteArray::number(double(value), 'g', digits).toDouble();
        if (float(number) == value)
            break;
    }
    return number;
}

/// What is written of an entry of a GOOSE dataset.
struct RecordedState
{
    BinaryState first = BinaryState::None; ///< that was ever seen
    bool isDoublePoint = false; ///< takes two digital channels: on, off
    int digital = 0; ///< number of its first channel
};

struct RecordedGoose
{
    QString name; ///< goID, or gocbRef without one
    QString gocbRef;
    QMap<int, RecordedState> entries; ///< by number in the dataset, from 1
};
using RecordedStreams = QMap<QByteArray, RecordedGoose>; ///< by what precedes the PDU, and gocbRef

QByteArray keyOf(const GooseMessage &message)
{
    return message.header + message.gocbRef.toLatin1();
}

/// Goes once through the part of a capture that is asked for.
class Pass
{
public:
    Pass(const ExportOrder &order, const PlotOutline &outline);
    virtual ~Pass() = default;
    Pass(const Pass &) = delete;
    Pass &operator=(const Pass &) = delete;

    /// Until the end of the capture, or until stop().
    [[nodiscard]] Expected<void> read();

protected:
    struct Channel
    {
        StreamChannel what;
        double scale = 0; ///< at this time, V or A per count; 0: unknown
    };
    [[nodiscard]] const QVector<Channel> &channels() const { return m_channels; }
    [[nodiscard]] const PlotRun &run() const { return m_run; }
    /// Of the dataset entry of \a channel in \a frame; 0 if the frame is too short.
    [[nodiscard]] static qint32 countOf(const Channel &channel, const QByteArray &frame,
                                        const PlotStreams::Place &place);
    void stop() { m_isStopped = true; }

    virtual void takeSample(WallTime time, const QByteArray &frame,
                            const PlotStreams::Place &place) = 0;
    virtual void takeGoose(WallTime time, const GooseMessage &message) = 0;
    virtual void takeStep(WallTime time, const Transition &change) = 0;
    virtual void takeInput(const RecordedInput &input) { Q_UNUSED(input) }

private:
    void take(const CapturedFrame &frame);
    void take(const StreamMark &, WallTime) { }
    void take(const StepMark &mark, WallTime time);
    void take(const InputMark &mark, WallTime time);

    QString m_capture;
    PlotStreams m_streams;
    PlotChoice m_choice;
    PlotRun m_run; ///< the chosen one
    PlotWindow m_window;
    PlotRunCounter m_counter;
    QVector<Channel> m_channels;
    bool m_isStopped = false;
};

Pass::Pass(const ExportOrder &order, const PlotOutline &outline)
    : m_capture(order.capture)
    , m_streams(outline.streams)
    , m_choice(order.choice)
    , m_run(outline.runs[order.choice.run])
    , m_window(order.window)
{
    for (const StreamChannel &each : channelsOf(m_streams.all()[m_choice.stream], m_run)) {
        const float scale = each.analog ? m_run.scale[std::size_t(each.analog->number)] : 0;
        m_channels.append({each, decimal(scale)});
    }
}

Expected<void> Pass::read()
{
    CaptureReader capture;
    if (const auto opened = capture.open(m_capture); !opened)
        return failure(Failure::Input, opened.error());
    while (const std::optional<CapturedFrame> frame = capture.next()) {
        take(*frame);
        if (m_isStopped)
            break;
    }
    return {};
}

void Pass::take(const CapturedFrame &frame)
{
    const int type = etherType(frame.bytes);
    const double time = m_run.seconds(frame.time);
    const bool isChosen = m_counter.current() == m_choice.run;
    if (type == kEtherTypeSampledValues && isChosen && time >= m_window.from
        && time <= m_window.to) {
        const std::optional<PlotStreams::Place> place = m_streams.find(frame.bytes);
        if (place && place->stream == m_choice.stream)
            takeSample(frame.time, frame.bytes, *place);
    } else if (type == kEtherTypeGoose && m_counter.current() <= m_choice.run && time <= m_window.to
               && GooseMessage::isGoose(frame.bytes)) {
        const GooseMessage message(frame.bytes);
        if (message.problems.isEmpty())
            takeGoose(frame.time, message);
    } else if (type == kEtherTypeMark) {
        if (const std::optional<Mark> mark = decodeMark(frame.bytes))
            std::visit([&](const auto &each) { take(each, frame.time); }, *mark);
    }
}

void Pass::take(const StepMark &mark, WallTime time)
{
    m_counter.take(mark);
    if (m_counter.current() != m_choice.run || m_run.seconds(time) > m_window.to)
        return;
    for (Channel &each : m_channels) {
        const float scale =
            each.what.analog ? mark.scale[std::size_t(each.what.analog->number)] : 0;
        if (scale != 0)
            each.scale = decimal(scale);
    }
    takeStep(time, mark.transition);
}

void Pass::take(const InputMark &mark, WallTime time)
{
    Q_UNUSED(time)
    if (m_counter.current() == m_choice.run)
        takeInput(mark.input);
}

qint32 Pass::countOf(const Channel &channel, const QByteArray &frame,
                     const PlotStreams::Place &place)
{
    const int offset = place.seqDataOffset + kSvEntrySize * channel.what.entry;
    return offset + kSvEntrySize <= frame.size()
        ? qFromBigEndian<qint32>(frame.constData() + offset)
        : 0;
}

/// The first pass: what channels there are, how large their samples get, and at which rate they
/// come.
class Survey : public Pass
{
public:
    Survey(const ExportOrder &order, const PlotOutline &outline);
    /// The record without its number of samples.
    [[nodiscard]] Expected<Comtrade> record(const ExportOrder &order, const PlotStream &stream);

    [[nodiscard]] const RecordedStreams &goose() const { return m_goose; }
    [[nodiscard]] const QMap<int, int> &steps() const { return m_steps; }
    [[nodiscard]] const QMap<int, int> &inputChannels() const { return m_inputChannels; }
    [[nodiscard]] const QVector<RecordedInput> &inputs() const { return m_inputs; }
    [[nodiscard]] const SampleCounts &counts() const { return m_counts; }
    [[nodiscard]] qint64 samples() const { return m_samples; }
    [[nodiscard]] bool areStatesLeftOut() const { return m_areStatesLeftOut; }

protected:
    void takeSample(WallTime time, const QByteArray &frame,
                    const PlotStreams::Place &place) override;
    void takeGoose(WallTime time, const GooseMessage &message) override;
    void takeStep(WallTime time, const Transition &change) override;
    void takeInput(const RecordedInput &input) override;

private:
    struct Extent
    {
        double peak = 0; ///< in the channel's unit
        double scale = 0; ///< the smallest; 0: unknown
    };
    [[nodiscard]] Comtrade::Analog analog(int channel, const Comtrade &record) const;
    void addDigitals(Comtrade &record, const Sequence *sequence);
    void addStates(Comtrade &record);
    [[nodiscard]] WallTime triggerTime() const;

    SampleCounts m_counts;
    qint64 m_samples = 0;
    WallTime m_first;
    WallTime m_last;
    QVector<Extent> m_extents; ///< per channel
    RecordedStreams m_goose;
    int m_states = 0;
    bool m_areStatesLeftOut = false;
    QMap<int, int> m_steps; ///< those entered: number of the digital channel
    QMap<int, int> m_inputChannels; ///< of logic channels and kTrigger: the same
    QVector<RecordedInput> m_inputs; ///< by time
};

Survey::Survey(const ExportOrder &order, const PlotOutline &outline)
    : Pass(order, outline)
    , m_counts(outline.streams.all()[order.choice.stream].interval)
    , m_extents(channels().size())
{ }

void Survey::takeSample(WallTime time, const QByteArray &frame, const PlotStreams::Place &place)
{
    m_counts.add(time, bigEndian16(frame, place.smpCntOffset));
    if (m_samples++ == 0)
        m_first = time;
    m_last = std::max(m_last, time);
    for (int i = 0; i < channels().size(); ++i) {
        const Channel &channel = channels()[i];
        Extent &extent = m_extents[i];
        const double scale = std::fabs(channel.scale);
        const double size = std::fabs(double(countOf(channel, frame, place)));
        extent.peak = std::max(extent.peak, scale > 0 ? size * scale : size);
        if (scale > 0 && (extent.scale == 0 || scale < extent.scale))
            extent.scale = scale;
    }
}

void Survey::takeGoose(WallTime time, const GooseMessage &message)
{
    Q_UNUSED(time)
    const QByteArray key = keyOf(message);
    auto stream = m_goose.find(key);
    if (stream == m_goose.end()) {
        if (m_goose.size() == kMostStates) {
            m_areStatesLeftOut = true;
            return;
        }
        const QString name = message.goId.isEmpty() ? message.gocbRef : message.goId;
        stream = m_goose.insert(key, {name, message.gocbRef, {}});
    }
    for (int i = 0; i < message.entries.size(); ++i) {
        const BinaryState state = binaryState(message.entries[i]);
        if (state == BinaryState::None || stream->entries.contains(i + 1))
            continue;
        if (m_states == kMostStates) {
            m_areStatesLeftOut = true;
            break;
        }
        ++m_states;
        stream->entries.insert(i + 1, {state, message.entries[i].value.size() == 2, 0});
    }
}

void Survey::takeStep(WallTime time, const Transition &change)
{
    Q_UNUSED(time)
    if (change.entered != kNoStep)
        m_steps.insert(change.entered, 0);
}

int channelOf(const RecordedInput &input)
{
    return input.kind == InputKind::Trigger ? kTrigger : int(input.channel);
}

void Survey::takeInput(const RecordedInput &input)
{
    if (m_inputs.size() == kMostInputs) {
        m_areStatesLeftOut = true;
        return;
    }
    m_inputs += input;
    m_inputChannels.insert(channelOf(input), 0);
}

Comtrade::Analog Survey::analog(int channel, const Comtrade &record) const
{
    const StreamChannel &what = channels()[channel].what;
    const Extent &extent = m_extents[channel];
    Comtrade::Analog analog;
    analog.id = what.name;
    analog.component = record.device;
    analog.unit = QStringLiteral("counts");
    if (what.analog && extent.scale > 0) {
        analog.unit = QLatin1String(what.analog->isVoltage ? "V" : "A");
        analog.a = extent.scale;
    }
    if (what.analog)
        analog.phase = what.name.mid(1, 1).toUpper();
    if (extent.peak / analog.a > double(record.limit()))
        analog.a = extent.peak / double(record.limit());
    analog.max = std::max(qint32(std::llround(extent.peak / analog.a)), 1);
    analog.min = -analog.max;
    return analog;
}

void Survey::addStates(Comtrade &record)
{
    constexpr int kLongestName = 40; // so that what follows is not cut
    for (RecordedGoose &stream : m_goose) {
        for (auto entry = stream.entries.begin(); entry != stream.entries.end(); ++entry) {
            const QString name =
                stream.name.left(kLongestName) + QStringLiteral(" entry %1").arg(entry.key());
            entry->digital = int(record.digitals.size());
            record.digitals.append(
                {entry->isDoublePoint ? name + QStringLiteral(" on") : name, stream.gocbRef});
            if (entry->isDoublePoint)
                record.digitals.append({name + QStringLiteral(" off"), stream.gocbRef});
        }
    }
}

void Survey::addDigitals(Comtrade &record, const Sequence *sequence)
{
    addStates(record);
    std::stable_sort(m_inputs.begin(), m_inputs.end(),
                     [](const auto &a, const auto &b) { return a.time < b.time; });
    for (auto input = m_inputChannels.begin(); input != m_inputChannels.end(); ++input) {
        *input = int(record.digitals.size());
        record.digitals.append({input.key() == kTrigger
                                    ? QStringLiteral("trigger")
                                    : QStringLiteral("logic channel %1").arg(input.key()),
                                record.device});
    }
    for (auto step = m_steps.begin(); step != m_steps.end(); ++step) {
        *step = int(record.digitals.size());
        const QString name = sequence && step.key() < sequence->steps.size()
            ? sequence->steps[step.key()].name
            : QString();
        record.digitals.append(
            {QStringLiteral("step %1 %2").arg(QString::number(step.key()), name), record.device});
    }
}

/// The first change by a binary input, or the first sample.
WallTime Survey::triggerTime() const
{
    for (const Transition &change : run().changes) {
        if (change.cause == Cause::BinaryInput && change.causeTime >= m_first - run().start
            && change.causeTime <= m_last - run().start)
            return run().start + change.causeTime;
    }
    return m_first;
}

/// 80 and 256 samples are usual in a cycle.
double usualFrequency(double rate)
{
    return rate / 80 == 60 || rate / 256 == 60 ? 60 : 50;
}

Expected<Comtrade> Survey::record(const ExportOrder &order, const PlotStream &stream)
{
    const QString &capture = order.capture;
    if (m_samples == 0)
        return failure(Failure::Input,
                       QStringLiteral("%1: no samples of %2 from %3 s to %4 s")
                           .arg(capture, stream.toString())
                           .arg(order.window.from)
                           .arg(order.window.to));
    Comtrade record;
    record.station = QFileInfo(capture).completeBaseName();
    record.device = stream.svId;
    record.revision = order.revision;
    record.rate = m_counts.rate();
    if (!(record.rate > 0))
        return failure(Failure::Input,
                       QStringLiteral("%1: the frames of %2 do not tell how many samples come in a "
                                      "second: there is one, or all have the same time")
                           .arg(capture, stream.toString()));
    record.start = m_first;
    record.trigger = triggerTime();
    record.makeRoomFor(2 * double(m_samples) / record.rate); // half of them may be missing
    record.lineFrequency =
        order.sequence ? order.sequence->nominalFrequency : usualFrequency(record.rate);
    for (int i = 0; i < channels().size(); ++i) {
        record.analogs.append(analog(i, record));
        const StreamChannel &what = channels()[i].what;
        if (order.sequence && order.sequence->ratios && what.analog)
            record.analogs.last().primary = what.analog->isVoltage
                ? order.sequence->ratios->voltage
                : order.sequence->ratios->current;
    }
    addDigitals(record, order.sequence ? &*order.sequence : nullptr);
    return record;
}

/// The second pass.
class Writer : public Pass
{
public:
    Writer(const ExportOrder &order, const PlotOutline &outline, const Comtrade &record,
           const Survey &survey, QIODevice &data);
    [[nodiscard]] Expected<ExportReport> finish();

protected:
    void takeSample(WallTime time, const QByteArray &frame,
                    const PlotStreams::Place &place) override;
    void takeGoose(WallTime time, const GooseMessage &message) override;
    void takeStep(WallTime time, const Transition &change) override;

private:
    void put(const RecordedState &entry, BinaryState state);
    void putInputs(WallTime until);
    void writeUntil(WallTime time);
    void write(const std::optional<QVector<qint32>> &analogs);
    void fill(qint64 missing);
    void fail(const QString &message);

    const Survey &m_survey;
    QIODevice &m_data;
    SampleSteps m_steps;
    ExportReport m_report;
    QString m_problem;
    int m_nextInput = 0; ///< of the survey's
    QVector<bool> m_states; ///< of the digital channels
    QVector<bool> m_written; ///< those of the last sample
    struct Row
    {
        WallTime time;
        QVector<qint32> analogs;
    };
    std::optional<Row> m_row; ///< a sample that may still get states
    WallTime m_last; ///< sample
};

Writer::Writer(const ExportOrder &order, const PlotOutline &outline, const Comtrade &record,
               const Survey &survey, QIODevice &data)
    : Pass(order, outline)
    , m_survey(survey)
    , m_data(data)
    , m_steps(record.rate, survey.counts().modulus())
    , m_states(record.digitals.size(), false)
{
    m_report.record = record;
    m_report.isCounted = survey.counts().modulus() > 0;
    m_report.areStatesLeftOut = survey.areStatesLeftOut();
    for (const RecordedGoose &stream : survey.goose()) {
        for (const RecordedState &entry : stream.entries)
            put(entry, entry.first);
    }
}

void Writer::put(const RecordedState &entry, BinaryState state)
{
    m_states[entry.digital] = state == BinaryState::On || state == BinaryState::Bad;
    if (entry.isDoublePoint)
        m_states[entry.digital + 1] = state == BinaryState::Off || state == BinaryState::Bad;
}

/// A trigger is seen in the first sample from then on, and only there.
void Writer::putInputs(WallTime until)
{
    const auto trigger = m_survey.inputChannels().constFind(kTrigger);
    if (trigger != m_survey.inputChannels().constEnd())
        m_states[*trigger] = false;
    const QVector<RecordedInput> &inputs = m_survey.inputs();
    for (; m_nextInput < inputs.size(); ++m_nextInput) {
        const RecordedInput &input = inputs[m_nextInput];
        if (input.time > until - run().start)
            return;
        m_states[m_survey.inputChannels()[channelOf(input)]] = input.kind != InputKind::ChannelOff;
    }
}

void Writer::fail(const QString &message)
{
    m_problem = message;
    stop();
}

void Writer::write(const std::optional<QVector<qint32>> &analogs)
{
    const QByteArray bytes =
        comtradeSample(m_report.record, m_report.record.samples++, analogs, m_written);
    if (m_data.write(bytes) != bytes.size())
        fail(m_data.errorString());
}

/// Writes the sample that waits, if nothing from \a time on belongs to it.
void Writer::writeUntil(WallTime time)
{
    if (!m_row || time <= m_row->time)
        return;
    putInputs(m_row->time);
    m_written = m_states;
    write(m_row->analogs);
    m_last = m_row->time;
    m_row.reset();
}

void Writer::fill(qint64 missing)
{
    if (missing <= 0)
        return;
    if (m_report.missing == 0)
        m_report.firstGap = run().seconds(m_last);
    m_report.missing += missing;
    ++m_report.gaps;
    if (m_report.missing > m_survey.samples()) {
        fail(QStringLiteral("behind %1 s so many samples are missing that there are less than half "
                            "of them; export parts of the capture, with --from and --to")
                 .arg(run().seconds(m_last)));
        return;
    }
    for (qint64 i = 0; i < missing && m_problem.isEmpty(); ++i)
        write(std::nullopt);
}

void Writer::takeSample(WallTime time, const QByteArray &frame, const PlotStreams::Place &place)
{
    const qint64 steps = m_steps.take(time, bigEndian16(frame, place.smpCntOffset));
    if (steps < 1) {
        ++m_report.surplus;
        return;
    }
    writeUntil(WallTime::max());
    fill(steps - 1);
    Row row{time, {}};
    for (int i = 0; i < channels().size(); ++i) {
        const Channel &channel = channels()[i];
        const double value = countOf(channel, frame, place)
            * (channel.scale == 0 ? 1 : channel.scale) / m_report.record.analogs[i].a;
        const double limit = m_report.record.limit();
        row.analogs += qint32(std::llround(std::clamp(value, -limit, limit)));
    }
    m_row = row;
}

void Writer::takeGoose(WallTime time, const GooseMessage &message)
{
    writeUntil(time);
    const auto stream = m_survey.goose().constFind(keyOf(message));
    if (stream == m_survey.goose().constEnd())
        return;
    for (int i = 0; i < message.entries.size(); ++i) {
        const auto entry = stream->entries.constFind(i + 1);
        const BinaryState state = binaryState(message.entries[i]);
        if (entry != stream->entries.constEnd() && state != BinaryState::None
            && entry->isDoublePoint == (message.entries[i].value.size() == 2))
            put(*entry, state);
    }
}

void Writer::takeStep(WallTime time, const Transition &change)
{
    writeUntil(time);
    for (auto step = m_survey.steps().begin(); step != m_survey.steps().end(); ++step)
        m_states[*step] = step.key() == change.entered;
}

Expected<ExportReport> Writer::finish()
{
    writeUntil(WallTime::max());
    if (!m_problem.isEmpty())
        return failure(Failure::Input, m_problem);
    return m_report;
}

} // namespace

Expected<ExportReport> exportCapture(const ExportOrder &order, const PlotOutline &outline,
                                     QIODevice &data)
{
    Survey survey(order, outline);
    return survey.read()
        .and_then([&] { return survey.record(order, outline.streams.all()[order.choice.stream]); })
        .and_then([&](const Comtrade &record) {
            Writer writer(order, outline, record, survey, data);
            return writer.read().and_then([&] { return writer.finish(); });
        });
}

} // namespace workbench
