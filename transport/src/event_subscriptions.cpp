#include "event_subscriptions.hpp"

#include <algorithm>

#include "common/log/log.hpp"

namespace kov::platform::networking::someip::detail {

namespace {
constexpr const char* LOG_PATH = "transport/src/event_subscriptions.cpp";
}

EventSubscriptions::EventSubscriptions(const TransportOptions& options, Endpoint ownEndpoint)
    : options_(options), ownEndpoint_(ownEndpoint) {}

SdOutgoing EventSubscriptions::entryFor(const Address& address, const Subscription& subscription,
                                        std::uint32_t ttl) const {
  SdOutgoing out{false, subscription.peerIp, {}};
  out.entry.type = SdEntryType::SUBSCRIBE_EVENTGROUP;
  out.entry.serviceId = address.serviceId;
  out.entry.instanceId = address.instanceId;
  out.entry.majorVersion = subscription.majorVersion;
  out.entry.ttl = ttl;
  out.entry.eventgroupId = subscription.eventgroupId;
  out.entry.options.push_back(udpEndpointOption(ownEndpoint_));
  return out;
}

void EventSubscriptions::send(Clock::time_point now, const Address& address, Subscription& subscription,
                              SdOutbox& out) {
  out.push_back(entryFor(address, subscription, options_.subscriptionTtlSeconds));
  if (subscription.state != State::ACKNOWLEDGED) {
    subscription.state = State::REQUESTED;
    subscription.ackDue = now + options_.ackTimeout;
  }
  // Renew at half the TTL so that one lost renewal still leaves time for the next.
  const auto expiry = expiryOf(now, options_.subscriptionTtlSeconds);
  subscription.renewAt = expiry == Clock::time_point::max() ? expiry : now + (expiry - now) / 2;
}

void EventSubscriptions::add(Clock::time_point now, const Address& address, std::uint16_t eventgroupId,
                             const std::optional<RemoteOffer>& offer, SdOutbox& out) {
  Subscription subscription;
  subscription.eventgroupId = eventgroupId;
  auto& stored = subscriptions_[address] = subscription;
  if (offer) {
    stored.peerIp = offer->peerIp;
    stored.majorVersion = offer->majorVersion;
    send(now, address, stored, out);
  }
}

bool EventSubscriptions::remove(const Address& address, SdOutbox& out) {
  const auto it = subscriptions_.find(address);
  if (it == subscriptions_.end()) {
    return false;
  }
  if (it->second.state != State::WAITING_FOR_OFFER) {
    out.push_back(entryFor(address, it->second, 0));
  }
  subscriptions_.erase(it);
  return true;
}

void EventSubscriptions::removeAll(SdOutbox& out) {
  for (const auto& [address, subscription] : subscriptions_) {
    if (subscription.state != State::WAITING_FOR_OFFER) {
      out.push_back(entryFor(address, subscription, 0));
    }
  }
  subscriptions_.clear();
}

void EventSubscriptions::onOffer(Clock::time_point now, const Address& address, const RemoteOffer& offer,
                                 SdOutbox& out) {
  const auto it = subscriptions_.find(address);
  if (it == subscriptions_.end()) {
    return;
  }
  Subscription& subscription = it->second;
  if (subscription.state != State::WAITING_FOR_OFFER && subscription.peerIp == offer.peerIp) {
    return;
  }
  subscription.state = State::WAITING_FOR_OFFER;
  subscription.peerIp = offer.peerIp;
  subscription.majorVersion = offer.majorVersion;
  subscription.problemLogged = false;
  send(now, address, subscription, out);
}

void EventSubscriptions::onOfferGone(const Address& address) {
  const auto it = subscriptions_.find(address);
  if (it != subscriptions_.end()) {
    it->second.state = State::WAITING_FOR_OFFER;
    it->second.renewAt = Clock::time_point::max();
    it->second.ackDue = Clock::time_point::max();
    it->second.group.reset();
  }
}

void EventSubscriptions::onAckEntry(std::uint32_t peerIp, const SdEntry& entry) {
  const auto it = subscriptions_.find(Address{entry.serviceId, entry.instanceId});
  if (it == subscriptions_.end() || it->second.peerIp != peerIp ||
      it->second.eventgroupId != entry.eventgroupId || it->second.state == State::WAITING_FOR_OFFER ||
      it->second.majorVersion != entry.majorVersion) {
    return;
  }
  Subscription& subscription = it->second;
  subscription.ackDue = Clock::time_point::max();
  subscription.group.reset();
  if (entry.ttl != 0) {
    subscription.state = State::ACKNOWLEDGED;
    subscription.problemLogged = false;
    for (const SdOption& option : entry.options) {
      if (option.type == SdOptionType::IPV4_MULTICAST && isUsableMulticast(option)) {
        subscription.group = Endpoint{option.address, option.port};
        break;
      }
    }
    return;
  }
  subscription.state = State::REQUESTED;  // retried at the next renewal
  if (!subscription.problemLogged) {
    subscription.problemLogged = true;
    KOV_LOG(WARN, LOG_PATH) << "Subscription to event group 0x" << std::hex << entry.eventgroupId
                            << " of service [0x" << entry.serviceId << ",0x" << entry.instanceId
                            << "] was refused (SubscribeEventgroupNack)";
  }
}

void EventSubscriptions::poll(Clock::time_point now, SdOutbox& out) {
  for (auto& [address, subscription] : subscriptions_) {
    if (subscription.state == State::WAITING_FOR_OFFER) {
      continue;
    }
    if (subscription.ackDue <= now) {
      subscription.ackDue = Clock::time_point::max();
      if (!subscription.problemLogged) {
        subscription.problemLogged = true;
        KOV_LOG(WARN, LOG_PATH) << "Subscription to event group 0x" << std::hex << subscription.eventgroupId
                                << " of service [0x" << address.serviceId << ",0x" << address.instanceId
                                << "] was not acknowledged within " << std::dec << options_.ackTimeout.count()
                                << " ms";
      }
    }
    if (subscription.renewAt <= now) {
      send(now, address, subscription, out);
    }
  }
}

Clock::time_point EventSubscriptions::nextDeadline() const {
  Clock::time_point next = Clock::time_point::max();
  for (const auto& [address, subscription] : subscriptions_) {
    next = std::min({next, subscription.renewAt, subscription.ackDue});
  }
  return next;
}

std::set<Endpoint> EventSubscriptions::groups() const {
  std::set<Endpoint> groups;
  for (const auto& [address, subscription] : subscriptions_) {
    if (subscription.group) {
      groups.insert(*subscription.group);
    }
  }
  return groups;
}

bool EventSubscriptions::isAcknowledged(const Address& address) const {
  const auto it = subscriptions_.find(address);
  return it != subscriptions_.end() && it->second.state == State::ACKNOWLEDGED;
}

}  // namespace kov::platform::networking::someip::detail
