#pragma once

#include <cstdint>

#include "networking/i_some_ip_transport.hpp"
#include "someip/message.hpp"

namespace kov::platform::networking::someip {

using Result = ISomeIpTransport::Result;

// Results of the SOME/IP transport beyond Ok (0) and Timeout (1, no response within the call timeout).

/// connect has not succeeded, or disconnect was called (also while the call waited).
constexpr Result RESULT_NOT_CONNECTED = static_cast<Result>(2);
/// No offer of the called service instance is known (never offered, withdrawn, or its TTL ran out).
constexpr Result RESULT_UNKNOWN_INSTANCE = static_cast<Result>(3);
/// The request could not be sent.
constexpr Result RESULT_SEND_FAILED = static_cast<Result>(4);
/// The response payload size differs from the expected `responseSize`; nothing was copied.
constexpr Result RESULT_SIZE_MISMATCH = static_cast<Result>(5);
/// Bad arguments: the wildcard instance, a null buffer with a non-zero size, or a request too large.
constexpr Result RESULT_INVALID_ARGUMENT = static_cast<Result>(6);
/// connect could not open, bind or join its sockets, or the options are not valid (logged).
constexpr Result RESULT_SOCKET_ERROR = static_cast<Result>(7);
/// The called instance went away while the call waited for its response: StopOffer, TTL expiry or a
/// reboot of the peer that offered it. The call ends at once, not after the call timeout.
constexpr Result RESULT_INSTANCE_GONE = static_cast<Result>(8);
/// maxPendingCalls calls wait for responses already; nothing was sent.
constexpr Result RESULT_TOO_MANY_CALLS = static_cast<Result>(9);
/// The server answered with an ERROR message or a non-zero return code: the result is this base plus
/// the return code (0x101 E_NOT_OK .. 0x10A E_WRONG_MESSAGE_TYPE, 0x120.. for service-specific codes).
/// An ERROR message that carries E_OK counts as E_NOT_OK.
constexpr std::uint32_t RESULT_REMOTE_ERROR_BASE = 0x100;

constexpr Result remoteErrorResult(ReturnCode code) {
  const auto value = static_cast<std::uint32_t>(code);
  return static_cast<Result>(RESULT_REMOTE_ERROR_BASE + (value == 0 ? 1u : value));
}

}  // namespace kov::platform::networking::someip
