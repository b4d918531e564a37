#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "networking/udp_sockets.hpp"
#include "support/log_capture.hpp"

namespace {

namespace net = kov::platform::networking;
namespace udp = kov::platform::networking::udp;
using net::NetworkResult;
using namespace std::chrono_literals;

/// "address:port" a socket is bound to.
std::string boundAddress(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof(address);
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
  return std::string(inet_ntoa(address.sin_addr)) + ":" + std::to_string(ntohs(address.sin_port));
}

TEST(UdpSockets, FailedCallsLogTheirLineOnceAndLeaveOutputsAlone) {
  kov::test::LogCapture log;
  int sock = 5;
  EXPECT_EQ(udp::openSocket(sock), NetworkResult::ALREADY_OPEN);
  EXPECT_EQ(sock, 5);
  sock = -1;
  ASSERT_EQ(udp::openSocket(sock), NetworkResult::OK);
  EXPECT_TRUE(net::closeSocket(sock) == NetworkResult::OK && net::closeSocket(-1) == NetworkResult::OK);
  std::uint16_t port = 77;
  std::size_t received = 99;
  char buffer[4] = {};
  for (const NetworkResult result :
       {net::closeSocket(sock), udp::setReuseAddress(-1, true), udp::setSocketPollTimeout(-1, 250ms),
        udp::bindSocketRandomPort(-1, "127.0.0.1", port), udp::bindSocket(-1, "192.0.2.4", 9),
        udp::joinMulticastGroup(-1, {"239.1.2.3", "127.0.0.1"}),
        udp::sendToAddress(-1, "127.0.0.1", 9, "abc", 3), udp::tryRead(-1, buffer, 4, received)}) {
    EXPECT_EQ(result, NetworkResult::SYSTEM_ERROR);
  }
  EXPECT_TRUE(received == 0 && port == 77);
  const std::string e = "ERROR: udp::", ebadf = "; error message: Bad file descriptor";
  EXPECT_EQ(
      log.lines(),
      (std::vector<std::string>{
          e + "openSocket - socket_ is potentially open, not doing anything!",
          "ERROR: closeSocket() - error closing socket; error mesage: Bad file descriptor",
          e + "setReuseAddress() - error turning on UDP socket reuse address option" + ebadf,
          e + "setSocketPollTimeout() - error setting UDP socket poll timeout to 250 ms" + ebadf,
          e + "bindSocketRandomPort - error binding UDP socket_ to 127.0.0.1 and random port" + ebadf,
          e + "bindSocket - error binding socket_ to local address/port 192.0.2.4:9" + ebadf,
          e +
              "joinMulticastGroup() - error joining multicast group address \"239.1.2.3\" on local address "
              "\"127.0.0.1\"" +
              ebadf,
          e + "send() - error sending packet of size 3 to 127.0.0.1:9" + ebadf,
          e + "tryReadFrom() - error reading from UDP socket" + ebadf}));
}

TEST(UdpSockets, SettersBindsAndReadsThatReportSenderTruncateAndTimeOutQuietly) {
  kov::test::LogCapture log;
  // Two sockets on 127.0.0.1 at ports of the system's choice; reads bounded by 2 s.
  int receiver = -1, sender = -1;
  std::uint16_t receiverPort = 0, senderPort = 0;
  ASSERT_TRUE(udp::openSocket(receiver) == NetworkResult::OK &&
              udp::openSocket(sender) == NetworkResult::OK &&
              udp::bindSocketRandomPort(receiver, "127.0.0.1", receiverPort) == NetworkResult::OK &&
              udp::bindSocketRandomPort(sender, "127.0.0.1", senderPort) == NetworkResult::OK &&
              udp::setSocketPollTimeout(receiver, 2000ms) == NetworkResult::OK);
  EXPECT_EQ(boundAddress(receiver), "127.0.0.1:" + std::to_string(receiverPort));
  EXPECT_TRUE(udp::setReuseAddress(sender, true) == NetworkResult::OK &&
              udp::setSocketBroadcast(sender) == NetworkResult::OK &&
              udp::setSocketPollTimeout(sender, 1500ms) == NetworkResult::OK &&
              udp::joinMulticastGroup(sender, {"239.255.10.20", "127.0.0.1"}) == NetworkResult::OK);

  for (const std::string text : {"plain", "address", "ip", "abcdefghijklmnopqrstuvwxyz", ""})
    ASSERT_EQ(udp::sendToAddress(sender, "127.1", receiverPort, text.data(), text.size()), NetworkResult::OK);
  char buffer[10] = {};
  std::size_t received = 99;
  std::string address = "kept";
  std::uint16_t port = 1;
  std::uint32_t ip = 0;
  const auto got = [&] { return std::string(buffer, received) + " " + address + ":" + std::to_string(port); };
  // Every read starts from marked outputs, so that what a read leaves alone shows.
  const auto read = [&](auto&... outputs) {
    std::tie(received, port, ip, address) = std::make_tuple(99, 1, 0, "kept");
    const NetworkResult result = udp::tryReadFrom(receiver, buffer, sizeof(buffer), received, outputs...);
    return (result == NetworkResult::OK        ? "OK "
            : result == NetworkResult::NO_DATA ? "NO_DATA "
                                               : "failed ") +
           got();
  };
  const std::string from = ":" + std::to_string(senderPort);

  ASSERT_EQ(udp::tryRead(receiver, buffer, sizeof(buffer), received), NetworkResult::OK);
  EXPECT_EQ(got(), "plain kept:1");
  EXPECT_EQ(read(address), "OK address 127.0.0.1:1");
  EXPECT_EQ(read(ip, port), "OK ip kept" + from);
  EXPECT_EQ(ip, inet_addr("127.0.0.1"));  // network order, as the socket address holds it
  // Oversized: cut to the buffer, the rest lost. Empty datagram and time-out: NO_DATA, outputs untouched.
  EXPECT_EQ(read(address), "OK abcdefghij 127.0.0.1:1");
  EXPECT_EQ(read(ip, port) + std::to_string(ip), "NO_DATA  kept:10");
  ASSERT_EQ(udp::setSocketPollTimeout(receiver, 20ms), NetworkResult::OK);
  EXPECT_EQ(read(address, port), "NO_DATA  kept:1");

  // Once its socket closes, a fixed bind gets the port, on every address.
  net::closeSocket(receiver);
  net::closeSocket(sender);
  receiver = -1;
  ASSERT_EQ(udp::openSocket(receiver), NetworkResult::OK);
  EXPECT_EQ(udp::bindSocket(receiver, receiverPort), NetworkResult::OK);
  EXPECT_EQ(boundAddress(receiver), "0.0.0.0:" + std::to_string(receiverPort));
  net::closeSocket(receiver);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
