/// \file
/// The engine, with an eye on every single exchange.
#pragma once

#include <lumtarengine.h>

#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

/// An engine whose failures do not go unnoticed.
///
/// Loading and executing tell nothing about single exchanges; the engine reports those on the
/// debug channel only. The session listens there. After the first exchange that failed it takes
/// the link away from the engine: nothing more is sent, so an incomplete sequence is never
/// started, and a silent board costs the time of one exchange. It does the same when an
/// interruption has come. One session per process.
class BoardSession
{
    Q_DISABLE_COPY(BoardSession)

public:
    BoardSession();
    ~BoardSession();

    /// Opens the link. Throws BoardError when the local ports are taken.
    void open(const QHostAddress &board, int localPort);

    /// Throws Interrupted when an interruption has come, BoardError when an exchange has failed; \a
    /// action is what was going on.
    void expectAllAcknowledged(const QString &action) const;
    /// As expectAllAcknowledged(), for an operation that gave \a result: 0 counts as failed too.
    void expectSuccess(int result, const QString &action) const;

    /// Loads the configuration; returns the engine's result. Throws InputError, sending nothing,
    /// for a path that the engine's codec cannot express.
    int load(const QString &configPath);

    /// The payload of status \a which. Throws as expectSuccess().
    QByteArray readStatus(int which);
    /// Stops the board after an interruption, wherever that came. Throws BoardError when the board
    /// does not acknowledge.
    void stopInterrupted();

    LumtarEngine engine;
    /// Called after every datagram of a command without a data reply; \a again: for another try,
    /// since the one before has not been acknowledged.
    std::function<void(bool again)> onSent;

private:
    static void listen(QtMsgType type, const QMessageLogContext &context, const QString &text);
    void hear(const QString &text);
    void sent();
    void closeLink();

    QString m_board;
    QStringList m_complaints; ///< what the engine refused or ignored
    bool m_exchangeFailed = false;
    std::unique_ptr<QUdpSocket> m_closedLink; ///< the engine may still be in one of its operations
    QMetaObject::Connection m_sentSignal;
    bool m_hasSent = false;
    QtMessageHandler m_previousHandler = nullptr;
};
