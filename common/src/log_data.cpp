#include "common/log/log_data.hpp"

#include <string_view>

namespace kov::common::log {

LogData::LogData(const char* file, std::chrono::steady_clock::time_point time, LogLevel level,
                 std::uint32_t line, std::uint32_t processId, std::uint32_t threadId)
    : stream(&buffer),
      file(file),
      time(time),
      level(level),
      line(line),
      processId(processId),
      threadId(threadId) {}

std::string LogData::getFileName() const {
  const std::string path(file);  // a null file throws std::logic_error here
  std::string::size_type separator = path.rfind('/');
  if (separator == std::string::npos) {
    separator = path.rfind('\\');
  }
  if (separator == std::string::npos) {
    return path;
  }
  return path.substr(separator + 1);
}

LogEntry getLogEntry(const std::shared_ptr<LogData>& data) {
  LogEntry entry;
  entry.fileName = data->getFileName();
  entry.message = data->buffer.terminate();
  entry.time = data->time;
  entry.processId = data->processId;
  entry.threadId = data->threadId;
  entry.level = data->level;
  entry.line = data->line;
  return entry;
}

}  // namespace kov::common::log
