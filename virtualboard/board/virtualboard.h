#pragma once

#include "virtualboard/board/linkresponder.h"
#include "virtualboard/board/texttable.h"
#include "virtualboard/inputs/inputfile.h"
#include "virtualboard/live/liveperformer.h"

#include <QHostAddress>
#include <QString>
#include <QStringList>

#include <chrono>
#include <memory>
#include <optional>

namespace virtualboard {

/// GOOSE carries the seconds since 1970 in 32 bits, and a test takes some time.
constexpr WallTime kLatestStart{std::chrono::seconds(4'190'000'000)};

struct VirtualBoardOptions
{
    QHostAddress address = QHostAddress(QHostAddress::LocalHost);
    quint16 udpPort = 2001;
    QString capture; ///< file for the frames of the process bus; empty: none
    QString inputs; ///< file with what the device under test does, in virtual time; empty: none
    /// Of the first sequence in virtual time, at most #kLatestStart. If not given, that of the
    /// first packet of the inputs, or now.
    std::optional<WallTime> startTime;
    std::chrono::seconds limit{0}; ///< the longest that a sequence is played; 0, live: for ever
    qint64 captureLimit = 0; ///< bytes of capture that end a sequence in virtual time; 0: none
    Phases phases = Phases::Continuous;
    /// Plays in real time on these interfaces; its limit, phases and capture are those above.
    std::optional<LiveOptions> live;
};

/// What a board in virtual time is given for the sequences that follow.
struct NextSequences
{
    std::optional<InputFile> inputs; ///< what the device under test does; none: nothing
    QString capture; ///< file for the frames of the process bus; empty: none
    WallTime startTime; ///< of the first of them, at most #kLatestStart
};

/// The whole board: the far end of the link, what it does on each command, what plays, the capture,
/// and the checks of what came in.
///
/// Prints nothing, and ends nothing but itself. The operations are for one thread.
class VirtualBoard
{
public:
    /// Why a board does not start.
    struct StartFailure
    {
        enum Cause {
            BadOptions, ///< a file or an interface cannot be used
            AddressInUse, ///< the address cannot be bound
        };
        Cause cause;
        QString text; ///< one sentence
    };

    /// \param notice takes what there is to tell while the board runs, a line each; called from any
    ///               thread until stop() has returned, so it must neither wait nor call the board
    VirtualBoard(VirtualBoardOptions options, NoticeHandler notice);
    ~VirtualBoard(); ///< stops
    VirtualBoard(const VirtualBoard &) = delete;
    VirtualBoard &operator=(const VirtualBoard &) = delete;

    /// Opens everything, and begins to answer. An existing capture is only overwritten when nothing
    /// else fails. Once for each board. The threads of a live board keep no capability but, with
    /// real-time scheduling, CAP_IPC_LOCK; those of the caller stay.
    [[nodiscard]] tl::expected<void, StartFailure> start();
    /// Ends what is played, completes the capture, and frees the address. What was received and
    /// played can still be asked for.
    void stop();

    /// Ends what is played, completes the capture, forgets all datagrams, and plays from now on
    /// with \a next: so one board plays the sequences of a whole test. Fails when the capture
    /// cannot be opened, and then nothing is captured. Not for a live board; only while the board
    /// runs.
    [[nodiscard]] Expected<void> prepare(NextSequences next);
    /// Waits for the end of what is played, in virtual time. Returns false if it has not come after
    /// \a timeout.
    [[nodiscard]] bool waitForEnd(std::chrono::milliseconds timeout) const;

    /// Why not all of the capture could be written; empty if it could.
    QString captureError() const;

    /// What the status read-back says.
    PlayState state() const;
    /// Whether a start command has come, obeyed or not.
    bool wasStarted() const;
    /// Whether a stop command has come since the last start.
    bool wasStopped() const;
    /// See LinkResponder::waitForReceptions().
    [[nodiscard]] bool waitForReceptions(int count, int timeoutMs) const;

    /// All datagrams, oldest first.
    QVector<Reception> receptions() const;
    /// Of the sequence being played, or the last one.
    PlayStatus status() const;
    TransitionLog log() const;

    /// What was received and played, as tables of plain text; see receivedReport().
    QString report(int width = kPageWidth) const;
    /// What is wrong with the commands; see allProblems().
    QStringList problems() const;
    /// What else went wrong: that there were notices, datagrams not recorded, a faulty capture.
    QStringList failures() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace virtualboard
