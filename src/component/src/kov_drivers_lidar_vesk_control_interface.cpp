#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

#include <utility>

#include "common/log/log.hpp"
#include "sensor_control/sensor_control.hpp"
#include "sensor_control_client/sensor_control_client.hpp"

namespace kov::drivers::lidar::vesk {

namespace {

using kov::platform::networking::ISomeIpTransport;

constexpr const char* LOG_PATH = "src/component/src/kov_drivers_lidar_vesk_control_interface";

}  // namespace

std::unordered_set<std::uint16_t> getVeskAServiceIds() {
  std::unordered_set<std::uint16_t> serviceIds(3);
  serviceIds.insert(0x0002);
  serviceIds.insert(0x0003);
  serviceIds.insert(0x0004);
  return serviceIds;
}

std::unique_ptr<ISensorControl> makeSensorControl(std::shared_ptr<ISomeIpTransport> transport,
                                                  ClientFactory clientFactory,
                                                  std::unordered_set<std::uint16_t> serviceIds) {
  if (!transport || !clientFactory) {
    KOV_LOG(ERROR, LOG_PATH) << "Unable to create SensorControl: invalid parameter(s).";
    return nullptr;
  }
  return std::make_unique<SensorControl>(std::move(transport), std::move(clientFactory),
                                         std::move(serviceIds));
}

std::unique_ptr<ISensorControl> makeSensorControlA(std::shared_ptr<ISomeIpTransport> transport) {
  ClientFactory factory = detail::makeSensorControlClientA;
  return makeSensorControl(std::move(transport), std::move(factory), getVeskAServiceIds());
}

namespace detail {

std::shared_ptr<ISensorControl::IClient> makeSensorControlClientA(std::shared_ptr<ISomeIpTransport> transport,
                                                                  std::uint16_t sensorId) {
  if (!transport) {
    KOV_LOG(ERROR, LOG_PATH) << "Unable to create SensorControl's ClientA: invalid parameter(s).";
    return nullptr;
  }
  return std::make_shared<ClientA>(std::move(transport), sensorId);
}

}  // namespace detail

}  // namespace kov::drivers::lidar::vesk
