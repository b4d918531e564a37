#include "common/log/stream_logger.hpp"

#include <cstdint>
#include <cstring>
#include <ios>
#include <iostream>
#include <locale>
#include <typeinfo>

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

// "[" pid "." tid "(" 15 characters ")] " "UNDEFINED" ": " fits with room to spare.
constexpr std::size_t PREFIX_CAPACITY = 64;
constexpr std::size_t THREAD_NAME_LIMIT = 15;

/// Whether `out` prints numbers as bare decimal digits and characters unpadded, as a new stream on the
/// classic locale does; only then may a prefix be formatted by hand.
bool printsPlainDecimal(const std::ostream& out) {
  return out.flags() == (std::ios_base::skipws | std::ios_base::dec) && out.width() == 0 &&
         out.getloc() == std::locale::classic();
}

/// Appends the decimal digits of `value` at `out`; returns the position after them.
char* appendDecimal(char* out, std::uint32_t value) {
  char digits[10];
  std::size_t count = 0;
  do {
    digits[count++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (count > 0) {
    *out++ = digits[--count];
  }
  return out;
}

char* appendText(char* out, const char* text, std::size_t size) {
  std::memcpy(out, text, size);
  return out + size;
}

/// Marks a record that `logger` drops as it is begun, and that goes to `logger` alone, as discarded
/// and fails its stream, so that the caller's text is not formatted. Only the library's own loggers do
/// this: their sendLogMessage is OstreamLogger's, which drops the record again. A class derived
/// elsewhere may read every record it is sent, so its records are always formatted in full.
void discardUnread(const OstreamLogger& logger, LogData& data) {
  if (data.destination != &logger || data.stream.exceptions() != std::ios_base::goodbit) {
    return;
  }
  const std::type_info& type = typeid(logger);
  if (type != typeid(StdErrLogger) && type != typeid(FileLogger) && type != typeid(StringLogger) &&
      type != typeid(OstreamLogger)) {
    return;
  }
  data.discarded = true;
  data.stream.setstate(std::ios_base::failbit);
}

/// Writes "[pid.tid(name)] " and, when `withLevelName`, the level name and ": " into the record.
/// Out of line: a dropped record's way through initLogMessage stays short.
[[gnu::noinline]] void writeLinePrefix(LogData& data, bool withLevelName) {
  std::ostream& out = data.stream;
  // Read on every line: the thread may have been renamed since its last message.
  const std::string threadName = kov::platform::process::getNameOfCurrentThread();
  if (!printsPlainDecimal(out) || threadName.size() > THREAD_NAME_LIMIT) {
    out << '[' << data.processId << '.' << data.threadId;
    if (!threadName.empty()) {
      out << '(' << threadName << ')';
    }
    out << "] ";
    if (withLevelName) {
      out << LogMessage::getLevelName(data.level) << ": ";
    }
    return;
  }
  // The same characters, formatted by hand and written at once.
  char prefix[PREFIX_CAPACITY];
  char* end = prefix;
  *end++ = '[';
  end = appendDecimal(end, data.processId);
  *end++ = '.';
  end = appendDecimal(end, data.threadId);
  if (!threadName.empty()) {
    *end++ = '(';
    end = appendText(end, threadName.data(), threadName.size());
    *end++ = ')';
  }
  end = appendText(end, "] ", 2);
  if (withLevelName) {
    const char* levelName = LogMessage::getLevelName(data.level);
    end = appendText(end, levelName, std::strlen(levelName));
    end = appendText(end, ": ", 2);
  }
  out.write(prefix, end - prefix);
}

}  // namespace

OstreamLogger::OstreamLogger(std::ostream& stream) : stream(stream) { useDefaultLogFormat.store(false); }

OstreamLogger::~OstreamLogger() = default;

void OstreamLogger::initLogMessage(const std::shared_ptr<LogData>& data) {
  if (!passesInline(data->level)) {
    discardUnread(*this, *data);
    return;
  }
  writeLinePrefix(*data, !colorize.load());
}

void OstreamLogger::sendLogMessage(std::shared_ptr<LogData> data) {
  // A record discarded when it was begun stays dropped, even if the discard level was lowered since.
  if (data->discarded || !passesInline(data->level)) {
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
