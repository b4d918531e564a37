#include <utility>

#include "sensor_control_client/sensor_control_client.hpp"
#include "sensor_services.hpp"

namespace kov::drivers::lidar::vesk {

namespace {

// Event groups and event ids of the services that publish events.
constexpr std::uint16_t SYSTEM_MODE_EVENT_GROUP = 2;
constexpr std::uint16_t SYSTEM_MODE_STATUS_EVENT = 1;
constexpr std::uint16_t HEARTBEAT_EVENT = 2;

constexpr std::uint16_t SCAN_EVENT_GROUP = 3;
constexpr std::uint16_t ACHIEVED_SCAN_SETTINGS_EVENT = 1;
constexpr std::uint16_t SCAN_DATUM_EVENT = 2;
constexpr std::uint16_t SCAN_PATTERN_ERROR_EVENT = 3;

}  // namespace

void ClientA::subscribeToEvents(std::uint16_t serviceId) {
  const auto it = services_.find(serviceId);
  if (it == services_.end()) {
    return;
  }
  ServiceInfo& info = it->second;
  // The ids are appended on every subscription, never cleared: a service that became available k
  // times hands the transport its ids k times over. This accumulation is deliberate.
  if (serviceId == detail::SYSTEM_MODE_SERVICE_ID) {
    info.eventGroupId = SYSTEM_MODE_EVENT_GROUP;
    info.eventIds.push_back(SYSTEM_MODE_STATUS_EVENT);
    info.eventIds.push_back(HEARTBEAT_EVENT);
  } else if (serviceId == detail::SCAN_SERVICE_ID) {
    info.eventGroupId = SCAN_EVENT_GROUP;
    info.eventIds.push_back(ACHIEVED_SCAN_SETTINGS_EVENT);
    info.eventIds.push_back(SCAN_DATUM_EVENT);
    info.eventIds.push_back(SCAN_PATTERN_ERROR_EVENT);
  }
  if (info.eventIds.empty()) {
    return;
  }

  // The handler holds a raw pointer: the destructor unsubscribes and closes eventGuard_ before this
  // object goes away, so a call that the transport makes later does nothing.
  Transport::EventHandler handler = [guard = eventGuard_, this, serviceId](
                                        std::uint16_t eventId, const void* data, std::size_t size) {
    const HandlerGuard::Call call(*guard);
    if (call) {
      onEventReceived(serviceId, eventId, data, size);
    }
  };
  const Address address = serviceAddressLocked(serviceId);
  if (!transport_->subscribeEvents(address, info.eventGroupId, info.eventIds, std::move(handler))) {
    KOV_LOG(WARN, SENSOR_CONTROL_CLIENT_LOG_PATH)
        << "Failed to subscribe to events of service [0x" << std::hex << serviceId << ",0x"
        << address.instanceId << "] - event data will not update";
  }
}

void ClientA::unsubscribeFromEvents(std::uint16_t serviceId) {
  const auto it = services_.find(serviceId);
  if (it == services_.end() || it->second.eventIds.empty()) {
    return;
  }
  const Address address = serviceAddressLocked(serviceId);
  if (!transport_->unsubscribeEvents(address)) {
    KOV_LOG(DEBUG, SENSOR_CONTROL_CLIENT_LOG_PATH)
        << "Failed to unsubscribe from events of service [0x" << std::hex << serviceId << ",0x"
        << address.instanceId << "] - event data might be inconsistent";
  }
}

void ClientA::onEventReceived(std::uint16_t serviceId, std::uint16_t eventId, const void* data,
                              std::size_t size) noexcept {
  if (serviceId == detail::SCAN_SERVICE_ID) {
    onScanPatternEventReceived(eventId, data, size);
  } else if (serviceId == detail::SYSTEM_MODE_SERVICE_ID) {
    onSystemModeEventReceived(eventId, data, size);
  }
}

void ClientA::onScanPatternEventReceived(std::uint16_t eventId, const void* data, std::size_t size) noexcept {
  switch (eventId) {
    case ACHIEVED_SCAN_SETTINGS_EVENT:
      storeEvent<serialization::ScanSettingsStatus>(eventId, data, size, achievedScanSettingsEvent_);
      break;
    case SCAN_DATUM_EVENT:
      storeEvent<serialization::ScanDatum>(eventId, data, size, scanDatumEvent_);
      break;
    case SCAN_PATTERN_ERROR_EVENT:
      storeEvent<serialization::ScanPatternError>(eventId, data, size, scanPatternCommandStatusEvent_);
      break;
    default:
      break;
  }
}

void ClientA::onSystemModeEventReceived(std::uint16_t eventId, const void* data, std::size_t size) noexcept {
  switch (eventId) {
    case SYSTEM_MODE_STATUS_EVENT:
      storeEvent<serialization::SystemModeStatus>(eventId, data, size, systemModeStatusEvent_);
      break;
    case HEARTBEAT_EVENT:
      storeEvent<serialization::SystemHeartbeatAppRecord>(eventId, data, size, sensorHealthStatusEvent_);
      break;
    default:
      break;
  }
}

// Converts outside any lock; only the copy of the finished record is made under eventMutex_, so each
// cache entry is replaced whole.
template <typename Wire, typename Typed>
void ClientA::storeEvent(std::uint16_t eventId, const void* data, std::size_t size, Typed& entry) {
  Typed received{};
  if (!deserializeEvent<Wire, Typed>(eventId, data, size, received)) {
    return;
  }
  std::lock_guard<std::mutex> lock(eventMutex_);
  entry = received;
}

// The accessors hand out the cache records themselves, unlocked; see the class comment.
const types::ScanDatum& ClientA::getScanDatumEvent() const {
  return scanDatumEvent_;
}

const types::AchievedScanSettings& ClientA::getAchievedScanSettingsEvent() const {
  return achievedScanSettingsEvent_;
}

const types::ScanPatternCommandStatus& ClientA::getScanPatternCommandStatusEvent() const {
  return scanPatternCommandStatusEvent_;
}

const types::SystemModeStatus& ClientA::getSystemModeStatusEvent() const {
  return systemModeStatusEvent_;
}

const types::SensorHealthStatus& ClientA::getSensorHealthStatusEvent() const {
  return sensorHealthStatusEvent_;
}

// A whole record, copied under the lock that storeEvent() writes it under.
template <typename Typed>
void ClientA::copyEntry(const Typed& entry, Typed& out) const {
  static_assert(std::is_trivially_copyable_v<Typed>, "event records are copied without allocating");
  std::lock_guard<std::mutex> lock(eventMutex_);
  out = entry;
}

void ClientA::copyEvent(types::ScanDatum& out) const {
  copyEntry(scanDatumEvent_, out);
}

void ClientA::copyEvent(types::AchievedScanSettings& out) const {
  copyEntry(achievedScanSettingsEvent_, out);
}

void ClientA::copyEvent(types::ScanPatternCommandStatus& out) const {
  copyEntry(scanPatternCommandStatusEvent_, out);
}

void ClientA::copyEvent(types::SystemModeStatus& out) const {
  copyEntry(systemModeStatusEvent_, out);
}

void ClientA::copyEvent(types::SensorHealthStatus& out) const {
  copyEntry(sensorHealthStatusEvent_, out);
}

void ClientA::resetEventData() {
  std::lock_guard<std::mutex> lock(eventMutex_);
  scanDatumEvent_ = types::ScanDatum{};
  achievedScanSettingsEvent_ = types::AchievedScanSettings{};
  scanPatternCommandStatusEvent_ = types::ScanPatternCommandStatus{};
  systemModeStatusEvent_ = types::SystemModeStatus{};
  sensorHealthStatusEvent_ = types::SensorHealthStatus{};
}

}  // namespace kov::drivers::lidar::vesk
