#include "workbench/plotoutline.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "virtualboard/wire/bytes.h"
#include "virtualboard/wire/ethernetframes.h"

#include <algorithm>
#include <utility>

using namespace virtualboard;

namespace workbench {

namespace {

constexpr int kMaxStreams = 256;
constexpr int kMostRuns = 1000;
constexpr int kMostChanges = 10000; ///< of one run that are remembered

/// How long it usually takes from one frame of a stream to the next, whatever gaps there are.
class UsualInterval
{
public:
    void add(WallTime time);
    /// Seconds; 0 without two frames.
    [[nodiscard]] double value() const;

private:
    /// Of the intervals from 2^n ns on: how many, and together how long.
    struct Octave
    {
        qint64 count = 0;
        double seconds = 0;
    };
    std::array<Octave, 64> m_octaves = {};
    std::optional<WallTime> m_last;
};

void UsualInterval::add(WallTime time)
{
    if (m_last && time > *m_last) {
        const Duration interval = time - *m_last;
        std::size_t octave = 0;
        while (interval.count() >> (octave + 1) != 0)
            ++octave;
        ++m_octaves[octave].count;
        m_octaves[octave].seconds += std::chrono::duration<double>(interval).count();
    }
    m_last = time;
}

/// The mean of those in the octave of the median.
double UsualInterval::value() const
{
    qint64 all = 0;
    for (const Octave &octave : m_octaves)
        all += octave.count;
    qint64 below = 0;
    for (const Octave &octave : m_octaves) {
        below += octave.count;
        if (octave.count > 0 && 2 * below >= all)
            return octave.seconds / double(octave.count);
    }
    return 0;
}

/// Reads the packets of a capture for what readOutline() tells.
class OutlineReader
{
public:
    OutlineReader() { m_outline.runs.append(PlotRun()); }
    void take(const CapturedFrame &frame);
    [[nodiscard]] PlotOutline finish();

private:
    void take(const StreamMark &mark, WallTime time);
    void take(const StepMark &mark, WallTime time);
    void take(const InputMark &, WallTime) { } // the GOOSE messages show it
    [[nodiscard]] bool isFull() const { return m_counter.current() >= m_outline.runs.size(); }

    PlotOutline m_outline;
    PlotRunCounter m_counter;
    QVector<StreamMark> m_streams; ///< of the sequence to come
    QVector<UsualInterval> m_intervals; ///< per stream
    std::optional<WallTime> m_first; ///< packet
    WallTime m_lastPlayed; ///< sample or change of steps
    WallTime m_entry; ///< into the current step
};

void OutlineReader::take(const CapturedFrame &frame)
{
    if (!m_first) {
        m_first = m_entry = m_lastPlayed = frame.time;
        m_outline.runs[0].start = m_outline.runs[0].first = m_outline.runs[0].last = frame.time;
    }
    const int type = etherType(frame.bytes);
    if (type == kEtherTypeSampledValues) {
        if (const std::optional<PlotStreams::Place> place = m_outline.streams.find(frame.bytes)) {
            m_intervals.resize(m_outline.streams.all().size());
            m_intervals[place->stream].add(frame.time);
        }
        m_lastPlayed = frame.time;
    } else if (type == kEtherTypeMark) {
        if (const std::optional<Mark> mark = decodeMark(frame.bytes))
            std::visit([&](const auto &each) { take(each, frame.time); }, *mark);
    }
    if (!isFull())
        m_outline.runs.last().last = std::max(m_outline.runs.last().last, frame.time);
}

void OutlineReader::take(const StreamMark &mark, WallTime time)
{
    Q_UNUSED(time)
    if (m_streams.size() < kMaxStreams)
        m_streams.append(mark);
}

void OutlineReader::take(const StepMark &mark, WallTime time)
{
    if (m_counter.take(mark)) {
        if (m_counter.current() == m_outline.runs.size())
            m_outline.runs.last().last = m_lastPlayed;
        if (m_outline.runs.size() < kMostRuns) {
            m_outline.runs.append(PlotRun());
            m_outline.runs.last().first = m_outline.runs.last().last = time;
        }
    }
    m_lastPlayed = time;
    if (isFull())
        return;
    PlotRun &run = m_outline.runs.last();
    const Transition &change = mark.transition;
    if (run.changes.isEmpty()) {
        run.start = std::max(time - change.lateness - change.entryTime, WallTime());
        run.streams = std::exchange(m_streams, {});
    }
    if (run.changes.size() < kMostChanges)
        run.changes.append(change);
    if (change.cause == Cause::BinaryInput && !run.ended)
        run.ended = {run.seconds(m_entry), run.seconds(time)};
    m_entry = time;
    std::transform(run.scale.begin(), run.scale.end(), mark.scale.begin(), run.scale.begin(),
                   [](float known, float told) { return known != 0 ? known : told; });
}

PlotOutline OutlineReader::finish()
{
    if (m_outline.runs.first().streams.isEmpty()) // no change of steps, or cut off before it
        m_outline.runs.first().streams = m_streams;
    for (int i = 0; i < m_intervals.size(); ++i)
        m_outline.streams.setInterval(i, m_intervals[i].value());
    return m_outline;
}

} // namespace

QString PlotStream::toString() const
{
    return svId + QStringLiteral(" (APPID 0x%1)").arg(appId, 4, 16, QLatin1Char('0'));
}

std::optional<PlotStreams::Place> PlotStreams::find(const QByteArray &frame)
{
    const auto found =
        std::find_if(m_layouts.begin(), m_layouts.end(), [&frame](const Layout &each) {
            return frame.size() == each.size && frame.startsWith(each.prefix);
        });
    const Layout *const layout = found == m_layouts.end() ? learn(frame) : &*found;
    return layout ? std::make_optional(layout->place) : std::nullopt;
}

const PlotStreams::Layout *PlotStreams::learn(const QByteArray &frame)
{
    const EthernetFrame decoded = decodeEthernetFrame(frame);
    const auto *const values = std::get_if<SampledValues>(&decoded.pdu);
    if (!values || values->entries.isEmpty() || m_layouts.size() >= kMaxStreams)
        return nullptr;
    int stream = 0;
    while (stream < m_streams.size()
           && (m_streams[stream].svId != values->svId || m_streams[stream].appId != decoded.appId))
        ++stream;
    if (stream == m_streams.size())
        m_streams.append({values->svId, decoded.appId, 0, 0});
    m_streams[stream].entries = std::max(m_streams[stream].entries, int(values->entries.size()));
    m_layouts.append({frame.left(values->smpCntOffset),
                      decoded.size,
                      {stream, values->smpCntOffset, values->seqDataOffset}});
    return &m_layouts.last();
}

Expected<int> PlotStreams::named(const QString &name) const
{
    const bool isHexadecimal = name.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    bool isNumber = false;
    const int appId = name.toInt(&isNumber, isHexadecimal ? 16 : 10);
    QStringList known;
    QVector<int> found;
    for (int i = 0; i < m_streams.size(); ++i) {
        known += m_streams[i].toString();
        if (m_streams[i].svId == name || (isNumber && m_streams[i].appId == appId))
            found.append(i);
    }
    if (found.size() != 1)
        return failure(
            Failure::Input,
            QStringLiteral("\"%1\" names %2 streams of the capture; it has %3")
                .arg(name, QString::number(found.size()), known.join(QStringLiteral(", "))));
    return found.first();
}

double PlotRun::seconds(WallTime time) const
{
    return std::chrono::duration<double>(time - start).count();
}

QVector<StreamChannel> channelsOf(const PlotStream &stream, const PlotRun &run)
{
    QStringList names;
    for (const StreamMark &mark : run.streams) {
        if (mark.svId == stream.svId && mark.appId == stream.appId)
            names = mark.channels;
    }
    const bool isMarked = !names.join(QString()).isEmpty();
    QStringList seen;
    QVector<StreamChannel> channels;
    for (int i = 0; i < stream.entries; ++i) {
        const QString name = isMarked ? names.value(i) : QStringLiteral("entry %1").arg(i + 1);
        if (name.isEmpty() || seen.contains(name))
            continue;
        seen += name;
        channels.append({i, name, analogChannel(name)});
    }
    return channels;
}

bool PlotRunCounter::take(const StepMark &mark)
{
    const bool isNext = m_hasSteps && mark.transition.cause == Cause::Start;
    m_hasSteps = true;
    m_current += isNext ? 1 : 0;
    return isNext;
}

int etherType(const QByteArray &frame)
{
    return virtualboard::bigEndian16(frame, virtualboard::etherTypeOffset(frame));
}

Expected<PlotOutline> readOutline(const QString &path)
{
    CaptureReader capture;
    if (const auto opened = capture.open(path); !opened)
        return failure(Failure::Input, opened.error());
    OutlineReader reader;
    while (const std::optional<CapturedFrame> frame = capture.next())
        reader.take(*frame);
    PlotOutline outline = reader.finish();
    outline.damage = capture.errorString();
    if (outline.streams.all().isEmpty())
        return failure(Failure::Input,
                       outline.damage.isEmpty()
                           ? path + QStringLiteral(": there are no sampled values in it")
                           : outline.damage);
    return outline;
}

} // namespace workbench
