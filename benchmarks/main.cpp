// Runs the benchmarks and prints the ratio of each pair, ours to the yardstick, from the medians of
// repetitions that are interleaved at random: the machine's mood strikes both sides alike.

#include <QCoreApplication>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace {

struct Pair
{
    const char *job;
    const char *ours;
    double limit; ///< of our time / time of the yardstick
};

/// The yardstick's name ends in "/bare".
constexpr Pair kPairs[] = {{"exchange", "engine", 1.05}, {"sequence", "engine", 1.05},
                           {"load", "engine", 1.00},     {"render", "board", 2.00},
                           {"shot", "player", 2.00},     {"captured-shot", "player", 2.00}};

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        std::vector<Run> shown;
        std::copy_if(runs.begin(), runs.end(), std::back_inserter(shown), [](const Run &run) {
            return run.run_type == Run::RT_Aggregate || run.repetitions <= 1;
        });
        ConsoleReporter::ReportRuns(shown);
        for (const Run &run : runs) {
            m_failed = m_failed || run.error_occurred;
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                m_times[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        std::printf("\nmedian of ours / median of the yardstick\n");
        for (const Pair &pair : kPairs) {
            const auto bare = m_times.find(std::string(pair.job) + "/bare");
            const auto ours = m_times.find(std::string(pair.job) + '/' + pair.ours);
            if (bare == m_times.end() || ours == m_times.end())
                continue;
            const double ratio = median(ours->second) / median(bare->second);
            std::printf("  %-13s %.3f (limit %.2f)%s\n", pair.job, ratio, pair.limit,
                        ratio > pair.limit ? "  ABOVE" : "");
        }
    }

    bool failed() const { return m_failed; }

private:
    std::map<std::string, std::vector<double>> m_times;
    bool m_failed = false;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    const std::size_t run = benchmark::RunSpecifiedBenchmarks(&reporter);
    return run > 0 && !reporter.failed() ? 0 : 1;
}
