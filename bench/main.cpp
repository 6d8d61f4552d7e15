// Runs the benchmarks, then measures the pipeline's peak memory and prints
// the figures against their targets. Exits 1 when a target is missed, so a
// run can be used as a check.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "bench/definition.h"
#include "bench/pipeline.h"
#include "bench/recorder.h"

namespace formwiz::bench {
namespace {

// A kB figure of /proc/self/status ("VmRSS", "VmHWM"); -1 when unknown.
long StatusKb(const std::string& key) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(key + ":", 0) == 0)
      return std::stol(line.substr(key.size() + 1));
  }
  return -1;
}

constexpr char kPeakFlag[] = "--peak-memory-of-fields=";

// Run in a process of its own (see PeakMemoryRatio): the pipeline's peak
// memory on a definition of `fields` fields, as a multiple of the
// definition's size, printed to standard output. The peak counts what the
// run adds to the resident size, beyond the definition text already held.
int MeasurePeakMemory(int fields) {
  const std::string text = GeneratedDefinition(fields);
  QuietUi quiet;
  // Resets the peak to the present size.
  std::ofstream("/proc/self/clear_refs") << "5";
  const long base = StatusKb("VmRSS");
  const bool ok = !RunPipeline(text).empty();
  const long peak = StatusKb("VmHWM");
  if (!ok || base < 0 || peak < base) return 1;
  std::printf("%f\n", static_cast<double>(peak - base) * 1024.0 /
                          static_cast<double>(text.size()));
  return 0;
}

// Runs MeasurePeakMemory in a fresh process of this program: a fresh
// process has no memory left over from the benchmarks that the run could
// reuse without its resident size growing. Negative when it cannot be
// measured.
double PeakMemoryRatio(int fields) {
  // Resolved here: in the shell that popen starts, /proc/self is the shell.
  std::error_code error;
  const std::string self =
      std::filesystem::read_symlink("/proc/self/exe", error).string();
  if (error) return -1;
  // Quoted for the shell, a quote in the path included.
  std::string quoted = "'";
  for (char c : self)
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  const std::string command =
      quoted + "' " + std::string(kPeakFlag) + std::to_string(fields);
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  double ratio = -1;
  if (std::fscanf(pipe, "%lf", &ratio) != 1) ratio = -1;
  return pclose(pipe) == 0 ? ratio : -1;
}

// Prints one figure against its target; false when it misses.
bool Target(const char* what, double value, const char* unit, bool met,
            const char* target) {
  std::printf("  %-52s %10.3f %-4s %s (target %s)\n", what, value, unit,
              met ? "met" : "MISSED", target);
  return met;
}

int Summarise(const std::map<std::string, double>& s) {
  auto get = [&s](const std::string& name) {
    const auto it = s.find(name);
    return it == s.end() ? -1.0 : it->second;
  };
  bool all = true;
  std::printf("\nTargets\n");
  const double ours = get("BM_Pipeline/10000");
  const double pugi = get("BM_PugixmlReference/10000");
  if (ours > 0 && pugi > 0) {
    const double ratio = pugi / ours;
    all &= Target("pipeline throughput / pugixml parse+print, 10,000", ratio,
                  "x", ratio >= 0.5, ">= 0.5");
  } else {
    std::printf("  (no pugixml reference in this build)\n");
  }
  const double small = get("BM_Pipeline/1000");
  const double large = get("BM_Pipeline/100000");
  if (small > 0 && large > 0) {
    const double growth = (large / 100000) / (small / 1000);
    all &= Target("time per field, 100,000 fields / 1,000 fields", growth, "x",
                  growth <= 1.3, "<= 1.3");
  }
  for (const char* name : {"BM_TickField", "BM_MoveField", "BM_RenameKeystroke",
                           "BM_LoadFieldList", "BM_OpenStoredDefinition"}) {
    const double t = get(name);
    if (t < 0) continue;
    all &= Target((std::string(name + 3) + ", 10,000 rows").c_str(), t * 1e6,
                  "us", t < 1e-3, "< 1 ms");
  }
  const double memory = PeakMemoryRatio(100000);
  if (memory >= 0) {
    all &= Target("peak memory / definition size, 100,000 fields", memory, "x",
                  memory < 10, "< 10");
  } else {
    std::printf("  (peak memory could not be measured here)\n");
  }
  return all ? 0 : 1;
}

}  // namespace
}  // namespace formwiz::bench

int main(int argc, char** argv) {
  using formwiz::bench::kPeakFlag;
  if (argc == 2 && std::string_view(argv[1]).starts_with(kPeakFlag)) {
    return formwiz::bench::MeasurePeakMemory(
        std::stoi(argv[1] + std::strlen(kPeakFlag)));
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  formwiz::bench::Recorder recorder;
  benchmark::RunSpecifiedBenchmarks(&recorder);
  benchmark::Shutdown();
  return formwiz::bench::Summarise(recorder.seconds);
}
