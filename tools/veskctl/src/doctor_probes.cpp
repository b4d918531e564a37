#include "doctor_probes.hpp"

#include <arpa/inet.h>
#include <dirent.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "doctor_sockets.hpp"

namespace kov::tools::veskctl::doctor {

namespace {

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

}  // namespace kov::tools::veskctl::doctor
