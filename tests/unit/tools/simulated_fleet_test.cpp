// The simulated fleet as a transport: what it reports, on which thread, how it answers method calls,
// and that handlers are never called after their unsubscribe returned. Calls into the fleet from its
// own availability handler are what the library makes in every veskctl demo (veskctl_end_to_end_test).

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/mode_sequencer.hpp"
#include "simulator/simulated_fleet.hpp"

namespace {

using kov::tools::simulator::FleetConfig;
using kov::tools::simulator::SimulatedFleet;
using Address = kov::platform::networking::ISomeIpTransport::Address;
using Result = kov::platform::networking::ISomeIpTransport::Result;
using namespace std::chrono_literals;

constexpr auto BOUND = 5000ms;

FleetConfig fastConfig(bool legacy = false) {
  // sensors, legacy sensor, mode step, heartbeat period, call timeout, discovery delay
  return {{0x10, 0x11}, legacy, 10ms, 1000ms, 5ms, 0ms};
}

TEST(SimulatedFleetTest, ReportsRequestedServicesOnItsOwnThreadAndOnlyChanges) {
  SimulatedFleet fleet(fastConfig(true));
  std::mutex mutex;
  std::string seen;  // "service:instance+" or "-" per report
  bool onCaller = false;
  auto handler = [&, caller = std::this_thread::get_id()](const Address& address, bool available) {
    std::lock_guard<std::mutex> lock(mutex);
    seen += std::to_string(address.serviceId) + ':' + std::to_string(address.instanceId) +
            (available ? "+ " : "- ");
    onCaller = onCaller || std::this_thread::get_id() == caller;
  };
  EXPECT_FALSE(fleet.subscribeAvailability({2, 3}, handler)) << "not connected yet";
  ASSERT_EQ(fleet.connect(), Result::Ok);
  ASSERT_TRUE(fleet.subscribeAvailability({2, 3}, handler));
  ASSERT_TRUE(fleet.requestService({3, 0xFFFF}));
  ASSERT_TRUE(fleet.requestService({4, 0xFFFF}));  // requested but not watched: never reported
  ASSERT_TRUE(fleet.drain(BOUND));
  ASSERT_TRUE(fleet.requestService({2, 0xFFFF}));
  ASSERT_TRUE(fleet.setSensorOnline(0x11, false));
  ASSERT_TRUE(fleet.setSensorOnline(0x11, false));  // no change, no report
  ASSERT_TRUE(fleet.setSensorOnline(0x11, true));
  EXPECT_FALSE(fleet.setSensorOnline(0x99, false));
  ASSERT_TRUE(fleet.drain(BOUND));
  ASSERT_TRUE(fleet.unsubscribeAvailability());
  EXPECT_FALSE(fleet.unsubscribeAvailability());
  ASSERT_TRUE(fleet.setSensorOnline(0x11, false));  // nobody listens any more
  ASSERT_TRUE(fleet.drain(BOUND));
  std::lock_guard<std::mutex> lock(mutex);
  EXPECT_EQ(seen, "3:3+ 3:16+ 3:17+ 2:2+ 2:16+ 2:17+ 2:17- 3:17- 2:17+ 3:17+ ");
  EXPECT_FALSE(onCaller);
}

TEST(SimulatedFleetTest, AnswersMethodsWithExactRecordsAndChecksEveryBuffer) {
  using Bytes = std::vector<std::uint8_t>;
  SimulatedFleet fleet(fastConfig());
  const auto call = [&fleet](Address address, std::uint16_t method, Bytes request, std::size_t answerSize) {
    Bytes answer(answerSize);
    const auto result =
        fleet.callMethod(address, method, request.empty() ? nullptr : request.data(), request.size(),
                         answer.empty() ? nullptr : answer.data(), answerSize);
    return std::pair{static_cast<int>(result), answer};
  };
  ASSERT_EQ(fleet.connect(), Result::Ok);
  // 25 Hz, interlace 8, line 1, fill on; read back byte for byte, on this sensor only.
  const Bytes settings{0x41, 0xC8, 0x00, 0x00, 0x08, 0x01, 0x01};
  EXPECT_EQ(call({3, 0x10}, 0x8002, settings, 0).first, 0);
  EXPECT_EQ(call({3, 0x10}, 0x8001, {}, 7), std::pair(0, settings));
  EXPECT_EQ(call({3, 0x11}, 0x8001, {}, 7), std::pair(0, Bytes{0x41, 0x20, 0, 0, 0, 0, 0}));  // 10 Hz

  EXPECT_EQ(call({3, 0x10}, 0x8001, {}, 6).first, 0x09) << "short response buffer";
  EXPECT_EQ(call({3, 0x10}, 0x8002, {0x41, 0xC8, 0, 0, 0x08, 0x01}, 0).first, 0x09) << "short request";
  EXPECT_EQ(call({3, 0x10}, 0x8008, {}, 1).first, 0x03) << "unknown method";
  EXPECT_EQ(call({3, 0x10}, 0x8002, {0x41, 0xF4, 0, 0, 0, 0, 0}, 0).first, 0x20) << "30.5 Hz";
  EXPECT_EQ(call({3, 0x10}, 0x8004, {0x3E, 0x4C, 0xCC, 0xCD}, 0).first, 0x20) << "0.2 rad, over 10 degrees";
  EXPECT_EQ(call({4, 0x10}, 0x000B, {0, 0, 0x0A, 0, 0, 1}, 0).first, 0x20) << "port 0";
}

TEST(SimulatedFleetTest, NoEventHandlerRunsAfterUnsubscribeReturnedEvenMidDelivery) {
  SimulatedFleet fleet(fastConfig());
  ASSERT_EQ(fleet.connect(), Result::Ok);
  std::atomic<bool> inside{false};
  std::atomic<int> calls{0};
  ASSERT_TRUE(fleet.subscribeEvents({3, 0x10}, 3, {2}, [&](std::uint16_t, const void*, std::size_t) {
    inside = true;
    ++calls;
    std::this_thread::sleep_for(50ms);  // still running when unsubscribe is called
    inside = false;
  }));
  const auto deadline = std::chrono::steady_clock::now() + BOUND;
  while (calls == 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();  // until the initial datum is being delivered
  }
  ASSERT_EQ(calls, 1);
  ASSERT_TRUE(fleet.unsubscribeEvents({3, 0x10}));
  EXPECT_FALSE(inside) << "unsubscribe returned while the handler still ran";
  EXPECT_FALSE(fleet.injectEvent(0x10, 3, 2, "abcd", 4)) << "nobody subscribed any more";
  const std::uint8_t datum[4] = {0xBD, 0xCC, 0xCC, 0xCD};
  ASSERT_EQ(fleet.callMethod({3, 0x10}, 0x8004, datum, 4, nullptr, 0), Result::Ok);
  ASSERT_TRUE(fleet.drain(BOUND));
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(fleet.unsubscribeEvents({3, 0x10}));

  // A handler that unsubscribes itself: no self-deadlock, and no call after that.
  std::atomic<int> selfCalls{0};
  std::atomic<bool> unsubscribed{false};
  ASSERT_TRUE(fleet.subscribeEvents({2, 0x10}, 2, {1, 2}, [&](std::uint16_t, const void*, std::size_t) {
    ++selfCalls;
    unsubscribed = fleet.unsubscribeEvents({2, 0x10});
  }));
  ASSERT_TRUE(fleet.drain(BOUND));
  EXPECT_FALSE(fleet.injectEvent(0x10, 2, 2, "abcd", 4));
  EXPECT_EQ(selfCalls, 1);
  EXPECT_TRUE(unsubscribed);
}

TEST(ModeSequencer, EachStepFallsDueExactlyOneStepAfterThePrevious) {
  using kov::tools::simulator::ModeSequencer;
  using Status = ModeSequencer::Status;
  const ModeSequencer::Clock::time_point t0{};
  ModeSequencer modes(10ms);
  modes.reboot(t0);
  EXPECT_TRUE(modes.advance(t0 + 19ms).empty());
  EXPECT_EQ(modes.advance(t0 + 20ms), std::vector<Status>{Status::STANDBY});  // booted after two steps
  EXPECT_TRUE(modes.command(ModeSequencer::Command::SCANNING, t0 + 20ms));
  EXPECT_EQ(modes.status(), Status::INITIALIZING);
  EXPECT_TRUE(modes.advance(t0 + 29ms).empty());
  EXPECT_EQ(modes.advance(t0 + 30ms), std::vector<Status>{Status::SCANNING});
}

}  // namespace
