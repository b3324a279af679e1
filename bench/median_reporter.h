// Console output as usual, keeping the median real and CPU time of each
// benchmark (by function name) for the closing ratios a program prints.
#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

// Colours only on a terminal (a reporter of one's own is not told of
// --benchmark_color).
inline benchmark::ConsoleReporter::OutputOptions ConsoleOptions() {
  return isatty(STDOUT_FILENO) ? benchmark::ConsoleReporter::OO_ColorTabular : benchmark::ConsoleReporter::OO_Tabular;
}

class MedianReporter : public benchmark::ConsoleReporter {
 public:
  MedianReporter() : ConsoleReporter(ConsoleOptions()) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs)
      if (r.aggregate_name == "median") {
        real_[r.run_name.function_name] = r.GetAdjustedRealTime();
        cpu_[r.run_name.function_name] = r.GetAdjustedCPUTime();
      }
    ConsoleReporter::ReportRuns(runs);
  }
  // Median times in the benchmark's unit; 0 when it did not run.
  double Real(const std::string& name) const { return Get(real_, name); }
  double Cpu(const std::string& name) const { return Get(cpu_, name); }

 private:
  static double Get(const std::map<std::string, double>& m, const std::string& name) {
    const auto it = m.find(name);
    return it == m.end() ? 0 : it->second;
  }
  std::map<std::string, double> real_, cpu_;
};

// Runs the benchmarks the command line selects, interleaved at random (a
// drift of the machine's load must hit each alike), into `reporter`.
inline void RunInterleaved(int argc, char** argv, benchmark::BenchmarkReporter* reporter) {
  std::vector<char*> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  benchmark::RunSpecifiedBenchmarks(reporter);
  benchmark::Shutdown();
}
