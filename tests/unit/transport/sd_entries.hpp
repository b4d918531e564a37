#pragma once

#include <tuple>

#include "someip/endpoint.hpp"
#include "someip/sd_message.hpp"

namespace kov::test {

namespace someip = kov::platform::networking::someip;

/// An IPv4 endpoint option naming `endpoint`.
inline someip::SdOption udpOption(const someip::Endpoint& endpoint,
                                  std::uint8_t protocol = someip::L4_PROTOCOL_UDP) {
  return {someip::SdOptionType::IPV4_ENDPOINT, endpoint.ip, protocol, endpoint.port};
}

/// Every field of an SD entry, its options included, as one value: a test states the whole entry it
/// expects at once.
inline auto fieldsOf(const someip::SdEntry& e) {
  return std::make_tuple(static_cast<int>(e.type), e.serviceId, e.instanceId, e.majorVersion, e.ttl,
                         e.minorVersion, e.eventgroupId, e.counter, e.options);
}

}  // namespace kov::test
