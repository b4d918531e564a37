#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "networking/i_some_ip_transport.hpp"

namespace kov::test {

/// A transport without a network: records every call as a line of text, answers with configurable
/// results, and lets the test deliver availability reports and events. A handler is never called
/// after the call that withdrew it (unsubscribeAvailability, unsubscribeEvents) has returned.
class RecordingTransport : public kov::platform::networking::ISomeIpTransport {
 public:
  // Configurable answers.
  Result connectResult{Result::Ok};
  Result disconnectResult{Result::Ok};
  bool subscribeAvailabilityResult{true};
  bool unsubscribeAvailabilityResult{true};
  std::set<std::uint16_t> failingRequests;  ///< service ids whose requestService returns false
  std::set<std::uint16_t> failingReleases;  ///< service ids whose releaseService returns false
  bool recordEventCalls{true};              ///< off for long runs; the log would only grow

  /// Recorded calls, e.g. "requestService 0x2/0xffff".
  std::vector<std::string> calls() const;
  void clearCalls();

  /// Calls the availability handler; false when none is registered.
  bool reportAvailability(const Address& address, bool available);
  bool hasAvailabilityHandler() const;

  /// Calls the event handler subscribed for `address`; false when there is none.
  bool deliverEvent(const Address& address, std::uint16_t eventId, const void* data, std::size_t size);
  std::size_t eventSubscriptionCount() const;

  Result connect() override;
  Result disconnect() override;
  bool subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                             AvailabilityHandler handler) override;
  bool unsubscribeAvailability() override;
  bool offerService(const Address&) override { return false; }
  bool stopOfferService(const Address&) override { return false; }
  bool requestService(const Address& address) override;
  bool releaseService(const Address& address) override;
  Result callMethod(const Address& address, std::uint16_t methodId, const void* request,
                    std::size_t requestSize, void* response, std::size_t responseSize) override;
  bool subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                       const std::vector<std::uint16_t>& eventIds, EventHandler handler) override;
  bool offerEvent(const Address&, std::uint16_t, const std::vector<std::uint16_t>&) override { return false; }
  bool stopOfferEvent(const Address&, std::uint16_t) override { return false; }
  bool notifyEvent(const Address&, std::uint16_t, const void*, std::size_t) override { return false; }
  bool unsubscribeEvents(const Address& address) override;

 private:
  /// One registered handler; withdraw() waits until no call of it is running and forbids new ones.
  template <typename Handler>
  struct Slot {
    explicit Slot(Handler h) : handler(std::move(h)) {}
    template <typename... Args>
    bool call(Args&&... args);
    void withdraw();

    Handler handler;
    std::mutex mutex;
    std::condition_variable idle;
    int running{0};
    bool active{true};
  };

  void record(const std::string& line);

  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  std::shared_ptr<Slot<AvailabilityHandler>> availability_;
  std::map<std::uint32_t, std::shared_ptr<Slot<EventHandler>>> events_;
};

/// "0x<service>/0x<instance>" as the recorded calls print an address.
std::string addressText(const kov::platform::networking::ISomeIpTransport::Address& address);

}  // namespace kov::test
