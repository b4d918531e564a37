// veskctl monitor: a passive SOME/IP-SD listener. It joins the SD group and binds the own unicast
// address at the SD port, both with SO_REUSEADDR so that the transport and other SOME/IP programs keep
// the port, and prints every SD entry it hears. It never sends.

#include "monitor_command.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>

#include "printer.hpp"
#include "someip/endpoint.hpp"
#include "someip/message.hpp"
#include "someip/sd_message.hpp"
#include "value_parsers.hpp"

namespace kov::tools::veskctl {

namespace someip = kov::platform::networking::someip;

namespace {

/// Longest wait in poll(), so that the end of --seconds and a signal are seen promptly.
constexpr int POLL_SLICE_MS = 100;
constexpr std::size_t DATAGRAM_CAPACITY = 65536;

const char* const MONITOR_FOOTER =
    "Listens to SOME/IP service discovery on the SD group (joined on the interface of --unicast) and on\n"
    "--unicast, both at --sd-port, sharing the port with other programs; sends nothing. One line per SD\n"
    "entry: seconds since start, sender, entry type, service, instance, version (service entries) or\n"
    "eventgroup, TTL, the message's reboot flag and the endpoint options (multicast ones marked).\n"
    "A datagram that is no valid SD message gets one line saying why.\n"
    "Exit status: 0 ended by --seconds, SIGINT or SIGTERM; 2 bad command line; 4 the SD sockets could\n"
    "not be opened (address not local, no multicast on its interface, ...).\n";

std::string hex16(std::uint16_t value) {
  char text[8];
  std::snprintf(text, sizeof(text), "0x%04x", static_cast<unsigned>(value));
  return text;
}

std::string seconds3(double seconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f", seconds);
  return text;
}

/// The entry type as the SOME/IP-SD tables name it; TTL 0 turns an offer, subscription or
/// acknowledgement into its stop or negative form.
const char* entryTypeName(const someip::SdEntry& entry) {
  const bool stop = entry.ttl == 0;
  switch (entry.type) {
    case someip::SdEntryType::FIND_SERVICE:
      return "FindService";
    case someip::SdEntryType::OFFER_SERVICE:
      return stop ? "StopOfferService" : "OfferService";
    case someip::SdEntryType::SUBSCRIBE_EVENTGROUP:
      return stop ? "StopSubscribeEventgroup" : "SubscribeEventgroup";
    case someip::SdEntryType::SUBSCRIBE_EVENTGROUP_ACK:
      return stop ? "SubscribeEventgroupNack" : "SubscribeEventgroupAck";
  }
  return "unknown";
}

/// "a.b.c.d:port/udp", with "(multicast)" after a multicast option.
std::string optionText(const someip::SdOption& option) {
  std::string text = someip::toString({option.address, option.port});
  if (option.protocol == someip::L4_PROTOCOL_UDP) {
    text += "/udp";
  } else if (option.protocol == someip::L4_PROTOCOL_TCP) {
    text += "/tcp";
  } else {
    char protocol[16];
    std::snprintf(protocol, sizeof(protocol), "/0x%02x", static_cast<unsigned>(option.protocol));
    text += protocol;
  }
  if (option.type == someip::SdOptionType::IPV4_MULTICAST) {
    text += "(multicast)";
  }
  return text;
}

std::string versionPart(std::uint32_t value, std::uint32_t any) {
  return value == any ? "any" : std::to_string(value);
}

std::string padded(std::string text, std::size_t width) {
  if (text.size() < width) {
    text.append(width - text.size(), ' ');
  }
  return text;
}

/// The fields every line starts with: time and sender.
std::string lineStart(const MonitorLineContext& context) {
  if (context.json) {
    return "{\"time\":" + seconds3(context.seconds) + ",\"sender\":" + Printer::quote(context.sender);
  }
  std::string time = seconds3(context.seconds);
  if (time.size() < 9) {
    time.insert(0, 9 - time.size(), ' ');
  }
  return time + "  " + padded(context.sender, 21) + "  ";
}

std::string problemLine(const MonitorLineContext& context, const std::string& reason) {
  if (context.json) {
    return lineStart(context) + ",\"type\":\"malformed\",\"reason\":" + Printer::quote(reason) + "}";
  }
  return lineStart(context) + padded("malformed", 23) + "  " + reason;
}

std::string entryLine(const MonitorLineContext& context, const someip::SdEntry& entry, bool reboot) {
  std::vector<std::string> endpoints;
  for (const auto& option : entry.options) {
    endpoints.push_back(optionText(option));
  }
  std::ostringstream line;
  line << lineStart(context);
  if (context.json) {
    line << ",\"type\":\"" << entryTypeName(entry) << "\",\"service\":\"" << hex16(entry.serviceId)
         << "\",\"instance\":\"" << hex16(entry.instanceId) << "\"";
    if (entry.isServiceEntry()) {
      line << ",\"major\":" << static_cast<unsigned>(entry.majorVersion)
           << ",\"minor\":" << entry.minorVersion;
    } else {
      line << ",\"eventgroup\":\"" << hex16(entry.eventgroupId) << "\"";
    }
    line << ",\"ttl\":" << entry.ttl << ",\"reboot\":" << (reboot ? "true" : "false") << ",\"endpoints\":[";
    for (std::size_t i = 0; i < endpoints.size(); ++i) {
      line << (i == 0 ? "" : ",") << Printer::quote(endpoints[i]);
    }
    line << "]}";
    return line.str();
  }
  line << padded(entryTypeName(entry), 23) << "  service=" << hex16(entry.serviceId)
       << " instance=" << hex16(entry.instanceId);
  if (entry.isServiceEntry()) {
    line << " version=" << versionPart(entry.majorVersion, someip::ANY_MAJOR_VERSION) << "."
         << versionPart(entry.minorVersion, someip::ANY_MINOR_VERSION);
  } else {
    line << " eventgroup=" << hex16(entry.eventgroupId);
  }
  line << " ttl=" << entry.ttl << " reboot=" << (reboot ? "yes" : "no");
  if (!endpoints.empty()) {
    line << " endpoints=";
    for (std::size_t i = 0; i < endpoints.size(); ++i) {
      line << (i == 0 ? "" : ",") << endpoints[i];
    }
  }
  return line.str();
}

/// Lines of one SOME/IP message of the datagram.
void describeMessage(const someip::MessageView& message, const MonitorLineContext& context,
                     std::vector<std::string>& lines) {
  const auto& header = message.header;
  if (header.serviceId != someip::SD_SERVICE_ID || header.methodId != someip::SD_METHOD_ID) {
    lines.push_back(problemLine(context, "not an SD message: service " + hex16(header.serviceId) +
                                             ", method " + hex16(header.methodId)));
    return;
  }
  someip::SdMessage sd;
  const auto error = someip::parseSdPayload(message.payload, message.payloadSize, sd);
  if (error != someip::SdParseError::NONE) {
    lines.push_back(problemLine(context, std::string("SD payload refused: ") + someip::describe(error)));
    return;
  }
  for (const auto& entry : sd.entries) {
    if (!context.service || *context.service == entry.serviceId) {
      lines.push_back(entryLine(context, entry, sd.reboot()));
    }
  }
  for (const auto& issue : sd.issues) {
    lines.push_back(problemLine(
        context, "SD entry " + std::to_string(issue.entry) + ": " + someip::describe(issue.kind)));
  }
}

volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int /*signal*/) {
  stopRequested = 1;
}

/// Installs the handler without SA_RESTART, so that a signal also ends the current poll().
void installStopHandlers() {
  struct sigaction action {};
  action.sa_handler = requestStop;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

/// A socket bound to `address`:`port` with SO_REUSEADDR; -1 with `error` set on failure.
int openShared(const std::string& address, std::uint16_t port, std::string& error) {
  const int sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0) {
    error = std::string("cannot open a UDP socket: ") + std::strerror(errno);
    return -1;
  }
  const int on = 1;
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
    error = "cannot bind " + address + ": not an IPv4 address";
  } else if (setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) {
    error = std::string("cannot share the SD port (SO_REUSEADDR): ") + std::strerror(errno);
  } else if (::bind(sock, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
    error = "cannot bind " + address + ":" + std::to_string(port) + ": " + std::strerror(errno);
  } else {
    return sock;
  }
  ::close(sock);
  return -1;
}

bool joinGroup(int sock, const std::string& group, const std::string& interfaceAddress, std::string& error) {
  ip_mreq membership{};
  if (inet_pton(AF_INET, group.c_str(), &membership.imr_multiaddr) != 1 ||
      inet_pton(AF_INET, interfaceAddress.c_str(), &membership.imr_interface) != 1) {
    error = "cannot join " + group + " on " + interfaceAddress + ": not IPv4 addresses";
    return false;
  }
  if (setsockopt(sock, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)) != 0) {
    error = "cannot join " + group + " on the interface of " + interfaceAddress + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

/// The two SD sockets; closed when it goes.
struct SdSockets {
  std::array<int, 2> fds{-1, -1};
  SdSockets() = default;
  SdSockets(const SdSockets&) = delete;
  SdSockets& operator=(const SdSockets&) = delete;
  ~SdSockets() {
    for (const int fd : fds) {
      if (fd != -1) {
        ::close(fd);
      }
    }
  }
};

bool openSdSockets(const TransportOptions& transport, SdSockets& sockets, std::string& error) {
  sockets.fds[0] = openShared(transport.sdMulticast, transport.sdPort, error);
  if (sockets.fds[0] == -1 || !joinGroup(sockets.fds[0], transport.sdMulticast, transport.unicast, error)) {
    return false;
  }
  sockets.fds[1] = openShared(transport.unicast, transport.sdPort, error);
  return sockets.fds[1] != -1;
}

}  // namespace

std::vector<std::string> describeSdDatagram(const std::uint8_t* data, std::size_t size,
                                            const MonitorLineContext& context) {
  std::vector<std::string> lines;
  std::size_t offset = 0;
  do {
    someip::MessageView message;
    std::size_t consumed = 0;
    const auto error = someip::parseMessage(data + offset, size - offset, message, consumed);
    if (error != someip::ParseError::NONE) {
      lines.push_back(
          problemLine(context, std::string("SOME/IP header refused: ") + someip::describe(error)));
      // Wrong versions and types are measured and may be skipped; other errors leave nothing to skip to.
      if (consumed == 0) {
        break;
      }
    } else {
      describeMessage(message, context, lines);
    }
    offset += consumed;
  } while (offset < size);
  return lines;
}

CLI::App* addMonitorCommand(CLI::App& app, MonitorOptions& options) {
  auto* monitor = app.add_subcommand(
      "monitor", "Print the SOME/IP service discovery entries heard on the network (needs --unicast)");
  monitor->footer(MONITOR_FOOTER);
  monitor->add_option("--service", options.serviceText, "Only entries of this service: 0x0003 or 3")
      ->type_name("ID");
  monitor
      ->add_option("--seconds", options.secondsText,
                   "How long to listen (0.1 to 3600); until SIGINT or SIGTERM when not given")
      ->type_name("SECONDS");
  return monitor;
}

bool checkMonitorOptions(const CommonOptions& common, MonitorOptions& options, std::string& error) {
  if (common.transport.unicast.empty()) {
    error = "monitor needs --unicast ADDR, this host's IPv4 address on the SOME/IP network";
    return false;
  }
  if (!options.serviceText.empty()) {
    options.service = parseSensorId(options.serviceText);
    if (!options.service) {
      error = "--service " + options.serviceText + ": expected a service id, 0x0 to 0xfffe or 0 to 65534";
      return false;
    }
  }
  if (!options.secondsText.empty()) {
    const auto seconds = parseInRange("--seconds", options.secondsText, WATCH_SECONDS_RANGE, error);
    if (!seconds) {
      return false;
    }
    options.seconds = *seconds;
  }
  return true;
}

int runMonitor(const CommonOptions& common, const MonitorOptions& options) {
  SdSockets sockets;
  std::string error;
  if (!openSdSockets(common.transport, sockets, error)) {
    std::cerr << "veskctl: monitor: " << error << "\n";
    return EXIT_NO_TRANSPORT;
  }
  installStopHandlers();

  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  const auto end = options.seconds ? start + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(*options.seconds))
                                   : Clock::time_point::max();
  std::vector<std::uint8_t> buffer(DATAGRAM_CAPACITY);
  std::array<pollfd, 2> polled{};
  for (std::size_t i = 0; i < polled.size(); ++i) {
    polled[i] = {sockets.fds[i], POLLIN, 0};
  }
  while (stopRequested == 0) {
    const auto now = Clock::now();
    if (now >= end) {
      break;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - now).count() + 1;
    const int wait = static_cast<int>(std::min<long long>(POLL_SLICE_MS, left));
    if (::poll(polled.data(), polled.size(), wait) <= 0) {
      continue;  // time slice over, or a signal (EINTR): the loop condition decides
    }
    for (const auto& entry : polled) {
      if ((entry.revents & POLLIN) == 0) {
        continue;
      }
      sockaddr_in from{};
      socklen_t fromSize = sizeof(from);
      const auto received = ::recvfrom(entry.fd, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                       reinterpret_cast<sockaddr*>(&from), &fromSize);
      if (received < 0) {
        continue;  // EAGAIN after a spurious wake-up; nothing was lost
      }
      MonitorLineContext context;
      context.seconds = std::chrono::duration<double>(Clock::now() - start).count();
      context.sender = someip::toString({ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)});
      context.json = common.json;
      context.service = options.service;
      for (const auto& line :
           describeSdDatagram(buffer.data(), static_cast<std::size_t>(received), context)) {
        std::cout << line << '\n';
      }
      std::cout.flush();
    }
  }
  return EXIT_OK;
}

}  // namespace kov::tools::veskctl
