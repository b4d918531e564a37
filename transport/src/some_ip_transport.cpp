#include "someip/some_ip_transport.hpp"

#include "transport_core.hpp"
#include "udp_network.hpp"

namespace kov::platform::networking::someip {

SomeIpTransport::SomeIpTransport(TransportOptions options)
    : core_(std::make_unique<detail::TransportCore>(std::move(options),
                                                    std::make_unique<detail::UdpNetwork>())) {}

SomeIpTransport::~SomeIpTransport() = default;

SomeIpTransport::Result SomeIpTransport::connect() {
  return core_->connect();
}
SomeIpTransport::Result SomeIpTransport::disconnect() {
  return core_->disconnect();
}

bool SomeIpTransport::subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                                            AvailabilityHandler handler) {
  return core_->subscribeAvailability(serviceIds, std::move(handler));
}
bool SomeIpTransport::unsubscribeAvailability() {
  return core_->unsubscribeAvailability();
}

bool SomeIpTransport::offerService(const Address& address) {
  return core_->offerService(address);
}
bool SomeIpTransport::stopOfferService(const Address& address) {
  return core_->stopOfferService(address);
}

bool SomeIpTransport::requestService(const Address& address) {
  return core_->requestService(address);
}
bool SomeIpTransport::releaseService(const Address& address) {
  return core_->releaseService(address);
}

SomeIpTransport::Result SomeIpTransport::callMethod(const Address& address, std::uint16_t methodId,
                                                    const void* request, std::size_t requestSize,
                                                    void* response, std::size_t responseSize) {
  return core_->callMethod(address, methodId, request, requestSize, response, responseSize);
}

bool SomeIpTransport::subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                                      const std::vector<std::uint16_t>& eventIds, EventHandler handler) {
  return core_->subscribeEvents(address, eventGroupId, eventIds, std::move(handler));
}

bool SomeIpTransport::offerEvent(const Address& address, std::uint16_t eventGroupId,
                                 const std::vector<std::uint16_t>& eventIds) {
  return core_->offerEvent(address, eventGroupId, eventIds);
}
bool SomeIpTransport::stopOfferEvent(const Address& address, std::uint16_t eventGroupId) {
  return core_->stopOfferEvent(address, eventGroupId);
}
bool SomeIpTransport::notifyEvent(const Address& address, std::uint16_t eventId, const void* data,
                                  std::size_t size) {
  return core_->notifyEvent(address, eventId, data, size);
}

bool SomeIpTransport::unsubscribeEvents(const Address& address) {
  return core_->unsubscribeEvents(address);
}

void SomeIpTransport::setRequestHandler(RequestHandler handler) {
  core_->setRequestHandler(std::move(handler));
}

std::optional<Endpoint> SomeIpTransport::offeredEndpoint(const Address& address) const {
  return core_->offeredEndpoint(address);
}

}  // namespace kov::platform::networking::someip
