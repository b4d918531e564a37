#include <cstring>

#include "networking/byte_order.hpp"
#include "sensor_control_client/sensor_control_client.hpp"
#include "call_gate.hpp"
#include "sensor_services.hpp"

namespace kov::drivers::lidar::vesk {

namespace {

// Method ids per service (the same id may recur on different services).
constexpr std::uint16_t GET_SYSTEM_MODE_STATUS = 0x8001;
constexpr std::uint16_t SET_SYSTEM_MODE = 0x8002;

constexpr std::uint16_t GET_DESIRED_SCAN_SETTINGS = 0x8001;
constexpr std::uint16_t SET_DESIRED_SCAN_SETTINGS = 0x8002;
constexpr std::uint16_t GET_SCAN_DATUM = 0x8003;
constexpr std::uint16_t SET_SCAN_DATUM = 0x8004;
constexpr std::uint16_t SET_SCAN_PATTERN = 0x8005;
constexpr std::uint16_t GET_ACHIEVED_SCAN_SETTINGS = 0x8006;
constexpr std::uint16_t GET_SCAN_PATTERN_COMMAND_STATUS = 0x8007;

constexpr std::uint16_t GET_SOFTWARE_VERSION = 0x0008;
constexpr std::uint16_t GET_DATAPATH_DESTINATION = 0x000A;
constexpr std::uint16_t SET_DATAPATH_DESTINATION = 0x000B;

// The sensor exchanges exactly these record sizes.
static_assert(sizeof(serialization::ScanDatum) == 4);
static_assert(sizeof(serialization::ScanSettings) == 7);
static_assert(sizeof(serialization::ScanSettingsStatus) == 8);
static_assert(sizeof(serialization::ScanPattern) == 1322);
static_assert(sizeof(serialization::ScanPatternError) == 1);
static_assert(sizeof(serialization::SystemModeCommand) == 1);
static_assert(sizeof(serialization::SystemModeStatus) == 1);
static_assert(sizeof(serialization::SoftwareApplicationInfo) == 256);
static_assert(sizeof(serialization::DatapathDestinationInfo) == 6);

constexpr float DEFAULT_FRAME_RATE_HZ = 10.0F;

/// A wire record in its default state: all bytes zero.
template <typename Wire>
Wire defaultWireRecord() {
  static_assert(std::is_trivially_copyable_v<Wire>, "wire records are plain bytes");
  Wire wire;
  std::memset(static_cast<void*>(&wire), 0, sizeof(Wire));
  return wire;
}

/// Scan settings start at 10 Hz (frame rate at offset 0, network byte order), so a response that
/// leaves the buffer untouched reads as 10 Hz.
template <>
serialization::ScanSettings defaultWireRecord<serialization::ScanSettings>() {
  serialization::ScanSettings wire;
  std::memset(static_cast<void*>(&wire), 0, sizeof(wire));
  const std::uint32_t frameRate = kov::platform::networking::byte_order::floatToNetworkByteOrder(DEFAULT_FRAME_RATE_HZ);
  std::memcpy(static_cast<void*>(&wire), &frameRate, sizeof(frameRate));
  return wire;
}

/// The DEBUG line that follows a refusal of the gate, naming the operation's parameter type; out of
/// line and cold. Returns false.
template <typename Param>
[[gnu::noinline, gnu::cold]] bool refuseCall() {
  KOV_LOG(DEBUG, SENSOR_CONTROL_CLIENT_LOG_PATH)
      << kov::common::types::utils::getTypeName<Param>()
      << " not supported/available on this client - not calling the transport";
  return false;
}

}  // namespace

bool isGoodCallResult(kov::platform::networking::ISomeIpTransport::Result result, std::uint16_t methodId) {
  using Result = kov::platform::networking::ISomeIpTransport::Result;
  if (result == Result::Ok) {
    return true;
  }
  if (result == Result::Timeout) {
    KOV_LOG(WARN, SENSOR_CONTROL_CLIENT_LOG_PATH)
        << "cannot call method 0x" << std::hex << methodId << ": SOME/IP transport timed out";
    return false;
  }
  KOV_LOG(ERROR, SENSOR_CONTROL_CLIENT_LOG_PATH)
      << "cannot call method 0x" << std::hex << methodId << ": SOME/IP transport failed with code \""
      << static_cast<std::uint32_t>(result) << "\"";
  return false;
}

template <typename Param>
bool ClientA::mayCall(std::uint16_t serviceId, std::uint16_t methodId, Address& address) const {
  // gateAndAddress(), inline (call_gate.hpp).
  if (!offersMethod(serviceId, methodId)) {
    refuseMissingMethod(serviceId, methodId);
  } else if (availableAddress(servicesMutex_, services_, serviceId, address)) {
    return true;
  } else {
    refuseUnavailableService(serviceId);
  }
  return refuseCall<Param>();
}

template <typename Wire, typename Typed>
bool ClientA::callGetter(std::uint16_t serviceId, std::uint16_t methodId, Typed& out) const {
  Address address{};
  if (!mayCall<Typed&>(serviceId, methodId, address)) {
    return false;
  }
  Wire response = defaultWireRecord<Wire>();
  const auto result = transport_->callMethod(address, methodId, nullptr, 0, &response, sizeof(Wire));
  if (result != Transport::Result::Ok && !isGoodCallResult(result, methodId)) {
    return false;
  }
  return deserialize(response, out, methodId);
}

template <typename Wire, typename Typed>
bool ClientA::callSetter(std::uint16_t serviceId, std::uint16_t methodId, const Typed& in) {
  Address address{};
  if (!mayCall<const Typed&>(serviceId, methodId, address)) {
    return false;
  }
  Wire request = defaultWireRecord<Wire>();
  if (!serialize(in, request, methodId)) {
    return false;
  }
  const auto result = transport_->callMethod(address, methodId, &request, sizeof(Wire), nullptr, 0);
  return result == Transport::Result::Ok || isGoodCallResult(result, methodId);
}

bool ClientA::setScanDatum(const types::ScanDatum& datum) {
  return callSetter<serialization::ScanDatum>(detail::SCAN_SERVICE_ID, SET_SCAN_DATUM, datum);
}

bool ClientA::getScanDatum(types::ScanDatum& datum) const {
  return callGetter<serialization::ScanDatum>(detail::SCAN_SERVICE_ID, GET_SCAN_DATUM, datum);
}

bool ClientA::setDesiredScanSettings(const types::DesiredScanSettings& settings) {
  return callSetter<serialization::ScanSettings>(detail::SCAN_SERVICE_ID, SET_DESIRED_SCAN_SETTINGS,
                                                 settings);
}

bool ClientA::getDesiredScanSettings(types::DesiredScanSettings& settings) const {
  return callGetter<serialization::ScanSettings>(detail::SCAN_SERVICE_ID, GET_DESIRED_SCAN_SETTINGS,
                                                 settings);
}

bool ClientA::getAchievedScanSettings(types::AchievedScanSettings& settings) const {
  return callGetter<serialization::ScanSettingsStatus>(detail::SCAN_SERVICE_ID, GET_ACHIEVED_SCAN_SETTINGS,
                                                       settings);
}

bool ClientA::setScanPattern(const types::ScanPattern& pattern) {
  Address address{};
  if (!mayCall<const types::ScanPattern&>(detail::SCAN_SERVICE_ID, SET_SCAN_PATTERN, address)) {
    return false;
  }
  return callMethodNoResponseData<serialization::ScanPattern>(*transport_, address, SET_SCAN_PATTERN,
                                                              pattern);
}

bool ClientA::getScanPatternCommandStatus(types::ScanPatternCommandStatus& status) const {
  return callGetter<serialization::ScanPatternError>(detail::SCAN_SERVICE_ID, GET_SCAN_PATTERN_COMMAND_STATUS,
                                                     status);
}

bool ClientA::setSystemMode(const types::SystemModeCommand& command) {
  return callSetter<serialization::SystemModeCommand>(detail::SYSTEM_MODE_SERVICE_ID, SET_SYSTEM_MODE,
                                                      command);
}

bool ClientA::getSystemModeStatus(types::SystemModeStatus& status) const {
  return callGetter<serialization::SystemModeStatus>(detail::SYSTEM_MODE_SERVICE_ID, GET_SYSTEM_MODE_STATUS,
                                                     status);
}

bool ClientA::getSensorSoftwareVersion(types::SensorSoftwareVersion& version) const {
  return callGetter<serialization::SoftwareApplicationInfo>(detail::SENSOR_INFO_SERVICE_ID,
                                                            GET_SOFTWARE_VERSION, version);
}

bool ClientA::getDatapathDestinationInfo(types::DatapathDestinationInfo& info) const {
  return callGetter<serialization::DatapathDestinationInfo>(detail::SENSOR_INFO_SERVICE_ID,
                                                            GET_DATAPATH_DESTINATION, info);
}

bool ClientA::setDatapathDestinationInfo(const types::DatapathDestinationInfo& info) {
  return callSetter<serialization::DatapathDestinationInfo>(detail::SENSOR_INFO_SERVICE_ID,
                                                            SET_DATAPATH_DESTINATION, info);
}

}  // namespace kov::drivers::lidar::vesk
