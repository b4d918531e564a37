#pragma once

#include <cstdint>
#include <vector>

#include "networking/i_some_ip_transport.hpp"

namespace kov::bench {

/// A transport that answers every method call at once with a fixed desired-scan-settings record
/// (20 Hz, interlace 2, line 1, fill on) and keeps the event handlers it is given.
class InstantTransport : public kov::platform::networking::ISomeIpTransport {
 public:
  Result connect() override { return Result::Ok; }
  Result disconnect() override { return Result::Ok; }
  bool subscribeAvailability(const std::vector<std::uint16_t>&, AvailabilityHandler) override { return true; }
  bool unsubscribeAvailability() override { return true; }
  bool offerService(const Address&) override { return true; }
  bool stopOfferService(const Address&) override { return true; }
  bool requestService(const Address&) override { return true; }
  bool releaseService(const Address&) override { return true; }
  /// Copies the fixed answer into `response` (defined out of line, so that no caller can inline it).
  Result callMethod(const Address& address, std::uint16_t methodId, const void* request,
                    std::size_t requestSize, void* response, std::size_t responseSize) override;
  bool subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                       const std::vector<std::uint16_t>& eventIds, EventHandler handler) override;
  bool offerEvent(const Address&, std::uint16_t, const std::vector<std::uint16_t>&) override { return true; }
  bool stopOfferEvent(const Address&, std::uint16_t) override { return true; }
  bool notifyEvent(const Address&, std::uint16_t, const void*, std::size_t) override { return true; }
  bool unsubscribeEvents(const Address&) override { return true; }

  EventHandler systemEvents;
  EventHandler scanEvents;

 private:
  static const std::uint8_t ANSWER[8];
};

}  // namespace kov::bench
