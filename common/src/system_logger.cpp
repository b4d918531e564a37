#include "common/log/system_logger.hpp"

#include "common/log/stream_logger.hpp"

namespace kov::common::log {

SystemLogger::SystemLogger() : logger(std::make_shared<StdErrLogger>()) {}

}  // namespace kov::common::log

namespace kov::common::types {
template class Singleton<kov::common::log::SystemLogger, CreateUsingNew, DefaultLifetime>;
}  // namespace kov::common::types
