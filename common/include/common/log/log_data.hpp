#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "common/log/fixed_size_streambuffer.hpp"
#include "common/log/log_level.hpp"

namespace kov::common::log {

class ILogger;

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
  /// The logger that the LogMessage making this record will send it to (null for records made
  /// otherwise): that logger alone may conclude that nobody else will be sent the record.
  const ILogger* destination{nullptr};
  /// Set by `destination` when it drops the record as it is begun and is the only one to be sent it:
  /// the stream is then left failed (failbit), so that no text is formatted that nobody would read.
  bool discarded{false};
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
