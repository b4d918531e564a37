#pragma once

#include "common/log/log_message.hpp"
#include "common/log/system_logger.hpp"

/// Writes one message to the process-wide logger:
///   KOV_LOG(ERROR, "src/posix/utils") << "text " << value;
/// LEVEL is one of TRACE, DEBUG, INFO, WARN, ERROR, FATAL; PATH is the source path literal the line
/// reports. The record is sent when the statement ends.
#define KOV_LOG(LEVEL, PATH)                                                                  \
  ::kov::common::log::LogMessage((PATH), __LINE__, ::kov::common::log::LogLevel::LEVEL,      \
                                 ::kov::common::log::systemLogger())                          \
      .getStream()
