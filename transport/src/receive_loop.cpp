#include <arpa/inet.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <iomanip>

#include "common/log/log.hpp"
#include "datagram_reader.hpp"
#include "networking/udp_sockets.hpp"
#include "process/kov_platform_posix_process.hpp"
#include "transport_core.hpp"

namespace kov::platform::networking::someip::detail {

namespace {

constexpr const char* LOG_PATH = "transport/src/receive_loop.cpp";
constexpr std::size_t RECEIVE_BUFFER = 65536;
/// Upper bound of one wait, so that a missed wake-up costs at most this much.
constexpr std::chrono::milliseconds MAX_WAIT{200};

/// Datagrams read from one socket before the others get their turn.
constexpr std::size_t MAX_READS_PER_WAKE = 64;

}  // namespace

Clock::time_point TransportCore::nextDeadlineLocked() const {
  return std::min({discovery_.nextDeadline(), server_.nextDeadline(), subscriptions_->nextDeadline()});
}

void TransportCore::onTimersLocked(Clock::time_point now) {
  SdOutbox out;
  std::vector<AvailabilityChange> changes;
  discovery_.poll(now, out, changes);
  for (const auto& change : changes) {
    subscriptions_->onOfferGone(change.address);
  }
  server_.poll(now, out);
  subscriptions_->poll(now, out);
  flushLocked(out);
  reportLocked(changes);
}

void TransportCore::receiveLoop() {
  kov::platform::process::setNameOfCurrentThread("someip-receive");
  std::vector<std::uint8_t> buffer(RECEIVE_BUFFER);
  std::vector<pollfd> fds;
  std::vector<PolledSocket> sources;
  for (;;) {
    int timeoutMs = 0;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!connected_) {
        return;
      }
      const auto now = Clock::now();
      onTimersLocked(now);
      const auto wait =
          std::clamp(std::chrono::duration_cast<std::chrono::milliseconds>(nextDeadlineLocked() - now) +
                         std::chrono::milliseconds(1),
                     std::chrono::milliseconds(0), MAX_WAIT);
      timeoutMs = static_cast<int>(wait.count());
      fds.clear();
      sources.clear();
      fds.push_back({sockets_.wakeReader(), POLLIN, 0});
      sources.push_back({PolledSocket::Kind::WAKE, 0});
      fds.push_back({sockets_.sdUnicast(), POLLIN, 0});
      sources.push_back({PolledSocket::Kind::SD_UNICAST, 0});
      fds.push_back({sockets_.sdMulticast(), POLLIN, 0});
      sources.push_back({PolledSocket::Kind::SD_MULTICAST, 0});
      fds.push_back({sockets_.client(), POLLIN, 0});
      sources.push_back({PolledSocket::Kind::CLIENT, 0});
      for (const auto& [instanceId, sock] : sockets_.instanceSockets()) {
        fds.push_back({sock, POLLIN, 0});
        sources.push_back({PolledSocket::Kind::INSTANCE, instanceId});
      }
    }
    const int ready = ::poll(fds.data(), fds.size(), timeoutMs);
    if (ready <= 0) {
      continue;  // timers are handled at the top; EINTR is harmless
    }
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if ((fds[i].revents & POLLIN) == 0) {
        continue;
      }
      if (sources[i].kind == PolledSocket::Kind::WAKE) {
        char drain[64];
        while (::read(fds[i].fd, drain, sizeof(drain)) > 0) {
        }
        continue;
      }
      // The sockets do not block: read what is there, up to a bound that keeps the others served.
      for (std::size_t read = 0; read < MAX_READS_PER_WAKE; ++read) {
        std::size_t received = 0;
        std::uint32_t ipNetworkOrder = 0;
        std::uint16_t port = 0;
        if (udp::tryReadFrom(fds[i].fd, buffer.data(), buffer.size(), received, ipNetworkOrder, port) !=
                NetworkResult::OK ||
            received == 0) {
          break;
        }
        dispatchDatagram(sources[i], buffer.data(), received, Endpoint{ntohl(ipNetworkOrder), port});
      }
    }
  }
}

void TransportCore::dispatchDatagram(const PolledSocket& source, const std::uint8_t* data, std::size_t size,
                                     const Endpoint& from) {
  switch (source.kind) {
    case PolledSocket::Kind::SD_UNICAST:
    case PolledSocket::Kind::SD_MULTICAST:
      onSdDatagram(data, size, from.ip, source.kind == PolledSocket::Kind::SD_MULTICAST);
      break;
    case PolledSocket::Kind::CLIENT:
      onClientDatagram(data, size, from);
      break;
    case PolledSocket::Kind::INSTANCE:
      onServerDatagram(source.instanceId, data, size, from);
      break;
    case PolledSocket::Kind::WAKE:
      break;
  }
}

void TransportCore::onSdDatagram(const std::uint8_t* data, std::size_t size, std::uint32_t fromIp,
                                 bool multicast) {
  if (fromIp == ownIp_) {
    return;  // our own multicast, looped back
  }
  forEachMessage(data, size, "SOME/IP-SD message", ipToString(fromIp), [&](const MessageView& message) {
    const MessageHeader& h = message.header;
    if (h.serviceId != SD_SERVICE_ID || h.methodId != SD_METHOD_ID ||
        h.messageType != MessageType::NOTIFICATION) {
      KOV_LOG(WARN, LOG_PATH) << "Dropping a non-SD message on the SD port from " << ipToString(fromIp)
                              << ": message id 0x" << std::hex << h.serviceId << std::setfill('0')
                              << std::setw(4) << h.methodId;
      return;
    }
    SdMessage sd;
    const SdParseError sdError = parseSdPayload(message.payload, message.payloadSize, sd);
    if (sdError != SdParseError::NONE) {
      KOV_LOG(WARN, LOG_PATH) << "Dropping SOME/IP-SD message from " << ipToString(fromIp) << ": "
                              << describe(sdError);
      return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (connected_) {
      onSdMessageLocked(Clock::now(), sd, h.sessionId, fromIp, multicast);
    }
  });
}

void TransportCore::onSdMessageLocked(Clock::time_point now, const SdMessage& message, std::uint16_t session,
                                      std::uint32_t fromIp, bool multicast) {
  SdOutbox out;
  std::vector<AvailabilityChange> changes;
  if (reboots_.update(fromIp, multicast, message.reboot(), session)) {
    KOV_LOG(INFO, LOG_PATH) << "SOME/IP-SD peer " << ipToString(fromIp) << " rebooted";
    discovery_.onPeerReboot(fromIp, changes);
    server_.onPeerReboot(fromIp);
    for (const auto& change : changes) {
      subscriptions_->onOfferGone(change.address);
    }
  }
  std::vector<NewSubscriber> joined;
  for (const SdEntry& entry : message.entries) {
    switch (entry.type) {
      case SdEntryType::FIND_SERVICE:
        server_.onFindEntry(entry, fromIp, out);
        break;
      case SdEntryType::OFFER_SERVICE: {
        const std::size_t before = changes.size();
        discovery_.onOfferEntry(now, fromIp, entry, changes);
        const Address address{entry.serviceId, entry.instanceId};
        for (std::size_t i = before; i < changes.size(); ++i) {
          if (!changes[i].available) {
            subscriptions_->onOfferGone(changes[i].address);
          }
        }
        if (const auto offer = discovery_.offerOf(address); offer && entry.ttl != 0) {
          subscriptions_->onOffer(now, address, *offer, out);
        }
        break;
      }
      case SdEntryType::SUBSCRIBE_EVENTGROUP:
        server_.onSubscribeEntry(now, fromIp, entry, out, joined);
        break;
      case SdEntryType::SUBSCRIBE_EVENTGROUP_ACK:
        subscriptions_->onAckEntry(fromIp, entry);
        break;
    }
  }
  flushLocked(out);
  // New subscribers get the current value of each event of their group, after the Ack.
  for (const auto& subscriber : joined) {
    const auto offered = offeredEvents_.find(subscriber.address);
    if (offered == offeredEvents_.end()) {
      continue;
    }
    const auto group = offered->second.eventgroups.find(subscriber.eventgroupId);
    if (group == offered->second.eventgroups.end()) {
      continue;
    }
    std::uint16_t port = 0;
    const int sock = sockets_.instanceSocket(subscriber.address.instanceId, options_.unicastAddress, port);
    for (const auto eventId : group->second) {
      const auto value = offered->second.lastValues.find(eventId);
      if (value != offered->second.lastValues.end()) {
        sendNotificationLocked(sock, subscriber.address, eventId, value->second, subscriber.endpoint);
      }
    }
  }
  reportLocked(changes);
}

void TransportCore::onClientDatagram(const std::uint8_t* data, std::size_t size, const Endpoint& from) {
  forEachMessage(data, size, "SOME/IP message", toString(from), [&](const MessageView& message) {
    std::lock_guard<std::mutex> lock(mutex_);
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
  const bool queued = dispatch_.postDroppable(
      [slot, eventId, payload = std::move(payload)] {
        slot->invoke(eventId, static_cast<const void*>(payload.data()), payload.size());
      },
      options_.maxHandlerBacklog);
  noteBacklog(queued, "event 0x", eventId);
}

}  // namespace kov::platform::networking::someip::detail
