// A shot of a test plan on a board of software, against what it must cost: its exchanges over plain
// sockets, and its frames written by libpcap alone where the capture is kept.

#include "benchmarks/barecapture.h"
#include "benchmarks/barelink.h"
#include "benchmarks/generatedconfiguration.h"

#include "protocol/statusreply.h"
#include "virtualboard/board/virtualboard.h"
#include "workbench/boardsession.h"
#include "workbench/planreader.h"
#include "workbench/shotplayer.h"

#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <array>

namespace {

using namespace std::chrono_literals;
using namespace workbench;

constexpr char kResponderAddress[] = "127.0.62.2";
constexpr char kRecordedBoardAddress[] = "127.0.62.3";
constexpr int kLocalPort = 20630;
constexpr int kSamplesPerSecond = 4000;
constexpr int kReplyHeader = 9; ///< bytes in front of a status
constexpr std::array kStatuses{statusreply::kState, statusreply::kChanges, statusreply::kInputs};
constexpr std::chrono::milliseconds kTrip = 525ms;
constexpr quint16 kTripChannel = 1;

/// One second: the trip comes 25 ms after the fault.
constexpr char kPlan[] = R"({
  "title": "shots", "configuration": "two-streams.xml",
  "cases": [ {
    "name": "trip",
    "sequence": { "steps": [
      { "name": "prefault", "time": 0.5, "onTimeout": "fault", "outputs": {
          "Va1": { "amplitude": 57.735, "phase": 0 }, "Vb1": { "amplitude": 57.735, "phase": -120 },
          "Vc1": { "amplitude": 57.735, "phase": 120 }, "Ia1": { "amplitude": 1, "phase": -10 },
          "Ib1": { "amplitude": 1, "phase": -130 }, "Ic1": { "amplitude": 1, "phase": 110 } } },
      { "name": "fault", "time": 1, "onTimeout": "end", "onBinaryInput": "cleared", "outputs": {
          "Va1": { "amplitude": 10, "phase": 0 }, "Vb1": { "amplitude": 57.735, "phase": -120 },
          "Vc1": { "amplitude": 57.735, "phase": 120 }, "Ia1": { "amplitude": 8, "phase": -75 } } },
      { "name": "cleared", "time": 0.475, "onTimeout": "end", "outputs": {
          "Va1": { "amplitude": 57.735, "phase": 0 }, "Vb1": { "amplitude": 57.735, "phase": -120 },
          "Vc1": { "amplitude": 57.735, "phase": 120 } } } ] },
    "device": { "inputs": [ { "time": 0.525, "input": 1, "on": true } ] },
    "assessments": [ { "name": "trip", "time": {
        "from": { "enter": "fault" }, "to": { "on": 1 }, "is": "operate", "atMost": 0.03 } } ]
  } ]
})";

struct Exchange
{
    std::string datagram;
    std::string reply; ///< that follows the acknowledgement; empty: none
};

void expect(const Expected<void> &done)
{
    if (!done)
        qFatal("%s", qPrintable(done.error().message));
}

std::shared_ptr<const TestPlan> readOwnPlan()
{
    const FileReader noFiles = [](const QString &) { return Expected<QByteArray>(QByteArray()); };
    const PlanReading reading = readPlan(kPlan, QStringLiteral("shots.json"), noFiles);
    for (const Remarks &each : reading.remarks)
        expect(each.expectNoErrors());
    return reading.plan;
}

testconfiguration::CheckedConfiguration readConfiguration(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(generatedConfiguration({2, 1, 1})) < 0)
        qFatal("cannot write the generated configuration");
    file.close();
    return testconfiguration::check(testconfiguration::Document::read(path), kSamplesPerSecond);
}

/// Does by hand what the player does for a shot. Returns the statuses that are read at its end.
std::vector<std::string> playOnce(const TestPlan &plan, virtualboard::VirtualBoard &board,
                                  BoardSession &session)
{
    const Expected<Sequence> sequence = plan.sequence(0, {});
    expect(sequence.map([](const Sequence &) {}));
    const auto inputs = virtualboard::InputFile::fromEvents(
        {{kTrip, virtualboard::InputKind::ChannelOn, kTripChannel}});
    if (!board.prepare({inputs, {}, virtualboard::WallTime(1s)}))
        qFatal("cannot prepare the board that records");
    apply(*sequence, session.engine);
    expect(session.execute(timesOf(*sequence), QStringLiteral("shots")));
    if (!board.waitForEnd(10s))
        qFatal("the board that records does not end");
    std::vector<std::string> statuses;
    for (const int which : kStatuses) {
        const Expected<QByteArray> status = session.readStatus(which);
        expect(status.map([](const QByteArray &) {}));
        statuses.push_back(status->toStdString());
    }
    return statuses;
}

/// What all benchmarks of this file share.
class ShotBench
{
public:
    ShotBench();

    [[nodiscard]] ShotRecord play(const QString &capturePath = {})
    {
        return m_player.play(plainShots(*plan).first(), capturePath);
    }
    void replay(BareLink &link) const;

    QTemporaryDir directory;
    std::shared_ptr<const TestPlan> plan = readOwnPlan();
    BareCapture capture;

private:
    std::vector<Exchange> recordExchanges();
    [[nodiscard]] std::map<std::string, std::string> replies() const;

    testconfiguration::CheckedConfiguration m_configuration =
        readConfiguration(directory.filePath(QStringLiteral("two-streams.xml")));
    int m_looks = 0; ///< for an interruption: one before each datagram, and after each action
    ShotPlayer m_player;
    std::vector<Exchange> m_exchanges;
    std::unique_ptr<Responder> m_responder;
};

ShotPlayer::Options countingInto(int &looks)
{
    ShotPlayer::Options options;
    options.isInterrupted = [&looks] {
        ++looks;
        return false;
    };
    return options;
}

ShotBench::ShotBench()
    : m_player(*plan, m_configuration, countingInto(m_looks))
{
    m_exchanges = recordExchanges();
    const int recorded = m_looks;
    expect(m_player.load());
    m_looks = 0;
    const QString path = directory.filePath(QStringLiteral("recorded.pcap"));
    const ShotRecord record = play(path);
    if (!record.wasPlayed() || record.observation.inputs.size() != 1 || m_looks != recorded)
        qFatal("a shot of %d looks, %d recorded, %d inputs: %s", m_looks, recorded,
               int(record.observation.inputs.size()), qPrintable(record.error));
    if (const std::string reason = capture.read(qPrintable(path)); !reason.empty())
        qFatal("%s", reason.c_str());
    m_responder = std::make_unique<Responder>(kResponderAddress, replies());
}

/// Those of a shot, seen by a board of software that is sent the same as that of the player.
std::vector<Exchange> ShotBench::recordExchanges()
{
    virtualboard::VirtualBoardOptions options;
    options.address = QHostAddress(QLatin1String(kRecordedBoardAddress));
    virtualboard::VirtualBoard board(options, [](const QString &) {});
    BoardSession session;
    if (!board.start() || !session.open(options.address, kLocalPort))
        qFatal("cannot start the board that records");
    expect(session.load(m_configuration.document));
    session.isInterrupted = countingInto(m_looks).isInterrupted;
    const std::vector<std::string> statuses = playOnce(*plan, board, session);
    std::vector<Exchange> result;
    for (const virtualboard::Reception &each : board.receptions())
        result.push_back({each.datagram.toStdString(), {}});
    if (result.size() <= statuses.size())
        qFatal("only %zu exchanges recorded", result.size());
    for (std::size_t i = 0; i < statuses.size(); ++i)
        result[result.size() - statuses.size() + i].reply =
            std::string(kReplyHeader, 0) + statuses[i];
    return result;
}

std::map<std::string, std::string> ShotBench::replies() const
{
    std::map<std::string, std::string> result;
    for (const Exchange &each : m_exchanges) {
        if (!each.reply.empty())
            result[each.datagram] = each.reply;
    }
    return result;
}

void ShotBench::replay(BareLink &link) const
{
    for (const Exchange &each : m_exchanges) {
        if (!link.exchange(each.datagram, each.reply.empty() ? 1 : 2))
            qFatal("the responder is silent");
    }
}

ShotBench &bench()
{
    static ShotBench shared;
    return shared;
}

template <bool captured>
void player(benchmark::State &state)
{
    ShotBench &b = bench();
    const QString path = captured ? b.directory.filePath(QStringLiteral("shot.pcap")) : QString();
    for (auto _ : state) {
        const ShotRecord record = b.play(path);
        if (!record.wasPlayed())
            state.SkipWithError(qPrintable(record.error));
    }
    state.SetItemsProcessed(state.iterations());
}

template <bool captured>
void bare(benchmark::State &state)
{
    ShotBench &b = bench();
    BareLink link(kResponderAddress);
    const QByteArray path = b.directory.filePath(QStringLiteral("bare.pcap")).toLocal8Bit();
    for (auto _ : state) {
        b.replay(link);
        if (!captured)
            continue;
        if (const std::string reason = b.capture.write(path.constData()); !reason.empty())
            state.SkipWithError(reason.c_str());
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(player<false>)->Name("shot/player")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bare<false>)->Name("shot/bare")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(player<true>)->Name("captured-shot/player")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bare<true>)->Name("captured-shot/bare")->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
