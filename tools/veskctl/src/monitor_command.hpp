#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "commands.hpp"

namespace CLI {
class App;
}

namespace kov::tools::veskctl {

/// What `veskctl monitor` listens for; the texts are the command line's, the rest is checked from them.
struct MonitorOptions {
  std::string serviceText;  ///< --service as given; empty for every service
  std::string secondsText;  ///< --seconds as given; empty to run until SIGINT or SIGTERM
  std::optional<std::uint16_t> service;
  std::optional<double> seconds;
};

/// Where and when one SD datagram was heard, and how its lines are written.
struct MonitorLineContext {
  double seconds{0.0};  ///< since the monitor started
  std::string sender;   ///< "a.b.c.d:port"
  bool json{false};
  std::optional<std::uint16_t> service;  ///< keep only the entries of this service
};

/// The lines that describe one datagram heard on the SD port: one per SD entry (of `context.service`
/// only, when set), one per entry the decoder left out, or one saying why the datagram is no SD
/// message at all. Text lines are "key=value" fields; JSON lines are one object each. No newlines.
std::vector<std::string> describeSdDatagram(const std::uint8_t* data, std::size_t size,
                                            const MonitorLineContext& context);

/// Adds the `monitor` subcommand to `app`, its options stored in `options`.
CLI::App* addMonitorCommand(CLI::App& app, MonitorOptions& options);

/// Checks the monitor's options and the global ones it needs (--unicast); false with `error` set.
bool checkMonitorOptions(const CommonOptions& common, MonitorOptions& options, std::string& error);

/// Listens to SOME/IP-SD on the SD group and on --unicast at the SD port, without sending, and prints
/// every entry heard until --seconds end or SIGINT/SIGTERM. EXIT_OK, or EXIT_NO_TRANSPORT when the
/// sockets cannot be opened.
int runMonitor(const CommonOptions& common, const MonitorOptions& options);

}  // namespace kov::tools::veskctl
