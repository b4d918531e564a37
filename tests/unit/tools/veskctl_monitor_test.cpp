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

/// The bytes of a hex text; spaces only separate groups for reading.
Bytes hex(const std::string& text) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += text[i] == ' ' ? 1 : 2) {
    if (text[i] != ' ') {
      bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    }
  }
  return bytes;
}

/// SOME/IP header of an SD notification (service 0xFFFF, method 0x8100, client 0, session 1) for the
/// payload given in hex, followed by that payload.
Bytes sdDatagram(const std::string& payload) {
  auto bytes = hex("ffff8100 00000000 00000001 01010200" + payload);
  bytes[7] = static_cast<std::uint8_t>(bytes.size() - 8);
  return bytes;
}

// OfferService 0x0003/0x0010 v1.0, TTL 3, one IPv4 endpoint option 127.0.0.2:40001/UDP; reboot and
// unicast flags set. Payload: flags, entries length 16, the entry (type, option run 0 with one option,
// service, instance, major, TTL, minor), options length 12, IPv4 endpoint (length 9, type 4, address,
// UDP, port).
const Bytes OFFER = sdDatagram(
    "c0000000 00000010 01000010 00030010 01000003 00000000 0000000c 00090400 "
    "7f000002 00119c41");
// StopOfferService 0x0002/0x0010 v1.0 (offer with TTL 0), no options, unicast flag only.
const Bytes STOP_OFFER = sdDatagram("40000000 00000010 01000000 00020010 01000000 00000000 00000000");
// SubscribeEventgroup 0x0003/0x0010 eventgroup 0x0003, TTL 3, options 127.0.0.3:41000/UDP and the
// multicast 239.1.2.3:5000/UDP (type 0x14).
const Bytes SUBSCRIBE = sdDatagram(
    "40000000 00000010 06000020 00030010 01000003 00000003 00000018 00090400 "
    "7f000003 0011a028 00091400 ef010203 00111388");
// SubscribeEventgroupNack 0x0003/0x0010 eventgroup 0x0003 (ack with TTL 0), then FindService of
// 0x0004, any instance and version, TTL 3.
const Bytes NACK_AND_FIND = sdDatagram(
    "40000000 00000020 07000000 00030010 01000000 00000003 00000000 0004ffff ff000003 ffffffff 00000000");
// An entries array of 17 bytes; a datagram of 10 bytes; a request of service 0x0003 on the SD port.
const Bytes ODD_ENTRIES = sdDatagram("40000000 00000011 00000000 00000000 00000000 00000000 00000000 00");
const Bytes SHORT = hex("ffff8100 00000008 0000");
const Bytes REQUEST = hex("00038001 00000008 00010001 01010000");

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
  expectLines("nack and find, json, only service 4", NACK_AND_FIND, true, 0x0004,
              {jsonAt + "\"type\":\"FindService\",\"service\":\"0x0004\",\"instance\":\"0xffff\","
                        "\"major\":255,\"minor\":4294967295,\"ttl\":3,\"reboot\":false,\"endpoints\":[]}"});
  expectLines(
      "odd entries array", ODD_ENTRIES, false, 0x0002,
      {at + "malformed                SD payload refused: entries array length not a multiple of 16"});
  expectLines("short datagram, json", SHORT, true, std::nullopt,
              {jsonAt + "\"type\":\"malformed\",\"reason\":\"SOME/IP header refused: truncated header\"}"});
  expectLines("request on the SD port", REQUEST, false, std::nullopt,
              {at + "malformed                not an SD message: service 0x0003, method 0x8001"});
}

}  // namespace
