#pragma once

#include <map>
#include <optional>
#include <set>

#include "discovery_client.hpp"
#include "sd_outbox.hpp"

namespace kov::platform::networking::someip::detail {

/// The client's event group subscriptions, without sockets or clocks: SubscribeEventgroup to the
/// offering peer with the client's endpoint, renewal before the TTL runs out, Ack and Nack (a Nack or a
/// missing Ack is logged once per subscription), re-subscription when the peer offers again, and
/// StopSubscribe when one ends. Not thread-safe: the owner serialises.
class EventSubscriptions {
 public:
  /// `ownEndpoint`: where notifications for this client go.
  EventSubscriptions(const TransportOptions& options, Endpoint ownEndpoint);

  /// Adds (or replaces) the subscription of `address`; it is sent at once when `offer` is known.
  void add(Clock::time_point now, const Address& address, std::uint16_t eventgroupId,
           const std::optional<RemoteOffer>& offer, SdOutbox& out);
  /// Ends the subscription; a StopSubscribe goes to the peer when one was sent. False if unknown.
  bool remove(const Address& address, SdOutbox& out);
  /// StopSubscribe for every subscription that was sent; all are forgotten.
  void removeAll(SdOutbox& out);

  /// The instance was offered (again): subscribe where not yet done or where the peer changed.
  void onOffer(Clock::time_point now, const Address& address, const RemoteOffer& offer, SdOutbox& out);
  /// The instance went away: the subscription waits for the next offer.
  void onOfferGone(const Address& address);
  /// A SubscribeEventgroupAck (TTL > 0) or Nack (TTL 0) entry from `peerIp`. An answer whose major
  /// version differs from the subscription's is not taken. An Ack with an IPv4 multicast option makes
  /// its group one where the events arrive (see groups()).
  void onAckEntry(std::uint32_t peerIp, const SdEntry& entry);

  /// Renews subscriptions that are due and logs a missing Ack once.
  void poll(Clock::time_point now, SdOutbox& out);
  Clock::time_point nextDeadline() const;

  bool isAcknowledged(const Address& address) const;
  /// The multicast groups at which acknowledged subscriptions receive their events.
  std::set<Endpoint> groups() const;

 private:
  enum class State { WAITING_FOR_OFFER, REQUESTED, ACKNOWLEDGED };
  struct Subscription {
    std::uint16_t eventgroupId{0};
    State state{State::WAITING_FOR_OFFER};
    std::uint32_t peerIp{0};
    std::uint8_t majorVersion{0};
    Clock::time_point renewAt{Clock::time_point::max()};
    Clock::time_point ackDue{Clock::time_point::max()};
    bool problemLogged{false};
    std::optional<Endpoint> group;  ///< multicast group of the events, from the Ack
  };

  void send(Clock::time_point now, const Address& address, Subscription& subscription, SdOutbox& out);
  SdOutgoing entryFor(const Address& address, const Subscription& subscription, std::uint32_t ttl) const;

  const TransportOptions& options_;
  const Endpoint ownEndpoint_;
  std::map<Address, Subscription, AddressLess> subscriptions_;
};

}  // namespace kov::platform::networking::someip::detail
