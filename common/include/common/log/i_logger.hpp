#pragma once

#include <atomic>
#include <memory>

#include "common/log/log_data.hpp"
#include "common/log/log_level.hpp"

namespace kov::common::log {

/// The contract between log records and the sinks that output them.
class ILogger {
 public:
  virtual ~ILogger();

  /// Outputs or drops a finished record.
  virtual void sendLogMessage(std::shared_ptr<LogData> data) = 0;

  /// Called when a record is begun and the logger does not use the default format; may write a prefix.
  virtual void initLogMessage(const std::shared_ptr<LogData>& data);

  virtual void colorizeLogMessage(bool enable);

  /// Records pass only when their level is strictly greater than `level`.
  virtual void setDiscardLevel(LogLevel level);

  virtual bool isUsingDefaultLogFormat() const;

 protected:
  /// True when a record of `level` passes the discard level.
  bool passes(LogLevel level) const;

  std::atomic<LogLevel> discardLevel{LogLevel::DEBUG};
  std::atomic<bool> colorize{true};
  std::atomic<bool> useDefaultLogFormat{true};
};

}  // namespace kov::common::log
