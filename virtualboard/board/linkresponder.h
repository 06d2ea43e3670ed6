#pragma once

#include "virtualboard/wire/commands.h"
#include "virtualboard/wire/expected.h"

#include <QByteArray>
#include <QHostAddress>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>
#include <memory>

namespace virtualboard {

/// How the board answers the datagrams of one exchange.
struct Behaviour
{
    enum Kind {
        Proper, ///< acknowledgement, then the data reply if one is due
        NoAcknowledgement, ///< silence
        LoseFirst, ///< silence for the first `count` datagrams, then Proper
        Late, ///< one Proper answer to all tries, `milliseconds` after the first
        AcknowledgementInTheMiddle, ///< the pattern between other bytes of its datagram
        OversizedAcknowledgement, ///< over 1600 bytes, the pattern at the start
        AcknowledgementBeyondBuffer, ///< over 1600 bytes, the pattern behind byte 1600; no data
                                     ///< reply
        Garbage, ///< a datagram without any pattern instead of the answer
        NoDataReply, ///< acknowledged, but no data reply
        GarbageDataReply, ///< acknowledged, then a datagram without any pattern
        ShortDataReply, ///< the data reply lacks its last byte
        DataReplyInTheMiddle, ///< a sound data reply that other bytes stand in front of
        PaddedDataReply, ///< a sound data reply, followed by bytes up to more than 1600
        OversizedDataReply, ///< announces and carries a payload that ends behind byte 1600
    };

    Kind kind = Proper;
    int count = 0; ///< LoseFirst: number of datagrams lost
    int milliseconds = 0; ///< Late: delay of the answer
};

/// One datagram that the board received.
struct Reception
{
    QByteArray datagram; ///< its beginning if it is too long
    int oversize = 0; ///< its size, if that is more than the link allows; then nothing was decoded
    QStringList problems; ///< of the envelope
    DecodedCommand decoded; ///< left empty when the envelope has problems
    int exchange = 0; ///< from 0 since start() or clear()
    int attempt = 0; ///< 0 for the first datagram of the exchange, then 1 and 2
    bool acknowledged = false; ///< an acknowledgement pattern went out for this datagram
    qint64 msecsSinceStart = 0;
};

/// The far end of the device link, made of software.
///
/// Listens on one UDP address in a thread of its own, records what comes in, and answers: every
/// datagram with a sound envelope is acknowledged, a status read-back is also given a data reply;
/// a datagram with a damaged envelope, or longer than the link allows (1600 bytes), is recorded and
/// not answered.
///
/// A new exchange begins with every datagram that is not a retry. A retry has the same bytes as the
/// datagram before it from the same address and port, and one of these holds: that was not answered
/// completely; the retry had come in before the answer went out; or it comes 1.4 to 2.0 s later, as
/// from a sender that has waited its 1.5 s in vain because the answer was lost. A sender that has
/// its answer may send the same command again at any other time, and it is a new one. As a sender
/// tries three times, a fourth such datagram begins a new exchange.
///
/// At most #kMaximumRecords datagrams, in about #kMaximumBytes with what was decoded, are kept;
/// later ones are answered and counted, but not recorded. All operations may be called from any
/// thread; only start() and stop() must not be called at the same time as each other.
class LinkResponder
{
public:
    static constexpr int kMaximumRecords = 100000;
    static constexpr qint64 kMaximumBytes = qint64(64) * 1024 * 1024;

    /// \param port UDP port; 0 lets the system choose one, see port().
    explicit LinkResponder(const QHostAddress &address, quint16 port = 2001);
    ~LinkResponder(); ///< stops the board
    LinkResponder(const LinkResponder &) = delete;
    LinkResponder &operator=(const LinkResponder &) = delete;

    /// Binds the address and begins to answer; forgets what an earlier run recorded. Behaviours
    /// set before stay. Fails when the address cannot be bound.
    [[nodiscard]] Expected<void> start();
    /// Ends the thread and frees the address; the records stay. Answers still due are dropped.
    void stop();

    QHostAddress address() const;
    quint16 port() const; ///< the port bound, once started

    /// Payload of the data reply: at most 60000 bytes, else false and nothing changes.
    /// Eight bytes to begin with.
    bool setStatus(const QByteArray &payload);
    /// Asks \a source for the payload instead; `which` is that of the read-back command. Called in
    /// the board's thread, must not call the board. Only before start().
    void setStatusSource(std::function<QByteArray(int which)> source);
    /// Hands every acknowledged command to \a handler, once, before its acknowledgement goes out.
    /// Called in the board's thread, must not call the board. Only before start().
    void setCommandHandler(std::function<void(const DecodedCommand &)> handler);

    /// Calls \a prepare in the board's thread, once, when the address is bound and before start()
    /// returns. Only before start().
    void setThreadPreparation(std::function<void()> prepare);

    /// Behaviour in all exchanges that setBehaviour() does not name.
    void setDefaultBehaviour(Behaviour behaviour);
    /// \param exchange counted from 0 since start() or clear()
    void setBehaviour(int exchange, Behaviour behaviour);

    /// All datagrams, oldest first.
    QVector<Reception> receptions() const;
    /// The command frames of all acknowledged exchanges, once each, oldest first.
    QVector<QByteArray> frames() const;
    /// Number of datagrams that came in after the record was full.
    int dropped() const;

    /// Forgets all receptions, all answers still due and all behaviours of single exchanges;
    /// exchanges count from 0 again.
    void clear();

    /// Waits until \a count datagrams have come in since start() or clear().
    /// Returns false if they have not after \a timeoutMs milliseconds.
    [[nodiscard]] bool waitForReceptions(int count, int timeoutMs) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

/// The first acknowledged reception of every exchange: one per command that came through.
[[nodiscard]] QVector<Reception> acknowledgedExchanges(const QVector<Reception> &receptions);

} // namespace virtualboard
