#include "networking/utils.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/log/log.hpp"

namespace kov::platform::networking {
namespace {

constexpr const char* kLogPath = "src/posix/utils";
constexpr const char* kLoopback = "127.0.0.1";
constexpr std::size_t kHostBufferSize = 1025;

/// Owns the list that getifaddrs returns.
class InterfaceList {
 public:
  InterfaceList() = default;
  ~InterfaceList() {
    if (list_ != nullptr) {
      freeifaddrs(list_);
    }
  }
  InterfaceList(const InterfaceList&) = delete;
  InterfaceList& operator=(const InterfaceList&) = delete;

  /// Fetches the list; false (errno set) on failure.
  bool load() { return getifaddrs(&list_) == 0; }
  const ifaddrs* head() const { return list_; }

 private:
  ifaddrs* list_ = nullptr;
};

/// Numeric host text of an IPv4 socket address; empty if it cannot be rendered.
std::string numericHost(const sockaddr* address) {
  char host[kHostBufferSize] = {};
  if (address != nullptr) {
    getnameinfo(address, sizeof(sockaddr_in), host, sizeof(host), nullptr, 0, NI_NUMERICHOST);
  }
  return host;
}

bool isIpv4(const ifaddrs* entry) {
  return entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET;
}

}  // namespace

std::string getLastNetworkError() {
  return std::strerror(errno);
}

bool stringToIPAddress(const std::string& address, std::uint32_t& ip) {
  if (address.empty()) {
    KOV_LOG(ERROR, kLogPath) << "stringToIPAddress - address is empty";
    return false;
  }
  in_addr parsed{};
  if (inet_aton(address.c_str(), &parsed) == 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "stringToIPAddress - failed to convert IPv4 address (" << address
                             << ") to encoded format; error message: " << error;
    return false;
  }
  ip = parsed.s_addr;
  return true;
}

std::string ipAddressToString(std::uint32_t ip) {
  in_addr address{};
  address.s_addr = ip;
  char text[INET_ADDRSTRLEN] = {};
  if (inet_ntop(AF_INET, &address, text, sizeof(text)) == nullptr) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "Failed to convert ipv4 address to string: " << ip
                             << "; error message: " << error;
    return "Unknown";
  }
  return text;
}

std::string sockAddrToString(const sockaddr* address, std::uint16_t& port) {
  if (address != nullptr && address->sa_family == AF_INET) {
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, address, sizeof(ipv4));
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &ipv4.sin_addr, text, sizeof(text));
    port = toHostByteOrder(ipv4.sin_port);
    return text;
  }
  if (address != nullptr && address->sa_family == AF_INET6) {
    sockaddr_in6 ipv6{};
    std::memcpy(&ipv6, address, sizeof(ipv6));
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, &ipv6.sin6_addr, text, sizeof(text));
    port = toHostByteOrder(ipv6.sin6_port);
    return text;
  }
  KOV_LOG(ERROR, kLogPath) << "kov::platform::networking::sockAddrToString error: Unknown Address Family "
                              "type when parsing IP address";
  return {};
}

std::string sockAddrToString(const sockaddr* address) {
  // Write-only sink for the discarded port; one per thread so that concurrent callers never race on it.
  static thread_local std::uint16_t source_port = 0;
  return sockAddrToString(address, source_port);
}

std::string getBroadcast(const std::string& address, const std::string& netmask) {
  in_addr host{};
  in_addr mask{};
  if (inet_pton(AF_INET, address.c_str(), &host) == 1 && inet_pton(AF_INET, netmask.c_str(), &mask) == 1) {
    in_addr broadcast{};
    broadcast.s_addr = host.s_addr | ~mask.s_addr;
    char text[INET_ADDRSTRLEN] = {};
    if (inet_ntop(AF_INET, &broadcast, text, sizeof(text)) != nullptr) {
      return text;
    }
  }
  KOV_LOG(ERROR, kLogPath) << "kov::platform::networking::getBroadcast Failed converting number to string";
  return address;
}

std::vector<std::pair<std::string, std::string>> getSystemIPsAndBroadcasts() {
  std::vector<std::pair<std::string, std::string>> result;
  InterfaceList interfaces;
  if (!interfaces.load()) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath)
        << "kov::platform::networking::getSystemIPsAndBroadcasts call to getifaddrs failed: " << error;
    return result;
  }
  for (const ifaddrs* entry = interfaces.head(); entry != nullptr; entry = entry->ifa_next) {
    if (!isIpv4(entry)) {
      continue;
    }
    std::string address = numericHost(entry->ifa_addr);
    std::string broadcast = getBroadcast(address, numericHost(entry->ifa_netmask));
    result.emplace_back(std::move(address), std::move(broadcast));
  }
  return result;
}

std::string getMatchingInterface(const std::string& address) {
  std::string result = kLoopback;
  if (address == kLoopback) {
    return result;
  }
  InterfaceList interfaces;
  if (!interfaces.load()) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "kov::platform::networking::getMatchingInterface call to getifaddrs failed: "
                             << error;
    return result;
  }
  for (const ifaddrs* entry = interfaces.head(); entry != nullptr; entry = entry->ifa_next) {
    if (!isIpv4(entry)) {
      continue;
    }
    const std::string local = numericHost(entry->ifa_addr);
    const std::string netmask = numericHost(entry->ifa_netmask);
    if (getBroadcast(local, netmask) == getBroadcast(address, netmask)) {
      result = local;
      break;
    }
  }
  return result;
}

NetworkResult closeSocket(int sock) {
  if (sock == -1) {
    return NetworkResult::OK;
  }
  if (close(sock) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "closeSocket() - error closing socket; error mesage: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

}  // namespace kov::platform::networking
