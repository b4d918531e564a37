#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "networking/i_some_ip_transport.hpp"
#include "simulator/simulated_fleet.hpp"

namespace kov::tools::veskctl {

/// What the transport should reach. Today only the simulated fleet exists.
struct TransportOptions {
  std::size_t sensors{3};
  bool legacySensor{false};
};

/// The transport veskctl talks through. `simulator` is set only when the network is the simulated
/// fleet (fault injection).
struct TransportBundle {
  std::shared_ptr<kov::platform::networking::ISomeIpTransport> transport;
  std::shared_ptr<kov::tools::simulator::SimulatedFleet> simulator;
  std::size_t expectedSensors{0};  ///< how many sensors discovery waits for
};

/// The one place that decides which transport veskctl uses. Empty transport and `error` set on failure.
TransportBundle makeTransport(const TransportOptions& options, std::string& error);

}  // namespace kov::tools::veskctl
