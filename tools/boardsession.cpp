#include "boardsession.h"

#include "failures.h"

#include <textcodec.h>

#include <QLoggingCategory>

#include <utility>

namespace {

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
        m_closedLink.reset(std::exchange(engine.udpSocket, nullptr));
    } else if (text != QLatin1String("SendCommand: refused, the device link is not open")
               && !text.startsWith(QLatin1String("lost data!"))) {
        m_complaints.append(text);
    }
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
}

void BoardSession::expectAllAcknowledged(const QString &action) const
{
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
