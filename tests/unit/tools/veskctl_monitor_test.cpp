// veskctl monitor's lines for SD datagrams written byte by byte from the SOME/IP-SD tables: entry
// types (TTL 0 as the stop/negative forms), versions, eventgroups, endpoint options, the reboot flag,
// the service filter and datagrams that are no valid SD message.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "monitor_command.hpp"

namespace {

using kov::tools::veskctl::describeSdDatagram;
using kov::tools::veskctl::MonitorLineContext;
using Bytes = std::vector<std::uint8_t>;

/// SOME/IP header of an SD notification (service 0xFFFF, method 0x8100, client 0, session 1) for a
/// payload of `payloadSize` bytes, followed by the payload.
Bytes sdDatagram(const Bytes& payload) {
  const auto length = static_cast<std::uint8_t>(8 + payload.size());
  Bytes bytes{0xFF, 0xFF, 0x81, 0x00, 0x00, 0x00, 0x00, length,
              0x00, 0x00, 0x00, 0x01, 0x01, 0x01, 0x02, 0x00};
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  return bytes;
}

// OfferService 0x0003/0x0010 v1.0, TTL 3, one IPv4 endpoint option 127.0.0.2:40001/UDP; reboot and
// unicast flags set.
const Bytes OFFER = sdDatagram({0xC0, 0,    0,    0,                             // flags, reserved
                                0,    0,    0,    0x10,                          // entries: 16 bytes
                                0x01, 0x00, 0x00, 0x10, 0x00, 0x03, 0x00, 0x10,  // offer, 1 option
                                0x01, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00,  // major 1, TTL 3, minor 0
                                0,    0,    0,    0x0C,                          // options: 12 bytes
                                0x00, 0x09, 0x04, 0x00, 0x7F, 0x00, 0x00, 0x02,  // IPv4 endpoint
                                0x00, 0x11, 0x9C, 0x41});                        // UDP, port 40001
// StopOfferService 0x0002/0x0010 v1.0 (offer with TTL 0), no options, unicast flag only.
const Bytes STOP_OFFER = sdDatagram({0x40, 0,    0,    0,    0,    0,    0,    0x10,  //
                                     0x01, 0x00, 0x00, 0x00, 0x00, 0x02, 0x00, 0x10,  //
                                     0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  //
                                     0,    0,    0,    0});
// SubscribeEventgroup 0x0003/0x0010 eventgroup 0x0003, TTL 3, options 127.0.0.3:41000/UDP and the
// multicast 239.1.2.3:5000/UDP.
const Bytes SUBSCRIBE = sdDatagram({0x40, 0,    0,    0,    0,    0,    0,    0x10,  //
                                    0x06, 0x00, 0x00, 0x20, 0x00, 0x03, 0x00, 0x10,  // 2 options
                                    0x01, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x03,  // eventgroup 3
                                    0,    0,    0,    0x18,                          //
                                    0x00, 0x09, 0x04, 0x00, 0x7F, 0x00, 0x00, 0x03,  //
                                    0x00, 0x11, 0xA0, 0x28,                          // port 41000
                                    0x00, 0x09, 0x14, 0x00, 0xEF, 0x01, 0x02, 0x03,  // multicast
                                    0x00, 0x11, 0x13, 0x88});                        // port 5000
// SubscribeEventgroupNack 0x0003/0x0010 eventgroup 0x0003 (ack with TTL 0), then FindService of
// 0x0004, any instance and version, TTL 3.
const Bytes NACK_AND_FIND = sdDatagram({0x40, 0,    0,    0,    0,    0,    0,    0x20,  //
                                        0x07, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x10,  //
                                        0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03,  //
                                        0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xFF, 0xFF,  //
                                        0xFF, 0x00, 0x00, 0x03, 0xFF, 0xFF, 0xFF, 0xFF,  //
                                        0,    0,    0,    0});
// An entries array of 17 bytes; a datagram of 10 bytes; a request of service 0x0003 on the SD port.
const Bytes ODD_ENTRIES =
    sdDatagram({0x40, 0, 0, 0, 0, 0, 0, 0x11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
const Bytes SHORT = {0xFF, 0xFF, 0x81, 0x00, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00};
const Bytes REQUEST = {0x00, 0x03, 0x80, 0x01, 0x00, 0x00, 0x00, 0x08,
                       0x00, 0x01, 0x00, 0x01, 0x01, 0x01, 0x00, 0x00};

TEST(VeskctlMonitorTest, DescribesEachSdEntryAndEachRefusedDatagram) {
  const std::string at = "    1.250  127.0.0.2:30490        ";
  const std::string jsonAt = "{\"time\":1.250,\"sender\":\"127.0.0.2:30490\",";
  const auto expectLines = [](const char* what, const Bytes& datagram, bool json,
                              std::optional<std::uint16_t> service, const std::vector<std::string>& lines) {
    MonitorLineContext context;
    context.seconds = 1.25;
    context.sender = "127.0.0.2:30490";
    context.json = json;
    context.service = service;
    EXPECT_EQ(describeSdDatagram(datagram.data(), datagram.size(), context), lines) << what;
  };
  expectLines("offer", OFFER, false, std::nullopt,
              {at + "OfferService             service=0x0003 instance=0x0010 version=1.0 ttl=3 reboot=yes "
                    "endpoints=127.0.0.2:40001/udp"});
  expectLines(
      "offer, json", OFFER, true, std::nullopt,
      {jsonAt + "\"type\":\"OfferService\",\"service\":\"0x0003\",\"instance\":\"0x0010\",\"major\":1,"
                "\"minor\":0,\"ttl\":3,\"reboot\":true,\"endpoints\":[\"127.0.0.2:40001/udp\"]}"});
  expectLines("stop offer", STOP_OFFER, false, std::nullopt,
              {at + "StopOfferService         service=0x0002 instance=0x0010 version=1.0 ttl=0 reboot=no"});
  expectLines(
      "stop offer, json", STOP_OFFER, true, std::nullopt,
      {jsonAt + "\"type\":\"StopOfferService\",\"service\":\"0x0002\",\"instance\":\"0x0010\",\"major\":1,"
                "\"minor\":0,\"ttl\":0,\"reboot\":false,\"endpoints\":[]}"});
  expectLines(
      "subscribe", SUBSCRIBE, false, std::nullopt,
      {at + "SubscribeEventgroup      service=0x0003 instance=0x0010 eventgroup=0x0003 ttl=3 reboot=no "
            "endpoints=127.0.0.3:41000/udp,239.1.2.3:5000/udp(multicast)"});
  expectLines("subscribe, json", SUBSCRIBE, true, std::nullopt,
              {jsonAt + "\"type\":\"SubscribeEventgroup\",\"service\":\"0x0003\",\"instance\":\"0x0010\","
                        "\"eventgroup\":\"0x0003\",\"ttl\":3,\"reboot\":false,"
                        "\"endpoints\":[\"127.0.0.3:41000/udp\",\"239.1.2.3:5000/udp(multicast)\"]}"});
  expectLines(
      "nack and find", NACK_AND_FIND, false, std::nullopt,
      {at + "SubscribeEventgroupNack  service=0x0003 instance=0x0010 eventgroup=0x0003 ttl=0 reboot=no",
       at + "FindService              service=0x0004 instance=0xffff version=any.any ttl=3 reboot=no"});
  expectLines(
      "nack and find, json", NACK_AND_FIND, true, std::nullopt,
      {jsonAt + "\"type\":\"SubscribeEventgroupNack\",\"service\":\"0x0003\",\"instance\":\"0x0010\","
                "\"eventgroup\":\"0x0003\",\"ttl\":0,\"reboot\":false,\"endpoints\":[]}",
       jsonAt + "\"type\":\"FindService\",\"service\":\"0x0004\",\"instance\":\"0xffff\",\"major\":255,"
                "\"minor\":4294967295,\"ttl\":3,\"reboot\":false,\"endpoints\":[]}"});
  expectLines(
      "only service 4", NACK_AND_FIND, false, 0x0004,
      {at + "FindService              service=0x0004 instance=0xffff version=any.any ttl=3 reboot=no"});
  expectLines("only service 2", OFFER, false, 0x0002, {});
  expectLines(
      "odd entries array", ODD_ENTRIES, false, 0x0002,
      {at + "malformed                SD payload refused: entries array length not a multiple of 16"});
  expectLines("short datagram, json", SHORT, true, std::nullopt,
              {jsonAt + "\"type\":\"malformed\",\"reason\":\"SOME/IP header refused: truncated header\"}"});
  expectLines("request on the SD port", REQUEST, false, std::nullopt,
              {at + "malformed                not an SD message: service 0x0003, method 0x8001"});
}

}  // namespace
