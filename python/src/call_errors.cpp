#include <cstdint>

#include "binding.hpp"
#include "simulator/result_codes.hpp"
#include "someip/call_result.hpp"

namespace kov::python {

namespace {

using kov::tools::veskctl::CallOutcome;
using kov::tools::veskctl::TransportKind;
using Result = kov::platform::networking::ISomeIpTransport::Result;

constexpr std::uint32_t codeOf(Result result) {
  return static_cast<std::uint32_t>(result);
}

/// The exception class for a call that reached the transport and failed with `code`.
const char* errorClassOf(TransportKind transport, std::uint32_t code) {
  if (code == codeOf(Result::Timeout)) {
    return "Timeout";
  }
  if (transport == TransportKind::SomeIp) {
    namespace someip = kov::platform::networking::someip;
    if (code > someip::RESULT_REMOTE_ERROR_BASE) {
      return "Rejected";
    }
    if (code == codeOf(someip::RESULT_UNKNOWN_INSTANCE) || code == codeOf(someip::RESULT_INSTANCE_GONE) ||
        code == codeOf(someip::RESULT_NOT_CONNECTED)) {
      return "Unavailable";
    }
    return "CallError";
  }
  namespace simulator = kov::tools::simulator;
  if (code == codeOf(simulator::RESULT_UNKNOWN_SERVICE) || code == codeOf(simulator::RESULT_NOT_READY)) {
    return "Unavailable";
  }
  // What the simulated sensor itself answers: an unknown method, a malformed or a refused request.
  if (code == codeOf(simulator::RESULT_UNKNOWN_METHOD) ||
      code == codeOf(simulator::RESULT_MALFORMED_MESSAGE) ||
      code >= codeOf(simulator::RESULT_INVALID_ARGUMENT)) {
    return "Rejected";
  }
  return "CallError";
}

[[noreturn]] void raise(const char* className, const std::string& reason, py::object code) {
  const auto errorClass = py::module_::import("kov_vesk._errors").attr(className);
  const auto error = errorClass(reason, code);
  PyErr_SetObject(errorClass.ptr(), error.ptr());
  throw py::error_already_set();
}

}  // namespace

void raiseCallError(const CallOutcome& outcome) {
  const auto& call = outcome.transportCall;
  if (!call) {
    // Values are checked before the call, so the library refused because the service is not available.
    raise("Unavailable", outcome.reason, py::none());
  }
  if (call->result == Result::Ok) {
    // The transport delivered a response that the library could not convert.
    raise("CallError", outcome.reason, py::none());
  }
  const auto code = codeOf(call->result);
  raise(errorClassOf(call->transport, code), outcome.reason, py::int_(code));
}

void raiseCallError(const std::string& reason) {
  raise("CallError", reason, py::none());
}

}  // namespace kov::python
