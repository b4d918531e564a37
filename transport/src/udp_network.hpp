#pragma once

#include <map>
#include <mutex>
#include <vector>

#include "network.hpp"

namespace kov::platform::networking::someip::detail {

/// The transport's UDP sockets, all bound to the unicast address or to a multicast group: SD unicast
/// (at the SD port, also the sender of multicast SD), SD multicast (the SD group at the SD port), the
/// client socket, one socket per offered instance (SOME/IP tells instances of one service apart by
/// their endpoint) and one per joined event group. Both SD sockets and the event group sockets are
/// opened with address reuse, so that other SOME/IP programs on the host may bind the same port on
/// the same, another or the wildcard address, before or after this one; unicast SD still reaches the
/// socket bound to its exact address. A pipe wakes `receive`.
///
/// Threads: `mutex_` guards the socket table, which `receive` copies before it polls; sockets of
/// groups that were left are closed by `receive` itself, so that a socket is never closed while it is
/// polled.
class UdpNetwork final : public Network {
 public:
  UdpNetwork() = default;
  ~UdpNetwork() override { close(); }
  UdpNetwork(const UdpNetwork&) = delete;
  UdpNetwork& operator=(const UdpNetwork&) = delete;

  Clock::time_point now() const override { return Clock::now(); }
  bool open(const TransportOptions& options) override;
  void close() override;
  std::uint16_t clientPort() const override;
  std::uint16_t openInstance(std::uint16_t instanceId) override;
  bool joinGroup(const Endpoint& group) override;
  void leaveGroup(const Endpoint& group) override;
  int send(Channel channel, std::uint16_t instanceId, const Endpoint& to, const std::uint8_t* data,
           std::size_t size) override;
  void receive(std::chrono::milliseconds timeout, const OnDatagram& onDatagram) override;
  void wake() override;

 private:
  struct Polled {
    int sock;
    Channel channel;
    std::uint16_t instanceId;
  };

  int socketOf(Channel channel, std::uint16_t instanceId) const;
  void closeLocked();

  mutable std::mutex mutex_;
  std::string unicast_;
  int sdUnicast_{-1};
  int sdMulticast_{-1};
  int client_{-1};
  std::uint16_t clientPort_{0};
  int wake_[2]{-1, -1};
  std::map<std::uint16_t, std::pair<int, std::uint16_t>> instances_;  // id -> (socket, port)
  std::map<Endpoint, int> groups_;                                    // event group -> socket
  std::vector<int> leftGroups_;                                       // closed by receive
  std::vector<std::uint8_t> buffer_;
  std::vector<Polled> polled_;
};

}  // namespace kov::platform::networking::someip::detail
