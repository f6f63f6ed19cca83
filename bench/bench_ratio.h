// A console reporter that ends the run with each benchmark's time as a ratio to a baseline
// measured in the same run, so figures from different machines compare by ratio. With
// --benchmark_repetitions the medians are compared.
#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace vidora_bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // `baseline`: the name of the benchmark the others are compared with.
  // Colours only on a terminal, so the text can go into a file or a document.
  explicit RatioReporter(std::string baseline)
      : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular),
        _baseline(std::move(baseline)) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.run_type == Run::RT_Iteration || median) Keep(run.run_name.str(), run);
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    double baseline = 0;
    for (const auto& entry : _times) {
      if (entry.first == _baseline) baseline = entry.second;
    }
    if (baseline <= 0) return;
    printf("\nTime per iteration as a multiple of %s (same run):\n", _baseline.c_str());
    for (const auto& entry : _times) {
      printf("  %-48s %8.3fx\n", entry.first.c_str(), entry.second / baseline);
    }
  }

 private:
  // The latest time of `name`: its only run, its last repetition, then its median.
  void Keep(const std::string& name, const Run& run) {
    for (auto& entry : _times) {
      if (entry.first == name) {
        entry.second = run.GetAdjustedRealTime();
        return;
      }
    }
    _times.emplace_back(name, run.GetAdjustedRealTime());
  }

  std::string _baseline;
  std::vector<std::pair<std::string, double>> _times;
};

// The body of main(): runs the registered benchmarks with the ratio reporter.
inline int RunWithRatios(int argc, char** argv, const char* baseline) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter(baseline);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace vidora_bench
