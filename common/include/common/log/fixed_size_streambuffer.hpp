#pragma once

#include <cstddef>
#include <cstring>
#include <streambuf>
#include <string_view>

namespace kov::common::log {

/// A stream buffer over a fixed 512-byte array. The put area is the first 511 bytes; the last byte is
/// reserved for the NUL that readers write at the put pointer. Characters beyond the 511th are dropped:
/// overflow() keeps the base behaviour (end-of-file), which sets the owning stream's bad state.
class FixedSizeStreambuffer : public std::streambuf {
 public:
  static constexpr std::size_t SIZE = 512;
  static constexpr std::size_t CAPACITY = SIZE - 1;

  FixedSizeStreambuffer();
  ~FixedSizeStreambuffer() override;

  FixedSizeStreambuffer(const FixedSizeStreambuffer&) = delete;
  FixedSizeStreambuffer& operator=(const FixedSizeStreambuffer&) = delete;

  /// The text written so far (put base up to put pointer).
  std::string_view text() const { return std::string_view(pbase(), static_cast<std::size_t>(pptr() - pbase())); }

  /// Writes a NUL at the put pointer and returns the text as a C string.
  const char* terminate() {
    *pptr() = '\0';
    return pbase();
  }

  /// Back to the state of a new buffer: the bytes written so far (and the NUL that terminate() may
  /// have put behind them) zeroed again, the put pointer at the start.
  void rewind() {
    const std::size_t used = static_cast<std::size_t>(pptr() - pbase());
    if (used == 0) {
      buffer[0] = '\0';
    } else {
      std::memset(buffer, 0, used < SIZE ? used + 1 : SIZE);
    }
    setp(buffer, buffer + CAPACITY);
  }

 private:
  char buffer[SIZE]{};
};

}  // namespace kov::common::log
