#pragma once

#include <cstdint>

namespace kov::common::log {

/// Severity of a log record; a higher value is more severe. One bit per level, never used as a mask.
enum class LogLevel : std::uint32_t {
  TRACE = 1,
  DEBUG = 2,
  INFO = 4,
  WARN = 8,
  ERROR = 16,
  FATAL = 32,
};

}  // namespace kov::common::log
