#include <iostream>
#include <string>
#include <thread>

#include "commands.hpp"
#include "event_watcher.hpp"
#include "fault_drill.hpp"
#include "operations.hpp"
#include "transport_factory.hpp"

namespace kov::tools::veskctl {

namespace {

constexpr float DEMO_FRAME_RATE = 20.0F;

/// A scan datum that differs from sensor to sensor and stays within -18..10 degrees for any count.
float demoDatum(std::size_t index) {
  return -5.5F + static_cast<float>(index % 16);
}

/// A data-path destination per sensor, 192.168.10.20 and up.
types::DatapathDestinationInfo demoDestination(std::size_t index) {
  return types::DatapathDestinationInfo{"192.168.10." + std::to_string(20 + index % 200), 2368};
}

types::ScanPattern demoPattern() {
  types::ScanPattern pattern;
  pattern.commands.push_back(std::make_unique<types::ScanPattern::PointCommand>(-30.0F, 2.5F, 1));
  pattern.commands.push_back(std::make_unique<types::ScanPattern::SnapCommand>());
  pattern.commands.push_back(std::make_unique<types::ScanPattern::MinLinesCommand>(16.0F));
  pattern.commands.push_back(std::make_unique<types::ScanPattern::PointCommand>(30.0F, -2.5F, 1));
  return pattern;
}

/// Every sensor's mode event reports `mode`.
bool allInMode(const Session& session, const EventWatcher& watcher, types::SystemModeStatus mode) {
  for (const auto& sensor : session.sensors()) {
    if (watcher.last(sensor.id).mode != mode) {
      return false;
    }
  }
  return true;
}

/// Every sensor scans at the demo's rate, as its events tell.
bool eventsSettled(const Session& session, const EventWatcher& watcher) {
  for (const auto& sensor : session.sensors()) {
    const auto last = watcher.last(sensor.id);
    if (last.mode != types::SystemModeStatus::SCANNING ||
        last.health.mode != types::SystemModeStatus::SCANNING || last.achieved.value1 != DEMO_FRAME_RATE) {
      return false;
    }
  }
  return true;
}

}  // namespace

int runDemo(const CommonOptions& common, const std::vector<std::string>& faults) {
  Printer printer(std::cout, common.json, true);
  std::string error;
  auto bundle = makeTransport(common.transport, error);
  if (!bundle.transport) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_BAD_USAGE;
  }
  const auto goal = bundle.discovery;
  const bool simulated = bundle.simulator != nullptr;
  if (!faults.empty() && !simulated) {
    std::cerr << "veskctl: error: --fault needs --transport sim: faults are injected into the built-in "
                 "simulator, not into sensors on the network\n";
    return EXIT_BAD_USAGE;
  }
  Session session(std::move(bundle), printer);
  printer.note("veskctl demo: " + (simulated ? countOf(goal.sensors, "simulated sensor")
                                   : goal.sensors
                                       ? "at least " + countOf(goal.sensors, "sensor") + " over SOME/IP"
                                       : std::string("the sensors found over SOME/IP")));
  if (!session.open(goal, discoveryTimeout(common), error)) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_NO_TRANSPORT;
  }

  printer.note("-- discovering sensors");
  if (!session.discover(error)) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_NOT_DISCOVERED;
  }
  const auto sensors = session.sensors();
  if (!simulated) {
    printer.note("found " + countOf(sensors.size(), "sensor"));
  }

  std::size_t calls = 0;
  std::size_t failed = 0;
  auto count = [&calls, &failed](bool ok) {
    ++calls;
    failed += ok ? 0 : 1;
  };

  printer.note("-- reading every getter");
  for (const auto& sensor : sensors) {
    for (const auto& getter : getters()) {
      count(runGetter(getter, sensor, printer));
    }
  }

  printer.note("-- following events until every sensor has booted");
  EventWatcher watcher(session, printer);
  if (!session.waitUntil(std::chrono::seconds(5), [&] {
        watcher.poll();
        return allInMode(session, watcher, types::SystemModeStatus::STANDBY);
      })) {
    std::cerr << "veskctl: error: the sensors did not report standby in time\n";
    ++failed;
  }

  printer.note("-- writing settings");
  const auto pattern = demoPattern();
  for (std::size_t index = 0; index < sensors.size(); ++index) {
    const auto& sensor = sensors[index];
    types::DesiredScanSettings settings{DEMO_FRAME_RATE, types::ScanHorizontalInterlaceMode::INTERLACE_2,
                                        types::ScanControlLine::LINE_1, types::ScanFillMode::FILL_ON};
    count(setScanSettings(sensor, settings, printer));
    count(setScanDatum(sensor, types::ScanDatum{demoDatum(index)}, printer));
    count(setScanPattern(sensor, pattern, printer));
    count(setDestination(sensor, demoDestination(index), printer));
    count(setSystemMode(sensor, types::SystemModeCommand::SCANNING, printer));
  }

  printer.note("-- reading back");
  for (const auto& sensor : sensors) {
    for (const auto& getter : getters()) {
      if (getter.key == "scan-settings" || getter.key == "datum" || getter.key == "destination") {
        count(runGetter(getter, sensor, printer));
      }
    }
  }

  printer.note("-- following events until every sensor scans");
  const bool settled = session.waitUntil(std::chrono::seconds(5), [&] {
    watcher.poll();
    return eventsSettled(session, watcher);
  });
  if (!settled) {
    std::cerr << "veskctl: error: the sensors' events did not show them scanning at " << DEMO_FRAME_RATE
              << " Hz in time\n";
    ++failed;
  }

  std::size_t unexpected = 0;
  if (!faults.empty()) {
    printer.note("-- injecting faults");
    unexpected = runFaultDrill(session, watcher, printer, faults);
  }

  printer.note("-- stopping");
  if (!session.close(error)) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_FAILED;
  }
  printer.note("demo finished: " + countOf(sensors.size(), "sensor") + ", " + std::to_string(calls - failed) +
               " of " + std::to_string(calls) + " calls succeeded" +
               (faults.empty() ? std::string() : ", " + countOf(unexpected, "unexpected fault outcome")));
  if (failed != 0 || unexpected != 0) {
    std::cerr << "veskctl: error: demo failed\n";
    return EXIT_FAILED;
  }
  return EXIT_OK;
}

}  // namespace kov::tools::veskctl
