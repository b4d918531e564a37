#include "networking/udp_sockets.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>

#include "common/log/log.hpp"

namespace kov::platform::networking::udp {
namespace {

constexpr const char* kLogPath = "src/posix/udp_sockets";

sockaddr_in ipv4Address(const in_addr& address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr = address;
  result.sin_port = toNetworkByteOrder(port);
  return result;
}

/// Strict dotted-quad parse; text that does not parse leaves 0.0.0.0.
in_addr parseStrict(const std::string& address) {
  in_addr result{};
  inet_pton(AF_INET, address.c_str(), &result);
  return result;
}

int bindTo(int sock, const sockaddr_in& address) {
  return bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

/// Zero-filled room for a sender address. It is larger than the 16 bytes that are read so that an
/// unexpected family can never lead a reader past its end.
struct SenderAddress {
  sockaddr_storage storage{};
  sockaddr& get() { return reinterpret_cast<sockaddr&>(storage); }
  const sockaddr* ptr() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

}  // namespace

NetworkResult openSocket(int& sock) {
  if (sock != -1) {
    KOV_LOG(ERROR, kLogPath) << "udp::openSocket - socket_ is potentially open, not doing anything!";
    return NetworkResult::ALREADY_OPEN;
  }
  sock = socket(AF_INET, SOCK_DGRAM, 0);
  if (sock < 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::openSocket - error opening socket ; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

NetworkResult setReuseAddress(int sock, bool enable) {
  const int* flag = enable ? &FLAG_TRUE : &FLAG_FALSE;
  if (setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, flag, sizeof(*flag)) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::setReuseAddress() - error turning " << (enable ? "on" : "off")
                             << " UDP socket reuse address option; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

NetworkResult setSocketBroadcast(int sock) {
  if (setsockopt(sock, SOL_SOCKET, SO_BROADCAST, &FLAG_TRUE, sizeof(FLAG_TRUE)) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath)
        << "udp::setSocketBroadcast() - error setting UDP socket to broadcast; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

NetworkResult setSocketPollTimeout(int sock, const std::chrono::milliseconds& timeout) {
  const auto ms = timeout.count();
  timeval value{};
  value.tv_sec = static_cast<decltype(value.tv_sec)>(ms / 1000);
  value.tv_usec = static_cast<decltype(value.tv_usec)>((ms % 1000) * 1000);
  if (setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &value, sizeof(value)) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::setSocketPollTimeout() - error setting UDP socket poll timeout to "
                             << ms << " ms; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

NetworkResult bindSocket(int sock, std::uint16_t port) {
  in_addr any{};
  any.s_addr = toNetworkByteOrder(static_cast<std::uint32_t>(INADDR_ANY));
  if (bindTo(sock, ipv4Address(any, port)) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::bindSocket - error binding UDP socket_ to local port " << port
                             << "; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

NetworkResult bindSocket(int sock, const std::string& address, std::uint16_t port) {
  if (bindTo(sock, ipv4Address(parseStrict(address), port)) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::bindSocket - error binding socket_ to local address/port " << address
                             << ":" << port << "; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

NetworkResult bindSocketRandomPort(int sock, const std::string& address, std::uint16_t& port) {
  if (bindTo(sock, ipv4Address(parseStrict(address), 0)) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::bindSocketRandomPort - error binding UDP socket_ to " << address
                             << " and random port; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  sockaddr_in bound{};
  socklen_t length = sizeof(bound);
  if (getsockname(sock, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::bindSocketRandomPort -error binding UDP socket_ to " << address
                             << " and random port; cannot read socket properties back; error message: "
                             << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  port = toHostByteOrder(bound.sin_port);
  return NetworkResult::OK;
}

NetworkResult joinMulticastGroup(int sock, const MulticastConfig& config) {
  ip_mreq request{};
  inet_pton(AF_INET, config.groupAddress.c_str(), &request.imr_multiaddr);
  inet_pton(AF_INET, config.localAddress.c_str(), &request.imr_interface);
  if (setsockopt(sock, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof(request)) != 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::joinMulticastGroup() - error joining multicast group address \""
                             << config.groupAddress << "\" on local address \"" << config.localAddress
                             << "\"; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

NetworkResult sendToAddress(int sock, const std::string& address, std::uint16_t port, const void* data,
                            std::size_t size) {
  in_addr destination{};
  inet_aton(address.c_str(), &destination);
  const sockaddr_in target = ipv4Address(destination, port);
  if (sendto(sock, data, size, 0, reinterpret_cast<const sockaddr*>(&target), sizeof(target)) < 0) {
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::send() - error sending packet of size " << size << " to " << address
                             << ":" << port << "; error message: " << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  return NetworkResult::OK;
}

namespace detail {

NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          sockaddr& sender) {
  socklen_t length = sizeof(sockaddr);
  const ssize_t count = recvfrom(sock, buffer, capacity, 0, &sender, &length);
  if (count < 0) {
    const int code = errno;
    received = 0;
    if (code == EAGAIN || code == EWOULDBLOCK) {
      return NetworkResult::NO_DATA;
    }
    const std::string error = getLastNetworkError();
    KOV_LOG(ERROR, kLogPath) << "udp::tryReadFrom() - error reading from UDP socket; error message: "
                             << error;
    return NetworkResult::SYSTEM_ERROR;
  }
  received = static_cast<std::size_t>(count);
  return count == 0 ? NetworkResult::NO_DATA : NetworkResult::OK;
}

}  // namespace detail

namespace {

/// One read; `onData` sees the sender only when the read returned OK, so that the caller's outputs other
/// than `received` are written only then.
template <typename OnData>
NetworkResult readAndThen(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          OnData onData) {
  SenderAddress sender;
  const NetworkResult result = detail::tryReadFrom(sock, buffer, capacity, received, sender.get());
  if (result == NetworkResult::OK) {
    onData(sender);
  }
  return result;
}

}  // namespace

NetworkResult tryRead(int sock, void* buffer, std::size_t capacity, std::size_t& received) {
  SenderAddress sender;
  return detail::tryReadFrom(sock, buffer, capacity, received, sender.get());
}

NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          std::string& address) {
  return readAndThen(sock, buffer, capacity, received,
                     [&](const SenderAddress& sender) { address = sockAddrToString(sender.ptr()); });
}

NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          std::string& address, std::uint16_t& port) {
  return readAndThen(sock, buffer, capacity, received,
                     [&](const SenderAddress& sender) { address = sockAddrToString(sender.ptr(), port); });
}

NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          std::uint32_t& ip, std::uint16_t& port) {
  return readAndThen(sock, buffer, capacity, received, [&](const SenderAddress& sender) {
    if (sender.storage.ss_family == AF_INET) {
      sockaddr_in ipv4{};
      std::memcpy(&ipv4, &sender.storage, sizeof(ipv4));
      ip = ipv4.sin_addr.s_addr;
      port = toHostByteOrder(ipv4.sin_port);
    } else {
      ip = 0;
      port = 0;
    }
  });
}

NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          std::uint16_t& port) {
  return readAndThen(sock, buffer, capacity, received,
                     [&](SenderAddress& sender) { port = getSourcePort(sender.get()); });
}

}  // namespace kov::platform::networking::udp
