#include <cstring>

#include "common/log/log.hpp"
#include "transport_core.hpp"

namespace kov::platform::networking::someip::detail {

namespace {
constexpr const char* LOG_PATH = "transport/src/client_side.cpp";
constexpr std::size_t MAX_PAYLOAD = 65507 - HEADER_SIZE;  // one UDP datagram
}  // namespace

bool TransportCore::subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                                          AvailabilityHandler handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (availabilitySlot_ || !handler) {
    return false;
  }
  watchedServices_ = std::set<std::uint16_t>(serviceIds.begin(), serviceIds.end());
  availabilitySlot_ = std::make_shared<HandlerSlot<AvailabilityHandler>>(std::move(handler));
  std::vector<AvailabilityChange> known;
  for (const auto& address : discovery_.offeredAddresses()) {
    known.push_back({address, true});
  }
  reportLocked(known);
  return true;
}

bool TransportCore::unsubscribeAvailability() {
  std::shared_ptr<HandlerSlot<AvailabilityHandler>> slot;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    slot = std::move(availabilitySlot_);
    availabilitySlot_.reset();
    watchedServices_.clear();
  }
  if (!slot) {
    return false;
  }
  slot->close();
  return true;
}

bool TransportCore::requestService(const Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!connected_) {
    KOV_LOG(WARN, LOG_PATH) << "requestService of service 0x" << std::hex << address.serviceId
                            << " before connect";
    return false;
  }
  discovery_.requestService(address.serviceId, network_->now());
  network_->wake();
  return true;
}

bool TransportCore::releaseService(const Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  discovery_.releaseService(address.serviceId);
  return true;
}

Result TransportCore::callMethod(const Address& address, std::uint16_t methodId, const void* request,
                                 std::size_t requestSize, void* response, std::size_t responseSize) {
  if (address.instanceId == ISomeIpTransport::ANY_INSTANCE || (request == nullptr && requestSize != 0) ||
      (response == nullptr && responseSize != 0) || requestSize > MAX_PAYLOAD) {
    KOV_LOG(WARN, LOG_PATH) << "callMethod of [0x" << std::hex << address.serviceId << ",0x"
                            << address.instanceId << "] method 0x" << methodId << " with invalid arguments";
    return RESULT_INVALID_ARGUMENT;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  if (!connected_) {
    return RESULT_NOT_CONNECTED;
  }
  const auto offer = discovery_.offerOf(address);
  if (!offer) {
    KOV_LOG(DEBUG, LOG_PATH) << "callMethod: no offer of [0x" << std::hex << address.serviceId << ",0x"
                             << address.instanceId << "] is known";
    return RESULT_UNKNOWN_INSTANCE;
  }
  if (pendingCalls_.size() >= options_.maxPendingCalls || pendingCalls_.count(nextSession_) != 0) {
    KOV_LOG(WARN, LOG_PATH) << "callMethod of [0x" << std::hex << address.serviceId << ",0x"
                            << address.instanceId << "] method 0x" << methodId << " refused: " << std::dec
                            << pendingCalls_.size() << " calls wait for responses already";
    return RESULT_TOO_MANY_CALLS;
  }
  const std::uint16_t session = nextSession_;
  nextSession_ = nextSessionId(nextSession_);
  auto call = std::make_shared<PendingCall>();
  call->address = address;
  call->methodId = methodId;

  MessageHeader header;
  header.serviceId = address.serviceId;
  header.methodId = methodId;
  header.clientId = options_.clientId;
  header.sessionId = session;
  header.interfaceVersion = offer->majorVersion;
  header.messageType = MessageType::REQUEST;
  std::vector<std::uint8_t> datagram;
  datagram.reserve(HEADER_SIZE + requestSize);
  appendMessage(header, request, requestSize, datagram);
  pendingCalls_[session] = call;
  if (const int error = network_->send(Channel::CLIENT, 0, offer->endpoint, datagram.data(), datagram.size());
      error != 0) {
    pendingCalls_.erase(session);
    KOV_LOG(WARN, LOG_PATH) << "Failed to send the request of [0x" << std::hex << address.serviceId << ",0x"
                            << address.instanceId << "] method 0x" << methodId << " to "
                            << toString(offer->endpoint) << ": " << std::strerror(error);
    return RESULT_SEND_FAILED;
  }

  const bool answered = callDone_.wait_for(lock, options_.callTimeout, [&call] { return call->done; });
  if (!answered) {
    pendingCalls_.erase(session);  // a late response finds no call and is dropped
    return Result::Timeout;
  }
  if (call->result != Result::Ok) {
    return call->result;
  }
  if (call->payload.size() != responseSize) {
    KOV_LOG(WARN, LOG_PATH) << "Response of [0x" << std::hex << address.serviceId << ",0x"
                            << address.instanceId << "] method 0x" << methodId << " has " << std::dec
                            << call->payload.size() << " bytes, expected " << responseSize;
    return RESULT_SIZE_MISMATCH;
  }
  if (responseSize != 0) {
    std::memcpy(response, call->payload.data(), responseSize);
  }
  return Result::Ok;
}

bool TransportCore::subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                                    const std::vector<std::uint16_t>& eventIds, EventHandler handler) {
  std::shared_ptr<HandlerSlot<EventHandler>> replaced;
  std::unique_lock<std::mutex> lock(mutex_);
  if (!connected_ || address.instanceId == ISomeIpTransport::ANY_INSTANCE || !handler) {
    return false;
  }
  EventSubscription subscription;
  subscription.eventIds = std::set<std::uint16_t>(eventIds.begin(), eventIds.end());
  subscription.slot = std::make_shared<HandlerSlot<EventHandler>>(std::move(handler));
  auto previous = eventSubscriptions_.find(address);
  if (previous != eventSubscriptions_.end()) {
    replaced = std::move(previous->second.slot);
  }
  eventSubscriptions_[address] = std::move(subscription);
  SdOutbox out;
  subscriptions_->add(network_->now(), address, eventGroupId, discovery_.offerOf(address), out);
  syncEventGroupsLocked();
  flushLocked(out);
  lock.unlock();
  if (replaced) {
    replaced->close();  // the replaced handler is not called again
  }
  return true;
}

bool TransportCore::unsubscribeEvents(const Address& address) {
  std::shared_ptr<HandlerSlot<EventHandler>> slot;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = eventSubscriptions_.find(address);
    if (it == eventSubscriptions_.end()) {
      return false;
    }
    slot = std::move(it->second.slot);
    eventSubscriptions_.erase(it);
    if (connected_) {
      SdOutbox out;
      subscriptions_->remove(address, out);
      syncEventGroupsLocked();
      flushLocked(out);
    }
  }
  slot->close();
  return true;
}

std::optional<Endpoint> TransportCore::offeredEndpoint(const Address& address) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto offer = discovery_.offerOf(address);
  if (!offer) {
    return std::nullopt;
  }
  return offer->endpoint;
}

}  // namespace kov::platform::networking::someip::detail
