#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace kov::platform::networking {

/// The SOME/IP binding that an application hands to the library. The library only declares and calls
/// it; implementations (a SOME/IP stack binding, a simulator, a test double) belong to the application.
class ISomeIpTransport {
 public:
  /// One SOME/IP service instance. Instance id 0xFFFF is the wildcard (any instance).
  struct Address {
    std::uint16_t serviceId;
    std::uint16_t instanceId;

    friend bool operator==(const Address& lhs, const Address& rhs) {
      return lhs.serviceId == rhs.serviceId && lhs.instanceId == rhs.instanceId;
    }
    friend bool operator!=(const Address& lhs, const Address& rhs) { return !(lhs == rhs); }
  };

  static constexpr std::uint16_t ANY_INSTANCE = 0xFFFF;

  /// Outcome of connect, disconnect and callMethod. Values other than Ok and Timeout are failure codes.
  enum class Result : std::uint32_t {
    Ok = 0,
    Timeout = 1,
  };

  /// Called on a transport thread for every change of availability of a watched service instance.
  using AvailabilityHandler = std::function<void(const Address&, bool available)>;

  /// Called on a transport thread for every event notification; `data` is valid only during the call.
  using EventHandler = std::function<void(std::uint16_t eventId, const void* data, std::size_t size)>;

  virtual ~ISomeIpTransport() = default;

  virtual Result connect() = 0;
  virtual Result disconnect() = 0;

  /// Registers `handler` for availability changes of every instance of the given services.
  virtual bool subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                                     AvailabilityHandler handler) = 0;
  virtual bool unsubscribeAvailability() = 0;

  /// Server side: offers a local service instance. Not used by the control library.
  virtual bool offerService(const Address& address) = 0;
  /// Server side: withdraws a local service instance. Not used by the control library.
  virtual bool stopOfferService(const Address& address) = 0;

  /// Asks the binding to find and follow a service; called with the wildcard instance.
  virtual bool requestService(const Address& address) = 0;
  virtual bool releaseService(const Address& address) = 0;

  /// Synchronous method call on a concrete instance; the response is copied into `response`
  /// (at most `responseSize` bytes). `request`/`response` may be null with size 0.
  virtual Result callMethod(const Address& address, std::uint16_t methodId, const void* request,
                            std::size_t requestSize, void* response, std::size_t responseSize) = 0;

  /// Subscribes to an event group of a concrete instance; `handler` receives each notification.
  virtual bool subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                               const std::vector<std::uint16_t>& eventIds, EventHandler handler) = 0;

  /// Server side: announces an event group of a local instance. Not used by the control library.
  virtual bool offerEvent(const Address& address, std::uint16_t eventGroupId,
                          const std::vector<std::uint16_t>& eventIds) = 0;
  /// Server side: withdraws an event group of a local instance. Not used by the control library.
  virtual bool stopOfferEvent(const Address& address, std::uint16_t eventGroupId) = 0;
  /// Server side: publishes one event notification. Not used by the control library.
  virtual bool notifyEvent(const Address& address, std::uint16_t eventId, const void* data,
                           std::size_t size) = 0;

  /// Ends the event subscription of a concrete instance.
  virtual bool unsubscribeEvents(const Address& address) = 0;
};

/// Hash of an Address: (serviceId << 16) | instanceId.
struct AddressHash {
  std::size_t operator()(const ISomeIpTransport::Address& address) const noexcept {
    return (static_cast<std::size_t>(address.serviceId) << 16) | address.instanceId;
  }
};

}  // namespace kov::platform::networking

namespace std {
template <>
struct hash<kov::platform::networking::ISomeIpTransport::Address> {
  std::size_t operator()(const kov::platform::networking::ISomeIpTransport::Address& address) const noexcept {
    return kov::platform::networking::AddressHash{}(address);
  }
};
}  // namespace std
