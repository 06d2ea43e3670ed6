// The engine's exchanges, sequence and load against plain sockets with the same payload and the
// same responder.

#include "benchmarks/barelink.h"
#include "benchmarks/generatedconfiguration.h"

#include "engine/lumtarengine.h"

#include <QDomDocument>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

#include <cstdlib>

namespace {

constexpr int kLocalPort = 20620;

/// What all benchmarks of this file share: a responder, an open engine with a loaded configuration,
/// and the datagrams that the engine sends for each kind of job.
struct Bench
{
    Bench();

    Responder responder;
    LumtarEngine engine;
    QTemporaryDir directory;
    QByteArray path;
    QByteArray xml = generatedConfiguration();
    std::vector<std::string> exchange;
    std::vector<std::string> sequence;
    std::vector<std::string> load;

private:
    template <typename Job>
    std::vector<std::string> datagramsOf(size_t expected, Job job);
};

template <typename Job>
std::vector<std::string> Bench::datagramsOf(size_t expected, Job job)
{
    responder.recording = true;
    job();
    responder.recording = false;
    auto datagrams = responder.takeReceived();
    if (datagrams.size() != expected)
        qFatal("expected %zu exchanges, saw %zu", expected, datagrams.size());
    return datagrams;
}

Bench::Bench()
{
    path = directory.filePath(QStringLiteral("generated.xml")).toLocal8Bit();
    QFile file(QString::fromLocal8Bit(path));
    if (!file.open(QIODevice::WriteOnly) || file.write(xml) != xml.size())
        qFatal("cannot write the generated configuration");
    file.close();
    if (!engine.SetUdpConnect(kLocalPort, QHostAddress(QLatin1String(kBoardAddress))))
        qFatal("cannot open the device link");
    exchange = datagramsOf(1, [this] { engine.StopExec(); });
    load = datagramsOf(241, [this] { engine.InitGPP(path.data()); });
    sequence = datagramsOf(111, [this] { engine.ExecSeq(); });
}

Bench &bench()
{
    static Bench shared;
    return shared;
}

void replay(BareLink &link, const std::vector<std::string> &datagrams)
{
    for (const std::string &datagram : datagrams) {
        if (!link.exchange(datagram))
            qFatal("the responder is silent");
    }
}

template <std::vector<std::string> Bench::*datagrams>
void replayBare(benchmark::State &state)
{
    Bench &b = bench();
    BareLink link;
    for (auto _ : state)
        replay(link, b.*datagrams);
}

void exchangeEngine(benchmark::State &state)
{
    Bench &b = bench();
    for (auto _ : state) {
        if (!b.engine.StopExec())
            state.SkipWithError("exchange failed");
    }
}

void sequenceEngine(benchmark::State &state)
{
    Bench &b = bench();
    for (auto _ : state) {
        if (!b.engine.ExecSeq() || !b.engine.lastResult)
            state.SkipWithError("sequence failed");
    }
}

void loadBare(benchmark::State &state)
{
    Bench &b = bench();
    BareLink link;
    for (auto _ : state) {
        QDomDocument document;
        if (!document.setContent(b.xml, false))
            state.SkipWithError("parse failed");
        replay(link, b.load);
    }
}

void loadEngine(benchmark::State &state)
{
    Bench &b = bench();
    for (auto _ : state) {
        if (!b.engine.InitGPP(b.path.data()) || !b.engine.lastResult)
            state.SkipWithError("load failed");
    }
}

BENCHMARK(replayBare<&Bench::exchange>)->Name("exchange/bare")->UseRealTime();
BENCHMARK(exchangeEngine)->Name("exchange/engine")->UseRealTime();
BENCHMARK(replayBare<&Bench::sequence>)->Name("sequence/bare")->UseRealTime();
BENCHMARK(sequenceEngine)->Name("sequence/engine")->UseRealTime();
BENCHMARK(loadBare)->Name("load/bare")->UseRealTime();
BENCHMARK(loadEngine)->Name("load/engine")->UseRealTime();

} // namespace
