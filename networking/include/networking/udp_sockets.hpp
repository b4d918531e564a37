#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "networking/network_result.hpp"
#include "networking/socket_flags.hpp"
#include "networking/utils.hpp"

namespace kov::platform::networking {

/// Where to join an IPv4 multicast group.
struct MulticastConfig {
  std::string groupAddress;  ///< the group, dotted quad
  std::string localAddress;  ///< the local interface to join on, dotted quad
};

/// IPv4 datagram sockets over bare descriptors owned by the caller (-1: none). Nothing keeps state;
/// every failed system call is logged once and answered with SYSTEM_ERROR. Ports are in host order.
namespace udp {

/// Opens a socket into `sock`, which must be -1 (else ALREADY_OPEN). Stores -1 if socket() fails.
NetworkResult openSocket(int& sock);

/// Turns SO_REUSEADDR on or off.
NetworkResult setReuseAddress(int sock, bool enable);

/// Turns SO_BROADCAST on.
NetworkResult setSocketBroadcast(int sock);

/// Bounds every blocking read by `timeout` (0: no time-out).
NetworkResult setSocketPollTimeout(int sock, const std::chrono::milliseconds& timeout);

/// Binds to every local address at `port`.
NetworkResult bindSocket(int sock, std::uint16_t port);

/// Binds to `address`:`port`. The address is parsed strictly; text that does not parse binds to 0.0.0.0.
NetworkResult bindSocket(int sock, const std::string& address, std::uint16_t port);

/// Binds to `address` and a port the system picks, which is stored in `port` (untouched on failure).
NetworkResult bindSocketRandomPort(int sock, const std::string& address, std::uint16_t& port);

/// Joins the multicast group of `config` on its local interface.
NetworkResult joinMulticastGroup(int sock, const MulticastConfig& config);

/// Sends one datagram to `address`:`port`. The address is parsed with inet_aton (short forms allowed).
NetworkResult sendToAddress(int sock, const std::string& address, std::uint16_t port, const void* data,
                            std::size_t size);

// Reads of one datagram. A datagram longer than `capacity` is cut to `capacity` bytes. `received` is
// always written; the sender outputs only when the result is OK. NO_DATA (not logged) when nothing
// arrived before the poll time-out, the socket would block, or the datagram was empty.

NetworkResult tryRead(int sock, void* buffer, std::size_t capacity, std::size_t& received);

/// `address`: the sender's address text.
NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          std::string& address);

/// `address` and `port`: the sender's address text and port.
NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          std::string& address, std::uint16_t& port);

/// `ip`: the sender's IPv4 address in network order, as the socket address holds it; `ip` and `port`
/// are 0 for a sender that is not IPv4.
NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          std::uint32_t& ip, std::uint16_t& port);

/// `port`: the sender's port.
NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          std::uint16_t& port);

namespace detail {

/// The one read path: a single recvfrom into `sender` (16 bytes of address).
NetworkResult tryReadFrom(int sock, void* buffer, std::size_t capacity, std::size_t& received,
                          sockaddr& sender);

}  // namespace detail
}  // namespace udp
}  // namespace kov::platform::networking
