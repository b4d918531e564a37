#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "common/log/i_logger.hpp"
#include "common/log/system_logger.hpp"

namespace kov::fuzz {

/// Reads values off the fuzzer's input in order; past its end every read yields zeros.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool empty() const { return offset_ >= size_; }

  std::uint8_t byte() { return offset_ < size_ ? data_[offset_++] : 0; }

  std::uint32_t u32() {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
      value = (value << 8U) | byte();
    }
    return value;
  }

  /// Any bit pattern, NaNs and infinities included.
  float anyFloat() {
    const std::uint32_t bits = u32();
    float value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
  }

  void fill(void* out, std::size_t count) {
    auto* bytes = static_cast<std::uint8_t*>(out);
    for (std::size_t i = 0; i < count; ++i) {
      bytes[i] = byte();
    }
  }

  /// Up to `maxLength` raw bytes (not necessarily UTF-8); the length comes from the input too.
  std::string text(std::size_t maxLength) {
    std::string result(byte() % (maxLength + 1), '\0');
    fill(result.data(), result.size());
    return result;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t offset_{0};
};

[[noreturn]] inline void propertyViolated(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "property violated: %s (%s:%d)\n", condition, file, line);
  std::abort();
}

/// A property of the code under test; a violation is a crash the fuzzer reports with its input.
#define KOV_FUZZ_CHECK(condition) \
  ((condition) ? static_cast<void>(0) : ::kov::fuzz::propertyViolated(#condition, __FILE__, __LINE__))

/// Same float, NaN compared as NaN whatever its payload.
inline bool sameFloat(float a, float b) {
  if (std::isnan(a) || std::isnan(b)) {
    return std::isnan(a) && std::isnan(b);
  }
  std::uint32_t bitsA;
  std::uint32_t bitsB;
  std::memcpy(&bitsA, &a, sizeof(a));
  std::memcpy(&bitsB, &b, sizeof(b));
  return bitsA == bitsB;
}

/// The float whose IEEE 754 bits are `bits`.
inline float floatOfBits(std::uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

/// Big-endian 32-bit value at `bytes`.
inline std::uint32_t bigEndian32(const std::uint8_t* bytes) {
  return (std::uint32_t{bytes[0]} << 24U) | (std::uint32_t{bytes[1]} << 16U) |
         (std::uint32_t{bytes[2]} << 8U) | bytes[3];
}

/// Writes `value` big-endian at `bytes`.
inline void putBigEndian32(std::uint8_t* bytes, std::uint32_t value) {
  for (int i = 3; i >= 0; --i) {
    bytes[i] = static_cast<std::uint8_t>(value);
    value >>= 8U;
  }
}

inline std::uint32_t bitsOf(float value) {
  std::uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

/// Every log record is dropped: rejected inputs log on every run, which would slow the fuzzer down.
inline void silenceLogging() {
  struct Silent : kov::common::log::ILogger {
    void sendLogMessage(std::shared_ptr<kov::common::log::LogData>) override {}
  };
  kov::common::log::SystemLoggerSingleton::instance().logger = std::make_shared<Silent>();
}

}  // namespace kov::fuzz
