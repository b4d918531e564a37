// The simulator's moving parts on their own: the dispatcher's ordering and shutdown, the handler
// slot's close-while-running guarantee, the mode sequencer's walk, and the event lock.

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "dispatcher.hpp"
#include "handler_slot.hpp"
#include "mode_sequencer.hpp"
#include "simulator/event_lock_transport.hpp"
#include "simulator/simulated_fleet.hpp"

namespace {

using kov::tools::simulator::Dispatcher;
using kov::tools::simulator::HandlerSlot;
using kov::tools::simulator::ModeSequencer;
using Status = ModeSequencer::Status;
using Command = ModeSequencer::Command;
using namespace std::chrono_literals;

TEST(DispatcherTest, RunsByDueTimeThenPostingOrderAndSyncWaitsForDelayedTasks) {
  Dispatcher dispatcher("test-dispatch");
  std::mutex mutex;
  std::vector<int> order;
  auto record = [&](int value) {
    return [&, value] {
      std::lock_guard<std::mutex> lock(mutex);
      order.push_back(value);
    };
  };
  const auto now = Dispatcher::Clock::now();
  dispatcher.postAt(now + 40ms, record(4));
  dispatcher.postAt(now + 20ms, record(2));
  dispatcher.postAt(now + 20ms, record(3));
  dispatcher.post(record(1));
  std::atomic<bool> onWorker{false};
  std::atomic<bool> syncFromWorker{true};
  dispatcher.post([&] {
    onWorker = dispatcher.isWorkerThread();
    syncFromWorker = dispatcher.sync(10ms);
  });
  ASSERT_TRUE(dispatcher.sync(5000ms));
  EXPECT_TRUE(onWorker);
  EXPECT_FALSE(syncFromWorker) << "sync on the worker itself would wait for itself";
  EXPECT_FALSE(dispatcher.isWorkerThread());
  std::lock_guard<std::mutex> lock(mutex);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST(DispatcherTest, StopDropsPendingTasksWithoutRunningThem) {
  std::atomic<int> ran{0};
  auto token = std::make_shared<int>(0);
  {
    Dispatcher dispatcher("test-dispatch");
    dispatcher.postAt(Dispatcher::Clock::now() + 10s, [&ran, token] { ++ran; });
    dispatcher.stop();
    EXPECT_EQ(token.use_count(), 1) << "the dropped task's captures are released";
    dispatcher.post([&ran] { ++ran; });
    EXPECT_FALSE(dispatcher.sync(10ms));
  }
  EXPECT_EQ(ran, 0);
}

TEST(HandlerSlotTest, CloseWaitsForARunningCallUnlessCalledFromInsideIt) {
  std::atomic<bool> inside{false};
  std::atomic<int> calls{0};
  HandlerSlot<std::function<void()>> slow([&] {
    inside = true;
    ++calls;
    std::this_thread::sleep_for(30ms);
    inside = false;
  });
  std::thread caller([&] { slow.invoke(); });
  while (calls == 0) {
    std::this_thread::yield();
  }
  slow.close();
  EXPECT_FALSE(inside);
  caller.join();
  EXPECT_FALSE(slow.invoke());
  EXPECT_EQ(calls, 1);

  // A handler that unregisters itself: no self-deadlock, and no call after that.
  std::shared_ptr<HandlerSlot<std::function<void()>>> self;
  int selfCalls = 0;
  self = std::make_shared<HandlerSlot<std::function<void()>>>([&] {
    ++selfCalls;
    self->close();
  });
  EXPECT_TRUE(self->invoke());
  EXPECT_FALSE(self->invoke());
  EXPECT_EQ(selfCalls, 1);
}

TEST(ModeSequencerTest, WalksStepByStepAndFollowsChangedGoals) {
  ModeSequencer mode(10ms);
  const auto t0 = ModeSequencer::Clock::now();
  mode.reboot(t0);
  EXPECT_EQ(mode.status(), Status::INITIALIZING);
  EXPECT_FALSE(mode.command(Command::SCANNING, t0)) << "a booting sensor takes the goal up later";
  EXPECT_TRUE(mode.advance(t0 + 19ms).empty());
  // Boot ends at 20 ms: standby, and at once spinning up towards the goal.
  EXPECT_EQ(mode.advance(t0 + 20ms), (std::vector<Status>{Status::STANDBY, Status::INITIALIZING}));
  EXPECT_EQ(mode.phase(), ModeSequencer::Phase::SpinningUp);
  // Turned round while spinning up: spins down, still initializing to the outside.
  EXPECT_TRUE(mode.command(Command::SHUTDOWN, t0 + 25ms));
  EXPECT_EQ(mode.status(), Status::INITIALIZING);
  EXPECT_TRUE(mode.parked());
  EXPECT_EQ(mode.advance(t0 + 35ms), (std::vector<Status>{Status::STANDBY}));
  EXPECT_TRUE(mode.command(Command::SCANNING, t0 + 40ms));
  EXPECT_FALSE(mode.parked());
  EXPECT_FALSE(mode.command(Command::SCANNING, t0 + 45ms)) << "repeating the goal changes nothing";
  EXPECT_EQ(mode.advance(t0 + 100ms), (std::vector<Status>{Status::SCANNING}));
  EXPECT_TRUE(mode.command(Command::STANDBY, t0 + 100ms));
  EXPECT_TRUE(mode.advance(t0 + 105ms).empty());
  EXPECT_EQ(mode.advance(t0 + 110ms), (std::vector<Status>{Status::STANDBY}));
  EXPECT_FALSE(mode.command(Command::STANDBY, t0 + 120ms));
}

TEST(EventLockTransportTest, EventHandlersRunUnderTheLockTheApplicationHolds) {
  kov::tools::simulator::FleetConfig config;
  config.sensorIds = {0x10};
  auto fleet = std::make_shared<kov::tools::simulator::SimulatedFleet>(config);
  kov::tools::simulator::EventLockTransport transport(fleet);
  ASSERT_EQ(transport.connect(), kov::tools::simulator::Result::Ok);
  std::atomic<int> events{0};
  ASSERT_TRUE(transport.subscribeEvents({3, 0x10}, 3, {2},
                                        [&](std::uint16_t, const void*, std::size_t) { ++events; }));
  ASSERT_TRUE(fleet->drain(5000ms));
  ASSERT_EQ(events, 1);
  {
    std::lock_guard<std::mutex> lock(transport.eventLock());
    ASSERT_TRUE(fleet->injectEvent(0x10, 3, 2, "abcd", 4));
    EXPECT_FALSE(fleet->drain(50ms)) << "delivery must wait for the application's lock";
    EXPECT_EQ(events, 1);
  }
  ASSERT_TRUE(fleet->drain(5000ms));
  EXPECT_EQ(events, 2);
  EXPECT_TRUE(transport.unsubscribeEvents({3, 0x10}));
  EXPECT_EQ(transport.disconnect(), kov::tools::simulator::Result::Ok);
}

}  // namespace
