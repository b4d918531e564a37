#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/log/system_logger.hpp"
#include "recording_transport.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace kov::test {
namespace {

using kov::drivers::lidar::vesk::ISensorControl;
using Address = kov::platform::networking::ISomeIpTransport::Address;

constexpr std::uint16_t SENSORS = 16;
constexpr std::uint16_t FIRST_SENSOR = 0x100;
constexpr int REPORTERS = 3;
constexpr int MIN_ROUNDS = 30;

/// Drops every message: readers log a warning for each call on an unavailable service.
class SilentLogger : public kov::common::log::ILogger {
 public:
  void sendLogMessage(std::shared_ptr<kov::common::log::LogData> /*data*/) override {}
};

/// Aborts the process when the scenario has not finished in time: a deadlock fails, it never hangs.
class Watchdog {
 public:
  explicit Watchdog(std::chrono::seconds limit)
      : thread_([this, limit] {
          std::unique_lock lock(mutex_);
          if (!done_cv_.wait_for(lock, limit, [this] { return done_; })) {
            std::fprintf(stderr, "sensor control stress scenario did not finish in time (deadlock?)\n");
            std::abort();
          }
        }) {}
  ~Watchdog() {
    {
      std::scoped_lock lock(mutex_);
      done_ = true;
    }
    done_cv_.notify_all();
    thread_.join();
  }

 private:
  std::mutex mutex_;
  std::condition_variable done_cv_;
  bool done_{false};
  std::thread thread_;
};

TEST(SensorControlStress, FlappingSensorsWithEventsGettersAndTeardown) {
  auto logger = std::make_shared<SilentLogger>();
  auto& holder = kov::common::log::SystemLoggerSingleton::instance();
  const auto previousLogger = holder.logger;
  holder.logger = logger;

  auto transport = std::make_shared<RecordingTransport>();
  transport->recordEventCalls = false;
  {
    Watchdog watchdog(std::chrono::seconds(240));
    auto control = kov::drivers::lidar::vesk::makeSensorControlA(transport);
    ASSERT_NE(control, nullptr);

    std::mutex registryMutex;
    std::map<std::uint16_t, std::shared_ptr<ISensorControl::IClient>> registry;
    int foreignClients = 0;
    int badServiceIds = 0;
    const auto subscription = control->subscribe([&](const auto& client, const auto& services) {
      std::scoped_lock lock(registryMutex);
      auto& known = registry[client->getSensorId()];
      if (!known) {
        known = client;
      } else if (known != client) {
        ++foreignClients;
      }
      for (const std::uint16_t service : services) {
        badServiceIds += (service < 2 || service > 4) ? 1 : 0;
      }
    });
    ASSERT_TRUE(control->init());
    ASSERT_TRUE(control->start());

    std::atomic<bool> go{false};
    std::atomic<bool> finish{false};
    std::atomic<int> delivered{0};
    std::array<std::atomic<int>, REPORTERS> rounds{};
    std::vector<std::thread> threads;

    for (int reporter = 0; reporter < REPORTERS; ++reporter) {
      threads.emplace_back([&, reporter] {
        while (!go) {
          std::this_thread::yield();
        }
        for (int round = 0; !finish; ++round) {
          // Every reporter walks the sensors in the same order, so first reports of a sensor collide.
          for (std::uint16_t sensor = 0; sensor < SENSORS; ++sensor) {
            for (std::uint16_t service = 2; service <= 4; ++service) {
              const bool available = ((round + reporter + sensor + service) & 1) == 0;
              transport->reportAvailability({service, static_cast<std::uint16_t>(FIRST_SENSOR + sensor)},
                                            available);
            }
          }
          transport->reportAvailability({3, 0xFFFF}, true);
          ++rounds[static_cast<std::size_t>(reporter)];
        }
      });
    }

    struct Event {
      std::uint16_t service;
      std::uint16_t id;
      std::size_t size;
    };
    const std::vector<Event> events{{3, 1, 8}, {3, 2, 4}, {3, 3, 1}, {2, 1, 1}, {2, 2, 22}, {3, 1, 3}};
    for (int deliverer = 0; deliverer < 2; ++deliverer) {
      threads.emplace_back([&, deliverer] {
        std::array<unsigned char, 32> payload{};
        for (unsigned seed = static_cast<unsigned>(deliverer); !finish; ++seed) {
          for (std::uint16_t sensor = 0; sensor < SENSORS; ++sensor) {
            for (const Event& event : events) {
              for (std::size_t i = 0; i < event.size; ++i) {
                payload[i] = static_cast<unsigned char>((seed * 31U + i * 7U) & 1U);
              }
              const Address address{event.service, static_cast<std::uint16_t>(FIRST_SENSOR + sensor)};
              delivered += transport->deliverEvent(address, event.id, payload.data(), event.size) ? 1 : 0;
            }
          }
        }
      });
    }

    for (int reader = 0; reader < 2; ++reader) {
      threads.emplace_back([&] {
        while (!finish) {
          std::vector<std::shared_ptr<ISensorControl::IClient>> clients;
          {
            std::scoped_lock lock(registryMutex);
            for (const auto& entry : registry) {
              clients.push_back(entry.second);
            }
          }
          for (const auto& client : clients) {
            static_cast<void>(client->getServiceAvailability());
            static_cast<void>(client->hasAvailableService());
            const auto methods = std::dynamic_pointer_cast<ISensorControl::IClientA>(client);
            ASSERT_NE(methods, nullptr);
            const auto datum = methods->getScanDatumEvent();
            const auto health = methods->getSensorHealthStatusEvent();
            const auto mode = methods->getSystemModeStatusEvent();
            static_cast<void>(datum);
            static_cast<void>(health);
            static_cast<void>(mode);
            kov::drivers::lidar::vesk::types::DesiredScanSettings settings{};
            static_cast<void>(methods->getDesiredScanSettings(settings));
          }
          std::this_thread::yield();
        }
      });
    }

    go = true;
    for (auto& count : rounds) {
      while (count < MIN_ROUNDS) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }

    // Tear down while reports, events and readers are still running.
    EXPECT_TRUE(control->stop());
    EXPECT_FALSE(transport->hasAvailabilityHandler());
    EXPECT_TRUE(control->shutdown());
    control.reset();

    finish = true;
    for (auto& thread : threads) {
      thread.join();
    }

    EXPECT_GT(delivered, 0) << "no event reached a client";
    std::scoped_lock lock(registryMutex);
    EXPECT_EQ(registry.size(), SENSORS);
    EXPECT_EQ(foreignClients, 0) << "one client per sensor";
    EXPECT_EQ(badServiceIds, 0);
    registry.clear();  // the last references: the clients unsubscribe their events now
  }
  holder.logger = previousLogger;

  EXPECT_EQ(transport->eventSubscriptionCount(), 0U);
  const auto calls = transport->calls();
  ASSERT_EQ(calls.size(), 11U);
  EXPECT_EQ(calls.front(), "connect");
  EXPECT_EQ(calls[8], "unsubscribeAvailability");
  EXPECT_EQ(calls[9], "disconnect");
  EXPECT_EQ(calls[10], "disconnect");
}

TEST(SensorControlRace, SimultaneousFirstReportsOfOneSensorShareOneClient) {
  constexpr int TRIALS = 2000;
  Watchdog watchdog(std::chrono::seconds(240));
  int lostRaces = 0;
  for (int trial = 0; trial < TRIALS && lostRaces == 0; ++trial) {
    auto transport = std::make_shared<RecordingTransport>();
    std::atomic<int> factoryCalls{0};
    auto control = kov::drivers::lidar::vesk::makeSensorControl(
        transport,
        [&factoryCalls](auto given, std::uint16_t sensorId) {
          ++factoryCalls;
          return kov::drivers::lidar::vesk::detail::makeSensorControlClientA(given, sensorId);
        },
        {2, 3});
    std::mutex seenMutex;
    std::multiset<const void*> seen;
    const auto subscription = control->subscribe([&](const auto& client, const auto&) {
      std::scoped_lock lock(seenMutex);
      seen.insert(client.get());
    });
    ASSERT_TRUE(control->start());
    std::atomic<int> ready{0};
    const auto report = [&](std::uint16_t service) {
      ++ready;
      while (ready < 2) {
        std::this_thread::yield();
      }
      transport->reportAvailability({service, 0x77}, true);
    };
    std::thread first(report, 2);
    std::thread second(report, 3);
    first.join();
    second.join();
    const bool oneClientForBoth = seen.size() == 2U && seen.count(*seen.begin()) == 2U;
    lostRaces += (factoryCalls != 1 || !oneClientForBoth) ? 1 : 0;
    EXPECT_TRUE(control->stop());
  }
  EXPECT_EQ(lostRaces, 0) << "both first reports of one sensor must reach the one client";
}

}  // namespace
}  // namespace kov::test
