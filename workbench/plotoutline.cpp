#include "plotoutline.h"

#include "failures.h"

#include <capturefile.h>
#include <capturemarks.h>
#include <ethernetframes.h>

#include <QtEndian>

#include <algorithm>

using namespace virtualboard;

namespace {

constexpr int kMaxStreams = 256;

/// Reads the packets of a capture for what readOutline() tells.
class Reader
{
public:
    void take(const CapturedFrame &frame);
    [[nodiscard]] PlotOutline finish();

private:
    void take(const StreamMark &mark, qint64 time);
    void take(const StepMark &mark, qint64 time);

    PlotOutline m_outline;
    QVector<StreamMark> m_streams;
    std::optional<qint64> m_first;
    qint64 m_entry = 0; ///< absolute: into the current step
};

void Reader::take(const CapturedFrame &frame)
{
    if (!m_first)
        m_first = m_outline.start = m_entry = m_outline.last = frame.time;
    m_outline.last = std::max(m_outline.last, frame.time);
    const int type = etherType(frame.bytes);
    if (type == etherTypeSampledValues) {
        (void)m_outline.streams.find(frame.bytes);
    } else if (type == etherTypeMark) {
        if (const std::optional<Mark> mark = decodeMark(frame.bytes))
            std::visit([&](const auto &each) { take(each, frame.time); }, *mark);
    }
}

void Reader::take(const StreamMark &mark, qint64 time)
{
    Q_UNUSED(time)
    if (m_streams.size() < kMaxStreams)
        m_streams.append(mark);
}

void Reader::take(const StepMark &mark, qint64 time)
{
    const Transition &change = mark.transition;
    if (!m_outline.hasSteps)
        m_outline.start = time - change.entryTime;
    m_outline.hasSteps = true;
    if (change.cause == Cause::BinaryInput && !m_outline.ended)
        m_outline.ended = {m_outline.seconds(m_entry), m_outline.seconds(time)};
    m_entry = time;
    std::transform(m_outline.scale.begin(), m_outline.scale.end(), mark.scale.begin(),
                   m_outline.scale.begin(),
                   [](float known, float told) { return known != 0 ? known : told; });
}

PlotOutline Reader::finish()
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
    m_streams[stream].entries =
        std::max(m_streams[stream].entries, static_cast<int>(values->entries.size()));
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

int PlotStreams::named(const QString &name) const
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
        throw InputError{
            QStringLiteral("--stream \"%1\" names %2 streams of the capture; it has %3")
                .arg(name, QString::number(found.size()), known.join(QStringLiteral(", ")))};
    return found.first();
}

double PlotOutline::seconds(qint64 absolute) const
{
    return static_cast<double>(absolute - start) / 1e9;
}

int etherType(const QByteArray &frame)
{
    constexpr int kOffset = 12; // behind two MAC addresses
    constexpr int kTagSize = 4;
    constexpr int kTag = 0x8100;
    const auto at = [&frame](int offset) {
        return frame.size() < offset + 2 ? 0 : qFromBigEndian<quint16>(frame.constData() + offset);
    };
    return at(kOffset) == kTag ? at(kOffset + kTagSize) : at(kOffset);
}

PlotOutline readOutline(const QString &path)
{
    CaptureReader capture;
    if (!capture.open(path))
        throw InputError{capture.errorString()};
    Reader reader;
    while (const std::optional<CapturedFrame> frame = capture.next())
        reader.take(*frame);
    PlotOutline outline = reader.finish();
    outline.damage = capture.errorString();
    if (outline.streams.all().isEmpty())
        throw InputError{outline.damage.isEmpty()
                             ? path + QStringLiteral(": there are no sampled values in it")
                             : outline.damage};
    return outline;
}
