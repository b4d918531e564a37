#pragma once

#include <memory>
#include <optional>

#include "networking/i_some_ip_transport.hpp"
#include "transport_factory.hpp"

namespace kov::tools::veskctl {

/// The transport handed to the library: passes every operation on to the transport it wraps and
/// remembers, for each calling thread, the result of the last callMethod that thread made. The
/// library's getters and setters call the transport on their caller's thread and answer only true or
/// false, so the command whose call just failed reads the transport's own result code here.
class RecordingTransport final : public kov::platform::networking::ISomeIpTransport {
 public:
  /// One callMethod and the transport whose result codes explain its result.
  struct Call {
    TransportKind transport;
    Result result;
  };

  RecordingTransport(std::shared_ptr<ISomeIpTransport> inner, TransportKind kind);

  Result connect() override;
  Result disconnect() override;
  bool subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                             AvailabilityHandler handler) override;
  bool unsubscribeAvailability() override;
  bool offerService(const Address& address) override;
  bool stopOfferService(const Address& address) override;
  bool requestService(const Address& address) override;
  bool releaseService(const Address& address) override;
  Result callMethod(const Address& address, std::uint16_t methodId, const void* request,
                    std::size_t requestSize, void* response, std::size_t responseSize) override;
  bool subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                       const std::vector<std::uint16_t>& eventIds, EventHandler handler) override;
  bool offerEvent(const Address& address, std::uint16_t eventGroupId,
                  const std::vector<std::uint16_t>& eventIds) override;
  bool stopOfferEvent(const Address& address, std::uint16_t eventGroupId) override;
  bool notifyEvent(const Address& address, std::uint16_t eventId, const void* data,
                   std::size_t size) override;
  bool unsubscribeEvents(const Address& address) override;

  /// The last callMethod of the calling thread (through any RecordingTransport) since forgetLastCall().
  static std::optional<Call> lastCall();
  /// Forgets the calling thread's last callMethod.
  static void forgetLastCall();

 private:
  std::shared_ptr<ISomeIpTransport> inner_;
  TransportKind kind_;
};

}  // namespace kov::tools::veskctl
