#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "someip/message.hpp"

namespace kov::platform::networking::someip::detail {

/// Session ids of the SD messages sent on one channel (multicast, or unicast to one peer): they start
/// at 1 and carry the reboot flag until the counter wraps for the first time.
class SdSessionCounter {
 public:
  /// The session id and reboot flag for the next message.
  std::pair<std::uint16_t, bool> next() {
    const std::pair<std::uint16_t, bool> current{session_, reboot_};
    if (session_ == 0xFFFF) {
      reboot_ = false;
    }
    session_ = nextSessionId(session_);
    return current;
  }

 private:
  std::uint16_t session_{1};
  bool reboot_{true};
};

/// Tells from the reboot flag and session id of a peer's SD messages whether the peer restarted.
/// Multicast and unicast messages are counted apart, as the sender counts them.
class RebootDetector {
 public:
  /// Records one message; true when it shows that the peer rebooted since its previous message on the
  /// same channel: the reboot flag is set and was clear before, or the session id did not increase.
  /// A reboot seen on one channel also forgets the other channel's record, which belongs to the peer's
  /// previous life: its first message there after the reboot must not count as a second reboot.
  bool update(std::uint32_t peerIp, bool multicast, bool rebootFlag, std::uint16_t session) {
    auto& last = peers_[{peerIp, multicast}];
    const bool rebooted = last.seen && rebootFlag && (!last.rebootFlag || session <= last.session);
    last = {true, rebootFlag, session};
    if (rebooted) {
      peers_.erase({peerIp, !multicast});
    }
    return rebooted;
  }

  /// Forgets both channels' records of `peerIp`.
  void forget(std::uint32_t peerIp) {
    peers_.erase({peerIp, false});
    peers_.erase({peerIp, true});
  }

 private:
  struct Last {
    bool seen{false};
    bool rebootFlag{false};
    std::uint16_t session{0};
  };
  std::map<std::pair<std::uint32_t, bool>, Last> peers_;
};

}  // namespace kov::platform::networking::someip::detail
