#include "common/log/stream_logger.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/log/log_message.hpp"
#include "process/kov_platform_posix_process.hpp"

namespace {

using kov::common::log::FileLogger;
using kov::common::log::ILogger;
using kov::common::log::LogLevel;
using kov::common::log::LogMessage;
using kov::common::log::OstreamLogger;
using kov::common::log::StringLogger;

void log(ILogger& logger, LogLevel level, const std::string& text) {
  LogMessage("src/some/file", 12, level, logger).getStream() << text;
}

/// "[pid.tid(name)] " of the calling thread.
std::string prefix() {
  std::ostringstream out;
  out << '[' << static_cast<std::uint32_t>(getpid()) << '.' << static_cast<std::uint32_t>(pthread_self());
  const std::string name = kov::platform::process::getNameOfCurrentThread();
  if (!name.empty()) {
    out << '(' << name << ')';
  }
  out << "] ";
  return out.str();
}

TEST(StreamLogger, PlainLinesCarryPrefixLevelAndOneNewline) {
  StringLogger logger;
  log(logger, LogLevel::DEBUG, "dropped");
  log(logger, LogLevel::TRACE, "dropped");
  log(logger, LogLevel::INFO, "first");
  log(logger, LogLevel::ERROR, "second\n");
  log(logger, LogLevel::WARN, "");
  EXPECT_EQ(logger.getString(),
            prefix() + "INFO: first\n" + prefix() + "ERROR: second\n" + prefix() + "WARN: \n");

  logger.clear();
  logger.setDiscardLevel(LogLevel::TRACE);
  log(logger, LogLevel::TRACE, "still dropped");
  log(logger, LogLevel::DEBUG, "now kept");
  EXPECT_EQ(logger.getString(), prefix() + "DEBUG: now kept\n");

  logger.clear();
  logger.setDiscardLevel(static_cast<LogLevel>(0));
  log(logger, LogLevel::TRACE, "trace");
  EXPECT_EQ(logger.getString(), prefix() + "TRACE: trace\n");
}

TEST(StreamLogger, ColouredLinesWrapTextAndOmitLevelName) {
  std::ostringstream out;
  OstreamLogger logger(out);
  logger.setDiscardLevel(static_cast<LogLevel>(0));
  log(logger, LogLevel::ERROR, "boom");
  log(logger, LogLevel::DEBUG, "plain");
  log(logger, LogLevel::TRACE, "t");
  log(logger, LogLevel::INFO, "i");
  log(logger, LogLevel::WARN, "w\n");
  log(logger, LogLevel::FATAL, "f");
  const std::string p = prefix();
  EXPECT_EQ(out.str(), "\033[1;31m" + p + "boom\033[m\n" +  //
                           p + "plain\033[m\n" +             //
                           "\033[7m" + p + "t\033[m\n" +     //
                           "\033[32m" + p + "i\033[m\n" +    //
                           "\033[33m" + p + "w\n\033[m" +    //
                           "\033[1;30;45m" + p + "f\033[m\n");

  out.str("");
  logger.colorizeLogMessage(false);
  log(logger, LogLevel::INFO, "i");
  EXPECT_EQ(out.str(), p + "INFO: i\n");
}

TEST(StreamLogger, EveryLineShowsTheThreadsNameOfThatMoment) {
  StringLogger logger;
  std::string expected;
  std::thread([&] {
    kov::platform::process::setNameOfCurrentThread("worker");
    log(logger, LogLevel::INFO, "named");
    expected += prefix() + "INFO: named\n";
    // Renamed by code that does not go through the library.
    ASSERT_EQ(pthread_setname_np(pthread_self(), "fifteen-chars-x"), 0);
    log(logger, LogLevel::WARN, "renamed");
    expected += prefix() + "WARN: renamed\n";
    ASSERT_EQ(pthread_setname_np(pthread_self(), ""), 0);
    log(logger, LogLevel::ERROR, "unnamed");
    expected += prefix() + "ERROR: unnamed\n";
  }).join();
  EXPECT_NE(expected.find("(worker)] INFO: named"), std::string::npos);
  EXPECT_NE(expected.find("(fifteen-chars-x)] WARN: renamed"), std::string::npos);
  EXPECT_NE(expected.find("] ERROR: unnamed"), std::string::npos);
  EXPECT_EQ(logger.getString(), expected);
}

TEST(StreamLogger, FileLoggerTruncatesOrAppends) {
  char pathTemplate[] = "/tmp/kov_file_logger_XXXXXX";
  const int fd = mkstemp(pathTemplate);
  ASSERT_GE(fd, 0);
  close(fd);
  const std::string path = pathTemplate;
  const auto read = [&] {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  {
    std::ofstream(path) << "old line\n";
  }
  {
    FileLogger logger(path, true);
    log(logger, LogLevel::WARN, "appended");
  }
  EXPECT_EQ(read(), "old line\n" + prefix() + "WARN: appended\n");
  {
    FileLogger logger(path, false);
    log(logger, LogLevel::INFO, "fresh");
  }
  EXPECT_EQ(read(), prefix() + "INFO: fresh\n");
  std::remove(path.c_str());

  FileLogger broken("/nonexistent-dir/for/sure.log", false);
  EXPECT_NO_THROW(log(broken, LogLevel::ERROR, "lost"));
}

TEST(StreamLogger, ConcurrentLinesStayWhole) {
  constexpr int THREADS = 8;
  constexpr int LINES = 10000;
  std::ostringstream out;
  OstreamLogger logger(out);
  logger.colorizeLogMessage(false);
  std::vector<std::thread> threads;
  for (int t = 0; t < THREADS; ++t) {
    threads.emplace_back([&logger, t] {
      for (int i = 0; i < LINES; ++i) {
        // Dropped messages in between: every thread reuses its records for both kinds.
        LogMessage("f", 1, LogLevel::DEBUG, logger).getStream() << "dropped " << t;
        LogMessage("f", 1, LogLevel::INFO, logger).getStream() << "thread " << t << " line " << i << " end";
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  std::istringstream in(out.str());
  std::string line;
  std::vector<int> nextLine(THREADS, 0);
  int count = 0;
  while (std::getline(in, line)) {
    ++count;
    const auto body = line.find("] INFO: thread ");
    ASSERT_NE(body, std::string::npos) << line;
    int t = -1;
    int i = -1;
    char end[8] = {};
    ASSERT_EQ(std::sscanf(line.c_str() + body, "] INFO: thread %d line %d %7s", &t, &i, end), 3) << line;
    ASSERT_STREQ(end, "end") << line;
    ASSERT_TRUE(t >= 0 && t < THREADS) << line;
    // Lines of one thread arrive in the order that thread wrote them.
    ASSERT_EQ(i, nextLine[static_cast<std::size_t>(t)]++) << line;
  }
  EXPECT_EQ(count, THREADS * LINES);
}

}  // namespace
