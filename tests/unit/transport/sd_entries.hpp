#pragma once

#include <tuple>
#include <utility>
#include <vector>

#include "someip/endpoint.hpp"
#include "someip/sd_message.hpp"

namespace kov::test {

namespace someip = kov::platform::networking::someip;

/// An IPv4 endpoint option naming `endpoint`.
inline someip::SdOption udpOption(const someip::Endpoint& endpoint,
                                  std::uint8_t protocol = someip::L4_PROTOCOL_UDP) {
  return {someip::SdOptionType::IPV4_ENDPOINT, endpoint.ip, protocol, endpoint.port};
}

/// An SD entry from its fields in wire order: the minor version of a service entry, or the eventgroup
/// and counter of an eventgroup entry.
inline someip::SdEntry sdEntry(someip::SdEntryType type, std::uint16_t service, std::uint16_t instance,
                               std::uint8_t major, std::uint32_t ttl, std::uint32_t minor = 0,
                               std::uint16_t eventgroup = 0, std::uint8_t counter = 0,
                               std::vector<someip::SdOption> options = {}) {
  return {type, service, instance, major, ttl, minor, eventgroup, counter, std::move(options)};
}

/// Every field of an SD entry, its options included, as one value: a test states the whole entry it
/// expects at once.
inline auto fieldsOf(const someip::SdEntry& e) {
  return std::make_tuple(static_cast<int>(e.type), e.serviceId, e.instanceId, e.majorVersion, e.ttl,
                         e.minorVersion, e.eventgroupId, e.counter, e.options);
}

}  // namespace kov::test
