#include <atomic>
#include <thread>
#include <vector>

#include "client_fixture.hpp"

namespace kov::test {
namespace {

namespace types = kov::drivers::lidar::vesk::types;
using Bytes = std::vector<std::uint8_t>;

// Floats travel big-endian: 1.0 = 3F800000, -2.0 = C0000000, 0.5 = 3F000000, 1.5 = 3FC00000, 2.5 = 40200000.
const Bytes HEARTBEAT = {14, 1, 0, 2, 0, 1, 0x3F, 0x80, 0, 0, 0xC0, 0, 0, 0, 0x3F, 0, 0, 0, 9, 9, 9, 9};
const Bytes ACHIEVED = {0x3F, 0xC0, 0, 0, 0x40, 0x20, 0, 0};

class EventTest : public ClientTest {
 protected:
  void SetUp() override {
    makeAvailable(2);
    makeAvailable(3);
    deliver(3, 1, ACHIEVED);
    deliver(3, 2, {0x3F, 0x80, 0, 0});  // 1 radian
    deliver(3, 3, {1});
    deliver(2, 1, {7});
    deliver(2, 2, HEARTBEAT);
  }

  void deliver(std::uint16_t serviceId, std::uint16_t eventId, const Bytes& payload) {
    handlers_.at(serviceId)(eventId, payload.data(), payload.size());
  }

  void expectCacheHoldsTheFirstEvents() {
    EXPECT_EQ(client_->getAchievedScanSettingsEvent().value1, 1.5F);
    EXPECT_EQ(client_->getAchievedScanSettingsEvent().value2, 2.5F);
    EXPECT_EQ(client_->getScanDatumEvent().elevation, 57.29578F);
    EXPECT_EQ(client_->getScanPatternCommandStatusEvent(), types::ScanPatternCommandStatus::REJECTED);
    EXPECT_EQ(client_->getSystemModeStatusEvent(), types::SystemModeStatus::STANDBY);
    const types::SensorHealthStatus health = client_->getSensorHealthStatusEvent();
    EXPECT_EQ(health.mode, types::SystemModeStatus::SCANNING);
    EXPECT_EQ(std::vector<bool>({health.flag1, health.flag2, health.flag3, health.flag4, health.flag5}),
              std::vector<bool>({true, false, true, false, true}));
    EXPECT_EQ(std::vector<float>({health.value1, health.value2, health.value3}),
              std::vector<float>({1, -2, 0.5}));
  }
};

TEST_F(EventTest, OnlyWholeKnownEventsReachTheCache) {
  expectCacheHoldsTheFirstEvents();
  EXPECT_TRUE(log_.lines().empty());

  deliver(2, 2, Bytes(18, 0));
  deliver(2, 2, Bytes(23, 0));
  handlers_.at(3)(2, nullptr, 4);
  deliver(2, 1, {15});  // no status symbol
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{
                "DEBUG: Got event for kov::drivers::lidar::vesk::types::SensorHealthStatus& but sizes "
                "do not match: got 18 expected 22",
                "DEBUG: Got event for kov::drivers::lidar::vesk::types::SensorHealthStatus& but sizes "
                "do not match: got 23 expected 22",
                "DEBUG: Got event 0x2 with null data pointer - discarding it",
                "ERROR: cannot convert kov::drivers::lidar::vesk::serialization::SystemModeStatus "
                "value \"15\" to kov::drivers::lidar::vesk::types::SystemModeStatus because target "
                "has no symbol for this value",
                "DEBUG: Failed to deserialize event 0x1 as "
                "kov::drivers::lidar::vesk::types::SystemModeStatus& - discarding it"}));

  // Unknown ids and services are dropped silently.
  log_.clear();
  const Bytes zeros(22, 0);
  deliver(3, 4, Bytes(4, 0));
  deliver(2, 3, Bytes(1, 0));
  client_->onEventReceived(4, 2, zeros.data(), 4);
  client_->onEventReceived(0x0102, 2, zeros.data(), 22);
  EXPECT_TRUE(log_.lines().empty());
  expectCacheHoldsTheFirstEvents();

  client_->resetEventData();
  EXPECT_EQ(client_->getAchievedScanSettingsEvent().value2, 0.0F);
  EXPECT_EQ(client_->getScanDatumEvent().elevation, 0.0F);
  EXPECT_EQ(client_->getScanPatternCommandStatusEvent(), types::ScanPatternCommandStatus::UNKNOWN);
  EXPECT_EQ(client_->getSystemModeStatusEvent(), types::SystemModeStatus::UNKNOWN);
  EXPECT_EQ(client_->getSensorHealthStatusEvent().mode, types::SystemModeStatus::UNKNOWN);
  EXPECT_FALSE(client_->getSensorHealthStatusEvent().flag1);
}

TEST_F(EventTest, ReadersSeeWholeRecordsWhileEventsArrive) {
  std::atomic<bool> torn{false};
  std::atomic<int> writersLeft{2};
  client_->resetEventData();  // the value delivered by SetUp carries two different values
  // Every achieved-settings payload carries one value twice; a reader must never see two values.
  auto writer = [&](std::uint8_t exponentByte) {
    Bytes payload(8, 0);
    for (int i = 0; i < 20000; ++i) {
      payload[0] = payload[4] = exponentByte;
      payload[1] = payload[5] = static_cast<std::uint8_t>(i);
      deliver(3, 1, payload);
      deliver(2, 2, HEARTBEAT);
      if (i % 1000 == 0) {
        client_->resetEventData();
      }
    }
    --writersLeft;
  };
  auto reader = [&] {
    while (writersLeft > 0) {
      const types::AchievedScanSettings& settings = client_->getAchievedScanSettingsEvent();
      const types::SensorHealthStatus& health = client_->getSensorHealthStatusEvent();
      if (settings.value1 != settings.value2 || (health.value1 != 0.0F && health.value3 != 0.5F)) {
        torn = true;
      }
    }
  };
  std::vector<std::thread> threads;
  threads.emplace_back(writer, 0x3F);
  threads.emplace_back(writer, 0x40);
  threads.emplace_back(reader);
  threads.emplace_back(reader);
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_FALSE(torn);
}

}  // namespace
}  // namespace kov::test
