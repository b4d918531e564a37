#include "common/log/i_logger.hpp"

#include <cstdint>

namespace kov::common::log {

ILogger::~ILogger() = default;

void ILogger::initLogMessage(const std::shared_ptr<LogData>& /*data*/) {}

void ILogger::colorizeLogMessage(bool enable) { colorize.store(enable); }

void ILogger::setDiscardLevel(LogLevel level) { discardLevel.store(level); }

bool ILogger::isUsingDefaultLogFormat() const { return useDefaultLogFormat.load(); }

bool ILogger::passes(LogLevel level) const {
  return static_cast<std::uint32_t>(level) > static_cast<std::uint32_t>(discardLevel.load());
}

}  // namespace kov::common::log
