#pragma once

#include <memory>
#include <mutex>

#include "networking/i_some_ip_transport.hpp"

namespace kov::tools::simulator {

/// Forwards every operation to another transport and runs each event handler under one mutex that
/// the application can lock too. The library's event accessors hand out references to records that
/// its event handlers overwrite; reading them while holding eventLock() keeps such reads from racing
/// with event delivery, whatever transport sits underneath.
class EventLockTransport : public kov::platform::networking::ISomeIpTransport {
 public:
  explicit EventLockTransport(std::shared_ptr<ISomeIpTransport> inner);

  /// Held while any event handler runs. Do not call into the library's sensor control while holding it.
  std::mutex& eventLock() const { return state_->mutex; }
  const std::shared_ptr<ISomeIpTransport>& inner() const { return inner_; }

  Result connect() override;
  Result disconnect() override;
  bool subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                             AvailabilityHandler handler) override;
  bool unsubscribeAvailability() override;
  bool offerService(const Address& address) override;
  bool stopOfferService(const Address& address) override;
  bool requestService(const Address& address) override;
  bool releaseService(const Address& address) override;
  Result callMethod(const Address& address, std::uint16_t methodId, const void* request,
                    std::size_t requestSize, void* response, std::size_t responseSize) override;
  bool subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                       const std::vector<std::uint16_t>& eventIds, EventHandler handler) override;
  bool offerEvent(const Address& address, std::uint16_t eventGroupId,
                  const std::vector<std::uint16_t>& eventIds) override;
  bool stopOfferEvent(const Address& address, std::uint16_t eventGroupId) override;
  bool notifyEvent(const Address& address, std::uint16_t eventId, const void* data,
                   std::size_t size) override;
  bool unsubscribeEvents(const Address& address) override;

 private:
  struct State {
    mutable std::mutex mutex;
  };
  std::shared_ptr<State> state_;  // shared with the wrapped handlers
  std::shared_ptr<ISomeIpTransport> inner_;
};

}  // namespace kov::tools::simulator
