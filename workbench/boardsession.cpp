#include "boardsession.h"

#include "failures.h"
#include "interruption.h"

#include <textcodec.h>

#include <QLoggingCategory>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr char kAcknowledgement[] = {'\x0f', '\x5a', '\xf0', '\xa5'};

BoardSession *theSession = nullptr;

} // namespace

BoardSession::BoardSession()
{
    theSession = this;
    m_previousHandler = qInstallMessageHandler(&BoardSession::listen);
    // The system's or the user's logging rules may have silenced it.
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, true);
}

BoardSession::~BoardSession()
{
    qInstallMessageHandler(m_previousHandler);
    theSession = nullptr;
}

void BoardSession::listen(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtDebugMsg)
        theSession->hear(text);
    else if (theSession->m_previousHandler)
        theSession->m_previousHandler(type, context, text);
}

void BoardSession::hear(const QString &text)
{
    if (text == QLatin1String("Send command failure")) {
        m_exchangeFailed = true;
        closeLink();
    } else if (text != QLatin1String("SendCommand: refused, the device link is not open")
               && !text.startsWith(QLatin1String("lost data!"))) {
        m_complaints.append(text);
    }
}

/// Part of the engine's sending: the datagram is out, next the engine waits for the answer.
void BoardSession::sent()
{
    const auto end = std::end(engine.rxBuffer);
    const bool isAnswered = std::search(std::begin(engine.rxBuffer), end,
                                        std::begin(kAcknowledgement), std::end(kAcknowledgement))
        != end;
    std::fill(std::begin(engine.rxBuffer), end, '\0'); // what comes now is of this datagram
    if (onSent)
        onSent(m_hasSent && !isAnswered);
    m_hasSent = true;
    if (interruption::hasCome())
        closeLink();
}

void BoardSession::closeLink()
{
    if (engine.udpSocket)
        m_closedLink.reset(std::exchange(engine.udpSocket, nullptr));
}

void BoardSession::stopInterrupted()
{
    constexpr int kAnswerTime = 1500; // ms; the engine waits as long
    constexpr int kQuietTime = 20; // ms, between two datagrams
    constexpr int kMostAnswers = 6; // three tries of two datagrams
    QObject::disconnect(m_sentSignal);
    if (m_closedLink) {
        // The answer to what went out last must not be taken for the one to the stop command.
        int time = kAnswerTime;
        for (int i = 0; i < kMostAnswers && m_closedLink->waitForReadyRead(time); ++i) {
            m_closedLink->readDatagram(nullptr, 0);
            time = kQuietTime;
        }
        engine.udpSocket = m_closedLink.release();
    }
    if (engine.StopExec() == 0)
        throw BoardError{QStringLiteral("interrupted, but the board at %1 did not answer the stop "
                                        "command; it may still play")
                             .arg(m_board)};
}

QByteArray BoardSession::readStatus(int which)
{
    unsigned char status[sizeof engine.rxBuffer] = {};
    expectSuccess(engine.CheckSeqExec(which, status),
                  QStringLiteral("reading status %1").arg(which));
    return QByteArray(reinterpret_cast<const char *>(status), engine.replyLength);
}

int BoardSession::load(const QString &configPath)
{
    QByteArray path = textcodec::toCString(configPath);
    if (textcodec::fromCString(path.constData()) != configPath)
        throw InputError{configPath + QStringLiteral(": the path has characters outside GBK")};
    return engine.InitGPP(path.data());
}

void BoardSession::open(const QHostAddress &board, int localPort)
{
    m_board = board.toString();
    if (engine.SetUdpConnect(localPort, board) == 0)
        throw BoardError{QStringLiteral("cannot open the link: local UDP ports %1 and %2 are taken")
                             .arg(localPort)
                             .arg(localPort + 1)};
    m_sentSignal = QObject::connect(engine.udpSocket, &QIODevice::bytesWritten, [this] { sent(); });
}

void BoardSession::expectAllAcknowledged(const QString &action) const
{
    if (interruption::hasCome())
        throw Interrupted{};
    if (m_exchangeFailed)
        throw BoardError{QStringLiteral("the board at %1 did not answer while %2; nothing more was "
                                        "sent to it")
                             .arg(m_board, action)};
    if (!m_complaints.isEmpty())
        throw BoardError{QStringLiteral("while %1: %2").arg(action, m_complaints.first())};
}

void BoardSession::expectSuccess(int result, const QString &action) const
{
    expectAllAcknowledged(action);
    if (result == 0)
        throw BoardError{QStringLiteral("failed: ") + action};
}
