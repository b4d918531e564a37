#include "command_line.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "discovery_wait.hpp"
#include "doctor_command.hpp"
#include "monitor_command.hpp"
#include "value_parsers.hpp"

namespace kov::tools::veskctl {

namespace {

const char* const SUBCOMMANDS = "demo, list, get, set, watch, monitor or doctor";

const char* const SET_FOOTER =
    "With --transport sim (the default) every run of veskctl starts a new simulated fleet, so a value\n"
    "set here is gone when veskctl exits (demo writes and reads back in one run). Values persist\n"
    "across runs on a networked sensor, or on the sensor daemon vesk-sensord:\n"
    "use --transport someip --unicast ADDR.\n";

const char* const WATCH_FOOTER =
    "Event values (names as in the library; units and meanings as the simulated sensors assign them):\n"
    "  achievedScanSettings  value1 = frame rate achieved (Hz), value2 = 64 x the interlace factor\n"
    "                        (64 without interlace, 128 with INTERLACE_2, ...); both 0 unless scanning\n"
    "  sensorHealthStatus    value1 = housing temperature (degrees C), value2 = supply voltage (V),\n"
    "                        value3 = time since power-on (s); flag1 = laser emitting, flag2 = mirror\n"
    "                        moving, flag3 = self test passed, flag4 = time synchronised, flag5 = parked\n"
    "                        after shutdown\n"
    "  scanDatum             elevation in degrees\n"
    "Heartbeats are printed when their mode or flags change, not for every beat.\n";

/// How veskctl finds the sensors; part of the top-level --help and so of the man page.
std::string discoveryFooter() {
  const auto quiet = std::to_string(DiscoveryWait::QUIET_TIME.count());
  return "Discovery: with --transport sim veskctl waits until every simulated sensor offers its\n"
         "services. With --transport someip the number of sensors is not known: with --sensor ID it goes\n"
         "on as soon as that sensor offers its services 0x0002, 0x0003 and 0x0004; otherwise it takes\n"
         "every sensor found once no new sensor and no new service was reported for " +
         quiet +
         " ms (with\n"
         "--sensors N, once at least N sensors offer all their services and then " +
         quiet +
         " ms pass without\n"
         "news). It gives up after --discovery-timeout seconds, failing when the named sensor, N sensors\n"
         "or any sensor at all was not found.\n";
}

/// The raw texts of the options that veskctl checks itself.
struct RawOptions {
  std::string discoveryTimeout{"5"};
  std::string transport{"sim"};
  std::string unicast;
  std::string sdMulticast{TransportOptions::DEFAULT_SD_MULTICAST};
  std::string sdPort{std::to_string(TransportOptions::DEFAULT_SD_PORT)};
  std::string callTimeout{"1"};
  std::optional<std::string> major;
  std::string sensor;
  std::optional<std::string> frameRate;
  std::optional<std::string> datum;
  std::string watchSeconds{"2"};
  /// Each --sensors option (one per command that takes the global options), to tell whether it was given.
  std::vector<const CLI::Option*> sensors;
};

/// The options every subcommand takes; added to the top level and to each subcommand, so that they
/// may stand anywhere on the line and every subcommand's --help shows them.
void addGlobalOptions(CLI::App& app, CommandLine& line, RawOptions& raw) {
  app.add_flag("--json", line.common.json, "Write one JSON object per line instead of aligned text");
  app.add_flag("-v,--verbose", line.common.verbose,
               "Also print service availability changes (demo and watch always do)");
  app.add_option("--log-level", line.logLevel,
                 "Library log level: trace, debug, info, warn, error, fatal, off")
      ->check(CLI::IsMember({"trace", "debug", "info", "warn", "error", "fatal", "off"}));
  app.add_option("--transport", raw.transport,
                 "sim: the built-in simulated fleet (new on every run); someip: sensors on the network")
      ->check(CLI::IsMember({"sim", "someip"}));
  raw.sensors.push_back(
      app.add_option(
             "--sensors", line.common.transport.sensors,
             "Number of simulated sensors (1 to 64); with someip optional: wait for at least N sensors")
          ->check(CLI::Range(1, 64)));
  app.add_flag("--legacy", line.common.transport.legacySensor,
               "Add a simulated sensor that offers each service under its service id");
  app.add_option("--unicast", raw.unicast,
                 "This host's IPv4 address for SOME/IP (required with --transport someip)")
      ->type_name("ADDR");
  app.add_option("--sd-multicast", raw.sdMulticast, "SOME/IP service discovery multicast group")
      ->type_name("ADDR");
  app.add_option("--sd-port", raw.sdPort, "SOME/IP service discovery UDP port (1 to 65535)")
      ->type_name("PORT");
  app.add_option("--discovery-timeout", raw.discoveryTimeout,
                 "Seconds discovery may take at most (0.1 to 600; see Discovery below)")
      ->type_name("SECONDS");
  app.add_option("--call-timeout", raw.callTimeout,
                 "SOME/IP: seconds a method call waits for its response (0.01 to 600)")
      ->type_name("SECONDS");
  app.add_option("--major", raw.major,
                 "SOME/IP: ask only for this service major version and ignore offers of others (0 to 254; "
                 "default: any)")
      ->type_name("N");
}

void addSensorOption(CLI::App& app, RawOptions& raw) {
  app.add_option("--sensor", raw.sensor, "Only this sensor: its id as printed (0x10) or in decimal (16)")
      ->type_name("ID");
}

/// Checks what CLI11 cannot: number formats and ranges, addresses, option combinations.
bool check(CommandLine& line, const RawOptions& raw, std::string& error) {
  auto& transport = line.common.transport;
  const auto discovery =
      parseInRange("--discovery-timeout", raw.discoveryTimeout, DISCOVERY_SECONDS_RANGE, error);
  if (!discovery) {
    return false;
  }
  line.common.discoverySeconds = *discovery;
  transport.kind = raw.transport == "someip" ? TransportKind::SomeIp : TransportKind::Simulator;
  transport.sensorsGiven = std::any_of(raw.sensors.begin(), raw.sensors.end(),
                                       [](const CLI::Option* option) { return option->count() != 0; });
  if (transport.kind == TransportKind::SomeIp && raw.unicast.empty()) {
    error = "--transport someip needs --unicast ADDR, this host's IPv4 address";
    return false;
  }
  if (!raw.unicast.empty()) {
    const auto unicast = parseDottedQuad(raw.unicast);
    if (!unicast) {
      error =
          "--unicast " + raw.unicast + ": expected an IPv4 address A.B.C.D with four decimal octets 0 to 255";
      return false;
    }
    transport.unicast = *unicast;
  }
  const auto multicast = parseDottedQuad(raw.sdMulticast);
  const auto first = multicast ? std::stoi(multicast->substr(0, multicast->find('.'))) : 0;
  if (!multicast || first < 224 || first > 239) {
    error = "--sd-multicast " + raw.sdMulticast +
            ": expected an IPv4 multicast address, 224.0.0.0 to 239.255.255.255";
    return false;
  }
  transport.sdMulticast = *multicast;
  const auto port = parsePort(raw.sdPort);
  if (!port) {
    error = "--sd-port " + raw.sdPort + ": expected a decimal port from 1 to 65535";
    return false;
  }
  transport.sdPort = *port;
  if (!raw.sensor.empty() && !parseSensorId(raw.sensor)) {
    error = "--sensor " + raw.sensor + ": expected a sensor id, 0x0 to 0xfffe or 0 to 65534";
    return false;
  }
  line.common.sensor = raw.sensor;
  const auto callTimeout = parseInRange("--call-timeout", raw.callTimeout, CALL_TIMEOUT_SECONDS_RANGE, error);
  if (!callTimeout) {
    return false;
  }
  transport.callTimeout = std::chrono::milliseconds(static_cast<long long>(*callTimeout * 1000 + 0.5));
  if (raw.major) {
    // 0xFF is SOME/IP's "any major version", which is what leaving the option out asks for.
    const auto& text = *raw.major;
    const bool digits = !text.empty() && text.size() <= 3 &&
                        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!digits || std::stoi(text) > 254) {
      error = "--major " + text + ": expected a major version, a whole number from 0 to 254";
      return false;
    }
    transport.major = static_cast<std::uint8_t>(std::stoi(text));
  }
  if (raw.frameRate) {
    const auto rate = parseInRange("--frame-rate", *raw.frameRate, FRAME_RATE_RANGE, error);
    if (!rate) {
      return false;
    }
    line.set.frameRate = static_cast<float>(*rate);
  }
  if (raw.datum) {
    const auto datum = parseInRange("--datum", *raw.datum, DATUM_RANGE, error);
    if (!datum) {
      return false;
    }
    line.set.datum = static_cast<float>(*datum);
  }
  const auto seconds = parseInRange("--seconds", raw.watchSeconds, WATCH_SECONDS_RANGE, error);
  if (!seconds) {
    return false;
  }
  line.watchSeconds = *seconds;
  return true;
}

int usageError(const std::string& message) {
  std::cerr << "veskctl: error: " << message << "\n";
  return EXIT_BAD_USAGE;
}

}  // namespace

std::optional<int> parseCommandLine(int argc, const char* const* argv, CommandLine& line) {
  CLI::App app{"veskctl - discover, configure and watch VESK lidar sensors over SOME/IP"};
  app.option_defaults()->always_capture_default();
  app.set_version_flag("--version", std::string("veskctl ") + VESKCTL_VERSION);
  app.require_subcommand(0, 1);
  app.fallthrough();
  app.footer(discoveryFooter() +
             "Exit status, the same for every subcommand: 0 success, 1 a call or a check failed, 2 bad\n"
             "command line, 3 no sensor (or not the asked one) was discovered, 4 the transport could not\n"
             "start (an address that is not this host's, a port held by another program, ...).\n");

  RawOptions raw;
  addGlobalOptions(app, line, raw);

  auto* demo = app.add_subcommand(
      "demo", "Discover the fleet, read every getter, set every setter, follow the events, then stop");
  demo->add_option("--fault", line.faults, "Inject a fault into the simulated network (repeatable)")
      ->check(CLI::IsMember(faultNames()));

  auto* list = app.add_subcommand("list", "Show the discovered sensors and their services");
  addSensorOption(*list, raw);

  auto* get = app.add_subcommand("get", "Read values from the sensors (all of them when none is named)");
  get->add_option("what", line.what,
                  "mode, scan-settings, achieved, datum, pattern-status, version, destination, all")
      ->check(CLI::IsMember(
          {"mode", "scan-settings", "achieved", "datum", "pattern-status", "version", "destination", "all"}));
  addSensorOption(*get, raw);

  auto* set = app.add_subcommand("set", "Write values to the sensors");
  set->footer(SET_FOOTER);
  addSensorOption(*set, raw);
  set->add_option("--mode", line.set.mode, "System mode: standby, scanning, shutdown")
      ->check(CLI::IsMember({"standby", "scanning", "shutdown"}));
  set->add_option("--frame-rate", raw.frameRate, "Desired frame rate in Hz (1 to 30)")->type_name("HZ");
  set->add_option("--interlace", line.set.interlace, "Horizontal interlace: none, 2, 3, 4, 8")
      ->check(CLI::IsMember({"none", "2", "3", "4", "8"}));
  set->add_option("--control-line", line.set.controlLine, "Scan control line: 0 or 1")
      ->check(CLI::Range(0, 1));
  set->add_option("--fill", line.set.fill, "Gap filling: on or off")->check(CLI::IsMember({"on", "off"}));
  set->add_option("--datum", raw.datum, "Scan datum elevation in degrees (-18 to 10)")->type_name("DEGREES");
  set->add_option("--pattern", line.set.pattern,
                  "Scan pattern of at most 88 comma-separated commands:\n"
                  "point:AZ:EL[:ATTR] (AZ -90 to 90, EL -18 to 10 degrees, ATTR 0 to 255), snap, minlines:N")
      ->type_name("COMMANDS");
  set->add_option("--destination", line.set.destination, "Data-path destination A.B.C.D:PORT")
      ->type_name("A.B.C.D:PORT");

  auto* watch = app.add_subcommand("watch", "Print event values as they change");
  watch->footer(WATCH_FOOTER);
  watch->add_option("--seconds", raw.watchSeconds, "How long to watch (0.1 to 3600)")->type_name("SECONDS");
  addSensorOption(*watch, raw);

  auto* monitor = addMonitorCommand(app, line.monitor);

  auto* doctor = app.add_subcommand("doctor", "Check why sensors are not discovered on --unicast's address");
  doctor->footer(DOCTOR_FOOTER);
  doctor->add_option("--seconds", line.doctorSeconds, "How long to listen to service discovery (0.1 to 600)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.1, 600.0));

  for (auto* command : {demo, list, get, set, watch, monitor, doctor}) {
    addGlobalOptions(*command, line, raw);
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ExtrasError& e) {
    const auto extras = app.remaining();
    if (app.get_subcommands().empty() && !extras.empty() && extras.front().rfind('-', 0) != 0) {
      return usageError("unknown subcommand \"" + extras.front() + "\" (use " + SUBCOMMANDS + ")");
    }
    return app.exit(e) == 0 ? EXIT_OK : EXIT_BAD_USAGE;
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? EXIT_OK : EXIT_BAD_USAGE;
  }

  const std::pair<CLI::App*, CommandLine::Command> commands[] = {
      {demo, CommandLine::Command::Demo},    {list, CommandLine::Command::List},
      {get, CommandLine::Command::Get},      {set, CommandLine::Command::Set},
      {watch, CommandLine::Command::Watch},  {monitor, CommandLine::Command::Monitor},
      {doctor, CommandLine::Command::Doctor}};
  bool found = false;
  for (const auto& command : commands) {
    if (command.first->parsed()) {
      line.command = command.second;
      found = true;
    }
  }
  if (!found) {
    return usageError(std::string("a subcommand is required: ") + SUBCOMMANDS + " (see veskctl --help)");
  }
  std::string error;
  if (!check(line, raw, error)) {
    return usageError(error);
  }
  if (line.command == CommandLine::Command::Doctor && line.common.transport.unicast.empty()) {
    return usageError("doctor needs --unicast ADDR, the IPv4 address sensors should be discovered on");
  }
  if (line.command == CommandLine::Command::Monitor &&
      !checkMonitorOptions(line.common, line.monitor, error)) {
    return usageError(error);
  }
  return std::nullopt;
}

}  // namespace kov::tools::veskctl
