#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <iomanip>
#include <sstream>
#include <thread>

#include <unistd.h>

#include "common/log/system_logger.hpp"
#include "sensor_control_client/sensor_control_client.hpp"
#include "support/log_capture.hpp"
#include "support/recording_transport.hpp"

namespace kov::test {
namespace {

namespace types = kov::drivers::lidar::vesk::types;
using kov::drivers::lidar::vesk::ClientA;
using Address = RecordingTransport::Address;
using Result = RecordingTransport::Result;
using Bytes = std::vector<std::uint8_t>;
using Strings = std::vector<std::string>;
using namespace std::chrono_literals;

// Big-endian floats: 3F800000 = 1, BF800000 = -1, C0000000 = -2, 3F000000 = 0.5, 3FC00000 = 1.5,
// 40200000 = 2.5.
const Bytes MINUS_ONE{0xBF, 0x80, 0, 0};

/// Every event record of the client, read through its accessors, as one line.
std::string cacheText(const ClientA& client) {
  const types::AchievedScanSettings& achieved = client.getAchievedScanSettingsEvent();
  const types::SensorHealthStatus& health = client.getSensorHealthStatusEvent();
  std::ostringstream text;
  text << std::setprecision(9) << "achieved " << achieved.value1 << ' ' << achieved.value2 << " datum "
       << client.getScanDatumEvent().elevation << " pattern "
       << static_cast<int>(client.getScanPatternCommandStatusEvent()) << " mode "
       << static_cast<int>(client.getSystemModeStatusEvent()) << " health " << health.value1 << ' '
       << health.value2 << ' ' << health.value3 << ' ' << static_cast<int>(health.mode) << ' ' << health.flag1
       << health.flag2 << health.flag3 << health.flag4 << health.flag5;
  return text.str();
}

/// A client of sensor 0x2a over a recording transport.
class ClientTest : public ::testing::Test {
 protected:
  bool deliver(std::uint16_t serviceId, std::uint16_t eventId, const Bytes& payload,
               std::uint16_t instance = 0x11) {
    return transport->deliverEvent({serviceId, instance}, eventId, payload.data(), payload.size());
  }

  LogCapture log;
  std::shared_ptr<RecordingTransport> transport = std::make_shared<RecordingTransport>();
  std::shared_ptr<ClientA> client = std::make_shared<ClientA>(transport, 0x2a);
};

TEST_F(ClientTest, AvailabilityReportsDriveTheTableAndTheEventSubscriptions) {
  EXPECT_EQ(client->getServiceAddress(3), (Address{3, 0xFFFF}));
  // A first report changes the state even when unavailable (no transport call); a repeat does not.
  EXPECT_TRUE(client->setAvailable({3, 5}, false));
  EXPECT_FALSE(client->setAvailable({3, 5}, false));
  EXPECT_TRUE(client->setAvailable({3, 5}, true));
  EXPECT_TRUE(client->setAvailable({4, 5}, true));  // no events: never subscribed
  EXPECT_TRUE(client->setAllAvailable(true).empty());
  EXPECT_EQ(client->getServiceAvailability(),
            (std::unordered_map<std::uint16_t, bool>{{3, true}, {4, true}}));
  EXPECT_EQ(client->getServiceAddresses(), (std::unordered_set<Address>{{3, 5}, {4, 5}}));
  // A new instance replaces the old one, which is unsubscribed first; event ids keep accumulating.
  EXPECT_TRUE(client->setAvailable({3, 6}, true));
  EXPECT_EQ(client->getServiceAddress(3), (Address{3, 6}));
  // Replaced while available by an unavailable instance: unsubscribed, yet reported as "no change".
  EXPECT_FALSE(client->setAvailable({3, 7}, false));
  transport->failing = {"subscribeEvents 0x2/0x7 0x2: 0x1 0x2"};
  EXPECT_TRUE(client->setAvailable({2, 7}, true));
  // Service 2 goes without an unsubscription: the transport holds none to end.
  EXPECT_EQ(client->setAllAvailable(false), (std::unordered_set<std::uint16_t>{2, 4}));
  EXPECT_FALSE(client->hasAvailableService());
  EXPECT_TRUE(client->setAvailable({3, 7}, true));
  client.reset();  // unsubscribes exactly the services still available
  const std::string ids = " 0x1 0x2 0x3";
  EXPECT_EQ(transport->takeCalls(),
            (Strings{"subscribeEvents 0x3/0x5 0x3:" + ids, "unsubscribeEvents 0x3/0x5",
                     "subscribeEvents 0x3/0x6 0x3:" + ids + ids, "unsubscribeEvents 0x3/0x6",
                     "subscribeEvents 0x2/0x7 0x2: 0x1 0x2", "unsubscribeEvents 0x2/0x7",
                     "subscribeEvents 0x3/0x7 0x3:" + ids + ids + ids, "unsubscribeEvents 0x3/0x7"}));
  const std::string added =
      " was added for sensor 2a when it already had a known service instance with a "
      "matching service id but a different instance id ";
  EXPECT_EQ(log.lines(),
            (Strings{"WARN: Service instance [0x3,0x6]" + added + "[0x5]; removing old instance.",
                     "WARN: Service instance [0x3,0x7]" + added + "[0x6]; removing old instance.",
                     "WARN: Failed to subscribe to events of service [0x2,0x7] - event data will not update",
                     "DEBUG: Failed to unsubscribe from events of service [0x2,0x7] - event data might be "
                     "inconsistent"}));
}

TEST_F(ClientTest, OnlyWholeKnownEventsReachTheCache) {
  ASSERT_TRUE(client->setAvailable({2, 0x11}, true));
  ASSERT_TRUE(client->setAvailable({3, 0x11}, true));
  ClientA other(transport, 0x20);
  ASSERT_TRUE(other.setAvailable({3, 0x20}, true));
  const types::ScanDatum& datum = client->getScanDatumEvent();

  deliver(3, 1, {0x3F, 0xC0, 0, 0, 0x40, 0x20, 0, 0});
  deliver(3, 2, {0x3F, 0x80, 0, 0});  // radians, cached in degrees
  deliver(3, 3, {1});
  deliver(2, 1, {7});
  deliver(2, 2, {14, 1, 0, 2, 0, 1, 0x3F, 0x80, 0, 0, 0xC0, 0, 0, 0, 0x3F, 0, 0, 0, 9, 9, 9, 9});
  deliver(3, 2, MINUS_ONE, 0x20);
  const std::string first = "achieved 1.5 2.5 datum 57.2957802 pattern 2 mode 2 health 1 -2 0.5 3 10101";
  EXPECT_EQ(cacheText(*client), first);
  EXPECT_EQ(cacheText(other), "achieved 0 0 datum -57.2957802 pattern 0 mode 0 health 0 0 0 0 00000");

  // Broken events are logged and dropped; unknown ids and services are dropped silently.
  deliver(2, 2, Bytes(18, 0));
  transport->deliverEvent({3, 0x11}, 2, nullptr, 4);
  deliver(2, 1, {15});  // no status symbol
  deliver(3, 4, Bytes(4, 0));
  client->onEventReceived(4, 2, MINUS_ONE.data(), 4);
  const std::string health = "kov::drivers::lidar::vesk::types::SensorHealthStatus&";
  EXPECT_EQ(
      log.lines(),
      (Strings{
          "DEBUG: Got event for " + health + " but sizes do not match: got 18 expected 22",
          "DEBUG: Got event 0x2 with null data pointer - discarding it",
          "ERROR: cannot convert kov::drivers::lidar::vesk::serialization::SystemModeStatus value \"15\" to "
          "kov::drivers::lidar::vesk::types::SystemModeStatus because target has no symbol for this value",
          "DEBUG: Failed to deserialize event 0x1 as kov::drivers::lidar::vesk::types::SystemModeStatus& - "
          "discarding it"}));
  EXPECT_EQ(cacheText(*client), first);

  // The references stay those of the records and follow later events; a copy is the record. (The other
  // records' copies are read by veskctl's event watcher, whose tests check them.)
  deliver(3, 2, MINUS_ONE);
  types::ScanDatum copied{};
  other.copyEvent(copied);
  EXPECT_EQ(std::pair(datum.elevation, copied.elevation), std::pair(-57.29578F, -57.29578F));

  client->resetEventData();  // every cached record back to its default
  EXPECT_EQ(cacheText(*client), "achieved 0 0 datum 0 pattern 0 mode 0 health 0 0 0 0 00000");
}

TEST_F(ClientTest, MethodsSendExactBytesAndSizesAndFailuresAreLoggedOnce) {
  for (const std::uint16_t service : {2, 3, 4})
    ASSERT_TRUE(client->setAvailable({service, 0x11}, true));
  transport->takeCalls();
  types::DesiredScanSettings desired{20.0F, types::ScanHorizontalInterlaceMode::INTERLACE_8,
                                     types::ScanControlLine::LINE_1, types::ScanFillMode::FILL_ON};
  const types::DatapathDestinationInfo destination{"10.0.0.1", 80};
  const std::pair<std::string, std::function<bool(ClientA&)>> cases[] = {
      {"0x3/0x11 0x8002 41a00000080101 null", [&](ClientA& c) { return c.setDesiredScanSettings(desired); }},
      {"0x3/0x11 0x8001 null 7", [&](ClientA& c) { return c.getDesiredScanSettings(desired); }},
      {"0x3/0x11 0x8005 (1322 bytes) null",
       [](ClientA& c) { return c.setScanPattern(types::ScanPattern{}); }},
      {"0x2/0x11 0x8002 01 null",
       [](ClientA& c) { return c.setSystemMode(types::SystemModeCommand::SCANNING); }},
      {"0x4/0x11 0xb 00500a000001 null",
       [&](ClientA& c) { return c.setDatapathDestinationInfo(destination); }},
  };
  for (const auto& [call, operation] : cases) {
    EXPECT_TRUE(operation(*client)) << call;
    EXPECT_EQ(transport->takeCalls(), Strings{"callMethod " + call});
  }

  // Failed and refused calls are logged once and leave the output untouched.
  transport->answers = {{0x8003, {Result::Timeout, {}}},
                        {0x8004, {Result::Timeout, {}}},
                        {0x8007, {static_cast<Result>(0x12), {}}},
                        {0x8001, {Result::Ok, {15}}}};  // no status symbol
  types::ScanDatum datum{3.5F};
  auto patternStatus = types::ScanPatternCommandStatus::REJECTED;
  auto mode = types::SystemModeStatus::SCANNING;
  EXPECT_EQ(
      std::vector<bool>({client->getScanDatum(datum), client->getScanPatternCommandStatus(patternStatus),
                         client->getSystemModeStatus(mode), client->setScanDatum({5.0F})}),
      std::vector<bool>(4, false));

  // Refused before the transport.
  EXPECT_TRUE(client->setAvailable({2, 0x11}, false));
  EXPECT_EQ(std::vector<bool>({client->setSystemMode(types::SystemModeCommand::STANDBY),
                               client->getSystemModeStatus(mode), client->setScanDatum({50.0F}),
                               client->isSupportedAndAvailable(2, 0x8003)}),
            std::vector<bool>(4, false));
  EXPECT_EQ(std::tuple(datum.elevation, patternStatus, mode),
            std::tuple(3.5F, types::ScanPatternCommandStatus::REJECTED, types::SystemModeStatus::SCANNING));
  EXPECT_EQ(transport->takeCalls(),
            (Strings{"callMethod 0x3/0x11 0x8003 null 4", "callMethod 0x3/0x11 0x8007 null 1",
                     "callMethod 0x2/0x11 0x8001 null 1", "callMethod 0x3/0x11 0x8004 3db2b8c2 null",
                     "unsubscribeEvents 0x2/0x11"}));
  const std::string type = "kov::drivers::lidar::vesk::types::";
  const std::string notCalled = " not supported/available on this client - not calling the transport";
  EXPECT_EQ(
      log.lines(),
      (Strings{
          "WARN: cannot call method 0x8003: SOME/IP transport timed out",
          "ERROR: cannot call method 0x8007: SOME/IP transport failed with code \"12\"",
          "ERROR: cannot convert kov::drivers::lidar::vesk::serialization::SystemModeStatus value \"15\" "
          "to " +
              type + "SystemModeStatus because target has no symbol for this value",
          "ERROR: cannot call method 0x8001: failed to deserialize " + type + "SystemModeStatus&",
          "WARN: cannot call method 0x8004: SOME/IP transport timed out", "WARN: Service 0x2 not available",
          "DEBUG: const " + type + "SystemModeCommand&" + notCalled, "WARN: Service 0x2 not available",
          "DEBUG: " + type + "SystemModeStatus&" + notCalled,
          "ERROR: Scan datum elevation = 50 degrees: out of range [-18;10]",
          "ERROR: cannot call method 0x8004: failed to serialize const " + type + "ScanDatum&",
          "ERROR: Service 0x2 does not have a method with id 0x8003"}));
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
/// that the transport keeps the client's event handler after the client is gone. The heartbeat it
/// delivers is too short: a live client logs it.
struct StuckSubscription {
  StuckSubscription() {
    EXPECT_TRUE(client->setAvailable({2, 0x10}, true));
    transport->failing = {"unsubscribeEvents 0x2/0x10"};
  }
  bool deliver() { return transport->deliverEvent({2, 0x10}, 2, MINUS_ONE.data(), 4); }
  std::shared_ptr<RecordingTransport> transport = std::make_shared<RecordingTransport>();
  std::shared_ptr<ClientA> client = std::make_shared<ClientA>(transport, 0x10);
};

TEST(ClientEventHandler, DestructionWaitsForARunningHandlerAndLaterCallsDoNothing) {
  // A handler blocked (in the application's logger) on another thread holds the destructor.
  {
    std::promise<void> entered, release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> first{true};
    LoggerScope scope(std::make_shared<HookLogger>([&] {
      if (first.exchange(false)) {
        entered.set_value();
        released.wait_for(10s);
      }
    }));
    StuckSubscription stuck;
    std::thread handler([&] { stuck.deliver(); });
    ASSERT_EQ(entered.get_future().wait_for(10s), std::future_status::ready);
    auto destroyed = std::async(std::launch::async, [&] { stuck.client.reset(); });
    EXPECT_EQ(destroyed.wait_for(100ms), std::future_status::timeout)
        << "the client went while its handler ran";
    release.set_value();
    handler.join();
    EXPECT_EQ(destroyed.wait_for(10s), std::future_status::ready);
  }
  // The handler itself drops the last reference: the destructor must not wait for itself, and the
  // handler the transport still holds does nothing afterwards.
  StuckSubscription stuck;
  std::atomic<int> messages{0};
  LoggerScope scope(std::make_shared<HookLogger>([&] {
    if (++messages == 1) {
      stuck.client.reset();  // inside the client's own event handler
    }
  }));
  alarm(10);  // a destructor waiting for its own handler deadlocks: the alarm ends the program
  stuck.deliver();
  alarm(0);
  EXPECT_TRUE(stuck.deliver());
  EXPECT_EQ(messages, 2) << "the size mismatch, then the failed unsubscription";
}

}  // namespace
}  // namespace kov::test
