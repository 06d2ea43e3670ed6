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

#include <csignal>
#include <cstdio>
#include <memory>

using namespace virtualboard;

namespace {

constexpr int kProblems = 1;
constexpr int kBadUsage = 2;

volatile std::sig_atomic_t interrupted = 0;

void print(const QString &text)
{
    std::fputs(text.toUtf8().constData(), stdout);
    std::fflush(stdout);
}

void complain(const QString &text)
{
    std::fprintf(stderr, "lumtar-board: %s\n", text.toLocal8Bit().constData());
}

/// Waits for the end. Returns whether it came in time.
bool waitForEnd(const VirtualBoard &board, const BoardLogic &logic, const BoardOptions &options)
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
        if (board.waitForReceptions(received + 1, kPoll)) {
            ++received;
            quiet.start();
            continue;
        }
        const bool ended = state == PlayState::Finished || state == PlayState::Stopped;
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
    constexpr int kPriority =
        50; // of 1 to 99: above everything that does not ask, below the kernel
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

int run(const BoardOptions &options)
{
    ReportCounter reports(complain);
    const Report report = [&reports](const QString &line) { reports.report(line); };
    CaptureSink capture;
    if (!options.capture.isEmpty() && !capture.open(options.capture))
        throw UsageError{capture.errorString()};
    CaptureSink *const sink = options.capture.isEmpty() ? nullptr : &capture;
    const std::unique_ptr<Performer> performer = options.live
        ? livePerformer(options, sink, report)
        : virtualPerformer(options, sink, report);
    BoardLogic logic(*performer, reports);
    VirtualBoard board(options.address, options.udpPort);
    board.setCommandHandler([&logic](const DecodedCommand &command) { logic.obey(command); });
    board.setStatusSource([&logic](int which) { return logic.status(which); });
    if (!board.start()) {
        complain(board.errorString());
        return kProblems;
    }
    print(QStringLiteral("ready on %1, UDP port %2\n")
              .arg(options.address.toString())
              .arg(options.udpPort));
    const bool inTime = waitForEnd(board, logic, options);
    board.stop();
    performer->stop();
    capture.flush();

    const QVector<Reception> receptions = board.receptions();
    print(::report(receptions));
    const PlayStatus status = performer->status();
    print(playReport(status, performer->log()));
    if (options.live)
        print(QStringLiteral(" %1\n").arg(punctualityText(status.punctuality)));
    QStringList failures = unmetExpectations(receptions, options.expected);
    if (!inTime)
        failures.append(QStringLiteral("not ended within %1 s").arg(options.timeout));
    if (board.dropped() > 0)
        failures.append(QStringLiteral("%1 datagrams were not recorded").arg(board.dropped()));
    if (!capture.errorString().isEmpty())
        failures.append(capture.errorString());
    for (const QString &failure : failures)
        complain(failure);
    const bool sound = failures.isEmpty() && reports.count() == 0;
    return sound && allProblems(receptions).isEmpty() ? 0 : kProblems;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumtar-board"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PROGRAM_VERSION));
    std::signal(SIGINT, [](int) { interrupted = 1; });
    std::signal(SIGTERM, [](int) { interrupted = 1; });
    try {
        return run(readBoardOptions(QCoreApplication::arguments()));
    } catch (const UsageError &error) {
        complain(error.message);
        return kBadUsage;
    }
}
