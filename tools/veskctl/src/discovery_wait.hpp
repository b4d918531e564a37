#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace kov::tools::veskctl {

/// What discovery waits for before a command acts on the sensors.
struct DiscoveryGoal {
  /// At least this many sensors that offer all their services.
  std::size_t sensors{0};
  /// Then wait until discovery is quiet. On a network the number of sensors is not known: the sensors
  /// found once nothing new was reported for DiscoveryWait::QUIET_TIME are taken as all there are.
  bool settle{false};
  /// Only this sensor matters: discovery is over as soon as it offers all its services.
  std::optional<std::uint16_t> sensor;
};

/// Decides when discovery is over. It holds no clock and no thread: the caller tells it every
/// availability change with the time it happened, asks check() with the current time, and waits as
/// the verdict says (or until the next change).
class DiscoveryWait {
 public:
  using Clock = std::chrono::steady_clock;

  /// How long no new sensor and no new service of a known sensor must be reported before settling.
  static constexpr std::chrono::milliseconds QUIET_TIME{500};

  /// The services a sensor offers when it is complete.
  static constexpr std::uint16_t SERVICE_IDS[] = {0x0002, 0x0003, 0x0004};

  struct Verdict {
    enum class State { Done, Waiting, Failed };
    State state;
    Clock::time_point until;  ///< Waiting: check again at this time at the latest
    std::string error;        ///< Failed: what was missing and what was found instead
  };

  /// Discovery started at `start` and may take `timeout`.
  DiscoveryWait(DiscoveryGoal goal, Clock::time_point start, std::chrono::milliseconds timeout);

  /// A service instance of a sensor came (`available`) or went at `at`.
  void serviceChanged(std::uint16_t sensorId, std::uint16_t serviceId, bool available, Clock::time_point at);

  Verdict check(Clock::time_point now) const;

 private:
  struct Seen {
    std::set<std::uint16_t> available;  ///< services available now
  };

  static bool complete(const Seen& seen);
  std::size_t completeCount() const;
  std::string sensorMissing() const;
  std::string tooFew(std::size_t found) const;
  std::string withinTimeout() const;

  DiscoveryGoal goal_;
  Clock::time_point deadline_;
  std::chrono::milliseconds timeout_;
  std::optional<Clock::time_point> lastNews_;
  /// Every sensor of which some service was available at some time, by id.
  std::map<std::uint16_t, Seen> sensors_;
};

}  // namespace kov::tools::veskctl
