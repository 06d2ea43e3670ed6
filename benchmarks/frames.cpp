// Building a frame template that is already filled: time and allocations of data().

#include "benchmarks/allocationcounter.h"

#include "protocol/Protocal.h"

#include <benchmark/benchmark.h>

namespace {

template <typename Build>
void countFrames(benchmark::State &state, Build build)
{
    std::uint64_t allocations = 0;
    for (auto _ : state) {
        const std::uint64_t before = allocationCount();
        QByteArray command = build();
        benchmark::DoNotOptimize(command);
        allocations += allocationCount() - before;
    }
    state.counters["allocations"] =
        benchmark::Counter(double(allocations), benchmark::Counter::kAvgIterations);
}

void svFrame(benchmark::State &state)
{
    Message_9_2 frame;
    countFrames(state, [&frame] { return frame.data(); });
}

void gooseFrame(benchmark::State &state)
{
    constexpr int kEntries = 32;
    Message_goose frame;
    frame.setCountData_value(kEntries);
    for (int i = 0; i < kEntries; ++i)
        frame.setData_value(i % 2 ? 13 : 1, i);
    GooseDataOffsetAddr record;
    record.SetPara(kEntries);
    countFrames(state, [&frame, &record] { return frame.data(record); });
}

BENCHMARK(svFrame)->Name("frame/sv of 22 channels");
BENCHMARK(gooseFrame)->Name("frame/goose of 32 entries");

} // namespace
