#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "serialization/types/enumerations.hpp"

namespace kov::tools::simulator {

/// The system mode of one sensor as it moves over time: it boots into standby, spins up before it
/// scans and spins down before it rests. A command sets the goal; the sequencer walks there one step
/// at a time.
class ModeSequencer {
 public:
  using Clock = std::chrono::steady_clock;
  using Status = kov::drivers::lidar::vesk::types::SystemModeStatus;
  using Command = kov::drivers::lidar::vesk::types::SystemModeCommand;

  enum class Phase { Booting, Standby, SpinningUp, Scanning, SpinningDown };

  explicit ModeSequencer(std::chrono::milliseconds step);

  /// Starts over: booting, goal standby.
  void reboot(Clock::time_point now);

  /// Sets the goal. Returns true when the phase changed at once.
  bool command(Command command, Clock::time_point now);

  /// Performs every step due by `now`; returns the statuses entered, in order, without repeats.
  std::vector<Status> advance(Clock::time_point now);

  Phase phase() const { return phase_; }
  Status status() const;
  /// True after a shutdown command until the next scanning command.
  bool parked() const { return parked_; }

 private:
  void startTowardsGoal(Clock::time_point now);

  std::chrono::milliseconds step_;
  Phase phase_{Phase::Booting};
  bool goalScanning_{false};
  bool parked_{false};
  std::optional<Clock::time_point> nextChange_;
};

}  // namespace kov::tools::simulator
