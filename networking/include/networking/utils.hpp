#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "networking/network_result.hpp"

namespace kov::platform::networking {

// Byte order. Network order is big-endian; each pair is its own inverse.

/// Network to host order of a 16-bit value (as ntohs).
std::uint16_t toHostByteOrder(std::uint16_t value);
/// Host to network order of a 16-bit value (as htons).
std::uint16_t toNetworkByteOrder(std::uint16_t value);
/// Network to host order of a 32-bit value (as ntohl).
std::uint32_t toHostByteOrder(std::uint32_t value);
/// Host to network order of a 32-bit value (as htonl).
std::uint32_t toNetworkByteOrder(std::uint32_t value);
/// The IEEE-754 bit pattern of `value`, unchanged, in network order.
std::uint32_t floatToNetworkByteOrder(float value);
/// The inverse of floatToNetworkByteOrder: the bits of `value` in host order, taken as a float.
float floatToHostByteOrder(std::uint32_t value);

// IPv4 addresses. A 32-bit address is always held as it lies in a sockaddr_in (network byte order).

/// Parses `address` with inet_aton (short and non-decimal forms are accepted). On success stores the
/// address in `ip` and returns true; on failure logs, leaves `ip` untouched and returns false.
bool stringToIPAddress(const std::string& address, std::uint32_t& ip);

/// Dotted-quad text of `ip`; "Unknown" (logged) if it cannot be rendered.
std::string ipAddressToString(std::uint32_t ip);

/// Text of an AF_INET or AF_INET6 socket address and its port in host order. Any other family (or a
/// null pointer) is logged and gives an empty string with `port` untouched.
std::string sockAddrToString(const sockaddr* address, std::uint16_t& port);

/// As the two-argument form, the port discarded.
std::string sockAddrToString(const sockaddr* address);

/// Port in host order of an AF_INET or AF_INET6 socket address; 0 (logged) for any other family.
std::uint16_t getSourcePort(const sockaddr& address);

/// Broadcast address (address OR NOT netmask) of two strict dotted quads. If either does not parse,
/// logs and returns `address` unchanged.
std::string getBroadcast(const std::string& address, const std::string& netmask);

/// One pair (interface address, broadcast address) per IPv4 address of this host, in the order the
/// system lists them; loopback and interfaces that are down included. Empty (logged) on failure.
std::vector<std::pair<std::string, std::string>> getSystemIPsAndBroadcasts();

/// Address of the first local IPv4 interface whose subnet holds `address`; "127.0.0.1" when none does,
/// when `address` is "127.0.0.1" itself, or (logged) when the interfaces cannot be listed.
std::string getMatchingInterface(const std::string& address);

/// The system's text for the current errno.
std::string getLastNetworkError();

/// Closes `sock`. -1 means no socket: nothing is done and the result is OK.
NetworkResult closeSocket(int sock);

}  // namespace kov::platform::networking
