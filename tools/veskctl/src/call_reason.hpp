#pragma once

#include <optional>
#include <string>

#include "failure_reasons.hpp"
#include "recording_transport.hpp"

namespace kov::tools::veskctl {

/// What one library call came to: whether it succeeded and, when it failed, why.
struct CallOutcome {
  bool ok{false};
  /// Empty on success. Otherwise what the library logged, followed by the meaning of the transport's
  /// result when the call reached the transport and failed there (the library logs only the number).
  std::string reason;
  /// The transport call the library made, if it made one; unset when it refused before sending.
  std::optional<RecordingTransport::Call> transportCall;
};

/// Builds the outcome of a call that returned `ok`, from what the calling thread collected since
/// FailureReasons::clear() and RecordingTransport::forgetLastCall().
CallOutcome finishCall(bool ok);

/// Runs one library call on the calling thread and says what it came to.
template <typename Call>
CallOutcome runCall(Call call) {
  FailureReasons::clear();
  RecordingTransport::forgetLastCall();
  const bool ok = call();
  return finishCall(ok);
}

}  // namespace kov::tools::veskctl
