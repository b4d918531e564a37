#include "doctor_sockets.hpp"

#include <arpa/inet.h>

#include <cerrno>
#include <cstring>

namespace kov::tools::veskctl::doctor {

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

std::string bindShared(const Socket& socket, const std::string& address, std::uint16_t port, bool* inUse) {
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

}  // namespace kov::tools::veskctl::doctor
