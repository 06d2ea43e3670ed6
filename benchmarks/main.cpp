// Runs the benchmarks and prints the ratio of each engine/bare pair, from the medians of
// repetitions that are interleaved at random: the machine's mood strikes both sides alike.

#include <QCoreApplication>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr double kLimit = 1.10;

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                times[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        std::printf("\nmedian engine / median bare (limit %.2f)\n", kLimit);
        for (const char *job : {"exchange", "sequence", "load"}) {
            const auto bare = times.find(std::string(job) + "/bare");
            const auto engine = times.find(std::string(job) + "/engine");
            if (bare == times.end() || engine == times.end())
                continue;
            const double ratio = median(engine->second) / median(bare->second);
            std::printf("  %-10s %.3f%s\n", job, ratio, ratio > kLimit ? "  ABOVE" : "");
        }
    }

private:
    std::map<std::string, std::vector<double>> times;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
