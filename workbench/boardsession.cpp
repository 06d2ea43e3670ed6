#include "workbench/boardsession.h"

#include <QFileInfo>

namespace workbench {

BoardSession::BoardSession()
{
    engine.SetStrictExchange(true);
    engine.SetObserver({[this](const QByteArray &, int attempt) { sending(attempt); },
                        [this](const EngineObserver::Exchange &exchange) { ended(exchange); },
                        [this](const QString &text) {
                            if (m_refusal.isEmpty())
                                m_refusal = text;
                        }});
}

void BoardSession::sending(int attempt)
{
    if (isInterrupted && isInterrupted())
        engine.Cancel();
    else if (onSending)
        onSending(attempt > 1);
}

void BoardSession::ended(const EngineObserver::Exchange &exchange)
{
    if (exchange.succeeded)
        return;
    m_exchangeFailed = true;
    engine.Cancel();
}

Expected<void> BoardSession::open(const QHostAddress &board, int localPort)
{
    m_board = board.toString();
    if (engine.SetUdpConnect(localPort, board) == 0)
        return failure(Failure::Board,
                       QStringLiteral("cannot open the link: local UDP ports %1 and %2 are taken")
                           .arg(localPort)
                           .arg(localPort + 1));
    // The engine awaits an answer all the same.
    QObject::connect(engine.udpSocket, &QAbstractSocket::errorOccurred, engine.udpSocket,
                     [this](QAbstractSocket::SocketError error) {
                         if (error != QAbstractSocket::SocketTimeoutError)
                             m_sendingError = engine.udpSocket->errorString();
                     });
    return {};
}

Expected<void> BoardSession::load(const testconfiguration::Document &configuration)
{
    return outcome(engine.LoadConfiguration(configuration) != 0,
                   QStringLiteral("loading ") + QFileInfo(configuration.path()).fileName());
}

Expected<void> BoardSession::execute(const SequenceTimes &times, const QString &name)
{
    return outcome(engine.ExecSeqTimed(times) != 0 && engine.lastResult != 0,
                   QStringLiteral("executing ") + name);
}

Expected<QByteArray> BoardSession::readStatus(int which)
{
    unsigned char status[sizeof engine.rxBuffer] = {};
    return outcome(engine.CheckSeqExec(which, status) != 0,
                   QStringLiteral("reading status %1").arg(which))
        .map(
            [&] { return QByteArray(reinterpret_cast<const char *>(status), engine.replyLength); });
}

Expected<void> BoardSession::stop()
{
    return outcome(engine.StopExec() != 0, QStringLiteral("stopping"));
}

Expected<void> BoardSession::stopInterrupted()
{
    isInterrupted = nullptr;
    engine.Resume();
    if (engine.StopExec() != 0)
        return {};
    return failure(Failure::Board,
                   QStringLiteral("interrupted, but the board at %1 did not answer the stop "
                                  "command; it may still play")
                       .arg(m_board));
}

Expected<void> BoardSession::outcome(bool succeeded, const QString &action) const
{
    if (isInterrupted && isInterrupted())
        return failure(Failure::Interrupted, QStringLiteral("interrupted"));
    if (m_exchangeFailed && !m_sendingError.isEmpty())
        return failure(Failure::Board,
                       QStringLiteral("cannot send to the board at %1 while %2: %3")
                           .arg(m_board, action, m_sendingError));
    if (m_exchangeFailed)
        return failure(Failure::Board,
                       QStringLiteral("the board at %1 did not answer while %2; nothing more was "
                                      "sent to it")
                           .arg(m_board, action));
    if (!m_refusal.isEmpty())
        return failure(Failure::Board, QStringLiteral("while %1: %2").arg(action, m_refusal));
    if (!succeeded)
        return failure(Failure::Board, QStringLiteral("failed: ") + action);
    return {};
}

} // namespace workbench
