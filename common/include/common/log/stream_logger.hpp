#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>

#include "common/log/i_logger.hpp"

namespace kov::common::log {

/// Writes each record to a std::ostream as one line, under a mutex, prefixed with
/// "[pid.tid(thread name)] " and either coloured by level or followed by the level name.
class OstreamLogger : public ILogger {
 public:
  explicit OstreamLogger(std::ostream& stream);
  ~OstreamLogger() override;

  OstreamLogger(const OstreamLogger&) = delete;
  OstreamLogger& operator=(const OstreamLogger&) = delete;

  void sendLogMessage(std::shared_ptr<LogData> data) override;
  void initLogMessage(const std::shared_ptr<LogData>& data) override;

 private:
  /// ILogger::passes() without the call: checked twice for every record.
  bool passesInline(LogLevel level) const {
    return static_cast<std::uint32_t>(level) > static_cast<std::uint32_t>(discardLevel.load());
  }

  std::ostream& stream;
  std::mutex mutex;
};

/// An OstreamLogger on std::clog, coloured. The process-wide logger's default sink.
class StdErrLogger : public OstreamLogger {
 public:
  StdErrLogger();
  ~StdErrLogger() override;
};

/// Collects lines in memory, uncoloured. getString() and clear() take no lock: do not call them
/// while other threads log through this logger.
class StringLogger : public OstreamLogger {
 public:
  StringLogger();
  ~StringLogger() override;

  std::string getString() const;
  void clear();

 private:
  std::ostringstream stringStream;
};

/// Writes lines to a file, uncoloured; `append` keeps existing content, otherwise the file is truncated.
/// A file that cannot be opened leaves the stream failed and every line is silently lost.
class FileLogger : public OstreamLogger {
 public:
  FileLogger(const std::string& path, bool append);
  ~FileLogger() override;

 private:
  std::ofstream fileStream;
};

}  // namespace kov::common::log
