#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "repetition_schedule.hpp"
#include "sd_outbox.hpp"

namespace kov::platform::networking::someip::detail {

/// A remote service instance as its latest offer describes it.
struct RemoteOffer {
  std::uint32_t peerIp{0};  ///< the SD sender
  Endpoint endpoint;        ///< where its methods and events are served (UDP)
  std::uint8_t majorVersion{0};
  Clock::time_point expires;
};

/// The finding side of service discovery, without sockets or clocks: FindService for requested
/// services (initial wait, repetitions, then quiet once an offer follows a find: at least one find goes
/// out, since an offer that came first names only its own instance; started over when the last offered
/// instance of a requested service goes away), the offers that peers
/// announce with their endpoints and TTLs, StopOffer, TTL expiry and peer reboots. Every change of an
/// instance's availability is appended to the caller's list. Not thread-safe: the owner serialises.
class DiscoveryClient {
 public:
  /// `initialDelay` gives the random initial wait of a find.
  DiscoveryClient(const TransportOptions& options, std::function<std::chrono::milliseconds()> initialDelay);

  void requestService(std::uint16_t serviceId, Clock::time_point now);
  void releaseService(std::uint16_t serviceId);

  /// An OfferService or StopOfferService entry from `peerIp`. Offers of services that are not requested
  /// are not kept. False when the offer was refused because maxRemoteOffers instances are kept already.
  bool onOfferEntry(Clock::time_point now, std::uint32_t peerIp, const SdEntry& entry,
                    std::vector<AvailabilityChange>& changes);

  /// Everything `peerIp` offered is gone (it rebooted).
  void onPeerReboot(std::uint32_t peerIp, std::vector<AvailabilityChange>& changes);

  /// Sends finds that are due and expires offers whose TTL ran out.
  void poll(Clock::time_point now, SdOutbox& out, std::vector<AvailabilityChange>& changes);

  Clock::time_point nextDeadline() const;

  /// Forgets every request and offer, without reports (the transport starts over).
  void clear();
  bool hasOffersFrom(std::uint32_t peerIp) const;
  std::size_t offerCount() const { return offers_.size(); }

  std::optional<RemoteOffer> offerOf(const Address& address) const;
  /// Instance id of `serviceId` served at `endpoint`, if one is offered there.
  std::optional<std::uint16_t> instanceAt(const Endpoint& endpoint, std::uint16_t serviceId) const;
  std::vector<Address> offeredAddresses() const;

 private:
  using OfferMap = std::map<Address, RemoteOffer, AddressLess>;

  bool accepts(const SdEntry& entry) const;
  bool isOffered(std::uint16_t serviceId) const;
  void drop(OfferMap::iterator it, std::vector<AvailabilityChange>& changes);

  const TransportOptions& options_;
  std::function<std::chrono::milliseconds()> initialDelay_;
  std::map<std::uint16_t, RepetitionSchedule> finds_;  // by requested service id
  std::set<std::uint16_t> restartFinds_;               // requested services whose last offer went away
  OfferMap offers_;
};

}  // namespace kov::platform::networking::someip::detail
