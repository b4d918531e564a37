#pragma once

#include <cstdint>
#include <memory>
#include <unordered_set>

#include "networking/i_some_ip_transport.hpp"
#include "vesk/i_sensor_control.hpp"

namespace kov::drivers::lidar::vesk {

/// The SOME/IP service ids of one sensor: 0x0002, 0x0003, 0x0004.
std::unordered_set<std::uint16_t> getVeskAServiceIds();

/// A sensor-control object over `transport` with a custom client factory and service set;
/// empty (and logged) when the transport or the factory is empty.
std::unique_ptr<ISensorControl> makeSensorControl(
    std::shared_ptr<kov::platform::networking::ISomeIpTransport> transport, ClientFactory clientFactory,
    std::unordered_set<std::uint16_t> serviceIds);

/// A sensor-control object for this sensor family over `transport`; empty (and logged) on failure.
std::unique_ptr<ISensorControl> makeSensorControlA(
    std::shared_ptr<kov::platform::networking::ISomeIpTransport> transport);

namespace detail {
/// The default client factory: a new ClientA for `sensorId`; empty (and logged) without a transport.
std::shared_ptr<ISensorControl::IClient> makeSensorControlClientA(
    std::shared_ptr<kov::platform::networking::ISomeIpTransport> transport, std::uint16_t sensorId);
}  // namespace detail

}  // namespace kov::drivers::lidar::vesk
