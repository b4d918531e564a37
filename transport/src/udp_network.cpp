#include "udp_network.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
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

constexpr const char* LOG_PATH = "transport/src/udp_network.cpp";
constexpr std::size_t RECEIVE_BUFFER = 65536;
/// Rounds of reading (one datagram per ready socket each) before timers get their turn.
constexpr std::size_t MAX_READS_PER_WAKE = 64;

/// Multicast SD leaves through the interface of the unicast address and comes back to other
/// participants on the same host.
bool setMulticastSending(int sock, const std::string& unicast) {
  in_addr local{};
  const unsigned char loop = 1;
  if (inet_pton(AF_INET, unicast.c_str(), &local) != 1 ||
      setsockopt(sock, IPPROTO_IP, IP_MULTICAST_IF, &local, sizeof(local)) != 0 ||
      setsockopt(sock, IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof(loop)) != 0) {
    KOV_LOG(ERROR, LOG_PATH) << "Failed to set up multicast sending on " << unicast << ": "
                             << std::strerror(errno);
    return false;
  }
  return true;
}

/// Reads go on until a socket is empty, so they must not block.
int openNonBlocking() {
  int sock = -1;
  if (udp::openSocket(sock) != NetworkResult::OK) {
    return -1;
  }
  const int flags = fcntl(sock, F_GETFL, 0);
  if (flags < 0 || fcntl(sock, F_SETFL, flags | O_NONBLOCK) != 0) {
    KOV_LOG(ERROR, LOG_PATH) << "Failed to make socket " << sock << " non-blocking: " << std::strerror(errno);
    closeSocket(sock);
    return -1;
  }
  return sock;
}

/// `port` 0 binds a port the system picks and stores it in `port`.
int openBound(const std::string& address, std::uint16_t& port, bool reuse) {
  const int sock = openNonBlocking();
  if (sock == -1) {
    return -1;
  }
  const bool bound = (!reuse || udp::setReuseAddress(sock, true) == NetworkResult::OK) &&
                     (port == 0 ? udp::bindSocketRandomPort(sock, address, port)
                                : udp::bindSocket(sock, address, port)) == NetworkResult::OK;
  if (!bound) {
    closeSocket(sock);
    return -1;
  }
  return sock;
}

void closeIfOpen(int& sock) {
  if (sock != -1) {
    ::close(sock);
    sock = -1;
  }
}

}  // namespace

bool UdpNetwork::open(const TransportOptions& options) {
  std::lock_guard<std::mutex> lock(mutex_);
  closeLocked();
  unicast_ = options.unicastAddress;
  std::uint16_t sdPort = options.sdPort;
  sdUnicast_ = openBound(unicast_, sdPort, true);
  sdMulticast_ = openBound(options.sdMulticastAddress, sdPort, true);
  clientPort_ = options.clientPort;
  bool ok =
      sdUnicast_ != -1 && sdMulticast_ != -1 && setMulticastSending(sdUnicast_, unicast_) &&
      udp::joinMulticastGroup(sdMulticast_, {options.sdMulticastAddress, unicast_}) == NetworkResult::OK;
  if (ok) {
    client_ = openBound(unicast_, clientPort_, false);
    ok = client_ != -1;
  }
  if (ok && pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
    KOV_LOG(ERROR, LOG_PATH) << "Failed to create the wake-up pipe: " << std::strerror(errno);
    wake_[0] = wake_[1] = -1;
    ok = false;
  }
  if (!ok) {
    closeLocked();
  }
  buffer_.resize(RECEIVE_BUFFER);
  return ok;
}

void UdpNetwork::close() {
  std::lock_guard<std::mutex> lock(mutex_);
  closeLocked();
}

void UdpNetwork::closeLocked() {
  for (int* sock : {&sdUnicast_, &sdMulticast_, &client_, &wake_[0], &wake_[1]}) {
    closeIfOpen(*sock);
  }
  for (auto& [id, entry] : instances_) {
    closeIfOpen(entry.first);
  }
  instances_.clear();
  for (auto& [group, sock] : groups_) {
    closeIfOpen(sock);
  }
  groups_.clear();
  for (int& sock : leftGroups_) {
    closeIfOpen(sock);
  }
  leftGroups_.clear();
  clientPort_ = 0;
}

std::uint16_t UdpNetwork::clientPort() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return clientPort_;
}

std::uint16_t UdpNetwork::openInstance(std::uint16_t instanceId) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = instances_.find(instanceId);
  if (it != instances_.end()) {
    return it->second.second;
  }
  std::uint16_t port = 0;
  const int sock = openBound(unicast_, port, false);
  if (sock == -1) {
    return 0;
  }
  instances_.emplace(instanceId, std::make_pair(sock, port));
  return port;
}

bool UdpNetwork::joinGroup(const Endpoint& group) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (groups_.count(group) != 0) {
    return true;
  }
  std::uint16_t port = group.port;
  const int sock = openBound(ipToString(group.ip), port, true);
  if (sock == -1) {
    return false;
  }
  if (udp::joinMulticastGroup(sock, {ipToString(group.ip), unicast_}) != NetworkResult::OK) {
    ::close(sock);
    return false;
  }
  groups_.emplace(group, sock);
  return true;
}

void UdpNetwork::leaveGroup(const Endpoint& group) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = groups_.find(group);
  if (it != groups_.end()) {
    leftGroups_.push_back(it->second);
    groups_.erase(it);
  }
}

int UdpNetwork::socketOf(Channel channel, std::uint16_t instanceId) const {
  switch (channel) {
    case Channel::SD_UNICAST:
    case Channel::SD_MULTICAST:
      return sdUnicast_;
    case Channel::CLIENT:
    case Channel::EVENT_GROUP:
      return client_;
    case Channel::INSTANCE: {
      const auto it = instances_.find(instanceId);
      return it == instances_.end() ? -1 : it->second.first;
    }
  }
  return -1;
}

int UdpNetwork::send(Channel channel, std::uint16_t instanceId, const Endpoint& to, const std::uint8_t* data,
                     std::size_t size) {
  int sock = -1;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    sock = socketOf(channel, instanceId);
  }
  if (sock == -1) {
    return EBADF;
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(to.ip);
  address.sin_port = htons(to.port);
  const ssize_t sent =
      ::sendto(sock, data, size, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  if (sent < 0) {
    return errno;
  }
  return static_cast<std::size_t>(sent) == size ? 0 : EMSGSIZE;
}

void UdpNetwork::wake() {
  std::lock_guard<std::mutex> lock(mutex_);
  const char byte = 1;
  if (wake_[1] != -1) {
    [[maybe_unused]] const auto written = ::write(wake_[1], &byte, 1);
  }
}

void UdpNetwork::receive(std::chrono::milliseconds timeout, const OnDatagram& onDatagram) {
  std::vector<pollfd> fds;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (int& sock : leftGroups_) {
      closeIfOpen(sock);
    }
    leftGroups_.clear();
    polled_.clear();
    polled_.push_back({wake_[0], Channel::SD_UNICAST, 0});
    polled_.push_back({sdUnicast_, Channel::SD_UNICAST, 0});
    polled_.push_back({sdMulticast_, Channel::SD_MULTICAST, 0});
    polled_.push_back({client_, Channel::CLIENT, 0});
    for (const auto& [instanceId, entry] : instances_) {
      polled_.push_back({entry.first, Channel::INSTANCE, instanceId});
    }
    for (const auto& [group, sock] : groups_) {
      polled_.push_back({sock, Channel::EVENT_GROUP, 0});
    }
  }
  for (const Polled& polled : polled_) {
    fds.push_back({polled.sock, POLLIN, 0});
  }
  if (::poll(fds.data(), fds.size(), static_cast<int>(timeout.count())) <= 0) {
    return;  // time-out, or EINTR: the caller handles its timers and comes back
  }
  if ((fds[0].revents & POLLIN) != 0) {
    char drain[64];
    while (::read(fds[0].fd, drain, sizeof(drain)) > 0) {
    }
  }
  // The sockets do not block: read what is there, one datagram per socket in turn, so that a response
  // waits for at most one datagram of each other socket, however busy the SD port is; the number of
  // rounds is bounded so that timers get their turn.
  bool anyRead = true;
  for (std::size_t round = 0; round < MAX_READS_PER_WAKE && anyRead; ++round) {
    anyRead = false;
    for (std::size_t i = 1; i < fds.size(); ++i) {
      if ((fds[i].revents & POLLIN) == 0) {
        continue;
      }
      std::size_t received = 0;
      std::uint32_t ipNetworkOrder = 0;
      std::uint16_t port = 0;
      if (udp::tryReadFrom(fds[i].fd, buffer_.data(), buffer_.size(), received, ipNetworkOrder, port) !=
              NetworkResult::OK ||
          received == 0) {
        fds[i].revents = 0;  // empty for now
        continue;
      }
      anyRead = true;
      onDatagram(polled_[i].channel, polled_[i].instanceId, Endpoint{ntohl(ipNetworkOrder), port},
                 buffer_.data(), received);
    }
  }
}

}  // namespace kov::platform::networking::someip::detail
