#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "recording_transport.hpp"
#include "support/log_capture.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace kov::test {

using kov::drivers::lidar::vesk::ISensorControl;
using Address = kov::platform::networking::ISomeIpTransport::Address;
using ServiceSet = std::unordered_set<std::uint16_t>;

/// A sensor-control object over a RecordingTransport whose factory records its calls and makes ClientA
/// objects, with one subscriber that records every announcement.
class SensorControlTest : public ::testing::Test {
 protected:
  struct Announcement {
    std::shared_ptr<ISensorControl::IClient> client;
    ServiceSet services;
  };

  void SetUp() override {
    control = kov::drivers::lidar::vesk::makeSensorControl(
        transport,
        [this](std::shared_ptr<kov::platform::networking::ISomeIpTransport> given, std::uint16_t sensorId) {
          factoryCalls.push_back(sensorId);
          EXPECT_EQ(given, transport);
          if (failingSensors.count(sensorId) != 0U) {
            return std::shared_ptr<ISensorControl::IClient>();
          }
          return made[sensorId] =
                     kov::drivers::lidar::vesk::detail::makeSensorControlClientA(given, sensorId);
        },
        kov::drivers::lidar::vesk::getVeskAServiceIds());
    ASSERT_NE(control, nullptr);
    subscription = control->subscribe([this](const auto& client, const ServiceSet& services) {
      announced.push_back({client, services});
    });
  }

  /// The sensor's service ids in the order the service set yields them.
  static std::vector<std::uint16_t> serviceOrder() {
    const auto ids = kov::drivers::lidar::vesk::getVeskAServiceIds();
    return {ids.begin(), ids.end()};
  }

  /// "<operation> 0x<id>/0xffff" for every sensor service, in service set order.
  static std::vector<std::string> perService(const std::string& operation) {
    std::vector<std::string> lines;
    for (const auto id : serviceOrder()) {
      lines.push_back(operation + " " + addressText({id, 0xFFFF}));
    }
    return lines;
  }

  static std::vector<std::string> join(std::initializer_list<std::vector<std::string>> parts) {
    std::vector<std::string> all;
    for (const auto& part : parts) {
      all.insert(all.end(), part.begin(), part.end());
    }
    return all;
  }

  static std::string hex(std::uint16_t value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
  }

  LogCapture log;
  std::shared_ptr<RecordingTransport> transport = std::make_shared<RecordingTransport>();
  std::vector<std::uint16_t> factoryCalls;
  std::set<std::uint16_t> failingSensors;
  std::map<std::uint16_t, std::shared_ptr<ISensorControl::IClient>> made;
  std::vector<Announcement> announced;
  std::unique_ptr<ISensorControl> control;
  std::shared_ptr<ISensorControl::Subscription> subscription;
};

}  // namespace kov::test
