#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "discovery_wait.hpp"
#include "networking/i_some_ip_transport.hpp"
#include "simulator/simulated_fleet.hpp"

namespace kov::tools::veskctl {

/// Which network veskctl talks to.
enum class TransportKind {
  Simulator,  ///< the built-in simulated fleet, new on every run
  SomeIp,     ///< sensors (or vesk-sensord) reached over SOME/IP on UDP
};

/// What the transport should reach.
struct TransportOptions {
  static constexpr std::size_t DEFAULT_SENSORS = 3;
  static constexpr const char* DEFAULT_SD_MULTICAST = "224.224.224.245";
  static constexpr std::uint16_t DEFAULT_SD_PORT = 30490;

  TransportKind kind{TransportKind::Simulator};
  /// Simulated fleet: how many sensors it plays, and whether it adds the legacy one. SOME/IP: when
  /// `sensorsGiven`, how many sensors at least discovery waits for.
  std::size_t sensors{DEFAULT_SENSORS};
  bool sensorsGiven{false};
  bool legacySensor{false};
  /// SOME/IP: this host's IPv4 address (dotted quad), the service discovery group and port.
  std::string unicast;
  std::string sdMulticast{DEFAULT_SD_MULTICAST};
  std::uint16_t sdPort{DEFAULT_SD_PORT};
  /// SOME/IP: how long a method call waits for its response (--call-timeout), and the one service
  /// major version to ask for and accept (--major; any when not given).
  std::chrono::milliseconds callTimeout{1000};
  std::optional<std::uint8_t> major;
  /// Simulated fleet: how long a call made to time out blocks (the fleet's own default when unset).
  std::optional<std::chrono::milliseconds> simulatedCallTimeout;
};

/// The transport veskctl talks through. `simulator` is set only when the network is the simulated
/// fleet (fault injection).
struct TransportBundle {
  /// The transport handed to the library: a RecordingTransport around the simulator or SOME/IP.
  std::shared_ptr<kov::platform::networking::ISomeIpTransport> transport;
  std::shared_ptr<kov::tools::simulator::SimulatedFleet> simulator;
  /// Over the simulator, its whole fleet; over SOME/IP, the sensors found once discovery settles.
  DiscoveryGoal discovery;
  /// "a.b.c.d:port" at which a service instance is offered; empty when unknown. Only set for SOME/IP.
  std::function<std::string(const kov::platform::networking::ISomeIpTransport::Address&)> endpointOf;
};

/// The one place that decides which transport veskctl uses. Empty transport and `error` set on failure.
TransportBundle makeTransport(const TransportOptions& options, std::string& error);

}  // namespace kov::tools::veskctl
