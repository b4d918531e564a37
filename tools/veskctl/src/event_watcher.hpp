#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "printer.hpp"
#include "session.hpp"

namespace kov::tools::veskctl {

/// The latest event values of one sensor, copied out of the library's cache in one go.
struct EventSnapshot {
  types::SystemModeStatus mode{};
  types::SensorHealthStatus health{};
  types::AchievedScanSettings achieved{};
  types::ScanDatum datum{};
  types::ScanPatternCommandStatus patternStatus{};
};

/// Copies the sensor's event records, each one whole (never half of one event and half of another).
EventSnapshot snapshotOf(const Sensor& sensor);

/// Polls the event caches of the session's sensors and prints each value that changed since the last
/// poll. Heartbeats are printed when their mode or flags change, not for every beat.
class EventWatcher {
 public:
  /// Watches every sensor of the session, or only `only` when it is not 0xFFFF.
  EventWatcher(Session& session, Printer& printer, std::uint16_t only = 0xFFFF);

  /// One poll over every sensor; returns how many changes were printed.
  std::size_t poll();

  /// The last snapshot taken of a sensor (all zero before the first poll).
  EventSnapshot last(std::uint16_t sensorId) const;

 private:
  void report(std::uint16_t sensorId, const std::string& name, const Fields& fields, const std::string& key,
              const std::string& zeroKey, std::size_t& printed);

  Session& session_;
  Printer& printer_;
  std::uint16_t only_;
  std::map<std::pair<std::uint16_t, std::string>, std::string> seen_;
  std::map<std::uint16_t, EventSnapshot> last_;
};

}  // namespace kov::tools::veskctl
