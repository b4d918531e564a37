#include "simulator/simulated_sensor.hpp"

#include <cmath>
#include <cstring>
#include <iomanip>
#include <memory>
#include <sstream>

#include "networking/utils.hpp"
#include "serialization/convert.hpp"

namespace kov::tools::simulator {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;
using kov::drivers::lidar::vesk::serialization::convert;
using kov::platform::networking::floatToHostByteOrder;
using kov::platform::networking::floatToNetworkByteOrder;

namespace {

constexpr std::uint16_t MODE_SERVICE = 0x0002;
constexpr std::uint16_t SCAN_SERVICE = 0x0003;
constexpr std::uint16_t INFO_SERVICE = 0x0004;

// Limits the device enforces: radians for the scan datum, degrees for decoded pattern points.
constexpr float DATUM_MIN_RADIANS = -0.31415927F;
constexpr float DATUM_MAX_RADIANS = 0.17453292F;
constexpr float POINT_TOLERANCE_DEGREES = 0.001F;

template <typename Record>
std::vector<std::uint8_t> bytesOf(const Record& record) {
  std::vector<std::uint8_t> bytes(sizeof(Record));
  std::memcpy(bytes.data(), &record, sizeof(Record));
  return bytes;
}

/// Checks the buffers of a getter and encodes `value` into the response.
template <typename Wire, typename Typed>
Result answer(const Typed& value, std::size_t requestSize, void* response, std::size_t responseSize) {
  if (requestSize != 0 || response == nullptr || responseSize != sizeof(Wire)) {
    return RESULT_MALFORMED_MESSAGE;
  }
  Wire record{};
  if (!convert(value, record)) {
    return RESULT_INVALID_ARGUMENT;
  }
  std::memcpy(response, &record, sizeof(Wire));
  return Result::Ok;
}

/// Checks the buffers of a setter and decodes the request.
template <typename Wire, typename Typed>
Result receive(const void* request, std::size_t requestSize, std::size_t responseSize, Typed& value) {
  if (request == nullptr || requestSize != sizeof(Wire) || responseSize != 0) {
    return RESULT_MALFORMED_MESSAGE;
  }
  Wire record{};
  std::memcpy(&record, request, sizeof(Wire));
  return convert(record, value) ? Result::Ok : RESULT_INVALID_ARGUMENT;
}

float interlaceFactor(types::ScanHorizontalInterlaceMode mode) {
  switch (mode) {
    case types::ScanHorizontalInterlaceMode::INTERLACE_2:
      return 2.0F;
    case types::ScanHorizontalInterlaceMode::INTERLACE_3:
      return 3.0F;
    case types::ScanHorizontalInterlaceMode::INTERLACE_4:
      return 4.0F;
    case types::ScanHorizontalInterlaceMode::INTERLACE_8:
      return 8.0F;
    case types::ScanHorizontalInterlaceMode::NONE:
      break;
  }
  return 1.0F;
}

types::SensorSoftwareVersion makeVersion(std::uint16_t sensorId) {
  std::ostringstream serial;
  serial << "serial VSK-" << std::hex << std::setw(4) << std::setfill('0') << sensorId
         << " \u00b7 M\u00fcnchen";
  types::SensorSoftwareVersion version;
  version.text1 = "VESK-A application 3.2.1";
  version.text2 = "bootloader 1.0.7 \u00a9 2024 Kov\u00e1\u00e7";
  version.text3 = "FPGA r\u00e9v. B\u00bd, calibration \u00b10.05\u00b0";
  version.text4 = serial.str();
  return version;
}

}  // namespace

SimulatedSensor::SimulatedSensor(std::uint16_t sensorId, bool legacy, const FleetConfig& config,
                                 Clock::time_point now)
    : sensorId_(sensorId), legacy_(legacy), heartbeatPeriod_(config.heartbeatPeriod), mode_(config.modeStep) {
  desired_.frameRate = 10.0F;
  scanDatum_.elevation = floatToNetworkByteOrder(0.0F);
  pattern_.commands.push_back(std::make_unique<types::ScanPattern::PointCommand>(0.0F, 0.0F, 0));
  patternStatus_ = types::ScanPatternCommandStatus::ACCEPTED;
  destination_.ipAddress = "239.255.0.1";
  destination_.port = static_cast<std::uint16_t>(51000U + sensorId);
  version_ = makeVersion(sensorId);
  std::lock_guard<std::mutex> lock(mutex_);
  poweredOn_ = now;
  nextHeartbeat_ = now + heartbeatPeriod_;
  mode_.reboot(now);
}

void SimulatedSensor::reboot(Clock::time_point now) {
  std::lock_guard<std::mutex> lock(mutex_);
  poweredOn_ = now;
  nextHeartbeat_ = now + heartbeatPeriod_;
  mode_.reboot(now);
  achieved_ = {};
}

std::size_t SimulatedSensor::responseSizeOf(std::uint16_t serviceId, std::uint16_t methodId) {
  switch ((static_cast<std::uint32_t>(serviceId) << 16) | methodId) {
    case (MODE_SERVICE << 16) | 0x8001:
      return sizeof(wire::SystemModeStatus);
    case (SCAN_SERVICE << 16) | 0x8001:
      return sizeof(wire::ScanSettings);
    case (SCAN_SERVICE << 16) | 0x8003:
      return sizeof(wire::ScanDatum);
    case (SCAN_SERVICE << 16) | 0x8006:
      return sizeof(wire::ScanSettingsStatus);
    case (SCAN_SERVICE << 16) | 0x8007:
      return sizeof(wire::ScanPatternError);
    case (INFO_SERVICE << 16) | 0x0008:
      return sizeof(wire::SoftwareApplicationInfo);
    case (INFO_SERVICE << 16) | 0x000A:
      return sizeof(wire::DatapathDestinationInfo);
    default:
      return 0;
  }
}

Result SimulatedSensor::handleCall(std::uint16_t serviceId, std::uint16_t methodId, const void* request,
                                   std::size_t requestSize, void* response, std::size_t responseSize,
                                   std::vector<OutgoingEvent>& events) {
  std::lock_guard<std::mutex> lock(mutex_);
  switch (serviceId) {
    case MODE_SERVICE:
      return handleModeService(methodId, request, requestSize, response, responseSize, events);
    case SCAN_SERVICE:
      return handleScanService(methodId, request, requestSize, response, responseSize, events);
    case INFO_SERVICE:
      return handleInfoService(methodId, request, requestSize, response, responseSize, events);
    default:
      return RESULT_UNKNOWN_SERVICE;
  }
}

Result SimulatedSensor::handleModeService(std::uint16_t methodId, const void* request,
                                          std::size_t requestSize, void* response, std::size_t responseSize,
                                          std::vector<OutgoingEvent>& events) {
  switch (methodId) {
    case 0x8001:
      return answer<wire::SystemModeStatus>(mode_.status(), requestSize, response, responseSize);
    case 0x8002: {
      types::SystemModeCommand command{};
      const Result result = receive<wire::SystemModeCommand>(request, requestSize, responseSize, command);
      if (result != Result::Ok) {
        return result;
      }
      const auto before = mode_.status();
      mode_.command(command, Clock::now());
      if (mode_.status() != before) {
        modeChangedLocked(mode_.status(), events);
      }
      return Result::Ok;
    }
    default:
      return RESULT_UNKNOWN_METHOD;
  }
}

Result SimulatedSensor::handleScanService(std::uint16_t methodId, const void* request,
                                          std::size_t requestSize, void* response, std::size_t responseSize,
                                          std::vector<OutgoingEvent>& events) {
  switch (methodId) {
    case 0x8001:
      return answer<wire::ScanSettings>(desired_, requestSize, response, responseSize);
    case 0x8002: {
      types::DesiredScanSettings settings{};
      const Result result = receive<wire::ScanSettings>(request, requestSize, responseSize, settings);
      if (result != Result::Ok) {
        return result;
      }
      if (!(settings.frameRate >= 1.0F && settings.frameRate <= 30.0F)) {
        return RESULT_INVALID_ARGUMENT;
      }
      desired_ = settings;
      updateAchievedLocked(events);
      return Result::Ok;
    }
    case 0x8003:
      if (requestSize != 0 || response == nullptr || responseSize != sizeof(wire::ScanDatum)) {
        return RESULT_MALFORMED_MESSAGE;
      }
      std::memcpy(response, &scanDatum_, sizeof(scanDatum_));
      return Result::Ok;
    case 0x8004: {
      if (request == nullptr || requestSize != sizeof(wire::ScanDatum) || responseSize != 0) {
        return RESULT_MALFORMED_MESSAGE;
      }
      wire::ScanDatum datum{};
      std::memcpy(&datum, request, sizeof(datum));
      const float radians = floatToHostByteOrder(datum.elevation);
      if (!(radians >= DATUM_MIN_RADIANS && radians <= DATUM_MAX_RADIANS)) {
        return RESULT_INVALID_ARGUMENT;
      }
      if (datum.elevation != scanDatum_.elevation) {
        scanDatum_ = datum;
        events.push_back(scanDatumEventLocked());
      }
      return Result::Ok;
    }
    case 0x8005:
      if (request == nullptr || requestSize != sizeof(wire::ScanPattern) || responseSize != 0) {
        return RESULT_MALFORMED_MESSAGE;
      }
      return setScanPatternLocked(request, events);
    case 0x8006:
      return answer<wire::ScanSettingsStatus>(achieved_, requestSize, response, responseSize);
    case 0x8007:
      return answer<wire::ScanPatternError>(patternStatus_, requestSize, response, responseSize);
    default:
      return RESULT_UNKNOWN_METHOD;
  }
}

Result SimulatedSensor::handleInfoService(std::uint16_t methodId, const void* request,
                                          std::size_t requestSize, void* response, std::size_t responseSize,
                                          std::vector<OutgoingEvent>& /*events*/) {
  switch (methodId) {
    case 0x0008:
      return answer<wire::SoftwareApplicationInfo>(version_, requestSize, response, responseSize);
    case 0x000A:
      return answer<wire::DatapathDestinationInfo>(destination_, requestSize, response, responseSize);
    case 0x000B: {
      types::DatapathDestinationInfo destination;
      const Result result =
          receive<wire::DatapathDestinationInfo>(request, requestSize, responseSize, destination);
      if (result != Result::Ok) {
        return result;
      }
      if (destination.port == 0 || destination.ipAddress == "0.0.0.0") {
        return RESULT_INVALID_ARGUMENT;
      }
      destination_ = destination;
      return Result::Ok;
    }
    default:
      return RESULT_UNKNOWN_METHOD;
  }
}

Result SimulatedSensor::setScanPatternLocked(const void* request, std::vector<OutgoingEvent>& events) {
  // Both records are large: keep them off the caller's stack.
  auto record = std::make_unique<wire::ScanPattern>();
  std::memcpy(record.get(), request, sizeof(wire::ScanPattern));
  types::ScanPattern pattern;
  bool accepted = convert(*record, pattern) && !pattern.commands.empty();
  for (const auto& command : pattern.commands) {
    const auto* point = dynamic_cast<const types::ScanPattern::PointCommand*>(command.get());
    if (point != nullptr && (std::fabs(point->azimuth) > 90.0F + POINT_TOLERANCE_DEGREES ||
                             point->elevation < -18.0F - POINT_TOLERANCE_DEGREES ||
                             point->elevation > 10.0F + POINT_TOLERANCE_DEGREES)) {
      accepted = false;
    }
  }
  if (accepted) {
    pattern_ = std::move(pattern);
  }
  patternStatus_ =
      accepted ? types::ScanPatternCommandStatus::ACCEPTED : types::ScanPatternCommandStatus::REJECTED;
  // Every command gets its status published, whether or not it differs from the last one.
  events.push_back(patternStatusEventLocked());
  return Result::Ok;
}

std::vector<OutgoingEvent> SimulatedSensor::tick(Clock::time_point now) {
  std::vector<OutgoingEvent> events;
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto status : mode_.advance(now)) {
    modeChangedLocked(status, events);
  }
  if (now >= nextHeartbeat_) {
    events.push_back(heartbeatEventLocked(now));
    while (nextHeartbeat_ <= now) {
      nextHeartbeat_ += heartbeatPeriod_;
    }
  }
  return events;
}

std::vector<OutgoingEvent> SimulatedSensor::initialEvents(std::uint16_t serviceId) const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (serviceId == MODE_SERVICE) {
    return {modeStatusEventLocked()};
  }
  if (serviceId == SCAN_SERVICE) {
    return {achievedEventLocked(), scanDatumEventLocked(), patternStatusEventLocked()};
  }
  return {};
}

void SimulatedSensor::modeChangedLocked(types::SystemModeStatus status, std::vector<OutgoingEvent>& events) {
  wire::SystemModeStatus record{};
  if (convert(status, record)) {
    events.push_back(OutgoingEvent{MODE_SERVICE, 1, bytesOf(record)});
  }
  updateAchievedLocked(events);
}

void SimulatedSensor::updateAchievedLocked(std::vector<OutgoingEvent>& events) {
  types::AchievedScanSettings now{};
  if (mode_.phase() == ModeSequencer::Phase::Scanning) {
    now.value1 = desired_.frameRate;
    now.value2 = 64.0F * interlaceFactor(desired_.horizontalInterlaceMode);
  }
  if (now.value1 != achieved_.value1 || now.value2 != achieved_.value2) {
    achieved_ = now;
    events.push_back(achievedEventLocked());
  }
}

OutgoingEvent SimulatedSensor::modeStatusEventLocked() const {
  wire::SystemModeStatus record{};
  convert(mode_.status(), record);
  return OutgoingEvent{MODE_SERVICE, 1, bytesOf(record)};
}

OutgoingEvent SimulatedSensor::achievedEventLocked() const {
  wire::ScanSettingsStatus record{};
  convert(achieved_, record);
  return OutgoingEvent{SCAN_SERVICE, 1, bytesOf(record)};
}

OutgoingEvent SimulatedSensor::scanDatumEventLocked() const {
  return OutgoingEvent{SCAN_SERVICE, 2, bytesOf(scanDatum_)};
}

OutgoingEvent SimulatedSensor::patternStatusEventLocked() const {
  wire::ScanPatternError record{};
  convert(patternStatus_, record);
  return OutgoingEvent{SCAN_SERVICE, 3, bytesOf(record)};
}

OutgoingEvent SimulatedSensor::heartbeatEventLocked(Clock::time_point now) const {
  const auto phase = mode_.phase();
  const float uptime = std::chrono::duration<float>(now - poweredOn_).count();
  types::SensorHealthStatus health{};
  health.value1 = 38.5F + (phase == ModeSequencer::Phase::Scanning ? 4.0F : 0.0F);  // housing, degrees C
  health.value2 = 12.1F;                                                            // supply, volts
  health.value3 = uptime;                                                           // seconds
  health.mode = mode_.status();
  health.flag1 = phase == ModeSequencer::Phase::Scanning;  // laser emitting
  health.flag2 = phase == ModeSequencer::Phase::SpinningUp || phase == ModeSequencer::Phase::Scanning ||
                 phase == ModeSequencer::Phase::SpinningDown;  // mirror moving
  health.flag3 = phase != ModeSequencer::Phase::Booting;       // self test passed
  health.flag4 = true;                                         // time synchronised
  health.flag5 = mode_.parked();                               // parked after shutdown
  wire::SystemHeartbeatAppRecord record{};
  convert(health, record);
  return OutgoingEvent{MODE_SERVICE, 2, bytesOf(record)};
}

}  // namespace kov::tools::simulator
