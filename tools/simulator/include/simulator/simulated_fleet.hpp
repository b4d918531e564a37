#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "networking/i_some_ip_transport.hpp"
#include "simulator/fleet_config.hpp"
#include "simulator/result_codes.hpp"

namespace kov::tools::simulator {

class Dispatcher;
class SimulatedSensor;
template <typename Handler>
class HandlerSlot;

/// A SOME/IP transport whose network is a fleet of simulated sensors. Each sensor offers the three
/// services 0x0002, 0x0003 and 0x0004, answers their methods with the exact wire records, validates
/// what it is sent, and publishes its events. Availability reports are delivered on one worker thread
/// and events on another, as a binding would; calls into the transport from inside its own handlers
/// are accepted, and no handler is called after the matching unsubscribe returned.
///
/// Faults can be injected: a sensor going offline and back, calls that time out or fail with a code,
/// and raw events (wrong size, null payload).
class SimulatedFleet : public kov::platform::networking::ISomeIpTransport {
 public:
  explicit SimulatedFleet(FleetConfig config);
  ~SimulatedFleet() override;

  SimulatedFleet(const SimulatedFleet&) = delete;
  SimulatedFleet& operator=(const SimulatedFleet&) = delete;

  // ISomeIpTransport
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

  /// Sensor ids of the fleet, the legacy sensor (if any) last under id 0x0002.
  std::vector<std::uint16_t> sensorIds() const;

  // Fault injection.

  /// Makes the next `connect` return `result`.
  void failNextConnect(Result result);

  /// Takes a sensor's services off the network (false) or brings them back (true); a sensor that comes
  /// back boots again. Availability changes are reported asynchronously. False for an unknown sensor.
  bool setSensorOnline(std::uint16_t sensorId, bool online);

  /// The next `count` calls of (service, method) on the sensor return `result` without reaching the
  /// sensor; Timeout blocks for the configured call timeout first. False for an unknown sensor.
  bool failNextCalls(std::uint16_t sensorId, std::uint16_t serviceId, std::uint16_t methodId, Result result,
                     std::size_t count = 1);

  /// Delivers one event with an arbitrary payload to the subscriber of the sensor's service; a null
  /// `data` is passed on as null with `size`. False when nobody is subscribed to it.
  bool injectEvent(std::uint16_t sensorId, std::uint16_t serviceId, std::uint16_t eventId, const void* data,
                   std::size_t size);

  /// Waits until every availability report and event queued so far has been delivered. False on
  /// timeout or when called from one of the fleet's own threads.
  bool drain(std::chrono::milliseconds timeout);

 private:
  using AvailabilitySlot = HandlerSlot<AvailabilityHandler>;
  using EventSlot = HandlerSlot<EventHandler>;

  struct AvailabilityWatcher {
    std::set<std::uint16_t> serviceIds;
    std::shared_ptr<AvailabilitySlot> slot;
    std::unordered_map<Address, bool> reported;  // what this watcher was last told, per instance
  };

  struct EventSubscription {
    std::set<std::uint16_t> eventIds;
    std::shared_ptr<EventSlot> slot;
  };

  struct CallFault {
    Result result;
    std::size_t remaining;
  };

  std::shared_ptr<SimulatedSensor> findSensorLocked(const Address& address) const;
  std::shared_ptr<SimulatedSensor> sensorByIdLocked(std::uint16_t sensorId) const;
  bool isOfferedLocked(const Address& address) const;
  void reportAvailabilityLocked();
  void publish(const Address& address, std::uint16_t eventId, std::vector<std::uint8_t> payload);
  void deliverEvent(const Address& address, std::uint16_t eventId, const std::vector<std::uint8_t>* payload,
                    std::size_t size);
  void tick();

  const FleetConfig config_;

  mutable std::mutex mutex_;
  bool connected_{false};
  Result nextConnectResult_{Result::Ok};
  std::map<std::uint16_t, std::shared_ptr<SimulatedSensor>> sensors_;  // by sensor id
  std::set<std::uint16_t> offline_;
  std::set<std::uint16_t> requested_;
  std::vector<AvailabilityWatcher> watchers_;
  std::unordered_map<Address, EventSubscription> subscriptions_;
  std::map<std::tuple<std::uint16_t, std::uint16_t, std::uint16_t>, CallFault> callFaults_;

  // Declared last: destroyed (and joined) first, while everything their tasks touch still exists.
  std::unique_ptr<Dispatcher> availabilityThread_;
  std::unique_ptr<Dispatcher> eventThread_;
};

}  // namespace kov::tools::simulator
