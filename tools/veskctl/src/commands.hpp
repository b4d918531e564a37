#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "transport_factory.hpp"

namespace kov::tools::veskctl {

/// Exit statuses of veskctl, the same for every subcommand.
constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = 1;          ///< a call or a check failed
constexpr int EXIT_BAD_USAGE = 2;       ///< the command line was wrong
constexpr int EXIT_NOT_DISCOVERED = 3;  ///< no sensor, or not the asked one, was discovered
constexpr int EXIT_NO_TRANSPORT = 4;    ///< the transport could not start (address not local, port held, ...)

/// Options every subcommand shares.
struct CommonOptions {
  static constexpr double DEFAULT_DISCOVERY_SECONDS = 5.0;

  bool json{false};
  bool verbose{false};  ///< print availability changes in list, get and set too
  TransportOptions transport;
  double discoverySeconds{DEFAULT_DISCOVERY_SECONDS};
  std::string sensor;  ///< one sensor id ("0x10" or "16"); empty for all
};

/// What `set` writes; each value is already checked against the sensor's documented range.
struct SetOptions {
  std::optional<std::string> mode;
  std::optional<float> frameRate;
  std::optional<std::string> interlace;
  std::optional<int> controlLine;
  std::optional<std::string> fill;
  std::optional<float> datum;
  std::optional<std::string> pattern;
  std::optional<std::string> destination;
};

/// How long discovery may take, as --discovery-timeout gives it.
std::chrono::milliseconds discoveryTimeout(const CommonOptions& common);

/// "1 sensor", "3 sensors"
std::string countOf(std::size_t count, const std::string& noun);

/// The fault names that `demo --fault` accepts ("all" stands for every one).
const std::vector<std::string>& faultNames();

int runDemo(const CommonOptions& common, const std::vector<std::string>& faults);
int runList(const CommonOptions& common);
int runGet(const CommonOptions& common, const std::vector<std::string>& what);
int runSet(const CommonOptions& common, const SetOptions& options);
int runWatch(const CommonOptions& common, double seconds);

}  // namespace kov::tools::veskctl
