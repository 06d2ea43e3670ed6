#include "virtualboard.h"

#include "bytes.h"
#include "envelope.h"

#include <QElapsedTimer>
#include <QHash>
#include <QNetworkProxy>
#include <QThread>
#include <QUdpSocket>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace virtualboard {

namespace {

constexpr int maximumAttempts = 3;
constexpr int maximumStatusSize = 60000;
constexpr int largestDatagram = 65536;
constexpr int receiveBufferSize = 1600; ///< of the board's peer
constexpr int oversized = 2000;
/// Ends a wait in which the datagram that stop() sends got lost.
constexpr qint64 longestWait = 1000; // ms

const QByteArray acknowledgementPattern = QByteArray::fromHex("0f5af0a5");
const QByteArray dataReplyPattern = QByteArray::fromHex("5a5a5a5a");

/// @p size bytes that look random and hold no 5a, so that no pattern can occur in them.
QByteArray noise(int size)
{
    QByteArray result;
    quint32 state = 0x2545f491;
    for (int i = 0; i < size; ++i) {
        state = state * 1664525u + 1013904223u;
        const quint8 byte = quint8(state >> 24);
        result += char(byte == 0x5a ? 0xa6 : byte);
    }
    return result;
}

/// Marker, a byte, the payload's length low byte first, two bytes, payload. The bytes that mean
/// nothing have values that no length has.
QByteArray dataReply(const QByteArray &payload)
{
    QByteArray result = dataReplyPattern;
    result += char(0xee);
    result += char(payload.size() & 0xff);
    result += char(payload.size() >> 8);
    result += "\xee\xee";
    return result + payload;
}

/// What goes out for one datagram; an empty part is not sent.
struct Answer
{
    QByteArray first; ///< where the acknowledgement is due
    QByteArray second; ///< where the data reply is due
    bool acknowledges = false; ///< `first` is an acknowledgement
    bool dataIsSound = true; ///< `second` can be used by a peer with a buffer of 1600 bytes
};

Answer answerOf(Behaviour::Kind kind, const QByteArray &status)
{
    const QByteArray &ack = acknowledgementPattern;
    const QByteArray reply = dataReply(status);
    switch (kind) {
    case Behaviour::NoAcknowledgement:
        return {};
    case Behaviour::AcknowledgementInTheMiddle:
        return {noise(13) + ack + noise(20), reply, true};
    case Behaviour::OversizedAcknowledgement:
        return {ack + noise(oversized), reply, true};
    case Behaviour::AcknowledgementBeyondBuffer:
        return {noise(receiveBufferSize) + ack, {}, false};
    case Behaviour::Garbage:
        return {noise(40), {}, false};
    case Behaviour::NoDataReply:
        return {ack, {}, true, false};
    case Behaviour::GarbageDataReply:
        return {ack, noise(40), true, false};
    case Behaviour::ShortDataReply:
        return {ack, reply.left(int(reply.size()) - 1), true, false};
    case Behaviour::DataReplyInTheMiddle:
        return {ack, noise(13) + reply, true};
    case Behaviour::PaddedDataReply:
        return {ack, reply + noise(oversized), true};
    case Behaviour::OversizedDataReply:
        return {ack, dataReply(status + noise(oversized)), true, false};
    case Behaviour::Proper:
    case Behaviour::LoseFirst:
    case Behaviour::Late:
        break;
    }
    return {ack, reply, true};
}

struct Record
{
    QByteArray datagram;
    Envelope envelope;
    int exchange = 0;
    int attempt = 0;
    bool acknowledged = false;
    qint64 msecs = 0;
};

/// One datagram on its way through the board.
struct Arrival
{
    int exchange = 0;
    int record = -1; ///< index of its record; -1 when the record was full
    QByteArray frame; ///< the padded command frame
    QHostAddress peer;
    quint16 peerPort = 0;

    bool isStatusReadBack() const { return frame.startsWith(QByteArray::fromHex("8c928c92")); }
};

struct LateAnswer
{
    qint64 due = 0; ///< ms since start
    Arrival arrival;
};

} // namespace

struct VirtualBoard::Private
{
    QHostAddress address;
    quint16 requestedPort = 0;
    std::unique_ptr<QThread> thread;
    std::atomic<bool> stopping = false;
    QElapsedTimer clock;
    std::function<QByteArray(int)> statusSource;
    std::function<void(const DecodedCommand &)> commandHandler;

    mutable std::mutex mutex; // guards all that follows
    mutable std::condition_variable received;
    QString error;
    quint16 boundPort = 0;
    QByteArray status = QByteArray::fromHex("0102030405060708");
    Behaviour defaultBehaviour;
    QHash<int, Behaviour> behaviours;
    std::vector<Record> records;
    qint64 recordedBytes = 0;
    int dropped = 0;
    std::vector<LateAnswer> lateAnswers;
    // The exchange that goes on, or the last one.
    QByteArray lastDatagram;
    int exchange = -1;
    int attempt = 0;
    bool answered = false;
    int handledExchange = -1; ///< the last whose command was handed on

    void run(std::promise<QString> &started);
    void receive(QUdpSocket &socket, QByteArray &buffer);
    void count(const QByteArray &datagram);
    int record(const QByteArray &datagram, const Envelope &envelope);
    void react(QUdpSocket &socket, const Arrival &arrival);
    void answer(QUdpSocket &socket, const Arrival &arrival, Behaviour::Kind kind);
    QByteArray statusPayload(const Arrival &arrival) const;
    int millisecondsToNextAnswer() const;
    void sendAnswersDue(QUdpSocket &socket);
    void forget();
};

void VirtualBoard::Private::run(std::promise<QString> &started)
{
    QUdpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy); // asking the system for one is slow
    if (!socket.bind(address, requestedPort)) {
        started.set_value(QStringLiteral("Cannot bind %1, UDP port %2: %3")
                              .arg(address.toString())
                              .arg(requestedPort)
                              .arg(socket.errorString()));
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        boundPort = socket.localPort();
    }
    started.set_value({});

    QByteArray buffer(largestDatagram, 0);
    while (!stopping) {
        socket.waitForReadyRead(millisecondsToNextAnswer());
        while (!stopping && socket.hasPendingDatagrams())
            receive(socket, buffer);
        sendAnswersDue(socket);
    }
}

void VirtualBoard::Private::receive(QUdpSocket &socket, QByteArray &buffer)
{
    Arrival arrival;
    const qint64 size =
        socket.readDatagram(buffer.data(), buffer.size(), &arrival.peer, &arrival.peerPort);
    if (size < 0 || stopping)
        return;
    const QByteArray datagram = buffer.left(int(size));
    const Envelope envelope = openEnvelope(datagram);
    arrival.frame = envelope.frame;

    // The lock is held until the record says how the datagram was answered, so that a peer that
    // has its answer finds the record complete.
    const std::lock_guard<std::mutex> lock(mutex);
    count(datagram);
    arrival.exchange = exchange;
    arrival.record = record(datagram, envelope);
    if (envelope.problems.isEmpty())
        react(socket, arrival);
    received.notify_all();
}

void VirtualBoard::Private::count(const QByteArray &datagram)
{
    const bool retry =
        exchange >= 0 && !answered && attempt + 1 < maximumAttempts && datagram == lastDatagram;
    if (retry) {
        ++attempt;
        return;
    }
    ++exchange;
    attempt = 0;
    answered = false;
    lastDatagram = datagram;
}

int VirtualBoard::Private::record(const QByteArray &datagram, const Envelope &envelope)
{
    const qint64 bytes = datagram.size() + envelope.frame.size();
    if (int(records.size()) >= maximumRecords || recordedBytes + bytes > maximumBytes) {
        ++dropped;
        return -1;
    }
    recordedBytes += bytes;
    records.push_back({datagram, envelope, exchange, attempt, false, clock.elapsed()});
    return int(records.size()) - 1;
}

void VirtualBoard::Private::react(QUdpSocket &socket, const Arrival &arrival)
{
    const Behaviour behaviour = behaviours.value(exchange, defaultBehaviour);
    switch (behaviour.kind) {
    case Behaviour::LoseFirst:
        if (attempt >= behaviour.count)
            answer(socket, arrival, Behaviour::Proper);
        break;
    case Behaviour::Late:
        if (attempt == 0)
            lateAnswers.push_back({clock.elapsed() + behaviour.milliseconds, arrival});
        break;
    default:
        answer(socket, arrival, behaviour.kind);
    }
}

void VirtualBoard::Private::answer(QUdpSocket &socket, const Arrival &arrival, Behaviour::Kind kind)
{
    const bool statusReadBack = arrival.isStatusReadBack();
    const Answer answer = answerOf(kind, statusReadBack ? statusPayload(arrival) : QByteArray());
    if (answer.acknowledges && arrival.record >= 0)
        records[std::size_t(arrival.record)].acknowledged = true;
    if (answer.acknowledges && commandHandler && handledExchange != arrival.exchange) {
        handledExchange = arrival.exchange;
        commandHandler(decodeCommand(arrival.frame));
    }
    const bool complete = answer.acknowledges && (!statusReadBack || answer.dataIsSound);
    if (complete && arrival.exchange == exchange)
        answered = true;

    if (!answer.first.isEmpty())
        socket.writeDatagram(answer.first, arrival.peer, arrival.peerPort);
    if (statusReadBack && !answer.second.isEmpty())
        socket.writeDatagram(answer.second, arrival.peer, arrival.peerPort);
}

QByteArray VirtualBoard::Private::statusPayload(const Arrival &arrival) const
{
    constexpr int whichOffset = 4;
    return statusSource ? statusSource(byteAt(arrival.frame, whichOffset)) : status;
}

int VirtualBoard::Private::millisecondsToNextAnswer() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    qint64 wait = longestWait;
    for (const LateAnswer &late : lateAnswers)
        wait = std::min(wait, late.due - clock.elapsed());
    return int(std::max(qint64(0), wait));
}

void VirtualBoard::Private::sendAnswersDue(QUdpSocket &socket)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const qint64 now = clock.elapsed();
    const auto isDue = [now](const LateAnswer &each) { return each.due <= now; };
    for (const LateAnswer &late : lateAnswers) {
        if (isDue(late))
            answer(socket, late.arrival, Behaviour::Proper);
    }
    lateAnswers.erase(std::remove_if(lateAnswers.begin(), lateAnswers.end(), isDue),
                      lateAnswers.end());
}

void VirtualBoard::Private::forget()
{
    records.clear();
    recordedBytes = 0;
    dropped = 0;
    lateAnswers.clear();
    exchange = -1;
    handledExchange = -1;
}

VirtualBoard::VirtualBoard(const QHostAddress &address, quint16 port)
    : d(std::make_unique<Private>())
{
    d->address = address;
    d->requestedPort = port;
}

VirtualBoard::~VirtualBoard()
{
    stop();
}

bool VirtualBoard::start()
{
    if (d->thread)
        return true;
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        d->forget();
    }
    d->stopping = false;
    d->clock.start();

    std::promise<QString> started;
    std::future<QString> outcome = started.get_future();
    d->thread.reset(QThread::create([this, &started] { d->run(started); }));
    d->thread->start();
    const QString error = outcome.get();
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        d->error = error;
    }
    if (error.isEmpty())
        return true;
    d->thread->wait();
    d->thread.reset();
    return false;
}

void VirtualBoard::stop()
{
    if (!d->thread)
        return;
    d->stopping = true;
    // The thread sleeps until a datagram comes in, so it is sent one. An address that means "any"
    // cannot be sent to.
    QHostAddress target = d->address;
    if (target == QHostAddress(QHostAddress::AnyIPv6))
        target = QHostAddress(QHostAddress::LocalHostIPv6);
    else if (target == QHostAddress(QHostAddress::AnyIPv4)
             || target == QHostAddress(QHostAddress::Any))
        target = QHostAddress(QHostAddress::LocalHost);
    QUdpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    socket.writeDatagram(QByteArray(1, 0), target, port());
    d->thread->wait();
    d->thread.reset();
}

QString VirtualBoard::errorString() const
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    return d->error;
}

QHostAddress VirtualBoard::address() const
{
    return d->address;
}

quint16 VirtualBoard::port() const
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    return d->boundPort != 0 ? d->boundPort : d->requestedPort;
}

bool VirtualBoard::setStatus(const QByteArray &payload)
{
    if (payload.size() > maximumStatusSize)
        return false;
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->status = payload;
    return true;
}

void VirtualBoard::setStatusSource(std::function<QByteArray(int)> source)
{
    d->statusSource = std::move(source);
}

void VirtualBoard::setCommandHandler(std::function<void(const DecodedCommand &)> handler)
{
    d->commandHandler = std::move(handler);
}

void VirtualBoard::setDefaultBehaviour(Behaviour behaviour)
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->defaultBehaviour = behaviour;
}

void VirtualBoard::setBehaviour(int exchange, Behaviour behaviour)
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->behaviours.insert(exchange, behaviour);
}

QVector<Reception> VirtualBoard::receptions() const
{
    std::vector<Record> records;
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        records = d->records;
    }
    QVector<Reception> result;
    result.reserve(int(records.size()));
    for (const Record &record : records) {
        Reception reception;
        reception.datagram = record.datagram;
        reception.problems = record.envelope.problems;
        if (reception.problems.isEmpty())
            reception.decoded = decodeCommand(record.envelope.frame);
        reception.exchange = record.exchange;
        reception.attempt = record.attempt;
        reception.acknowledged = record.acknowledged;
        reception.msecsSinceStart = record.msecs;
        result << reception;
    }
    return result;
}

QVector<QByteArray> VirtualBoard::frames() const
{
    QVector<QByteArray> result;
    const QVector<Reception> acknowledged = acknowledgedExchanges(receptions());
    for (const Reception &reception : acknowledged)
        result << reception.decoded.frame;
    return result;
}

int VirtualBoard::dropped() const
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    return d->dropped;
}

void VirtualBoard::clear()
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->forget();
    d->behaviours.clear();
}

bool VirtualBoard::waitForReceptions(int count, int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(d->mutex);
    return d->received.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this, count] {
        return int(d->records.size()) + d->dropped >= count;
    });
}

QVector<Reception> acknowledgedExchanges(const QVector<Reception> &receptions)
{
    QVector<Reception> result;
    for (const Reception &reception : receptions) {
        const bool known = !result.isEmpty() && result.last().exchange == reception.exchange;
        if (reception.acknowledged && !known)
            result << reception;
    }
    return result;
}

} // namespace virtualboard
