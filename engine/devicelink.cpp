#include "lumtarengine.h"

#include "hexfield.h"

#include <QDebug>
#include <QNetworkProxy>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr quint16 kBoardPort = 2001;
constexpr int kTries = 3;
constexpr int kBindAttempts = 10;
constexpr int kReceiveTimeout = 1500; // milliseconds
constexpr int kDatagramSize = 1600; // the most that the engine sends or receives

// An outgoing datagram: marker, a zero byte, the length twice, the padded frame, two check bytes.
constexpr int kFrameOffset = 9;
constexpr int kCheckBytes = 2;
constexpr int kMaxFrame = (kDatagramSize - kFrameOffset - kCheckBytes) & ~1;

constexpr std::array<char, 4> kAcknowledgement{'\x0f', '\x5a', '\xf0', '\xa5'};
constexpr std::array<char, 4> kDataReply{'\x5a', '\x5a', '\x5a', '\x5a'};

// A data reply, counted from its pattern.
constexpr int kReplyLengthOffset = 5;
constexpr int kReplyPayloadOffset = 9;

/// Wraps \a frame into \a datagram; returns the datagram's size.
int wrap(const QByteArray &frame, std::array<char, kDatagramSize> &datagram)
{
    const int frameSize = static_cast<int>(frame.size());
    const int paddedSize = frameSize + frameSize % 2;
    std::fill_n(datagram.begin(), 4, '\xa5');
    datagram[4] = '\0';
    hexfield::putLittleEndian16(&datagram[5], paddedSize + kCheckBytes);
    hexfield::putLittleEndian16(&datagram[7], paddedSize + kCheckBytes);

    char *padded = &datagram[kFrameOffset];
    std::memcpy(padded, frame.constData(), static_cast<size_t>(frameSize));
    std::fill(padded + frameSize, padded + paddedSize, '\0');

    char *check = padded + paddedSize;
    check[0] = check[1] = '\0';
    for (int i = 0; i < paddedSize; ++i)
        check[i % 2] = static_cast<char>(check[i % 2] ^ padded[i]);
    return kFrameOffset + paddedSize + kCheckBytes;
}

/// Position of \a pattern in the first \a size bytes of \a buffer, -1 if it is not there.
int indexOf(const std::array<char, 4> &pattern, const char *buffer, int size)
{
    const char *end = buffer + size;
    const char *found = std::search(buffer, end, pattern.begin(), pattern.end());
    return found == end ? -1 : static_cast<int>(found - buffer);
}

} // namespace

int LumtarEngine::SetUdpConnect(int port, const QHostAddress &peer)
{
    if (port < 1 || port > 65535) {
        qDebug() << "SetUdpConnect: refused, port" << port << "is outside 1 to 65535";
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
    udpSocket->bind(any, static_cast<quint16>(port));
    for (int i = 0; i < kBindAttempts && udpSocket->state() == QAbstractSocket::UnconnectedState;
         ++i) {
        udpSocket->bind(any, static_cast<quint16>(port + 1),
                        QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint);
    }
    if (udpSocket->state() == QAbstractSocket::UnconnectedState) {
        qDebug() << "SetUdpConnect: cannot bind port" << port
                 << "or the next one:" << udpSocket->errorString();
        closeLink();
        return 0;
    }
    peerAddress = new QHostAddress(board);
    localPort = static_cast<quint16>(port);
    return 1;
}

void LumtarEngine::closeLink()
{
    delete udpSocket;
    udpSocket = nullptr;
    delete peerAddress;
    peerAddress = nullptr;
}

void LumtarEngine::CommWith2001(QByteArray frame)
{
    if (!udpSocket)
        return;
    if (frame.size() > kMaxFrame) {
        qDebug() << "CommWith2001: refused, frame of" << frame.size() << "bytes is above"
                 << kMaxFrame;
        return;
    }
    std::array<char, kDatagramSize> datagram;
    const int size = wrap(frame, datagram);
    udpSocket->writeDatagram(datagram.data(), size, *peerAddress, kBoardPort);
}

int LumtarEngine::recv2001(int mode)
{
    if (!udpSocket || !udpSocket->waitForReadyRead(kReceiveTimeout))
        return 0;
    QHostAddress sender;
    quint16 senderPort = 0;
    const int size =
        static_cast<int>(udpSocket->readDatagram(rxBuffer, kDatagramSize, &sender, &senderPort));
    if (size < 0) // nothing was received after all, and nobody sent it
        return 0;
    *peerAddress = sender;
    localPort = senderPort;
    if (size < 1)
        return 0;
    if (mode == 0)
        return indexOf(kAcknowledgement, rxBuffer, size) >= 0 ? 1 : 0;
    if (mode != 1)
        return 0;

    const int i = indexOf(kDataReply, rxBuffer, size);
    if (i < 0)
        return 0;
    const auto byteAt = [this, size](int position) {
        return position < size ? static_cast<unsigned char>(rxBuffer[position]) : 0;
    };
    const int len = byteAt(i + kReplyLengthOffset) | byteAt(i + kReplyLengthOffset + 1) << 8;
    const int payload = i + kReplyPayloadOffset;
    if (payload + len > size) {
        const QByteArray hex = QByteArray(rxBuffer, size).toHex();
        qDebug() << "lost data!" << size << ",i:" << i << ",len:" << len
                 << ",rvlen:" << payload + len;
        qDebug() << "lost data!" << hex << ",i:" << i << ",len:" << len
                 << ",rvlen:" << payload + len;
        return 0;
    }
    replyOffset = static_cast<quint16>(payload);
    replyLength = static_cast<quint16>(len);
    return 1;
}

int LumtarEngine::SendCommand(const QByteArray &frame)
{
    const bool wantsData = expectDataReply != 0;
    expectDataReply = 0;
    lastResult = 0;
    if (!udpSocket) {
        qDebug() << "SendCommand: refused, the device link is not open";
        return 0;
    }
    if (frame.size() > kMaxFrame) {
        qDebug() << "SendCommand: refused, frame of" << frame.size() << "bytes is above"
                 << kMaxFrame;
        return 0;
    }
    for (int i = 0; i < kTries && lastResult == 0; ++i) {
        CommWith2001(frame);
        lastResult = recv2001(0) && (!wantsData || recv2001(1)) ? 1 : 0;
    }
    if (lastResult == 0)
        qDebug() << "Send command failure";
    return lastResult;
}
