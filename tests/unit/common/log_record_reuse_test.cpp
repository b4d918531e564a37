// A thread reuses its last log record for its next message. These tests check that the reuse cannot
// be seen: every message starts on a stream as new, a record that a logger keeps is never rewritten,
// and only the library's own loggers skip formatting the text of records they drop.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <iomanip>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/log/log_data.hpp"
#include "common/log/log_message.hpp"
#include "common/log/stream_logger.hpp"
#include "process/kov_platform_posix_process.hpp"

namespace {

using kov::common::log::getLogEntry;
using kov::common::log::ILogger;
using kov::common::log::LogData;
using kov::common::log::LogLevel;
using kov::common::log::LogMessage;
using kov::common::log::OstreamLogger;
using kov::common::log::StringLogger;

/// Keeps every record it is sent; uses the default format.
class KeepingLogger : public ILogger {
 public:
  void sendLogMessage(std::shared_ptr<LogData> data) override { kept.push_back(std::move(data)); }
  std::vector<std::shared_ptr<LogData>> kept;
};

/// Reads the text of every record, also of those its discard level drops.
class ReadingEveryRecordLogger : public OstreamLogger {
 public:
  explicit ReadingEveryRecordLogger(std::ostream& out) : OstreamLogger(out) { colorizeLogMessage(false); }
  void sendLogMessage(std::shared_ptr<LogData> data) override {
    texts.push_back(getLogEntry(data).message);
    OstreamLogger::sendLogMessage(std::move(data));
  }
  std::vector<std::string> texts;
};

/// Lets a StringLogger write the prefix, but sends every record to a second logger as well.
class TeeLogger : public ILogger {
 public:
  TeeLogger() { useDefaultLogFormat.store(false); }
  void initLogMessage(const std::shared_ptr<LogData>& data) override { first.initLogMessage(data); }
  void sendLogMessage(std::shared_ptr<LogData> data) override {
    texts.push_back(getLogEntry(data).message);
    first.sendLogMessage(std::move(data));
  }
  StringLogger first;
  std::vector<std::string> texts;
};

/// Groups digits by threes with '_' (a locale no new stream starts with).
struct Underscores : std::numpunct<char> {
  char do_thousands_sep() const override { return '_'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(LogRecordReuse, EveryMessageStartsOnAFreshStream) {
  struct Case {
    const char* what;
    void (*spoil)(std::ostream&);
  };
  const Case cases[] = {
      {"hex, showbase, uppercase", [](std::ostream& s) { s << std::hex << std::showbase << std::uppercase; }},
      {"width and fill", [](std::ostream& s) { s << std::setw(12) << std::setfill('*'); }},
      {"precision and fixed", [](std::ostream& s) { s << std::setprecision(2) << std::fixed; }},
      {"showpos, left, boolalpha", [](std::ostream& s) { s << std::showpos << std::left << std::boolalpha; }},
      {"locale with grouping", [](std::ostream& s) { s.imbue(std::locale(s.getloc(), new Underscores)); }},
      {"failed state", [](std::ostream& s) { s.setstate(std::ios_base::failbit); }},
      {"exception mask", [](std::ostream& s) { s.exceptions(std::ios_base::badbit); }},
      {"tie", [](std::ostream& s) { s.tie(&s); }},
  };
  KeepingLogger reference;
  { LogMessage("a/b", 1, LogLevel::INFO, reference).getStream() << 1234567 << ' ' << 2.5 << ' ' << true; }
  const std::string expected = getLogEntry(reference.kept.at(0)).message;
  ASSERT_EQ(expected, "INFO - b(1): 1234567 2.5 1");

  std::ostringstream out;
  ReadingEveryRecordLogger logger(out);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    logger.texts.clear();
    {
      LogMessage message("a/b", 1, LogLevel::INFO, logger);
      c.spoil(message.getStream());
    }
    {
      LogMessage message("a/b", 1, LogLevel::INFO, logger);
      std::ostream& stream = message.getStream();
      EXPECT_EQ(stream.flags(), std::ios_base::skipws | std::ios_base::dec);
      EXPECT_EQ(stream.exceptions(), std::ios_base::goodbit);
      EXPECT_EQ(stream.tie(), nullptr);
      EXPECT_TRUE(stream.good());
      stream << 1234567 << ' ' << 2.5 << ' ' << true << '|' << std::setw(3) << 7;
    }
    ASSERT_EQ(logger.texts.size(), 2U);
    const std::string& text = logger.texts[1];
    EXPECT_EQ(text.substr(text.find("] INFO: ") + 8), "1234567 2.5 1|  7");
  }
}

TEST(LogRecordReuse, KeptRecordsAreNeverRewritten) {
  KeepingLogger logger;
  for (int i = 0; i < 5; ++i) {
    LogMessage("x/y", static_cast<unsigned>(i), LogLevel::WARN, logger).getStream() << "message " << i;
  }
  ASSERT_EQ(logger.kept.size(), 5U);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(getLogEntry(logger.kept[static_cast<std::size_t>(i)]).message,
              "WARN - y(" + std::to_string(i) + "): message " + std::to_string(i));
    EXPECT_EQ(logger.kept[static_cast<std::size_t>(i)]->line, static_cast<std::uint32_t>(i));
  }
  // Once the logger lets go, later messages still read back exactly.
  logger.kept.clear();
  for (int i = 0; i < 3; ++i) {
    LogMessage("x/y", 9, LogLevel::ERROR, logger).getStream() << std::hex << 255 + i;
    EXPECT_EQ(getLogEntry(logger.kept.back()).message, "ERROR - y(9): " + std::string(i == 0   ? "ff"
                                                                                      : i == 1 ? "100"
                                                                                               : "101"));
    logger.kept.clear();
  }
}

TEST(LogRecordReuse, DroppedRecordsAreFormattedForEveryoneWhoReadsThem) {
  // A logger derived outside the library reads the records its level drops: their text is complete.
  std::ostringstream out;
  ReadingEveryRecordLogger derived(out);
  LogMessage("a/b", 1, LogLevel::DEBUG, derived).getStream() << "debug " << 42;
  LogMessage("a/b", 1, LogLevel::INFO, derived).getStream() << "info " << 43;
  ASSERT_EQ(derived.texts.size(), 2U);
  EXPECT_EQ(derived.texts[0], "debug 42");  // dropped when begun: no prefix, but the whole text
  EXPECT_NE(derived.texts[1].find("] INFO: info 43"), std::string::npos);
  EXPECT_EQ(out.str(), derived.texts[1] + "\n");

  // A logger that hands the prefix to a StringLogger and reads every record: the same.
  TeeLogger tee;
  LogMessage("a/b", 1, LogLevel::DEBUG, tee).getStream() << "debug " << 44;
  ASSERT_EQ(tee.texts.size(), 1U);
  EXPECT_EQ(tee.texts[0], "debug 44");
  EXPECT_EQ(tee.first.getString(), "");

  // The library's own logger drops the record it dropped when begun, even when the discard level is
  // lowered before the record is sent.
  StringLogger own;
  {
    LogMessage message("a/b", 1, LogLevel::DEBUG, own);
    message.getStream() << "text";
    own.setDiscardLevel(LogLevel::TRACE);
  }
  EXPECT_EQ(own.getString(), "");
  LogMessage("a/b", 1, LogLevel::DEBUG, own).getStream() << "now written";
  EXPECT_NE(own.getString().find("] DEBUG: now written\n"), std::string::npos);
}

TEST(LogRecordReuse, PrefixNumbersFollowTheGlobalLocaleOfNewStreams) {
  StringLogger logger;
  std::ostringstream grouped;  // the prefix as a stream of that locale writes it, with the thread's name
  std::thread([&] {
    kov::platform::process::setNameOfCurrentThread("grouped");
    const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new Underscores));
    LogMessage("a/b", 1, LogLevel::INFO, logger).getStream() << 1234567;
    std::locale::global(previous);
    LogMessage("a/b", 1, LogLevel::INFO, logger).getStream() << 1234567;
    grouped.imbue(std::locale(std::locale::classic(), new Underscores));
    grouped << '[' << static_cast<std::uint32_t>(getpid()) << '.'
            << static_cast<std::uint32_t>(pthread_self());
  }).join();
  const std::string lines = logger.getString();
  EXPECT_EQ(lines.rfind(grouped.str() + "(grouped)] INFO: 1_234_567\n", 0), 0U) << lines;
  EXPECT_NE(lines.find("(grouped)] INFO: 1234567\n"), std::string::npos) << lines;
}

}  // namespace
