#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "networking/i_some_ip_transport.hpp"
#include "someip/call_result.hpp"
#include "someip/endpoint.hpp"
#include "someip/export.hpp"
#include "someip/message.hpp"
#include "someip/transport_options.hpp"

namespace kov::platform::networking::someip {

namespace detail {
class TransportCore;
}

/// SOME/IP over UDP with SOME/IP service discovery, for both sides of a connection: the client side
/// that the sensor-control library calls (find, availability, synchronous method calls, event
/// subscriptions) and the server side of a sensor (offers, a request handler, event notifications to
/// subscribers).
///
/// Threads: connect starts one receive thread (sockets and timers) and one dispatch thread. Every
/// handler (availability, events, requests) runs on the dispatch thread, in order, never on the thread
/// that called into the transport, so a handler may call back into the transport. Every operation may
/// be called from any thread; several threads may be in callMethod at once (each blocks at most for the
/// call timeout). After unsubscribeEvents or unsubscribeAvailability returned, the removed handler does
/// not run again; called from inside that handler they do not wait for it. A handler must not call
/// disconnect or destroy the transport. connect and disconnect may race from different threads: they
/// run one after the other, and a connection after disconnect starts with nothing of the last one.
///
/// callMethod results: Ok, Timeout, and the codes of call_result.hpp; a call waiting for an instance
/// that goes away (StopOffer, TTL expiry, reboot of its peer) ends at once with RESULT_INSTANCE_GONE.
/// What the network sends is bounded by the table sizes of TransportOptions.
class KOV_SOMEIP_EXPORT SomeIpTransport : public ISomeIpTransport {
 public:
  /// Answers one request of a local service instance: fills `response` and returns the return code
  /// (E_OK for a RESPONSE, anything else for an ERROR message without payload).
  using RequestHandler =
      std::function<ReturnCode(const Address& address, std::uint16_t methodId, const std::uint8_t* payload,
                               std::size_t size, std::vector<std::uint8_t>& response)>;

  explicit SomeIpTransport(TransportOptions options);
  ~SomeIpTransport() override;

  SomeIpTransport(const SomeIpTransport&) = delete;
  SomeIpTransport& operator=(const SomeIpTransport&) = delete;

  /// Opens the sockets and starts the threads. Ok, or RESULT_SOCKET_ERROR (logged). The SD sockets share
  /// their port with other SOME/IP programs on the host (address reuse).
  Result connect() override;
  /// StopOffers every offered instance, StopSubscribes every subscription, ends the threads and closes
  /// the sockets. Pending calls return RESULT_NOT_CONNECTED. Always Ok.
  Result disconnect() override;

  /// One handler at a time (false if one is registered). Instances already known are reported.
  bool subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                             AvailabilityHandler handler) override;
  bool unsubscribeAvailability() override;

  bool offerService(const Address& address) override;
  bool stopOfferService(const Address& address) override;

  /// Starts finding every instance of the service (wildcard instance expected). Offers of services
  /// that are not requested are not kept.
  bool requestService(const Address& address) override;
  bool releaseService(const Address& address) override;

  Result callMethod(const Address& address, std::uint16_t methodId, const void* request,
                    std::size_t requestSize, void* response, std::size_t responseSize) override;

  /// Subscribes to an event group of a concrete instance; `eventIds` are library ids (the wire id is
  /// eventIdOffset | id). Events of other ids of the group are not delivered.
  bool subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                       const std::vector<std::uint16_t>& eventIds, EventHandler handler) override;

  /// The offered instance serves these events in this event group. The instance must be offered.
  bool offerEvent(const Address& address, std::uint16_t eventGroupId,
                  const std::vector<std::uint16_t>& eventIds) override;
  bool stopOfferEvent(const Address& address, std::uint16_t eventGroupId) override;
  /// Sends the event to every current subscriber of its event groups and keeps the value for new
  /// subscribers (their initial value). False when the instance is not offered or has no such event.
  bool notifyEvent(const Address& address, std::uint16_t eventId, const void* data,
                   std::size_t size) override;

  bool unsubscribeEvents(const Address& address) override;

  /// Handler for requests to the instances this transport offers (server side).
  void setRequestHandler(RequestHandler handler);

  /// Endpoint at which a remote instance is offered, if it is.
  std::optional<Endpoint> offeredEndpoint(const Address& address) const;

 private:
  std::unique_ptr<detail::TransportCore> core_;
};

}  // namespace kov::platform::networking::someip
