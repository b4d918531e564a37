// Log records, their texts and the loggers that write them. A thread reuses its last record for its
// next message; the reuse must not show: every message starts on a stream as new, a record a logger
// keeps is never rewritten, and only the library's own loggers skip formatting records they drop.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <fstream>
#include <iomanip>
#include <iterator>
#include <locale>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/log/log_data.hpp"
#include "common/log/log_message.hpp"
#include "common/log/stream_logger.hpp"
#include "common/log/system_logger.hpp"
#include "process/kov_platform_posix_process.hpp"

namespace {

using namespace kov::common::log;
using Texts = std::vector<std::string>;

/// Keeps every record it is sent; with the default format, or else writing "<custom>" as the prefix.
class KeepingLogger : public ILogger {
 public:
  explicit KeepingLogger(bool defaultFormat = true) { useDefaultLogFormat.store(defaultFormat); }
  void initLogMessage(const std::shared_ptr<LogData>& data) override { data->stream << "<custom>"; }
  void sendLogMessage(std::shared_ptr<LogData> data) override { kept.push_back(std::move(data)); }
  std::vector<std::shared_ptr<LogData>> kept;
};

/// Reads the text of every record it is sent, also of those its discard level drops. With `inner`, it
/// lets that logger write the prefix and the line (a record that goes to two loggers).
class ReadingLogger : public OstreamLogger {
 public:
  using OstreamLogger::OstreamLogger;
  void initLogMessage(const std::shared_ptr<LogData>& data) override {
    inner != nullptr ? inner->initLogMessage(data) : OstreamLogger::initLogMessage(data);
  }
  void sendLogMessage(std::shared_ptr<LogData> data) override {
    texts.push_back(getLogEntry(data).message);
    inner != nullptr ? inner->sendLogMessage(std::move(data))
                     : OstreamLogger::sendLogMessage(std::move(data));
  }
  StringLogger* inner = nullptr;
  Texts texts;
};

struct ThrowingLogger : ILogger {
  void sendLogMessage(std::shared_ptr<LogData> /*data*/) override { throw std::runtime_error("sink down"); }
};

/// Groups digits by threes with '_' (a locale no new stream starts with).
struct Underscores : std::numpunct<char> {
  char do_thousands_sep() const override { return '_'; }
  std::string do_grouping() const override { return "\3"; }
};

template <typename Logger>
void log(Logger&& logger, LogLevel level, const std::string& text) {
  LogMessage("src/some/file", 12, level, logger).getStream() << text;
}

/// "[pid.tid" of the calling thread.
std::string ids() {
  return "[" + std::to_string(getpid()) + "." + std::to_string(static_cast<std::uint32_t>(pthread_self()));
}

/// "[pid.tid(name)] " of the calling thread, its name read from the system.
std::string prefix() {
  char name[16] = {};
  EXPECT_EQ(pthread_getname_np(pthread_self(), name, sizeof(name)), 0);
  return ids() + (name[0] == 0 ? "" : "(" + std::string(name) + ")") + "] ";
}

TEST(LogMessage, DefaultFormatKeptRecordsCustomPrefixCutAfter511CharactersAndFileNames) {
  KeepingLogger logger;
  KeepingLogger custom(false);
  const std::string cut(511 - 13, 'a');  // after "INFO - f(1): "
  for (unsigned i = 0; i < 3; ++i)
    LogMessage("x/y", i, LogLevel::WARN, logger).getStream() << "message " << i;
  LogMessage("x/y/z", 7, LogLevel::INFO, logger).getStream() << "hello " << 42;
  LogMessage("f", 1, LogLevel::INFO, logger).getStream() << cut << 'b' << "more";
  {
    LogMessage message("f", 1, LogLevel::INFO, logger);
    message.getStream() << cut << "bc";
    EXPECT_TRUE(message.getStream().bad());
    message.getStream() << "d";
  }
  LogMessage("a/b", 3, LogLevel::WARN, custom).getStream() << "text";
  logger.kept.push_back(custom.kept.at(0));
  Texts texts;
  for (const auto& record : logger.kept)
    texts.push_back(getLogEntry(record).message);
  EXPECT_EQ(texts,
            (Texts{"WARN - y(0): message 0", "WARN - y(1): message 1", "WARN - y(2): message 2",
                   "INFO - z(7): hello 42", "INFO - f(1): " + cut, "INFO - f(1): " + cut, "<custom>text"}));

  ThrowingLogger throwing;
  EXPECT_NO_THROW(log(throwing, LogLevel::ERROR, "lost"));

  std::string names;  // file names
  for (const char* path : {"a/b/c", "a\\b\\c", "a/b\\c", "plain", "dir/"})
    names += LogData(path, {}, LogLevel::INFO, 0, 0, 0).getFileName() + "|";
  for (const std::uint32_t level : {0, 1, 2, 3, 4, 8, 16, 32, 64})
    names += std::string(LogMessage::getLevelName(static_cast<LogLevel>(level))) + " ";
  EXPECT_EQ(names, "c|c|b\\c|plain||UNDEFINED TRACE DEBUG UNDEFINED INFO WARN ERROR FATAL UNDEFINED ");
  EXPECT_THROW(LogData(nullptr, {}, LogLevel::INFO, 0, 0, 0).getFileName(), std::logic_error);
}

TEST(SystemLogger, DefaultsToStdErrLoggerAndReportsDeadReferenceOnce) {
  const std::weak_ptr<ILogger> held = SystemLoggerSingleton::instance().logger;
  EXPECT_NE(dynamic_cast<StdErrLogger*>(held.lock().get()), nullptr);
  SystemLoggerSingleton::destroy();
  EXPECT_TRUE(held.expired());
  try {
    SystemLoggerSingleton::instance();
    ADD_FAILURE() << "no dead reference reported";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "Dead Reference Detected");
  }
  EXPECT_NE(dynamic_cast<StdErrLogger*>(SystemLoggerSingleton::instance().logger.get()), nullptr);
}

TEST(StreamLogger, LinesCarryPrefixAndLevelNameOrColourAndOneNewline) {
  std::ostringstream out;
  OstreamLogger coloured(out);
  StringLogger plain;
  const std::string p = prefix();
  for (ILogger* logger : {static_cast<ILogger*>(&plain), static_cast<ILogger*>(&coloured)}) {
    log(*logger, LogLevel::DEBUG, "dropped");
    log(*logger, LogLevel::TRACE, "dropped");
    log(*logger, LogLevel::INFO, "i");
    log(*logger, LogLevel::ERROR, "e\n");
    log(*logger, LogLevel::WARN, "");
    log(*logger, LogLevel::FATAL, "f");
    logger->setDiscardLevel(LogLevel::TRACE);
    log(*logger, LogLevel::TRACE, "dropped");
    log(*logger, LogLevel::DEBUG, "d");
    logger->setDiscardLevel(static_cast<LogLevel>(0));
    log(*logger, LogLevel::TRACE, "t");
  }
  coloured.colorizeLogMessage(false);
  log(coloured, LogLevel::INFO, "i");
  EXPECT_EQ(plain.getString(), p + "INFO: i\n" + p + "ERROR: e\n" + p + "WARN: \n" + p + "FATAL: f\n" + p +
                                   "DEBUG: d\n" + p + "TRACE: t\n");
  EXPECT_EQ(out.str(), "\033[32m" + p + "i\033[m\n" + "\033[1;31m" + p + "e\n\033[m" + "\033[33m" + p +
                           "\033[m\n" + "\033[1;30;45m" + p + "f\033[m\n" + p + "d\033[m\n" + "\033[7m" + p +
                           "t\033[m\n" + p + "INFO: i\n");
}

TEST(StreamLogger, EveryLineShowsTheThreadsNameOfThatMoment) {
  StringLogger logger;
  std::string head;
  std::thread([&] {
    head = ids();
    kov::platform::process::setNameOfCurrentThread("abcdefghijklmnopqrst");  // cut to 15 characters
    log(logger, LogLevel::INFO, "named");
    ASSERT_EQ(pthread_setname_np(pthread_self(), "io"), 0);  // renamed without the library
    // A global locale other than the classic one (numbers alike) has the prefix written by the stream.
    const std::locale old = std::locale::global(std::locale(std::locale::classic(), new std::numpunct<char>));
    log(logger, LogLevel::WARN, "renamed");
    std::locale::global(old);
    ASSERT_EQ(pthread_setname_np(pthread_self(), ""), 0);
    log(logger, LogLevel::ERROR, "unnamed");
  }).join();
  EXPECT_EQ(logger.getString(), head + "(abcdefghijklmno)] INFO: named\n" + head + "(io)] WARN: renamed\n" +
                                    head + "] ERROR: unnamed\n");
}

TEST(StreamLogger, FileLoggerTruncatesOrAppends) {
  const std::string path = testing::TempDir() + "kov_file_logger_" + std::to_string(getpid());
  const auto read = [&] {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  std::ofstream(path) << "old line\n";
  log(FileLogger(path, true), LogLevel::WARN, "appended");
  EXPECT_EQ(read(), "old line\n" + prefix() + "WARN: appended\n");
  log(FileLogger(path, false), LogLevel::INFO, "fresh");
  EXPECT_EQ(read(), prefix() + "INFO: fresh\n");
  std::remove(path.c_str());
  EXPECT_NO_THROW(log(FileLogger("/nonexistent-dir/for/sure.log", false), LogLevel::ERROR, "lost"));
}

TEST(StreamLogger, ConcurrentLinesStayWhole) {
  constexpr int THREADS = 8, LINES = 10000;
  StringLogger logger;
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
  for (auto& thread : threads)
    thread.join();
  // Every line whole, and the lines of one thread in the order that thread wrote them.
  std::istringstream in(logger.getString());
  std::vector<int> next(THREADS, 0);
  for (std::string line; std::getline(in, line);) {
    const auto body = line.find("] INFO: thread ");
    ASSERT_NE(body, std::string::npos) << line;
    const auto t = static_cast<std::size_t>(line[body + 15] - '0');
    ASSERT_EQ(line.substr(body + 15), std::to_string(t) + " line " + std::to_string(next.at(t)++) + " end");
  }
  EXPECT_EQ(next, std::vector<int>(THREADS, LINES));
}

TEST(LogRecordReuse, EveryMessageStartsOnAFreshStream) {
  StringLogger logger;
  {
    // Every setting shows in the next text on its own, so one message may spoil them all.
    LogMessage spoiled("a/b", 1, LogLevel::INFO, logger);
    std::ostream& stream = spoiled.getStream();
    stream << std::hex << std::showbase << std::uppercase << std::setw(12) << std::setfill('*')
           << std::setprecision(2) << std::fixed << std::showpos << std::left << std::boolalpha;
    stream.imbue(std::locale(stream.getloc(), new Underscores));
    stream.exceptions(std::ios_base::badbit);
    stream.tie(&stream);
    stream.setstate(std::ios_base::failbit);
  }
  {
    LogMessage message("a/b", 1, LogLevel::INFO, logger);
    std::ostream& stream = message.getStream();
    EXPECT_TRUE(stream.exceptions() == std::ios_base::goodbit && stream.tie() == nullptr);
    stream << 1234567 << ' ' << 1.234567 << ' ' << true << '|' << std::setw(3) << 7;
  }
  EXPECT_EQ(logger.getString(), prefix() + "INFO: \n" + prefix() + "INFO: 1234567 1.23457 1|  7\n");
}

TEST(LogRecordReuse, DroppedRecordsAreFormattedForEveryoneWhoReadsThem) {
  // Loggers derived outside the library read the records they drop: the text is complete.
  std::ostringstream out;
  StringLogger own;
  ReadingLogger derived(out);
  ReadingLogger tee(out);
  tee.inner = &own;
  LogMessage("a/b", 1, LogLevel::DEBUG, derived).getStream() << "debug " << 42;
  LogMessage("a/b", 1, LogLevel::INFO, derived).getStream() << "info " << 43;
  LogMessage("a/b", 1, LogLevel::DEBUG, tee).getStream() << "debug " << 44;
  EXPECT_EQ(derived.texts, (Texts{"debug 42", prefix() + "info 43"}));
  EXPECT_EQ(tee.texts, Texts{"debug 44"});
  EXPECT_EQ(out.str() + own.getString(), "\033[32m" + prefix() + "info 43\033[m\n");

  // The library's own logger drops the record it dropped when begun, even when the discard level is
  // lowered before the record is sent.
  {
    LogMessage message("a/b", 1, LogLevel::DEBUG, own);
    message.getStream() << "text";
    own.setDiscardLevel(LogLevel::TRACE);
  }
  LogMessage("a/b", 1, LogLevel::DEBUG, own).getStream() << "now written";
  EXPECT_EQ(own.getString(), prefix() + "DEBUG: now written\n");
}

}  // namespace
