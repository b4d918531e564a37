#include <algorithm>
#include <iomanip>

#include "common/log/log.hpp"
#include "datagram_reader.hpp"
#include "process/kov_platform_posix_process.hpp"
#include "transport_core.hpp"

namespace kov::platform::networking::someip::detail {

namespace {

constexpr const char* LOG_PATH = "transport/src/receive_loop.cpp";
/// Upper bound of one wait, so that a missed wake-up costs at most this much.
constexpr std::chrono::milliseconds MAX_WAIT{200};
/// How often records of silent peers are looked for.
constexpr std::chrono::seconds PEER_PRUNE_PERIOD{1};

}  // namespace

Clock::time_point TransportCore::nextDeadlineLocked() const {
  return std::min(
      {discovery_.nextDeadline(), server_.nextDeadline(), subscriptions_->nextDeadline(), nextPeerPrune_});
}

void TransportCore::onTimersLocked(Clock::time_point now) {
  SdOutbox out;
  std::vector<AvailabilityChange> changes;
  discovery_.poll(now, out, changes);
  server_.poll(now, out);
  applyChangesLocked(changes);
  subscriptions_->poll(now, out);
  flushLocked(out);
  if (now >= nextPeerPrune_) {
    prunePeersLocked(now);
    nextPeerPrune_ = now + PEER_PRUNE_PERIOD;
  }
}

void TransportCore::applyChangesLocked(const std::vector<AvailabilityChange>& changes) {
  bool gone = false;
  for (const auto& change : changes) {
    if (change.available) {
      continue;
    }
    gone = true;
    subscriptions_->onOfferGone(change.address);
    for (auto it = pendingCalls_.begin(); it != pendingCalls_.end();) {
      PendingCall& call = *it->second;
      if (call.address.serviceId != change.address.serviceId ||
          call.address.instanceId != change.address.instanceId) {
        ++it;
        continue;
      }
      call.done = true;
      call.result = RESULT_INSTANCE_GONE;
      it = pendingCalls_.erase(it);
    }
  }
  if (gone) {
    callDone_.notify_all();
    syncEventGroupsLocked();
  }
  reportLocked(changes);
}

void TransportCore::syncEventGroupsLocked() {
  const std::set<Endpoint> wanted = subscriptions_->groups();
  for (auto it = joinedGroups_.begin(); it != joinedGroups_.end();) {
    if (wanted.count(*it) == 0) {
      network_->leaveGroup(*it);
      it = joinedGroups_.erase(it);
    } else {
      ++it;
    }
  }
  for (const Endpoint& group : wanted) {
    if (joinedGroups_.count(group) == 0 && network_->joinGroup(group)) {
      joinedGroups_.insert(group);
    }
  }
}

void TransportCore::receiveLoop() {
  kov::platform::process::setNameOfCurrentThread("someip-receive");
  const Network::OnDatagram onDatagram =
      [this](Channel channel, std::uint16_t instanceId, const Endpoint& from, const std::uint8_t* data,
             std::size_t size) { this->onDatagram(channel, instanceId, from, data, size); };
  for (;;) {
    std::chrono::milliseconds wait{0};
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!connected_) {
        return;
      }
      const auto now = network_->now();
      onTimersLocked(now);
      wait = std::clamp(std::chrono::duration_cast<std::chrono::milliseconds>(nextDeadlineLocked() - now) +
                            std::chrono::milliseconds(1),
                        std::chrono::milliseconds(0), MAX_WAIT);
    }
    network_->receive(wait, onDatagram);
  }
}

void TransportCore::onDatagram(Channel channel, std::uint16_t instanceId, const Endpoint& from,
                               const std::uint8_t* data, std::size_t size) {
  switch (channel) {
    case Channel::SD_UNICAST:
    case Channel::SD_MULTICAST:
      onSdDatagram(data, size, from.ip, channel == Channel::SD_MULTICAST);
      break;
    case Channel::CLIENT:
    case Channel::EVENT_GROUP:
      onClientDatagram(data, size, from);
      break;
    case Channel::INSTANCE:
      onServerDatagram(instanceId, data, size, from);
      break;
  }
}

void TransportCore::logMalformedLocked(const char* what, const Endpoint& from, std::size_t offset,
                                       ParseError error) {
  std::size_t suppressed = 0;
  if (mayLogLocked(from.ip, LogKind::MALFORMED, suppressed)) {
    KOV_LOG(WARN, LOG_PATH) << "Dropping " << what << " from " << toString(from) << " at byte " << offset
                            << ": " << describe(error) << suppressedNote(suppressed);
  }
}

void TransportCore::onSdDatagram(const std::uint8_t* data, std::size_t size, std::uint32_t fromIp,
                                 bool multicast) {
  if (fromIp == ownIp_) {
    return;  // our own multicast, looped back
  }
  const Endpoint from{fromIp, options_.sdPort};
  std::size_t offset = 0;
  forEachMessage(
      data, size,
      [&](const MessageView& message, ParseError error) {
        const MessageHeader& h = message.header;
        const std::size_t at = offset;
        offset += HEADER_SIZE + message.payloadSize;
        const bool isSd = h.serviceId == SD_SERVICE_ID && h.methodId == SD_METHOD_ID &&
                          h.messageType == MessageType::NOTIFICATION;
        // Decoded before the lock is taken: a large message must not hold up calls and timers.
        SdMessage sd;
        const SdParseError sdError = error == ParseError::NONE && isSd
                                         ? parseSdPayload(message.payload, message.payloadSize, sd)
                                         : SdParseError::NONE;
        std::lock_guard<std::mutex> lock(mutex_);
        if (!connected_) {
          return;
        }
        if (error != ParseError::NONE) {
          logMalformedLocked("SOME/IP-SD message", from, at, error);
          return;
        }
        std::size_t suppressed = 0;
        if (!isSd) {
          if (mayLogLocked(fromIp, LogKind::MALFORMED, suppressed)) {
            KOV_LOG(WARN, LOG_PATH) << "Dropping a non-SD message on the SD port from " << ipToString(fromIp)
                                    << ": message id 0x" << std::hex << h.serviceId << std::setfill('0')
                                    << std::setw(4) << h.methodId << suppressedNote(suppressed);
          }
          return;
        }
        if (sdError != SdParseError::NONE) {
          if (mayLogLocked(fromIp, LogKind::MALFORMED, suppressed)) {
            KOV_LOG(WARN, LOG_PATH) << "Dropping SOME/IP-SD message from " << ipToString(fromIp) << ": "
                                    << describe(sdError) << suppressedNote(suppressed);
          }
          return;
        }
        if (!sd.issues.empty() && mayLogLocked(fromIp, LogKind::SD_REFUSED, suppressed)) {
          KOV_LOG(WARN, LOG_PATH) << "SOME/IP-SD message from " << ipToString(fromIp) << ": entry "
                                  << sd.issues.front().entry << ": " << describe(sd.issues.front().kind)
                                  << " (" << sd.issues.size() << " such problems in the message; the "
                                  << "other entries are used)" << suppressedNote(suppressed);
        }
        onSdMessageLocked(network_->now(), sd, h.sessionId, fromIp, multicast);
      },
      [&](std::size_t at, ParseError error) {
        std::lock_guard<std::mutex> lock(mutex_);
        logMalformedLocked("SOME/IP-SD message", from, at, error);
      });
}

bool TransportCore::admitPeerLocked(Clock::time_point now, std::uint32_t peerIp) {
  auto it = peers_.find(peerIp);
  if (it == peers_.end()) {
    if (peers_.size() >= options_.maxPeers) {
      prunePeersLocked(now);
    }
    if (peers_.size() >= options_.maxPeers) {
      std::size_t suppressed = 0;
      if (mayLogLocked(peerIp, LogKind::SD_REFUSED, suppressed)) {
        KOV_LOG(WARN, LOG_PATH) << "Dropping SOME/IP-SD message from " << ipToString(peerIp) << ": "
                                << options_.maxPeers << " SD peers are known already"
                                << suppressedNote(suppressed);
      }
      return false;
    }
    it = peers_.emplace(peerIp, now).first;
  }
  it->second = now;
  return true;
}

void TransportCore::prunePeersLocked(Clock::time_point now) {
  for (auto it = peers_.begin(); it != peers_.end();) {
    const std::uint32_t peerIp = it->first;
    if (now - it->second < options_.peerIdleTimeout || discovery_.hasOffersFrom(peerIp) ||
        server_.hasSubscribersFrom(peerIp)) {
      ++it;
      continue;
    }
    reboots_.forget(peerIp);
    unicastSessions_.erase(peerIp);
    it = peers_.erase(it);
  }
}

void TransportCore::onSdMessageLocked(Clock::time_point now, const SdMessage& message, std::uint16_t session,
                                      std::uint32_t fromIp, bool multicast) {
  if (!admitPeerLocked(now, fromIp)) {
    return;
  }
  SdOutbox out;
  std::vector<AvailabilityChange> changes;
  if (reboots_.update(fromIp, multicast, message.reboot(), session)) {
    KOV_LOG(INFO, LOG_PATH) << "SOME/IP-SD peer " << ipToString(fromIp) << " rebooted";
    discovery_.onPeerReboot(fromIp, changes);
    server_.onPeerReboot(fromIp);
  }
  std::vector<NewSubscriber> joined;
  for (const SdEntry& entry : message.entries) {
    onSdEntryLocked(now, entry, fromIp, out, changes, joined);
  }
  applyChangesLocked(changes);
  syncEventGroupsLocked();
  flushLocked(out);
  sendInitialValuesLocked(joined);
}

void TransportCore::onSdEntryLocked(Clock::time_point now, const SdEntry& entry, std::uint32_t fromIp,
                                    SdOutbox& out, std::vector<AvailabilityChange>& changes,
                                    std::vector<NewSubscriber>& joined) {
  std::size_t suppressed = 0;
  switch (entry.type) {
    case SdEntryType::FIND_SERVICE:
      server_.onFindEntry(entry, fromIp, out);
      break;
    case SdEntryType::OFFER_SERVICE: {
      const Address address{entry.serviceId, entry.instanceId};
      if (!discovery_.onOfferEntry(now, fromIp, entry, changes) &&
          mayLogLocked(fromIp, LogKind::SD_REFUSED, suppressed)) {
        KOV_LOG(WARN, LOG_PATH) << "Ignoring the offer of [0x" << std::hex << entry.serviceId << ",0x"
                                << entry.instanceId << "] from " << ipToString(fromIp) << ": " << std::dec
                                << options_.maxRemoteOffers << " offers are kept already"
                                << suppressedNote(suppressed);
      }
      if (const auto offer = discovery_.offerOf(address); offer && entry.ttl != 0) {
        // A StopOffer and a new offer of the same instance may share a message: the subscription
        // must see the StopOffer first.
        applyChangesLocked(changes);
        changes.clear();
        subscriptions_->onOffer(now, address, *offer, out);
      }
      break;
    }
    case SdEntryType::SUBSCRIBE_EVENTGROUP: {
      const char* refused = server_.onSubscribeEntry(now, fromIp, entry, out, joined);
      if (refused != nullptr && mayLogLocked(fromIp, LogKind::SD_REFUSED, suppressed)) {
        KOV_LOG(WARN, LOG_PATH) << "Refusing the subscription of " << ipToString(fromIp)
                                << " to event group 0x" << std::hex << entry.eventgroupId << " of [0x"
                                << entry.serviceId << ",0x" << entry.instanceId << "]: " << refused
                                << suppressedNote(suppressed);
      }
      break;
    }
    case SdEntryType::SUBSCRIBE_EVENTGROUP_ACK:
      subscriptions_->onAckEntry(fromIp, entry);
      break;
  }
}

void TransportCore::onClientDatagram(const std::uint8_t* data, std::size_t size, const Endpoint& from) {
  forEachMessage(
      data, size,
      [&](const MessageView& message, ParseError error) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (error != ParseError::NONE) {
          logMalformedLocked("SOME/IP message", from, 0, error);
          return;
        }
        switch (message.header.messageType) {
          case MessageType::RESPONSE:
          case MessageType::ERROR:
            onResponseLocked(message, from);
            break;
          case MessageType::NOTIFICATION:
            onNotificationLocked(message, from);
            break;
          default:
            KOV_LOG(DEBUG, LOG_PATH) << "Ignoring a request sent to the client socket by " << toString(from);
            break;
        }
      },
      [&](std::size_t at, ParseError error) {
        std::lock_guard<std::mutex> lock(mutex_);
        logMalformedLocked("SOME/IP message", from, at, error);
      });
}

void TransportCore::onResponseLocked(const MessageView& message, const Endpoint& from) {
  const MessageHeader& h = message.header;
  const auto it = pendingCalls_.find(h.sessionId);
  if (h.clientId != options_.clientId || it == pendingCalls_.end() ||
      it->second->address.serviceId != h.serviceId || it->second->methodId != h.methodId) {
    KOV_LOG(DEBUG, LOG_PATH) << "Dropping a response from " << toString(from)
                             << " that matches no waiting call (late or unknown), session 0x" << std::hex
                             << h.sessionId;
    return;
  }
  PendingCall& call = *it->second;
  if (h.messageType == MessageType::ERROR || h.returnCode != ReturnCode::E_OK) {
    call.result = remoteErrorResult(h.returnCode);
  } else {
    call.payload.assign(message.payload, message.payload + message.payloadSize);
  }
  call.done = true;
  pendingCalls_.erase(it);
  callDone_.notify_all();
}

void TransportCore::onNotificationLocked(const MessageView& message, const Endpoint& from) {
  const MessageHeader& h = message.header;
  const auto instance = discovery_.instanceAt(from, h.serviceId);
  if (!instance) {
    return;  // from no endpoint we know as an offer of this service
  }
  const auto it = eventSubscriptions_.find(Address{h.serviceId, *instance});
  if (it == eventSubscriptions_.end()) {
    return;
  }
  const std::uint16_t offset = options_.eventIdOffset;
  const std::uint16_t eventId = (offset != 0 && (h.methodId & offset) == offset)
                                    ? static_cast<std::uint16_t>(h.methodId & ~offset)
                                    : h.methodId;
  if (it->second.eventIds.count(eventId) == 0) {
    return;
  }
  auto slot = it->second.slot;
  std::vector<std::uint8_t> payload(message.payload, message.payload + message.payloadSize);
  const std::size_t bytes = payload.size();
  const bool queued = dispatch_.postDroppable(
      [slot, eventId, payload = std::move(payload)] {
        slot->invoke(eventId, static_cast<const void*>(payload.data()), payload.size());
      },
      bytes, options_.maxHandlerBacklog, options_.maxHandlerBacklogBytes);
  noteBacklog(queued, "event 0x", eventId);
}

}  // namespace kov::platform::networking::someip::detail
