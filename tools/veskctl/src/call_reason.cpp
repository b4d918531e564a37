#include "call_reason.hpp"

#include "result_texts.hpp"

namespace kov::tools::veskctl {

CallOutcome finishCall(bool ok) {
  CallOutcome outcome;
  outcome.ok = ok;
  outcome.transportCall = RecordingTransport::lastCall();
  if (ok) {
    FailureReasons::clear();
    return outcome;
  }
  outcome.reason = FailureReasons::take();
  const auto& last = outcome.transportCall;
  if (last && last->result != RecordingTransport::Result::Ok) {
    const auto meaning = explainCallResult(last->transport, last->result);
    outcome.reason = outcome.reason.empty() ? meaning : outcome.reason + " (" + meaning + ")";
  }
  if (outcome.reason.empty()) {
    outcome.reason = "the library gave no reason";
  }
  return outcome;
}

}  // namespace kov::tools::veskctl
