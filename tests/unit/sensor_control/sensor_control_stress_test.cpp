#include <gtest/gtest.h>

#include <array>
#include <atomic>
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

// Reports, events and getters run on their own threads all along while the main thread stops and
// restarts the object in the middle of them, then tears it down under the same load.
TEST(SensorControlStress, FlappingSensorsWithEventsGettersStopsAndTeardown) {
  alarm(240);  // a deadlock ends the program instead of hanging it
  constexpr int CYCLES = 40;
  const LoggerScope quiet;  // readers log a warning for each call on an unavailable service
  auto transport = std::make_shared<RecordingTransport>();
  transport->recordEvents = false;
  {
    auto control = vesk::makeSensorControlA(transport);
    std::mutex registryMutex;
    std::map<std::uint16_t, ClientPtr> registry;
    int foreignClients = 0;
    std::atomic<int> announcements{0};
    const auto subscription = control->subscribe([&](const ClientPtr& client, const auto&) {
      ++announcements;
      std::scoped_lock lock(registryMutex);
      auto& known = registry[client->getSensorId()];
      foreignClients += (known && known != client) ? 1 : 0;
      known = client;
    });
    ASSERT_TRUE(control->init());

    std::atomic<bool> finish{false};
    std::atomic<int> delivered{0};
    std::array<std::atomic<int>, 3> rounds{};
    std::vector<std::thread> threads;
    for (unsigned reporter = 0; reporter < rounds.size(); ++reporter) {
      // Every reporter walks the sensors in the same order, so first reports of a sensor collide.
      threads.emplace_back([&, reporter] {
        for (unsigned round = 0; !finish; ++round, ++rounds[reporter]) {
          for (std::uint16_t sensor = FIRST_SENSOR; sensor < FIRST_SENSOR + SENSORS; ++sensor) {
            for (std::uint16_t service = 2; service <= 4; ++service) {
              transport->reportAvailability({service, sensor},
                                            ((round + reporter + sensor + service) & 1U) == 0U);
            }
          }
        }
      });
    }
    // Service, event id and size: every event whole, and one too short.
    const std::array<std::array<std::uint16_t, 3>, 6> events{
        {{3, 1, 8}, {3, 2, 4}, {3, 3, 1}, {2, 1, 1}, {2, 2, 22}, {3, 1, 3}}};
    for (std::uint8_t fill = 0; fill < 2; ++fill) {
      threads.emplace_back([&, fill] {
        const std::vector<std::uint8_t> payload(22, fill);
        while (!finish) {
          for (std::uint16_t sensor = FIRST_SENSOR; sensor < FIRST_SENSOR + SENSORS; ++sensor) {
            for (const auto& [service, id, size] : events) {
              delivered += transport->deliverEvent({service, sensor}, id, payload.data(), size) ? 1 : 0;
            }
          }
        }
      });
    }
    for (int reader = 0; reader < 2; ++reader) {
      threads.emplace_back([&] {
        vesk::types::DesiredScanSettings settings{};
        vesk::types::ScanDatum datum{};
        vesk::types::SensorHealthStatus health{};
        vesk::types::SystemModeStatus mode{};
        while (!finish) {
          const auto clients = [&] {
            std::scoped_lock lock(registryMutex);
            return registry;
          }();
          for (const auto& entry : clients) {
            auto& methods = dynamic_cast<vesk::ISensorControl::IClientA&>(*entry.second);
            static_cast<void>(entry.second->getServiceAvailability());
            static_cast<void>(entry.second->hasAvailableService());
            static_cast<void>(methods.getDesiredScanSettings(settings));
            // Events keep arriving: read whole records under the client's event lock.
            methods.copyEvent(datum);
            methods.copyEvent(health);
            methods.copyEvent(mode);
          }
        }
      });
    }

    int availableAfterStop = 0;
    int subscriptionsAfterStop = 0;
    for (int cycle = 0; cycle < CYCLES; ++cycle) {
      ASSERT_TRUE(control->start());
      // Let some reports through (bounded) before stopping in the middle of them.
      const int before = announcements;
      for (int wait = 0; wait < 2000 && announcements < before + 40; ++wait) {
        std::this_thread::sleep_for(std::chrono::microseconds(500));
      }
      ASSERT_TRUE(control->stop());
      subscriptionsAfterStop += static_cast<int>(transport->eventSubscriptionCount());
      std::scoped_lock lock(registryMutex);
      for (const auto& entry : registry) {
        availableAfterStop += entry.second->hasAvailableService() ? 1 : 0;
      }
    }
    EXPECT_EQ(availableAfterStop, 0) << "clients available right after a successful stop";
    EXPECT_EQ(subscriptionsAfterStop, 0)
        << "event subscriptions left at the transport after a successful stop";

    ASSERT_TRUE(control->start());
    for (auto& count : rounds) {
      for (const int from = count; count < from + 30;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
    // Tear down while reports, events and readers are still running.
    EXPECT_TRUE(control->stop());
    EXPECT_TRUE(control->shutdown());
    control.reset();
    finish = true;
    for (auto& thread : threads) {
      thread.join();
    }
    EXPECT_GT(delivered, 0) << "no event reached a client";
    EXPECT_EQ(registry.size(), SENSORS);
    EXPECT_EQ(foreignClients, 0) << "one client per sensor";
    registry.clear();  // the last references: the clients unsubscribe their events now
  }
  alarm(0);
  EXPECT_EQ(transport->eventSubscriptionCount(), 0U);
  // connect; a start (availability and three requests) and a stop (three releases and the
  // withdrawal) per cycle and once more; shutdown's and the destructor's disconnect.
  const auto calls = transport->takeCalls();
  ASSERT_EQ(calls.size(), 1U + 8U * (CYCLES + 1) + 2U);
  EXPECT_EQ(calls.front(), "connect");
  EXPECT_EQ(std::vector<std::string>(calls.end() - 3, calls.end()),
            (std::vector<std::string>{"unsubscribeAvailability", "disconnect", "disconnect"}));
}

TEST(SensorControlRace, SimultaneousFirstReportsOfOneSensorShareOneClient) {
  alarm(240);
  int lostRaces = 0;
  for (int trial = 0; trial < 2000 && lostRaces == 0; ++trial) {
    auto transport = std::make_shared<RecordingTransport>();
    std::atomic<int> factoryCalls{0};
    auto control = vesk::makeSensorControl(transport,
                                           [&factoryCalls](auto given, std::uint16_t sensorId) {
                                             ++factoryCalls;
                                             return vesk::detail::makeSensorControlClientA(given, sensorId);
                                           },
                                           {2, 3});
    std::mutex seenMutex;
    std::vector<const void*> seen;
    const auto subscription = control->subscribe([&](const ClientPtr& client, const auto&) {
      std::scoped_lock lock(seenMutex);
      seen.push_back(client.get());
    });
    ASSERT_TRUE(control->start());
    std::atomic<int> ready{0};
    const auto report = [&](std::uint16_t service) {
      for (++ready; ready < 2;) {
        std::this_thread::yield();
      }
      transport->reportAvailability({service, 0x77}, true);
    };
    std::thread first(report, 2), second(report, 3);
    first.join();
    second.join();
    lostRaces += (factoryCalls != 1 || seen.size() != 2U || seen[0] != seen[1]) ? 1 : 0;
    EXPECT_TRUE(control->stop());
  }
  alarm(0);
  EXPECT_EQ(lostRaces, 0) << "both first reports of one sensor must reach the one client";
}

}  // namespace
}  // namespace kov::test
