// veskctl: drives sensors through the control library. Today the network is a simulated fleet.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

#include "commands.hpp"
#include "common/log/system_logger.hpp"

namespace {

using kov::common::log::LogLevel;

/// Discard level that lets `name` and everything more severe through.
const std::map<std::string, LogLevel>& logLevels() {
  static const std::map<std::string, LogLevel> levels{{"trace", static_cast<LogLevel>(0)},
                                                      {"debug", LogLevel::TRACE},
                                                      {"info", LogLevel::DEBUG},
                                                      {"warn", LogLevel::INFO},
                                                      {"error", LogLevel::WARN},
                                                      {"fatal", LogLevel::ERROR},
                                                      {"off", LogLevel::FATAL}};
  return levels;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace kov::tools::veskctl;

  CLI::App app{"veskctl - discover, configure and watch VESK lidar sensors over SOME/IP"};
  app.require_subcommand(1);
  app.fallthrough();

  CommonOptions common;
  std::string logLevel = "info";
  app.add_flag("--json", common.json, "Write one JSON object per line instead of aligned text");
  app.add_option("--log-level", logLevel, "Library log level: trace, debug, info, warn, error, fatal, off")
      ->check(CLI::IsMember({"trace", "debug", "info", "warn", "error", "fatal", "off"}));
  app.add_option("--sensors", common.sensors, "Number of simulated sensors")->check(CLI::Range(1, 64));
  app.add_flag("--legacy", common.legacySensor,
               "Add a simulated sensor that offers each service under its service id");
  app.add_option("--discovery-timeout", common.discoverySeconds, "Seconds to wait for discovery")
      ->check(CLI::PositiveNumber);

  std::vector<std::string> faults;
  auto* demo = app.add_subcommand(
      "demo", "Discover the fleet, read every getter, set every setter, follow the events, then stop");
  demo->add_option("--fault", faults, "Inject a fault into the simulated network (repeatable)")
      ->check(CLI::IsMember(faultNames()));

  auto* list = app.add_subcommand("list", "Show the discovered sensors and their services");
  list->add_option("--sensor", common.sensor, "Only this sensor (instance id, e.g. 0x10)");

  std::vector<std::string> what;
  auto* get = app.add_subcommand("get", "Read values from the sensors");
  get->add_option("what", what,
                  "mode, scan-settings, achieved, datum, pattern-status, version, destination, all")
      ->check(CLI::IsMember(
          {"mode", "scan-settings", "achieved", "datum", "pattern-status", "version", "destination", "all"}));
  get->add_option("--sensor", common.sensor, "Only this sensor (instance id, e.g. 0x10)");

  SetOptions set;
  auto* setCommand = app.add_subcommand("set", "Write values to the sensors");
  setCommand->add_option("--sensor", common.sensor, "Only this sensor (instance id, e.g. 0x10)");
  setCommand->add_option("--mode", set.mode, "System mode: standby, scanning, shutdown")
      ->check(CLI::IsMember({"standby", "scanning", "shutdown"}));
  setCommand->add_option("--frame-rate", set.frameRate, "Desired frame rate in Hz (1 to 30)");
  setCommand->add_option("--interlace", set.interlace, "Horizontal interlace: none, 2, 3, 4, 8");
  setCommand->add_option("--control-line", set.controlLine, "Scan control line: 0 or 1")
      ->check(CLI::Range(0, 1));
  setCommand->add_option("--fill", set.fill, "Gap filling: on or off")->check(CLI::IsMember({"on", "off"}));
  setCommand->add_option("--datum", set.datum, "Scan datum elevation in degrees (-18 to 10)");
  setCommand->add_option("--pattern", set.pattern, "Scan pattern: point:AZ:EL[:ATTR],snap,minlines:N,...");
  setCommand->add_option("--destination", set.destination, "Data-path destination A.B.C.D:PORT");

  double seconds = 2.0;
  auto* watch = app.add_subcommand("watch", "Print event values as they change");
  watch->add_option("--seconds", seconds, "How long to watch")->check(CLI::PositiveNumber);
  watch->add_option("--sensor", common.sensor, "Only this sensor (instance id, e.g. 0x10)");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int status = app.exit(e);
    return status == 0 ? EXIT_OK : EXIT_BAD_USAGE;
  }

  auto& logger = kov::common::log::systemLogger();
  logger.setDiscardLevel(logLevels().at(logLevel));
  logger.colorizeLogMessage(isatty(STDERR_FILENO) != 0);

  if (demo->parsed()) {
    return runDemo(common, faults);
  }
  if (list->parsed()) {
    return runList(common);
  }
  if (get->parsed()) {
    return runGet(common, what);
  }
  if (setCommand->parsed()) {
    return runSet(common, set);
  }
  return runWatch(common, seconds);
}
