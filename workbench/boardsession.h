/// \file
/// The engine, with an eye on every single exchange.
#pragma once

#include "configuration/testconfiguration.h"
#include "engine/lumtarengine.h"
#include "workbench/failure.h"

#include <QHostAddress>
#include <QString>

#include <functional>

namespace workbench {

/// An engine whose failures do not go unnoticed.
///
/// Loading and executing tell nothing about single exchanges; the session observes them. After the
/// first exchange that failed nothing more is sent, so an incomplete sequence is never started, and
/// a silent board costs the time of one exchange. The same holds when an interruption has come.
class BoardSession
{
    Q_DISABLE_COPY(BoardSession)

public:
    BoardSession();

    /// Opens the link; fails when the local ports are taken.
    [[nodiscard]] Expected<void> open(const QHostAddress &board, int localPort);

    // Each of these fails when an interruption has come, when an exchange has failed, and when the
    // engine has refused something.

    [[nodiscard]] Expected<void> load(const testconfiguration::Document &configuration);
    /// Executes the engine's steps with \a times; \a name is what messages call them.
    [[nodiscard]] Expected<void> execute(const SequenceTimes &times, const QString &name);
    /// The payload of status \a which.
    [[nodiscard]] Expected<QByteArray> readStatus(int which);
    [[nodiscard]] Expected<void> stop();

    /// Whether an exchange has failed: what the board does since then is not known.
    [[nodiscard]] bool isLost() const { return m_exchangeFailed; }

    /// Stops the board after an interruption, wherever that came.
    [[nodiscard]] Expected<void> stopInterrupted();

    LumtarEngine engine;
    /// Called before every datagram; \a again: for another try, since the one before has not been
    /// acknowledged.
    std::function<void(bool again)> onSending;
    /// Whether an interruption has come; looked at before every datagram.
    std::function<bool()> isInterrupted;

private:
    void sending(int attempt);
    void ended(const EngineObserver::Exchange &exchange);
    [[nodiscard]] Expected<void> outcome(bool succeeded, const QString &action) const;

    QString m_board;
    QString m_refusal; ///< the first thing that the engine refused
    QString m_sendingError; ///< the last one of the socket other than an answer that does not come
    bool m_exchangeFailed = false;
};

} // namespace workbench
