// Whole transports talking over loopback, inside a network namespace of the test process's own (root
// needed; skipped otherwise), so that SD multicast never reaches the host's interfaces.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "someip/some_ip_transport.hpp"
#include "support/availability_reports.hpp"
#include "support/log_capture.hpp"
#include "support/network_namespace.hpp"
#include "wire_bytes.hpp"

namespace {

namespace someip = kov::platform::networking::someip;
using namespace std::chrono_literals;
using Address = kov::platform::networking::ISomeIpTransport::Address;
using kov::test::wire::Bytes;
using someip::ReturnCode;

constexpr Address SCAN{0x0003, 0x0010};

someip::TransportOptions optionsFor(const char* address) {
  someip::TransportOptions options;
  options.unicastAddress = address;
  options.callTimeout = 300ms;
  return options;
}

/// A server on 127.0.0.2 offering the scan service and a client on 127.0.0.3 that has found it.
class LoopbackTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { inNamespace_ = kov::test::enterOwnNetworkNamespace(skipReason_); }

  void SetUp() override {
    if (!inNamespace_) {
      if (kov::test::skipIsFailure()) {
        FAIL() << "cannot run in CI: " << skipReason_;
      }
      GTEST_SKIP() << "SKIP: " << skipReason_;
    }
    ASSERT_EQ(server_.connect(), someip::Result::Ok);
    ASSERT_EQ(client_.connect(), someip::Result::Ok);
    // Every method echoes the request reversed; 2 answers E_NOT_OK, 3 answers after 600 ms, beyond the
    // client's call timeout.
    server_.setRequestHandler([](const Address&, std::uint16_t method, const std::uint8_t* data,
                                 std::size_t size, std::vector<std::uint8_t>& response) {
      std::this_thread::sleep_for(method == 3 ? 600ms : 0ms);
      response.assign(std::make_reverse_iterator(data + size), std::make_reverse_iterator(data));
      return method == 2 ? ReturnCode::E_NOT_OK : ReturnCode::E_OK;
    });
    ASSERT_TRUE(server_.offerService(SCAN));
    ASSERT_TRUE(client_.subscribeAvailability({0x0003}, availability_.handler()));
    ASSERT_TRUE(client_.requestService(Address{0x0003, 0xFFFF}));
    ASSERT_EQ(availability_.waitFor("+16 "), "+16 ");
  }

  static inline bool inNamespace_{false};
  static inline std::string skipReason_;
  kov::test::LogCapture log_;  // first: installed before, and removed after, every transport thread
  kov::test::AvailabilityReports availability_;
  someip::SomeIpTransport server_{optionsFor("127.0.0.2")};
  someip::SomeIpTransport client_{optionsFor("127.0.0.3")};
};

TEST_F(LoopbackTest, MethodCallsReturnTheirOwnAnswerOrADistinctFailure) {
  // The call's result and its response buffer, which starts as 0xAA bytes of the request's size.
  const auto call = [this](std::uint16_t method, const Bytes& request) {
    Bytes response(request.size(), 0xAA);
    const auto result =
        client_.callMethod(SCAN, method, request.data(), request.size(), response.data(), response.size());
    return std::make_pair(result, response);
  };
  EXPECT_EQ(call(1, {1, 2, 3}), std::make_pair(someip::Result::Ok, Bytes{3, 2, 1}));
  EXPECT_EQ(call(2, {}), std::make_pair(someip::remoteErrorResult(ReturnCode::E_NOT_OK), Bytes{}));

  // A response after the timeout is dropped and does not answer the next call.
  EXPECT_EQ(call(3, {7, 7, 7}), std::make_pair(someip::Result::Timeout, Bytes{0xAA, 0xAA, 0xAA}));
  std::this_thread::sleep_for(400ms);  // the late answer arrives meanwhile
  EXPECT_EQ(call(1, {4, 5, 6}), std::make_pair(someip::Result::Ok, Bytes{6, 5, 4}));

  // Concurrent calls each get their own response.
  std::atomic<int> wrong{0};
  std::vector<std::thread> callers;
  for (std::uint8_t t = 0; t < 4; ++t) {
    callers.emplace_back([&call, t, &wrong] {
      for (std::uint8_t i = 0; i < 50; ++i) {
        wrong += call(1, {t, i}) == std::make_pair(someip::Result::Ok, Bytes{i, t}) ? 0 : 1;
      }
    });
  }
  for (auto& caller : callers) {
    caller.join();
  }
  EXPECT_EQ(wrong.load(), 0);

  // Disconnecting the server withdraws its offers.
  server_.disconnect();
  EXPECT_EQ(availability_.waitFor("+16 -16 "), "+16 -16 ");
}

sockaddr_in socketAddress(const char* address, std::uint16_t port) {
  return {AF_INET, htons(port), {inet_addr(address)}, {}};
}

/// A UDP socket of the test on `address`:`port`, multicast leaving through the loopback.
int testSocket(const char* address, std::uint16_t port) {
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  const int on = 1;
  const sockaddr_in local = socketAddress(address, port);
  const timeval wait{5, 0};
  if (sock < 0 || setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
      setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) != 0 ||
      setsockopt(sock, IPPROTO_IP, IP_MULTICAST_IF, &local.sin_addr, sizeof(local.sin_addr)) != 0 ||
      bind(sock, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
    return -1;
  }
  return sock;
}

void sendTo(int sock, const char* address, std::uint16_t port, const Bytes& bytes) {
  const sockaddr_in to = socketAddress(address, port);
  sendto(sock, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
}

TEST_F(LoopbackTest, EventsSentToTheMulticastGroupNamedByTheAckArrive) {
  using namespace kov::test::wire;
  // A server written by hand on 127.0.0.6, one socket for SD and its service on the shared port 30490: it
  // offers [0x4,0x20] to the client by unicast SD, answers the subscription with an Ack that names the
  // group 239.1.2.3:30700, and sends its event there.
  const int sd = testSocket("127.0.0.6", 30490);
  ASSERT_GE(sd, 0);
  const Address lidar{0x0004, 0x0020};
  ASSERT_TRUE(client_.requestService(Address{0x0004, 0xFFFF}));
  sendTo(sd, "127.0.0.3", 30490,
         sdMessage(0xC0, 1, {serviceEntry(0x01, 0x0004, 0x0020, 0x01, 30, 0, 0, 1)},
                   {ipv4Option(0x04, 0x7F000006, 0x11, 30490)}));
  for (int i = 0; i < 500 && !client_.offeredEndpoint(lidar); ++i) {
    std::this_thread::sleep_for(10ms);  // bounded poll: no report for 0x4 here
  }
  ASSERT_TRUE(client_.offeredEndpoint(lidar).has_value());

  std::atomic<int> right{0};
  std::atomic<int> wrong{0};
  ASSERT_TRUE(client_.subscribeEvents(lidar, 1, {1}, [&](std::uint16_t, const void* data, std::size_t size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    ++(Bytes(bytes, bytes + size) == Bytes{0x05, 0x06} ? right : wrong);
  }));
  std::uint8_t subscribe[1500];
  ssize_t size = 0;
  while ((size = recv(sd, subscribe, sizeof(subscribe), 0)) > 0 && !(size >= 25 && subscribe[24] == 0x06)) {
  }
  ASSERT_GE(size, 25) << "no SubscribeEventgroup arrived";
  sendTo(sd, "127.0.0.3", 30490,
         sdMessage(0xC0, 2, {eventgroupEntry(0x07, 0x0004, 0x0020, 0x01, 30, 0x0001, 0, 1)},
                   {ipv4Option(0x14, 0xEF010203, 0x11, 30700)}));
  for (int i = 0; i < 50 && right == 0; ++i) {
    sendTo(sd, "239.1.2.3", 30700, message({0x0004, 0x8001, 0, 1, 0x01, 0x01, 0x02, 0x00}, {0x05, 0x06}));
    std::this_thread::sleep_for(100ms);
  }
  EXPECT_TRUE(right > 0 && wrong == 0);
  EXPECT_TRUE(client_.unsubscribeEvents(lidar));
  close(sd);
}

}  // namespace
