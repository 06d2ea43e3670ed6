#include "workbench/shotplayer.h"

#include "virtualboard/board/virtualboard.h"
#include "workbench/boardsession.h"
#include "workbench/testrun.h"

#include <QCoreApplication>
#include <QMap>

#include <cmath>
#include <utility>

namespace workbench {

namespace {

using virtualboard::InputFile;
using virtualboard::InputKind;
using virtualboard::VirtualBoard;

/// The first sequence of every shot begins then, so that a shot gives the same capture again.
constexpr virtualboard::WallTime kStart{std::chrono::seconds(1767225600)}; // 2026-01-01 00:00 UTC
constexpr std::chrono::seconds kLongestWait{50}; // for the end of a sequence in virtual time
constexpr int kAddressesTried = 3;
constexpr int kPortsTried = 20;

/// Another one for each process, unlike that of a board that was started by hand.
QHostAddress loopbackAddress(int number)
{
    const auto process = quint32(QCoreApplication::applicationPid());
    const quint32 second = 1 + (process >> 16) % 64 + 64 * quint32(number);
    return QHostAddress(127U << 24 | second << 16 | (process & 0xffff));
}

/// Even, and below those that a system hands out by itself.
int localPortOf(int number)
{
    constexpr int kFirst = 10000;
    constexpr int kPorts = 10000; // pairs; the engine takes the next port where one is taken
    const auto process = int(QCoreApplication::applicationPid() % kPorts);
    return kFirst + 2 * ((process + 37 * number) % kPorts);
}

bool applies(const StandIn::Event &event, const Parameters &values)
{
    if (!event.condition)
        return true;
    const double value = values.value(event.condition->parameter);
    return value >= event.condition->atLeast && value < event.condition->below;
}

Expected<QVector<virtualboard::RecordedInput>> eventsOf(const StandIn &device,
                                                        const Parameters &values)
{
    QVector<virtualboard::RecordedInput> events;
    for (const StandIn::Event &each : device.events) {
        if (!applies(each, values))
            continue;
        const double seconds = each.time.in(values);
        if (!(seconds >= 0 && seconds <= InputFile::kMaximumSeconds))
            return failure(Failure::Input,
                           QStringLiteral("an input that stands in for the device would come at "
                                          "%1 s; 0 to %2 s are possible")
                               .arg(seconds)
                               .arg(InputFile::kMaximumSeconds));
        virtualboard::RecordedInput input;
        input.time = virtualboard::Duration(std::llround(seconds * 1e9));
        if (each.channel == statusreply::kNoChannel) {
            input.kind = InputKind::Trigger;
        } else {
            input.kind = each.on ? InputKind::ChannelOn : InputKind::ChannelOff;
            input.channel = quint16(each.channel);
        }
        events.append(input);
    }
    return events;
}

template <typename Decoded>
Expected<Decoded> readDecoded(BoardSession &session, int which,
                              std::optional<Decoded> (*decode)(const QByteArray &))
{
    return session.readStatus(which).and_then([&](const QByteArray &payload) -> Expected<Decoded> {
        if (const std::optional<Decoded> decoded = decode(payload))
            return *decoded;
        return failure(Failure::Board,
                       QStringLiteral("status %1 of this board has another layout").arg(which));
    });
}

/// All inputs that the board has kept of the start with number \a start.
Expected<void> readInputs(BoardSession &session, quint32 start, Observation &seen)
{
    for (int part = 0; part < statusreply::kInputParts; ++part) {
        const auto read =
            readDecoded(session, statusreply::kInputs + part, statusreply::decodeInputs);
        if (!read)
            return tl::unexpected<Failure>(read.error());
        if (read->start != start)
            return failure(Failure::Board, QStringLiteral("the board has been started again"));
        seen.inputs += read->part;
        seen.inputsLost = read->total - quint32(seen.inputs.size());
        if (seen.inputsLost == 0 || read->part.isEmpty())
            break;
    }
    return {};
}

} // namespace

struct ShotPlayer::Private
{
    Private(const TestPlan &played, testconfiguration::CheckedConfiguration loaded, Options given)
        : plan(played)
        , options(std::move(given))
    {
        test.configuration = std::move(loaded);
    }

    [[nodiscard]] Expected<void> openBoard();
    [[nodiscard]] Expected<void> openLink();
    [[nodiscard]] Expected<void> load();
    [[nodiscard]] Expected<InputFile> inputsOf(const StandIn &device, const Parameters &values);
    [[nodiscard]] Expected<void> prepare(const Shot &shot, const QString &capture);
    [[nodiscard]] Expected<void> execute();
    [[nodiscard]] Expected<void> follow(ShotRecord &record);
    [[nodiscard]] Expected<void> wait();
    [[nodiscard]] Expected<void> readAll(ShotRecord &record);
    [[nodiscard]] Expected<void> play(ShotRecord &record, const QString &capture);

    const TestPlan &plan;
    const Options options;
    PreparedTest test; ///< with the sequence of the shot
    std::unique_ptr<VirtualBoard> board; ///< the one of software
    std::unique_ptr<BoardSession> session; ///< null: to be opened, and loaded
    QMap<QString, InputFile> files; ///< that stand in, by their paths
    quint32 problems = 0; ///< that the board had reported before the shot
};

Expected<void> ShotPlayer::Private::openBoard()
{
    QString reason;
    for (int i = 0; i < kAddressesTried; ++i) {
        virtualboard::VirtualBoardOptions wanted;
        wanted.address = loopbackAddress(i);
        wanted.startTime = kStart;
        wanted.limit = kLimit;
        board = std::make_unique<VirtualBoard>(wanted, [this](const QString &line) {
            if (options.notice)
                options.notice(line);
        });
        const auto started = board->start();
        if (!started)
            reason = started.error().text;
        for (int port = 0; started && port < kPortsTried; ++port) {
            session = std::make_unique<BoardSession>();
            const int wantedPort = localPortOf(port);
            if (session->open(wanted.address, wantedPort)
                && session->engine.udpSocket->localPort() == wantedPort)
                return {};
            reason = QStringLiteral("no local UDP port is free");
        }
    }
    session.reset();
    board.reset();
    return failure(Failure::Board, QStringLiteral("cannot start a board of software: ") + reason);
}

Expected<void> ShotPlayer::Private::openLink()
{
    session = std::make_unique<BoardSession>();
    return session->open(*options.board, options.localPort);
}

Expected<void> ShotPlayer::Private::load()
{
    if (session && !session->isLost())
        return {};
    session.reset(); // first, so that its port is free
    board.reset();
    problems = 0;
    Expected<void> opened = options.board ? openLink() : openBoard();
    if (opened) {
        session->isInterrupted = options.isInterrupted;
        // Nobody else sends to a board of our own.
        session->engine.SetStrictExchange(options.board.has_value());
        opened = session->load(test.configuration.document);
    }
    if (!opened)
        session.reset();
    return opened;
}

Expected<InputFile> ShotPlayer::Private::inputsOf(const StandIn &device, const Parameters &values)
{
    if (device.file.isEmpty())
        return eventsOf(device, values).map(InputFile::fromEvents);
    const auto known = files.constFind(device.file);
    if (known != files.constEnd())
        return *known;
    const auto read = InputFile::read(device.file);
    if (!read)
        return failure(Failure::Input, read.error());
    files[device.file] = *read;
    return *read;
}

Expected<void> ShotPlayer::Private::prepare(const Shot &shot, const QString &capture)
{
    const TestCase &testCase = plan.cases[shot.caseNumber];
    const Expected<Sequence> sequence = plan.sequence(shot.caseNumber, shot.values);
    if (!sequence)
        return tl::unexpected<Failure>(sequence.error());
    test.sequence = *sequence;
    test.sequencePath =
        testCase.sequenceName.isEmpty() ? QStringLiteral("the sequence") : testCase.sequenceName;
    apply(test.sequence, session->engine);
    if (!board)
        return {};
    return inputsOf(testCase.device, shot.values).and_then([&](const InputFile &inputs) {
        const virtualboard::WallTime start = inputs.firstTime().value_or(kStart);
        virtualboard::Expected<void> prepared =
            start < virtualboard::WallTime() || start > virtualboard::kLatestStart
            ? virtualboard::Refusal(testCase.device.file
                                    + QStringLiteral(": its first packet is not from 1970 to 2102"))
            : board->prepare({inputs, capture, start});
        return prepared ? Expected<void>()
                        : Expected<void>(failure(Failure::Input, prepared.error()));
    });
}

/// Plays to the end, and reads what was seen.
Expected<void> ShotPlayer::Private::play(ShotRecord &record, const QString &capture)
{
    Expected<void> played = load().and_then([&] { return prepare(record.shot, capture); });
    if (played)
        played = board ? execute().and_then([this] { return wait(); }) : follow(record);
    if (!played)
        return played;
    if (board && !board->captureError().isEmpty())
        return failure(Failure::Input, board->captureError());
    return readAll(record);
}

Expected<void> ShotPlayer::Private::execute()
{
    return session->execute(timesOf(test.sequence), test.sequencePath);
}

Expected<void> ShotPlayer::Private::wait()
{
    if (board->waitForEnd(kLongestWait))
        return {};
    return failure(
        Failure::Board,
        QStringLiteral("the sequence has not ended after %1 s").arg(kLongestWait.count()));
}

Expected<void> ShotPlayer::Private::follow(ShotRecord &record)
{
    TestRun run(*session, test, [](const TransferProgress &, bool) {});
    const auto noteState = [&record](const statusreply::State &state, bool) { record.end = state; };
    return run.execute()
        .and_then([&] { return run.follow(noteState); })
        .map([](const statusreply::State &) {});
}

Expected<void> ShotPlayer::Private::readAll(ShotRecord &record)
{
    const auto state = readDecoded(*session, statusreply::kState, statusreply::decodeState);
    if (!state)
        return tl::unexpected<Failure>(state.error());
    record.end = *state;
    record.end.problems = state->problems - problems;
    problems = state->problems;
    Observation &seen = record.observation;
    seen.complete = state->playing == statusreply::State::Finished;
    for (int channel = 0; channel < int(state->active.size()); ++channel) {
        if (state->active[std::size_t(channel)])
            seen.activeInputs.append(channel);
    }
    if (state->playing == statusreply::State::Idle || state->playing == statusreply::State::Armed)
        return failure(Failure::Board, QStringLiteral("the board did not play the sequence"));
    const auto changes = readDecoded(*session, statusreply::kChanges, statusreply::decodeChanges);
    if (!changes)
        return tl::unexpected<Failure>(changes.error());
    seen.changes = changes->last;
    seen.changesLost = changes->total - quint32(changes->last.size());
    return readInputs(*session, state->start, seen);
}

ShotPlayer::ShotPlayer(const TestPlan &plan, testconfiguration::CheckedConfiguration configuration,
                       Options options)
    : d(std::make_unique<Private>(plan, std::move(configuration), std::move(options)))
{ }

ShotPlayer::~ShotPlayer() = default;

Expected<void> ShotPlayer::load()
{
    return d->load();
}

ShotRecord ShotPlayer::play(const Shot &shot, const QString &capture)
{
    ShotRecord record;
    record.shot = shot;
    record.observation.stepNames = d->plan.cases[shot.caseNumber].stepNames;
    record.observation.complete = false;
    const Expected<void> played = d->play(record, capture);
    if (!played)
        record.error = played.error().message;
    return record;
}

Expected<void> ShotPlayer::stopInterrupted()
{
    return d->session && !d->board ? d->session->stopInterrupted() : Expected<void>();
}

} // namespace workbench
