#pragma once

#include <cstdint>
#include <cstring>

namespace kov::platform::networking::byte_order {

// The byte-order conversions of networking/utils.hpp as inline functions, for the library's own
// per-field use (wire records, scan patterns, socket addresses): a call of the exported functions
// from inside the shared library goes through its PLT, which costs more than the swap itself.
// Network order is big-endian; on a little-endian host every conversion is a byte swap, on a
// big-endian host the identity. Each pair is its own inverse.

constexpr bool HOST_IS_LITTLE_ENDIAN = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

/// Network to host order of a 16-bit value (as ntohs).
constexpr std::uint16_t toHostByteOrder(std::uint16_t value) {
  return HOST_IS_LITTLE_ENDIAN ? __builtin_bswap16(value) : value;
}

/// Host to network order of a 16-bit value (as htons).
constexpr std::uint16_t toNetworkByteOrder(std::uint16_t value) { return toHostByteOrder(value); }

/// Network to host order of a 32-bit value (as ntohl).
constexpr std::uint32_t toHostByteOrder(std::uint32_t value) {
  return HOST_IS_LITTLE_ENDIAN ? __builtin_bswap32(value) : value;
}

/// Host to network order of a 32-bit value (as htonl).
constexpr std::uint32_t toNetworkByteOrder(std::uint32_t value) { return toHostByteOrder(value); }

/// The IEEE-754 bit pattern of `value`, unchanged, in network order.
inline std::uint32_t floatToNetworkByteOrder(float value) {
  static_assert(sizeof(float) == sizeof(std::uint32_t), "float must be 32 bits wide");
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return toNetworkByteOrder(bits);
}

/// The inverse of floatToNetworkByteOrder: the bits of `value` in host order, taken as a float.
inline float floatToHostByteOrder(std::uint32_t value) {
  const std::uint32_t bits = toHostByteOrder(value);
  float result = 0.0F;
  std::memcpy(&result, &bits, sizeof(result));
  return result;
}

}  // namespace kov::platform::networking::byte_order
