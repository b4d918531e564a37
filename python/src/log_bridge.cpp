#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "binding.hpp"
#include "common/log/i_logger.hpp"
#include "common/log/system_logger.hpp"
#include "failure_reasons.hpp"

namespace kov::python {

namespace {

using kov::common::log::ILogger;
using kov::common::log::LogData;
using kov::common::log::LogLevel;

/// Each library level and the Python logging level it becomes.
struct LevelPair {
  LogLevel library;
  int python;
};
constexpr LevelPair LEVELS[] = {{LogLevel::TRACE, 5}, {LogLevel::DEBUG, 10}, {LogLevel::INFO, 20},
                                {LogLevel::WARN, 30}, {LogLevel::ERROR, 40}, {LogLevel::FATAL, 50}};

int pythonLevel(LogLevel level) {
  for (const auto& pair : LEVELS) {
    if (pair.library == level) {
      return pair.python;
    }
  }
  return 40;
}

/// The library drops records whose level is not above the discard level: Python's `level` passes itself
/// and everything more severe, so the discard level is the most severe library level below it.
LogLevel discardLevelFor(int level) {
  auto discard = static_cast<LogLevel>(0);
  for (const auto& pair : LEVELS) {
    if (pair.python < level) {
      discard = pair.library;
    }
  }
  return discard;
}

/// The logger that the library's records reach (behind the FailureReasons that collects the reasons of
/// failed calls): either the logger it replaced (standard error) or, after enable_logging(), Python's
/// logger "kov_vesk". Records come from any thread; sending one to Python takes the interpreter lock,
/// which is why every call of the binding into the library releases it.
class PythonLogBridge final : public ILogger {
 public:
  explicit PythonLogBridge(std::shared_ptr<ILogger> original) : original_(std::move(original)) {
    useDefaultLogFormat.store(false);
  }

  void toPython(bool enable, LogLevel discard) {
    toPython_.store(enable);
    discardLevel.store(discard);
    original_->setDiscardLevel(discard);
  }

  void sendLogMessage(std::shared_ptr<LogData> data) override {
    if (!toPython_.load()) {
      original_->sendLogMessage(std::move(data));
      return;
    }
    if (!passes(data->level) || _Py_IsFinalizing() != 0) {
      return;
    }
    const auto entry = kov::common::log::getLogEntry(data);
    py::gil_scoped_acquire acquire;
    try {
      py::module_::import("logging")
          .attr("getLogger")("kov_vesk")
          .attr("log")(pythonLevel(entry.level), "%s", entry.message);
    } catch (py::error_already_set& error) {
      error.discard_as_unraisable("kov_vesk log bridge");
    }
  }

  void initLogMessage(const std::shared_ptr<LogData>& data) override {
    if (!toPython_.load()) {
      original_->initLogMessage(data);
    }
  }

  void colorizeLogMessage(bool enable) override { original_->colorizeLogMessage(enable); }

  void setDiscardLevel(LogLevel level) override {
    discardLevel.store(level);
    original_->setDiscardLevel(level);
  }

  bool isUsingDefaultLogFormat() const override {
    return !toPython_.load() && original_->isUsingDefaultLogFormat();
  }

 private:
  std::shared_ptr<ILogger> original_;
  std::atomic<bool> toPython_{false};
};

std::shared_ptr<PythonLogBridge> bridge;

}  // namespace

void bindLogging(py::module_& module) {
  // Installed once, at import, before the library logs from any other thread.
  auto& holder = kov::common::log::SystemLoggerSingleton::instance();
  bridge = std::make_shared<PythonLogBridge>(holder.logger);
  holder.logger = bridge;
  kov::tools::veskctl::installFailureReasons();

  module.def(
      "enable_logging",
      [](int level) {
        py::gil_scoped_release release;
        bridge->toPython(true, discardLevelFor(level));
      },
      py::arg("level") = 20,
      "Sends the library's log lines of `level` (a logging level) and above to Python's logger "
      "'kov_vesk' instead of standard error.");
  module.def(
      "disable_logging",
      []() {
        py::gil_scoped_release release;
        bridge->toPython(false, LogLevel::DEBUG);
      },
      "Sends the library's log lines back to standard error (INFO and above, the library's default).");
}

}  // namespace kov::python
