#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "networking/i_some_ip_transport.hpp"
#include "someip/endpoint.hpp"
#include "someip/sd_message.hpp"

namespace kov::platform::networking::someip::detail {

using Clock = std::chrono::steady_clock;
using Address = ISomeIpTransport::Address;

/// Orders addresses by service id, then instance id.
struct AddressLess {
  bool operator()(const Address& a, const Address& b) const {
    return a.serviceId != b.serviceId ? a.serviceId < b.serviceId : a.instanceId < b.instanceId;
  }
};

/// One SD entry that a state machine wants sent: to the multicast group, or to a peer's SD port.
struct SdOutgoing {
  bool multicast{true};
  std::uint32_t peerIp{0};
  SdEntry entry;
};
using SdOutbox = std::vector<SdOutgoing>;

/// A change of availability of a remote service instance, as the discovery state machine saw it.
struct AvailabilityChange {
  Address address;
  bool available;
};

/// Time at which an entry of `ttlSeconds` runs out; never for the infinite TTL.
inline Clock::time_point expiryOf(Clock::time_point now, std::uint32_t ttlSeconds) {
  if (ttlSeconds >= TTL_INFINITE) {
    return Clock::time_point::max();
  }
  return now + std::chrono::seconds(ttlSeconds);
}

/// The IPv4 UDP endpoint among `options`, if any.
inline const SdOption* udpEndpointOf(const SdEntry& entry) {
  for (const SdOption& option : entry.options) {
    if (option.type == SdOptionType::IPV4_ENDPOINT && option.protocol == L4_PROTOCOL_UDP) {
      return &option;
    }
  }
  return nullptr;
}

/// True for an endpoint that can be sent to: a unicast address other than 0.0.0.0 and a port other
/// than 0 (multicast and broadcast addresses are not endpoints of one participant).
inline bool isUsableUnicast(const SdOption& option) {
  const bool multicastOrReserved = (option.address >> 28) >= 0xE;
  return option.address != 0 && !multicastOrReserved && option.port != 0;
}

/// True for a multicast group with a port, as an event group's multicast option names it.
inline bool isUsableMulticast(const SdOption& option) {
  return (option.address >> 28) == 0xE && option.port != 0 && option.protocol == L4_PROTOCOL_UDP;
}

inline SdOption udpEndpointOption(const Endpoint& endpoint) {
  SdOption option;
  option.type = SdOptionType::IPV4_ENDPOINT;
  option.address = endpoint.ip;
  option.protocol = L4_PROTOCOL_UDP;
  option.port = endpoint.port;
  return option;
}

}  // namespace kov::platform::networking::someip::detail
