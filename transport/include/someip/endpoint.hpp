#pragma once

#include <cstdint>
#include <string>

#include "someip/export.hpp"

namespace kov::platform::networking::someip {

/// An IPv4 UDP endpoint; `ip` in host order (0x7F000001 is 127.0.0.1), `port` in host order.
struct Endpoint {
  std::uint32_t ip{0};
  std::uint16_t port{0};

  friend bool operator==(const Endpoint& a, const Endpoint& b) { return a.ip == b.ip && a.port == b.port; }
  friend bool operator!=(const Endpoint& a, const Endpoint& b) { return !(a == b); }
  friend bool operator<(const Endpoint& a, const Endpoint& b) {
    return a.ip != b.ip ? a.ip < b.ip : a.port < b.port;
  }
};

/// Dotted quad of a host-order address.
KOV_SOMEIP_EXPORT std::string ipToString(std::uint32_t ip);

/// "a.b.c.d:port".
KOV_SOMEIP_EXPORT std::string toString(const Endpoint& endpoint);

/// Parses a strict dotted quad (four decimal octets) into a host-order address.
KOV_SOMEIP_EXPORT bool parseIp(const std::string& text, std::uint32_t& ip);

}  // namespace kov::platform::networking::someip
