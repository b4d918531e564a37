#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "common/types/observable.hpp"
#include "handler_guard/handler_guard.hpp"
#include "networking/i_some_ip_transport.hpp"
#include "vesk/i_sensor_control.hpp"

namespace kov::drivers::lidar::vesk {

/// True for the addresses under which older sensors offer services 2, 3 and 4: the instance id
/// equals the service id. The wildcard instance is never legacy.
bool isLegacyService(const kov::platform::networking::ISomeIpTransport::Address& address);

/// Requests every service of `serviceIds` with the wildcard instance; tries all of them and returns
/// true only when every request succeeded. Each failure is logged as an error.
bool requestServices(kov::platform::networking::ISomeIpTransport& transport,
                     const std::unordered_set<std::uint16_t>& serviceIds);

/// Releases every service of `serviceIds` (wildcard instance); tries all of them and returns true
/// only when every release succeeded. Each failure is logged as a warning.
bool releaseServices(kov::platform::networking::ISomeIpTransport& transport,
                     const std::unordered_set<std::uint16_t>& serviceIds);

/// Connects one transport, follows the availability of the sensors' services, keeps one client per
/// discovered sensor and announces every availability report to the subscribers.
///
/// Lifecycle calls (init, start, stop, shutdown) come from one controlling thread; availability
/// reports arrive on transport threads. clientsMutex_ guards the client map only: it is never held
/// while a client is marked (un)available or announced, so no lock of this object is held while the
/// transport runs, and a transport may report other sensors from inside a client's event
/// (un)subscription. The client factory runs under clientsMutex_.
///
/// The availability handler holds a raw pointer to this object and shares `availabilityGuard_`, which
/// is closed once the transport has withdrawn the handler and at the latest by the destructor: a report
/// delivered after that does nothing, and closing waits for a report still running on another thread.
/// A successful stop therefore ends with no report in flight and, after one more pass that marks every
/// client unavailable, with no client available and no event subscription left.
class SensorControl : public ISensorControl {
 public:
  using Address = kov::platform::networking::ISomeIpTransport::Address;

  SensorControl(std::shared_ptr<kov::platform::networking::ISomeIpTransport> transport,
                ClientFactory clientFactory, std::unordered_set<std::uint16_t> serviceIds);
  ~SensorControl() override;

  SensorControl(const SensorControl&) = delete;
  SensorControl& operator=(const SensorControl&) = delete;

  bool init() override;
  bool start() override;
  bool stop() override;
  bool shutdown() override;
  std::shared_ptr<Subscription> subscribe(const SubscriberCallback& callback) override;

 private:
  using ClientPtr = std::shared_ptr<ISensorControl::IClient>;

  /// Entry point of the availability handler registered in start (transport thread).
  void onAvailability(const Address& address, bool available);
  /// The client that owns `address`, including the legacy rule; empty when there is none.
  ClientPtr findClient(const Address& address);
  /// Creates the client of sensor `sensorId`, or returns the one a concurrent report just stored.
  ClientPtr createClient(std::uint16_t sensorId);
  /// Marks every client unavailable and announces each client whose services changed.
  void markAllUnavailable();
  /// After the transport withdrew the availability handler: no report runs or starts any more.
  void closeAvailabilityHandler();

  std::shared_ptr<kov::platform::networking::ISomeIpTransport> transport_;
  ClientFactory clientFactory_;
  std::unordered_set<std::uint16_t> serviceIds_;
  std::unordered_map<std::uint16_t, ClientPtr> clients_;
  std::mutex clientsMutex_;
  ClientPtr legacyClient_;
  kov::common::types::observable::Observable<const ClientPtr&, const std::unordered_set<std::uint16_t>&>
      observable_;
  bool started_{false};
  /// True while the transport may hold the availability handler (it captures the raw `this`).
  bool availabilityRegistered_{false};
  /// Shared by the handlers registered since the last withdrawal; empty when none is registered.
  std::shared_ptr<HandlerGuard> availabilityGuard_;
};

}  // namespace kov::drivers::lidar::vesk
