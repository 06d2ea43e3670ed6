/// \file
/// lumtar-board: runs a board made of software and tells what it received and played.

#include "boardoptions.h"

#include <boardlogic.h>
#include <capturefile.h>
#include <liveperformer.h>
#include <report.h>
#include <virtualboard.h>
#include <virtualtime.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QUdpSocket>

#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>

using namespace virtualboard;

namespace {

constexpr int kProblems = 1;
constexpr int kBadUsage = 2;

struct BoardFailure
{
    QString message;
};

volatile std::sig_atomic_t interrupted = 0;

/// A second signal ends the program at once, whatever it waits for.
void interrupt(int signal)
{
    interrupted = 1;
    std::signal(signal, SIG_DFL);
}

void print(const QString &text)
{
    std::fputs(text.toUtf8().constData(), stdout);
    std::fflush(stdout);
}

void complain(const QString &text)
{
    std::fprintf(stderr, "lumtar-board: %s\n", text.toLocal8Bit().constData());
}

/// What the board reports, on its way from any thread to the one that may wait for a reader.
class ReportQueue
{
public:
    void add(const QString &line)
    {
        constexpr int kMost = 1000; // until the next flush()
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_lines.size() < kMost)
            m_lines << line;
        else
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
};

/// Waits for the end. Returns whether it came in time.
bool waitForEnd(const VirtualBoard &board, const BoardLogic &logic, ReportQueue &lines,
                const BoardOptions &options)
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
        const PlayState state = logic.state();
        lines.flush();
        if (board.waitForReceptions(received + 1, kPoll)) {
            ++received;
            quiet.start();
            continue;
        }
        const bool ended = logic.wasStarted() && state != PlayState::Running;
        if (options.once && (logic.wasStopped() || (ended && quiet.elapsed() > kQuiet)))
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

constexpr qint64 kSecond = 1'000'000'000; // ns

qint64 startTime(const BoardOptions &options, const std::optional<InputFile> &inputs)
{
    if (options.startTime)
        return *options.startTime;
    const std::optional<qint64> first = inputs ? inputs->firstTime() : std::nullopt;
    if (first && (*first < 0 || *first > kLatestStart))
        throw UsageError{options.inputs
                         + QStringLiteral(": its first packet is not from 1970 to 2102; give "
                                          "--start-time")};
    return first.value_or(QDateTime::currentSecsSinceEpoch() * kSecond);
}

std::unique_ptr<Performer> virtualPerformer(const BoardOptions &options, CaptureSink *capture,
                                            const Report &report)
{
    VirtualTimePerformer::Options play;
    if (!options.inputs.isEmpty()) {
        QString error;
        play.inputs = InputFile::read(options.inputs, &error);
        if (!play.inputs)
            throw UsageError{error};
    }
    play.startTime = startTime(options, play.inputs);
    play.limit = options.limit * kSecond;
    play.sink = capture;
    return std::make_unique<VirtualTimePerformer>(std::move(play), report);
}

std::unique_ptr<Performer> livePerformer(const BoardOptions &options, CaptureSink *capture,
                                         const Report &report)
{
    // Of 1 to 99: above everything that does not ask, below the kernel's own.
    constexpr int kPriority = 50;
    LiveOptions play;
    play.interfaces = options.interfaces;
    play.iKnow = options.iKnow;
    if (options.realtime)
        play.realtime = kPriority;
    play.cpu = options.cpu;
    play.limit = options.limit * kSecond;
    play.capture = capture;
    QString error;
    std::unique_ptr<Performer> result = LivePerformer::open(play, report, &error);
    if (!result)
        throw UsageError{error};
    return result;
}

/// Throws BoardFailure if somebody else listens there.
void expectFree(const BoardOptions &options)
{
    QUdpSocket probe;
    if (!probe.bind(options.address, options.udpPort))
        throw BoardFailure{QStringLiteral("cannot bind %1, UDP port %2: %3")
                               .arg(options.address.toString())
                               .arg(options.udpPort)
                               .arg(probe.errorString())};
}

/// Tells what went wrong, with what was received, too; returns the exit status.
int conclude(const VirtualBoard &board, const BoardOptions &options, QStringList failures)
{
    const QVector<Reception> receptions = board.receptions();
    failures << unmetExpectations(receptions, options.expected);
    if (board.dropped() > 0)
        failures << QStringLiteral("%1 datagrams were not recorded").arg(board.dropped());
    for (const QString &failure : std::as_const(failures))
        complain(failure);
    return failures.isEmpty() && allProblems(receptions).isEmpty() ? 0 : kProblems;
}

int run(const BoardOptions &options)
{
    ReportQueue lines;
    ReportCounter reports([&lines](const QString &line) { lines.add(line); });
    const Report report = [&reports](const QString &line) { reports.report(line); };
    CaptureSink capture;
    CaptureSink *const sink = options.capture.isEmpty() ? nullptr : &capture;
    std::unique_ptr<Performer> performer = options.live ? livePerformer(options, sink, report)
                                                        : virtualPerformer(options, sink, report);
    // Only now, so that nothing that is wrong costs an earlier file.
    expectFree(options);
    if (sink && !capture.open(options.capture))
        throw UsageError{capture.errorString()};
    BoardLogic logic(*performer, reports);
    VirtualBoard board(options.address, options.udpPort);
    board.setCommandHandler([&logic](const DecodedCommand &command) { logic.obey(command); });
    board.setStatusSource([&logic](int which) { return logic.status(which); });
    if (!board.start())
        throw BoardFailure{board.errorString()};
    print(QStringLiteral("ready on %1, UDP port %2\n")
              .arg(options.address.toString())
              .arg(options.udpPort));
    const bool inTime = waitForEnd(board, logic, lines, options);
    board.stop();
    performer->stop();
    const PlayStatus status = performer->status();
    const TransitionLog log = performer->log();
    performer.reset(); // which completes the capture
    capture.flush();
    lines.flush();

    print(::report(board.receptions()));
    print(playReport(status, log));
    if (options.live)
        print(QStringLiteral(" %1\n").arg(punctualityText(status.punctuality)));
    QStringList failures;
    if (reports.count() > 0)
        failures << QStringLiteral("%1 problems were reported").arg(reports.count());
    if (!inTime)
        failures << QStringLiteral("not ended within %1 s").arg(options.timeout);
    if (!capture.errorString().isEmpty())
        failures << capture.errorString();
    return conclude(board, options, failures);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumtar-board"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PROGRAM_VERSION));
    for (const int each : {SIGINT, SIGTERM, SIGHUP})
        std::signal(each, interrupt);
    std::signal(SIGPIPE, SIG_IGN); // nobody need read what is printed
    try {
        return run(readBoardOptions(QCoreApplication::arguments()));
    } catch (const UsageError &error) {
        complain(error.message);
        return kBadUsage;
    } catch (const BoardFailure &failure) {
        complain(failure.message);
        return kProblems;
    }
}
