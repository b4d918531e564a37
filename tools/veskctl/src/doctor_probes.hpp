#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "doctor_verdicts.hpp"

namespace kov::tools::veskctl::doctor {

/// The interface that has `address` assigned (or, for a loop-back interface, whose network holds it).
std::optional<InterfaceFacts> findInterface(const std::string& address);

/// net.ipv4.conf.<interface>.rp_filter, from /proc/sys.
std::optional<int> readRpFilter(const std::string& interface);

/// The kernel's count of datagrams dropped by reverse-path filtering (IPReversePathFilter in the TcpExt
/// lines of /proc/net/netstat).
std::optional<std::uint64_t> readReversePathDrops();

/// The interface the route to `address` leaves through, as the kernel's route lookup chooses it: the
/// loop-back interface for an address of this host or of 127.0.0.0/8; empty when there is no route.
std::string routeInterface(const std::string& address);

/// Binds test sockets with address reuse to address:port and group:port and closes them at once; on
/// failure names the processes with a socket on that port.
PortFacts probePort(const std::string& address, const std::string& group, std::uint16_t port);

/// Sends a datagram to the group at a free port over `address` and waits up to 1 s for it to come back
/// to a socket bound to group:thatport that joined the group on `address`.
LoopbackFacts probeLoopback(const std::string& address, const std::string& group);

/// The SD message with one FindService entry for each sensor service (session 1, reboot and unicast
/// flags), asking for `major` or any major version.
std::vector<std::uint8_t> findServiceMessage(std::optional<std::uint8_t> major);

/// Listens for `seconds` to the SD group and address:port (sockets with address reuse, closed before
/// returning), sending one FindService from address:port at the start.
ListenFacts listenToDiscovery(const std::string& address, const std::string& group, std::uint16_t port,
                              double seconds, std::optional<std::uint8_t> major);

}  // namespace kov::tools::veskctl::doctor
