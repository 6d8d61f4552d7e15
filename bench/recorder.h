// A console reporter that also keeps the mean real time of each benchmark
// that ran, by name, so that a benchmark program can hold its figures
// against its targets once all have run.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace formwiz::bench {

class Recorder : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration ||
          run.iterations == 0) {
        continue;
      }
      seconds[run.benchmark_name()] =
          run.real_accumulated_time / static_cast<double>(run.iterations);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // Mean real seconds per iteration, by benchmark name.
  std::map<std::string, double> seconds;
};

}  // namespace formwiz::bench
