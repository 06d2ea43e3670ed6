#include "engine/lumtarengine.h"

#include "engine/answersdue.h"
#include "protocol/envelope.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QNetworkProxy>

#include <algorithm>

using envelope::kDatagramSize;
using envelope::kMaxFrame;

static_assert(sizeof LumtarEngine::rxBuffer == kDatagramSize);

namespace {

constexpr int kTries = 3;
constexpr int kBindAttempts = 10;
constexpr int kReceiveTimeout = 1500; // milliseconds
constexpr int kCancelInterval = 50; // milliseconds, after which a wait looks whether to go on
static_assert(kReceiveTimeout % kCancelInterval == 0);
constexpr int kMostQueued = 10000; // datagrams; more do not fit a socket's buffer of 5 MB

} // namespace

int LumtarEngine::SetUdpConnect(int port, const QHostAddress &peer)
{
    if (port < 1 || port > 65535) {
        refuse(QStringLiteral("SetUdpConnect: refused, port %1 is outside 1 to 65535").arg(port));
        return 0;
    }
    if (peer.isNull()) {
        refuse(QStringLiteral("SetUdpConnect: refused, the board's address is null"));
        return 0;
    }
    // A copy: peer may be what closeLink() deletes. An IPv4 address in IPv6 clothes is an IPv4
    // peer.
    bool isIPv4 = false;
    const quint32 ipv4 = peer.toIPv4Address(&isIPv4);
    const QHostAddress board = isIPv4 ? QHostAddress(ipv4) : peer;
    closeLink();

    const QHostAddress any = board.protocol() == QAbstractSocket::IPv6Protocol
        ? QHostAddress::AnyIPv6
        : QHostAddress::AnyIPv4;
    udpSocket = new QUdpSocket;
    udpSocket->setProxy(QNetworkProxy::NoProxy); // a direct link, whatever the application uses
    udpSocket->bind(any, quint16(port));
    for (int i = 0; i < kBindAttempts && udpSocket->state() == QAbstractSocket::UnconnectedState;
         ++i) {
        udpSocket->bind(any, quint16(port + 1),
                        QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint);
    }
    if (udpSocket->state() == QAbstractSocket::UnconnectedState) {
        refuse(QStringLiteral("SetUdpConnect: cannot bind port %1 or the next one: %2")
                   .arg(port)
                   .arg(udpSocket->errorString()));
        closeLink();
        return 0;
    }
    peerAddress = new QHostAddress(board);
    localPort = quint16(port);
    return 1;
}

void LumtarEngine::closeLink()
{
    delete udpSocket;
    udpSocket = nullptr;
    delete peerAddress;
    peerAddress = nullptr;
}

void LumtarEngine::SetObserver(const EngineObserver &newObserver)
{
    observer = newObserver;
}

void LumtarEngine::Cancel()
{
    cancelled = true;
}

void LumtarEngine::Resume()
{
    cancelled = false;
}

void LumtarEngine::refuse(const QString &text) const
{
    qDebug().noquote() << text;
    if (observer.refused)
        observer.refused(text);
}

void LumtarEngine::CommWith2001(QByteArray frame)
{
    if (!udpSocket)
        return;
    if (frame.size() > kMaxFrame) {
        refuse(QStringLiteral("CommWith2001: refused, frame of %1 bytes is above %2")
                   .arg(frame.size())
                   .arg(kMaxFrame));
        return;
    }
    envelope::Datagram datagram;
    const int size = envelope::wrap(frame, datagram);
    udpSocket->writeDatagram(datagram.data(), size, *peerAddress, envelope::kBoardPort);
}

/// Waits until a datagram is there; not to the end if the exchange is cancelled.
bool LumtarEngine::waitForDatagram(int milliseconds)
{
    for (int left = milliseconds; left > 0 && !cancelled; left -= kCancelInterval) {
        if (udpSocket->waitForReadyRead(std::min(left, kCancelInterval)))
            return true;
        if (udpSocket->error() != QAbstractSocket::SocketTimeoutError)
            return false;
    }
    return false;
}

int LumtarEngine::recv2001(int mode)
{
    if (!udpSocket || !waitForDatagram(kReceiveTimeout))
        return 0;
    QHostAddress sender;
    quint16 senderPort = 0;
    const int size = int(udpSocket->readDatagram(rxBuffer, kDatagramSize, &sender, &senderPort));
    if (size < 0) // nothing was received after all, and nobody sent it
        return 0;
    *peerAddress = sender;
    localPort = senderPort;
    if (size < 1)
        return 0;
    if (mode == 0)
        return envelope::isAcknowledgement(rxBuffer, size) ? 1 : 0;
    return mode == 1 && takeDataReply(size) ? 1 : 0;
}

/// Notes where in rxBuffer the payload of a data reply of \a size bytes is. False if it is none, or
/// not whole.
bool LumtarEngine::takeDataReply(int size)
{
    const auto reply = envelope::findDataReply(rxBuffer, size);
    if (!reply)
        return false;
    if (reply->end() > size) {
        const QByteArray hex = QByteArray(rxBuffer, size).toHex();
        qDebug() << "lost data!" << size << ",i:" << reply->position << ",len:" << reply->length
                 << ",rvlen:" << reply->end();
        qDebug() << "lost data!" << hex << ",i:" << reply->position << ",len:" << reply->length
                 << ",rvlen:" << reply->end();
        return false;
    }
    replyOffset = quint16(reply->payload);
    replyLength = quint16(reply->length);
    return true;
}

int LumtarEngine::SendCommand(const QByteArray &frame)
{
    const bool wantsData = expectDataReply != 0;
    expectDataReply = 0;
    lastResult = 0;
    QElapsedTimer clock;
    if (observer.ended)
        clock.start();
    const int tries = exchange(frame, wantsData);
    if (observer.ended)
        observer.ended(
            {frame, lastResult != 0, tries, std::chrono::nanoseconds(clock.nsecsElapsed())});
    return lastResult;
}

/// The tries of SendCommand(), which leave their result in lastResult. Returns their number.
int LumtarEngine::exchange(const QByteArray &frame, bool wantsData)
{
    if (!udpSocket) {
        refuse(QStringLiteral("SendCommand: refused, the device link is not open"));
        return 0;
    }
    if (frame.size() > kMaxFrame) {
        refuse(QStringLiteral("SendCommand: refused, frame of %1 bytes is above %2")
                   .arg(frame.size())
                   .arg(kMaxFrame));
        return 0;
    }
    if (answersDue)
        throwAwayQueued();
    int tries = 0;
    while (tries < kTries && lastResult == 0 && !cancelled) {
        if (observer.sending)
            observer.sending(frame, tries + 1);
        if (cancelled) // by the observer
            break;
        ++tries;
        lastResult = tryOnce(frame, wantsData) ? 1 : 0;
    }
    if (lastResult == 0 && !cancelled)
        qDebug() << "Send command failure";
    return tries;
}

bool LumtarEngine::tryOnce(const QByteArray &frame, bool wantsData)
{
    CommWith2001(frame);
    if (!answersDue)
        return recv2001(0) && (!wantsData || recv2001(1));
    answersDue->sent(wantsData);
    return awaitAnswer(envelope::Answer::Acknowledgement) > 0
        && (!wantsData || takeDataReply(awaitAnswer(envelope::Answer::DataReply)));
}

void LumtarEngine::SetStrictExchange(bool strict)
{
    if (strict != bool(answersDue))
        answersDue.reset(strict ? new AnswersDue : nullptr);
}

/// Begins a strict exchange: what has come, or comes a moment after the last answer, is of earlier
/// ones.
void LumtarEngine::throwAwayQueued()
{
    answersDue->beginExchange();
    int left = kMostQueued;
    do {
        for (; left > 0 && udpSocket->hasPendingDatagrams(); --left) {
            const int size = receiveFromBoard();
            answersDue->take(envelope::answerIn(rxBuffer, size));
        }
    } while (left > 0 && answersDue->millisecondsToQuiet() > 0 && !cancelled
             && udpSocket->waitForReadyRead(answersDue->millisecondsToQuiet()));
}

/// Reads one datagram into rxBuffer. Returns its size, 0 if it is not the board's.
int LumtarEngine::receiveFromBoard()
{
    QHostAddress sender;
    quint16 port = 0;
    const int size = int(udpSocket->readDatagram(rxBuffer, kDatagramSize, &sender, &port));
    const bool isBoard = port == envelope::kBoardPort && sender.isEqual(*peerAddress);
    return isBoard ? std::max(size, 0) : 0;
}

/// Waits for that answer to the exchange that goes on, to the end of a try. Returns its size; 0 if
/// it has not come.
int LumtarEngine::awaitAnswer(envelope::Answer expected)
{
    QElapsedTimer clock;
    clock.start();
    for (int left = kReceiveTimeout; left > 0 && waitForDatagram(left);
         left = kReceiveTimeout - int(clock.elapsed())) {
        const int size = receiveFromBoard();
        const envelope::Answer answer = envelope::answerIn(rxBuffer, size);
        if (answersDue->take(answer) && answer == expected)
            return size;
    }
    if (!cancelled)
        answersDue->giveUp();
    return 0;
}
