#include "simulator/simulated_fleet.hpp"

#include <algorithm>
#include <optional>
#include <thread>
#include <utility>

#include "dispatcher.hpp"
#include "handler_slot.hpp"
#include "simulator/simulated_sensor.hpp"

namespace kov::tools::simulator {

namespace {

constexpr std::uint16_t SERVICE_IDS[] = {0x0002, 0x0003, 0x0004};
constexpr std::uint16_t LEGACY_SENSOR_ID = 0x0002;

/// Event group of a service's events; 0 for a service without events.
std::uint16_t eventGroupOf(std::uint16_t serviceId) {
  return (serviceId == 0x0002 || serviceId == 0x0003) ? serviceId : 0;
}

std::chrono::milliseconds tickPeriodOf(const FleetConfig& config) {
  const auto shortest = std::min(config.modeStep, config.heartbeatPeriod);
  return std::clamp(shortest / 5, std::chrono::milliseconds(1), std::chrono::milliseconds(20));
}

}  // namespace

SimulatedFleet::SimulatedFleet(FleetConfig config)
    : config_(std::move(config)),
      availabilityThread_(std::make_unique<Dispatcher>("sim-avail")),
      eventThread_(std::make_unique<Dispatcher>("sim-events")) {
  const auto now = std::chrono::steady_clock::now();
  for (const auto id : config_.sensorIds) {
    if (id != ANY_INSTANCE) {
      sensors_.emplace(id, std::make_shared<SimulatedSensor>(id, false, config_, now));
    }
  }
  if (config_.legacySensor) {
    sensors_.emplace(LEGACY_SENSOR_ID,
                     std::make_shared<SimulatedSensor>(LEGACY_SENSOR_ID, true, config_, now));
  }
  eventThread_->post([this] { tick(); });
}

SimulatedFleet::~SimulatedFleet() {
  // Join the workers before anything their tasks use goes away; pending deliveries are dropped.
  availabilityThread_->stop();
  eventThread_->stop();
}

SimulatedFleet::Result SimulatedFleet::connect() {
  std::lock_guard<std::mutex> lock(mutex_);
  const Result result = nextConnectResult_;
  nextConnectResult_ = Result::Ok;
  if (result == Result::Ok) {
    connected_ = true;
  }
  return result;
}

SimulatedFleet::Result SimulatedFleet::disconnect() {
  std::vector<AvailabilityWatcher> watchers;
  std::unordered_map<Address, EventSubscription> subscriptions;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    connected_ = false;
    requested_.clear();
    watchers.swap(watchers_);
    subscriptions.swap(subscriptions_);
  }
  // Whatever the user left registered is dropped without another call.
  for (auto& watcher : watchers) {
    watcher.slot->close();
  }
  for (auto& entry : subscriptions) {
    entry.second.slot->close();
  }
  return Result::Ok;
}

bool SimulatedFleet::subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                                           AvailabilityHandler handler) {
  if (!handler) {
    return false;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  if (!connected_) {
    return false;
  }
  AvailabilityWatcher watcher;
  watcher.serviceIds.insert(serviceIds.begin(), serviceIds.end());
  watcher.slot = std::make_shared<AvailabilitySlot>(std::move(handler));
  watchers_.push_back(std::move(watcher));
  reportAvailabilityLocked();
  return true;
}

bool SimulatedFleet::unsubscribeAvailability() {
  std::vector<AvailabilityWatcher> watchers;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    watchers.swap(watchers_);
  }
  // Outside the lock: a report in progress may call back into the transport.
  for (auto& watcher : watchers) {
    watcher.slot->close();
  }
  return !watchers.empty();
}

bool SimulatedFleet::offerService(const Address& /*address*/) {
  return false;
}

bool SimulatedFleet::stopOfferService(const Address& /*address*/) {
  return false;
}

bool SimulatedFleet::requestService(const Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!connected_) {
    return false;
  }
  requested_.insert(address.serviceId);
  reportAvailabilityLocked();
  return true;
}

bool SimulatedFleet::releaseService(const Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (requested_.erase(address.serviceId) == 0) {
    return false;
  }
  // A released service is forgotten: asking for it again reports its instances anew.
  for (auto& watcher : watchers_) {
    for (auto it = watcher.reported.begin(); it != watcher.reported.end();) {
      it = (it->first.serviceId == address.serviceId) ? watcher.reported.erase(it) : std::next(it);
    }
  }
  return true;
}

SimulatedFleet::Result SimulatedFleet::callMethod(const Address& address, std::uint16_t methodId,
                                                  const void* request, std::size_t requestSize,
                                                  void* response, std::size_t responseSize) {
  std::shared_ptr<SimulatedSensor> sensor;
  std::optional<Result> injected;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!connected_) {
      return RESULT_NOT_READY;
    }
    sensor = findSensorLocked(address);
    if (!sensor) {
      return RESULT_UNKNOWN_SERVICE;
    }
    const auto key = std::make_tuple(sensor->sensorId(), address.serviceId, methodId);
    const auto fault = callFaults_.find(key);
    if (fault != callFaults_.end()) {
      injected = fault->second.result;
      if (--fault->second.remaining == 0) {
        callFaults_.erase(fault);
      }
    }
  }
  if (injected) {
    if (*injected == Result::Timeout) {
      std::this_thread::sleep_for(config_.callTimeout);
    }
    return *injected;
  }
  std::vector<OutgoingEvent> events;
  const Result result =
      sensor->handleCall(address.serviceId, methodId, request, requestSize, response, responseSize, events);
  for (auto& event : events) {
    publish(Address{event.serviceId, sensor->instanceOf(event.serviceId)}, event.eventId,
            std::move(event.payload));
  }
  return result;
}

bool SimulatedFleet::subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                                     const std::vector<std::uint16_t>& eventIds, EventHandler handler) {
  if (!handler) {
    return false;
  }
  std::shared_ptr<EventSlot> replaced;
  std::shared_ptr<SimulatedSensor> sensor;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    sensor = findSensorLocked(address);
    if (!connected_ || !sensor || eventGroupOf(address.serviceId) != eventGroupId || eventGroupId == 0) {
      return false;
    }
    EventSubscription subscription;
    subscription.eventIds.insert(eventIds.begin(), eventIds.end());
    subscription.slot = std::make_shared<EventSlot>(std::move(handler));
    auto& entry = subscriptions_[address];
    replaced = std::move(entry.slot);
    entry = std::move(subscription);
  }
  if (replaced) {
    replaced->close();
  }
  // Like fields, the events carry their current value to a new subscriber.
  for (auto& event : sensor->initialEvents(address.serviceId)) {
    publish(address, event.eventId, std::move(event.payload));
  }
  return true;
}

bool SimulatedFleet::offerEvent(const Address& /*address*/, std::uint16_t /*eventGroupId*/,
                                const std::vector<std::uint16_t>& /*eventIds*/) {
  return false;
}

bool SimulatedFleet::stopOfferEvent(const Address& /*address*/, std::uint16_t /*eventGroupId*/) {
  return false;
}

bool SimulatedFleet::notifyEvent(const Address& /*address*/, std::uint16_t /*eventId*/, const void* /*data*/,
                                 std::size_t /*size*/) {
  return false;
}

bool SimulatedFleet::unsubscribeEvents(const Address& address) {
  std::shared_ptr<EventSlot> slot;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = subscriptions_.find(address);
    if (it == subscriptions_.end()) {
      return false;
    }
    slot = std::move(it->second.slot);
    subscriptions_.erase(it);
  }
  // Waits for a delivery in progress on the event thread; never reports availability from here.
  slot->close();
  return true;
}

std::vector<std::uint16_t> SimulatedFleet::sensorIds() const {
  std::vector<std::uint16_t> ids;
  std::shared_ptr<SimulatedSensor> legacy;
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& entry : sensors_) {
    if (entry.second->isLegacy()) {
      legacy = entry.second;
    } else {
      ids.push_back(entry.first);
    }
  }
  if (legacy) {
    ids.push_back(legacy->sensorId());
  }
  return ids;
}

void SimulatedFleet::failNextConnect(Result result) {
  std::lock_guard<std::mutex> lock(mutex_);
  nextConnectResult_ = result;
}

bool SimulatedFleet::setSensorOnline(std::uint16_t sensorId, bool online) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto sensor = sensorByIdLocked(sensorId);
  if (!sensor) {
    return false;
  }
  if (online) {
    if (offline_.erase(sensorId) != 0) {
      sensor->reboot(std::chrono::steady_clock::now());
    }
  } else {
    offline_.insert(sensorId);
  }
  reportAvailabilityLocked();
  return true;
}

bool SimulatedFleet::failNextCalls(std::uint16_t sensorId, std::uint16_t serviceId, std::uint16_t methodId,
                                   Result result, std::size_t count) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!sensorByIdLocked(sensorId) || count == 0) {
    return false;
  }
  callFaults_[std::make_tuple(sensorId, serviceId, methodId)] = CallFault{result, count};
  return true;
}

bool SimulatedFleet::injectEvent(std::uint16_t sensorId, std::uint16_t serviceId, std::uint16_t eventId,
                                 const void* data, std::size_t size) {
  Address address{};
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto sensor = sensorByIdLocked(sensorId);
    if (!sensor) {
      return false;
    }
    address = Address{serviceId, sensor->instanceOf(serviceId)};
    if (subscriptions_.count(address) == 0) {
      return false;
    }
  }
  if (data == nullptr) {
    eventThread_->post([this, address, eventId, size] { deliverEvent(address, eventId, nullptr, size); });
    return true;
  }
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  publish(address, eventId, std::vector<std::uint8_t>(bytes, bytes + size));
  return true;
}

bool SimulatedFleet::drain(std::chrono::milliseconds timeout) {
  // Reports first: handling them may subscribe to events, whose first values then follow.
  return availabilityThread_->sync(timeout) && eventThread_->sync(timeout);
}

std::shared_ptr<SimulatedSensor> SimulatedFleet::findSensorLocked(const Address& address) const {
  for (const auto& entry : sensors_) {
    const auto& sensor = entry.second;
    if (sensor->instanceOf(address.serviceId) == address.instanceId && isOfferedLocked(address)) {
      return sensor;
    }
  }
  return nullptr;
}

std::shared_ptr<SimulatedSensor> SimulatedFleet::sensorByIdLocked(std::uint16_t sensorId) const {
  const auto it = sensors_.find(sensorId);
  return it == sensors_.end() ? nullptr : it->second;
}

bool SimulatedFleet::isOfferedLocked(const Address& address) const {
  if (std::find(std::begin(SERVICE_IDS), std::end(SERVICE_IDS), address.serviceId) == std::end(SERVICE_IDS)) {
    return false;
  }
  for (const auto& entry : sensors_) {
    if (entry.second->instanceOf(address.serviceId) == address.instanceId) {
      return offline_.count(entry.first) == 0;
    }
  }
  return false;
}

void SimulatedFleet::reportAvailabilityLocked() {
  const auto due = std::chrono::steady_clock::now() + config_.discoveryDelay;
  for (auto& watcher : watchers_) {
    for (const auto& entry : sensors_) {
      for (const auto serviceId : SERVICE_IDS) {
        if (watcher.serviceIds.count(serviceId) == 0 || requested_.count(serviceId) == 0) {
          continue;
        }
        const Address address{serviceId, entry.second->instanceOf(serviceId)};
        const bool available = connected_ && offline_.count(entry.first) == 0;
        // Only changes are reported; an instance never seen available is not reported as gone.
        const auto known = watcher.reported.find(address);
        const bool told = known != watcher.reported.end() && known->second;
        if (told == available) {
          continue;
        }
        watcher.reported[address] = available;
        availabilityThread_->postAt(
            due, [slot = watcher.slot, address, available] { slot->invoke(address, available); });
      }
    }
  }
}

void SimulatedFleet::publish(const Address& address, std::uint16_t eventId,
                             std::vector<std::uint8_t> payload) {
  auto shared = std::make_shared<const std::vector<std::uint8_t>>(std::move(payload));
  eventThread_->post(
      [this, address, eventId, shared] { deliverEvent(address, eventId, shared.get(), shared->size()); });
}

void SimulatedFleet::deliverEvent(const Address& address, std::uint16_t eventId,
                                  const std::vector<std::uint8_t>* payload, std::size_t size) {
  std::shared_ptr<EventSlot> slot;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = subscriptions_.find(address);
    if (!connected_ || !isOfferedLocked(address) || it == subscriptions_.end() ||
        it->second.eventIds.count(eventId) == 0) {
      return;
    }
    slot = it->second.slot;
  }
  slot->invoke(eventId, payload == nullptr ? nullptr : static_cast<const void*>(payload->data()), size);
}

void SimulatedFleet::tick() {
  const auto now = std::chrono::steady_clock::now();
  std::vector<std::shared_ptr<SimulatedSensor>> online;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : sensors_) {
      if (offline_.count(entry.first) == 0) {
        online.push_back(entry.second);
      }
    }
  }
  for (const auto& sensor : online) {
    for (auto& event : sensor->tick(now)) {
      publish(Address{event.serviceId, sensor->instanceOf(event.serviceId)}, event.eventId,
              std::move(event.payload));
    }
  }
  eventThread_->postAt(now + tickPeriodOf(config_), [this] { tick(); });
}

}  // namespace kov::tools::simulator
