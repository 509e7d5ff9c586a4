// Runs the registered benchmarks and then prints each requested ratio of two of them from the
// same run: "ratio <name> / <peer> = X". Absolute times alone say little on a shared machine.
// Times are CPU times; with --benchmark_repetitions=N --benchmark_enable_random_interleaving=true
// the repetitions of all benchmarks are interleaved and each ratio is one of medians.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace plim::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, std::vector<double>> times;

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (!run.error_occurred && run.run_type == Run::RT_Iteration)
                times[run.benchmark_name()].push_back(run.GetAdjustedCPUTime());
        ConsoleReporter::ReportRuns(runs);
    }

    // The median CPU time of a benchmark's repetitions, or 0 when it did not run.
    double Median(const std::string &name) const {
        auto found = times.find(name);
        if (found == times.end() || found->second.empty()) return 0;
        std::vector<double> sorted = found->second;
        std::sort(sorted.begin(), sorted.end());
        size_t n = sorted.size();
        return n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
    }
};

// `ratios` pairs a benchmark's full name with its peer's; missing ones are reported as such.
inline int RunWithRatios(int argc, char **argv,
                         const std::vector<std::pair<std::string, std::string>> &ratios) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");
    for (const auto &[name, peer] : ratios) {
        double a = reporter.Median(name), b = reporter.Median(peer);
        if (a <= 0 || b <= 0) {
            std::printf("ratio %s / %s = (not measured)\n", name.c_str(), peer.c_str());
            continue;
        }
        std::printf("ratio %s / %s = %.2f\n", name.c_str(), peer.c_str(), a / b);
    }
    benchmark::Shutdown();
    return 0;
}

}  // namespace plim::bench
