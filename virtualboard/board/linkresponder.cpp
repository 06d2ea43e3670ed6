#include "virtualboard/board/linkresponder.h"

#include "virtualboard/wire/commandmemory.h"
#include "virtualboard/wire/envelope.h"
#include "virtualboard/wire/limits.h"

#include <QElapsedTimer>
#include <QHash>
#include <QNetworkProxy>
#include <QSet>
#include <QUdpSocket>
#include <QtEndian>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace virtualboard {

namespace {

constexpr int kMaximumAttempts = 3;
// A client waits 1500 ms for an acknowledgement before it tries again. Both ends may be late.
constexpr qint64 kEarliestRetry = 1400; // ms after the try before
constexpr qint64 kLatestRetry = 2000;
constexpr std::size_t kMaximumClients = 32; ///< whose last exchange is known
constexpr std::size_t kMaximumWaiting = 64; ///< datagrams read, but not looked at yet
constexpr int kMaximumStatusSize = 60000;
constexpr int kOversized = 2000;
constexpr int kLargestOfUdp = 65536; ///< bytes; above anything that it carries
constexpr int kKeptOfOversized = 32; ///< bytes
static_assert(kOversized > kPeerBufferSize, "more than the peer reads");
/// Ends a wait in which the datagram that stop() sends got lost.
constexpr qint64 kLongestWait = 1000; // ms

const QByteArray acknowledgementPattern = QByteArray::fromHex("0f5af0a5");
const QByteArray dataReplyPattern = QByteArray::fromHex("5a5a5a5a");

/// \a size bytes that look random and hold no 5a, so that no pattern can occur in them.
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
    const quint16 size = qToLittleEndian(quint16(payload.size()));
    result.append(reinterpret_cast<const char *>(&size), sizeof(size));
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
        return {ack + noise(kOversized), reply, true};
    case Behaviour::AcknowledgementBeyondBuffer:
        return {noise(kPeerBufferSize) + ack, {}, false};
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
        return {ack, reply + noise(kOversized), true};
    case Behaviour::OversizedDataReply:
        return {ack, dataReply(status + noise(kOversized)), true, false};
    case Behaviour::Proper:
    case Behaviour::LoseFirst:
    case Behaviour::Late:
        break;
    }
    return {ack, reply, true};
}

struct Client
{
    QHostAddress address;
    quint16 port = 0;

    bool operator==(const Client &other) const
    {
        return address == other.address && port == other.port;
    }
};

/// A datagram as it was read from the socket.
struct Incoming
{
    QByteArray datagram; ///< the beginning if it is longer than the link allows
    int size = 0; ///< whole
    Client client;
    quint64 number = 0; ///< counted from 1, in the order in which they came
};

/// One datagram on its way through the board.
struct Arrival
{
    int exchange = 0;
    int record = -1; ///< index of its record; -1 when the record was full
    DecodedCommand decoded;
    Client client;

    /// The command, if it asks for a data reply, else null.
    const StatusReadBackCommand *statusReadBack() const
    {
        return std::get_if<StatusReadBackCommand>(&decoded.command);
    }
};

/// The exchange that goes on with a client, or the last one.
struct Exchange
{
    Client client;
    QByteArray datagram;
    int number = 0;
    int attempt = 0;
    qint64 lastTry = 0; ///< ms since start
    bool handled = false; ///< its command has been handed on
    bool answered = false; ///< completely
    quint64 lastBeforeAnswer = 0; ///< number of the last datagram that came before that

    bool isRetriedBy(const Incoming &incoming, qint64 now) const
    {
        if (attempt + 1 >= kMaximumAttempts || incoming.datagram != datagram)
            return false;
        const qint64 pause = now - lastTry;
        return !answered || incoming.number <= lastBeforeAnswer
            || (pause >= kEarliestRetry && pause <= kLatestRetry);
    }
};

struct LateAnswer
{
    qint64 due = 0; ///< ms since start
    Arrival arrival;
};

} // namespace

struct LinkResponder::Private
{
    QHostAddress address;
    quint16 requestedPort = 0;
    std::thread thread;
    std::atomic<bool> stopping = false;
    QElapsedTimer clock;
    std::function<QByteArray(int)> statusSource;
    std::function<void(const DecodedCommand &)> commandHandler;
    std::function<void()> prepareThread;

    mutable std::mutex mutex; // guards all that follows
    mutable std::condition_variable received;
    quint16 boundPort = 0;
    QByteArray status = QByteArray::fromHex("0102030405060708");
    Behaviour defaultBehaviour;
    QHash<int, Behaviour> behaviours;
    QVector<Reception> records;
    qint64 recordedBytes = 0;
    int dropped = 0;
    std::vector<LateAnswer> lateAnswers;
    std::vector<Exchange> exchanges; ///< one for each client, the latest one last
    int exchangeCount = 0;

    // The thread's own.
    std::deque<Incoming> waiting;
    quint64 incomingCount = 0;
    QByteArray buffer;

    void run(std::promise<QString> &started);
    void collect(QUdpSocket &socket);
    void receive(QUdpSocket &socket, const Incoming &incoming);
    const Exchange &count(const Incoming &incoming);
    Exchange *find(int number);
    int record(const Reception &reception);
    void react(QUdpSocket &socket, const Arrival &arrival, int attempt);
    void answer(QUdpSocket &socket, const Arrival &arrival, Behaviour::Kind kind);
    QByteArray statusPayload(const Arrival &arrival) const;
    int millisecondsToNextAnswer() const;
    void sendAnswersDue(QUdpSocket &socket);
    void forget();
};

void LinkResponder::Private::run(std::promise<QString> &started)
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
    if (prepareThread)
        prepareThread();
    started.set_value({});

    waiting.clear();
    buffer = QByteArray(kLargestOfUdp, 0);
    while (!stopping) {
        if (waiting.empty())
            socket.waitForReadyRead(millisecondsToNextAnswer());
        for (collect(socket); !stopping && !waiting.empty(); collect(socket)) {
            const Incoming next = std::move(waiting.front());
            waiting.pop_front();
            receive(socket, next);
        }
        sendAnswersDue(socket);
    }
}

/// Takes over what the socket holds, as far as there is room.
void LinkResponder::Private::collect(QUdpSocket &socket)
{
    while (waiting.size() < kMaximumWaiting && socket.hasPendingDatagrams()) {
        Incoming next;
        const qint64 size = socket.readDatagram(buffer.data(), buffer.size(), &next.client.address,
                                                &next.client.port);
        if (size < 0)
            return;
        next.size = int(size);
        next.datagram = buffer.left(next.size > kLargestDatagram ? kKeptOfOversized : next.size);
        next.number = ++incomingCount;
        waiting.push_back(std::move(next));
    }
}

void LinkResponder::Private::receive(QUdpSocket &socket, const Incoming &incoming)
{
    Reception reception;
    reception.datagram = incoming.datagram;
    if (incoming.size > kLargestDatagram) {
        reception.oversize = incoming.size;
    } else {
        const Envelope envelope = openEnvelope(reception.datagram);
        reception.problems = envelope.problems;
        if (envelope.problems.isEmpty())
            reception.decoded = decodeCommand(envelope.frame);
    }
    const bool isSound = reception.oversize == 0 && reception.problems.isEmpty();

    // The lock is held until the record says how the datagram was answered, so that a peer that
    // has its answer finds the record complete.
    const std::lock_guard<std::mutex> lock(mutex);
    const Exchange &exchange = count(incoming);
    reception.exchange = exchange.number;
    reception.attempt = exchange.attempt;
    const int index = record(reception);
    if (isSound)
        react(socket, {reception.exchange, index, reception.decoded, incoming.client},
              reception.attempt);
    received.notify_all();
}

/// The exchange that the datagram is part of.
const Exchange &LinkResponder::Private::count(const Incoming &incoming)
{
    const auto known = std::find_if(exchanges.begin(), exchanges.end(), [&](const Exchange &each) {
        return each.client == incoming.client;
    });
    Exchange next;
    if (known != exchanges.end() && known->isRetriedBy(incoming, clock.elapsed())) {
        next = *known;
        ++next.attempt;
    } else {
        next.client = incoming.client;
        next.datagram = incoming.datagram;
        next.number = exchangeCount++;
    }
    next.lastTry = clock.elapsed();
    if (known != exchanges.end())
        exchanges.erase(known);
    else if (exchanges.size() == kMaximumClients)
        exchanges.erase(exchanges.begin());
    exchanges.push_back(next);
    return exchanges.back();
}

/// Null if its client has begun another, or has been forgotten.
Exchange *LinkResponder::Private::find(int number)
{
    const auto found = std::find_if(exchanges.begin(), exchanges.end(),
                                    [=](const Exchange &each) { return each.number == number; });
    return found == exchanges.end() ? nullptr : &*found;
}

int LinkResponder::Private::record(const Reception &reception)
{
    const qint64 bytes = reception.datagram.size() + memoryOf(reception.decoded);
    if (int(records.size()) >= kMaximumRecords || recordedBytes + bytes > kMaximumBytes) {
        ++dropped;
        return -1;
    }
    recordedBytes += bytes;
    records << reception;
    records.last().msecsSinceStart = clock.elapsed();
    return int(records.size()) - 1;
}

void LinkResponder::Private::react(QUdpSocket &socket, const Arrival &arrival, int attempt)
{
    const Behaviour behaviour = behaviours.value(arrival.exchange, defaultBehaviour);
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

void LinkResponder::Private::answer(QUdpSocket &socket, const Arrival &arrival,
                                    Behaviour::Kind kind)
{
    const bool statusReadBack = arrival.statusReadBack() != nullptr;
    const Answer answer = answerOf(kind, statusReadBack ? statusPayload(arrival) : QByteArray());
    if (answer.acknowledges && arrival.record >= 0)
        records[arrival.record].acknowledged = true;
    Exchange *const exchange = find(arrival.exchange);
    if (answer.acknowledges && commandHandler && !(exchange && exchange->handled))
        commandHandler(arrival.decoded);
    if (exchange && answer.acknowledges)
        exchange->handled = true;
    if (exchange && answer.acknowledges && (!statusReadBack || answer.dataIsSound)) {
        // What is here before the answer has gone out, was sent by somebody who did not have it.
        collect(socket);
        exchange->answered = true;
        exchange->lastBeforeAnswer = incomingCount;
    }

    const Client &client = arrival.client;
    if (!answer.first.isEmpty())
        socket.writeDatagram(answer.first, client.address, client.port);
    if (statusReadBack && !answer.second.isEmpty())
        socket.writeDatagram(answer.second, client.address, client.port);
}

QByteArray LinkResponder::Private::statusPayload(const Arrival &arrival) const
{
    return statusSource ? statusSource(arrival.statusReadBack()->which) : status;
}

int LinkResponder::Private::millisecondsToNextAnswer() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    qint64 wait = kLongestWait;
    for (const LateAnswer &late : lateAnswers)
        wait = std::min(wait, late.due - clock.elapsed());
    return int(std::max(qint64(0), wait));
}

void LinkResponder::Private::sendAnswersDue(QUdpSocket &socket)
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

void LinkResponder::Private::forget()
{
    records.clear();
    recordedBytes = 0;
    dropped = 0;
    lateAnswers.clear();
    exchanges.clear();
    exchangeCount = 0;
}

LinkResponder::LinkResponder(const QHostAddress &address, quint16 port)
    : d(std::make_unique<Private>())
{
    d->address = address;
    d->requestedPort = port;
}

LinkResponder::~LinkResponder()
{
    stop();
}

Expected<void> LinkResponder::start()
{
    if (d->thread.joinable())
        return {};
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        d->forget();
    }
    d->stopping = false;
    d->clock.start();

    std::promise<QString> started;
    std::future<QString> outcome = started.get_future();
    d->thread = std::thread([this, &started] { d->run(started); });
    const QString error = outcome.get();
    if (error.isEmpty())
        return {};
    d->thread.join();
    return Refusal(error);
}

void LinkResponder::stop()
{
    if (!d->thread.joinable())
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
    d->thread.join();
}

QHostAddress LinkResponder::address() const
{
    return d->address;
}

quint16 LinkResponder::port() const
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    return d->boundPort != 0 ? d->boundPort : d->requestedPort;
}

bool LinkResponder::setStatus(const QByteArray &payload)
{
    if (payload.size() > kMaximumStatusSize)
        return false;
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->status = payload;
    return true;
}

void LinkResponder::setStatusSource(std::function<QByteArray(int)> source)
{
    d->statusSource = std::move(source);
}

void LinkResponder::setCommandHandler(std::function<void(const DecodedCommand &)> handler)
{
    d->commandHandler = std::move(handler);
}

void LinkResponder::setThreadPreparation(std::function<void()> prepare)
{
    d->prepareThread = std::move(prepare);
}

void LinkResponder::setDefaultBehaviour(Behaviour behaviour)
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->defaultBehaviour = behaviour;
}

void LinkResponder::setBehaviour(int exchange, Behaviour behaviour)
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->behaviours.insert(exchange, behaviour);
}

QVector<Reception> LinkResponder::receptions() const
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    return d->records;
}

QVector<QByteArray> LinkResponder::frames() const
{
    QVector<QByteArray> result;
    const QVector<Reception> acknowledged = acknowledgedExchanges(receptions());
    for (const Reception &reception : acknowledged)
        result << reception.decoded.frame;
    return result;
}

int LinkResponder::dropped() const
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    return d->dropped;
}

void LinkResponder::clear()
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->forget();
    d->behaviours.clear();
}

bool LinkResponder::waitForReceptions(int count, int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(d->mutex);
    return d->received.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this, count] {
        return int(d->records.size()) + d->dropped >= count;
    });
}

QVector<Reception> acknowledgedExchanges(const QVector<Reception> &receptions)
{
    QVector<Reception> result;
    QSet<int> known; // those of two clients may be mixed
    for (const Reception &reception : receptions) {
        if (reception.acknowledged && !known.contains(reception.exchange)) {
            known.insert(reception.exchange);
            result << reception;
        }
    }
    return result;
}

} // namespace virtualboard
