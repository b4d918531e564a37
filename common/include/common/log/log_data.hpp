#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "common/log/fixed_size_streambuffer.hpp"
#include "common/log/log_level.hpp"

namespace kov::common::log {

/// One log record: the message text in a fixed buffer, the stream that writes into it and the facts
/// about where and when the message was made. Held by std::shared_ptr so that a logger may keep it.
struct LogData {
  LogData(const char* file, std::chrono::steady_clock::time_point time, LogLevel level, std::uint32_t line,
          std::uint32_t processId, std::uint32_t threadId);

  LogData(const LogData&) = delete;
  LogData& operator=(const LogData&) = delete;

  /// The part of `file` after its last '/', else after its last '\', else all of it.
  /// Throws std::logic_error for a null `file`.
  std::string getFileName() const;

  FixedSizeStreambuffer buffer;
  std::ostream stream;
  const char* file;  ///< not copied: callers pass string literals
  std::chrono::steady_clock::time_point time;
  LogLevel level;
  std::uint32_t line;
  std::uint32_t processId;
  std::uint32_t threadId;
};

/// A log record's fields as plain values, for loggers that want them rather than the text.
struct LogEntry {
  std::string fileName;
  std::string message;
  std::chrono::steady_clock::time_point time;
  std::uint32_t processId;
  std::uint32_t threadId;
  LogLevel level;
  std::uint32_t line;
};

/// Copies a record into a LogEntry (terminates the record's text at its put pointer).
LogEntry getLogEntry(const std::shared_ptr<LogData>& data);

}  // namespace kov::common::log
