#include "doctor_command.hpp"

#include <chrono>
#include <cstdio>
#include <iostream>

#include "doctor_probes.hpp"
#include "doctor_verdicts.hpp"
#include "operations.hpp"
#include "printer.hpp"
#include "session.hpp"

namespace kov::tools::veskctl {

const char* const DOCTOR_FOOTER =
    "Checks, in this order, each printed as PASS, WARN or FAIL with what was found and, for WARN\n"
    "and FAIL, the fix:\n"
    "  address              --unicast is assigned to an interface that is UP and has MULTICAST\n"
    "  sd port              the SD port can be bound with address reuse on ADDR and the group; else who\n"
    "                       holds it\n"
    "  multicast loop-back  our own datagram to the SD group comes back over ADDR within 1 s\n"
    "  rp_filter            reverse-path filtering of that interface (strict drops SD from other subnets;\n"
    "                       drops counted while listening); reverse route: the route back to each SD\n"
    "                       sender leaves through that interface\n"
    "  sd participants      listening --seconds to the group and ADDR: participants, offers, answers to\n"
    "                       a FindService for 0x0002 to 0x0004 (lines sd participant, offer, find);\n"
    "                       sensor ID: each sensor's services and major version\n"
    "  getter ID            each sensor answers getSensorSoftwareVersion, with its round-trip time\n"
    "No check needs root; naming the process that holds the SD port may. The listening sockets share\n"
    "the SD port and are closed before the getters' transport starts.\n"
    "Exit status: 0 no check failed, 1 a check failed, 2 bad command line.\n";

namespace {

using namespace doctor;

void print(const Verdict& verdict, bool json) {
  if (json) {
    std::cout << "{\"check\":" << Printer::quote(verdict.check) << ",\"status\":\""
              << statusName(verdict.status) << "\",\"found\":" << Printer::quote(verdict.found);
    if (verdict.status != Status::Pass) {
      std::cout << ",\"fix\":" << Printer::quote(verdict.fix);
    }
    std::cout << "}\n";
  } else {
    char head[64];
    std::snprintf(head, sizeof head, "%s  %-20s ", statusName(verdict.status), verdict.check.c_str());
    std::cout << head << verdict.found << '\n';
    if (verdict.status != Status::Pass && !verdict.fix.empty()) {
      std::cout << "      fix: " << verdict.fix << '\n';
    }
  }
  std::cout.flush();
}

std::string fieldsText(const Fields& fields) {
  std::string text;
  for (const auto& field : fields) {
    text +=
        (text.empty() ? "" : " ") + field.key + "=" + (field.quoted ? "\"" + field.text + "\"" : field.text);
  }
  return text;
}

/// Starts a transport on ADDR, discovers `sensors` and reads the software version of each.
std::vector<GetterFacts> callGetters(const CommonOptions& common, const std::vector<std::uint16_t>& sensors,
                                     std::string& error) {
  std::vector<GetterFacts> calls;
  auto options = common.transport;
  options.kind = TransportKind::SomeIp;
  options.sensors = sensors.size();
  options.sensorsGiven = true;
  auto bundle = makeTransport(options, error);
  if (!bundle.transport) {
    return calls;
  }
  const auto goal = bundle.discovery;
  Printer quiet(std::cout, common.json, false);
  Session session(std::move(bundle), quiet);
  if (!session.open(goal, discoveryTimeout(common), error)) {
    return calls;
  }
  std::string missing;
  session.discover(missing);  // the sensors not found are reported one by one below
  const Getter* version = nullptr;
  for (const auto& getter : getters()) {
    if (getter.operation == "getSensorSoftwareVersion") {
      version = &getter;
    }
  }
  for (const auto id : sensors) {
    GetterFacts call;
    call.sensor = id;
    const auto found = session.sensors(id);
    if (found.empty() || version == nullptr) {
      call.detail = "the transport did not discover it within --discovery-timeout";
    } else {
      Fields fields;
      const auto start = std::chrono::steady_clock::now();
      call.answered = version->read(found.front(), fields, call.detail);
      call.milliseconds =
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
      if (call.answered) {
        call.detail = fieldsText(fields);
      }
    }
    calls.push_back(call);
  }
  std::string closeError;
  session.close(closeError);
  return calls;
}

}  // namespace

int runDoctor(const CommonOptions& common, double seconds) {
  const auto& options = common.transport;
  const auto& address = options.unicast;
  const auto& group = options.sdMulticast;
  std::vector<Verdict> verdicts;
  const auto report = [&](const Verdict& verdict) {
    verdicts.push_back(verdict);
    print(verdict, common.json);
  };

  const auto interface = findInterface(address);
  const auto loopback =
      interface ? probeLoopback(address, group) : LoopbackFacts{false, address + " is on no interface"};
  report(addressVerdict(address, interface, loopback));
  report(portVerdict(address, group, options.sdPort, probePort(address, group, options.sdPort)));
  report(loopbackVerdict(address, group, interface ? interface->name : "", loopback));

  RpFilterFacts filter;
  if (interface) {
    filter.interfaceValue = readRpFilter(interface->name);
    filter.allValue = readRpFilter("all");
  }
  filter.dropsBefore = readReversePathDrops();
  const auto heard = listenToDiscovery(address, group, options.sdPort, seconds, options.major);
  filter.dropsAfter = readReversePathDrops();
  if (interface) {
    std::vector<SenderRoute> routes;
    for (const auto& participant : heard.participants) {
      routes.push_back({participant.address, routeInterface(participant.address)});
    }
    for (const auto& verdict : rpFilterVerdicts(*interface, filter, routes)) {
      report(verdict);
    }
  }
  for (const auto& verdict : listenVerdicts(heard, options.major)) {
    report(verdict);
  }

  // The listening sockets are closed by now: the transport gets the SD port like any other program.
  const auto sensors = sensorsOf(heard.offers);
  if (!sensors.empty()) {
    std::string error;
    const auto calls = callGetters(common, sensors, error);
    if (!error.empty()) {
      report({"getter", Status::Fail, "the transport for the getters did not start: " + error,
              "see the address and sd port checks"});
    }
    for (const auto& verdict : getterVerdicts(calls)) {
      report(verdict);
    }
  }
  return anyFailed(verdicts) ? EXIT_FAILED : EXIT_OK;
}

}  // namespace kov::tools::veskctl
