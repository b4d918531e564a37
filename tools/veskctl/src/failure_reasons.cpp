#include "failure_reasons.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "common/log/log_data.hpp"
#include "common/log/log_message.hpp"
#include "common/log/system_logger.hpp"

namespace kov::tools::veskctl {

namespace {

using kov::common::log::LogData;
using kov::common::log::LogLevel;

struct ThreadReasons {
  std::vector<std::string> texts;
  /// Where the message text starts in a record whose prefix the wrapped logger wrote.
  std::vector<std::pair<const LogData*, std::size_t>> starts;
};

ThreadReasons& reasons() {
  thread_local ThreadReasons instance;
  return instance;
}

bool isReason(LogLevel level) {
  return static_cast<std::uint32_t>(level) >= static_cast<std::uint32_t>(LogLevel::WARN);
}

}  // namespace

FailureReasons::FailureReasons(std::shared_ptr<kov::common::log::ILogger> output)
    : output_(std::move(output)) {
  useDefaultLogFormat.store(false);
  discardLevel.store(LogLevel::INFO);
}

void FailureReasons::initLogMessage(const std::shared_ptr<LogData>& data) {
  if (output_->isUsingDefaultLogFormat()) {
    // The record's constructor would have written the default prefix for the wrapped logger.
    data->stream << kov::common::log::LogMessage::getLevelName(data->level) << " - " << data->getFileName()
                 << '(' << data->line << "): ";
  } else {
    output_->initLogMessage(data);
  }
  if (isReason(data->level)) {
    reasons().starts.emplace_back(data.get(), data->buffer.text().size());
  }
}

void FailureReasons::sendLogMessage(std::shared_ptr<LogData> data) {
  if (isReason(data->level)) {
    auto& starts = reasons().starts;
    for (auto it = starts.begin(); it != starts.end(); ++it) {
      if (it->first == data.get()) {
        data->buffer.terminate();
        const auto text = data->buffer.text();
        std::string message(text.substr(std::min(it->second, text.size())));
        while (!message.empty() && message.back() == '\n') {
          message.pop_back();
        }
        reasons().texts.push_back(std::move(message));
        starts.erase(it);
        break;
      }
    }
  }
  output_->sendLogMessage(std::move(data));
}

void FailureReasons::colorizeLogMessage(bool enable) {
  output_->colorizeLogMessage(enable);
}

void FailureReasons::setDiscardLevel(LogLevel level) {
  output_->setDiscardLevel(level);
}

bool FailureReasons::isUsingDefaultLogFormat() const {
  return false;
}

void FailureReasons::clear() {
  reasons().texts.clear();
}

std::string FailureReasons::take() {
  auto& texts = reasons().texts;
  std::string joined;
  for (const auto& text : texts) {
    joined += (joined.empty() ? "" : "; ") + text;
  }
  texts.clear();
  return joined;
}

std::shared_ptr<FailureReasons> installFailureReasons() {
  auto& holder = kov::common::log::SystemLoggerSingleton::instance();
  auto reasons = std::make_shared<FailureReasons>(holder.logger);
  holder.logger = reasons;
  return reasons;
}

}  // namespace kov::tools::veskctl
