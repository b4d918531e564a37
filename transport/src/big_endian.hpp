#pragma once

#include <cstddef>
#include <cstdint>

namespace kov::platform::networking::someip::detail {

// Big-endian reads and writes of wire fields at an offset of a byte buffer.

inline std::uint16_t read16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
inline std::uint32_t read24(const std::uint8_t* p) {
  return (static_cast<std::uint32_t>(p[0]) << 16) | (static_cast<std::uint32_t>(p[1]) << 8) | p[2];
}
inline std::uint32_t read32(const std::uint8_t* p) {
  return (static_cast<std::uint32_t>(p[0]) << 24) | read24(p + 1);
}
inline void write16(std::uint8_t* p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 8);
  p[1] = static_cast<std::uint8_t>(v);
}
inline void write24(std::uint8_t* p, std::uint32_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 16);
  p[1] = static_cast<std::uint8_t>(v >> 8);
  p[2] = static_cast<std::uint8_t>(v);
}
inline void write32(std::uint8_t* p, std::uint32_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 24);
  write24(p + 1, v);
}

}  // namespace kov::platform::networking::someip::detail
