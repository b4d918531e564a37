#include "common/log/log.hpp"
#include "datagram_reader.hpp"
#include "log_limiter.hpp"
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
  const std::uint16_t port = network_->openInstance(address.instanceId);
  if (port == 0) {
    return false;
  }
  if (!server_.offer(address, Endpoint{ownIp_, port}, network_->now())) {
    return false;
  }
  offeredEvents_[address];
  network_->wake();
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
  for (const auto& endpoint : server_.subscribers(address, groups)) {
    sendNotificationLocked(address, eventId, value, endpoint);
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
  forEachMessage(
      data, size,
      [&](const MessageView& message, ParseError error) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (connected_) {
          onRequestLocked(instanceId, message, error, from);
        }
      },
      [&](std::size_t at, ParseError error) {
        std::lock_guard<std::mutex> lock(mutex_);
        logMalformedLocked("SOME/IP message", from, at, error);
      });
}

void TransportCore::onRequestLocked(std::uint16_t instanceId, const MessageView& message, ParseError error,
                                    const Endpoint& from) {
  const MessageHeader& h = message.header;
  const bool request = h.messageType == MessageType::REQUEST;
  if (error == ParseError::UNKNOWN_MESSAGE_TYPE ||
      (!request && h.messageType != MessageType::REQUEST_NO_RETURN)) {
    KOV_LOG(DEBUG, LOG_PATH) << "Ignoring SOME/IP message type 0x" << std::hex
                             << static_cast<unsigned>(h.messageType) << " sent to instance 0x" << instanceId;
    return;
  }
  // Only a request that expects an answer and carries no error of its own is answered with an error.
  ReturnCode refusal = ReturnCode::E_OK;
  if (error == ParseError::WRONG_PROTOCOL_VERSION) {
    refusal = ReturnCode::E_WRONG_PROTOCOL_VERSION;
  } else if (h.returnCode != ReturnCode::E_OK) {
    refusal = ReturnCode::E_NOT_OK;
  } else if (h.interfaceVersion != options_.serviceMajorVersion) {
    refusal = ReturnCode::E_WRONG_INTERFACE_VERSION;
  }
  if (refusal != ReturnCode::E_OK) {
    const bool answer = request && h.returnCode == ReturnCode::E_OK;
    std::size_t suppressed = 0;
    if (mayLogLocked(from.ip, LogKind::REQUEST, suppressed)) {
      KOV_LOG(WARN, LOG_PATH) << "Refusing a request from " << toString(from) << " for [0x" << std::hex
                              << h.serviceId << ",0x" << instanceId << "] method 0x" << h.methodId
                              << ": protocol version 0x" << static_cast<unsigned>(h.protocolVersion)
                              << ", interface version 0x" << static_cast<unsigned>(h.interfaceVersion)
                              << ", return code 0x" << static_cast<unsigned>(h.returnCode)
                              << (answer ? "; answered with an error" : "; not answered")
                              << suppressedNote(suppressed);
    }
    if (answer) {
      MessageHeader reply = h;
      reply.protocolVersion = PROTOCOL_VERSION;
      reply.messageType = MessageType::ERROR;
      reply.returnCode = refusal;
      std::vector<std::uint8_t> datagram;
      appendMessage(reply, nullptr, 0, datagram);
      sendLocked(Channel::INSTANCE, instanceId, from, datagram);
    }
    return;
  }

  const Address address{h.serviceId, instanceId};
  const bool offered = server_.isOffered(address);
  auto slot = requestSlot_;
  std::vector<std::uint8_t> payload(message.payload, message.payload + message.payloadSize);
  const std::size_t bytes = payload.size();
  // The handler runs on the dispatch thread; the answer goes out from the instance's socket.
  const bool queued = dispatch_.postDroppable(
      [this, h, address, offered, slot, from, payload = std::move(payload)] {
        std::vector<std::uint8_t> answer;
        ReturnCode code = ReturnCode::E_UNKNOWN_SERVICE;
        if (offered && slot) {
          code = ReturnCode::E_NOT_READY;  // stays so when the handler was removed meanwhile
          slot->visit([&](RequestHandler& handler) {
            code = handler(address, h.methodId, payload.data(), payload.size(), answer);
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
        std::lock_guard<std::mutex> lock(mutex_);
        if (connected_) {
          sendLocked(Channel::INSTANCE, address.instanceId, from, datagram);
        }
      },
      bytes, options_.maxHandlerBacklog, options_.maxHandlerBacklogBytes);
  noteBacklog(queued, "request for method 0x", h.methodId);
}

void TransportCore::sendInitialValuesLocked(const std::vector<NewSubscriber>& joined) {
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
    for (const auto eventId : group->second) {
      const auto value = offered->second.lastValues.find(eventId);
      if (value != offered->second.lastValues.end()) {
        sendNotificationLocked(subscriber.address, eventId, value->second, subscriber.endpoint);
      }
    }
  }
}

}  // namespace kov::platform::networking::someip::detail
