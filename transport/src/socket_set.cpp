#include "socket_set.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/log/log.hpp"
#include "networking/udp_sockets.hpp"
#include "networking/utils.hpp"

namespace kov::platform::networking::someip::detail {

namespace udp = kov::platform::networking::udp;
using kov::platform::networking::NetworkResult;

namespace {

constexpr const char* LOG_PATH = "transport/src/socket_set.cpp";

/// Multicast SD leaves through the interface of the unicast address and comes back to other
/// participants on the same host.
bool setMulticastSending(int sock, const std::string& unicast) {
  in_addr local{};
  if (inet_pton(AF_INET, unicast.c_str(), &local) != 1) {
    return false;
  }
  const unsigned char loop = 1;
  if (setsockopt(sock, IPPROTO_IP, IP_MULTICAST_IF, &local, sizeof(local)) != 0 ||
      setsockopt(sock, IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof(loop)) != 0) {
    KOV_LOG(ERROR, LOG_PATH) << "Failed to set up multicast sending on " << unicast << ": "
                             << std::strerror(errno);
    return false;
  }
  return true;
}

/// The receive loop reads until a socket is empty, so reads must not block.
bool setNonBlocking(int sock) {
  const int flags = fcntl(sock, F_GETFL, 0);
  if (flags < 0 || fcntl(sock, F_SETFL, flags | O_NONBLOCK) != 0) {
    KOV_LOG(ERROR, LOG_PATH) << "Failed to make socket " << sock << " non-blocking: " << std::strerror(errno);
    return false;
  }
  return true;
}

int openNonBlocking() {
  int sock = -1;
  if (udp::openSocket(sock) != NetworkResult::OK) {
    return -1;
  }
  if (!setNonBlocking(sock)) {
    closeSocket(sock);
    return -1;
  }
  return sock;
}

int openBound(const std::string& address, std::uint16_t port, bool reuse) {
  const int sock = openNonBlocking();
  if (sock == -1) {
    return -1;
  }
  if ((reuse && udp::setReuseAddress(sock, true) != NetworkResult::OK) ||
      udp::bindSocket(sock, address, port) != NetworkResult::OK) {
    closeSocket(sock);
    return -1;
  }
  return sock;
}

}  // namespace

bool SocketSet::open(const std::string& unicast, const std::string& multicast, std::uint16_t sdPort,
                     std::uint16_t clientPort) {
  closeAll();
  sdUnicast_ = openBound(unicast, sdPort, false);
  sdMulticast_ = openBound(multicast, sdPort, true);
  bool ok = sdUnicast_ != -1 && sdMulticast_ != -1 && setMulticastSending(sdUnicast_, unicast) &&
            udp::joinMulticastGroup(sdMulticast_, {multicast, unicast}) == NetworkResult::OK;
  if (ok) {
    if (clientPort == 0) {
      client_ = openNonBlocking();
      ok = client_ != -1 && udp::bindSocketRandomPort(client_, unicast, clientPort_) == NetworkResult::OK;
    } else {
      client_ = openBound(unicast, clientPort, false);
      clientPort_ = clientPort;
      ok = client_ != -1;
    }
  }
  if (ok && pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
    KOV_LOG(ERROR, LOG_PATH) << "Failed to create the wake-up pipe: " << std::strerror(errno);
    wake_[0] = wake_[1] = -1;
    ok = false;
  }
  if (!ok) {
    closeAll();
  }
  return ok;
}

void SocketSet::closeAll() {
  for (int* sock : {&sdUnicast_, &sdMulticast_, &client_, &wake_[0], &wake_[1]}) {
    if (*sock != -1) {
      ::close(*sock);
      *sock = -1;
    }
  }
  for (auto& [id, entry] : instances_) {
    ::close(entry.first);
  }
  instances_.clear();
  clientPort_ = 0;
}

int SocketSet::instanceSocket(std::uint16_t instanceId, const std::string& unicast, std::uint16_t& port) {
  const auto it = instances_.find(instanceId);
  if (it != instances_.end()) {
    port = it->second.second;
    return it->second.first;
  }
  const int sock = openNonBlocking();
  if (sock == -1) {
    return -1;
  }
  std::uint16_t bound = 0;
  if (udp::bindSocketRandomPort(sock, unicast, bound) != NetworkResult::OK) {
    closeSocket(sock);
    return -1;
  }
  instances_.emplace(instanceId, std::make_pair(sock, bound));
  port = bound;
  return sock;
}

std::vector<std::pair<std::uint16_t, int>> SocketSet::instanceSockets() const {
  std::vector<std::pair<std::uint16_t, int>> sockets;
  for (const auto& [id, entry] : instances_) {
    sockets.emplace_back(id, entry.first);
  }
  return sockets;
}

bool sendDatagram(int sock, const Endpoint& to, const void* data, std::size_t size) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(to.ip);
  address.sin_port = htons(to.port);
  const ssize_t sent =
      ::sendto(sock, data, size, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  if (sent < 0 || static_cast<std::size_t>(sent) != size) {
    KOV_LOG(WARN, LOG_PATH) << "Failed to send " << size << " bytes to " << toString(to) << ": "
                            << std::strerror(errno);
    return false;
  }
  return true;
}

}  // namespace kov::platform::networking::someip::detail
