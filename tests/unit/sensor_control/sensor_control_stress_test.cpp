#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <thread>

#include <unistd.h>

#include "support/log_capture.hpp"
#include "support/recording_transport.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace kov::test {
namespace {

namespace vesk = kov::drivers::lidar::vesk;
using ClientPtr = std::shared_ptr<vesk::ISensorControl::IClient>;

constexpr std::uint16_t FIRST_SENSOR = 0x100;
constexpr std::uint16_t SENSORS = 16;
// Service, event id and size: every event whole, and one too short.
constexpr std::array<std::array<std::uint16_t, 3>, 6> EVENTS{
    {{3, 1, 8}, {3, 2, 4}, {3, 3, 1}, {2, 1, 1}, {2, 2, 22}, {3, 1, 3}}};

// Reports, events and getters run on their own threads all along while the main thread stops and
// restarts the object in the middle of them, then tears it down under the same load.
TEST(SensorControlStress, FlappingSensorsWithEventsGettersStopsAndTeardown) {
  alarm(240);               // a deadlock ends the program instead of hanging it
  const LoggerScope quiet;  // readers log a warning for each call on an unavailable service
  auto transport = std::make_shared<RecordingTransport>();
  {
    auto control = vesk::makeSensorControlA(transport);
    std::mutex registryMutex;
    std::map<std::uint16_t, ClientPtr> registry;
    std::atomic<int> announcements{0};
    const auto subscription = control->subscribe([&](const ClientPtr& client, const auto&) {
      ++announcements;
      std::scoped_lock lock(registryMutex);
      registry[client->getSensorId()] = client;
    });
    ASSERT_TRUE(control->init());
    const auto waitFor = [](const std::atomic<int>& count, int more) {
      for (int wait = 0, from = count; wait < 2000 && count < from + more; ++wait)
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    };

    std::atomic<bool> finish{false};
    std::atomic<int> delivered{0};
    std::vector<std::thread> threads;
    // Each thread walks the sensors in the same order, so first reports of a sensor collide.
    const auto spawn = [&](std::function<void(unsigned, std::uint16_t)> perSensor) {
      threads.emplace_back([&, perSensor] {
        for (unsigned round = 0; !finish; ++round) {
          for (std::uint16_t sensor = FIRST_SENSOR; sensor < FIRST_SENSOR + SENSORS; ++sensor)
            perSensor(round, sensor);
        }
      });
    };
    for (unsigned reporter = 0; reporter < 3; ++reporter) {
      spawn([&, reporter](unsigned round, std::uint16_t sensor) {
        for (std::uint16_t service = 2; service <= 4; ++service) {
          transport->reportAvailability({service, sensor},
                                        ((round + reporter + sensor + service) & 1U) == 0U);
        }
      });
    }
    for (std::uint8_t fill = 0; fill < 2; ++fill) {
      spawn([&, payload = std::vector<std::uint8_t>(22, fill)](unsigned, std::uint16_t sensor) {
        for (const auto& [service, id, size] : EVENTS)
          delivered += transport->deliverEvent({service, sensor}, id, payload.data(), size) ? 1 : 0;
      });
      // Events keep arriving: read whole records under the client's event lock.
      spawn([&](unsigned, std::uint16_t sensor) {
        std::unique_lock lock(registryMutex);
        const auto found = registry.find(sensor);
        const ClientPtr client = found == registry.end() ? nullptr : found->second;
        lock.unlock();
        if (auto* methods = dynamic_cast<vesk::ISensorControl::IClientA*>(client.get())) {
          vesk::types::DesiredScanSettings settings{};
          vesk::types::ScanDatum datum{};
          static_cast<void>(client->getServiceAvailability());
          static_cast<void>(methods->getDesiredScanSettings(settings));
          methods->copyEvent(datum);  // while events store it: a race ThreadSanitizer sees
        }
      });
    }

    // After a successful stop no client is available and no event subscription is left.
    for (int cycle = 0; cycle < 40; ++cycle) {
      ASSERT_TRUE(control->start());
      waitFor(announcements, 40);  // some reports, then a stop in the middle of them
      ASSERT_TRUE(control->stop());
      transport->takeCalls();  // keeps the record of calls short
      EXPECT_EQ(transport->eventSubscriptionCount(), 0U) << "cycle " << cycle;
      std::scoped_lock lock(registryMutex);
      for (const auto& entry : registry)
        EXPECT_FALSE(entry.second->hasAvailableService()) << "cycle " << cycle;
    }

    ASSERT_TRUE(control->start());
    // One reporter's 48 reports in a row name every sensor: every sensor has a client by now.
    waitFor(announcements, 3 * 48);
    // Tear down while reports, events and readers are still running.
    EXPECT_TRUE(control->stop());
    EXPECT_TRUE(control->shutdown());
    control.reset();
    finish = true;
    for (auto& thread : threads)
      thread.join();
    EXPECT_GT(delivered, 0) << "no event reached a client";
    EXPECT_EQ(registry.size(), SENSORS);
  }
  alarm(0);
}

TEST(SensorControlRace, SimultaneousFirstReportsOfOneSensorShareOneClient) {
  alarm(240);
  int lostRaces = 0;
  for (int trial = 0; trial < 2000 && lostRaces == 0; ++trial) {
    auto transport = std::make_shared<RecordingTransport>();
    auto control = vesk::makeSensorControlA(transport);
    std::mutex seenMutex;
    std::vector<const void*> seen;
    const auto subscription = control->subscribe([&](const ClientPtr& client, const auto&) {
      std::scoped_lock lock(seenMutex);
      seen.push_back(client.get());
    });
    ASSERT_TRUE(control->start());
    std::atomic<int> ready{0};
    const auto report = [&](std::uint16_t service) {
      for (++ready; ready < 2;)
        std::this_thread::yield();
      transport->reportAvailability({service, 0x77}, true);
    };
    std::thread first(report, 2), second(report, 3);
    first.join();
    second.join();
    lostRaces += (seen.size() != 2U || seen[0] != seen[1]) ? 1 : 0;
    EXPECT_TRUE(control->stop());
  }
  alarm(0);
  EXPECT_EQ(lostRaces, 0) << "both first reports of one sensor must reach the one client";
}

}  // namespace
}  // namespace kov::test
