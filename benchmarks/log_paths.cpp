// Logging beside spdlog: a written INFO line to a file sink with a flush per line, and a DEBUG message
// that the discard level drops. Both loggers write the same facts: process id, thread id, level, text.
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <memory>

#include "common/log/log.hpp"
#include "common/log/stream_logger.hpp"
#include "hot_path.hpp"

namespace kov::bench {
namespace {

constexpr const char* DEV_NULL = "/dev/null";
constexpr const char* LOG_PATH = "src/bench/log_paths";

std::shared_ptr<spdlog::logger> makeSpdlogFileLogger() {
  auto logger = std::make_shared<spdlog::logger>(
      "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(DEV_NULL));
  logger->set_pattern("[%P.%t] %l: %v");
  logger->set_level(spdlog::level::info);
  logger->flush_on(spdlog::level::info);
  return logger;
}

/// FileLogger on /dev/null: one line per message with "[pid.tid(name)] INFO: ", flushed.
class WrittenLineLibrary : public PathRunner {
 public:
  void run(std::size_t count) override {
    for (std::size_t i = 0; i < count; ++i) {
      kov::common::log::LogMessage(LOG_PATH, __LINE__, kov::common::log::LogLevel::INFO, logger_).getStream()
          << "value " << 42;
    }
  }

 private:
  kov::common::log::FileLogger logger_{DEV_NULL, true};
};

class WrittenLineSpdlog : public PathRunner {
 public:
  void run(std::size_t count) override {
    for (std::size_t i = 0; i < count; ++i) {
      logger_->info("value {}", 42);
    }
  }

 private:
  std::shared_ptr<spdlog::logger> logger_ = makeSpdlogFileLogger();
};

/// A DEBUG message to the process-wide logger, whose default discard level drops it.
class DroppedMessageLibrary : public PathRunner {
 public:
  void run(std::size_t count) override {
    for (std::size_t i = 0; i < count; ++i) {
      KOV_LOG(DEBUG, LOG_PATH) << "value " << 42;
    }
  }
};

class DroppedMessageSpdlog : public PathRunner {
 public:
  void run(std::size_t count) override {
    for (std::size_t i = 0; i < count; ++i) {
      logger_->debug("value {}", 42);
    }
  }

 private:
  std::shared_ptr<spdlog::logger> logger_ = makeSpdlogFileLogger();
};

}  // namespace

std::vector<PathPair> makeLogPaths() {
  const auto writtenLibrary = std::make_shared<WrittenLineLibrary>();
  const auto writtenSpdlog = std::make_shared<WrittenLineSpdlog>();
  std::vector<PathPair> paths;
  paths.push_back({"INFO line to a file, flush per line", "spdlog basic_file_sink_mt", 1.3, 1.3, 1,
                   writtenLibrary, writtenSpdlog});
  paths.push_back({"INFO line to a file, flush per line", "spdlog basic_file_sink_mt", 1.3, 1.3, 4,
                   writtenLibrary, writtenSpdlog});
  paths.push_back({"DEBUG message dropped by the discard level", "spdlog disabled level", 10.0, 10.0, 1,
                   std::make_shared<DroppedMessageLibrary>(), std::make_shared<DroppedMessageSpdlog>()});
  return paths;
}

}  // namespace kov::bench
