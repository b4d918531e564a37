#include "sensor_host.hpp"

#include <algorithm>

#include "common/log/log.hpp"
#include "process/kov_platform_posix_process.hpp"

namespace kov::tools::sensord {

namespace someip = kov::platform::networking::someip;
using kov::tools::simulator::OutgoingEvent;
using kov::tools::simulator::Result;
using kov::tools::simulator::SimulatedSensor;
using someip::ReturnCode;

namespace {

constexpr const char* LOG_PATH = "tools/sensord/src/sensor_host.cpp";

/// Services, with the event group and event ids of those that publish events.
struct ServiceEvents {
  std::uint16_t serviceId;
  std::uint16_t eventgroupId;
  std::vector<std::uint16_t> eventIds;
};
const std::vector<ServiceEvents>& services() {
  static const std::vector<ServiceEvents> table{
      {0x0002, 0x0002, {1, 2}}, {0x0003, 0x0003, {1, 2, 3}}, {0x0004, 0, {}}};
  return table;
}

/// The sensor model's failure codes become SOME/IP return codes; its "invalid argument" (0x20) is the
/// first service-specific code.
ReturnCode toReturnCode(Result result) {
  switch (static_cast<std::uint32_t>(result)) {
    case 0x00:
      return ReturnCode::E_OK;
    case 0x02:
      return ReturnCode::E_UNKNOWN_SERVICE;
    case 0x03:
      return ReturnCode::E_UNKNOWN_METHOD;
    case 0x04:
      return ReturnCode::E_NOT_READY;
    case 0x09:
      return ReturnCode::E_MALFORMED_MESSAGE;
    case 0x20:
      return static_cast<ReturnCode>(0x20);
    default:
      return ReturnCode::E_NOT_OK;
  }
}

}  // namespace

SensorHost::SensorHost(std::shared_ptr<someip::SomeIpTransport> transport,
                       const kov::tools::simulator::FleetConfig& config)
    : transport_(std::move(transport)),
      tickPeriod_(std::clamp(std::min(config.modeStep, config.heartbeatPeriod) / 5,
                             std::chrono::milliseconds(1), std::chrono::milliseconds(20))) {
  const auto now = SimulatedSensor::Clock::now();
  for (const auto id : config.sensorIds) {
    sensors_.emplace(id, std::make_unique<SimulatedSensor>(id, false, config, now));
  }
}

SensorHost::~SensorHost() {
  stop();
}

bool SensorHost::start() {
  transport_->setRequestHandler([this](const Address& address, std::uint16_t methodId,
                                       const std::uint8_t* payload, std::size_t size,
                                       std::vector<std::uint8_t>& response) {
    return onRequest(address, methodId, payload, size, response);
  });
  for (const auto& [id, sensor] : sensors_) {
    for (const auto& service : services()) {
      const Address address{service.serviceId, id};
      if (!transport_->offerService(address)) {
        KOV_LOG(ERROR, LOG_PATH) << "Failed to offer service [0x" << std::hex << service.serviceId << ",0x"
                                 << id << "]";
        return false;
      }
      if (service.eventgroupId != 0) {
        transport_->offerEvent(address, service.eventgroupId, service.eventIds);
        publish(*sensor, sensor->initialEvents(service.serviceId));
      }
    }
  }
  ticker_ = std::thread([this] { tickLoop(); });
  return true;
}

void SensorHost::stop() {
  {
    std::lock_guard<std::mutex> lock(tickMutex_);
    if (stopping_) {
      return;
    }
    stopping_ = true;
  }
  tickWake_.notify_all();
  if (ticker_.joinable()) {
    ticker_.join();
  }
  for (const auto& [id, sensor] : sensors_) {
    for (const auto& service : services()) {
      transport_->stopOfferService(Address{service.serviceId, id});
    }
  }
  transport_->setRequestHandler(nullptr);
}

ReturnCode SensorHost::onRequest(const Address& address, std::uint16_t methodId, const std::uint8_t* payload,
                                 std::size_t size, std::vector<std::uint8_t>& response) {
  const auto it = sensors_.find(address.instanceId);
  if (it == sensors_.end()) {
    return ReturnCode::E_UNKNOWN_SERVICE;
  }
  response.assign(SimulatedSensor::responseSizeOf(address.serviceId, methodId), 0);
  std::vector<OutgoingEvent> events;
  const Result result =
      it->second->handleCall(address.serviceId, methodId, size == 0 ? nullptr : payload, size,
                             response.empty() ? nullptr : response.data(), response.size(), events);
  publish(*it->second, std::move(events));
  return toReturnCode(result);
}

void SensorHost::publish(const SimulatedSensor& sensor, std::vector<OutgoingEvent> events) {
  for (const auto& event : events) {
    transport_->notifyEvent(Address{event.serviceId, sensor.sensorId()}, event.eventId, event.payload.data(),
                            event.payload.size());
  }
}

void SensorHost::tickLoop() {
  kov::platform::process::setNameOfCurrentThread("sensord-tick");
  std::unique_lock<std::mutex> lock(tickMutex_);
  while (!stopping_) {
    lock.unlock();
    const auto now = SimulatedSensor::Clock::now();
    for (const auto& [id, sensor] : sensors_) {
      publish(*sensor, sensor->tick(now));
    }
    lock.lock();
    tickWake_.wait_for(lock, tickPeriod_, [this] { return stopping_; });
  }
}

}  // namespace kov::tools::sensord
