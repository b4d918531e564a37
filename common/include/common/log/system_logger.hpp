#pragma once

#include <memory>

#include "common/log/i_logger.hpp"
#include "common/types/singleton.hpp"

namespace kov::common::log {

/// Holder of the process-wide logger. `logger` starts as a StdErrLogger; an application may assign
/// another logger before it starts logging (the assignment itself is not synchronised).
class SystemLogger {
 public:
  SystemLogger();

  std::shared_ptr<ILogger> logger;
};

using SystemLoggerSingleton =
    kov::common::types::Singleton<SystemLogger, kov::common::types::CreateUsingNew,
                                  kov::common::types::DefaultLifetime>;

/// The process-wide logger that every message of the library is written to.
inline ILogger& systemLogger() { return *SystemLoggerSingleton::instance().logger; }

}  // namespace kov::common::log

namespace kov::common::types {
extern template class Singleton<kov::common::log::SystemLogger, CreateUsingNew, DefaultLifetime>;
}  // namespace kov::common::types
