#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <vector>

#include "sensor_control_client/sensor_control_client.hpp"
#include "support/log_capture.hpp"
#include "support/mock_transport.hpp"

namespace kov::test {
namespace {

namespace types = kov::drivers::lidar::vesk::types;
using kov::drivers::lidar::vesk::ClientA;
using Address = MockTransport::Address;
using EventHandler = MockTransport::EventHandler;
using Result = MockTransport::Result;
using Bytes = std::vector<std::uint8_t>;
using StrictTransport = ::testing::StrictMock<MockTransport>;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::Return;

/// A client of sensor 0x2a over a strict mock: any transport call a test does not expect fails it.
class ClientTest : public ::testing::Test {
 protected:
  void TearDown() override {
    // The destructor unsubscribes whatever is still available; those calls are not under test here.
    ::testing::Mock::VerifyAndClearExpectations(transport_.get());
    EXPECT_CALL(*transport_, unsubscribeEvents(_)).WillRepeatedly(Return(true));
    client_.reset();
  }

  /// Reports a service available and keeps the event handler that services 2 and 3 subscribe with.
  void makeAvailable(std::uint16_t serviceId, std::uint16_t instance = 0x11) {
    if (serviceId != 4) {
      EXPECT_CALL(*transport_, subscribeEvents(Address{serviceId, instance}, _, _, _))
          .WillOnce([this, serviceId](const Address&, std::uint16_t, const std::vector<std::uint16_t>&,
                                      EventHandler handler) {
            handlers_[serviceId] = std::move(handler);
            return true;
          });
    }
    ASSERT_TRUE(client_->setAvailable({serviceId, instance}, true));
    ::testing::Mock::VerifyAndClearExpectations(transport_.get());
  }

  LogCapture log_;
  std::shared_ptr<StrictTransport> transport_ = std::make_shared<StrictTransport>();
  std::shared_ptr<ClientA> client_ = std::make_shared<ClientA>(transport_, 0x2a);
  std::map<std::uint16_t, EventHandler> handlers_;
};

TEST_F(ClientTest, AvailabilityReportsDriveTheTableAndTheEventSubscriptions) {
  EXPECT_EQ(client_->getServiceAddress(3), (Address{3, 0xFFFF}));

  // A first report changes the state even when unavailable (no transport call); a repeat does not.
  EXPECT_TRUE(client_->setAvailable({3, 5}, false));
  EXPECT_FALSE(client_->setAvailable({3, 5}, false));
  EXPECT_CALL(*transport_, subscribeEvents(Address{3, 5}, 3, ElementsAre(1, 2, 3), _)).WillOnce(Return(true));
  EXPECT_TRUE(client_->setAvailable({3, 5}, true));
  EXPECT_TRUE(client_->setAvailable({4, 5}, true));  // no events: never subscribed
  EXPECT_TRUE(client_->setAllAvailable(true).empty());
  EXPECT_EQ(client_->getServiceAvailability(),
            (std::unordered_map<std::uint16_t, bool>{{3, true}, {4, true}}));
  EXPECT_EQ(client_->getServiceAddresses(), (std::unordered_set<Address>{{3, 5}, {4, 5}}));

  // A new instance replaces the old one, which is unsubscribed first; event ids keep accumulating.
  {
    ::testing::InSequence order;
    EXPECT_CALL(*transport_, unsubscribeEvents(Address{3, 5})).WillOnce(Return(true));
    EXPECT_CALL(*transport_, subscribeEvents(Address{3, 6}, 3, ElementsAre(1, 2, 3, 1, 2, 3), _))
        .WillOnce(Return(true));
  }
  EXPECT_TRUE(client_->setAvailable({3, 6}, true));
  EXPECT_EQ(client_->getServiceAddress(3), (Address{3, 6}));
  EXPECT_EQ(log_.lines(),
            std::vector<std::string>{
                "WARN: Service instance [0x3,0x6] was added for sensor 2a when it already had a "
                "known service instance with a matching service id but a different instance id "
                "[0x5]; removing old instance."});

  // Replaced while available by an unavailable instance: unsubscribed, yet reported as "no change".
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{3, 6})).WillOnce(Return(true));
  EXPECT_FALSE(client_->setAvailable({3, 7}, false));

  makeAvailable(2, 1);
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{2, 1})).WillOnce(Return(true));
  EXPECT_EQ(client_->setAllAvailable(false), (std::unordered_set<std::uint16_t>{2, 4}));
  EXPECT_FALSE(client_->hasAvailableService());

  // Destruction unsubscribes exactly the services still available.
  EXPECT_CALL(*transport_, subscribeEvents(Address{3, 7}, 3, _, _)).WillOnce(Return(true));
  EXPECT_TRUE(client_->setAvailable({3, 7}, true));
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{3, 7})).WillOnce(Return(true));
  client_.reset();
}

TEST_F(ClientTest, SubscriptionFailuresAndRefusedMethodsAreLogged) {
  EXPECT_CALL(*transport_, subscribeEvents(Address{2, 7}, 2, ElementsAre(1, 2), _)).WillOnce(Return(false));
  EXPECT_TRUE(client_->setAvailable({2, 7}, true));
  EXPECT_TRUE(client_->isSupportedAndAvailable(2, 0x8002));
  EXPECT_FALSE(client_->isSupportedAndAvailable(2, 0x8003));
  EXPECT_FALSE(client_->isSupportedAndAvailable(4, 0x8001));
  EXPECT_FALSE(client_->isSupportedAndAvailable(3, 0x8001));
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{2, 7})).WillOnce(Return(false));
  EXPECT_TRUE(client_->setAvailable({2, 7}, false));
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{
                "WARN: Failed to subscribe to events of service [0x2,0x7] - event data will not update",
                "ERROR: Service 0x2 does not have a method with id 0x8003",
                "ERROR: Service 0x4 does not have a method with id 0x8001", "WARN: Service 0x3 not available",
                "DEBUG: Failed to unsubscribe from events of service [0x2,0x7] - event data might be "
                "inconsistent"}));
}

TEST_F(ClientTest, OnlyWholeKnownEventsReachTheCache) {
  makeAvailable(2);
  makeAvailable(3);
  const auto deliver = [this](std::uint16_t serviceId, std::uint16_t eventId, const Bytes& payload) {
    handlers_.at(serviceId)(eventId, payload.data(), payload.size());
  };
  // Big-endian floats: 3F800000 = 1, C0000000 = -2, 3F000000 = 0.5, 3FC00000 = 1.5, 40200000 = 2.5.
  deliver(3, 1, {0x3F, 0xC0, 0, 0, 0x40, 0x20, 0, 0});
  deliver(3, 2, {0x3F, 0x80, 0, 0});  // 1 radian
  deliver(3, 3, {1});
  deliver(2, 1, {7});
  deliver(2, 2, {14, 1, 0, 2, 0, 1, 0x3F, 0x80, 0, 0, 0xC0, 0, 0, 0, 0x3F, 0, 0, 0, 9, 9, 9, 9});
  const auto expectFirstEvents = [this] {
    EXPECT_EQ(client_->getAchievedScanSettingsEvent().value1, 1.5F);
    EXPECT_EQ(client_->getAchievedScanSettingsEvent().value2, 2.5F);
    EXPECT_EQ(client_->getScanDatumEvent().elevation, 57.29578F);
    EXPECT_EQ(client_->getScanPatternCommandStatusEvent(), types::ScanPatternCommandStatus::REJECTED);
    EXPECT_EQ(client_->getSystemModeStatusEvent(), types::SystemModeStatus::STANDBY);
    const types::SensorHealthStatus health = client_->getSensorHealthStatusEvent();
    EXPECT_EQ(health.mode, types::SystemModeStatus::SCANNING);
    EXPECT_EQ(std::vector<bool>({health.flag1, health.flag2, health.flag3, health.flag4, health.flag5}),
              std::vector<bool>({true, false, true, false, true}));
    EXPECT_EQ(std::vector<float>({health.value1, health.value2, health.value3}),
              std::vector<float>({1, -2, 0.5}));
  };
  expectFirstEvents();
  EXPECT_TRUE(log_.lines().empty());

  deliver(2, 2, Bytes(18, 0));
  deliver(2, 2, Bytes(23, 0));
  handlers_.at(3)(2, nullptr, 4);
  deliver(2, 1, {15});  // no status symbol
  const std::string health = "kov::drivers::lidar::vesk::types::SensorHealthStatus&";
  EXPECT_EQ(
      log_.lines(),
      (std::vector<std::string>{
          "DEBUG: Got event for " + health + " but sizes do not match: got 18 expected 22",
          "DEBUG: Got event for " + health + " but sizes do not match: got 23 expected 22",
          "DEBUG: Got event 0x2 with null data pointer - discarding it",
          "ERROR: cannot convert kov::drivers::lidar::vesk::serialization::SystemModeStatus value \"15\" to "
          "kov::drivers::lidar::vesk::types::SystemModeStatus because target has no symbol for this value",
          "DEBUG: Failed to deserialize event 0x1 as kov::drivers::lidar::vesk::types::SystemModeStatus& - "
          "discarding it"}));

  // Unknown ids and services are dropped silently.
  log_.clear();
  const Bytes zeros(22, 0);
  deliver(3, 4, Bytes(4, 0));
  deliver(2, 3, Bytes(1, 0));
  client_->onEventReceived(4, 2, zeros.data(), 4);
  client_->onEventReceived(0x0102, 2, zeros.data(), 22);
  EXPECT_TRUE(log_.lines().empty());
  expectFirstEvents();

  client_->resetEventData();  // every cached record back to its default
  EXPECT_EQ(client_->getScanDatumEvent().elevation, 0.0F);
  EXPECT_EQ(client_->getSystemModeStatusEvent(), types::SystemModeStatus::UNKNOWN);
  EXPECT_EQ(client_->getAchievedScanSettingsEvent().value2, 0.0F);
  EXPECT_EQ(client_->getScanPatternCommandStatusEvent(), types::ScanPatternCommandStatus::UNKNOWN);
  EXPECT_EQ(client_->getSensorHealthStatusEvent().mode, types::SystemModeStatus::UNKNOWN);
}

/// Calls a getter with a fresh output record.
template <typename Out>
std::function<bool(ClientA&)> get(bool (ClientA::*getter)(Out&) const) {
  return [getter](ClientA& client) {
    Out out{};
    return (client.*getter)(out);
  };
}

class MethodCallTest : public ClientTest {
 protected:
  void SetUp() override {
    makeAvailable(2);
    makeAvailable(3);
    makeAvailable(4);
  }
};

TEST_F(MethodCallTest, EveryOperationCallsItsMethodWithExactSizes) {
  const types::DesiredScanSettings desired{10.0F, {}, {}, {}};
  const types::DatapathDestinationInfo destination{"10.0.0.1", 80};
  const struct {
    std::uint16_t service, method;
    std::size_t requestSize, responseSize;
    std::function<bool(ClientA&)> call;
  } cases[] = {
      {3, 0x8004, 4, 0, [](ClientA& c) { return c.setScanDatum({5.0F}); }},
      {3, 0x8003, 0, 4, get(&ClientA::getScanDatum)},
      {3, 0x8002, 7, 0, [&](ClientA& c) { return c.setDesiredScanSettings(desired); }},
      {3, 0x8001, 0, 7, get(&ClientA::getDesiredScanSettings)},
      {3, 0x8006, 0, 8, get(&ClientA::getAchievedScanSettings)},
      {3, 0x8005, 1322, 0, [](ClientA& c) { return c.setScanPattern(types::ScanPattern{}); }},
      {3, 0x8007, 0, 1, get(&ClientA::getScanPatternCommandStatus)},
      {2, 0x8002, 1, 0, [](ClientA& c) { return c.setSystemMode(types::SystemModeCommand::SCANNING); }},
      {2, 0x8001, 0, 1, get(&ClientA::getSystemModeStatus)},
      {4, 0x0008, 0, 256, get(&ClientA::getSensorSoftwareVersion)},
      {4, 0x000A, 0, 6, get(&ClientA::getDatapathDestinationInfo)},
      {4, 0x000B, 6, 0, [&](ClientA& c) { return c.setDatapathDestinationInfo(destination); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.method);
    EXPECT_CALL(*transport_,
                callMethod(Address{c.service, 0x11}, c.method, _, c.requestSize, _, c.responseSize))
        .WillOnce([&c](const Address&, std::uint16_t, const void* request, std::size_t, void* response,
                       std::size_t) {
          EXPECT_EQ(request == nullptr, c.requestSize == 0);
          EXPECT_EQ(response == nullptr, c.responseSize == 0);
          return Result::Ok;
        });
    EXPECT_TRUE(c.call(*client_));
    ::testing::Mock::VerifyAndClearExpectations(transport_.get());
  }
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(MethodCallTest, RequestBytesAndTheDefaultResponseBuffer) {
  Bytes request, response;
  EXPECT_CALL(*transport_, callMethod(Address{3, 0x11}, 0x8002, _, 7, nullptr, 0))
      .WillOnce([&](const Address&, std::uint16_t, const void* data, std::size_t size, void*, std::size_t) {
        request.assign(static_cast<const std::uint8_t*>(data), static_cast<const std::uint8_t*>(data) + size);
        return Result::Ok;
      });
  EXPECT_TRUE(
      client_->setDesiredScanSettings({20.0F, types::ScanHorizontalInterlaceMode::INTERLACE_8,
                                       types::ScanControlLine::LINE_1, types::ScanFillMode::FILL_ON}));
  EXPECT_EQ(request, (Bytes{0x41, 0xA0, 0x00, 0x00, 0x08, 0x01, 0x01}));

  // The response buffer starts as 10 Hz: a transport that writes nothing yields that value.
  EXPECT_CALL(*transport_, callMethod(Address{3, 0x11}, 0x8001, nullptr, 0, _, 7))
      .WillOnce([&](const Address&, std::uint16_t, const void*, std::size_t, void* data, std::size_t size) {
        response.assign(static_cast<std::uint8_t*>(data), static_cast<std::uint8_t*>(data) + size);
        return Result::Ok;
      });
  types::DesiredScanSettings settings{25.0F, types::ScanHorizontalInterlaceMode::INTERLACE_2, {}, {}};
  EXPECT_TRUE(client_->getDesiredScanSettings(settings));
  EXPECT_EQ(response, (Bytes{0x41, 0x20, 0x00, 0x00, 0x00, 0x00, 0x00}));
  EXPECT_EQ(settings.frameRate, 10.0F);
  EXPECT_EQ(settings.horizontalInterlaceMode, types::ScanHorizontalInterlaceMode::NONE);
}

TEST_F(MethodCallTest, FailedAndRefusedCallsAreLoggedOnceAndLeaveTheOutputUntouched) {
  EXPECT_CALL(*transport_, callMethod(_, 0x8003, _, _, _, _)).WillOnce(Return(Result::Timeout));
  EXPECT_CALL(*transport_, callMethod(_, 0x8007, _, _, _, _)).WillOnce(Return(static_cast<Result>(0x12)));
  EXPECT_CALL(*transport_, callMethod(_, 0x8001, _, _, _, _))
      .WillOnce([](const Address&, std::uint16_t, const void*, std::size_t, void* data, std::size_t) {
        *static_cast<std::uint8_t*>(data) = 15;  // no status symbol
        return Result::Ok;
      });
  types::ScanDatum datum{3.5F};
  auto patternStatus = types::ScanPatternCommandStatus::REJECTED;
  auto mode = types::SystemModeStatus::SCANNING;
  EXPECT_FALSE(client_->getScanDatum(datum));
  EXPECT_FALSE(client_->getScanPatternCommandStatus(patternStatus));
  EXPECT_FALSE(client_->getSystemModeStatus(mode));
  EXPECT_EQ(datum.elevation, 3.5F);
  EXPECT_EQ(patternStatus, types::ScanPatternCommandStatus::REJECTED);
  EXPECT_EQ(mode, types::SystemModeStatus::SCANNING);

  // Refused before the transport: the strict mock fails the test on any further callMethod.
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{2, 0x11})).WillOnce(Return(true));
  EXPECT_TRUE(client_->setAvailable({2, 0x11}, false));
  types::ScanPattern tooLong;
  tooLong.commands.resize(89);
  EXPECT_FALSE(client_->setSystemMode(types::SystemModeCommand::STANDBY));
  EXPECT_FALSE(client_->getSystemModeStatus(mode));
  EXPECT_FALSE(client_->setScanDatum({50.0F}));
  EXPECT_FALSE(client_->setScanPattern(tooLong));

  const std::string type = "kov::drivers::lidar::vesk::types::";
  const std::string notCalled = " not supported/available on this client - not calling the transport";
  for (const auto& [level, text] : std::vector<std::pair<std::string, std::string>>{
           {"WARN", "cannot call method 0x8003: SOME/IP transport timed out"},
           {"ERROR", "cannot call method 0x8007: SOME/IP transport failed with code \"12\""},
           {"ERROR", "cannot call method 0x8001: failed to deserialize " + type + "SystemModeStatus&"},
           {"DEBUG", "const " + type + "SystemModeCommand&" + notCalled},
           {"DEBUG", type + "SystemModeStatus&" + notCalled},
           {"ERROR", "cannot call method 0x8004: failed to serialize const " + type + "ScanDatum&"},
           {"ERROR", "cannot call method 0x8005: failed to serialize const " + type + "ScanPattern&"}}) {
    EXPECT_EQ(log_.count(level, text), 1U) << text;
  }
  EXPECT_EQ(log_.count("WARN", "Service 0x2 not available"), 2U);
}

}  // namespace
}  // namespace kov::test
