// A console reporter that ends the run with each benchmark's time as a ratio to a baseline
// measured in the same run, so figures from different machines compare by ratio. With
// --benchmark_repetitions the medians are compared. Real time is what the caller waits; CPU
// time is what its own thread spends.
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
  // `baselines`: the names of the benchmarks the others are compared with. A benchmark named
  // "Group/..." is compared with the baseline of its group, any other with the first one.
  // Colours only on a terminal, so the text can go into a file or a document.
  explicit RatioReporter(std::vector<std::string> baselines)
      : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular),
        _baselines(std::move(baselines)) {}

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
    for (const std::string& name : _baselines) {
      const times_t* baseline = Find(name);
      if (baseline == nullptr || baseline->real <= 0 || baseline->cpu <= 0) continue;
      printf("\nTime per iteration as a multiple of %s (same run):\n", name.c_str());
      printf("  %-48s %9s %9s\n", "", "real", "cpu");
      for (const times_t& entry : _times) {
        if (BaselineOf(entry.name) != name) continue;
        printf("  %-48s %8.3fx %8.3fx\n", entry.name.c_str(), entry.real / baseline->real,
               entry.cpu / baseline->cpu);
      }
    }
  }

 private:
  struct times_t {
    std::string name;
    double real, cpu;  // per iteration, in the run's time unit
  };

  // The latest times of `name`: its only run, its last repetition, then its median.
  void Keep(const std::string& name, const Run& run) {
    const times_t times{name, run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
    for (times_t& entry : _times) {
      if (entry.name == name) {
        entry = times;
        return;
      }
    }
    _times.push_back(times);
  }

  const times_t* Find(const std::string& name) const {
    for (const times_t& entry : _times) {
      if (entry.name == name) return &entry;
    }
    return nullptr;
  }

  static std::string GroupOf(const std::string& name) { return name.substr(0, name.find('/')); }

  const std::string& BaselineOf(const std::string& name) const {
    for (const std::string& baseline : _baselines) {
      if (name.find('/') != std::string::npos && GroupOf(baseline) == GroupOf(name)) return baseline;
    }
    return _baselines.front();
  }

  std::vector<std::string> _baselines;
  std::vector<times_t> _times;
};

// The body of main(): runs the registered benchmarks with the ratio reporter.
inline int RunWithRatios(int argc, char** argv, std::vector<std::string> baselines) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter(std::move(baselines));
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

inline int RunWithRatios(int argc, char** argv, const char* baseline) {
  return RunWithRatios(argc, argv, std::vector<std::string>{baseline});
}

}  // namespace vidora_bench
