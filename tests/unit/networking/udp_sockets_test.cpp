#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "networking/udp_sockets.hpp"
#include "support/log_capture.hpp"

namespace net = kov::platform::networking;
namespace udp = kov::platform::networking::udp;
using net::NetworkResult;
using Lines = std::vector<std::string>;
using namespace std::chrono_literals;

namespace {

/// An open UDP socket bound to 127.0.0.1 on a port of the system's choice, reads bounded by 2 s.
struct LoopbackSocket {
  int fd = -1;
  std::uint16_t port = 0;
  LoopbackSocket() {
    EXPECT_EQ(udp::openSocket(fd), NetworkResult::OK);
    EXPECT_EQ(udp::bindSocketRandomPort(fd, "127.0.0.1", port), NetworkResult::OK);
    EXPECT_EQ(udp::setSocketPollTimeout(fd, 2000ms), NetworkResult::OK);
  }
  ~LoopbackSocket() { net::closeSocket(fd); }
};

sockaddr_in boundAddress(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof(address);
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
  return address;
}

template <typename T>
T option(int fd, int name) {
  T value{};
  socklen_t length = sizeof(value);
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, name, &value, &length), 0);
  return value;
}

TEST(UdpSockets, OpenAndCloseGuardTheirDescriptors) {
  kov::test::LogCapture log;
  int sock = 5;
  EXPECT_EQ(udp::openSocket(sock), NetworkResult::ALREADY_OPEN);
  EXPECT_EQ(sock, 5);
  sock = -1;
  ASSERT_EQ(udp::openSocket(sock), NetworkResult::OK);
  EXPECT_EQ(net::closeSocket(sock), NetworkResult::OK);
  EXPECT_EQ(net::closeSocket(-1), NetworkResult::OK);
  EXPECT_EQ(net::closeSocket(sock), NetworkResult::SYSTEM_ERROR);

  EXPECT_EQ(log.lines(),
            (Lines{"ERROR: udp::openSocket - socket_ is potentially open, not doing anything!",
                   "ERROR: closeSocket() - error closing socket; error mesage: Bad file descriptor"}));
}

TEST(UdpSockets, OptionsAndBinds) {
  kov::test::LogCapture log;
  LoopbackSocket taken;
  EXPECT_NE(taken.port, 0);
  EXPECT_EQ(ntohs(boundAddress(taken.fd).sin_port), taken.port);
  EXPECT_EQ(udp::setReuseAddress(taken.fd, true), NetworkResult::OK);
  EXPECT_EQ(option<int>(taken.fd, SO_REUSEADDR), 1);
  EXPECT_EQ(udp::setReuseAddress(taken.fd, false), NetworkResult::OK);
  EXPECT_EQ(option<int>(taken.fd, SO_REUSEADDR), 0);
  EXPECT_EQ(udp::setSocketBroadcast(taken.fd), NetworkResult::OK);
  EXPECT_EQ(option<int>(taken.fd, SO_BROADCAST), 1);
  EXPECT_EQ(udp::setSocketPollTimeout(taken.fd, 1500ms), NetworkResult::OK);
  const auto timeout = option<timeval>(taken.fd, SO_RCVTIMEO);
  EXPECT_EQ(timeout.tv_sec, 1);
  EXPECT_EQ(timeout.tv_usec, 500000);
  EXPECT_EQ(udp::joinMulticastGroup(taken.fd, {"239.255.10.20", "127.0.0.1"}), NetworkResult::OK);

  std::uint16_t port = taken.port;  // already bound: a second bind fails and leaves the port alone
  EXPECT_EQ(udp::bindSocketRandomPort(taken.fd, "127.0.0.1", port), NetworkResult::SYSTEM_ERROR);
  EXPECT_EQ(port, taken.port);
  int fixed = -1;
  ASSERT_EQ(udp::openSocket(fixed), NetworkResult::OK);
  EXPECT_EQ(udp::bindSocket(fixed, "127.0.0.1", port), NetworkResult::SYSTEM_ERROR);
  net::closeSocket(taken.fd);
  taken.fd = -1;
  EXPECT_EQ(udp::bindSocket(fixed, port), NetworkResult::OK);
  EXPECT_EQ(ntohs(boundAddress(fixed).sin_port), port);
  EXPECT_EQ(boundAddress(fixed).sin_addr.s_addr, htonl(INADDR_ANY));
  int other = -1;
  ASSERT_EQ(udp::openSocket(other), NetworkResult::OK);
  EXPECT_EQ(udp::bindSocket(other, port), NetworkResult::SYSTEM_ERROR);
  net::closeSocket(fixed);
  // The bind parser is strict: a short form is no address and binds to every address.
  EXPECT_EQ(udp::bindSocketRandomPort(other, "127.1", port), NetworkResult::OK);
  EXPECT_EQ(boundAddress(other).sin_addr.s_addr, htonl(INADDR_ANY));
  net::closeSocket(other);

  const std::string p = std::to_string(taken.port);
  EXPECT_EQ(
      log.lines(),
      (Lines{
          "ERROR: udp::bindSocketRandomPort - error binding UDP socket_ to 127.0.0.1 and random port; error "
          "message: Invalid argument",
          "ERROR: udp::bindSocket - error binding socket_ to local address/port 127.0.0.1:" + p +
              "; error message: Address already in use",
          "ERROR: udp::bindSocket - error binding UDP socket_ to local port " + p +
              "; error message: Address already in use"}));
}

TEST(UdpSockets, EveryFailedCallLogsItsLineOnce) {
  kov::test::LogCapture log;
  std::uint16_t port = 77;
  std::size_t received = 99;
  char buffer[4] = {};
  for (const NetworkResult result :
       {udp::setReuseAddress(-1, true), udp::setReuseAddress(-1, false), udp::setSocketBroadcast(-1),
        udp::setSocketPollTimeout(-1, 250ms), udp::bindSocketRandomPort(-1, "127.0.0.1", port),
        udp::joinMulticastGroup(-1, {"239.1.2.3", "127.0.0.1"}),
        udp::sendToAddress(-1, "127.0.0.1", 9, "abc", 3),
        udp::tryRead(-1, buffer, sizeof(buffer), received)}) {
    EXPECT_EQ(result, NetworkResult::SYSTEM_ERROR);
  }
  EXPECT_EQ(received, 0U);
  EXPECT_EQ(port, 77);
  const std::string ebadf = "; error message: Bad file descriptor";
  EXPECT_EQ(
      log.lines(),
      (Lines{
          "ERROR: udp::setReuseAddress() - error turning on UDP socket reuse address option" + ebadf,
          "ERROR: udp::setReuseAddress() - error turning off UDP socket reuse address option" + ebadf,
          "ERROR: udp::setSocketBroadcast() - error setting UDP socket to broadcast" + ebadf,
          "ERROR: udp::setSocketPollTimeout() - error setting UDP socket poll timeout to 250 ms" + ebadf,
          "ERROR: udp::bindSocketRandomPort - error binding UDP socket_ to 127.0.0.1 and random port" + ebadf,
          "ERROR: udp::joinMulticastGroup() - error joining multicast group address \"239.1.2.3\" on local "
          "address \"127.0.0.1\"" +
              ebadf,
          "ERROR: udp::send() - error sending packet of size 3 to 127.0.0.1:9" + ebadf,
          "ERROR: udp::tryReadFrom() - error reading from UDP socket" + ebadf}));
}

TEST(UdpSockets, ReadsReportSenderTruncateAndTimeOutQuietly) {
  kov::test::LogCapture log;
  LoopbackSocket receiver;
  LoopbackSocket sender;
  char buffer[10] = {};
  std::size_t received = 0;
  const auto sendText = [&](const std::string& text) {
    ASSERT_EQ(udp::sendToAddress(sender.fd, "127.1", receiver.port, text.data(), text.size()),
              NetworkResult::OK);
  };
  const auto payload = [&] { return std::string(buffer, received); };
  std::string address;
  std::uint16_t port = 0;
  std::uint32_t ip = 0;

  sendText("plain");
  ASSERT_EQ(udp::tryRead(receiver.fd, buffer, sizeof(buffer), received), NetworkResult::OK);
  EXPECT_EQ(payload(), "plain");
  sendText("address");
  ASSERT_EQ(udp::tryReadFrom(receiver.fd, buffer, sizeof(buffer), received, address), NetworkResult::OK);
  EXPECT_EQ(payload() + " " + address, "address 127.0.0.1");
  address.clear();
  sendText("and port");
  ASSERT_EQ(udp::tryReadFrom(receiver.fd, buffer, sizeof(buffer), received, address, port),
            NetworkResult::OK);
  EXPECT_EQ(payload() + " " + address, "and port 127.0.0.1");
  EXPECT_EQ(port, sender.port);
  port = 0;
  sendText("ip");
  ASSERT_EQ(udp::tryReadFrom(receiver.fd, buffer, sizeof(buffer), received, ip, port), NetworkResult::OK);
  EXPECT_EQ(payload(), "ip");
  const std::uint8_t loopback[] = {127, 0, 0, 1};  // network order, as the socket address holds it
  EXPECT_EQ(std::memcmp(&ip, loopback, 4), 0);
  EXPECT_EQ(port, sender.port);
  port = 0;
  sendText("port");
  ASSERT_EQ(udp::tryReadFrom(receiver.fd, buffer, sizeof(buffer), received, port), NetworkResult::OK);
  EXPECT_EQ(payload(), "port");
  EXPECT_EQ(port, sender.port);

  // Oversized: cut to the buffer, the rest lost. Empty datagram and time-out: NO_DATA, outputs untouched.
  sendText("abcdefghijklmnopqrstuvwxyz");
  ASSERT_EQ(udp::tryRead(receiver.fd, buffer, sizeof(buffer), received), NetworkResult::OK);
  EXPECT_EQ(payload(), "abcdefghij");
  sendText("");
  received = 99;
  EXPECT_EQ(udp::tryReadFrom(receiver.fd, buffer, sizeof(buffer), received, ip, port),
            NetworkResult::NO_DATA);
  EXPECT_EQ(received, 0U);
  ASSERT_EQ(udp::setSocketPollTimeout(receiver.fd, 20ms), NetworkResult::OK);
  received = 99;
  EXPECT_EQ(udp::tryReadFrom(receiver.fd, buffer, sizeof(buffer), received, address, port),
            NetworkResult::NO_DATA);
  EXPECT_EQ(received, 0U);
  EXPECT_EQ(address, "127.0.0.1");
  EXPECT_EQ(std::memcmp(&ip, loopback, 4), 0);
  EXPECT_EQ(port, sender.port);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
