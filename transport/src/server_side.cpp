#include "common/log/log.hpp"
#include "datagram_reader.hpp"
#include "transport_core.hpp"

namespace kov::platform::networking::someip::detail {

namespace {
constexpr const char* LOG_PATH = "transport/src/server_side.cpp";
}

bool TransportCore::offerService(const Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!connected_ || address.instanceId == ISomeIpTransport::ANY_INSTANCE) {
    KOV_LOG(WARN, LOG_PATH) << "offerService of [0x" << std::hex << address.serviceId << ",0x"
                            << address.instanceId << "] refused: not connected or wildcard instance";
    return false;
  }
  std::uint16_t port = 0;
  if (sockets_.instanceSocket(address.instanceId, options_.unicastAddress, port) == -1) {
    return false;
  }
  if (!server_.offer(address, Endpoint{ownIp_, port}, Clock::now())) {
    return false;
  }
  offeredEvents_[address];
  wakeReceiver();
  return true;
}

bool TransportCore::stopOfferService(const Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  SdOutbox out;
  if (!server_.stopOffer(address, out)) {
    return false;
  }
  offeredEvents_.erase(address);
  flushLocked(out);
  return true;
}

bool TransportCore::offerEvent(const Address& address, std::uint16_t eventGroupId,
                               const std::vector<std::uint16_t>& ids) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = offeredEvents_.find(address);
  if (it == offeredEvents_.end() || !server_.addEventgroup(address, eventGroupId)) {
    return false;
  }
  it->second.eventgroups[eventGroupId].insert(ids.begin(), ids.end());
  return true;
}

bool TransportCore::stopOfferEvent(const Address& address, std::uint16_t eventGroupId) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = offeredEvents_.find(address);
  if (it == offeredEvents_.end() || !server_.removeEventgroup(address, eventGroupId)) {
    return false;
  }
  it->second.eventgroups.erase(eventGroupId);
  return true;
}

bool TransportCore::notifyEvent(const Address& address, std::uint16_t eventId, const void* data,
                                std::size_t size) {
  if (data == nullptr && size != 0) {
    return false;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = offeredEvents_.find(address);
  if (!connected_ || it == offeredEvents_.end()) {
    return false;
  }
  std::set<std::uint16_t> groups;
  for (const auto& [group, ids] : it->second.eventgroups) {
    if (ids.count(eventId) != 0) {
      groups.insert(group);
    }
  }
  if (groups.empty()) {
    return false;
  }
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  auto& value = it->second.lastValues[eventId];
  value.assign(bytes, bytes + size);
  std::uint16_t port = 0;
  const int sock = sockets_.instanceSocket(address.instanceId, options_.unicastAddress, port);
  for (const auto& endpoint : server_.subscribers(address, groups)) {
    sendNotificationLocked(sock, address, eventId, value, endpoint);
  }
  return true;
}

void TransportCore::setRequestHandler(RequestHandler handler) {
  std::shared_ptr<HandlerSlot<RequestHandler>> previous;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    previous = std::move(requestSlot_);
    requestSlot_ = handler ? std::make_shared<HandlerSlot<RequestHandler>>(std::move(handler)) : nullptr;
  }
  if (previous) {
    previous->close();
  }
}

void TransportCore::onServerDatagram(std::uint16_t instanceId, const std::uint8_t* data, std::size_t size,
                                     const Endpoint& from) {
  forEachMessage(data, size, "SOME/IP message", toString(from), [&](const MessageView& message) {
    const MessageHeader& h = message.header;
    if (h.messageType != MessageType::REQUEST && h.messageType != MessageType::REQUEST_NO_RETURN) {
      KOV_LOG(DEBUG, LOG_PATH) << "Ignoring SOME/IP message type 0x" << std::hex
                               << static_cast<unsigned>(h.messageType) << " sent to instance 0x"
                               << instanceId;
      return;
    }
    const Address address{h.serviceId, instanceId};
    std::lock_guard<std::mutex> lock(mutex_);
    std::uint16_t port = 0;
    const int sock = sockets_.instanceSocket(instanceId, options_.unicastAddress, port);
    const bool offered = server_.isOffered(address);
    auto slot = requestSlot_;
    std::vector<std::uint8_t> request(message.payload, message.payload + message.payloadSize);
    // The handler runs on the dispatch thread; the answer goes out from the instance's socket.
    const bool queued = dispatch_.postDroppable(
        [sock, h, address, offered, slot, from, request = std::move(request)] {
          std::vector<std::uint8_t> answer;
          ReturnCode code = ReturnCode::E_UNKNOWN_SERVICE;
          if (offered && slot) {
            code = ReturnCode::E_NOT_READY;  // stays so when the handler was removed meanwhile
            slot->visit([&](RequestHandler& handler) {
              code = handler(address, h.methodId, request.data(), request.size(), answer);
            });
          }
          if (h.messageType == MessageType::REQUEST_NO_RETURN) {
            return;
          }
          MessageHeader reply = h;
          reply.returnCode = code;
          reply.messageType = code == ReturnCode::E_OK ? MessageType::RESPONSE : MessageType::ERROR;
          std::vector<std::uint8_t> datagram;
          if (code == ReturnCode::E_OK) {
            appendMessage(reply, answer.data(), answer.size(), datagram);
          } else {
            appendMessage(reply, nullptr, 0, datagram);
          }
          sendDatagram(sock, from, datagram.data(), datagram.size());
        },
        options_.maxHandlerBacklog);
    noteBacklog(queued, "request for method 0x", h.methodId);
  });
}

}  // namespace kov::platform::networking::someip::detail
