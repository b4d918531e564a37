#include "common/log/log_message.hpp"

#include <pthread.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <utility>

#include "log_record_cache.hpp"
#include "process/kov_platform_posix_process.hpp"

namespace kov::common::log {

LogMessage::LogMessage(const char* file, unsigned int line, LogLevel level, ILogger& logger) : logger_(logger) {
  // getIdOfCurrentThread() is pthread_self(); called directly, as on every message.
  const auto threadId = static_cast<std::uint32_t>(pthread_self());
  const auto processId = static_cast<std::uint32_t>(kov::platform::process::getIdOfCurrentProcess());
  const auto now = std::chrono::steady_clock::now();
  // A new record, or the thread's previous one when nobody kept it (see log_record_cache.hpp).
  data_ = acquireLogRecord(file, now, level, static_cast<std::uint32_t>(line), processId, threadId);
  data_->destination = &logger_;
  if (logger_.isUsingDefaultLogFormat()) {
    data_->stream << getLevelName(level) << " - " << data_->getFileName() << '(' << line << "): ";
  } else {
    logger_.initLogMessage(data_);
  }
}

LogMessage::~LogMessage() {
  try {
    logger_.sendLogMessage(data_);
  } catch (const std::exception&) {
    // A failing sink must not take the caller down; the message is lost.
  }
  releaseLogRecord(std::move(data_));
}

const char* LogMessage::getLevelName(LogLevel level) {
  switch (level) {
    case LogLevel::TRACE:
      return "TRACE";
    case LogLevel::DEBUG:
      return "DEBUG";
    case LogLevel::INFO:
      return "INFO";
    case LogLevel::WARN:
      return "WARN";
    case LogLevel::ERROR:
      return "ERROR";
    case LogLevel::FATAL:
      return "FATAL";
  }
  return "UNDEFINED";
}

}  // namespace kov::common::log
