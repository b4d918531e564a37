#pragma once

#include <memory>
#include <ostream>

#include "common/log/i_logger.hpp"
#include "common/log/log_data.hpp"
#include "common/log/log_level.hpp"

namespace kov::common::log {

/// Builds one log record for the length of one statement and hands it to its logger when it goes out
/// of scope. Use through KOV_LOG (common/log/log.hpp).
class LogMessage {
 public:
  LogMessage(const char* file, unsigned int line, LogLevel level, ILogger& logger);
  ~LogMessage();

  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;
  LogMessage(LogMessage&&) = delete;
  LogMessage& operator=(LogMessage&&) = delete;

  /// The record's stream; the message text is written into it.
  std::ostream& getStream() const { return data_->stream; }

  /// "TRACE" ... "FATAL" for the six levels, "UNDEFINED" for any other value.
  static const char* getLevelName(LogLevel level);

 private:
  ILogger& logger_;
  std::shared_ptr<LogData> data_;
};

}  // namespace kov::common::log
