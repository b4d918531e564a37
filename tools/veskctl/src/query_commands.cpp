#include <algorithm>
#include <functional>
#include <iostream>
#include <thread>

#include "commands.hpp"
#include "event_watcher.hpp"
#include "operations.hpp"
#include "transport_factory.hpp"
#include "value_parsers.hpp"

namespace kov::tools::veskctl {

namespace {

/// The sensor `--sensor` names, or 0xFFFF for all (the text was checked when the line was parsed).
std::uint16_t selectedSensor(const CommonOptions& common) {
  return common.sensor.empty() ? 0xFFFF : parseSensorId(common.sensor).value_or(0xFFFF);
}

/// A hint when the decimal digits of `--sensor` match no sensor but their hexadecimal reading does.
std::string hexHint(const CommonOptions& common, const Session& session, std::uint16_t only) {
  const auto hex = hexReadingOf(common.sensor);
  if (hex && *hex != only && !session.sensors(*hex).empty()) {
    return " (--sensor " + common.sensor +
           " is read as decimal; sensor ids are printed in hexadecimal: " + "did you mean --sensor " +
           hexId(*hex) + "?)";
  }
  return std::string();
}

/// Opens a session, discovers the sensors, runs `body` on the selected ones and closes again.
int withSensors(const CommonOptions& common, Printer& printer,
                const std::function<int(Session&, const std::vector<Sensor>&)>& body) {
  const std::uint16_t only = selectedSensor(common);
  std::string error;
  auto bundle = makeTransport(common.transport, error);
  if (!bundle.transport) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_BAD_USAGE;
  }
  auto goal = bundle.discovery;
  if (goal.settle && only != 0xFFFF) {
    // On the network, the named sensor ends discovery; the simulated fleet is discovered whole.
    goal.sensor = only;
  }
  Session session(std::move(bundle), printer);
  if (!session.open(goal, discoveryTimeout(common), error)) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_NO_TRANSPORT;
  }
  if (!session.discover(error)) {
    std::cerr << "veskctl: error: " << error << (goal.sensor ? hexHint(common, session, only) : "") << '\n';
    return EXIT_NOT_DISCOVERED;
  }
  const auto sensors = session.sensors(only);
  if (sensors.empty()) {
    std::cerr << "veskctl: error: no sensor " << hexId(only) << hexHint(common, session, only) << '\n';
    return EXIT_NOT_DISCOVERED;
  }
  const int status = body(session, sensors);
  if (!session.close(error)) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_FAILED;
  }
  return status;
}

bool parseInterlace(const std::string& text, types::ScanHorizontalInterlaceMode& mode) {
  static const std::pair<const char*, types::ScanHorizontalInterlaceMode> names[] = {
      {"none", types::ScanHorizontalInterlaceMode::NONE},
      {"2", types::ScanHorizontalInterlaceMode::INTERLACE_2},
      {"3", types::ScanHorizontalInterlaceMode::INTERLACE_3},
      {"4", types::ScanHorizontalInterlaceMode::INTERLACE_4},
      {"8", types::ScanHorizontalInterlaceMode::INTERLACE_8}};
  for (const auto& name : names) {
    if (text == name.first) {
      mode = name.second;
      return true;
    }
  }
  return false;
}

}  // namespace

std::chrono::milliseconds discoveryTimeout(const CommonOptions& common) {
  return std::chrono::milliseconds(static_cast<long>(common.discoverySeconds * 1000.0));
}

std::string countOf(std::size_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

int runList(const CommonOptions& common) {
  Printer printer(std::cout, common.json, common.verbose);
  return withSensors(common, printer, [&printer](Session& session, const std::vector<Sensor>& sensors) {
    for (const auto& sensor : sensors) {
      Fields fields;
      std::string endpoint;
      for (const auto& entry : sensor.client->getServiceAvailability()) {
        fields.push_back(Field{"service" + hexId(entry.first), entry.second ? "true" : "false", false});
        if (endpoint.empty()) {
          endpoint = session.endpointOf(sensor.id, entry.first);
        }
      }
      std::sort(fields.begin(), fields.end(), [](const Field& a, const Field& b) { return a.key < b.key; });
      if (!endpoint.empty()) {
        // Over SOME/IP: where the sensor offers its services, as its offers say.
        fields.push_back(Field{"endpoint", endpoint, true});
      }
      printer.result(sensor.id, "services", true, fields);
    }
    return EXIT_OK;
  });
}

int runGet(const CommonOptions& common, const std::vector<std::string>& what) {
  Printer printer(std::cout, common.json, common.verbose);
  return withSensors(common, printer, [&](Session&, const std::vector<Sensor>& sensors) {
    bool ok = true;
    for (const auto& sensor : sensors) {
      for (const auto& getter : getters()) {
        if (what.empty() || std::find(what.begin(), what.end(), getter.key) != what.end() ||
            std::find(what.begin(), what.end(), "all") != what.end()) {
          ok = runGetter(getter, sensor, printer) && ok;
        }
      }
    }
    return ok ? EXIT_OK : EXIT_FAILED;
  });
}

int runSet(const CommonOptions& common, const SetOptions& options) {
  types::ScanPattern pattern;
  types::DatapathDestinationInfo destination;
  types::SystemModeCommand command{};
  std::string error;
  if (options.pattern && !parseScanPattern(*options.pattern, pattern, error)) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_BAD_USAGE;
  }
  if (options.destination && !parseDestination(*options.destination, destination, error)) {
    std::cerr << "veskctl: error: " << error << '\n';
    return EXIT_BAD_USAGE;
  }
  if (options.mode) {
    command = *options.mode == "scanning"   ? types::SystemModeCommand::SCANNING
              : *options.mode == "shutdown" ? types::SystemModeCommand::SHUTDOWN
                                            : types::SystemModeCommand::STANDBY;
  }
  types::ScanHorizontalInterlaceMode interlace{};
  if (options.interlace && !parseInterlace(*options.interlace, interlace)) {
    std::cerr << "veskctl: error: bad interlace \"" << *options.interlace << "\" (use none, 2, 3, 4 or 8)\n";
    return EXIT_BAD_USAGE;
  }
  const bool settings = options.frameRate || options.interlace || options.controlLine || options.fill;
  if (!settings && !options.datum && !options.pattern && !options.destination && !options.mode) {
    std::cerr << "veskctl: error: nothing to set (see veskctl set --help)\n";
    return EXIT_BAD_USAGE;
  }
  Printer printer(std::cout, common.json, common.verbose);
  return withSensors(common, printer, [&](Session&, const std::vector<Sensor>& sensors) {
    bool ok = true;
    for (const auto& sensor : sensors) {
      if (settings) {
        // Fields not given keep the sensor's current values.
        types::DesiredScanSettings desired{};
        if (!readScanSettings(sensor, desired, printer)) {
          ok = false;
          continue;
        }
        desired.frameRate = options.frameRate.value_or(desired.frameRate);
        desired.horizontalInterlaceMode = options.interlace ? interlace : desired.horizontalInterlaceMode;
        if (options.controlLine) {
          desired.controlLine = static_cast<types::ScanControlLine>(*options.controlLine);
        }
        if (options.fill) {
          desired.fillMode =
              *options.fill == "on" ? types::ScanFillMode::FILL_ON : types::ScanFillMode::FILL_OFF;
        }
        ok = setScanSettings(sensor, desired, printer) && ok;
      }
      if (options.datum) {
        ok = setScanDatum(sensor, types::ScanDatum{*options.datum}, printer) && ok;
      }
      if (options.pattern) {
        ok = setScanPattern(sensor, pattern, printer) && ok;
      }
      if (options.destination) {
        ok = setDestination(sensor, destination, printer) && ok;
      }
      if (options.mode) {
        ok = setSystemMode(sensor, command, printer) && ok;
      }
    }
    return ok ? EXIT_OK : EXIT_FAILED;
  });
}

int runWatch(const CommonOptions& common, double seconds) {
  Printer printer(std::cout, common.json, true);
  return withSensors(common, printer, [&](Session& session, const std::vector<Sensor>& sensors) {
    EventWatcher watcher(session, printer, sensors.size() == 1 ? sensors.front().id : 0xFFFF);
    const auto duration = std::chrono::milliseconds(static_cast<long>(seconds * 1000.0));
    const auto until = Session::Clock::now() + duration;
    session.waitUntil(duration + std::chrono::seconds(1), [&] {
      watcher.poll();
      return Session::Clock::now() >= until;
    });
    return EXIT_OK;
  });
}

}  // namespace kov::tools::veskctl
