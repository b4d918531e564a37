// The transport veskctl hands to the library remembers each thread's last call result, so that a
// failed getter is explained by its own code. (That it forwards every operation, the end-to-end tests
// show: every veskctl run goes through it.) The simulated fleet underneath answers with distinct codes:
// 0x04 before connect, 0x02 for an instance it does not have.

#include <gtest/gtest.h>

#include <thread>

#include "recording_transport.hpp"
#include "simulator/simulated_fleet.hpp"

namespace {

using kov::tools::veskctl::RecordingTransport;
using Result = kov::platform::networking::ISomeIpTransport::Result;

TEST(VeskctlRecordingTransportTest, KeepsTheLastCallResultOfEachThreadUntilForgotten) {
  RecordingTransport transport(
      std::make_shared<kov::tools::simulator::SimulatedFleet>(kov::tools::simulator::FleetConfig{}),
      kov::tools::veskctl::TransportKind::SomeIp);
  const auto last = [] {  // transport kind (SomeIp: 1) and result, as 0xKRRR
    const auto call = RecordingTransport::lastCall();
    return call ? static_cast<int>(call->transport) * 0x1000 + static_cast<int>(call->result) : -1;
  };
  RecordingTransport::forgetLastCall();
  EXPECT_EQ(last(), -1);
  EXPECT_EQ(transport.callMethod({3, 0x10}, 0x8007, nullptr, 0, nullptr, 0), static_cast<Result>(4));
  ASSERT_EQ(transport.connect(), Result::Ok);  // only callMethod is recorded
  std::thread([&] {
    EXPECT_EQ(last(), -1);
    EXPECT_EQ(transport.callMethod({3, 0x99}, 0x8007, nullptr, 0, nullptr, 0), static_cast<Result>(2));
    EXPECT_EQ(last(), 0x1002);
  }).join();
  EXPECT_EQ(last(), 0x1004);
  RecordingTransport::forgetLastCall();
  EXPECT_EQ(last(), -1);
}

}  // namespace
