#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "common/log/log.hpp"
#include "common/types/type_name.hpp"
#include "handler_guard/handler_guard.hpp"
#include "networking/i_some_ip_transport.hpp"
#include "serialization/convert.hpp"
#include "vesk/i_sensor_control.hpp"

namespace kov::drivers::lidar::vesk {

/// Source path that every log line of the sensor client carries.
inline constexpr char SENSOR_CONTROL_CLIENT_LOG_PATH[] =
    "src/units/sensor_control_client/src/sensor_control_client";

/// Whether the sensor offers method `methodId` on service `serviceId` (a fixed table).
bool isMethodSupported(std::uint16_t serviceId, std::uint16_t methodId);

/// Judges the result of a method call: true for Ok; a timeout is logged at WARN, any other code at
/// ERROR (the code in hexadecimal, without "0x").
bool isGoodCallResult(kov::platform::networking::ISomeIpTransport::Result result, std::uint16_t methodId);

/// The failure lines of the conversions below, out of line and cold, so that the successful path of a
/// call or an event stays a call of `convert` and a test. Each returns false.
namespace conversion_logs {

/// ERROR "cannot call method 0x<id>: failed to <step><type name of Named>".
template <typename Named>
[[gnu::noinline, gnu::cold]] bool methodFailed(std::uint16_t methodId, const char* step) {
  KOV_LOG(ERROR, SENSOR_CONTROL_CLIENT_LOG_PATH)
      << "cannot call method 0x" << std::hex << methodId << ": failed to " << step
      << kov::common::types::utils::getTypeName<Named>();
  return false;
}

[[gnu::noinline, gnu::cold]] inline bool eventWithoutData(std::uint16_t eventId) {
  KOV_LOG(DEBUG, SENSOR_CONTROL_CLIENT_LOG_PATH)
      << "Got event 0x" << std::hex << eventId << " with null data pointer - discarding it";
  return false;
}

template <typename Typed>
[[gnu::noinline, gnu::cold]] bool eventOfWrongSize(std::size_t size, std::size_t expected) {
  KOV_LOG(DEBUG, SENSOR_CONTROL_CLIENT_LOG_PATH)
      << "Got event for " << kov::common::types::utils::getTypeName<Typed&>()
      << " but sizes do not match: got " << size << " expected " << expected;
  return false;
}

template <typename Typed>
[[gnu::noinline, gnu::cold]] bool eventNotConverted(std::uint16_t eventId) {
  KOV_LOG(DEBUG, SENSOR_CONTROL_CLIENT_LOG_PATH)
      << "Failed to deserialize event 0x" << std::hex << eventId << " as "
      << kov::common::types::utils::getTypeName<Typed&>() << " - discarding it";
  return false;
}

}  // namespace conversion_logs

/// Converts a typed request record into its wire record; logs at ERROR and returns false on failure.
template <typename Source, typename Target>
bool serialize(const Source& source, Target& target, std::uint16_t methodId) {
  if (serialization::convert<Source, Target>(source, target)) {
    return true;
  }
  return conversion_logs::methodFailed<const Source&>(methodId, "serialize ");
}

/// Converts a wire response record into its typed record; logs at ERROR and returns false on failure.
template <typename Source, typename Target>
bool deserialize(const Source& source, Target& target, std::uint16_t methodId) {
  if (serialization::convert<Source, Target>(source, target)) {
    return true;
  }
  return conversion_logs::methodFailed<Target&>(methodId, "deserialize ");
}

/// Checks one event payload (non-null, exactly the size of Wire) and converts it into `out`. Every
/// rejection is logged at DEBUG; nothing is allocated on the way.
template <typename Wire, typename Typed>
bool deserializeEvent(std::uint16_t eventId, const void* data, std::size_t size, Typed& out) {
  static_assert(std::is_trivially_copyable_v<Wire>, "wire records are copied byte by byte");
  if (data == nullptr) {
    return conversion_logs::eventWithoutData(eventId);
  }
  if (size != sizeof(Wire)) {
    return conversion_logs::eventOfWrongSize<Typed>(size, sizeof(Wire));
  }
  Wire wire;
  std::memcpy(&wire, data, sizeof(Wire));
  if (!serialization::convert<Wire, Typed>(wire, out)) {
    return conversion_logs::eventNotConverted<Typed>(eventId);
  }
  return true;
}

/// Sends `request` as a zero-initialised Wire record to method `methodId` and expects no response
/// data. The wire record lives on the caller's stack.
template <typename Wire, typename Typed>
bool callMethodNoResponseData(kov::platform::networking::ISomeIpTransport& transport,
                              const kov::platform::networking::ISomeIpTransport::Address& address,
                              std::uint16_t methodId, const Typed& request) {
  static_assert(std::is_trivially_copyable_v<Wire>, "wire records are sent byte by byte");
  Wire wire;
  std::memset(static_cast<void*>(&wire), 0, sizeof(Wire));
  if (!serialization::convert<Typed, Wire>(request, wire)) {
    return conversion_logs::methodFailed<const Typed&>(methodId, "serialize ");
  }
  const auto result = transport.callMethod(address, methodId, &wire, sizeof(Wire), nullptr, 0);
  // isGoodCallResult() judges (and logs) failures only; success needs no call.
  return result == kov::platform::networking::ISomeIpTransport::Result::Ok || isGoodCallResult(result, methodId);
}

/// The client of one sensor (identified by the SOME/IP instance id its services share): its table of
/// service instances and their availability, one synchronous SOME/IP method call per getter/setter,
/// and a cache holding the latest value of every event the sensor publishes.
///
/// Threads and locks: `servicesMutex_` guards the service table and is held while the transport's
/// subscribeEvents/unsubscribeEvents run; `eventMutex_` guards the event cache. The two are never
/// held together. `addressesMutex_` guards the copy of each service's instance id that
/// getServiceAddress/getServiceAddresses read: it is held only for that copy, never while the
/// transport runs, so a transport may report another sensor from inside subscribeEvents (the report
/// walks every client's addresses) without waiting for this client. Method calls run unlocked on the
/// caller's thread.
///
/// Event accessors: each `get...Event()` returns a reference to this client's own cache record, which
/// later events overwrite in place. It takes no lock: a reader that copies the record while an event
/// is stored may see a mix of old and new fields. `copyEvent` copies one whole record under
/// `eventMutex_` and is the race-free read.
///
/// Event handlers hold a raw pointer to the client and share `eventGuard_`, which the destructor
/// closes: a handler that the transport calls after the client is gone does nothing, and the
/// destructor waits for a handler running on another thread.
class ClientA : public ISensorControl::IClient, public ISensorControl::IClientA {
 public:
  using Transport = kov::platform::networking::ISomeIpTransport;
  using Address = Transport::Address;

  /// One entry of the service table; created on the first availability report, never erased.
  struct ServiceInfo {
    std::uint16_t instanceId{Transport::ANY_INSTANCE};
    bool available{false};
    std::uint16_t eventGroupId{0xFFFF};
    std::vector<std::uint16_t> eventIds;
  };

  /// Makes no transport call; the table starts empty and the event cache all zero.
  ClientA(std::shared_ptr<Transport> transport, std::uint16_t sensorId);
  /// Marks every service unavailable first, which unsubscribes every event subscription.
  ~ClientA() override;

  ClientA(const ClientA&) = delete;
  ClientA& operator=(const ClientA&) = delete;
  ClientA(ClientA&&) = delete;
  ClientA& operator=(ClientA&&) = delete;

  // Identity, service table and availability.
  std::uint16_t getSensorId() const override;
  Address getServiceAddress(std::uint16_t serviceId) const override;
  std::unordered_set<Address> getServiceAddresses() const override;
  std::unordered_map<std::uint16_t, bool> getServiceAvailability() const noexcept override;
  bool hasAvailableService() const noexcept override;
  bool isAvailable(std::uint16_t serviceId) const noexcept override;
  bool setAvailable(const Address& address, bool available) override;
  std::unordered_set<std::uint16_t> setAllAvailable(bool available) override;
  void resetEventData() override;

  // Method calls.
  bool setScanDatum(const types::ScanDatum& datum) override;
  bool getScanDatum(types::ScanDatum& datum) const override;
  bool setDesiredScanSettings(const types::DesiredScanSettings& settings) override;
  bool getDesiredScanSettings(types::DesiredScanSettings& settings) const override;
  bool getAchievedScanSettings(types::AchievedScanSettings& settings) const override;
  bool setScanPattern(const types::ScanPattern& pattern) override;
  bool getScanPatternCommandStatus(types::ScanPatternCommandStatus& status) const override;
  bool setSystemMode(const types::SystemModeCommand& command) override;
  bool getSystemModeStatus(types::SystemModeStatus& status) const override;
  bool getSensorSoftwareVersion(types::SensorSoftwareVersion& version) const override;
  bool getDatapathDestinationInfo(types::DatapathDestinationInfo& info) const override;
  bool setDatapathDestinationInfo(const types::DatapathDestinationInfo& info) override;

  // Latest event values: the cache records themselves (unlocked) and whole copies (locked).
  const types::ScanDatum& getScanDatumEvent() const override;
  const types::AchievedScanSettings& getAchievedScanSettingsEvent() const override;
  const types::ScanPatternCommandStatus& getScanPatternCommandStatusEvent() const override;
  const types::SystemModeStatus& getSystemModeStatusEvent() const override;
  const types::SensorHealthStatus& getSensorHealthStatusEvent() const override;
  void copyEvent(types::ScanDatum& out) const override;
  void copyEvent(types::AchievedScanSettings& out) const override;
  void copyEvent(types::ScanPatternCommandStatus& out) const override;
  void copyEvent(types::SystemModeStatus& out) const override;
  void copyEvent(types::SensorHealthStatus& out) const override;

  /// Gate of every method call: the method must exist on the service (ERROR otherwise) and the
  /// service must be available (WARN otherwise).
  bool isSupportedAndAvailable(std::uint16_t serviceId, std::uint16_t methodId) const;

  /// Entry point of the event handlers given to the transport: routes one notification of service
  /// `serviceId` to its decoder; notifications of other services are dropped without a log line.
  void onEventReceived(std::uint16_t serviceId, std::uint16_t eventId, const void* data,
                       std::size_t size) noexcept;

 private:
  // Service table helpers; the caller holds servicesMutex_.
  Address serviceAddressLocked(std::uint16_t serviceId) const;
  void subscribeToEvents(std::uint16_t serviceId);
  void unsubscribeFromEvents(std::uint16_t serviceId);

  // Event path, on transport threads.
  void onScanPatternEventReceived(std::uint16_t eventId, const void* data, std::size_t size) noexcept;
  void onSystemModeEventReceived(std::uint16_t eventId, const void* data, std::size_t size) noexcept;
  template <typename Wire, typename Typed>
  void storeEvent(std::uint16_t eventId, const void* data, std::size_t size, Typed& entry);
  template <typename Typed>
  void copyEntry(const Typed& entry, Typed& out) const;

  // Common steps of the getters and setters.
  /// isSupportedAndAvailable() that also takes the service's address, in the same critical section of
  /// servicesMutex_ as the availability (one lock per call instead of two).
  bool gateAndAddress(std::uint16_t serviceId, std::uint16_t methodId, Address& address) const;
  /// The gate of every call, with the address the call goes to; a refusal is followed by a DEBUG line
  /// naming the operation's parameter type.
  template <typename Param>
  bool mayCall(std::uint16_t serviceId, std::uint16_t methodId, Address& address) const;
  template <typename Wire, typename Typed>
  bool callGetter(std::uint16_t serviceId, std::uint16_t methodId, Typed& out) const;
  template <typename Wire, typename Typed>
  bool callSetter(std::uint16_t serviceId, std::uint16_t methodId, const Typed& in);

  std::shared_ptr<Transport> transport_;
  const std::uint16_t sensorId_;
  std::unordered_map<std::uint16_t, ServiceInfo> services_;
  mutable std::mutex servicesMutex_;
  mutable std::mutex eventMutex_;
  // Service id to instance id of every table entry, for the address readers; guarded by
  // addressesMutex_ and written (with servicesMutex_ held as well) when an entry's instance changes.
  std::unordered_map<std::uint16_t, std::uint16_t> instanceIds_;
  mutable std::mutex addressesMutex_;
  std::shared_ptr<HandlerGuard> eventGuard_;

  // Event cache, guarded by eventMutex_.
  types::ScanDatum scanDatumEvent_{};
  types::AchievedScanSettings achievedScanSettingsEvent_{};
  types::ScanPatternCommandStatus scanPatternCommandStatusEvent_{};
  types::SystemModeStatus systemModeStatusEvent_{};
  types::SensorHealthStatus sensorHealthStatusEvent_{};
};

}  // namespace kov::drivers::lidar::vesk
