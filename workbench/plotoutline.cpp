#include "workbench/plotoutline.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "virtualboard/wire/bytes.h"
#include "virtualboard/wire/ethernetframes.h"

#include <algorithm>

using namespace virtualboard;

namespace workbench {

namespace {

constexpr int kMaxStreams = 256;

/// Reads the packets of a capture for what readOutline() tells.
class OutlineReader
{
public:
    void take(const CapturedFrame &frame);
    [[nodiscard]] PlotOutline finish();

private:
    void take(const StreamMark &mark, WallTime time);
    void take(const StepMark &mark, WallTime time);

    PlotOutline m_outline;
    QVector<StreamMark> m_streams;
    std::optional<WallTime> m_first;
    WallTime m_entry; ///< into the current step
};

void OutlineReader::take(const CapturedFrame &frame)
{
    if (!m_first)
        m_first = m_outline.start = m_entry = m_outline.last = frame.time;
    m_outline.last = std::max(m_outline.last, frame.time);
    const int type = etherType(frame.bytes);
    if (type == kEtherTypeSampledValues) {
        (void)m_outline.streams.find(frame.bytes);
    } else if (type == kEtherTypeMark) {
        if (const std::optional<Mark> mark = decodeMark(frame.bytes))
            std::visit([&](const auto &each) { take(each, frame.time); }, *mark);
    }
}

void OutlineReader::take(const StreamMark &mark, WallTime time)
{
    Q_UNUSED(time)
    if (m_streams.size() < kMaxStreams)
        m_streams.append(mark);
}

void OutlineReader::take(const StepMark &mark, WallTime time)
{
    const Transition &change = mark.transition;
    if (!m_outline.hasSteps)
        m_outline.start = time - change.lateness - change.entryTime;
    m_outline.hasSteps = true;
    if (change.cause == Cause::BinaryInput && !m_outline.ended)
        m_outline.ended = {m_outline.seconds(m_entry), m_outline.seconds(time)};
    m_entry = time;
    std::transform(m_outline.scale.begin(), m_outline.scale.end(), mark.scale.begin(),
                   m_outline.scale.begin(),
                   [](float known, float told) { return known != 0 ? known : told; });
}

PlotOutline OutlineReader::finish()
{
    for (const StreamMark &mark : m_streams)
        m_outline.streams.setChannels(mark.svId, mark.appId, mark.channels);
    if (m_first)
        m_outline.first = m_outline.seconds(*m_first);
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
        m_streams.append({values->svId, decoded.appId, 0, {}});
    m_streams[stream].entries = std::max(m_streams[stream].entries, int(values->entries.size()));
    m_layouts.append(
        {frame.left(values->smpCntOffset), decoded.size, {stream, values->seqDataOffset}});
    return &m_layouts.last();
}

void PlotStreams::setChannels(const QString &svId, int appId, const QStringList &channels)
{
    for (PlotStream &stream : m_streams) {
        if (stream.svId == svId && stream.appId == appId)
            stream.channels = channels;
    }
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

double PlotOutline::seconds(WallTime time) const
{
    return std::chrono::duration<double>(time - start).count();
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
