#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kov::tools::veskctl {

/// Exit statuses of veskctl.
constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = 1;     ///< an operation failed or sensors were missing
constexpr int EXIT_BAD_USAGE = 2;  ///< the command line was wrong

/// Options every subcommand shares.
struct CommonOptions {
  bool json{false};
  std::size_t sensors{3};
  bool legacySensor{false};
  double discoverySeconds{5.0};
  std::string sensor;  ///< one sensor id ("0x10" or "16"); empty for all
};

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

/// The fault names that `demo --fault` accepts ("all" stands for every one).
const std::vector<std::string>& faultNames();

int runDemo(const CommonOptions& common, const std::vector<std::string>& faults);
int runList(const CommonOptions& common);
int runGet(const CommonOptions& common, const std::vector<std::string>& what);
int runSet(const CommonOptions& common, const SetOptions& options);
int runWatch(const CommonOptions& common, double seconds);

}  // namespace kov::tools::veskctl
