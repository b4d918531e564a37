#include "recording_transport.hpp"

#include <utility>

namespace kov::tools::veskctl {

namespace {

std::optional<RecordingTransport::Call>& threadsLastCall() {
  thread_local std::optional<RecordingTransport::Call> call;
  return call;
}

}  // namespace

RecordingTransport::RecordingTransport(std::shared_ptr<ISomeIpTransport> inner, TransportKind kind)
    : inner_(std::move(inner)), kind_(kind) {}

RecordingTransport::Result RecordingTransport::connect() {
  return inner_->connect();
}

RecordingTransport::Result RecordingTransport::disconnect() {
  return inner_->disconnect();
}

bool RecordingTransport::subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                                               AvailabilityHandler handler) {
  return inner_->subscribeAvailability(serviceIds, std::move(handler));
}

bool RecordingTransport::unsubscribeAvailability() {
  return inner_->unsubscribeAvailability();
}

bool RecordingTransport::offerService(const Address& address) {
  return inner_->offerService(address);
}

bool RecordingTransport::stopOfferService(const Address& address) {
  return inner_->stopOfferService(address);
}

bool RecordingTransport::requestService(const Address& address) {
  return inner_->requestService(address);
}

bool RecordingTransport::releaseService(const Address& address) {
  return inner_->releaseService(address);
}

RecordingTransport::Result RecordingTransport::callMethod(const Address& address, std::uint16_t methodId,
                                                          const void* request, std::size_t requestSize,
                                                          void* response, std::size_t responseSize) {
  const auto result = inner_->callMethod(address, methodId, request, requestSize, response, responseSize);
  threadsLastCall() = Call{kind_, result};
  return result;
}

bool RecordingTransport::subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                                         const std::vector<std::uint16_t>& eventIds, EventHandler handler) {
  return inner_->subscribeEvents(address, eventGroupId, eventIds, std::move(handler));
}

bool RecordingTransport::offerEvent(const Address& address, std::uint16_t eventGroupId,
                                    const std::vector<std::uint16_t>& eventIds) {
  return inner_->offerEvent(address, eventGroupId, eventIds);
}

bool RecordingTransport::stopOfferEvent(const Address& address, std::uint16_t eventGroupId) {
  return inner_->stopOfferEvent(address, eventGroupId);
}

bool RecordingTransport::notifyEvent(const Address& address, std::uint16_t eventId, const void* data,
                                     std::size_t size) {
  return inner_->notifyEvent(address, eventId, data, size);
}

bool RecordingTransport::unsubscribeEvents(const Address& address) {
  return inner_->unsubscribeEvents(address);
}

std::optional<RecordingTransport::Call> RecordingTransport::lastCall() {
  return threadsLastCall();
}

void RecordingTransport::forgetLastCall() {
  threadsLastCall().reset();
}

}  // namespace kov::tools::veskctl
