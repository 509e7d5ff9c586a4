// Runs the registered benchmarks and then prints each requested ratio of two of them from the
// same run: "ratio <name> / <peer> = X". Absolute times alone say little on a shared machine.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace plim::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> times;

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (!run.error_occurred && run.run_type == Run::RT_Iteration)
                times[run.benchmark_name()] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
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
        auto a = reporter.times.find(name), b = reporter.times.find(peer);
        if (a == reporter.times.end() || b == reporter.times.end() || b->second <= 0) {
            std::printf("ratio %s / %s = (not measured)\n", name.c_str(), peer.c_str());
            continue;
        }
        std::printf("ratio %s / %s = %.2f\n", name.c_str(), peer.c_str(), a->second / b->second);
    }
    benchmark::Shutdown();
    return 0;
}

}  // namespace plim::bench
