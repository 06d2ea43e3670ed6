#include "virtualboard/board/boardstatus.h"

#include <QtEndian>

#include <algorithm>
#include <limits>

namespace virtualboard {

namespace {

const QByteArray signature = QByteArrayLiteral("LVB\x03"); // the last byte is the version

constexpr int kStateSize = 112;
constexpr int kLogHeadSize = 16;
constexpr int kRecordSize = 32;
constexpr int kLargestPayload = 1591; ///< of a data reply that fits a datagram of the link
static_assert(kLogHeadSize + TransitionLog::kCapacity * kRecordSize <= kLargestPayload);

template <typename Number>
void append(QByteArray &bytes, Number number)
{
    char field[sizeof number];
    qToLittleEndian(number, field);
    bytes.append(field, int(sizeof number));
}

void append(QByteArray &bytes, Duration time)
{
    append(bytes, quint64(time.count()));
}

/// Reads one field after the other from a payload that is long enough, and checks their ranges.
class Fields
{
public:
    Fields(const QByteArray &bytes, int position)
        : m_at(bytes.constData() + position)
    { }

    template <typename Number>
    Number next()
    {
        const auto number = qFromLittleEndian<Number>(m_at);
        m_at += sizeof(Number);
        return number;
    }

    Duration time() { return Duration(check(next<quint64>(), kMostTime)); }

    quint8 step()
    {
        const auto number = next<quint8>();
        return number == kNoStep ? number : check(number, quint8(kStepLimit - 1));
    }

    template <typename Enumerator>
    Enumerator oneOf(Enumerator last)
    {
        return Enumerator(check(next<quint8>(), quint8(last)));
    }

    quint8 flags(quint8 known)
    {
        const auto set = next<quint8>();
        m_inRange = m_inRange && (set & ~known) == 0;
        return set;
    }

    quint16 channelOf(Cause cause)
    {
        const auto channel = next<quint16>();
        m_inRange = m_inRange
            && (cause == Cause::BinaryInput ? channel < kLogicChannels : channel == kNoChannel);
        return channel;
    }

    bool inRange() const { return m_inRange; }

private:
    /// About 73 years, so that sums of times are numbers, too.
    static constexpr quint64 kMostTime = quint64(std::numeric_limits<qint64>::max()) / 4;

    template <typename Number>
    Number check(Number number, Number most)
    {
        m_inRange = m_inRange && number <= most;
        return std::min(number, most);
    }

    const char *m_at;
    bool m_inRange = true;
};

bool isOurs(const QByteArray &payload, int leastSize)
{
    return payload.startsWith(signature) && payload.size() >= leastSize;
}

Transition readTransition(Fields &in)
{
    Transition transition;
    transition.left = in.step();
    transition.entered = in.step();
    transition.cause = in.oneOf(Cause::Limit);
    transition.disturbances = in.flags(kDisturbances);
    transition.channel = in.channelOf(transition.cause);
    (void)in.next<quint16>();
    transition.lateness = in.time();
    transition.causeTime = in.time();
    transition.entryTime = in.time();
    return transition;
}

} // namespace

QByteArray encodeState(const PlayStatus &status, quint32 problems, quint32 start)
{
    QByteArray payload = signature;
    append(payload, quint8(status.state));
    append(payload, status.step);
    append(payload, quint16(0));
    append(payload, status.timeInStep);
    append(payload, status.totalTime);
    append(payload, status.framesSent);
    for (const quint64 word : status.activeChannels)
        append(payload, word);
    append(payload, problems);
    append(payload, start);
    append(payload, status.punctuality.latenessP50);
    append(payload, status.punctuality.latenessP99);
    append(payload, status.punctuality.latenessMax);
    append(payload, status.punctuality.missedDeadlines);
    append(payload, status.punctuality.sendFailures);
    return payload;
}

QByteArray encodeLog(const TransitionLog &log)
{
    const QVector<Transition> last =
        log.last.mid(std::max(0, int(log.last.size()) - TransitionLog::kCapacity));
    QByteArray payload = signature;
    append(payload, log.total);
    append(payload, quint16(last.size()));
    append(payload, quint16(kRecordSize));
    append(payload, log.start);
    for (const Transition &each : last) {
        append(payload, each.left);
        append(payload, each.entered);
        append(payload, quint8(each.cause));
        append(payload, each.disturbances);
        append(payload, each.cause == Cause::BinaryInput ? each.channel : kNoChannel);
        append(payload, quint16(0));
        append(payload, each.lateness);
        append(payload, each.causeTime);
        append(payload, each.entryTime);
    }
    return payload;
}

QByteArray encodeNothing()
{
    return signature;
}

std::optional<DecodedState> decodeState(const QByteArray &payload)
{
    if (!isOurs(payload, kStateSize))
        return std::nullopt;
    Fields in(payload, int(signature.size()));
    DecodedState decoded;
    PlayStatus &status = decoded.status;
    status.state = in.oneOf(PlayState::Stopped);
    status.step = in.step();
    (void)in.next<quint16>();
    status.timeInStep = in.time();
    status.totalTime = in.time();
    status.framesSent = in.next<quint64>();
    for (quint64 &word : status.activeChannels)
        word = in.next<quint64>();
    decoded.problems = in.next<quint32>();
    decoded.start = in.next<quint32>();
    status.punctuality.latenessP50 = in.time();
    status.punctuality.latenessP99 = in.time();
    status.punctuality.latenessMax = in.time();
    status.punctuality.missedDeadlines = in.next<quint64>();
    status.punctuality.sendFailures = in.next<quint64>();
    if (!in.inRange())
        return std::nullopt;
    return decoded;
}

std::optional<TransitionLog> decodeLog(const QByteArray &payload)
{
    if (!isOurs(payload, kLogHeadSize))
        return std::nullopt;
    Fields head(payload, int(signature.size()));
    TransitionLog log;
    log.total = head.next<quint32>();
    const int count = head.next<quint16>();
    const int size = head.next<quint16>(); // a later board may have more in a record
    log.start = head.next<quint32>();
    if (count > TransitionLog::kCapacity || quint32(count) > log.total || size < kRecordSize
        || payload.size() < kLogHeadSize + count * size)
        return std::nullopt;
    for (int i = 0; i < count; ++i) {
        Fields in(payload, kLogHeadSize + i * size);
        log.last << readTransition(in);
        if (!in.inRange())
            return std::nullopt;
    }
    return log;
}

QString punctualityText(const Punctuality &punctuality)
{
    const auto microseconds = [](Duration time) {
        return QString::number(double(time.count()) / 1e3, 'f', 1);
    };
    return QStringLiteral("sample instants late by %1 us (p50), %2 us (p99), %3 us (most); %4 "
                          "missed deadlines, %5 frames not sent")
        .arg(microseconds(punctuality.latenessP50), microseconds(punctuality.latenessP99),
             microseconds(punctuality.latenessMax), QString::number(punctuality.missedDeadlines),
             QString::number(punctuality.sendFailures));
}

} // namespace virtualboard
