/// \file
/// The engine, with an eye on every single exchange.
#pragma once

#include <lumtarengine.h>

#include <QHostAddress>
#include <QString>
#include <QStringList>

#include <memory>

/// An engine whose failures do not go unnoticed.
///
/// Loading and executing tell nothing about single exchanges; the engine reports those on the
/// debug channel only. The session listens there. After the first exchange that failed it takes
/// the link away from the engine: nothing more is sent, so an incomplete sequence is never
/// started, and a silent board costs the time of one exchange. One session per process.
class BoardSession
{
    Q_DISABLE_COPY(BoardSession)

public:
    BoardSession();
    ~BoardSession();

    /// Opens the link. Throws BoardError when the local ports are taken.
    void open(const QHostAddress &board, int localPort);

    /// Throws BoardError when an exchange has failed; \a action is what was going on.
    void expectAllAcknowledged(const QString &action) const;
    /// As expectAllAcknowledged(), for an operation that gave \a result: 0 counts as failed too.
    void expectSuccess(int result, const QString &action) const;

    /// Loads the configuration; returns the engine's result. Throws InputError, sending nothing,
    /// for a path that the engine's codec cannot express.
    int load(const QString &configPath);

    LumtarEngine engine;

private:
    static void listen(QtMsgType type, const QMessageLogContext &context, const QString &text);
    void hear(const QString &text);

    QString m_board;
    QStringList m_complaints; ///< what the engine refused or ignored
    bool m_exchangeFailed = false;
    std::unique_ptr<QUdpSocket> m_closedLink; ///< the engine may still be in one of its operations
    QtMessageHandler m_previousHandler = nullptr;
};
