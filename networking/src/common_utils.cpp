#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "common/log/log.hpp"
#include "networking/utils.hpp"

namespace kov::platform::networking {

std::uint16_t toHostByteOrder(std::uint16_t value) {
  return ntohs(value);
}

std::uint16_t toNetworkByteOrder(std::uint16_t value) {
  return htons(value);
}

std::uint32_t toHostByteOrder(std::uint32_t value) {
  return ntohl(value);
}

std::uint32_t toNetworkByteOrder(std::uint32_t value) {
  return htonl(value);
}

std::uint32_t floatToNetworkByteOrder(float value) {
  static_assert(sizeof(float) == sizeof(std::uint32_t), "float must be 32 bits wide");
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return toNetworkByteOrder(bits);
}

float floatToHostByteOrder(std::uint32_t value) {
  const std::uint32_t bits = toHostByteOrder(value);
  float result = 0.0F;
  std::memcpy(&result, &bits, sizeof(result));
  return result;
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
