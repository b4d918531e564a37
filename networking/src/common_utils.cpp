#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "common/log/log.hpp"
#include "networking/byte_order.hpp"
#include "networking/utils.hpp"

namespace kov::platform::networking {

// The exported conversions; the library itself uses the inline ones of networking/byte_order.hpp.

std::uint16_t toHostByteOrder(std::uint16_t value) {
  return byte_order::toHostByteOrder(value);
}

std::uint16_t toNetworkByteOrder(std::uint16_t value) {
  return byte_order::toNetworkByteOrder(value);
}

std::uint32_t toHostByteOrder(std::uint32_t value) {
  return byte_order::toHostByteOrder(value);
}

std::uint32_t toNetworkByteOrder(std::uint32_t value) {
  return byte_order::toNetworkByteOrder(value);
}

std::uint32_t floatToNetworkByteOrder(float value) {
  return byte_order::floatToNetworkByteOrder(value);
}

float floatToHostByteOrder(std::uint32_t value) {
  return byte_order::floatToHostByteOrder(value);
}

std::uint16_t getSourcePort(const sockaddr& address) {
  if (address.sa_family != AF_INET && address.sa_family != AF_INET6) {
    KOV_LOG(ERROR, "src/src/common_utils")
        << "getSourcePort error: Unknown address family: " << static_cast<unsigned>(address.sa_family);
    return 0;
  }
  // sockaddr_in and sockaddr_in6 both keep the port right after the family field, which is where
  // sa_data begins.
  std::uint16_t port = 0;
  std::memcpy(&port, address.sa_data, sizeof(port));
  return toHostByteOrder(port);
}

}  // namespace kov::platform::networking
