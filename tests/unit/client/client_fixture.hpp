#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "sensor_control_client/sensor_control_client.hpp"
#include "support/log_capture.hpp"
#include "support/mock_transport.hpp"

namespace kov::test {

using Address = kov::platform::networking::ISomeIpTransport::Address;
using EventHandler = kov::platform::networking::ISomeIpTransport::EventHandler;
using Result = kov::platform::networking::ISomeIpTransport::Result;

/// A client of sensor 0x2a over a strict mock: any transport call a test does not expect fails it.
class ClientTest : public ::testing::Test {
 protected:
  static constexpr std::uint16_t SENSOR = 0x2a;

  LogCapture log_;
  std::shared_ptr<::testing::StrictMock<MockTransport>> transport_ =
      std::make_shared<::testing::StrictMock<MockTransport>>();
  std::shared_ptr<kov::drivers::lidar::vesk::ClientA> client_ =
      std::make_shared<kov::drivers::lidar::vesk::ClientA>(transport_, SENSOR);
  std::map<std::uint16_t, EventHandler> handlers_;

  void TearDown() override {
    // The destructor unsubscribes whatever is still available; those calls are not under test here.
    ::testing::Mock::VerifyAndClearExpectations(transport_.get());
    EXPECT_CALL(*transport_, unsubscribeEvents(::testing::_)).WillRepeatedly(::testing::Return(true));
    client_.reset();
  }

  /// Reports service `serviceId` available under `instance`, expecting the event subscription that
  /// services 2 and 3 make, and keeps the handler the client hands over.
  void makeAvailable(std::uint16_t serviceId, std::uint16_t instance = 0x11) {
    if (serviceId == 2 || serviceId == 3) {
      EXPECT_CALL(*transport_,
                  subscribeEvents(Address{serviceId, instance}, ::testing::_, ::testing::_, ::testing::_))
          .WillOnce([this, serviceId](const Address&, std::uint16_t, const std::vector<std::uint16_t>&,
                                      EventHandler handler) {
            handlers_[serviceId] = std::move(handler);
            return true;
          });
    }
    ASSERT_TRUE(client_->setAvailable(Address{serviceId, instance}, true));
    ::testing::Mock::VerifyAndClearExpectations(transport_.get());
  }
};

}  // namespace kov::test
