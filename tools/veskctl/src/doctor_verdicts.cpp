#include "doctor_verdicts.hpp"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

namespace kov::tools::veskctl::doctor {

namespace {

std::string hex4(std::uint16_t value) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%04x", value);
  return text;
}

std::string joined(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (const auto& part : parts) {
    text += (text.empty() ? "" : separator) + part;
  }
  return text;
}

std::string rpFilterFix(const std::string& interface) {
  return "sysctl -w net.ipv4.conf." + interface + ".rp_filter=2";
}

std::string valueText(const std::optional<int>& value) {
  return value ? std::to_string(*value) : "?";
}

const char* modeName(int value) {
  switch (value) {
    case 0:
      return "off";
    case 1:
      return "strict";
    default:
      return "loose";
  }
}

/// The major version most sensors offer (the lowest of equally common ones).
std::optional<std::uint8_t> commonMajor(const std::map<std::uint16_t, std::set<std::uint8_t>>& majors) {
  std::map<std::uint8_t, unsigned> counts;
  for (const auto& sensor : majors) {
    for (const auto major : sensor.second) {
      ++counts[major];
    }
  }
  std::optional<std::uint8_t> best;
  unsigned bestCount = 0;
  for (const auto& count : counts) {
    if (count.second > bestCount) {
      best = count.first;
      bestCount = count.second;
    }
  }
  return best;
}

std::string offerText(const Offer& offer) {
  return "service " + hex4(offer.service) + " instance " + hex4(offer.instance) + " major " +
         std::to_string(offer.major) + " minor " + std::to_string(offer.minor) + " TTL " +
         std::to_string(offer.ttl) + " at " + (offer.endpoint.empty() ? "no endpoint" : offer.endpoint) +
         " from " + offer.sender + (offer.unicast ? " (answer to FindService)" : "");
}

bool isSensorService(std::uint16_t service) {
  return std::find(std::begin(SENSOR_SERVICES), std::end(SENSOR_SERVICES), service) !=
         std::end(SENSOR_SERVICES);
}

}  // namespace

const char* statusName(Status status) {
  switch (status) {
    case Status::Pass:
      return "PASS";
    case Status::Warn:
      return "WARN";
    case Status::Fail:
      return "FAIL";
  }
  return "FAIL";
}

Verdict addressVerdict(const std::string& address, const std::optional<InterfaceFacts>& interface,
                       const LoopbackFacts& loopback) {
  Verdict verdict{"address", Status::Pass, "", ""};
  if (!interface) {
    verdict.status = Status::Fail;
    verdict.found = address + " is assigned to no interface of this host";
    verdict.fix = "ip addr add " + address +
                  "/24 dev IFACE, or pass --unicast with one of this host's addresses "
                  "(ip -4 addr show)";
    return verdict;
  }
  const std::string where = address + " on " + interface->name +
                            (interface->matched.empty() ? "" : " (in " + interface->matched + ")");
  if (!interface->up) {
    verdict.status = Status::Fail;
    verdict.found = where + ", which is DOWN";
    verdict.fix = "ip link set dev " + interface->name + " up";
    return verdict;
  }
  if (!interface->multicast) {
    verdict.status = loopback.delivered ? Status::Warn : Status::Fail;
    verdict.found = where + " (UP) without the MULTICAST flag" +
                    (loopback.delivered ? "; the multicast loop-back probe still works there"
                                        : "; the multicast loop-back probe fails there");
    verdict.fix = "ip link set dev " + interface->name + " multicast on";
    return verdict;
  }
  verdict.found = where + " (UP, MULTICAST)";
  return verdict;
}

std::vector<Verdict> rpFilterVerdicts(const InterfaceFacts& interface, const RpFilterFacts& facts,
                                      const std::vector<SenderRoute>& routes) {
  std::vector<Verdict> verdicts;
  Verdict filter{"rp_filter", Status::Pass, "", ""};
  const std::string values =
      interface.name + " " + valueText(facts.interfaceValue) + ", all " + valueText(facts.allValue);
  if (interface.loopback) {
    filter.found = interface.name + " is the loop-back interface: reverse-path filtering does not apply (" +
                   values + ")";
  } else if (!facts.interfaceValue || !facts.allValue) {
    filter.status = Status::Warn;
    filter.found = "could not read the setting (" + values + ")";
    filter.fix = "sysctl net.ipv4.conf.all.rp_filter net.ipv4.conf." + interface.name + ".rp_filter";
  } else {
    const int effective = std::max(*facts.interfaceValue, *facts.allValue);
    filter.found = std::string(modeName(effective)) + " (" + values + ")";
    if (effective == 1) {
      filter.status = Status::Warn;
      filter.found += ": SD multicast from another subnet is dropped";
      filter.fix = rpFilterFix(interface.name);
    }
  }
  if (facts.dropsBefore && facts.dropsAfter && *facts.dropsAfter > *facts.dropsBefore) {
    filter.status = Status::Fail;
    filter.found += "; the kernel dropped " + std::to_string(*facts.dropsAfter - *facts.dropsBefore) +
                    " datagrams by reverse-path filtering while listening (IPReversePathFilter)";
    filter.fix =
        facts.interfaceValue && facts.allValue && std::max(*facts.interfaceValue, *facts.allValue) == 1
            ? rpFilterFix(interface.name)
            : "ip route add SENDER-NETWORK dev " + interface.name + " (a route back to the SD senders)";
  }
  verdicts.push_back(filter);
  for (const auto& route : routes) {
    Verdict verdict{"reverse route", Status::Pass, "", ""};
    if (route.interface.empty()) {
      verdict.status = Status::Warn;
      verdict.found = "no route back to SD sender " + route.sender;
      verdict.fix = "ip route add " + route.sender + " dev " + interface.name;
    } else if (route.interface != interface.name) {
      verdict.status = Status::Warn;
      verdict.found = "to SD sender " + route.sender + " through " + route.interface + ", not through " +
                      interface.name + " where its SD messages arrive";
      verdict.fix =
          "ip route add " + route.sender + " dev " + interface.name + ", or " + rpFilterFix(interface.name);
    } else {
      verdict.found = "to SD sender " + route.sender + " through " + route.interface;
    }
    verdicts.push_back(verdict);
  }
  return verdicts;
}

Verdict portVerdict(const std::string& address, const std::string& group, std::uint16_t port,
                    const PortFacts& facts) {
  Verdict verdict{"sd port", Status::Pass, "", ""};
  const std::string portText = std::to_string(port);
  if (facts.unicastError.empty() && facts.groupError.empty()) {
    verdict.found = portText + " can be bound with address reuse on " + address + " and on " + group;
    return verdict;
  }
  verdict.status = Status::Fail;
  std::vector<std::string> failures;
  if (!facts.unicastError.empty()) {
    failures.push_back(address + ":" + portText + " (" + facts.unicastError + ")");
  }
  if (!facts.groupError.empty()) {
    failures.push_back(group + ":" + portText + " (" + facts.groupError + ")");
  }
  verdict.found = "cannot bind " + joined(failures, " and ");
  if (!facts.inUse) {
    verdict.fix = "see the address check";
    return verdict;
  }
  std::vector<std::string> holders;
  for (const auto& holder : facts.holders) {
    holders.push_back(holder.command + " (pid " + std::to_string(holder.pid) + ") on " + holder.local);
  }
  if (holders.size() == 1) {
    verdict.found += ": " + holders.front() + " holds the port without address reuse";
    verdict.fix = "stop " + facts.holders.front().command + " (pid " +
                  std::to_string(facts.holders.front().pid) +
                  ") or make it share the port (SO_REUSEADDR on its socket)";
  } else if (!holders.empty()) {
    verdict.found += ": held by " + joined(holders, ", ") + "; one of them holds it without address reuse";
    verdict.fix =
        "stop the one that does not share the port, or make it share it (SO_REUSEADDR on its socket)";
  } else {
    verdict.found += facts.holdersVisible ? ": no process on this host holds it"
                                          : ": held by a process not visible here (run as root to name it)";
    verdict.fix =
        "stop the program that holds port " + portText + " or make it share the port (SO_REUSEADDR)";
  }
  return verdict;
}

Verdict loopbackVerdict(const std::string& address, const std::string& group, const std::string& interface,
                        const LoopbackFacts& facts) {
  Verdict verdict{"multicast loop-back", Status::Pass, "", ""};
  if (facts.delivered) {
    verdict.found = "our datagram to " + group + " sent over " + address + " came back within 1 s";
    return verdict;
  }
  verdict.status = Status::Fail;
  verdict.found = facts.error.empty()
                      ? "our datagram to " + group + " sent over " + address + " did not come back within 1 s"
                      : "the probe could not run: " + facts.error;
  const std::string dev = interface.empty() ? "IFACE" : interface;
  verdict.fix = "ip link set dev " + dev + " multicast on; ip route add 224.0.0.0/4 dev " + dev;
  return verdict;
}

std::vector<std::uint16_t> sensorsOf(const std::vector<Offer>& offers) {
  std::set<std::uint16_t> ids;
  for (const auto& offer : offers) {
    if (offer.ttl != 0 && isSensorService(offer.service)) {
      ids.insert(offer.instance);
    }
  }
  return {ids.begin(), ids.end()};
}

std::vector<Verdict> listenVerdicts(const ListenFacts& facts, std::optional<std::uint8_t> major) {
  std::vector<Verdict> verdicts;
  if (!facts.error.empty()) {
    verdicts.push_back({"sd participants", Status::Fail, "cannot listen to service discovery: " + facts.error,
                        "see the address and sd port checks"});
    return verdicts;
  }
  char seconds[16];
  std::snprintf(seconds, sizeof seconds, "%.1f", facts.seconds);
  if (facts.participants.empty()) {
    verdicts.push_back(
        {"sd participants", Status::Fail, std::string("no SD message heard in ") + seconds + " s",
         "likely causes: no sensor up on this link; the sensors use another SD group or port "
         "(--sd-multicast, "
         "--sd-port); strict rp_filter or a missing route back to them; multicast off on the interface; a "
         "firewall dropping UDP to the SD port"});
  }
  for (const auto& participant : facts.participants) {
    verdicts.push_back({"sd participant", Status::Pass,
                        participant.address + ":" + std::to_string(participant.port) + ", " +
                            std::to_string(participant.messages) + " messages, reboot flag " +
                            (participant.reboot ? "set" : "clear"),
                        ""});
  }
  for (const auto& offer : facts.offers) {
    verdicts.push_back({"offer", Status::Pass, offerText(offer), ""});
  }

  if (!facts.findError.empty()) {
    verdicts.push_back({"find", Status::Warn, "FindService could not be sent: " + facts.findError,
                        "see the sd port and address checks"});
  } else if (!facts.participants.empty()) {
    std::set<std::string> answerers;
    for (const auto& offer : facts.offers) {
      if (offer.unicast) {
        answerers.insert(offer.sender);
      }
    }
    if (answerers.empty()) {
      verdicts.push_back({"find", Status::Warn, "nobody answered our FindService for 0x0002, 0x0003, 0x0004",
                          "check that unicast UDP to the SD port of this host is not dropped (firewall)"});
    } else {
      verdicts.push_back({"find", Status::Pass,
                          "FindService for 0x0002, 0x0003, 0x0004 answered by " +
                              joined({answerers.begin(), answerers.end()}, ", "),
                          ""});
    }
  }

  std::map<std::uint16_t, std::set<std::uint16_t>> services;
  std::map<std::uint16_t, std::set<std::uint8_t>> majors;
  std::map<std::uint16_t, std::string> endpoints;
  for (const auto& offer : facts.offers) {
    if (offer.ttl == 0 || !isSensorService(offer.service)) {
      continue;
    }
    services[offer.instance].insert(offer.service);
    majors[offer.instance].insert(offer.major);
    if (endpoints[offer.instance].empty()) {
      endpoints[offer.instance] = offer.endpoint;
    }
  }
  if (services.empty() && !facts.participants.empty()) {
    verdicts.push_back(
        {"sensors", Status::Fail, "no sensor offers services 0x0002 to 0x0004",
         "check that the sensors are up and offer their services (they may be still booting)"});
  }
  const auto usual = commonMajor(majors);
  for (const auto& sensor : services) {
    Verdict verdict{"sensor " + hex4(sensor.first), Status::Pass, "", ""};
    std::vector<std::string> offered;
    std::vector<std::string> lacking;
    for (const auto service : SENSOR_SERVICES) {
      (sensor.second.count(service) != 0 ? offered : lacking).push_back(hex4(service));
    }
    std::vector<std::string> versions;
    for (const auto version : majors[sensor.first]) {
      versions.push_back(std::to_string(version));
    }
    verdict.found = "services " + joined(offered, ", ") + " at " + endpoints[sensor.first] + ", major " +
                    joined(versions, "/");
    std::vector<std::string> fixes;
    if (!lacking.empty()) {
      verdict.status = Status::Warn;
      verdict.found += "; lacks service " + joined(lacking, ", ");
      fixes.push_back(
          "restart the sensor or check its configuration: a sensor offers all of 0x0002, 0x0003, "
          "0x0004");
    }
    const auto& own = majors[sensor.first];
    if (major && (own.size() != 1 || *own.begin() != *major)) {
      verdict.status = Status::Warn;
      verdict.found += "; major differs from --major " + std::to_string(*major);
      fixes.push_back("run with --major " + joined(versions, "/") + " or update the sensor's software");
    } else if (!major && usual && (own.size() != 1 || *own.begin() != *usual)) {
      verdict.status = Status::Warn;
      verdict.found += "; major differs from the other sensors' " + std::to_string(*usual);
      fixes.push_back("update the sensor's software, or pick one version with --major");
    }
    verdict.fix = joined(fixes, "; ");
    verdicts.push_back(verdict);
  }
  return verdicts;
}

std::vector<Verdict> getterVerdicts(const std::vector<GetterFacts>& calls) {
  std::vector<Verdict> verdicts;
  for (const auto& call : calls) {
    Verdict verdict{"getter " + hex4(call.sensor), Status::Pass, "", ""};
    if (call.answered) {
      char time[32];
      std::snprintf(time, sizeof time, "%.1f ms", call.milliseconds);
      verdict.found = std::string("getSensorSoftwareVersion answered in ") + time +
                      (call.detail.empty() ? "" : ": " + call.detail);
    } else {
      verdict.status = Status::Fail;
      verdict.found = "getSensorSoftwareVersion did not answer: " + call.detail;
      verdict.fix =
          "the sensor is offered but its endpoint does not answer: check the route and firewalls "
          "between this host and the endpoint of its offers, and --major";
    }
    verdicts.push_back(verdict);
  }
  return verdicts;
}

bool anyFailed(const std::vector<Verdict>& verdicts) {
  return std::any_of(verdicts.begin(), verdicts.end(),
                     [](const Verdict& verdict) { return verdict.status == Status::Fail; });
}

}  // namespace kov::tools::veskctl::doctor
