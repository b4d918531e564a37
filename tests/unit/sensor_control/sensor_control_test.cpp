#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <tuple>

#include <unistd.h>

#include "support/log_capture.hpp"
#include "support/recording_transport.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace kov::test {
namespace {

namespace vesk = kov::drivers::lidar::vesk;
using Address = RecordingTransport::Address;
using ClientPtr = std::shared_ptr<vesk::ISensorControl::IClient>;
using ServiceSet = std::unordered_set<std::uint16_t>;
using Announcement = std::pair<ClientPtr, ServiceSet>;
using Strings = std::vector<std::string>;

Strings operator+(Strings first, const Strings& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

/// A sensor-control object over a RecordingTransport whose factory records its calls, and one subscriber
/// that records every announcement.
class SensorControlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    control = vesk::makeSensorControl(
        transport,
        [this](auto given, std::uint16_t sensorId) {
          factoryCalls.push_back(sensorId);
          EXPECT_EQ(given, transport);
          return failingSensors.count(sensorId) != 0U
                     ? ClientPtr()
                     : made[sensorId] = vesk::detail::makeSensorControlClientA(given, sensorId);
        },
        vesk::getVeskAServiceIds());
    ASSERT_NE(control, nullptr);
    subscription = control->subscribe([this](const ClientPtr& client, const ServiceSet& services) {
      announced.emplace_back(client, services);
    });
  }

  /// Checks one call's result and the transport calls and log lines since the previous step.
  void step(bool result, bool expected, const Strings& calls, const Strings& lines = {}) {
    EXPECT_EQ(result, expected);
    EXPECT_EQ(transport->takeCalls(), calls);
    EXPECT_EQ(log.lines(), lines);
    log.clear();
  }

  Strings perService(const std::string& operation) const {
    Strings lines;
    for (const auto id : ids)
      lines.push_back(operation + " " + addressText({id, 0xFFFF}));
    return lines;
  }

  LogCapture log;
  std::shared_ptr<RecordingTransport> transport = std::make_shared<RecordingTransport>();
  const ServiceSet serviceSet = vesk::getVeskAServiceIds();
  const std::vector<std::uint16_t> ids{serviceSet.begin(), serviceSet.end()};  // the order of the calls
  const Strings requests = perService("requestService");
  const Strings releases = perService("releaseService");
  // The ids are 2, 3 and 4, so decimal digits are hex digits.
  const Strings subscribe{"subscribeAvailability 0x" + std::to_string(ids[0]) + " 0x" +
                          std::to_string(ids[1]) + " 0x" + std::to_string(ids[2])};
  std::vector<std::uint16_t> factoryCalls;
  std::set<std::uint16_t> failingSensors;
  std::map<std::uint16_t, ClientPtr> made;
  std::vector<Announcement> announced;
  std::unique_ptr<vesk::ISensorControl> control;
  std::shared_ptr<vesk::ISensorControl::Subscription> subscription;
};

TEST_F(SensorControlTest, LifecycleCallsRefusedTransitionsAndFailures) {
  step(control->stop(), true, {}, {"WARN: SensorControl already stopped - ignoring stop"});
  transport->failing = {subscribe[0]};
  step(control->start(), false, subscribe,
       {"ERROR: SensorControl unable to subscribe to service availability updates"});
  step(control->shutdown(), true, {"disconnect"});  // nothing registered, nothing to withdraw
  transport->failing = {requests[1]};
  for (int attempt = 0; attempt < 2; ++attempt) {  // still stopped: the second start tries again
    step(control->start(), false, subscribe + requests + releases,
         {"ERROR: failed to request service with id 0x" + std::to_string(ids[1]),
          "ERROR: SensorControl unable to request all services - releasing all"});
  }
  step(control->shutdown(), true, {"unsubscribeAvailability", "disconnect"});
  transport->failing = {"connect"};
  step(control->init(), false, {"connect"}, {"ERROR: SensorControl cannot connect"});
  transport->failing.clear();
  step(control->init(), true, {"connect"});
  step(control->start(), true, subscribe + requests);
  transport->failing = {releases[0]};
  step(control->stop(), false, releases,
       {"WARN: failed to release service with id 0x" + std::to_string(ids[0]),
        "ERROR: SensorControl unable to release all services - SOME/IP communication - status inconsistent "
        "until application shutdown"});
  step(control->start(), false, {}, {"WARN: SensorControl already started - ignoring restart"});
  transport->failing = {"unsubscribeAvailability"};
  step(control->stop(), false, releases + Strings{"unsubscribeAvailability"},
       {"ERROR: SensorControl unable to unsubscribe from service availability updates - status inconsistent "
        "until application shutdown"});
  transport->failing = {"disconnect"};
  step(control->shutdown(), false, releases + Strings{"unsubscribeAvailability", "disconnect"},
       {"WARN: shutdown called without having been stopped - forcing stop"});
  transport->failing.clear();
  step(control->shutdown(), true, {"disconnect"});
  control.reset();
  EXPECT_EQ(transport->takeCalls(), Strings{"disconnect"}) << "the destructor disconnects once more";
}

TEST_F(SensorControlTest, ReportsMakeOneClientPerSensorAndAnnounceEachReport) {
  ASSERT_TRUE(control->start());
  log.clear();
  failingSensors = {0x40};
  const std::string instance = "DEBUG: SensorControl service instance ";
  const std::string discovered = "DEBUG: SensorControl discovered new sensor ";
  const std::vector<std::tuple<Address, bool, Strings>> reports{
      {{2, 0xFFFF}, true, {"DEBUG: SensorControl ignoring wildcard [0x2,0xffff]: available true"}},
      {{3, 0x10}, true, {discovered + "[0x10]", instance + "[0x3,0x10]: available true"}},
      {{4, 0x10}, false, {instance + "[0x4,0x10]: available false"}},
      {{3, 0xabc}, false, {discovered + "[0xabc]", instance + "[0x3,0xabc]: available false"}},
      {{2, 0x40}, true, {"ERROR: SensorControl sensor client [0x40] creation failed."}},
      {{2, 2}, true, {discovered + "[0x2]", instance + "[0x2,0x2]: available true"}},  // legacy addresses
      {{4, 4}, false, {instance + "[0x4,0x4]: available false"}},
      {{3, 0x10}, false, {instance + "[0x3,0x10]: available false"}}};
  for (const auto& [address, available, lines] : reports) {
    transport->reportAvailability(address, available);
    EXPECT_EQ(log.lines(), lines) << addressText(address);
    log.clear();
  }
  failingSensors.clear();
  transport->reportAvailability({4, 0x40}, true);  // the failed creation left no entry behind

  EXPECT_EQ(factoryCalls, (std::vector<std::uint16_t>{0x10, 0xabc, 0x40, 2, 0x40}));
  const std::vector<Announcement> expected{{made[0x10], {3}}, {made[0x10], {4}}, {made[0xabc], {3}},
                                           {made[2], {2}},    {made[2], {4}},    {made[0x10], {3}},
                                           {made[0x40], {4}}};
  EXPECT_EQ(announced, expected);
}

TEST_F(SensorControlTest, AReportOfAnotherSensorFromInsideSubscribeEventsCompletes) {
  // 0x10 subscribes, which reports 0x11 (whose subscription reports 0x12) while 0x10 is still subscribing,
  // on the same thread, as a transport that finishes service discovery while subscribing may do.
  transport->onSubscribeEvents = [this](const Address& address) {
    if (address.instanceId < 0x12)
      transport->reportAvailability({3, static_cast<std::uint16_t>(address.instanceId + 1)}, true);
  };
  ASSERT_TRUE(control->start());
  alarm(10);  // a deadlock ends the program
  transport->reportAvailability({3, 0x10}, true);
  EXPECT_EQ(announced, (std::vector<Announcement>{{made[0x12], {3}}, {made[0x11], {3}}, {made[0x10], {3}}}));
  EXPECT_TRUE(control->stop());
  alarm(0);
}

TEST_F(SensorControlTest, StopMarksClientsUnavailableFirstAndReportsAfterTheObjectsEndDoNothing) {
  ASSERT_TRUE(control->start());
  transport->reportAvailability({2, 0x10}, true);
  transport->reportAvailability({3, 0x10}, true);
  transport->reportAvailability({3, 0x20}, false);
  announced.clear();
  transport->takeCalls();
  transport->failing = {"unsubscribeAvailability"};
  EXPECT_FALSE(control->stop());
  Strings calls = transport->takeCalls();
  std::sort(calls.begin(), calls.begin() + std::min<std::size_t>(calls.size(), 2U));  // in either order
  EXPECT_EQ(calls, (Strings{"unsubscribeEvents 0x2/0x10", "unsubscribeEvents 0x3/0x10"} + releases +
                    Strings{"unsubscribeAvailability"}));
  EXPECT_EQ(announced, (std::vector<Announcement>{{made[0x10], {2, 3}}})) << "0x20 had no change";

  const std::weak_ptr<vesk::ISensorControl::IClient> kept = made[0x10];
  made.clear();
  announced.clear();
  EXPECT_FALSE(kept.expired()) << "clients survive stop";
  EXPECT_TRUE(control->shutdown());  // the forced stop fails again, the disconnect succeeds
  EXPECT_TRUE(kept.expired()) << "shutdown drops the library's references";
  control.reset();
  transport->takeCalls();
  log.clear();
  // The transport still holds the handler: a live object would create a client and announce it.
  EXPECT_TRUE(transport->reportAvailability({3, 0x30}, true));
  EXPECT_TRUE(transport->reportAvailability({3, 0x10}, false));
  EXPECT_EQ(factoryCalls, (std::vector<std::uint16_t>{0x10, 0x20}));
  EXPECT_TRUE(announced.empty() && log.lines().empty() && transport->takeCalls().empty());
}

TEST(SensorControlFactories, InvalidArgumentsYieldNothingAndOneErrorLineEach) {
  LogCapture log;
  const std::string control = "ERROR: Unable to create SensorControl: invalid parameter(s).";
  EXPECT_EQ(vesk::makeSensorControl(std::make_shared<RecordingTransport>(), vesk::ClientFactory(), {2}),
            nullptr);
  EXPECT_EQ(vesk::makeSensorControlA(nullptr), nullptr);
  EXPECT_EQ(vesk::detail::makeSensorControlClientA(nullptr, 1), nullptr);
  EXPECT_EQ(log.lines(), (Strings{control, control,
                                  "ERROR: Unable to create SensorControl's ClientA: invalid parameter(s)."}));
}

}  // namespace
}  // namespace kov::test
