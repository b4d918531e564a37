#pragma once

#include "networking/i_some_ip_transport.hpp"

namespace kov::tools::simulator {

using Result = kov::platform::networking::ISomeIpTransport::Result;

// Failure codes that the simulated transport returns from callMethod, after the SOME/IP return codes
// (0 Ok and 1 Timeout are the transport's own).

/// No available instance is known under the called address.
constexpr Result RESULT_UNKNOWN_SERVICE = static_cast<Result>(0x02);
/// The service has no method with that id.
constexpr Result RESULT_UNKNOWN_METHOD = static_cast<Result>(0x03);
/// The transport is not connected.
constexpr Result RESULT_NOT_READY = static_cast<Result>(0x04);
/// Request or response buffer size does not match the method's record.
constexpr Result RESULT_MALFORMED_MESSAGE = static_cast<Result>(0x09);
/// The sensor refused a value of the request (out of its range or without a meaning to it).
constexpr Result RESULT_INVALID_ARGUMENT = static_cast<Result>(0x20);

}  // namespace kov::tools::simulator
