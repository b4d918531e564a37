#include "someip/endpoint.hpp"

#include <arpa/inet.h>

namespace kov::platform::networking::someip {

std::string ipToString(std::uint32_t ip) {
  return std::to_string(ip >> 24) + "." + std::to_string((ip >> 16) & 0xFF) + "." +
         std::to_string((ip >> 8) & 0xFF) + "." + std::to_string(ip & 0xFF);
}

std::string toString(const Endpoint& endpoint) {
  return ipToString(endpoint.ip) + ":" + std::to_string(endpoint.port);
}

bool parseIp(const std::string& text, std::uint32_t& ip) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
    return false;
  }
  ip = ntohl(address.s_addr);
  return true;
}

}  // namespace kov::platform::networking::someip
