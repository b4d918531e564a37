#include "fault_drill.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "commands.hpp"
#include "networking/utils.hpp"
#include "operations.hpp"
#include "serialization/wire/records.hpp"

namespace kov::tools::veskctl {

namespace {

using kov::tools::simulator::Result;
using kov::tools::simulator::SimulatedFleet;
using std::chrono::milliseconds;

constexpr milliseconds DRILL_TIMEOUT{3000};

const Getter& getterFor(const std::string& key) {
  const auto& all = getters();
  return *std::find_if(all.begin(), all.end(), [&key](const Getter& getter) { return getter.key == key; });
}

/// A call made to fail with `result` fails, and the same call succeeds once the fault is used up.
bool drillCallFault(const std::string& name, Result result, const std::string& getterKey,
                    std::uint16_t serviceId, std::uint16_t methodId, SimulatedFleet& fleet,
                    const Sensor& sensor, Printer& printer) {
  const auto& getter = getterFor(getterKey);
  fleet.failNextCalls(sensor.id, serviceId, methodId, result);
  Fields ignored;
  std::string reason;
  const bool failed = !getter.read(sensor, ignored, reason);
  printer.fault(sensor.id, name, getter.operation, failed,
                failed ? "call failed as injected: " + reason : "call succeeded despite the fault");
  const bool recovered = runGetter(getter, sensor, printer);
  return failed && recovered;
}

bool drillOffline(SimulatedFleet& fleet, Session& session, const Sensor& sensor, Printer& printer) {
  fleet.setSensorOnline(sensor.id, false);
  const bool gone =
      session.waitUntil(DRILL_TIMEOUT, [&sensor] { return !sensor.client->hasAvailableService(); });
  const bool refused = !sensor.control->setSystemMode(types::SystemModeCommand::SCANNING);
  printer.fault(sensor.id, "offline", "setSystemMode", gone && refused,
                refused ? "refused while the sensor is offline" : "went through while the sensor is offline");
  fleet.setSensorOnline(sensor.id, true);
  const bool back = session.waitUntil(DRILL_TIMEOUT, [&sensor] {
    return sensor.client->isAvailable(0x0002) && sensor.client->isAvailable(0x0003) &&
           sensor.client->isAvailable(0x0004);
  });
  const bool accepted = back && setSystemMode(sensor, types::SystemModeCommand::SCANNING, printer);
  return gone && refused && accepted;
}

/// A raw event the client must drop: the cached value stays what it was.
bool drillBadEvent(const std::string& name, const void* data, std::size_t size, std::uint16_t serviceId,
                   std::uint16_t eventId, SimulatedFleet& fleet, EventWatcher& watcher, const Sensor& sensor,
                   Printer& printer) {
  watcher.poll();
  const auto before = snapshotOf(sensor);
  const bool sent =
      fleet.injectEvent(sensor.id, serviceId, eventId, data, size) && fleet.drain(DRILL_TIMEOUT);
  const auto after = snapshotOf(sensor);
  const bool unchanged = serviceId == 0x0003 ? after.datum.elevation == before.datum.elevation
                                             : after.health.mode == before.health.mode;
  const std::string what = "event " + hexId(eventId) + " of service " + hexId(serviceId) + " with " +
                           (data == nullptr ? "null payload" : std::to_string(size) + " bytes");
  printer.fault(sensor.id, name, "event cache", sent && unchanged,
                what + (unchanged ? ": dropped, cache unchanged" : ": cache changed"));
  return sent && unchanged;
}

}  // namespace

const std::vector<std::string>& faultNames() {
  static const std::vector<std::string> names{"timeout",     "error",      "offline",
                                              "short-event", "null-event", "all"};
  return names;
}

std::size_t runFaultDrill(Session& session, EventWatcher& watcher, Printer& printer,
                          const std::vector<std::string>& faults) {
  const auto& fleet = session.simulator();
  const auto sensors = session.sensors();
  if (!fleet || sensors.empty()) {
    printer.note("faults can only be injected into the simulated network");
    return faults.size();
  }
  const auto& sensor = sensors.front();
  auto wanted = [&faults](const std::string& name) {
    return std::find(faults.begin(), faults.end(), name) != faults.end() ||
           std::find(faults.begin(), faults.end(), "all") != faults.end();
  };
  std::size_t unexpected = 0;
  if (wanted("timeout")) {
    unexpected +=
        drillCallFault("timeout", Result::Timeout, "scan-settings", 0x0003, 0x8001, *fleet, sensor, printer)
            ? 0
            : 1;
  }
  if (wanted("error")) {
    unexpected += drillCallFault("error", static_cast<Result>(0x12), "pattern-status", 0x0003, 0x8007, *fleet,
                                 sensor, printer)
                      ? 0
                      : 1;
  }
  if (wanted("offline")) {
    unexpected += drillOffline(*fleet, session, sensor, printer) ? 0 : 1;
  }
  if (wanted("short-event")) {
    // A heartbeat four bytes short of its 22.
    kov::drivers::lidar::vesk::serialization::SystemHeartbeatAppRecord heartbeat{};
    unexpected += drillBadEvent("short-event", &heartbeat, sizeof(heartbeat) - 4, 0x0002, 2, *fleet, watcher,
                                sensor, printer)
                      ? 0
                      : 1;
  }
  if (wanted("null-event")) {
    unexpected +=
        drillBadEvent("null-event", nullptr, 4, 0x0003, 2, *fleet, watcher, sensor, printer) ? 0 : 1;
  }
  watcher.poll();
  return unexpected;
}

}  // namespace kov::tools::veskctl
