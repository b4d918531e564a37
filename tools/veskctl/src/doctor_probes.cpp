#include "doctor_probes.hpp"

#include <arpa/inet.h>
#include <dirent.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "someip/endpoint.hpp"
#include "someip/message.hpp"
#include "someip/sd_message.hpp"

namespace kov::tools::veskctl::doctor {

namespace someip = kov::platform::networking::someip;

namespace {

using Clock = std::chrono::steady_clock;

/// A socket descriptor closed when it goes out of scope.
class Socket {
 public:
  Socket() : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

std::string errorText() {
  return std::strerror(errno);
}

bool toInAddr(const std::string& text, in_addr& address) {
  return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::string dottedQuad(in_addr address) {
  char text[INET_ADDRSTRLEN] = {};
  ::inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

/// Turns on address reuse and binds to address:port; empty, or what failed (`inUse` set when the bind
/// failed because the port is taken there).
std::string bindShared(const Socket& socket, const std::string& address, std::uint16_t port,
                       bool* inUse = nullptr) {
  if (socket.fd() < 0) {
    return "socket: " + errorText();
  }
  const int on = 1;
  if (::setsockopt(socket.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
    return "SO_REUSEADDR: " + errorText();
  }
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  if (!toInAddr(address, local.sin_addr)) {
    return "not an IPv4 address: " + address;
  }
  if (::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    if (inUse != nullptr) {
      *inUse = errno == EADDRINUSE;
    }
    return errorText();
  }
  return {};
}

std::string joinGroup(const Socket& socket, const std::string& group, const std::string& address) {
  ip_mreq request{};
  toInAddr(group, request.imr_multiaddr);
  toInAddr(address, request.imr_interface);
  if (::setsockopt(socket.fd(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) != 0) {
    return "joining " + group + " on " + address + ": " + errorText();
  }
  return {};
}

std::string sendOver(const Socket& socket, const std::string& address, const std::string& group,
                     std::uint16_t port, const std::vector<std::uint8_t>& bytes) {
  in_addr interface {};
  toInAddr(address, interface);
  if (::setsockopt(socket.fd(), IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface) != 0) {
    return "IP_MULTICAST_IF " + address + ": " + errorText();
  }
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  toInAddr(group, to.sin_addr);
  if (::sendto(socket.fd(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof to) != static_cast<ssize_t>(bytes.size())) {
    return "sending to " + group + ":" + std::to_string(port) + ": " + errorText();
  }
  return {};
}

/// Parses a 32-bit field that /proc prints as the hexadecimal of an address in network order.
bool parseProcAddress(const std::string& text, in_addr& address) {
  try {
    std::size_t used = 0;
    address.s_addr = static_cast<in_addr_t>(std::stoul(text, &used, 16));
    return used == text.size();
  } catch (const std::exception&) {
    return false;
  }
}

std::vector<std::string> fieldsOf(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> fields;
  for (std::string field; in >> field;) {
    fields.push_back(field);
  }
  return fields;
}

/// "socket:[inode]" link targets of each process's descriptors, by inode.
std::map<std::string, int> socketOwners() {
  std::map<std::string, int> owners;
  DIR* proc = ::opendir("/proc");
  if (proc == nullptr) {
    return owners;
  }
  while (const dirent* entry = ::readdir(proc)) {
    const std::string pid = entry->d_name;
    if (pid.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    const std::string fdDir = "/proc/" + pid + "/fd";
    DIR* fds = ::opendir(fdDir.c_str());
    if (fds == nullptr) {
      continue;
    }
    while (const dirent* fd = ::readdir(fds)) {
      char target[128];
      const std::string link = fdDir + "/" + fd->d_name;
      const auto length = ::readlink(link.c_str(), target, sizeof target - 1);
      if (length > 0) {
        target[length] = '\0';
        const std::string text = target;
        if (text.rfind("socket:[", 0) == 0 && text.back() == ']') {
          owners.emplace(text.substr(8, text.size() - 9), std::stoi(pid));
        }
      }
    }
    ::closedir(fds);
  }
  ::closedir(proc);
  return owners;
}

std::string commandOf(int pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
  std::string command;
  std::getline(in, command);
  return command.empty() ? "?" : command;
}

}  // namespace

std::optional<InterfaceFacts> findInterface(const std::string& address) {
  in_addr wanted{};
  if (!toInAddr(address, wanted)) {
    return std::nullopt;
  }
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) {
    return std::nullopt;
  }
  std::optional<InterfaceFacts> found;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
      continue;
    }
    const auto own = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr;
    const auto mask = entry->ifa_netmask != nullptr
                          ? reinterpret_cast<const sockaddr_in*>(entry->ifa_netmask)->sin_addr.s_addr
                          : 0xFFFFFFFFu;
    InterfaceFacts facts;
    facts.name = entry->ifa_name;
    facts.up = (entry->ifa_flags & IFF_UP) != 0;
    facts.multicast = (entry->ifa_flags & IFF_MULTICAST) != 0;
    facts.loopback = (entry->ifa_flags & IFF_LOOPBACK) != 0;
    if (own.s_addr == wanted.s_addr) {
      found = facts;
      break;
    }
    // Every address of a loop-back interface's network is local (127.0.0.2 on lo with 127.0.0.1/8).
    if (facts.loopback && !found && (own.s_addr & mask) == (wanted.s_addr & mask)) {
      facts.matched = dottedQuad(own) + "/" + std::to_string(std::bitset<32>(mask).count());
      found = facts;
    }
  }
  ::freeifaddrs(list);
  return found;
}

std::optional<int> readRpFilter(const std::string& interface) {
  std::ifstream in("/proc/sys/net/ipv4/conf/" + interface + "/rp_filter");
  int value = 0;
  if (in >> value) {
    return value;
  }
  return std::nullopt;
}

std::optional<std::uint64_t> readReversePathDrops() {
  std::ifstream in("/proc/net/netstat");
  std::string names;
  std::string values;
  while (std::getline(in, names) && std::getline(in, values)) {
    if (names.rfind("TcpExt:", 0) != 0) {
      continue;
    }
    const auto keys = fieldsOf(names);
    const auto numbers = fieldsOf(values);
    for (std::size_t i = 1; i < keys.size() && i < numbers.size(); ++i) {
      if (keys[i] == "IPReversePathFilter") {
        return std::stoull(numbers[i]);
      }
    }
  }
  return std::nullopt;
}

std::string routeInterface(const std::string& address) {
  in_addr target{};
  if (!toInAddr(address, target)) {
    return {};
  }
  // The kernel's own route lookup, every table and rule included: a UDP socket connected to the
  // address (nothing is sent) gets the source address of the route back; its interface is the answer.
  const int sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0) {
    return {};
  }
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_addr = target;
  peer.sin_port = htons(9);
  sockaddr_in source{};
  socklen_t length = sizeof(source);
  const bool routed = ::connect(sock, reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)) == 0 &&
                      ::getsockname(sock, reinterpret_cast<sockaddr*>(&source), &length) == 0;
  ::close(sock);
  if (!routed) {
    return {};
  }
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) {
    return {};
  }
  std::string loopback;
  std::string owner;
  bool local = false;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
      continue;
    }
    const auto at = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr;
    if ((entry->ifa_flags & IFF_LOOPBACK) != 0 && loopback.empty()) {
      loopback = entry->ifa_name;
    }
    local = local || at == target.s_addr;
    if (owner.empty() && at == source.sin_addr.s_addr) {
      owner = entry->ifa_name;
    }
  }
  ::freeifaddrs(list);
  // An address of this host, and the loop-back range, are reached through the loop-back interface.
  const bool loopbackRange = (ntohl(target.s_addr) >> 24) == 127;
  return local || loopbackRange ? loopback : owner;
}

PortFacts probePort(const std::string& address, const std::string& group, std::uint16_t port) {
  PortFacts facts;
  // Sockets on the port at the addresses that collide with a bind that failed: that address and the
  // wildcard.
  std::set<std::string> clashing;
  {
    const Socket unicast;
    bool inUse = false;
    facts.unicastError = bindShared(unicast, address, port, &inUse);
    if (inUse) {
      clashing.insert(address);
    }
    const Socket multicast;
    inUse = false;
    facts.groupError = bindShared(multicast, group, port, &inUse);
    if (inUse) {
      clashing.insert(group);
    }
  }
  facts.inUse = !clashing.empty();
  if (!facts.inUse) {
    return facts;
  }
  clashing.insert("0.0.0.0");
  std::map<std::string, std::string> inodes;  // inode -> "a.b.c.d:port"
  std::ifstream in("/proc/net/udp");
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) {
    const auto fields = fieldsOf(line);  // sl local rem st tx:rx tr:when retrnsmt uid timeout inode ...
    if (fields.size() < 10) {
      continue;
    }
    const auto colon = fields[1].find(':');
    in_addr local{};
    if (colon == std::string::npos || !parseProcAddress(fields[1].substr(0, colon), local) ||
        std::stoul(fields[1].substr(colon + 1), nullptr, 16) != port) {
      continue;
    }
    const auto text = dottedQuad(local);
    if (clashing.count(text) != 0) {
      inodes.emplace(fields[9], text + ":" + std::to_string(port));
    }
  }
  const auto owners = socketOwners();
  std::set<int> seen;
  for (const auto& socket : inodes) {
    const auto owner = owners.find(socket.first);
    if (owner == owners.end()) {
      facts.holdersVisible = false;
    } else if (seen.insert(owner->second).second) {
      facts.holders.push_back({owner->second, commandOf(owner->second), socket.second});
    }
  }
  return facts;
}

LoopbackFacts probeLoopback(const std::string& address, const std::string& group) {
  LoopbackFacts facts;
  // The sender, bound to a free port of ADDR; the receiver takes the same port at the group.
  const Socket sender;
  facts.error = bindShared(sender, address, 0);
  sockaddr_in bound{};
  socklen_t size = sizeof bound;
  if (facts.error.empty() && ::getsockname(sender.fd(), reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
    facts.error = "getsockname: " + errorText();
  }
  const std::uint16_t port = ntohs(bound.sin_port);
  const Socket receiver;
  if (facts.error.empty()) {
    facts.error = bindShared(receiver, group, port);
  }
  if (facts.error.empty()) {
    facts.error = joinGroup(receiver, group, address);
  }
  std::random_device random;
  const std::string token = "veskctl doctor probe " + std::to_string(random());
  if (facts.error.empty()) {
    facts.error = sendOver(sender, address, group, port, {token.begin(), token.end()});
  }
  if (!facts.error.empty()) {
    return facts;
  }
  const auto deadline = Clock::now() + std::chrono::seconds(1);
  for (auto now = Clock::now(); now < deadline && !facts.delivered; now = Clock::now()) {
    pollfd wait{receiver.fd(), POLLIN, 0};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
    if (::poll(&wait, 1, static_cast<int>(left) + 1) <= 0) {
      continue;
    }
    char buffer[256];
    const auto received = ::recv(receiver.fd(), buffer, sizeof buffer, 0);
    facts.delivered = received == static_cast<ssize_t>(token.size()) &&
                      token.compare(0, token.size(), buffer, token.size()) == 0;
  }
  return facts;
}

std::vector<std::uint8_t> findServiceMessage(std::optional<std::uint8_t> major) {
  someip::SdMessage sd;
  sd.flags = someip::SD_FLAG_REBOOT | someip::SD_FLAG_UNICAST;
  for (const auto service : SENSOR_SERVICES) {
    someip::SdEntry entry;
    entry.type = someip::SdEntryType::FIND_SERVICE;
    entry.serviceId = service;
    entry.instanceId = 0xFFFF;
    entry.majorVersion = major.value_or(someip::ANY_MAJOR_VERSION);
    entry.minorVersion = someip::ANY_MINOR_VERSION;
    entry.ttl = 3;
    sd.entries.push_back(entry);
  }
  const auto payload = someip::encodeSdPayload(sd);
  someip::MessageHeader header;
  header.serviceId = someip::SD_SERVICE_ID;
  header.methodId = someip::SD_METHOD_ID;
  header.clientId = 0;
  header.sessionId = 1;
  header.interfaceVersion = someip::SD_INTERFACE_VERSION;
  header.messageType = someip::MessageType::NOTIFICATION;
  std::vector<std::uint8_t> message;
  someip::appendMessage(header, payload.data(), payload.size(), message);
  return message;
}

ListenFacts listenToDiscovery(const std::string& address, const std::string& group, std::uint16_t port,
                              double seconds, std::optional<std::uint8_t> major) {
  ListenFacts facts;
  facts.seconds = seconds;
  const Socket multicast;
  const Socket unicast;
  facts.error = bindShared(multicast, group, port);
  if (facts.error.empty()) {
    facts.error = joinGroup(multicast, group, address);
  }
  if (facts.error.empty()) {
    facts.error = bindShared(unicast, address, port);
  }
  if (!facts.error.empty()) {
    return facts;
  }
  facts.findError = sendOver(unicast, address, group, port, findServiceMessage(major));

  std::uint32_t own = 0;
  someip::parseIp(address, own);
  std::map<std::pair<std::string, std::uint16_t>, std::size_t> participants;  // index in facts
  std::map<std::tuple<std::uint16_t, std::uint16_t, std::string>, std::size_t> offers;
  const auto deadline = Clock::now() + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
  for (auto now = Clock::now(); now < deadline; now = Clock::now()) {
    pollfd wait[2] = {{multicast.fd(), POLLIN, 0}, {unicast.fd(), POLLIN, 0}};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
    if (::poll(wait, 2, static_cast<int>(left) + 1) <= 0) {
      continue;
    }
    for (const auto& ready : wait) {
      if ((ready.revents & POLLIN) == 0) {
        continue;
      }
      std::uint8_t buffer[65536];
      sockaddr_in from{};
      socklen_t size = sizeof from;
      const auto received =
          ::recvfrom(ready.fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &size);
      if (received <= 0 || ntohl(from.sin_addr.s_addr) == own) {
        continue;  // our own FindService, looped back
      }
      someip::MessageView message;
      std::size_t consumed = 0;
      someip::SdMessage sd;
      if (someip::parseMessage(buffer, static_cast<std::size_t>(received), message, consumed) !=
              someip::ParseError::NONE ||
          message.header.serviceId != someip::SD_SERVICE_ID ||
          message.header.methodId != someip::SD_METHOD_ID ||
          someip::parseSdPayload(message.payload, message.payloadSize, sd) != someip::SdParseError::NONE) {
        continue;
      }
      const auto sender = dottedQuad(from.sin_addr);
      const auto key = std::make_pair(sender, ntohs(from.sin_port));
      auto known = participants.find(key);
      if (known == participants.end()) {
        known = participants.emplace(key, facts.participants.size()).first;
        facts.participants.push_back({sender, key.second, false, 0});
      }
      auto& participant = facts.participants[known->second];
      participant.reboot = sd.reboot();
      ++participant.messages;
      for (const auto& entry : sd.entries) {
        if (entry.type != someip::SdEntryType::OFFER_SERVICE) {
          continue;
        }
        Offer offer{
            entry.serviceId, entry.instanceId,        entry.majorVersion, entry.minorVersion, entry.ttl, "",
            sender,          ready.fd == unicast.fd()};
        for (const auto& option : entry.options) {
          if (option.type == someip::SdOptionType::IPV4_ENDPOINT) {
            offer.endpoint = someip::toString({option.address, option.port});
            break;
          }
        }
        const auto offerKey = std::make_tuple(entry.serviceId, entry.instanceId, sender);
        const auto found = offers.find(offerKey);
        if (found == offers.end()) {
          offers.emplace(offerKey, facts.offers.size());
          facts.offers.push_back(offer);
        } else {
          offer.unicast = offer.unicast || facts.offers[found->second].unicast;
          facts.offers[found->second] = offer;
        }
      }
    }
  }
  return facts;
}

}  // namespace kov::tools::veskctl::doctor
