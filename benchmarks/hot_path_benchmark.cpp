// Runs every hot path of the library beside its reference (hand-written code or spdlog).
//
//   kov_hot_path_benchmark [Google Benchmark flags]
//       times both sides (CPU time per operation, median of 5 repetitions unless told otherwise) and
//       prints a table with the ratios and the heap allocations per operation in steady state.
//   kov_hot_path_benchmark --count=N
//       runs every single-threaded path N times, each run framed by callgrind client requests
//       (a dump named "<index>-library" or "<index>-reference"), and prints one line per path:
//       path <index> <goal> <CI limit> <library allocs/op> <reference allocs/op> <name> | <reference>
//       scripts/ci/perf-check.sh turns the dumps into instruction ratios.
#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "allocation_counter.hpp"
#include "hot_path.hpp"

namespace kov::bench {

PathRunner::~PathRunner() = default;

namespace {

constexpr std::size_t WARM_UP = 64;
constexpr std::size_t ALLOCATION_SAMPLE = 1000;
constexpr benchmark::IterationCount BATCH = 16;

std::vector<PathPair> allPaths() {
  std::vector<PathPair> paths = makeClientPaths();
  for (auto& path : makeLogPaths()) {
    paths.push_back(std::move(path));
  }
  return paths;
}

/// Heap allocations per operation once the path is warm.
double allocationsPerOperation(PathRunner& runner) {
  runner.run(WARM_UP);
  const std::size_t before = allocationCount();
  runner.run(ALLOCATION_SAMPLE);
  return static_cast<double>(allocationCount() - before) / static_cast<double>(ALLOCATION_SAMPLE);
}

int runCounted(const std::vector<PathPair>& paths, std::size_t count) {
  for (std::size_t index = 0; index < paths.size(); ++index) {
    const PathPair& path = paths[index];
    if (path.threads != 1) {
      continue;
    }
    const double libraryAllocations = allocationsPerOperation(*path.library);
    const double referenceAllocations = allocationsPerOperation(*path.peer);
    const std::pair<PathRunner*, const char*> sides[] = {{path.library.get(), "library"},
                                                         {path.peer.get(), "reference"}};
    for (const auto& [runner, side] : sides) {
      const std::string label = std::to_string(index) + "-" + side;
      CALLGRIND_TOGGLE_COLLECT;
      runner->run(count);
      CALLGRIND_TOGGLE_COLLECT;
      CALLGRIND_DUMP_STATS_AT(label.c_str());
    }
    std::printf("path %zu %.2f %.2f %.2f %.2f %s | %s\n", index, path.goal, path.ciLimit, libraryAllocations,
                referenceAllocations, path.name.c_str(), path.reference.c_str());
  }
  return 0;
}

/// Keeps the CPU time per operation of every run (the median when there are repetitions).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median")) {
        continue;
      }
      cpuNanoseconds[run.run_name.function_name + "/" + std::to_string(run.threads)] =
          run.GetAdjustedCPUTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
  }
  std::map<std::string, double> cpuNanoseconds;
};

std::string benchmarkName(const PathPair& path, const char* side) {
  return path.name + " | " + side;
}

void printRatioTable(const std::vector<PathPair>& paths, const RatioReporter& reporter,
                     const std::vector<std::pair<double, double>>& allocations) {
  std::printf("\nCPU time per operation (ns); ratio = library / reference\n\n");
  std::printf(
      "| Path | Threads | Library | Reference | Ratio | Goal | Allocations (library / reference) |\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  for (std::size_t index = 0; index < paths.size(); ++index) {
    const PathPair& path = paths[index];
    const std::string suffix = "/" + std::to_string(path.threads);
    const auto library = reporter.cpuNanoseconds.find(benchmarkName(path, "library") + suffix);
    const auto reference = reporter.cpuNanoseconds.find(benchmarkName(path, "reference") + suffix);
    if (library == reporter.cpuNanoseconds.end() || reference == reporter.cpuNanoseconds.end()) {
      continue;  // filtered out
    }
    std::printf("| %s (%s) | %d | %.1f | %.1f | %.2fx | %.1fx | %.2f / %.2f |\n", path.name.c_str(),
                path.reference.c_str(), path.threads, library->second, reference->second,
                library->second / reference->second, path.goal, allocations[index].first,
                allocations[index].second);
  }
}

int runTimed(const std::vector<PathPair>& paths, int argc, char** argv) {
  std::vector<std::pair<double, double>> allocations;
  for (const PathPair& path : paths) {
    allocations.emplace_back(allocationsPerOperation(*path.library), allocationsPerOperation(*path.peer));
  }
  for (const PathPair& path : paths) {
    const std::pair<PathRunner*, const char*> sides[] = {{path.library.get(), "library"},
                                                         {path.peer.get(), "reference"}};
    for (const auto& [runner, side] : sides) {
      PathRunner* const measured = runner;
      benchmark::RegisterBenchmark(benchmarkName(path, side).c_str(), [measured](benchmark::State& state) {
        while (state.KeepRunningBatch(BATCH)) {
          measured->run(static_cast<std::size_t>(BATCH));
        }
      })->Threads(path.threads);
    }
  }
  // Medians of five repetitions unless the command line says otherwise.
  std::vector<char*> arguments(argv, argv + argc);
  std::string repetitions = "--benchmark_repetitions=5";
  std::string aggregatesOnly = "--benchmark_report_aggregates_only=true";
  bool repetitionsGiven = false;
  for (int i = 1; i < argc; ++i) {
    repetitionsGiven = repetitionsGiven || std::strncmp(argv[i], "--benchmark_repetitions", 23) == 0;
  }
  if (!repetitionsGiven) {
    arguments.push_back(repetitions.data());
    arguments.push_back(aggregatesOnly.data());
  }
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
    return 2;
  }
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  printRatioTable(paths, reporter, allocations);
  return 0;
}

}  // namespace
}  // namespace kov::bench

int main(int argc, char** argv) {
  const std::vector<kov::bench::PathPair> paths = kov::bench::allPaths();
  if (argc == 2 && std::strncmp(argv[1], "--count=", 8) == 0) {
    const long count = std::strtol(argv[1] + 8, nullptr, 10);
    if (count <= 0) {
      std::fprintf(stderr, "--count needs a positive number\n");
      return 2;
    }
    return kov::bench::runCounted(paths, static_cast<std::size_t>(count));
  }
  return kov::bench::runTimed(paths, argc, argv);
}
