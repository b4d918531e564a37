#include "result_texts.hpp"

#include <cstdint>
#include <cstdio>

#include "simulator/result_codes.hpp"
#include "someip/call_result.hpp"

namespace kov::tools::veskctl {

namespace {

using Result = kov::platform::networking::ISomeIpTransport::Result;

constexpr std::uint32_t codeOf(Result result) {
  return static_cast<std::uint32_t>(result);
}

/// The generic SOME/IP return codes, 0x01 to 0x0A, by their protocol names.
const char* const RETURN_CODE_NAMES[] = {"E_NOT_OK",
                                         "E_UNKNOWN_SERVICE",
                                         "E_UNKNOWN_METHOD",
                                         "E_NOT_READY",
                                         "E_NOT_REACHABLE",
                                         "E_TIMEOUT",
                                         "E_WRONG_PROTOCOL_VERSION",
                                         "E_WRONG_INTERFACE_VERSION",
                                         "E_MALFORMED_MESSAGE",
                                         "E_WRONG_MESSAGE_TYPE"};

std::string hex(std::uint32_t value, int digits) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%0*x", digits, static_cast<unsigned>(value));
  return text;
}

/// The return code of a SOME/IP response or error message, as the SOME/IP transport hands it on.
std::string remoteMeaning(std::uint32_t returnCode) {
  const std::string code = "the sensor answered with SOME/IP return code " + hex(returnCode, 2);
  if (returnCode >= 0x01 && returnCode <= 0x0a) {
    return code + " " + RETURN_CODE_NAMES[returnCode - 1];
  }
  if (returnCode >= 0x20 && returnCode <= 0x5e) {
    return code + ", service specific: the sensor refused the request";
  }
  return code + ", which SOME/IP reserves";
}

std::string someIpMeaning(std::uint32_t code) {
  namespace someip = kov::platform::networking::someip;
  switch (code) {
    case codeOf(Result::Timeout):
      return "no response within the call timeout";
    case codeOf(someip::RESULT_NOT_CONNECTED):
      return "not connected: connect did not succeed, or disconnect was called";
    case codeOf(someip::RESULT_UNKNOWN_INSTANCE):
      return "no offer of the called service instance is known: never offered, withdrawn, or its TTL ran out";
    case codeOf(someip::RESULT_SEND_FAILED):
      return "the request could not be sent";
    case codeOf(someip::RESULT_SIZE_MISMATCH):
      return "size mismatch, the response payload is not the size of the expected record";
    case codeOf(someip::RESULT_INVALID_ARGUMENT):
      return "invalid argument: the wildcard instance, a null buffer or a request too large";
    case codeOf(someip::RESULT_SOCKET_ERROR):
      return "socket error, the transport could not open, bind or join its sockets";
    case codeOf(someip::RESULT_INSTANCE_GONE):
      return "the service instance went away while the call waited for its response: StopOffer, TTL "
             "expiry or a reboot of its peer";
    case codeOf(someip::RESULT_TOO_MANY_CALLS):
      return "too many calls wait for their responses already, the request was not sent";
    default:
      break;
  }
  if (code > someip::RESULT_REMOTE_ERROR_BASE && code <= someip::RESULT_REMOTE_ERROR_BASE + 0xff) {
    return remoteMeaning(code - someip::RESULT_REMOTE_ERROR_BASE);
  }
  return "not among the SOME/IP transport's documented results";
}

std::string simulatorMeaning(std::uint32_t code) {
  namespace simulator = kov::tools::simulator;
  switch (code) {
    case codeOf(Result::Timeout):
      return "the simulated sensor did not answer within the call timeout";
    case codeOf(simulator::RESULT_UNKNOWN_SERVICE):
      return "no available instance is known under the called address";
    case codeOf(simulator::RESULT_UNKNOWN_METHOD):
      return "the service has no method with that id";
    case codeOf(simulator::RESULT_NOT_READY):
      return "the transport is not connected";
    case codeOf(simulator::RESULT_MALFORMED_MESSAGE):
      return "the request or response size does not match the method's record";
    case codeOf(simulator::RESULT_INVALID_ARGUMENT):
      return "the sensor refused a value of the request, out of its range or without a meaning to it";
    default:
      return "not among the simulator's documented results";
  }
}

}  // namespace

std::string explainCallResult(TransportKind transport, Result result) {
  const auto code = codeOf(result);
  if (transport == TransportKind::SomeIp) {
    return "SOME/IP transport result " + hex(code, 1) + ": " + someIpMeaning(code);
  }
  return "simulator result " + hex(code, 1) + ": " + simulatorMeaning(code);
}

}  // namespace kov::tools::veskctl
