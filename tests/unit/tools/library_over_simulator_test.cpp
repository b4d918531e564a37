// The library driven through the simulated fleet: discovery of every sensor, and every injected fault
// answered with its log line and a false result, after which the library carries on.

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <thread>

#include "simulator/event_lock_transport.hpp"
#include "simulator/simulated_fleet.hpp"
#include "support/log_capture.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace {

namespace vesk = kov::drivers::lidar::vesk;
namespace types = kov::drivers::lidar::vesk::types;
using kov::tools::simulator::EventLockTransport;
using kov::tools::simulator::FleetConfig;
using kov::tools::simulator::SimulatedFleet;
using Result = kov::platform::networking::ISomeIpTransport::Result;
using namespace std::chrono_literals;

constexpr auto BOUND = 5000ms;

class LibraryOverSimulatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FleetConfig config;
    config.sensorIds = {0x10, 0x11};
    config.legacySensor = true;
    config.modeStep = 10ms;
    config.heartbeatPeriod = 20ms;
    config.callTimeout = 5ms;
    config.discoveryDelay = 1ms;
    fleet_ = std::make_shared<SimulatedFleet>(config);
    transport_ = std::make_shared<EventLockTransport>(fleet_);
    control_ = vesk::makeSensorControlA(transport_);
    ASSERT_TRUE(control_);
    ASSERT_TRUE(control_->init());
    subscription_ = control_->subscribe([this](const auto& client, const auto&) {
      std::lock_guard<std::mutex> lock(mutex_);
      clients_[client->getSensorId()] = client;
    });
    ASSERT_TRUE(control_->start());
    ASSERT_TRUE(waitUntil([this] {
      std::lock_guard<std::mutex> lock(mutex_);
      std::size_t ready = 0;
      for (const auto& entry : clients_) {
        ready += entry.second->isAvailable(2) && entry.second->isAvailable(3) && entry.second->isAvailable(4);
      }
      return ready == 3;
    }));
    ASSERT_TRUE(fleet_->drain(BOUND));
  }

  void TearDown() override {
    if (control_) {
      EXPECT_TRUE(control_->stop());
      EXPECT_TRUE(control_->shutdown());
    }
  }

  template <typename Predicate>
  static bool waitUntil(Predicate predicate) {
    const auto deadline = std::chrono::steady_clock::now() + BOUND;
    while (!predicate()) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      std::this_thread::sleep_for(2ms);
    }
    return true;
  }

  std::shared_ptr<vesk::ISensorControl::IClient> client(std::uint16_t id) {
    std::lock_guard<std::mutex> lock(mutex_);
    return clients_.at(id);
  }
  std::shared_ptr<vesk::ISensorControl::IClientA> control(std::uint16_t id) {
    return std::dynamic_pointer_cast<vesk::ISensorControl::IClientA>(client(id));
  }

  kov::test::LogCapture capture_;  // first: installed before any thread logs
  std::shared_ptr<SimulatedFleet> fleet_;
  std::shared_ptr<EventLockTransport> transport_;
  std::unique_ptr<vesk::ISensorControl> control_;
  std::shared_ptr<vesk::ISensorControl::Subscription> subscription_;
  std::mutex mutex_;
  std::map<std::uint16_t, std::shared_ptr<vesk::ISensorControl::IClient>> clients_;
};

TEST_F(LibraryOverSimulatorTest, DiscoversEverySensorAndTheLegacyOneUnderOneClient) {
  using Address = kov::platform::networking::ISomeIpTransport::Address;
  std::lock_guard<std::mutex> lock(mutex_);
  ASSERT_EQ(clients_.size(), 3U);
  EXPECT_EQ(clients_.count(0x10) + clients_.count(0x11), 2U);
  // The legacy sensor's addresses {2,2} {3,3} {4,4} share one client, named after the first one reported.
  const auto legacy = clients_.begin()->second;
  EXPECT_GE(legacy->getSensorId(), 2);
  EXPECT_LE(legacy->getSensorId(), 4);
  EXPECT_EQ(legacy->getServiceAddresses(), (std::unordered_set<Address>{{2, 2}, {3, 3}, {4, 4}}));
  EXPECT_EQ(capture_.count("DEBUG", "SensorControl discovered new sensor [0x10]"), 1U);
  EXPECT_EQ(capture_.count("DEBUG", "SensorControl discovered new sensor [0x11]"), 1U);
}

TEST_F(LibraryOverSimulatorTest, CallFaultsFailOnceWithTheirLogLineAndThenCallsSucceedAgain) {
  auto sensor = control(0x10);
  types::DesiredScanSettings settings{99.0F, {}, {}, {}};
  ASSERT_TRUE(fleet_->failNextCalls(0x10, 3, 0x8001, Result::Timeout));
  EXPECT_FALSE(sensor->getDesiredScanSettings(settings));
  EXPECT_EQ(settings.frameRate, 99.0F) << "a failed getter leaves the record alone";
  EXPECT_EQ(capture_.count("WARN", "cannot call method 0x8001: SOME/IP transport timed out"), 1U);
  EXPECT_TRUE(sensor->getDesiredScanSettings(settings));
  EXPECT_EQ(settings.frameRate, 10.0F);

  ASSERT_TRUE(fleet_->failNextCalls(0x10, 3, 0x8007, static_cast<Result>(0x12)));
  types::ScanPatternCommandStatus status{};
  EXPECT_FALSE(sensor->getScanPatternCommandStatus(status));
  EXPECT_EQ(capture_.count("ERROR", "cannot call method 0x8007: SOME/IP transport failed with code \"12\""),
            1U);
  EXPECT_TRUE(sensor->getScanPatternCommandStatus(status));
  EXPECT_EQ(status, types::ScanPatternCommandStatus::ACCEPTED);

  // The sensor itself refusing a value: a failure code from the device, not from the library's checks.
  ASSERT_TRUE(fleet_->failNextCalls(0x11, 4, 0x000B, static_cast<Result>(0x20)));
  EXPECT_FALSE(control(0x11)->setDatapathDestinationInfo({"10.0.0.7", 2368}));
  EXPECT_EQ(capture_.count("ERROR", "cannot call method 0xb: SOME/IP transport failed with code \"20\""), 1U);
  EXPECT_TRUE(control(0x11)->setDatapathDestinationInfo({"10.0.0.7", 2368}));
  types::DatapathDestinationInfo destination;
  EXPECT_TRUE(control(0x11)->getDatapathDestinationInfo(destination));
  EXPECT_EQ(destination.ipAddress, "10.0.0.7");
  EXPECT_EQ(destination.port, 2368);
}

TEST_F(LibraryOverSimulatorTest, SensorOfflineRefusesCallsWithoutTransportAndComesBackBooting) {
  auto sensor = control(0x10);
  ASSERT_TRUE(fleet_->setSensorOnline(0x10, false));
  ASSERT_TRUE(waitUntil([&] { return !client(0x10)->hasAvailableService(); }));
  ASSERT_TRUE(fleet_->drain(BOUND));
  EXPECT_TRUE(client(0x11)->hasAvailableService()) << "only the one sensor went away";
  EXPECT_FALSE(sensor->setSystemMode(types::SystemModeCommand::SCANNING));
  EXPECT_EQ(capture_.count("WARN", "Service 0x2 not available"), 1U);
  EXPECT_EQ(
      capture_.count("DEBUG",
                     "const kov::drivers::lidar::vesk::types::SystemModeCommand& not supported/available on "
                     "this client - not calling the transport"),
      1U);

  ASSERT_TRUE(fleet_->setSensorOnline(0x10, true));
  ASSERT_TRUE(waitUntil([&] { return client(0x10)->isAvailable(2) && client(0x10)->isAvailable(3); }));
  EXPECT_TRUE(sensor->setSystemMode(types::SystemModeCommand::SCANNING));
  EXPECT_TRUE(waitUntil([&] {
    std::lock_guard<std::mutex> lock(transport_->eventLock());
    return sensor->getSystemModeStatusEvent() == types::SystemModeStatus::SCANNING &&
           sensor->getSensorHealthStatusEvent().mode == types::SystemModeStatus::SCANNING;
  }));
}

TEST_F(LibraryOverSimulatorTest, MalformedEventsAreDroppedWithTheirDebugLines) {
  auto sensor = control(0x10);
  ASSERT_TRUE(sensor->setScanDatum(types::ScanDatum{-4.0F}));
  ASSERT_TRUE(fleet_->drain(BOUND));
  const auto datumNow = [&] {
    std::lock_guard<std::mutex> lock(transport_->eventLock());
    return sensor->getScanDatumEvent().elevation;
  };
  EXPECT_NEAR(datumNow(), -4.0F, 1e-4);

  const std::uint8_t heartbeat[18] = {7, 1, 1, 1, 1, 1};
  ASSERT_TRUE(fleet_->injectEvent(0x10, 2, 2, heartbeat, sizeof(heartbeat)));
  ASSERT_TRUE(fleet_->injectEvent(0x10, 3, 2, nullptr, 4));
  const std::uint8_t datum[5] = {};
  ASSERT_TRUE(fleet_->injectEvent(0x10, 3, 2, datum, sizeof(datum)));
  ASSERT_TRUE(fleet_->drain(BOUND));
  EXPECT_EQ(
      capture_.count("DEBUG",
                     "Got event for kov::drivers::lidar::vesk::types::SensorHealthStatus& but sizes do not "
                     "match: got 18 expected 22"),
      1U);
  EXPECT_EQ(capture_.count("DEBUG", "Got event 0x2 with null data pointer - discarding it"), 1U);
  EXPECT_EQ(capture_.count(
                "DEBUG",
                "Got event for kov::drivers::lidar::vesk::types::ScanDatum& but sizes do not match: got 5 "
                "expected 4"),
            1U);
  EXPECT_NEAR(datumNow(), -4.0F, 1e-4) << "dropped events leave the cache alone";

  // A well-formed event still goes through afterwards: 0.1 rad.
  const std::uint8_t good[4] = {0x3D, 0xCC, 0xCC, 0xCD};
  ASSERT_TRUE(fleet_->injectEvent(0x10, 3, 2, good, sizeof(good)));
  ASSERT_TRUE(fleet_->drain(BOUND));
  EXPECT_NEAR(datumNow(), 5.7296F, 1e-3);
}

}  // namespace
