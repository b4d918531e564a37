#include "common/log/stream_logger.hpp"

#include <iostream>

#include "common/log/log_message.hpp"
#include "process/kov_platform_posix_process.hpp"

namespace kov::common::log {

namespace {

const char* colorOf(LogLevel level) {
  switch (level) {
    case LogLevel::TRACE:
      return "\033[7m";
    case LogLevel::INFO:
      return "\033[32m";
    case LogLevel::WARN:
      return "\033[33m";
    case LogLevel::ERROR:
      return "\033[1;31m";
    case LogLevel::FATAL:
      return "\033[1;30;45m";
    case LogLevel::DEBUG:
      break;
  }
  return nullptr;
}

constexpr const char* COLOR_RESET = "\033[m";

}  // namespace

OstreamLogger::OstreamLogger(std::ostream& stream) : stream(stream) { useDefaultLogFormat.store(false); }

OstreamLogger::~OstreamLogger() = default;

void OstreamLogger::initLogMessage(const std::shared_ptr<LogData>& data) {
  if (!passes(data->level)) {
    return;
  }
  std::ostream& out = data->stream;
  out << '[' << data->processId << '.' << data->threadId;
  const std::string threadName = kov::platform::process::getNameOfCurrentThread();
  if (!threadName.empty()) {
    out << '(' << threadName << ')';
  }
  out << "] ";
  if (!colorize.load()) {
    out << LogMessage::getLevelName(data->level) << ": ";
  }
}

void OstreamLogger::sendLogMessage(std::shared_ptr<LogData> data) {
  if (!passes(data->level)) {
    return;
  }
  std::scoped_lock lock(mutex);
  if (colorize.load()) {
    if (const char* color = colorOf(data->level)) {
      stream << color;
    }
  }
  const char* text = data->buffer.terminate();
  const std::string_view view = data->buffer.text();
  stream.write(text, static_cast<std::streamsize>(view.size()));
  if (colorize.load()) {
    stream << COLOR_RESET;
  }
  if (view.empty() || view.back() != '\n') {
    stream << '\n';
  }
  stream.flush();
}

StdErrLogger::StdErrLogger() : OstreamLogger(std::clog) {}

StdErrLogger::~StdErrLogger() = default;

// The base only stores the reference to the member stream; the member is constructed right after.
StringLogger::StringLogger() : OstreamLogger(stringStream) { colorize.store(false); }

StringLogger::~StringLogger() = default;

std::string StringLogger::getString() const { return stringStream.str(); }

void StringLogger::clear() {
  stringStream.str(std::string());
  stringStream.clear();
}

FileLogger::FileLogger(const std::string& path, bool append)
    : OstreamLogger(fileStream),
      fileStream(path, append ? (std::ios::out | std::ios::app) : (std::ios::out | std::ios::trunc)) {
  colorize.store(false);
}

FileLogger::~FileLogger() = default;

}  // namespace kov::common::log
