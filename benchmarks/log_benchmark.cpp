// Cost of one log message: a written line (one allocation, one lock, one write) and a dropped one.
#include <benchmark/benchmark.h>

#include <sstream>

#include "allocation_counter.hpp"
#include "common/log/log_message.hpp"
#include "common/log/stream_logger.hpp"

namespace {

using kov::common::log::LogLevel;
using kov::common::log::LogMessage;
using kov::common::log::OstreamLogger;

void reportAllocations(benchmark::State& state, std::size_t before) {
  state.counters["allocs/msg"] = benchmark::Counter(
      static_cast<double>(kov::bench::allocationCount() - before) / static_cast<double>(state.iterations()));
}

void BM_WrittenMessage(benchmark::State& state) {
  std::ostringstream sink;
  OstreamLogger logger(sink);
  const std::size_t before = kov::bench::allocationCount();
  for (auto _ : state) {
    LogMessage("src/bench/log", 1, LogLevel::INFO, logger).getStream() << "value " << 42;
    if (sink.tellp() > (1 << 20)) {
      state.PauseTiming();
      sink.str("");
      state.ResumeTiming();
    }
  }
  reportAllocations(state, before);
}
BENCHMARK(BM_WrittenMessage);

void BM_DroppedMessage(benchmark::State& state) {
  std::ostringstream sink;
  OstreamLogger logger(sink);
  const std::size_t before = kov::bench::allocationCount();
  for (auto _ : state) {
    LogMessage("src/bench/log", 1, LogLevel::DEBUG, logger).getStream() << "value " << 42;
  }
  reportAllocations(state, before);
}
BENCHMARK(BM_DroppedMessage);

}  // namespace
