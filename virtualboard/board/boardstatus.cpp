#include "boardstatus.h"

#include <QtEndian>

#include <algorithm>
#include <limits>

namespace virtualboard {

namespace {

const QByteArray signature = QByteArrayLiteral("LVB\x01"); // the last byte is the version

constexpr int stateSize = 96;
constexpr int logHeadSize = 12;
constexpr int recordSize = 24;
constexpr qint64 nsPerUs = 1000;

const char *const causeNames[] = {"start", "time", "trigger", "binary input",
                                  "stop",  "ring", "limit"};
const char *const stateNames[] = {"idle", "armed", "running", "finished", "stopped"};

template <typename Number>
void append(QByteArray &bytes, Number number)
{
    char field[sizeof number];
    qToLittleEndian(number, field);
    bytes.append(field, int(sizeof number));
}

/// In microseconds, rounded down.
void appendTime(QByteArray &bytes, qint64 ns)
{
    append(bytes, quint64(ns / nsPerUs));
}

constexpr qint64 mostLateness = std::numeric_limits<quint16>::max(); // us

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

    qint64 time()
    {
        constexpr quint64 most = std::numeric_limits<qint64>::max() / nsPerUs;
        const quint64 us = check(next<quint64>(), most);
        return m_inRange ? qint64(us) * nsPerUs : 0;
    }

    quint8 step()
    {
        const auto number = next<quint8>();
        return number == noStep ? number : check(number, quint8(stepLimit - 1));
    }

    template <typename Enumerator>
    Enumerator oneOf(Enumerator last)
    {
        return Enumerator(check(next<quint8>(), quint8(last)));
    }

    quint16 channelOf(Cause cause)
    {
        const auto channel = next<quint16>();
        m_inRange = m_inRange
            && (cause == Cause::BinaryInput ? channel < logicChannels : channel == noChannel);
        return channel;
    }

    bool inRange() const { return m_inRange; }

private:
    template <typename Number>
    Number check(Number number, Number most)
    {
        m_inRange = m_inRange && number <= most;
        return number;
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
    (void)in.next<quint8>();
    transition.channel = in.channelOf(transition.cause);
    transition.lateness = in.next<quint16>() * nsPerUs;
    transition.causeTime = in.time();
    transition.entryTime = in.time();
    return transition;
}

} // namespace

QByteArray encodeState(const PlayStatus &status, quint32 problems)
{
    QByteArray payload = signature;
    append(payload, quint8(status.state));
    append(payload, status.step);
    append(payload, quint16(0));
    appendTime(payload, status.timeInStep);
    appendTime(payload, status.totalTime);
    append(payload, status.framesSent);
    for (const quint64 word : status.activeChannels)
        append(payload, word);
    append(payload, problems);
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
        log.last.mid(std::max(0, int(log.last.size()) - TransitionLog::capacity));
    QByteArray payload = signature;
    append(payload, log.total);
    append(payload, quint16(last.size()));
    append(payload, quint16(recordSize));
    for (const Transition &each : last) {
        append(payload, each.left);
        append(payload, each.entered);
        append(payload, quint8(each.cause));
        append(payload, quint8(0));
        append(payload, each.cause == Cause::BinaryInput ? each.channel : noChannel);
        append(payload, quint16(std::clamp<qint64>(each.lateness / nsPerUs, 0, mostLateness)));
        appendTime(payload, each.causeTime);
        appendTime(payload, each.entryTime);
    }
    return payload;
}

QByteArray encodeNothing()
{
    return signature;
}

std::optional<DecodedState> decodeState(const QByteArray &payload)
{
    if (!isOurs(payload, stateSize))
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
    status.punctuality.latenessP50 = in.next<quint32>();
    status.punctuality.latenessP99 = in.next<quint32>();
    status.punctuality.latenessMax = in.next<quint32>();
    status.punctuality.missedDeadlines = in.next<quint64>();
    status.punctuality.sendFailures = in.next<quint64>();
    if (!in.inRange())
        return std::nullopt;
    return decoded;
}

std::optional<TransitionLog> decodeLog(const QByteArray &payload)
{
    if (!isOurs(payload, logHeadSize))
        return std::nullopt;
    Fields head(payload, int(signature.size()));
    TransitionLog log;
    log.total = head.next<quint32>();
    const int count = head.next<quint16>();
    const int size = head.next<quint16>(); // a later board may have more in a record
    if (count > TransitionLog::capacity || quint32(count) > log.total || size < recordSize
        || payload.size() < logHeadSize + count * size)
        return std::nullopt;
    for (int i = 0; i < count; ++i) {
        Fields in(payload, logHeadSize + i * size);
        log.last << readTransition(in);
        if (!in.inRange())
            return std::nullopt;
    }
    return log;
}

const char *causeName(Cause cause)
{
    return causeNames[std::size_t(cause)];
}

const char *stateName(PlayState state)
{
    return stateNames[std::size_t(state)];
}

QString punctualityText(const Punctuality &punctuality)
{
    const auto microseconds = [](quint32 ns) { return QString::number(ns / 1e3, 'f', 1); };
    return QStringLiteral("sample instants late by %1 us (p50), %2 us (p99), %3 us (most); %4 "
                          "missed deadlines, %5 frames not sent")
        .arg(microseconds(punctuality.latenessP50), microseconds(punctuality.latenessP99),
             microseconds(punctuality.latenessMax), QString::number(punctuality.missedDeadlines),
             QString::number(punctuality.sendFailures));
}

} // namespace virtualboard
