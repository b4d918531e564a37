// Transports that call back at awkward moments: from inside an event subscription, or after the
// sensor-control object that registered the handler is gone.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <thread>

#include "support/log_capture.hpp"
#include "support/recording_transport.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace kov::test {
namespace {

namespace vesk = kov::drivers::lidar::vesk;
using ClientPtr = std::shared_ptr<vesk::ISensorControl::IClient>;
using ServiceSet = std::unordered_set<std::uint16_t>;
using Address = RecordingTransport::Address;

/// Runs `work` on its own thread; a run that does not end within 10 s is a deadlock and ends the
/// program, since the stuck thread cannot be joined.
void expectCompletes(const std::function<void()>& work, const char* what) {
  std::promise<void> done;
  auto finished = done.get_future();
  std::thread runner([&] {
    work();
    done.set_value();
  });
  if (finished.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    ADD_FAILURE() << what << " did not complete: deadlock";
    std::_Exit(1);
  }
  runner.join();
}

/// Reports the next sensor's service synchronously from inside subscribeEvents, on the calling thread,
/// as a transport that finishes service discovery while subscribing may do.
class ChainReportingTransport : public RecordingTransport {
 public:
  bool subscribeEvents(const Address& address, std::uint16_t group, const std::vector<std::uint16_t>& ids,
                       EventHandler handler) override {
    const bool subscribed = RecordingTransport::subscribeEvents(address, group, ids, std::move(handler));
    if (address.instanceId < lastSensor) {
      reportAvailability({address.serviceId, static_cast<std::uint16_t>(address.instanceId + 1)}, true);
    }
    return subscribed;
  }
  std::uint16_t lastSensor{0x12};
};

TEST(SensorControlReentry, AReportOfAnotherSensorFromInsideSubscribeEventsCompletes) {
  auto transport = std::make_shared<ChainReportingTransport>();
  auto control = vesk::makeSensorControlA(transport);
  std::vector<std::pair<std::uint16_t, ServiceSet>> announced;
  const auto subscription = control->subscribe([&](const ClientPtr& client, const ServiceSet& services) {
    announced.emplace_back(client->getSensorId(), services);
  });
  ASSERT_TRUE(control->start());

  // 0x10 subscribes, which reports 0x11 (whose subscription reports 0x12) while 0x10 is still subscribing.
  expectCompletes([&] { transport->reportAvailability({3, 0x10}, true); }, "the nested reports");
  EXPECT_EQ(announced,
            (std::vector<std::pair<std::uint16_t, ServiceSet>>{{0x12, {3}}, {0x11, {3}}, {0x10, {3}}}));
  EXPECT_EQ(transport->eventSubscriptionCount(), 3U);
  expectCompletes([&] { EXPECT_TRUE(control->stop()); }, "stop");
  EXPECT_EQ(transport->eventSubscriptionCount(), 0U);
}

TEST(SensorControlReentry, ReportsAfterAFailedWithdrawalAndTheObjectsEndDoNothing) {
  LogCapture log;
  auto transport = std::make_shared<RecordingTransport>();
  std::vector<std::uint16_t> factoryCalls;
  auto control = vesk::makeSensorControl(transport,
                                         [&factoryCalls](auto given, std::uint16_t sensorId) {
                                           factoryCalls.push_back(sensorId);
                                           return vesk::detail::makeSensorControlClientA(given, sensorId);
                                         },
                                         {3});
  int announcements = 0;
  const auto subscription = control->subscribe([&](const ClientPtr&, const ServiceSet&) { ++announcements; });
  ASSERT_TRUE(control->start());
  ASSERT_TRUE(transport->reportAvailability({3, 0x10}, true));
  transport->failing = {"unsubscribeAvailability"};
  EXPECT_FALSE(control->stop());
  EXPECT_TRUE(control->shutdown());  // the forced stop fails again, the disconnect succeeds
  control.reset();
  transport->takeCalls();
  log.clear();

  // The transport still holds the handler: a live object would create a client and announce it.
  EXPECT_TRUE(transport->reportAvailability({3, 0x20}, true));
  EXPECT_TRUE(transport->reportAvailability({3, 0x10}, false));
  EXPECT_EQ(factoryCalls, std::vector<std::uint16_t>{0x10});
  EXPECT_EQ(announcements, 2) << "the report before the stop and the first stop's announcement only";
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(transport->takeCalls().empty());
}

}  // namespace
}  // namespace kov::test
