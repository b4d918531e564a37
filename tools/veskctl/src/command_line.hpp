#pragma once

#include <optional>
#include <string>
#include <vector>

#include "commands.hpp"
#include "monitor_command.hpp"

namespace kov::tools::veskctl {

/// veskctl's command line, parsed and checked.
struct CommandLine {
  enum class Command { Demo, List, Get, Set, Watch, Monitor, Doctor };
  static constexpr double DEFAULT_WATCH_SECONDS = 2.0;

  Command command{Command::Demo};
  CommonOptions common;
  std::string logLevel{"info"};
  std::vector<std::string> faults;  ///< demo
  std::vector<std::string> what;    ///< get
  SetOptions set;
  MonitorOptions monitor;
  double watchSeconds{DEFAULT_WATCH_SECONDS};
  double doctorSeconds{3.0};  ///< doctor: how long to listen to service discovery
};

/// Parses and checks the arguments. Returns an exit status when veskctl is done already (help or
/// version printed: 0; a bad command line, with the message written to stderr: 2); nothing when
/// `line` holds a command to run.
std::optional<int> parseCommandLine(int argc, const char* const* argv, CommandLine& line);

}  // namespace kov::tools::veskctl
