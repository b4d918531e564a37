#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>

#include "record_fields.hpp"

namespace kov::tools::veskctl {

/// Writes veskctl's results: aligned lines for people, or one JSON object per line for scripts.
class Printer {
 public:
  /// Availability changes are printed only when `showAvailability` is set (demo, watch, --verbose).
  Printer(std::ostream& out, bool json, bool showAvailability = false);

  bool json() const { return json_; }

  /// A free-text line (a heading in text mode).
  void note(const std::string& message);
  /// A service instance of a sensor came or went.
  void availability(std::chrono::milliseconds at, std::uint16_t sensorId, std::uint16_t serviceId,
                    bool available);
  /// The outcome of one getter or setter, with the value read or written, or why it failed.
  void result(std::uint16_t sensorId, const std::string& operation, bool ok, const Fields& fields,
              const std::string& reason = std::string());
  /// A new value in a sensor's event cache.
  void event(std::chrono::milliseconds at, std::uint16_t sensorId, const std::string& name,
             const Fields& fields);
  /// An injected fault and how the library answered it.
  void fault(std::uint16_t sensorId, const std::string& fault, const std::string& operation, bool asExpected,
             const std::string& detail);

  /// JSON string literal of `text` (UTF-8 passes through; quotes, backslashes and controls escaped).
  static std::string quote(const std::string& text);

 private:
  void line(const std::string& text);

  std::ostream& out_;
  const bool json_;
  const bool showAvailability_;
  std::mutex mutex_;
};

/// "0x0010"
std::string hexId(std::uint16_t id);

}  // namespace kov::tools::veskctl
