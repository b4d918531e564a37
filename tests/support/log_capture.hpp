#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/log/i_logger.hpp"
#include "common/log/stream_logger.hpp"

namespace kov::test {

/// Installs `logger` as the process-wide logger for its lifetime, by default one that drops every record
/// unread, and restores the previous logger afterwards.
class LoggerScope {
 public:
  explicit LoggerScope(std::shared_ptr<kov::common::log::ILogger> logger = std::make_shared<Dropping>());
  ~LoggerScope();

  LoggerScope(const LoggerScope&) = delete;
  LoggerScope& operator=(const LoggerScope&) = delete;

 private:
  struct Dropping : kov::common::log::ILogger {
    void sendLogMessage(std::shared_ptr<kov::common::log::LogData>) override {}
  };
  std::shared_ptr<kov::common::log::ILogger> previous_;
};

/// Installs a StringLogger as the process-wide logger for its lifetime (every level passes) and
/// restores the previous logger afterwards. Install it before any thread starts logging.
class LogCapture {
 public:
  LogCapture();

  /// Everything logged so far, exactly as written.
  std::string text() const { return logger_->getString(); }

  /// The logged lines without their "[pid.tid(name)] " prefix, e.g. "ERROR: some text".
  std::vector<std::string> lines() const;

  /// Number of lines equal to "<level>: <message>".
  std::size_t count(const std::string& level, const std::string& message) const;

  void clear() { logger_->clear(); }

 private:
  std::shared_ptr<kov::common::log::StringLogger> logger_ =
      std::make_shared<kov::common::log::StringLogger>();
  LoggerScope scope_{logger_};
};

}  // namespace kov::test
