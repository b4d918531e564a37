#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "networking/utils.hpp"
#include "support/log_capture.hpp"

namespace {

namespace net = kov::platform::networking;
using Lines = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

template <typename T>
Bytes bytesOf(T value) {
  Bytes bytes(sizeof(T));
  std::memcpy(bytes.data(), &value, sizeof(T));
  return bytes;
}

TEST(ByteOrder, BigEndianOnTheWire) {
  EXPECT_EQ(bytesOf(net::toNetworkByteOrder(std::uint16_t{0x1234})), (Bytes{0x12, 0x34}));
  EXPECT_EQ(net::toHostByteOrder(std::uint16_t{0x3412}), 0x1234);
  EXPECT_EQ(bytesOf(net::toNetworkByteOrder(0x12345678U)), (Bytes{0x12, 0x34, 0x56, 0x78}));
}

TEST(Address, TextAndSocketAddressesKeepNetworkOrderAndLogFailuresOnce) {
  kov::test::LogCapture log;
  std::uint32_t ip = 0;
  ASSERT_TRUE(net::stringToIPAddress("192.0.2.10", ip));
  EXPECT_EQ(bytesOf(ip), (Bytes{192, 0, 2, 10}));
  ASSERT_TRUE(net::stringToIPAddress("10.1", ip));  // short form
  EXPECT_EQ(net::ipAddressToString(ip), "10.0.0.1");
  // getBroadcast parses strictly: a short form is refused and the host given back.
  EXPECT_EQ(net::getBroadcast("192.0.2.10", "255.255.255.0"), "192.0.2.255");
  EXPECT_EQ(net::getBroadcast("10.20.30.40", "255.240.0.0"), "10.31.255.255");
  EXPECT_EQ(net::getBroadcast("192.0.2.10", "255.255.255"), "192.0.2.10");
  sockaddr_in v4{AF_INET, htons(30490), {inet_addr("192.0.2.10")}, {}};
  sockaddr_in6 v6{AF_INET6, htons(65535), 0, {}, 0};
  ASSERT_EQ(inet_pton(AF_INET6, "fe80::1", &v6.sin6_addr), 1);
  const sockaddr_un local{AF_UNIX, {}};
  const auto as = [](const auto& address) { return reinterpret_cast<const sockaddr*>(&address); };
  std::uint16_t port = 0;
  EXPECT_EQ(net::sockAddrToString(as(v4), port), "192.0.2.10");
  EXPECT_EQ(port, 30490);
  EXPECT_EQ(net::sockAddrToString(as(v6), port), "fe80::1");
  EXPECT_EQ(port, 65535);
  EXPECT_TRUE(net::getSourcePort(*as(v4)) == 30490 && net::getSourcePort(*as(v6)) == 65535);

  // Refusals keep their outputs.
  errno = 0;
  EXPECT_FALSE(net::stringToIPAddress("", ip) || net::stringToIPAddress("192.0.2.300", ip));
  EXPECT_EQ(net::ipAddressToString(ip), "10.0.0.1");
  EXPECT_EQ(net::sockAddrToString(as(local), port) + net::sockAddrToString(as(local)), "");
  EXPECT_TRUE(port == 65535 && net::getSourcePort(*as(local)) == 0);
  const std::string broadcast =
      "ERROR: kov::platform::networking::getBroadcast Failed converting number to string";
  const std::string family =
      "ERROR: kov::platform::networking::sockAddrToString error: Unknown Address Family type when parsing IP "
      "address";
  EXPECT_EQ(log.lines(),
            (Lines{broadcast, "ERROR: stringToIPAddress - address is empty",
                   "ERROR: stringToIPAddress - failed to convert IPv4 address (192.0.2.300) to encoded "
                   "format; error message: Success",
                   family, family, "ERROR: getSourcePort error: Unknown address family: 1"}));

  // The discarded port of the one-argument form must not be a data race between threads.
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i)
        EXPECT_EQ(net::sockAddrToString(as(v4)), "192.0.2.10");
    });
  }
  for (auto& thread : threads)
    thread.join();
}

TEST(Interfaces, ThisHostsInterfacesAndTheirSubnets) {
  // This host's IPv4 addresses and netmasks in system order, read independently of the library.
  std::vector<std::pair<in_addr_t, in_addr_t>> host;
  ifaddrs* list = nullptr;
  ASSERT_EQ(getifaddrs(&list), 0);
  for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
        entry->ifa_netmask != nullptr) {
      host.emplace_back(reinterpret_cast<sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr,
                        reinterpret_cast<sockaddr_in*>(entry->ifa_netmask)->sin_addr.s_addr);
    }
  }
  freeifaddrs(list);
  const auto text = [](in_addr_t address) { return std::string(inet_ntoa(in_addr{address})); };
  const auto firstHolding = [&](in_addr_t address) {
    for (const auto& [local, mask] : host) {
      if ((address & mask) == (local & mask))
        return text(local);
    }
    return std::string("127.0.0.1");
  };
  kov::test::LogCapture log;
  ASSERT_FALSE(host.empty());
  EXPECT_EQ(net::getMatchingInterface("127.0.0.1"), "127.0.0.1");
  EXPECT_EQ(net::getMatchingInterface("203.0.113.77"), firstHolding(inet_addr("203.0.113.77")));
  // Each interface's broadcast address lies in its own subnet; beyond loopback this picks a real interface.
  std::vector<std::pair<std::string, std::string>> expected;
  for (const auto& [local, mask] : host) {
    expected.emplace_back(text(local), text(local | ~mask));
    EXPECT_EQ(net::getMatchingInterface(text(local | ~mask)), firstHolding(local | ~mask)) << text(local);
  }
  EXPECT_EQ(net::getSystemIPsAndBroadcasts(), expected);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
