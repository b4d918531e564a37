#pragma once

#include <functional>
#include <map>
#include <set>
#include <vector>

#include "repetition_schedule.hpp"
#include "sd_outbox.hpp"

namespace kov::platform::networking::someip::detail {

/// A subscriber that just joined an event group; its initial event values are due.
struct NewSubscriber {
  Address address;
  std::uint16_t eventgroupId;
  Endpoint endpoint;
};

/// The offering side of service discovery, without sockets or clocks: offers of local instances
/// (initial wait, repetitions, cyclic main phase), unicast answers to FindService, StopOffer, and the
/// subscribers of each offered event group with their TTLs (SubscribeEventgroup answered with Ack or
/// Nack, StopSubscribe, expiry, peer reboot). Not thread-safe: the owner serialises.
class DiscoveryServer {
 public:
  DiscoveryServer(const TransportOptions& options, std::function<std::chrono::milliseconds()> initialDelay);

  /// Starts offering `address` at `endpoint`. False when it is offered already.
  bool offer(const Address& address, const Endpoint& endpoint, Clock::time_point now);
  /// Stops offering: a StopOffer entry goes out and the instance's subscribers are dropped.
  bool stopOffer(const Address& address, SdOutbox& out);
  /// StopOffer entries for every offered instance, which are all withdrawn.
  void stopAll(SdOutbox& out);

  bool addEventgroup(const Address& address, std::uint16_t eventgroupId);
  bool removeEventgroup(const Address& address, std::uint16_t eventgroupId);

  /// A FindService entry from `peerIp`: matching offers are answered to the peer directly.
  void onFindEntry(const SdEntry& entry, std::uint32_t peerIp, SdOutbox& out) const;
  /// A SubscribeEventgroup or StopSubscribeEventgroup entry from `peerIp`. A subscription is answered
  /// with a Nack when the instance or event group is not offered, the major version differs, it names
  /// no usable UDP endpoint (port 0, address 0.0.0.0, a multicast address, TCP only), or the peer or
  /// the event group has as many subscribers as allowed; the reason is returned then (else nullptr).
  const char* onSubscribeEntry(Clock::time_point now, std::uint32_t peerIp, const SdEntry& entry,
                               SdOutbox& out, std::vector<NewSubscriber>& joined);
  /// `peerIp` rebooted: its subscriptions are gone.
  void onPeerReboot(std::uint32_t peerIp);
  bool hasSubscribersFrom(std::uint32_t peerIp) const;

  /// Sends offers that are due and expires subscribers whose TTL ran out.
  void poll(Clock::time_point now, SdOutbox& out);
  Clock::time_point nextDeadline() const;

  bool isOffered(const Address& address) const { return offers_.count(address) != 0; }
  /// Current subscribers of the event groups of `address` that contain `eventgroupIds`.
  std::set<Endpoint> subscribers(const Address& address, const std::set<std::uint16_t>& eventgroupIds) const;

 private:
  /// Subscribers of one event group: endpoint -> (peer address, expiry).
  using Subscribers = std::map<Endpoint, std::pair<std::uint32_t, Clock::time_point>>;
  struct Offered {
    Endpoint endpoint;
    RepetitionSchedule schedule;
    std::map<std::uint16_t, Subscribers> eventgroups;
  };

  SdEntry offerEntry(const Address& address, const Offered& offered, std::uint32_t ttl) const;

  const TransportOptions& options_;
  std::function<std::chrono::milliseconds()> initialDelay_;
  std::map<Address, Offered, AddressLess> offers_;
};

}  // namespace kov::platform::networking::someip::detail
