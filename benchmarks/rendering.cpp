// Playing a test in virtual time into a capture, against libpcap writing the same bytes through a
// buffer of the same size.

#include "benchmarks/barecapture.h"

#include "protocol/Protocal.h"
#include "virtualboard/capture/capturefile.h"
#include "virtualboard/play/player.h"
#include "virtualboard/play/testprogram.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <string>

namespace {

using namespace virtualboard;

constexpr int kInstants = 4000; // one second
constexpr int kSvStreams = 4;
constexpr int kChannels = 22;

void take(TestProgram &program, const QByteArray &command)
{
    const QStringList problems = program.take(decodeCommand(command));
    if (!problems.isEmpty())
        qFatal("the benchmark's own command: %s", qPrintable(problems.first()));
}

/// Four merging units of 22 channels, 16 of which carry samples, and one step without end.
TestProgram makeProgram()
{
    TestProgram program;
    for (int stream = 0; stream < kSvStreams; ++stream) {
        Message_9_2 frame;
        frame.setMessage_count(stream);
        frame.setSizeSeqData_VectorValue(kChannels);
        take(program, frame.data());
        SMV_MessageStructure description;
        description.setMessageStructureCount(stream);
        description.Number[0] = char(stream);
        description.setTurnoverNUM_addr(frame.SmpCnt_Offset);
        description.setMessage_addr(frame.SeqData_Offset);
        for (int channel = 0; channel < kAnalogChannels; ++channel)
            description.setChannelProperty(channel, channel);
        take(program, description.data());
    }
    for (int channel = 0; channel < kAnalogChannels; ++channel) {
        ChannelSignalControl signal;
        signal.setCount(channel);
        signal.setPhasePosition(float(22.5 * channel));
        take(program, signal.data());
    }
    take(program, ::StepCondition().packetdata());
    take(program, StopAndStart().data());
    return program;
}

/// Keeps what is published.
struct Recorder : FrameSink
{
    BareCapture capture;

    void publish(WallTime time, const OutgoingFrame *out, int count) override
    {
        for (int i = 0; i < count; ++i) {
            pcap_pkthdr header = {};
            header.ts.tv_sec = time_t(time.time_since_epoch() / 1s);
            header.ts.tv_usec = suseconds_t((time.time_since_epoch() % 1s).count());
            header.caplen = header.len = bpf_u_int32(out[i].size);
            capture.append(header, out[i].bytes);
        }
    }
};

void play(Player &player, FrameSink &sink)
{
    for (int i = 0; i < kInstants; ++i)
        player.play(sink);
}

const BareCapture &recording()
{
    static const Recorder recorder = [] {
        Recorder result;
        Player player(makeProgram(), WallTime());
        play(player, result);
        return result;
    }();
    return recorder.capture;
}

void count(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * std::int64_t(recording().frames.size()));
    state.SetBytesProcessed(state.iterations() * std::int64_t(recording().bytes.size()));
}

void board(benchmark::State &state)
{
    const QTemporaryDir directory;
    const TestProgram program = makeProgram();
    for (auto _ : state) {
        CaptureSink capture;
        if (const auto opened = capture.open(directory.filePath(QStringLiteral("board.pcap")));
            !opened) {
            state.SkipWithError(qPrintable(opened.error()));
            return;
        }
        capture.begin(program);
        Player player(program, WallTime());
        play(player, capture);
        capture.end();
    }
    count(state);
}

void bare(benchmark::State &state)
{
    const QTemporaryDir directory;
    const QByteArray path = directory.filePath(QStringLiteral("bare.pcap")).toLocal8Bit();
    const BareCapture &capture = recording();
    for (auto _ : state) {
        if (const std::string reason = capture.write(path.constData()); !reason.empty()) {
            state.SkipWithError(reason.c_str());
            return;
        }
    }
    count(state);
}

BENCHMARK(board)->Name("render/board")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bare)->Name("render/bare")->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
