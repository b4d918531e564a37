#include "support/log_capture.hpp"

#include <algorithm>
#include <sstream>
#include <utility>

#include "common/log/system_logger.hpp"

namespace kov::test {

LogCapture::LogCapture() {
  logger_->setDiscardLevel(static_cast<kov::common::log::LogLevel>(0));
}

std::vector<std::string> LogCapture::lines() const {
  std::vector<std::string> result;
  std::istringstream input(text());
  for (std::string line; std::getline(input, line);) {
    const auto prefixEnd = line.find("] ");
    result.push_back(prefixEnd == std::string::npos ? line : line.substr(prefixEnd + 2));
  }
  return result;
}

std::size_t LogCapture::count(const std::string& level, const std::string& message) const {
  const auto all = lines();
  return static_cast<std::size_t>(std::count(all.begin(), all.end(), level + ": " + message));
}

LoggerScope::LoggerScope(std::shared_ptr<kov::common::log::ILogger> logger)
    : previous_(
          std::exchange(kov::common::log::SystemLoggerSingleton::instance().logger, std::move(logger))) {}

LoggerScope::~LoggerScope() {
  kov::common::log::SystemLoggerSingleton::instance().logger = previous_;
}

}  // namespace kov::test
