#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace kov::bench {

/// Runs `count` operations of one path. Whatever the path needs (client, transport, logger) is built
/// by the constructor, so that run() measures the steady state only.
class PathRunner {
 public:
  PathRunner() = default;
  virtual ~PathRunner();
  PathRunner(const PathRunner&) = delete;
  PathRunner& operator=(const PathRunner&) = delete;

  virtual void run(std::size_t count) = 0;
};

/// A path of the library measured beside its reference: a hand-written baseline doing the same work,
/// or spdlog doing the same logging. `goal` is the most the library should cost, as a multiple of the
/// reference's instructions. `ciLimit` is the most CI accepts: the goal itself, or, for a goal the
/// library misses, the ratio as measured plus a small margin, so that the miss stays visible in the
/// table and a further regression still fails. `threads` > 1 runs the pair from that many threads at
/// once (timed only).
struct PathPair {
  std::string name;
  std::string reference;
  double goal;
  double ciLimit;
  int threads;
  std::shared_ptr<PathRunner> library;
  std::shared_ptr<PathRunner> peer;
};

/// Heartbeat event, getDesiredScanSettings and setScanPattern with 88 point commands, each beside a
/// hand-written baseline.
std::vector<PathPair> makeClientPaths();

/// A written INFO line (1 and 4 threads) and a dropped DEBUG message, each beside spdlog.
std::vector<PathPair> makeLogPaths();

}  // namespace kov::bench
