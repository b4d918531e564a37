// veskctl doctor: the verdicts drawn from hand-made facts, and the FindService it sends.

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "doctor_probes.hpp"
#include "doctor_verdicts.hpp"

namespace kov::tools::veskctl::doctor {
void PrintTo(const Verdict& v, std::ostream* out) {
  *out << v.check << " | " << statusName(v.status) << " | " << v.found << " | " << v.fix;
}
}  // namespace kov::tools::veskctl::doctor

namespace {

using namespace kov::tools::veskctl::doctor;

InterfaceFacts veth(bool up = true, bool multicast = true) {
  return {"veth0", "", up, multicast, false};
}

Offer offer(std::uint16_t service, std::uint16_t instance, std::uint8_t major, bool unicast = false) {
  return {service, instance, major, 0, 3, "198.18.0.11:40000", "198.18.0.11", unicast};
}

ListenFacts heard(std::vector<Offer> offers) {
  return {3.0, "", "", {{"198.18.0.11", 30490, true, 4}}, std::move(offers)};
}

/// The verdicts of the listen checks whose name starts with `check` ("sensor", "find").
std::vector<Verdict> linesOf(const char* check, const ListenFacts& facts, std::optional<std::uint8_t> major) {
  std::vector<Verdict> lines;
  for (const auto& verdict : listenVerdicts(facts, major)) {
    if (verdict.check.rfind(check, 0) == 0) {
      lines.push_back(verdict);
    }
  }
  return lines;
}

const char* const LACKS_FIX =
    "restart the sensor or check its configuration: a sensor offers all of 0x0002, 0x0003, 0x0004";

TEST(VeskctlDoctorTest, VerdictsFollowFromTheFacts) {
  const auto expectVerdicts = [](const char* name, const std::vector<Verdict>& verdicts,
                                 const std::vector<Verdict>& expected) {
    EXPECT_EQ(verdicts, expected) << name;
  };
  expectVerdicts("address on no interface", {addressVerdict("198.18.0.9", std::nullopt, {})},
                 {{"address", Status::Fail, "198.18.0.9 is assigned to no interface of this host",
                   "ip addr add 198.18.0.9/24 dev IFACE, or pass --unicast with one of this host's addresses "
                   "(ip -4 addr show)"}});
  expectVerdicts(
      "interface down", {addressVerdict("198.18.0.9", veth(false), {})},
      {{"address", Status::Fail, "198.18.0.9 on veth0, which is DOWN", "ip link set dev veth0 up"}});
  expectVerdicts(
      "no multicast flag, loop-back fails", {addressVerdict("198.18.0.9", veth(true, false), {false, ""})},
      {{"address", Status::Fail,
        "198.18.0.9 on veth0 (UP) without the MULTICAST flag; the multicast loop-back probe fails there",
        "ip link set dev veth0 multicast on"}});
  expectVerdicts(
      "127.0.0.2 inside lo's network",
      {addressVerdict("127.0.0.2", InterfaceFacts{"lo", "127.0.0.1/8", true, true, true}, {true, ""})},
      {{"address", Status::Pass, "127.0.0.2 on lo (in 127.0.0.1/8) (UP, MULTICAST)", ""}});
  expectVerdicts(
      "strict through all: the interface's own setting fixes it",
      rpFilterVerdicts(veth(), {0, 1, std::nullopt, std::nullopt}, {}),
      {{"rp_filter", Status::Warn, "strict (veth0 0, all 1): SD multicast from another subnet is dropped",
        "sysctl -w net.ipv4.conf.veth0.rp_filter=2"}});
  expectVerdicts("loose wins over strict", rpFilterVerdicts(veth(), {2, 1, 7, 7}, {}),
                 {{"rp_filter", Status::Pass, "loose (veth0 2, all 1)", ""}});
  expectVerdicts(
      "strict and dropping while listening; the route back leaves elsewhere",
      rpFilterVerdicts(veth(), {1, 0, 7, 10}, {{"198.18.3.1", "dummy0"}, {"198.18.0.11", "veth0"}}),
      {{"rp_filter", Status::Fail,
        "strict (veth0 1, all 0): SD multicast from another subnet is dropped; the kernel dropped 3 "
        "datagrams by reverse-path filtering while listening (IPReversePathFilter)",
        "sysctl -w net.ipv4.conf.veth0.rp_filter=2"},
       {"reverse route", Status::Warn,
        "to SD sender 198.18.3.1 through dummy0, not through veth0 where its SD messages arrive",
        "ip route add 198.18.3.1 dev veth0, or sysctl -w net.ipv4.conf.veth0.rp_filter=2"},
       {"reverse route", Status::Pass, "to SD sender 198.18.0.11 through veth0", ""}});
  expectVerdicts(
      "port held without reuse by one process",
      {portVerdict("198.18.0.9", "224.224.224.245", 30490,
                   {"Address already in use", "", true, {{4242, "python3", "198.18.0.9:30490"}}, true})},
      {{"sd port", Status::Fail,
        "cannot bind 198.18.0.9:30490 (Address already in use): python3 (pid 4242) on 198.18.0.9:30490 holds "
        "the port without address reuse",
        "stop python3 (pid 4242) or make it share the port (SO_REUSEADDR on its socket)"}});
  expectVerdicts("loop-back probe lost",
                 {loopbackVerdict("198.18.0.9", "224.224.224.245", "veth0", {false, ""})},
                 {{"multicast loop-back", Status::Fail,
                   "our datagram to 224.224.224.245 sent over 198.18.0.9 did not come back within 1 s",
                   "ip link set dev veth0 multicast on; ip route add 224.0.0.0/4 dev veth0"}});
  expectVerdicts("nothing heard", listenVerdicts({2.5, "", "", {}, {}}, std::nullopt),
                 {{"sd participants", Status::Fail, "no SD message heard in 2.5 s",
                   "likely causes: no sensor up on this link; the sensors use another SD group or port "
                   "(--sd-multicast, --sd-port); strict rp_filter or a missing route back to them; multicast "
                   "off on the interface; a firewall dropping UDP to the SD port"}});
  expectVerdicts(
      "a sensor lacking a service; a StopOffer counts for nothing",
      [] {
        auto facts = heard({offer(2, 0x10, 0), offer(3, 0x10, 0), offer(4, 0x10, 0)});
        facts.offers.back().ttl = 0;
        return linesOf("sensor", facts, std::nullopt);
      }(),
      {{"sensor 0x0010", Status::Warn,
        "services 0x0002, 0x0003 at 198.18.0.11:40000, major 0; lacks service 0x0004", LACKS_FIX}});
  expectVerdicts(
      "majors against --major",
      linesOf("sensor", heard({offer(2, 0x10, 0), offer(3, 0x10, 0), offer(4, 0x10, 0)}), 1),
      {{"sensor 0x0010", Status::Warn,
        "services 0x0002, 0x0003, 0x0004 at 198.18.0.11:40000, major 0; major differs from --major 1",
        "run with --major 0 or update the sensor's software"}});
  expectVerdicts(
      "one sensor's major against the others'",
      linesOf("sensor",
              heard({offer(2, 0x10, 0), offer(3, 0x10, 0), offer(4, 0x10, 0), offer(2, 0x11, 0),
                     offer(3, 0x11, 0), offer(4, 0x11, 0), offer(2, 0x12, 2), offer(3, 0x12, 2)}),
              std::nullopt),
      {{"sensor 0x0010", Status::Pass, "services 0x0002, 0x0003, 0x0004 at 198.18.0.11:40000, major 0", ""},
       {"sensor 0x0011", Status::Pass, "services 0x0002, 0x0003, 0x0004 at 198.18.0.11:40000, major 0", ""},
       {"sensor 0x0012", Status::Warn,
        "services 0x0002, 0x0003 at 198.18.0.11:40000, major 2; lacks service 0x0004; major differs from the "
        "other sensors' 0",
        std::string(LACKS_FIX) + "; update the sensor's software, or pick one version with --major"}});
  expectVerdicts(
      "FindService answered by unicast offers",
      linesOf("find", heard({offer(2, 0x10, 0, true), offer(3, 0x10, 0)}), std::nullopt),
      {{"find", Status::Pass, "FindService for 0x0002, 0x0003, 0x0004 answered by 198.18.0.11", ""}});
  expectVerdicts("FindService unanswered", linesOf("find", heard({offer(2, 0x10, 0)}), std::nullopt),
                 {{"find", Status::Warn, "nobody answered our FindService for 0x0002, 0x0003, 0x0004",
                   "check that unicast UDP to the SD port of this host is not dropped (firewall)"}});
  expectVerdicts(
      "a getter that timed out",
      getterVerdicts({{0x10, true, 1.3, "text1=\"x\""}, {0x11, false, 0, "Timeout"}}),
      {{"getter 0x0010", Status::Pass, "getSensorSoftwareVersion answered in 1.3 ms: text1=\"x\"", ""},
       {"getter 0x0011", Status::Fail, "getSensorSoftwareVersion did not answer: Timeout",
        "the sensor is offered but its endpoint does not answer: check the route and firewalls between this "
        "host and the endpoint of its offers, and --major"}});
}

TEST(VeskctlDoctorTest, FindServiceBytes) {
  // SOME/IP header: service 0xFFFF, method 0x8100, length 8 + 4 (flags) + 4 + 48 (three entries) + 4,
  // client 0, session 1, protocol 1, interface 1, NOTIFICATION, E_OK; flags reboot | unicast.
  const std::vector<std::uint8_t> header = {0xFF, 0xFF, 0x81, 0x00, 0x00, 0x00, 0x00, 0x44,
                                            0x00, 0x00, 0x00, 0x01, 0x01, 0x01, 0x02, 0x00,
                                            0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x30};
  const auto entry = [](std::uint8_t service, std::uint8_t major) {
    // type FIND, no options, service, instance 0xFFFF, major, TTL 3, minor 0xFFFFFFFF
    return std::vector<std::uint8_t>{0x00,  0x00, 0x00, 0x00, 0x00, service, 0xFF, 0xFF,
                                     major, 0x00, 0x00, 0x03, 0xFF, 0xFF,    0xFF, 0xFF};
  };
  for (const std::optional<std::uint8_t> major :
       {std::optional<std::uint8_t>(), std::optional<std::uint8_t>(1)}) {
    auto expected = header;
    for (const std::uint8_t service : {2, 3, 4}) {
      const auto bytes = entry(service, major ? *major : 0xFF);
      expected.insert(expected.end(), bytes.begin(), bytes.end());
    }
    expected.insert(expected.end(), {0x00, 0x00, 0x00, 0x00});
    EXPECT_EQ(findServiceMessage(major), expected);
  }
}

}  // namespace
