// The transport veskctl hands to the library remembers each thread's last call result, so that a
// failed getter is explained by its own code. (That it forwards every operation, the end-to-end tests
// show: every veskctl run goes through it.)

#include <gtest/gtest.h>

#include <thread>

#include "recording_transport.hpp"
#include "support/mock_transport.hpp"

namespace {

using kov::tools::veskctl::RecordingTransport;
using kov::tools::veskctl::TransportKind;
using Result = kov::platform::networking::ISomeIpTransport::Result;
using ::testing::_;
using ::testing::Return;

TEST(VeskctlRecordingTransportTest, KeepsTheLastCallResultOfEachThreadUntilForgotten) {
  auto mock = std::make_shared<kov::test::MockTransport>();
  RecordingTransport transport(mock, TransportKind::Simulator);
  char buffer[1] = {'q'};
  EXPECT_CALL(*mock, callMethod(_, 0x8001, buffer, 1, buffer, 1))
      .WillOnce(Return(static_cast<Result>(5)))
      .WillOnce(Return(static_cast<Result>(0x20)));
  EXPECT_CALL(*mock, connect()).WillOnce(Return(static_cast<Result>(7)));
  RecordingTransport::forgetLastCall();
  EXPECT_FALSE(RecordingTransport::lastCall());
  EXPECT_EQ(transport.callMethod({3, 16}, 0x8001, buffer, 1, buffer, 1), static_cast<Result>(5));
  EXPECT_EQ(transport.connect(), static_cast<Result>(7));  // only callMethod is recorded

  std::thread([&] {
    EXPECT_FALSE(RecordingTransport::lastCall());
    transport.callMethod({3, 16}, 0x8001, buffer, 1, buffer, 1);
    ASSERT_TRUE(RecordingTransport::lastCall());
    EXPECT_EQ(RecordingTransport::lastCall()->result, static_cast<Result>(0x20));
  }).join();

  const auto last = RecordingTransport::lastCall();
  ASSERT_TRUE(last);
  EXPECT_EQ(last->transport, TransportKind::Simulator);
  EXPECT_EQ(last->result, static_cast<Result>(5));
  RecordingTransport::forgetLastCall();
  EXPECT_FALSE(RecordingTransport::lastCall());
}

}  // namespace
