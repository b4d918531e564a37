#include "discovery_client.hpp"

#include <algorithm>

namespace kov::platform::networking::someip::detail {

DiscoveryClient::DiscoveryClient(const TransportOptions& options,
                                 std::function<std::chrono::milliseconds()> initialDelay)
    : options_(options), initialDelay_(std::move(initialDelay)) {}

void DiscoveryClient::requestService(std::uint16_t serviceId, Clock::time_point now) {
  if (finds_.count(serviceId) != 0) {
    return;
  }
  finds_.emplace(serviceId, RepetitionSchedule(now + initialDelay_(), false));
}

void DiscoveryClient::releaseService(std::uint16_t serviceId) {
  finds_.erase(serviceId);
}

bool DiscoveryClient::accepts(const SdEntry& entry) const {
  return !options_.requiredMajorVersion || entry.majorVersion == *options_.requiredMajorVersion;
}

bool DiscoveryClient::isOffered(std::uint16_t serviceId) const {
  const auto it = offers_.lower_bound(Address{serviceId, 0});
  return it != offers_.end() && it->first.serviceId == serviceId;
}

bool DiscoveryClient::onOfferEntry(Clock::time_point now, std::uint32_t peerIp, const SdEntry& entry,
                                   std::vector<AvailabilityChange>& changes) {
  const Address address{entry.serviceId, entry.instanceId};
  if (entry.instanceId == ISomeIpTransport::ANY_INSTANCE || !accepts(entry) ||
      finds_.count(entry.serviceId) == 0) {
    return true;
  }
  auto it = offers_.find(address);
  if (entry.ttl == 0) {
    if (it != offers_.end() && it->second.peerIp == peerIp) {
      drop(it, changes);
    }
    return true;
  }
  const SdOption* endpoint = udpEndpointOf(entry);
  if (endpoint == nullptr || !isUsableUnicast(*endpoint)) {
    return true;  // nothing this transport can reach (TCP only, no endpoint, or not a unicast address)
  }
  if (it == offers_.end() && offers_.size() >= options_.maxRemoteOffers) {
    return false;
  }
  RemoteOffer offer{peerIp, Endpoint{endpoint->address, endpoint->port}, entry.majorVersion,
                    expiryOf(now, entry.ttl)};
  // Finding stops at the first offer that follows a find: every instance answers a find, whereas an
  // offer that happened to come first names only its own instance.
  const auto find = finds_.find(entry.serviceId);
  if (find != finds_.end() && find->second.anySent()) {
    find->second.finish();
  }
  if (it == offers_.end()) {
    offers_.emplace(address, offer);
    changes.push_back({address, true});
    return true;
  }
  it->second = offer;
  return true;
}

void DiscoveryClient::clear() {
  finds_.clear();
  restartFinds_.clear();
  offers_.clear();
}

bool DiscoveryClient::hasOffersFrom(std::uint32_t peerIp) const {
  return std::any_of(offers_.begin(), offers_.end(),
                     [peerIp](const auto& entry) { return entry.second.peerIp == peerIp; });
}

void DiscoveryClient::onPeerReboot(std::uint32_t peerIp, std::vector<AvailabilityChange>& changes) {
  for (auto it = offers_.begin(); it != offers_.end();) {
    auto next = std::next(it);
    if (it->second.peerIp == peerIp) {
      drop(it, changes);
    }
    it = next;
  }
}

void DiscoveryClient::poll(Clock::time_point now, SdOutbox& out, std::vector<AvailabilityChange>& changes) {
  for (auto it = offers_.begin(); it != offers_.end();) {
    auto next = std::next(it);
    if (it->second.expires <= now) {
      drop(it, changes);
    }
    it = next;
  }
  // A requested service with no offer left is searched for again, as when it was first requested, in
  // case its server answers finds but sends no cyclic offers.
  for (const auto serviceId : restartFinds_) {
    const auto find = finds_.find(serviceId);
    if (find != finds_.end() && !isOffered(serviceId)) {
      find->second = RepetitionSchedule(now + initialDelay_(), false);
    }
  }
  restartFinds_.clear();
  for (auto& [serviceId, schedule] : finds_) {
    if (schedule.due() > now) {
      continue;
    }
    SdOutgoing find;
    find.entry.type = SdEntryType::FIND_SERVICE;
    find.entry.serviceId = serviceId;
    find.entry.instanceId = ISomeIpTransport::ANY_INSTANCE;
    find.entry.majorVersion = options_.requiredMajorVersion.value_or(ANY_MAJOR_VERSION);
    find.entry.minorVersion = ANY_MINOR_VERSION;
    find.entry.ttl = options_.offerTtlSeconds;
    out.push_back(find);
    schedule.sent(now, options_);
  }
}

Clock::time_point DiscoveryClient::nextDeadline() const {
  if (!restartFinds_.empty()) {
    return Clock::time_point{};  // due at once: the restart is scheduled at the next poll
  }
  Clock::time_point next = Clock::time_point::max();
  for (const auto& [serviceId, schedule] : finds_) {
    next = std::min(next, schedule.due());
  }
  for (const auto& [address, offer] : offers_) {
    next = std::min(next, offer.expires);
  }
  return next;
}

std::optional<RemoteOffer> DiscoveryClient::offerOf(const Address& address) const {
  const auto it = offers_.find(address);
  if (it == offers_.end()) {
    return std::nullopt;
  }
  return it->second;
}

std::optional<std::uint16_t> DiscoveryClient::instanceAt(const Endpoint& endpoint,
                                                         std::uint16_t serviceId) const {
  for (auto it = offers_.lower_bound(Address{serviceId, 0});
       it != offers_.end() && it->first.serviceId == serviceId; ++it) {
    if (it->second.endpoint == endpoint) {
      return it->first.instanceId;
    }
  }
  return std::nullopt;
}

std::vector<Address> DiscoveryClient::offeredAddresses() const {
  std::vector<Address> addresses;
  for (const auto& [address, offer] : offers_) {
    addresses.push_back(address);
  }
  return addresses;
}

void DiscoveryClient::drop(OfferMap::iterator it, std::vector<AvailabilityChange>& changes) {
  const std::uint16_t serviceId = it->first.serviceId;
  changes.push_back({it->first, false});
  offers_.erase(it);
  if (finds_.count(serviceId) != 0 && !isOffered(serviceId)) {
    restartFinds_.insert(serviceId);
  }
}

}  // namespace kov::platform::networking::someip::detail
