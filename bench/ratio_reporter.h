// bench/ratio_reporter.h - benchmark: prints, after the usual table, each figure beside its
// yardstick. Benchmarks "X/kind" are compared with "bare/kind" of the same run.
// SPDX-License-Identifier: MIT
#ifndef BENCH_RATIO_REPORTER_H
#define BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace bench {

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const auto counter = run.counters.find("items_per_second");
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (median && counter != run.counters.end()) {
                medians_.emplace_back(run.run_name.function_name,
                                      Figure{counter->second.value, run.GetAdjustedCPUTime()});
            }
        }
    }

    // Prints "name: figure/s, ratio to the bare loop", by the clock and by processor time.
    void print_ratios() const {
        std::map<std::string, Figure> bare;
        for (const auto& [name, figure] : medians_) {
            if (name.rfind("bare/", 0) == 0) {
                bare[name.substr(5)] = figure;
            }
        }
        for (const auto& [name, figure] : medians_) {
            const auto yardstick = bare.find(name.substr(name.find('/') + 1));
            if (name.rfind("bare/", 0) != 0 && yardstick != bare.end()) {
                std::printf(
                    "%-42s %9.0f /s   bare %9.0f /s   ratio %5.2f, by processor time %5.2f\n",
                    name.c_str(), figure.per_second, yardstick->second.per_second,
                    figure.per_second / yardstick->second.per_second,
                    yardstick->second.processor_time / figure.processor_time);
            }
        }
    }

  private:
    struct Figure {
        double per_second;
        double processor_time;  // of one item, in the unit of the run
    };
    std::vector<std::pair<std::string, Figure>> medians_;
};

// Runs all registered benchmarks and prints the ratios.
inline int run_with_ratios(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    std::string interleave =
        "--benchmark_enable_random_interleaving=true";  // noise falls on both sides
    arguments.insert(arguments.begin() + 1, interleave.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios();
    return 0;
}

}  // namespace bench

#endif
