#include "event_watcher.hpp"

namespace kov::tools::veskctl {

namespace {

std::string keyOf(const Fields& fields) {
  std::string key;
  for (const auto& field : fields) {
    key += field.key + '=' + field.text + ';';
  }
  return key;
}

/// What makes a heartbeat worth printing: its mode and flags, not its measured values.
std::string healthStateOf(const types::SensorHealthStatus& health) {
  return nameOf(health.mode) + (health.flag1 ? '1' : '0') + (health.flag2 ? '1' : '0') +
         (health.flag3 ? '1' : '0') + (health.flag4 ? '1' : '0') + (health.flag5 ? '1' : '0');
}

}  // namespace

EventSnapshot snapshotOf(const Sensor& sensor) {
  // Events keep arriving while we read: copy each record whole, under the client's event lock.
  EventSnapshot snapshot;
  sensor.control->copyEvent(snapshot.mode);
  sensor.control->copyEvent(snapshot.health);
  sensor.control->copyEvent(snapshot.achieved);
  sensor.control->copyEvent(snapshot.datum);
  sensor.control->copyEvent(snapshot.patternStatus);
  return snapshot;
}

EventWatcher::EventWatcher(Session& session, Printer& printer, std::uint16_t only)
    : session_(session), printer_(printer), only_(only) {}

std::size_t EventWatcher::poll() {
  std::size_t printed = 0;
  const EventSnapshot zero{};
  for (const auto& sensor : session_.sensors(only_)) {
    const auto snapshot = snapshotOf(sensor);
    last_[sensor.id] = snapshot;
    report(sensor.id, "systemModeStatus", fieldsOf(snapshot.mode), keyOf(fieldsOf(snapshot.mode)),
           keyOf(fieldsOf(zero.mode)), printed);
    report(sensor.id, "sensorHealthStatus", fieldsOf(snapshot.health), healthStateOf(snapshot.health),
           healthStateOf(zero.health), printed);
    report(sensor.id, "achievedScanSettings", fieldsOf(snapshot.achieved), keyOf(fieldsOf(snapshot.achieved)),
           keyOf(fieldsOf(zero.achieved)), printed);
    report(sensor.id, "scanDatum", fieldsOf(snapshot.datum), keyOf(fieldsOf(snapshot.datum)),
           keyOf(fieldsOf(zero.datum)), printed);
    report(sensor.id, "scanPatternCommandStatus", fieldsOf(snapshot.patternStatus),
           keyOf(fieldsOf(snapshot.patternStatus)), keyOf(fieldsOf(zero.patternStatus)), printed);
  }
  return printed;
}

void EventWatcher::report(std::uint16_t sensorId, const std::string& name, const Fields& fields,
                          const std::string& key, const std::string& zeroKey, std::size_t& printed) {
  // Until the first event arrives the cache holds zeros: that counts as nothing seen yet.
  auto& seen = seen_.emplace(std::make_pair(sensorId, name), zeroKey).first->second;
  if (seen == key) {
    return;
  }
  seen = key;
  printer_.event(session_.elapsed(), sensorId, name, fields);
  ++printed;
}

EventSnapshot EventWatcher::last(std::uint16_t sensorId) const {
  const auto it = last_.find(sensorId);
  return it == last_.end() ? EventSnapshot{} : it->second;
}

}  // namespace kov::tools::veskctl
