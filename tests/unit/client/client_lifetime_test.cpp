// The client's event cache as seen by readers, and its event handlers after the client is gone.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "common/log/system_logger.hpp"
#include "sensor_control_client/sensor_control_client.hpp"
#include "support/log_capture.hpp"
#include "support/recording_transport.hpp"

namespace kov::test {
namespace {

namespace types = kov::drivers::lidar::vesk::types;
using kov::drivers::lidar::vesk::ClientA;
using Bytes = std::vector<std::uint8_t>;
using namespace std::chrono_literals;

// Big-endian float bit patterns: 3F800000 = 1 (radian), BF800000 = -1, 3FC00000 = 1.5, 40200000 = 2.5.
const Bytes PLUS_ONE{0x3F, 0x80, 0, 0};
const Bytes MINUS_ONE{0xBF, 0x80, 0, 0};
const Bytes HEARTBEAT_TOO_SHORT(18, 0);
constexpr std::uint16_t SCAN_DATUM_EVENT = 2;
constexpr std::uint16_t HEARTBEAT_EVENT = 2;

bool deliver(RecordingTransport& transport, const RecordingTransport::Address& address, std::uint16_t eventId,
             const Bytes& payload) {
  return transport.deliverEvent(address, eventId, payload.data(), payload.size());
}

TEST(ClientEventCache, AccessorsReturnTheClientsOwnRecordThatLaterEventsUpdate) {
  auto transport = std::make_shared<RecordingTransport>();
  ClientA first(transport, 0x10);
  ClientA second(transport, 0x20);
  ASSERT_TRUE(first.setAvailable({3, 0x10}, true));
  ASSERT_TRUE(second.setAvailable({3, 0x20}, true));

  const types::ScanDatum& a = first.getScanDatumEvent();
  const types::ScanDatum& b = second.getScanDatumEvent();
  EXPECT_NE(&a, &b);
  ASSERT_TRUE(deliver(*transport, {3, 0x10}, SCAN_DATUM_EVENT, PLUS_ONE));
  ASSERT_TRUE(deliver(*transport, {3, 0x20}, SCAN_DATUM_EVENT, MINUS_ONE));
  EXPECT_EQ(a.elevation, 57.29578F) << "the first client's value, not the one read last";
  EXPECT_EQ(b.elevation, -57.29578F);

  // The references follow later events and stay those of the records.
  ASSERT_TRUE(deliver(*transport, {3, 0x10}, SCAN_DATUM_EVENT, MINUS_ONE));
  EXPECT_EQ(a.elevation, -57.29578F);
  EXPECT_EQ(&first.getScanDatumEvent(), &a);
  EXPECT_EQ(&first.getAchievedScanSettingsEvent(), &first.getAchievedScanSettingsEvent());
  EXPECT_NE(&first.getSensorHealthStatusEvent(), &second.getSensorHealthStatusEvent());

  // copyEvent gives the same record, whole, into the caller's variable.
  ASSERT_TRUE(deliver(*transport, {3, 0x20}, 1, {0x3F, 0xC0, 0, 0, 0x40, 0x20, 0, 0}));
  types::AchievedScanSettings achieved{};
  types::ScanDatum datum{};
  second.copyEvent(achieved);
  first.copyEvent(datum);
  EXPECT_EQ(achieved.value1, 1.5F);
  EXPECT_EQ(achieved.value2, 2.5F);
  EXPECT_EQ(datum.elevation, -57.29578F);
}

TEST(ClientEventCache, CopiesAreWholeWhileEventsArrive) {
  auto transport = std::make_shared<RecordingTransport>();
  ClientA client(transport, 0x10);
  ASSERT_TRUE(client.setAvailable({2, 0x10}, true));
  // Two heartbeats whose every field differs: a copy must be one or the other, never a mix.
  const Bytes ones{14, 1, 1, 1, 1, 1, 0x3F, 0x80, 0, 0, 0x3F, 0x80, 0, 0, 0x3F, 0x80, 0, 0, 0, 0, 0, 0};
  const Bytes minusOnes{7, 0, 0, 0, 0, 0, 0xBF, 0x80, 0, 0, 0xBF, 0x80, 0, 0, 0xBF, 0x80, 0, 0, 0, 0, 0, 0};
  std::atomic<bool> finish{false};
  std::thread events([&] {
    for (int i = 0; !finish && i < 2'000'000; ++i) {
      deliver(*transport, {2, 0x10}, HEARTBEAT_EVENT, (i & 1) != 0 ? ones : minusOnes);
    }
  });
  int mixed = 0;
  int seenOnes = 0;
  for (int read = 0; read < 20'000 || (seenOnes == 0 && read < 50'000'000); ++read) {
    types::SensorHealthStatus health{};
    client.copyEvent(health);
    const bool one = health.value1 == 1.0F;
    seenOnes += one ? 1 : 0;
    const bool whole = one ? (health.value2 == 1.0F && health.value3 == 1.0F && health.flag5 &&
                              health.mode == types::SystemModeStatus::SCANNING)
                           : (health.value3 != 1.0F && !health.flag1);
    mixed += whole ? 0 : 1;
  }
  finish = true;
  events.join();
  EXPECT_EQ(mixed, 0);
  EXPECT_GT(seenOnes, 0) << "the reader saw events arrive";
}

/// Sends every finished log record to `hook` (on the logging thread) and then drops it.
struct HookLogger : kov::common::log::ILogger {
  explicit HookLogger(std::function<void()> onMessage) : hook(std::move(onMessage)) {
    setDiscardLevel(static_cast<kov::common::log::LogLevel>(0));
  }
  void sendLogMessage(std::shared_ptr<kov::common::log::LogData>) override { hook(); }
  std::function<void()> hook;
};

/// A client of sensor 0x10 with service 2 subscribed at a transport that refuses to unsubscribe it, so
/// that the transport keeps the client's event handler after the client is gone.
struct StuckSubscription {
  StuckSubscription() {
    EXPECT_TRUE(client->setAvailable({2, 0x10}, true));
    transport->failing = {"unsubscribeEvents 0x2/0x10"};
  }
  std::shared_ptr<RecordingTransport> transport = std::make_shared<RecordingTransport>();
  std::shared_ptr<ClientA> client = std::make_shared<ClientA>(transport, 0x10);
};

TEST(ClientEventHandler, CallsAfterAFailedUnsubscribeAndTheClientsEndDoNothing) {
  LogCapture log;
  StuckSubscription stuck;
  stuck.client.reset();
  EXPECT_EQ(log.lines(), std::vector<std::string>{"DEBUG: Failed to unsubscribe from events of service "
                                                  "[0x2,0x10] - event data might be inconsistent"});
  log.clear();
  // A live client would log the size mismatch; the handler still exists but must not reach the client.
  EXPECT_TRUE(deliver(*stuck.transport, {2, 0x10}, HEARTBEAT_EVENT, HEARTBEAT_TOO_SHORT));
  EXPECT_TRUE(deliver(*stuck.transport, {2, 0x10}, 1, {7}));
  EXPECT_TRUE(log.lines().empty());
}

TEST(ClientEventHandler, DestructionWaitsForARunningHandlerUnlessItRunsInsideIt) {
  // Case 1: a handler blocked (in the application's logger) on another thread holds the destructor.
  {
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> first{true};
    LoggerScope scope(std::make_shared<HookLogger>([&] {
      if (first.exchange(false)) {
        entered.set_value();
        released.wait_for(10s);
      }
    }));
    StuckSubscription stuck;
    std::thread handler([&] { deliver(*stuck.transport, {2, 0x10}, HEARTBEAT_EVENT, HEARTBEAT_TOO_SHORT); });
    ASSERT_EQ(entered.get_future().wait_for(10s), std::future_status::ready);
    std::atomic<bool> destroyed{false};
    std::thread destroyer([&] {
      stuck.client.reset();
      destroyed = true;
    });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(destroyed) << "the client went while its handler was running";
    release.set_value();
    handler.join();
    destroyer.join();
    EXPECT_TRUE(destroyed);
  }
  // Case 2: the handler itself drops the last reference; the destructor must not wait for itself.
  {
    StuckSubscription stuck;
    std::atomic<int> messages{0};
    LoggerScope scope(std::make_shared<HookLogger>([&] {
      if (++messages == 1) {
        stuck.client.reset();  // inside the client's own event handler
      }
    }));
    std::promise<void> done;
    std::thread handler([&] {
      deliver(*stuck.transport, {2, 0x10}, HEARTBEAT_EVENT, HEARTBEAT_TOO_SHORT);
      done.set_value();
    });
    if (done.get_future().wait_for(10s) != std::future_status::ready) {
      ADD_FAILURE() << "a client destroyed inside its own handler deadlocked";
      std::_Exit(1);  // the stuck thread cannot be joined
    }
    handler.join();
    EXPECT_EQ(stuck.client, nullptr);
    EXPECT_EQ(messages, 2) << "the size mismatch, then the failed unsubscription";
  }
}

}  // namespace
}  // namespace kov::test
