#include <gtest/gtest.h>

#include "sensor_control/sensor_control.hpp"
#include "sensor_control_fixture.hpp"

namespace kov::test {
namespace {

using Strings = std::vector<std::string>;

TEST_F(SensorControlTest, ReportsCreateOneClientPerSensorAndReachEverySubscriber) {
  std::vector<std::string> secondSubscriber;
  auto second = control->subscribe([&secondSubscriber](const auto& client, const ServiceSet& services) {
    secondSubscriber.push_back(hex(client->getSensorId()) + ":" + hex(*services.begin()));
  });
  ASSERT_TRUE(control->start());
  log.clear();

  transport->reportAvailability({2, 0xFFFF}, true);
  EXPECT_TRUE(factoryCalls.empty());
  EXPECT_TRUE(announced.empty());
  EXPECT_EQ(log.lines(), (Strings{"DEBUG: SensorControl ignoring wildcard [0x2,0xffff]: available true"}));

  log.clear();
  transport->reportAvailability({3, 0x10}, true);
  EXPECT_EQ(log.lines(), (Strings{"DEBUG: SensorControl discovered new sensor [0x10]",
                                  "DEBUG: SensorControl service instance [0x3,0x10]: available true"}));
  ASSERT_EQ(made.count(0x10), 1U);
  EXPECT_TRUE(made[0x10]->isAvailable(3));
  transport->reportAvailability({4, 0x10}, false);
  transport->reportAvailability({3, 0xabc}, false);  // an unavailable sensor still gets its client
  transport->reportAvailability({3, 0x10}, false);

  EXPECT_EQ(factoryCalls, (std::vector<std::uint16_t>{0x10, 0xabc}));
  EXPECT_EQ(made[0x10]->getServiceAddresses(), (std::unordered_set<Address>{{3, 0x10}, {4, 0x10}}));
  EXPECT_FALSE(made[0x10]->hasAvailableService());
  EXPECT_EQ(made[0xabc]->getServiceAvailability(), (std::unordered_map<std::uint16_t, bool>{{3, false}}));
  ASSERT_EQ(announced.size(), 4U);
  const std::vector<std::shared_ptr<ISensorControl::IClient>> clients{made[0x10], made[0x10], made[0xabc],
                                                                      made[0x10]};
  const std::vector<ServiceSet> services{{3}, {4}, {3}, {3}};
  for (std::size_t i = 0; i < announced.size(); ++i) {
    EXPECT_EQ(announced[i].client, clients[i]) << i;
    EXPECT_EQ(announced[i].services, services[i]) << i;
  }
  EXPECT_EQ(secondSubscriber, (Strings{"10:3", "10:4", "abc:3", "10:3"}));
  EXPECT_EQ(log.count("DEBUG", "SensorControl service instance [0x3,0xabc]: available false"), 1U);

  second.reset();
  transport->reportAvailability({2, 0x10}, true);
  EXPECT_EQ(secondSubscriber.size(), 4U) << "a dropped subscription hears nothing";
  EXPECT_EQ(announced.size(), 5U);
}

TEST_F(SensorControlTest, LegacyAddressesFoldIntoOneClient) {
  ASSERT_TRUE(control->start());
  transport->reportAvailability({2, 2}, true);
  transport->reportAvailability({3, 3}, true);
  transport->reportAvailability({4, 4}, false);
  transport->reportAvailability({3, 0x30}, true);  // a sensor with its own id is not folded in

  EXPECT_EQ(factoryCalls, (std::vector<std::uint16_t>{2, 0x30}));
  EXPECT_EQ(made[2]->getServiceAvailability(),
            (std::unordered_map<std::uint16_t, bool>{{2, true}, {3, true}, {4, false}}));
  EXPECT_EQ(made[2]->getServiceAddresses(), (std::unordered_set<Address>{{2, 2}, {3, 3}, {4, 4}}));
  ASSERT_EQ(announced.size(), 4U);
  EXPECT_EQ(announced[2].client, made[2]);
  EXPECT_EQ(announced[2].services, (ServiceSet{4}));
}

TEST_F(SensorControlTest, FailingFactoryLeavesNoEntry) {
  failingSensors = {0x40};
  ASSERT_TRUE(control->start());
  log.clear();
  transport->reportAvailability({2, 0x40}, true);
  transport->reportAvailability({3, 0x40}, true);
  EXPECT_TRUE(announced.empty());
  EXPECT_EQ(log.lines(), (Strings{"ERROR: SensorControl sensor client [0x40] creation failed.",
                                  "ERROR: SensorControl sensor client [0x40] creation failed."}));

  failingSensors.clear();
  transport->reportAvailability({4, 0x40}, true);
  EXPECT_EQ(factoryCalls, (std::vector<std::uint16_t>{0x40, 0x40, 0x40}));
  ASSERT_EQ(announced.size(), 1U);
  EXPECT_EQ(announced[0].client, made[0x40]);
}

TEST(ServiceIdentities, LegacyRuleAndServiceSet) {
  using kov::drivers::lidar::vesk::isLegacyService;
  for (const Address legacy : {Address{2, 2}, Address{3, 3}, Address{4, 4}}) {
    EXPECT_TRUE(isLegacyService(legacy)) << legacy.serviceId;
  }
  for (const Address other : {Address{2, 3}, Address{5, 5}, Address{1, 1}, Address{0, 0}, Address{4, 0xFFFF},
                              Address{0xFFFF, 0xFFFF}}) {
    EXPECT_FALSE(isLegacyService(other)) << other.serviceId << "/" << other.instanceId;
  }
  EXPECT_EQ(kov::drivers::lidar::vesk::getVeskAServiceIds(), (ServiceSet{2, 3, 4}));
}

TEST(Factories, InvalidArgumentsYieldEmptyResultsAndOneErrorLine) {
  namespace vesk = kov::drivers::lidar::vesk;
  LogCapture log;
  auto transport = std::make_shared<RecordingTransport>();
  const std::string controlLine = "Unable to create SensorControl: invalid parameter(s).";
  const std::string clientLine = "Unable to create SensorControl's ClientA: invalid parameter(s).";

  EXPECT_EQ(vesk::makeSensorControl(transport, vesk::ClientFactory(), {2}), nullptr);
  EXPECT_EQ(vesk::makeSensorControl(nullptr, vesk::detail::makeSensorControlClientA, {2}), nullptr);
  EXPECT_EQ(vesk::makeSensorControlA(nullptr), nullptr);
  EXPECT_EQ(vesk::detail::makeSensorControlClientA(nullptr, 1), nullptr);
  EXPECT_EQ(log.lines(), (Strings{"ERROR: " + controlLine, "ERROR: " + controlLine, "ERROR: " + controlLine,
                                  "ERROR: " + clientLine}));

  log.clear();
  const auto client = vesk::detail::makeSensorControlClientA(transport, 0x1234);
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->getSensorId(), 0x1234);
  EXPECT_NE(std::dynamic_pointer_cast<ISensorControl::IClientA>(client), nullptr);

  auto control = vesk::makeSensorControl(transport, vesk::detail::makeSensorControlClientA, {});
  ASSERT_NE(control, nullptr);
  EXPECT_TRUE(transport->calls().empty());
  EXPECT_TRUE(control->start()) << "an empty service set is accepted";
  EXPECT_EQ(transport->calls(), (Strings{"subscribeAvailability"}));
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace kov::test
