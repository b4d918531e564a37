#include "discovery_server.hpp"

#include <algorithm>

namespace kov::platform::networking::someip::detail {

DiscoveryServer::DiscoveryServer(const TransportOptions& options,
                                 std::function<std::chrono::milliseconds()> initialDelay)
    : options_(options), initialDelay_(std::move(initialDelay)) {}

SdEntry DiscoveryServer::offerEntry(const Address& address, const Offered& offered, std::uint32_t ttl) const {
  SdEntry entry;
  entry.type = SdEntryType::OFFER_SERVICE;
  entry.serviceId = address.serviceId;
  entry.instanceId = address.instanceId;
  entry.majorVersion = options_.serviceMajorVersion;
  entry.minorVersion = options_.serviceMinorVersion;
  entry.ttl = ttl;
  entry.options.push_back(udpEndpointOption(offered.endpoint));
  return entry;
}

bool DiscoveryServer::offer(const Address& address, const Endpoint& endpoint, Clock::time_point now) {
  if (offers_.count(address) != 0) {
    return false;
  }
  offers_.emplace(address, Offered{endpoint, RepetitionSchedule(now + initialDelay_(), true), {}});
  return true;
}

bool DiscoveryServer::stopOffer(const Address& address, SdOutbox& out) {
  const auto it = offers_.find(address);
  if (it == offers_.end()) {
    return false;
  }
  out.push_back({true, 0, offerEntry(address, it->second, 0)});
  offers_.erase(it);
  return true;
}

void DiscoveryServer::stopAll(SdOutbox& out) {
  for (const auto& [address, offered] : offers_) {
    out.push_back({true, 0, offerEntry(address, offered, 0)});
  }
  offers_.clear();
}

bool DiscoveryServer::addEventgroup(const Address& address, std::uint16_t eventgroupId) {
  const auto it = offers_.find(address);
  if (it == offers_.end()) {
    return false;
  }
  it->second.eventgroups[eventgroupId];
  return true;
}

bool DiscoveryServer::removeEventgroup(const Address& address, std::uint16_t eventgroupId) {
  const auto it = offers_.find(address);
  return it != offers_.end() && it->second.eventgroups.erase(eventgroupId) != 0;
}

void DiscoveryServer::onFindEntry(const SdEntry& entry, std::uint32_t peerIp, SdOutbox& out) const {
  for (const auto& [address, offered] : offers_) {
    const bool serviceMatches = entry.serviceId == address.serviceId;
    const bool instanceMatches =
        entry.instanceId == ISomeIpTransport::ANY_INSTANCE || entry.instanceId == address.instanceId;
    const bool majorMatches =
        entry.majorVersion == ANY_MAJOR_VERSION || entry.majorVersion == options_.serviceMajorVersion;
    const bool minorMatches =
        entry.minorVersion == ANY_MINOR_VERSION || entry.minorVersion == options_.serviceMinorVersion;
    if (serviceMatches && instanceMatches && majorMatches && minorMatches) {
      out.push_back({false, peerIp, offerEntry(address, offered, options_.offerTtlSeconds)});
    }
  }
}

const char* DiscoveryServer::onSubscribeEntry(Clock::time_point now, std::uint32_t peerIp,
                                              const SdEntry& entry, SdOutbox& out,
                                              std::vector<NewSubscriber>& joined) {
  const Address address{entry.serviceId, entry.instanceId};
  const SdOption* option = udpEndpointOf(entry);
  auto offered = offers_.find(address);
  Subscribers* group = nullptr;
  if (offered != offers_.end()) {
    const auto found = offered->second.eventgroups.find(entry.eventgroupId);
    if (found != offered->second.eventgroups.end()) {
      group = &found->second;
    }
  }

  if (entry.ttl == 0) {  // StopSubscribe: no answer
    if (group != nullptr) {
      for (auto it = group->begin(); it != group->end();) {
        const bool matches = option != nullptr ? it->first == Endpoint{option->address, option->port}
                                               : it->second.first == peerIp;
        it = matches ? group->erase(it) : std::next(it);
      }
    }
    return nullptr;
  }

  SdOutgoing answer{false, peerIp, entry};
  answer.entry.type = SdEntryType::SUBSCRIBE_EVENTGROUP_ACK;
  answer.entry.options.clear();
  const char* refused = nullptr;
  if (group == nullptr) {
    refused = "event group not offered";
  } else if (entry.majorVersion != options_.serviceMajorVersion) {
    refused = "other major version";
  } else if (option == nullptr || !isUsableUnicast(*option)) {
    refused = "no usable UDP endpoint";
  }
  const Endpoint endpoint = option != nullptr ? Endpoint{option->address, option->port} : Endpoint{};
  if (refused == nullptr && group->count(endpoint) == 0) {
    const auto fromPeer = static_cast<std::size_t>(
        std::count_if(group->begin(), group->end(),
                      [peerIp](const auto& subscriber) { return subscriber.second.first == peerIp; }));
    if (fromPeer >= options_.maxSubscribersPerPeer) {
      refused = "too many subscribers from this peer";
    } else if (group->size() >= options_.maxSubscribers) {
      refused = "too many subscribers";
    }
  }
  if (refused != nullptr) {
    answer.entry.ttl = 0;  // Nack
    out.push_back(answer);
    return refused;
  }
  const bool isNew = group->count(endpoint) == 0;
  (*group)[endpoint] = {peerIp, expiryOf(now, entry.ttl)};
  out.push_back(answer);
  if (isNew) {
    joined.push_back({address, entry.eventgroupId, endpoint});
  }
  return nullptr;
}

bool DiscoveryServer::hasSubscribersFrom(std::uint32_t peerIp) const {
  for (const auto& [address, offered] : offers_) {
    for (const auto& [id, group] : offered.eventgroups) {
      for (const auto& [endpoint, subscriber] : group) {
        if (subscriber.first == peerIp) {
          return true;
        }
      }
    }
  }
  return false;
}

void DiscoveryServer::onPeerReboot(std::uint32_t peerIp) {
  for (auto& [address, offered] : offers_) {
    for (auto& [id, group] : offered.eventgroups) {
      for (auto it = group.begin(); it != group.end();) {
        it = it->second.first == peerIp ? group.erase(it) : std::next(it);
      }
    }
  }
}

void DiscoveryServer::poll(Clock::time_point now, SdOutbox& out) {
  for (auto& [address, offered] : offers_) {
    if (offered.schedule.due() <= now) {
      out.push_back({true, 0, offerEntry(address, offered, options_.offerTtlSeconds)});
      offered.schedule.sent(now, options_);
    }
    for (auto& [id, group] : offered.eventgroups) {
      for (auto it = group.begin(); it != group.end();) {
        it = it->second.second <= now ? group.erase(it) : std::next(it);
      }
    }
  }
}

Clock::time_point DiscoveryServer::nextDeadline() const {
  Clock::time_point next = Clock::time_point::max();
  for (const auto& [address, offered] : offers_) {
    next = std::min(next, offered.schedule.due());
    for (const auto& [id, group] : offered.eventgroups) {
      for (const auto& [endpoint, subscriber] : group) {
        next = std::min(next, subscriber.second);
      }
    }
  }
  return next;
}

std::set<Endpoint> DiscoveryServer::subscribers(const Address& address,
                                                const std::set<std::uint16_t>& eventgroupIds) const {
  std::set<Endpoint> endpoints;
  const auto it = offers_.find(address);
  if (it == offers_.end()) {
    return endpoints;
  }
  for (const auto id : eventgroupIds) {
    const auto group = it->second.eventgroups.find(id);
    if (group != it->second.eventgroups.end()) {
      for (const auto& [endpoint, subscriber] : group->second) {
        endpoints.insert(endpoint);
      }
    }
  }
  return endpoints;
}

}  // namespace kov::platform::networking::someip::detail
