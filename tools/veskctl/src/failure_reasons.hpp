#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/log/i_logger.hpp"

namespace kov::tools::veskctl {

/// The process-wide logger while veskctl runs: it passes every record on to the logger it wraps (which
/// applies the level the user chose) and keeps the text of each WARN, ERROR and FATAL record in a list
/// of the thread that logged it. A command takes that list after a library call failed and shows it as
/// the failure's reason, so that the reason reaches the output even with `--log-level off`.
///
/// Records arrive on whichever thread logs them; each thread sees only its own list, so no lock is
/// needed beyond the wrapped logger's own.
class FailureReasons : public kov::common::log::ILogger {
 public:
  explicit FailureReasons(std::shared_ptr<kov::common::log::ILogger> output);

  void sendLogMessage(std::shared_ptr<kov::common::log::LogData> data) override;
  void initLogMessage(const std::shared_ptr<kov::common::log::LogData>& data) override;
  void colorizeLogMessage(bool enable) override;
  /// Sets the level of the wrapped logger; this one always keeps WARN and above.
  void setDiscardLevel(kov::common::log::LogLevel level) override;
  bool isUsingDefaultLogFormat() const override;

  /// Forgets the reasons the calling thread collected so far.
  static void clear();
  /// The reasons the calling thread collected since the last clear() or take(), joined by "; ".
  static std::string take();

 private:
  std::shared_ptr<kov::common::log::ILogger> output_;
};

/// Installs a FailureReasons around the current process-wide logger; returns it.
std::shared_ptr<FailureReasons> installFailureReasons();

}  // namespace kov::tools::veskctl
