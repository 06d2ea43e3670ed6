/// \file
/// lumtar-board: runs a board made of software and tells what it received and played.

#include "tools/lumtar-board/boardoptions.h"
#include "tools/terminal/terminal.h"
#include "virtualboard/live/liveprivileges.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cerrno>
#include <csignal>
#include <mutex>
#include <utility>

using namespace virtualboard;

namespace {

constexpr int kProblems = 1;
constexpr int kBadUsage = 2;

volatile std::sig_atomic_t interrupted = 0;

/// A second signal ends the program at once, whatever it waits for.
void interrupt(int signal)
{
    interrupted = 1;
    std::signal(signal, SIG_DFL);
}

/// What the board reports, on its way from any thread to the one that may wait for a reader.
class NoticeQueue
{
public:
    void add(const QString &line)
    {
        constexpr int kMost = 100; // until the next flush()
        constexpr int kMostOfAll = 10000;
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_lines.size() < kMost && m_told < kMostOfAll) {
            m_lines << line;
            ++m_told;
        } else
            ++m_left;
    }
    void flush()
    {
        QStringList lines;
        int left = 0;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            lines.swap(m_lines);
            std::swap(left, m_left);
        }
        for (const QString &line : std::as_const(lines))
            complain(line);
        if (left > 0)
            complain(QStringLiteral("%1 more problems, which came too fast to be told").arg(left));
    }

private:
    std::mutex m_mutex;
    QStringList m_lines;
    int m_left = 0;
    int m_told = 0;
};

/// Waits for the end. Returns whether it came in time.
bool waitForEnd(const VirtualBoard &board, NoticeQueue &notices, const BoardOptions &options)
{
    constexpr int kPoll = 100; // ms
    constexpr int kQuiet = 2000; // ms after which nobody wants to know about an ended sequence
    QElapsedTimer clock;
    clock.start();
    int received = 0;
    QElapsedTimer quiet;
    quiet.start();
    while (interrupted == 0
           && (options.timeout == 0 || clock.elapsed() < options.timeout * 1000LL)) {
        const PlayState state = board.state();
        notices.flush();
        if (board.waitForReceptions(received + 1, kPoll)) {
            ++received;
            quiet.start();
            continue;
        }
        const bool ended = board.wasStarted() && state != PlayState::Running;
        if (options.once && (board.wasStopped() || (ended && quiet.elapsed() > kQuiet)))
            return true;
        if (state == PlayState::Running)
            quiet.start();
    }
    return interrupted != 0 || !options.once;
}

/// What the commands fall short of, or exceed.
QStringList unmetExpectations(const QVector<Reception> &receptions, QMap<QString, int> missing)
{
    const QMap<QString, int> expected = missing;
    for (const Reception &each : acknowledgedExchanges(receptions))
        --missing[commandName(each.decoded.command)];
    QStringList result;
    for (auto kind = expected.begin(); kind != expected.end(); ++kind) {
        if (missing[kind.key()] != 0)
            result.append(QStringLiteral("%1 \u00d7 %2 expected, %3 received")
                              .arg(kind.value())
                              .arg(kind.key())
                              .arg(kind.value() - missing[kind.key()]));
    }
    return result;
}

/// Returns the exit status.
int run(const BoardOptions &options)
{
    NoticeQueue notices; // ends after the board, which tells it
    VirtualBoard board(options.board, [&notices](const QString &line) { notices.add(line); });
    if (const auto started = board.start(); !started) {
        complain(started.error().text);
        return started.error().cause == VirtualBoard::StartFailure::BadOptions ? kBadUsage
                                                                               : kProblems;
    }
    // Everything is open, and the threads of the board do the same.
    const auto &live = options.board.live;
    if (live && !giveUpCapabilities(live->realtime.has_value(), complain))
        return kProblems;
    say(QStringLiteral("ready on %1, UDP port %2")
            .arg(options.board.address.toString())
            .arg(options.board.udpPort));
    const bool inTime = waitForEnd(board, notices, options);
    board.stop();
    notices.flush();
    sayLines(board.report(outputWidth()));

    QStringList failures = board.failures();
    if (!inTime)
        failures << QStringLiteral("not ended within %1 s").arg(options.timeout);
    failures << unmetExpectations(board.receptions(), options.expected);
    if (outputError() != 0 && outputError() != EPIPE) // nobody need read to the end
        failures << QStringLiteral("cannot print: ") + outputFailure();
    for (const QString &failure : std::as_const(failures))
        complain(failure);
    return failures.isEmpty() && board.problems().isEmpty() ? 0 : kProblems;
}

} // namespace

int main(int argc, char *argv[])
{
    prepareTerminal();
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumtar-board"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PROGRAM_VERSION));
    for (const int each : {SIGINT, SIGTERM, SIGHUP})
        std::signal(each, interrupt);
    std::signal(SIGPIPE, SIG_IGN); // nobody need read what is printed
    const Expected<BoardOptions> options = readBoardOptions(QCoreApplication::arguments());
    if (options)
        return run(*options);
    complain(options.error());
    return kBadUsage;
}
