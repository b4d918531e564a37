#pragma once

#include <string>

#include "networking/i_some_ip_transport.hpp"
#include "transport_factory.hpp"

namespace kov::tools::veskctl {

/// What a result of callMethod means, from the table of the transport that returned it (the SOME/IP
/// transport's call_result.hpp, the simulator's result_codes.hpp), for example
/// `SOME/IP transport result 0x5: size mismatch, the response payload is not the size of the record`.
std::string explainCallResult(TransportKind transport,
                              kov::platform::networking::ISomeIpTransport::Result result);

}  // namespace kov::tools::veskctl
