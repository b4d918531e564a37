#include <gtest/gtest.h>

#include "sensor_control_fixture.hpp"

namespace kov::test {
namespace {

using Strings = std::vector<std::string>;
using Result = kov::platform::networking::ISomeIpTransport::Result;

TEST_F(SensorControlTest, FullLifecycleCallsTransportInOrder) {
  EXPECT_TRUE(transport->calls().empty()) << "construction must not touch the transport";
  EXPECT_TRUE(control->init());
  EXPECT_TRUE(control->start());
  EXPECT_TRUE(transport->hasAvailabilityHandler());
  EXPECT_TRUE(control->stop());
  EXPECT_FALSE(transport->hasAvailabilityHandler());
  EXPECT_TRUE(control->shutdown());
  control.reset();

  std::string subscribeLine = "subscribeAvailability";
  for (const auto id : serviceOrder()) {
    subscribeLine += " 0x" + hex(id);
  }
  EXPECT_EQ(transport->calls(), join({{"connect", subscribeLine},
                                      perService("requestService"),
                                      perService("releaseService"),
                                      {"unsubscribeAvailability", "disconnect", "disconnect"}}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SensorControlTest, RefusedTransitionsAndConnectFailure) {
  EXPECT_TRUE(control->stop());
  EXPECT_TRUE(control->start());
  transport->clearCalls();
  EXPECT_FALSE(control->start());
  EXPECT_TRUE(transport->calls().empty());

  transport->connectResult = static_cast<Result>(7);
  EXPECT_FALSE(control->init());
  transport->connectResult = Result::Timeout;
  EXPECT_FALSE(control->init());
  EXPECT_EQ(transport->calls(), (Strings{"connect", "connect"}));
  EXPECT_EQ(log.lines(),
            (Strings{"WARN: SensorControl already stopped - ignoring stop",
                     "WARN: SensorControl already started - ignoring restart",
                     "ERROR: SensorControl cannot connect", "ERROR: SensorControl cannot connect"}));
}

TEST_F(SensorControlTest, FailedAvailabilitySubscriptionRequestsNothing) {
  transport->subscribeAvailabilityResult = false;
  EXPECT_FALSE(control->start());
  EXPECT_TRUE(control->shutdown());
  EXPECT_EQ(transport->calls().size(), 2U);
  EXPECT_EQ(transport->calls().back(), "disconnect") << "nothing registered, nothing to withdraw";
  EXPECT_EQ(log.lines(),
            (Strings{"ERROR: SensorControl unable to subscribe to service availability updates"}));
}

TEST_F(SensorControlTest, FailedRequestReleasesAllAndHandlerIsWithdrawnBeforeDestruction) {
  const Strings requests = perService("requestService");
  const std::uint16_t second = serviceOrder()[1];
  transport->failingRequests = {second};

  EXPECT_FALSE(control->start());
  EXPECT_TRUE(transport->hasAvailabilityHandler());
  EXPECT_EQ(log.lines(), (Strings{"ERROR: failed to request service with id 0x" + hex(second),
                                  "ERROR: SensorControl unable to request all services - releasing all"}));
  const Strings firstStart = transport->calls();
  EXPECT_EQ(Strings(firstStart.begin() + 1, firstStart.end()),
            join({requests, perService("releaseService")}));

  transport->clearCalls();
  EXPECT_FALSE(control->start()) << "still stopped, so the start is attempted again";
  EXPECT_EQ(transport->calls().front(), firstStart.front());

  transport->clearCalls();
  log.clear();
  EXPECT_TRUE(control->shutdown());
  EXPECT_FALSE(transport->hasAvailabilityHandler());
  control.reset();
  EXPECT_EQ(transport->calls(), (Strings{"unsubscribeAvailability", "disconnect", "disconnect"}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SensorControlTest, FailedStopKeepsStartedUntilItSucceeds) {
  ASSERT_TRUE(control->start());
  const Strings releases = perService("releaseService");
  transport->failingReleases = {2, 4};
  transport->clearCalls();
  EXPECT_FALSE(control->stop());
  EXPECT_EQ(transport->calls(), releases) << "no unsubscription after a failed release";
  EXPECT_EQ(log.count("WARN", "failed to release service with id 0x2"), 1U);
  EXPECT_EQ(log.count("WARN", "failed to release service with id 0x4"), 1U);
  EXPECT_EQ(
      log.lines().back(),
      "ERROR: SensorControl unable to release all services - SOME/IP communication - status inconsistent "
      "until application shutdown");
  EXPECT_FALSE(control->start());
  EXPECT_EQ(log.lines().back(), "WARN: SensorControl already started - ignoring restart");

  transport->failingReleases.clear();
  transport->unsubscribeAvailabilityResult = false;
  EXPECT_FALSE(control->stop());
  EXPECT_EQ(
      log.lines().back(),
      "ERROR: SensorControl unable to unsubscribe from service availability updates - status inconsistent "
      "until application shutdown");

  transport->unsubscribeAvailabilityResult = true;
  transport->clearCalls();
  log.clear();
  EXPECT_TRUE(control->stop());
  EXPECT_EQ(transport->calls(), join({releases, {"unsubscribeAvailability"}}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SensorControlTest, ShutdownForcesStopAndReturnsDisconnectResult) {
  ASSERT_TRUE(control->start());
  transport->clearCalls();
  transport->disconnectResult = static_cast<Result>(5);
  EXPECT_FALSE(control->shutdown());
  EXPECT_EQ(transport->calls(),
            join({perService("releaseService"), {"unsubscribeAvailability", "disconnect"}}));
  EXPECT_EQ(log.lines(), (Strings{"WARN: shutdown called without having been stopped - forcing stop"}));
  transport->disconnectResult = Result::Ok;
  EXPECT_TRUE(control->shutdown());
  EXPECT_EQ(log.lines().size(), 1U) << "a stopped object is not stopped again";
}

TEST_F(SensorControlTest, StopAnnouncesChangedClientsKeepsThemAndShutdownDropsThem) {
  ASSERT_TRUE(control->start());
  transport->reportAvailability({2, 0x10}, true);
  transport->reportAvailability({3, 0x10}, true);
  transport->reportAvailability({3, 0x20}, false);
  ASSERT_EQ(made.size(), 2U);
  announced.clear();
  transport->clearCalls();

  ASSERT_TRUE(control->stop());
  const Strings calls = transport->calls();
  ASSERT_EQ(calls.size(), 6U);
  EXPECT_EQ(std::set<std::string>(calls.begin(), calls.begin() + 2),
            (std::set<std::string>{"unsubscribeEvents 0x2/0x10", "unsubscribeEvents 0x3/0x10"}))
      << "clients are marked unavailable before the services are released";
  EXPECT_EQ(Strings(calls.begin() + 2, calls.end()),
            join({perService("releaseService"), {"unsubscribeAvailability"}}));
  ASSERT_EQ(announced.size(), 1U) << "the client without any change is not announced";
  EXPECT_EQ(announced[0].client, made[0x10]);
  EXPECT_EQ(announced[0].services, (ServiceSet{2, 3}));
  EXPECT_FALSE(made[0x10]->hasAvailableService());

  ASSERT_TRUE(control->start());
  transport->reportAvailability({3, 0x10}, true);
  EXPECT_EQ(factoryCalls.size(), 2U) << "clients survive stop";
  EXPECT_EQ(announced.back().client, made[0x10]);

  const std::weak_ptr<ISensorControl::IClient> kept = made[0x10];
  made.clear();
  announced.clear();
  EXPECT_TRUE(control->shutdown());
  EXPECT_EQ(announced.size(), 1U) << "only the forced stop announces; dropping the clients does not";
  announced.clear();
  EXPECT_TRUE(kept.expired()) << "shutdown drops the library's references";
}

}  // namespace
}  // namespace kov::test
