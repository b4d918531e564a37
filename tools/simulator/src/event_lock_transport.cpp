#include "simulator/event_lock_transport.hpp"

#include <utility>

namespace kov::tools::simulator {

EventLockTransport::EventLockTransport(std::shared_ptr<ISomeIpTransport> inner)
    : state_(std::make_shared<State>()), inner_(std::move(inner)) {}

EventLockTransport::Result EventLockTransport::connect() {
  return inner_->connect();
}

EventLockTransport::Result EventLockTransport::disconnect() {
  return inner_->disconnect();
}

bool EventLockTransport::subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                                               AvailabilityHandler handler) {
  return inner_->subscribeAvailability(serviceIds, std::move(handler));
}

bool EventLockTransport::unsubscribeAvailability() {
  return inner_->unsubscribeAvailability();
}

bool EventLockTransport::offerService(const Address& address) {
  return inner_->offerService(address);
}

bool EventLockTransport::stopOfferService(const Address& address) {
  return inner_->stopOfferService(address);
}

bool EventLockTransport::requestService(const Address& address) {
  return inner_->requestService(address);
}

bool EventLockTransport::releaseService(const Address& address) {
  return inner_->releaseService(address);
}

EventLockTransport::Result EventLockTransport::callMethod(const Address& address, std::uint16_t methodId,
                                                          const void* request, std::size_t requestSize,
                                                          void* response, std::size_t responseSize) {
  return inner_->callMethod(address, methodId, request, requestSize, response, responseSize);
}

bool EventLockTransport::subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                                         const std::vector<std::uint16_t>& eventIds, EventHandler handler) {
  auto guarded = [state = state_, handler = std::move(handler)](std::uint16_t eventId, const void* data,
                                                                std::size_t size) {
    std::lock_guard<std::mutex> lock(state->mutex);
    handler(eventId, data, size);
  };
  return inner_->subscribeEvents(address, eventGroupId, eventIds, std::move(guarded));
}

bool EventLockTransport::offerEvent(const Address& address, std::uint16_t eventGroupId,
                                    const std::vector<std::uint16_t>& eventIds) {
  return inner_->offerEvent(address, eventGroupId, eventIds);
}

bool EventLockTransport::stopOfferEvent(const Address& address, std::uint16_t eventGroupId) {
  return inner_->stopOfferEvent(address, eventGroupId);
}

bool EventLockTransport::notifyEvent(const Address& address, std::uint16_t eventId, const void* data,
                                     std::size_t size) {
  return inner_->notifyEvent(address, eventId, data, size);
}

bool EventLockTransport::unsubscribeEvents(const Address& address) {
  return inner_->unsubscribeEvents(address);
}

}  // namespace kov::tools::simulator
