// veskctl: drives sensors through the control library, over the simulated fleet or SOME/IP.

#include <unistd.h>

#include <map>
#include <string>

#include "command_line.hpp"
#include "commands.hpp"
#include "common/log/system_logger.hpp"
#include "doctor_command.hpp"
#include "failure_reasons.hpp"
#include "monitor_command.hpp"

namespace {

using kov::common::log::LogLevel;

/// Discard level that lets `name` and everything more severe through.
LogLevel discardLevelFor(const std::string& name) {
  static const std::map<std::string, LogLevel> levels{{"trace", static_cast<LogLevel>(0)},
                                                      {"debug", LogLevel::TRACE},
                                                      {"info", LogLevel::DEBUG},
                                                      {"warn", LogLevel::INFO},
                                                      {"error", LogLevel::WARN},
                                                      {"fatal", LogLevel::ERROR},
                                                      {"off", LogLevel::FATAL}};
  return levels.at(name);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace kov::tools::veskctl;

  CommandLine line;
  if (const auto status = parseCommandLine(argc, argv, line)) {
    return *status;
  }

  // Library log lines go to stderr; colour only when a person looks at it.
  auto logger = installFailureReasons();
  logger->setDiscardLevel(discardLevelFor(line.logLevel));
  logger->colorizeLogMessage(isatty(STDERR_FILENO) != 0);

  switch (line.command) {
    case CommandLine::Command::Demo:
      return runDemo(line.common, line.faults);
    case CommandLine::Command::List:
      return runList(line.common);
    case CommandLine::Command::Get:
      return runGet(line.common, line.what);
    case CommandLine::Command::Set:
      return runSet(line.common, line.set);
    case CommandLine::Command::Watch:
      return runWatch(line.common, line.watchSeconds);
    case CommandLine::Command::Monitor:
      return runMonitor(line.common, line.monitor);
    case CommandLine::Command::Doctor:
      return runDoctor(line.common, line.doctorSeconds);
  }
  return EXIT_FAILED;
}
