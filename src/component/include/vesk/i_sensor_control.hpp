#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include "common/types/observable.hpp"
#include "networking/i_some_ip_transport.hpp"
#include "serialization/types/enumerations.hpp"
#include "serialization/types/records.hpp"
#include "serialization/types/scan_pattern.hpp"

namespace kov::drivers::lidar::vesk {

/// Controls the sensors reachable through one SOME/IP transport: requests their services, follows
/// their availability, keeps one client per sensor and announces changes to subscribers.
class ISensorControl {
 public:
  /// Identity, service table and availability of one sensor (keyed by its SOME/IP instance id).
  class IClient {
   public:
    using Address = kov::platform::networking::ISomeIpTransport::Address;

    virtual std::uint16_t getSensorId() const = 0;
    virtual Address getServiceAddress(std::uint16_t serviceId) const = 0;
    virtual std::unordered_set<Address> getServiceAddresses() const = 0;
    virtual std::unordered_map<std::uint16_t, bool> getServiceAvailability() const noexcept = 0;
    virtual bool hasAvailableService() const noexcept = 0;
    virtual bool isAvailable(std::uint16_t serviceId) const noexcept = 0;
    virtual bool setAvailable(const Address& address, bool available) = 0;
    virtual std::unordered_set<std::uint16_t> setAllAvailable(bool available) = 0;
    virtual void resetEventData() = 0;
    virtual ~IClient() = default;
  };

  /// The sensor's methods (synchronous getters and setters) and its latest event values.
  ///
  /// Each `get...Event()` returns a reference to the client's own cache record, which later events
  /// overwrite in place; reading it while an event arrives may give a mix of old and new fields. The
  /// `copyEvent` overloads copy one whole record under the client's event lock instead: use them when
  /// events may arrive while reading.
  class IClientA {
   public:
    virtual bool setScanDatum(const types::ScanDatum& datum) = 0;
    virtual bool getScanDatum(types::ScanDatum& datum) const = 0;
    virtual const types::ScanDatum& getScanDatumEvent() const = 0;
    virtual bool setDesiredScanSettings(const types::DesiredScanSettings& settings) = 0;
    virtual bool getDesiredScanSettings(types::DesiredScanSettings& settings) const = 0;
    virtual bool getAchievedScanSettings(types::AchievedScanSettings& settings) const = 0;
    virtual const types::AchievedScanSettings& getAchievedScanSettingsEvent() const = 0;
    virtual bool setScanPattern(const types::ScanPattern& pattern) = 0;
    virtual bool getScanPatternCommandStatus(types::ScanPatternCommandStatus& status) const = 0;
    virtual const types::ScanPatternCommandStatus& getScanPatternCommandStatusEvent() const = 0;
    virtual bool setSystemMode(const types::SystemModeCommand& command) = 0;
    virtual bool getSystemModeStatus(types::SystemModeStatus& status) const = 0;
    virtual const types::SystemModeStatus& getSystemModeStatusEvent() const = 0;
    virtual const types::SensorHealthStatus& getSensorHealthStatusEvent() const = 0;
    virtual bool getSensorSoftwareVersion(types::SensorSoftwareVersion& version) const = 0;
    virtual bool getDatapathDestinationInfo(types::DatapathDestinationInfo& info) const = 0;
    virtual bool setDatapathDestinationInfo(const types::DatapathDestinationInfo& info) = 0;
    virtual ~IClientA() = default;

    // Race-free reads of one cache record (declared after the destructor so that the operations above
    // keep their positions in the virtual table).
    virtual void copyEvent(types::ScanDatum& out) const = 0;
    virtual void copyEvent(types::AchievedScanSettings& out) const = 0;
    virtual void copyEvent(types::ScanPatternCommandStatus& out) const = 0;
    virtual void copyEvent(types::SystemModeStatus& out) const = 0;
    virtual void copyEvent(types::SensorHealthStatus& out) const = 0;
  };

  /// Told which client's services (by service id) changed.
  using SubscriberCallback =
      std::function<void(const std::shared_ptr<IClient>&, const std::unordered_set<std::uint16_t>&)>;
  using Subscription = kov::common::types::observable::Subscription<const std::shared_ptr<IClient>&,
                                                                    const std::unordered_set<std::uint16_t>&>;

  /// Connects the transport.
  virtual bool init() = 0;
  /// Registers for availability reports and requests every service.
  virtual bool start() = 0;
  /// Marks every client unavailable, releases the services and unregisters.
  virtual bool stop() = 0;
  /// Stops when needed, drops the clients and disconnects the transport.
  virtual bool shutdown() = 0;
  /// The subscription lasts as long as the returned pointer is held; empty for an empty callback.
  virtual std::shared_ptr<Subscription> subscribe(const SubscriberCallback& callback) = 0;
  virtual ~ISensorControl() = default;
};

/// Makes the client of a newly discovered sensor.
using ClientFactory = std::function<std::shared_ptr<ISensorControl::IClient>(
    std::shared_ptr<kov::platform::networking::ISomeIpTransport>, std::uint16_t sensorId)>;

}  // namespace kov::drivers::lidar::vesk
