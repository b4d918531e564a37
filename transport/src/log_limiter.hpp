#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "sd_outbox.hpp"

namespace kov::platform::networking::someip::detail {

/// What went wrong with a peer's traffic, for log lines that a misbehaving peer must not flood.
enum class LogKind : std::uint8_t {
  MALFORMED,    ///< a datagram or message that could not be read
  SD_REFUSED,   ///< an SD message or entry that was left out (unusable, or a table is full)
  SEND_FAILED,  ///< a datagram to the peer could not be sent
  REQUEST,      ///< a request that was answered with an error or dropped
};

/// Lets one log line per (peer, kind) through per interval and counts the lines it holds back, so that
/// the next line can say how many were suppressed. Bounded: at most MAX_KEYS records; when they are all
/// in use, peers without a record share one. Not thread-safe: the owner serialises.
class LogLimiter {
 public:
  static constexpr std::size_t MAX_KEYS = 256;

  explicit LogLimiter(std::chrono::milliseconds interval) : interval_(interval) {}

  /// True when a line about `peerIp` and `kind` may be logged at `now`; `suppressed` is then the number
  /// of lines held back for the same key since the previous one.
  bool allow(Clock::time_point now, std::uint32_t peerIp, LogKind kind, std::size_t& suppressed) {
    auto it = records_.find({peerIp, kind});
    if (it == records_.end()) {
      if (records_.size() >= MAX_KEYS) {
        prune(now);
      }
      const Key key = records_.size() >= MAX_KEYS ? Key{SHARED_PEER, kind} : Key{peerIp, kind};
      it = records_.emplace(key, Record{}).first;
    }
    Record& record = it->second;
    if (record.logged && now - record.lastLine < interval_) {
      ++record.suppressed;
      return false;
    }
    suppressed = record.suppressed;
    record = Record{true, now, 0};
    return true;
  }

  void clear() { records_.clear(); }

 private:
  static constexpr std::uint32_t SHARED_PEER = 0xFFFFFFFF;
  using Key = std::pair<std::uint32_t, LogKind>;
  struct Record {
    bool logged{false};
    Clock::time_point lastLine;
    std::size_t suppressed{0};
  };

  /// Forgets records whose interval ended with nothing held back.
  void prune(Clock::time_point now) {
    for (auto it = records_.begin(); it != records_.end();) {
      const bool idle = it->second.suppressed == 0 && now - it->second.lastLine >= interval_;
      it = idle ? records_.erase(it) : std::next(it);
    }
  }

  const std::chrono::milliseconds interval_;
  std::map<Key, Record> records_;
};

/// "" or " (N more like it suppressed)", to end a rate-limited log line.
inline std::string suppressedNote(std::size_t suppressed) {
  return suppressed == 0 ? std::string() : " (" + std::to_string(suppressed) + " more like it suppressed)";
}

}  // namespace kov::platform::networking::someip::detail
