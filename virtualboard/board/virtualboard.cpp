#include "virtualboard/board/virtualboard.h"

#include "virtualboard/board/boardlogic.h"
#include "virtualboard/board/boardreport.h"
#include "virtualboard/board/crosscheck.h"
#include "virtualboard/board/texttable.h"
#include "virtualboard/board/virtualtime.h"
#include "virtualboard/capture/capturefile.h"
#include "virtualboard/live/liveprivileges.h"

#include <QNetworkProxy>
#include <QUdpSocket>

#include <utility>

namespace virtualboard {

namespace {

Expected<WallTime> startTime(const VirtualBoardOptions &options,
                             const std::optional<InputFile> &inputs)
{
    if (options.startTime)
        return *options.startTime;
    const std::optional<WallTime> first = inputs ? inputs->firstTime() : std::nullopt;
    if (first && (*first < WallTime() || *first > kLatestStart))
        return Refusal(options.inputs
                       + QStringLiteral(": its first packet is not from 1970 to 2102; a start time "
                                        "has to be given"));
    return first.value_or(std::chrono::floor<std::chrono::seconds>(WallClock::now()));
}

/// \param same is given the performer too
Expected<std::unique_ptr<Performer>> virtualPerformer(const VirtualBoardOptions &options,
                                                      CaptureSink *capture,
                                                      const NoticeHandler &notice,
                                                      VirtualTimePerformer **same)
{
    VirtualTimePerformer::Options play;
    if (!options.inputs.isEmpty()) {
        auto inputs = InputFile::read(options.inputs);
        if (!inputs)
            return Refusal(inputs.error());
        play.inputs = std::move(*inputs);
    }
    const Expected<WallTime> start = startTime(options, play.inputs);
    if (!start)
        return Refusal(start.error());
    play.startTime = *start;
    play.limit = options.limit;
    play.phases = options.phases;
    play.capture = capture;
    play.captureLimit = options.captureLimit;
    auto result = std::make_unique<VirtualTimePerformer>(std::move(play), notice);
    *same = result.get();
    return result;
}

Expected<std::unique_ptr<Performer>>
livePerformer(const VirtualBoardOptions &options, CaptureSink *capture, const NoticeHandler &notice)
{
    LiveOptions play = *options.live;
    play.limit = options.limit;
    play.phases = options.phases;
    play.capture = capture;
    auto result = LivePerformer::open(play, notice);
    if (!result)
        return Refusal(result.error());
    return std::move(*result);
}

/// Why the address cannot be bound; empty if it can.
QString whyNotFree(const VirtualBoardOptions &options)
{
    QUdpSocket probe;
    probe.setProxy(QNetworkProxy::NoProxy); // whatever the system has for others
    if (probe.bind(options.address, options.udpPort))
        return {};
    return QStringLiteral("cannot bind %1, UDP port %2: %3")
        .arg(options.address.toString())
        .arg(options.udpPort)
        .arg(probe.errorString());
}

} // namespace

struct VirtualBoard::Private
{
    Private(VirtualBoardOptions given, NoticeHandler notice)
        : options(std::move(given))
        , notices(std::move(notice))
        , link(options.address, options.udpPort)
    { }

    void prepareLink(BoardLogic *obeying, const NoticeHandler &notice);

    const VirtualBoardOptions options;
    NoticeCounter notices;
    std::unique_ptr<CaptureSink> capture = std::make_unique<CaptureSink>();
    std::unique_ptr<Performer> performer; ///< from start() to stop()
    VirtualTimePerformer *virtualTime = nullptr; ///< the same, unless it is live
    std::unique_ptr<BoardLogic> logic; ///< likewise
    LinkResponder link; // ends before what it calls

    // What the performer and the logic leave behind.
    PlayState state = PlayState::Idle;
    PlayStatus status;
    TransitionLog log;
    bool wasStarted = false;
    bool wasStopped = false;
};

void VirtualBoard::Private::prepareLink(BoardLogic *obeying, const NoticeHandler &notice)
{
    link.setCommandHandler([obeying](const DecodedCommand &each) { obeying->obey(each); });
    link.setStatusSource([obeying](int which) { return obeying->status(which); });
    if (options.live) {
        link.setThreadPreparation([notice, locksMemory = options.live->realtime.has_value()] {
            giveUpCapabilities(locksMemory, notice);
        });
    }
}

VirtualBoard::VirtualBoard(VirtualBoardOptions options, NoticeHandler notice)
    : d(std::make_unique<Private>(std::move(options), std::move(notice)))
{ }

VirtualBoard::~VirtualBoard()
{
    stop();
}

tl::expected<void, VirtualBoard::StartFailure> VirtualBoard::start()
{
    const auto failure = [](StartFailure::Cause cause, const QString &text) {
        return tl::unexpected<StartFailure>({cause, text});
    };
    const NoticeHandler notice = [this](const QString &line) { d->notices.report(line); };
    CaptureSink *const capture = d->options.capture.isEmpty() ? nullptr : d->capture.get();
    VirtualTimePerformer *virtualTime = nullptr;
    Expected<std::unique_ptr<Performer>> performer = d->options.live
        ? livePerformer(d->options, capture, notice)
        : virtualPerformer(d->options, capture, notice, &virtualTime);
    if (!performer)
        return failure(StartFailure::BadOptions, performer.error());
    // Only then the capture, so that nothing that is wrong costs an earlier file.
    const QString taken = whyNotFree(d->options);
    if (!taken.isEmpty())
        return failure(StartFailure::AddressInUse, taken);
    if (capture) {
        if (const Expected<void> opened = capture->open(d->options.capture); !opened)
            return failure(StartFailure::BadOptions, opened.error());
    }

    auto logic = std::make_unique<BoardLogic>(**performer, d->notices);
    d->prepareLink(logic.get(), notice);
    if (const Expected<void> started = d->link.start(); !started)
        return failure(StartFailure::AddressInUse, started.error());
    d->performer = std::move(*performer);
    d->virtualTime = virtualTime;
    d->logic = std::move(logic);
    return {};
}

void VirtualBoard::stop()
{
    if (!d->performer)
        return;
    d->link.stop();
    d->performer->stop();
    d->state = d->logic->state();
    d->wasStarted = d->logic->wasStarted();
    d->wasStopped = d->logic->wasStopped();
    d->status = d->performer->status();
    d->log = d->performer->log();
    d->logic.reset();
    d->virtualTime = nullptr;
    d->performer.reset(); // which completes the capture
    (void)d->capture->flush(); // failures() tells
}

Expected<void> VirtualBoard::prepare(NextSequences next)
{
    VirtualTimePerformer::Options play;
    play.startTime = next.startTime;
    play.limit = d->options.limit;
    play.phases = d->options.phases;
    d->virtualTime->prepare(play); // nobody uses the capture any more
    d->link.clear();
    d->capture = std::make_unique<CaptureSink>();
    if (!next.capture.isEmpty()) {
        if (Expected<void> opened = d->capture->open(next.capture); !opened)
            return opened;
        play.capture = d->capture.get();
        play.captureLimit = d->options.captureLimit;
    }
    play.inputs = std::move(next.inputs);
    d->virtualTime->prepare(std::move(play));
    return {};
}

bool VirtualBoard::waitForEnd(std::chrono::milliseconds timeout) const
{
    return d->virtualTime->waitForEnd(timeout);
}

QString VirtualBoard::captureError() const
{
    return d->capture->errorString();
}

PlayState VirtualBoard::state() const
{
    return d->logic ? d->logic->state() : d->state;
}

bool VirtualBoard::wasStarted() const
{
    return d->logic ? d->logic->wasStarted() : d->wasStarted;
}

bool VirtualBoard::wasStopped() const
{
    return d->logic ? d->logic->wasStopped() : d->wasStopped;
}

bool VirtualBoard::waitForReceptions(int count, int timeoutMs) const
{
    return d->link.waitForReceptions(count, timeoutMs);
}

QVector<Reception> VirtualBoard::receptions() const
{
    return d->link.receptions();
}

PlayStatus VirtualBoard::status() const
{
    return d->performer ? d->performer->status() : d->status;
}

TransitionLog VirtualBoard::log() const
{
    return d->performer ? d->performer->log() : d->log;
}

QString VirtualBoard::report(int width) const
{
    const PlayStatus last = status();
    QString result = receivedReport(receptions(), width, int(d->notices.count()))
        + playedReport(last, log(), width);
    if (d->options.live)
        result += paragraph(punctualityText(last.punctuality), width);
    return result;
}

QStringList VirtualBoard::problems() const
{
    return allProblems(receptions());
}

QStringList VirtualBoard::failures() const
{
    QStringList result;
    if (d->notices.count() > 0)
        result << QStringLiteral("reported: ")
                + counted(d->notices.count(), QStringLiteral("problem"));
    if (!d->capture->errorString().isEmpty())
        result << d->capture->errorString();
    if (d->link.dropped() > 0)
        result << QStringLiteral("%1 datagrams were not recorded").arg(d->link.dropped());
    return result;
}

} // namespace virtualboard
