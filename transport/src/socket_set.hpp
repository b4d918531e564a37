#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "someip/endpoint.hpp"

namespace kov::platform::networking::someip::detail {

/// The transport's UDP sockets, all bound to the unicast address: SD unicast (at the SD port, also the
/// sender of multicast SD), SD multicast (bound to the group), the client socket (requests out,
/// responses and notifications in) and one socket per offered instance, since SOME/IP tells instances
/// of one service apart by their endpoint. A pipe wakes the receive loop. Not thread-safe.
class SocketSet {
 public:
  SocketSet() = default;
  ~SocketSet() { closeAll(); }
  SocketSet(const SocketSet&) = delete;
  SocketSet& operator=(const SocketSet&) = delete;

  /// Opens the SD and client sockets and the wake pipe. False (logged) on any failure, with nothing open.
  bool open(const std::string& unicast, const std::string& multicast, std::uint16_t sdPort,
            std::uint16_t clientPort);
  void closeAll();

  /// The socket of an offered instance, opened on first use at a port the system picks and kept until
  /// closeAll (the receive loop may be polling it); -1 (logged) on
  /// failure.
  int instanceSocket(std::uint16_t instanceId, const std::string& unicast, std::uint16_t& port);

  int sdUnicast() const { return sdUnicast_; }
  int sdMulticast() const { return sdMulticast_; }
  int client() const { return client_; }
  std::uint16_t clientPort() const { return clientPort_; }
  int wakeReader() const { return wake_[0]; }
  int wakeWriter() const { return wake_[1]; }
  /// (instance id, socket) of every instance socket.
  std::vector<std::pair<std::uint16_t, int>> instanceSockets() const;

 private:
  int sdUnicast_{-1};
  int sdMulticast_{-1};
  int client_{-1};
  std::uint16_t clientPort_{0};
  int wake_[2]{-1, -1};
  std::map<std::uint16_t, std::pair<int, std::uint16_t>> instances_;  // id -> (socket, port)
};

/// Sends one datagram to `to`; false (logged) on failure.
bool sendDatagram(int sock, const Endpoint& to, const void* data, std::size_t size);

}  // namespace kov::platform::networking::someip::detail
