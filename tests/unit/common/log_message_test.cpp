#include "common/log/log_message.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using kov::common::log::getLogEntry;
using kov::common::log::ILogger;
using kov::common::log::LogData;
using kov::common::log::LogEntry;
using kov::common::log::LogLevel;
using kov::common::log::LogMessage;

/// Keeps every record it is given; uses the default line format unless told otherwise.
class RecordingLogger : public ILogger {
 public:
  explicit RecordingLogger(bool defaultFormat = true) { useDefaultLogFormat.store(defaultFormat); }
  void sendLogMessage(std::shared_ptr<LogData> data) override { records.push_back(std::move(data)); }
  void initLogMessage(const std::shared_ptr<LogData>& data) override {
    ++initCalls;
    data->stream << "<custom>";
  }
  std::vector<std::shared_ptr<LogData>> records;
  int initCalls = 0;
};

class ThrowingLogger : public ILogger {
 public:
  void sendLogMessage(std::shared_ptr<LogData> /*data*/) override { throw std::runtime_error("sink down"); }
};

std::string messageOf(const std::shared_ptr<LogData>& data) {
  return getLogEntry(data).message;
}

TEST(LogMessage, DefaultFormatPrefixesLevelFileAndLine) {
  RecordingLogger logger;
  { LogMessage("x/y/z", 7, LogLevel::INFO, logger).getStream() << "hello " << 42; }
  ASSERT_EQ(logger.records.size(), 1U);
  EXPECT_EQ(messageOf(logger.records[0]), "INFO - z(7): hello 42");
  EXPECT_EQ(logger.initCalls, 0);

  const LogEntry entry = getLogEntry(logger.records[0]);
  EXPECT_EQ(entry.fileName, "z");
  EXPECT_EQ(entry.level, LogLevel::INFO);
  EXPECT_EQ(entry.line, 7U);
  EXPECT_EQ(entry.processId, static_cast<std::uint32_t>(getpid()));
  EXPECT_EQ(entry.threadId, static_cast<std::uint32_t>(pthread_self()));
}

TEST(LogMessage, CustomFormatLeavesPrefixToLogger) {
  RecordingLogger logger(false);
  { LogMessage("a/b", 3, LogLevel::WARN, logger).getStream() << "text"; }
  ASSERT_EQ(logger.records.size(), 1U);
  EXPECT_EQ(logger.initCalls, 1);
  EXPECT_EQ(messageOf(logger.records[0]), "<custom>text");
}

TEST(LogMessage, CutsAfter511CharactersAndIgnoresLaterInsertions) {
  RecordingLogger logger;
  const std::string prefix = "INFO - f(1): ";
  const std::string exact(511 - prefix.size(), 'a');
  { LogMessage("f", 1, LogLevel::INFO, logger).getStream() << exact; }
  { LogMessage("f", 1, LogLevel::INFO, logger).getStream() << exact << 'b' << "more"; }
  {
    LogMessage message("f", 1, LogLevel::INFO, logger);
    message.getStream() << exact << "bc";
    EXPECT_TRUE(message.getStream().bad());
    message.getStream() << "d";
  }
  ASSERT_EQ(logger.records.size(), 3U);
  EXPECT_EQ(messageOf(logger.records[0]), prefix + exact);
  EXPECT_EQ(messageOf(logger.records[1]), prefix + exact);
  EXPECT_EQ(messageOf(logger.records[2]), prefix + exact);
}

TEST(LogMessage, FileNameExtraction) {
  const auto nameOf = [](const char* path) {
    return LogData(path, {}, LogLevel::INFO, 0, 0, 0).getFileName();
  };
  EXPECT_EQ(nameOf("a/b/c"), "c");
  EXPECT_EQ(nameOf("a\\b\\c"), "c");
  EXPECT_EQ(nameOf("a/b\\c"), "b\\c");
  EXPECT_EQ(nameOf("plain"), "plain");
  EXPECT_EQ(nameOf("dir/"), "");
  EXPECT_THROW(nameOf(nullptr), std::logic_error);
}

TEST(LogMessage, LevelNames) {
  const std::pair<std::uint32_t, const char*> names[] = {{0, "UNDEFINED"}, {1, "TRACE"},  {2, "DEBUG"},
                                                         {3, "UNDEFINED"}, {4, "INFO"},   {8, "WARN"},
                                                         {16, "ERROR"},    {32, "FATAL"}, {64, "UNDEFINED"}};
  for (const auto& [value, name] : names) {
    EXPECT_STREQ(LogMessage::getLevelName(static_cast<LogLevel>(value)), name) << value;
  }
}

TEST(LogMessage, ExceptionFromSinkIsSwallowed) {
  ThrowingLogger logger;
  EXPECT_NO_THROW({ LogMessage("f", 1, LogLevel::ERROR, logger).getStream() << "lost"; });
}

}  // namespace
