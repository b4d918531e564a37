#include <functional>
#include <string>
#include <vector>

#include "client_fixture.hpp"

namespace kov::test {
namespace {

namespace types = kov::drivers::lidar::vesk::types;
using kov::drivers::lidar::vesk::ClientA;
using ::testing::_;
using ::testing::Return;
using Bytes = std::vector<std::uint8_t>;

class MethodCallTest : public ClientTest {
 protected:
  void SetUp() override {
    makeAvailable(2);
    makeAvailable(3);
    makeAvailable(4);
  }
};

TEST_F(MethodCallTest, EveryOperationCallsItsMethodWithExactSizes) {
  struct Case {
    std::uint16_t service, method;
    std::size_t requestSize, responseSize;
    std::function<bool(ClientA&)> call;
  };
  types::ScanDatum datum;
  types::DesiredScanSettings desired;
  types::AchievedScanSettings achieved;
  types::ScanPatternCommandStatus patternStatus;
  types::SystemModeStatus mode;
  types::SensorSoftwareVersion version;
  types::DatapathDestinationInfo destination;
  const std::vector<Case> cases = {
      {3, 0x8004, 4, 0, [](ClientA& c) { return c.setScanDatum({5.0F}); }},
      {3, 0x8003, 0, 4, [&](ClientA& c) { return c.getScanDatum(datum); }},
      {3, 0x8002, 7, 0,
       [](ClientA& c) {
         return c.setDesiredScanSettings({10.0F, {}, {}, {}});
       }},
      {3, 0x8001, 0, 7, [&](ClientA& c) { return c.getDesiredScanSettings(desired); }},
      {3, 0x8006, 0, 8, [&](ClientA& c) { return c.getAchievedScanSettings(achieved); }},
      {3, 0x8005, 1322, 0, [](ClientA& c) { return c.setScanPattern(types::ScanPattern{}); }},
      {3, 0x8007, 0, 1, [&](ClientA& c) { return c.getScanPatternCommandStatus(patternStatus); }},
      {2, 0x8002, 1, 0, [](ClientA& c) { return c.setSystemMode(types::SystemModeCommand::SCANNING); }},
      {2, 0x8001, 0, 1, [&](ClientA& c) { return c.getSystemModeStatus(mode); }},
      {4, 0x0008, 0, 256, [&](ClientA& c) { return c.getSensorSoftwareVersion(version); }},
      {4, 0x000A, 0, 6, [&](ClientA& c) { return c.getDatapathDestinationInfo(destination); }},
      {4, 0x000B, 6, 0,
       [](ClientA& c) {
         return c.setDatapathDestinationInfo({"10.0.0.1", 80});
       }},
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

TEST_F(MethodCallTest, FailedCallsAreLoggedOnceAndLeaveTheOutputUntouched) {
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

  EXPECT_EQ(log_.count("WARN", "cannot call method 0x8003: SOME/IP transport timed out"), 1U);
  EXPECT_EQ(log_.count("ERROR", "cannot call method 0x8007: SOME/IP transport failed with code \"12\""), 1U);
  EXPECT_EQ(log_.count("ERROR",
                       "cannot call method 0x8001: failed to deserialize "
                       "kov::drivers::lidar::vesk::types::SystemModeStatus&"),
            1U);
  EXPECT_EQ(log_.lines().size(), 4U);  // plus the conversion's own line
}

TEST_F(MethodCallTest, RefusedCallsNeverReachTheTransport) {
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{2, 0x11})).WillOnce(Return(true));
  EXPECT_TRUE(client_->setAvailable({2, 0x11}, false));

  // The strict mock fails the test on any callMethod.
  types::SystemModeStatus mode{};
  types::ScanPattern tooLong;
  tooLong.commands.resize(89);
  EXPECT_FALSE(client_->setSystemMode(types::SystemModeCommand::STANDBY));
  EXPECT_FALSE(client_->getSystemModeStatus(mode));
  EXPECT_FALSE(client_->setScanDatum({50.0F}));
  EXPECT_FALSE(client_->setScanPattern(tooLong));

  const std::string type = "kov::drivers::lidar::vesk::types::";
  const std::string notCalled = " not supported/available on this client - not calling the transport";
  EXPECT_EQ(log_.count("WARN", "Service 0x2 not available"), 2U);
  EXPECT_EQ(log_.count("DEBUG", "const " + type + "SystemModeCommand&" + notCalled), 1U);
  EXPECT_EQ(log_.count("DEBUG", type + "SystemModeStatus&" + notCalled), 1U);
  EXPECT_EQ(
      log_.count("ERROR", "cannot call method 0x8004: failed to serialize const " + type + "ScanDatum&"), 1U);
  EXPECT_EQ(
      log_.count("ERROR", "cannot call method 0x8005: failed to serialize const " + type + "ScanPattern&"),
      1U);
}

}  // namespace
}  // namespace kov::test
