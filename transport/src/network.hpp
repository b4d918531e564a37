#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "sd_outbox.hpp"
#include "someip/endpoint.hpp"
#include "someip/transport_options.hpp"

namespace kov::platform::networking::someip::detail {

/// The socket a datagram arrived at or leaves from.
enum class Channel : std::uint8_t {
  SD_UNICAST,    ///< the SD port on the unicast address; also sends multicast SD
  SD_MULTICAST,  ///< the SD port on the SD multicast group
  CLIENT,        ///< requests out, responses and unicast notifications in
  INSTANCE,      ///< one per offered instance (the `instanceId` of the call)
  EVENT_GROUP,   ///< a multicast group that event notifications arrive at
};

/// The transport's only contact with sockets and time, so that tests can replace both. The real one
/// (UdpNetwork) uses UDP sockets and the steady clock.
///
/// Threads: `receive` runs on the transport's receive thread only; `wake` and `now` may be called from
/// any thread; every other operation is called with the transport's lock held, `send` also from the
/// dispatch thread, but never two at once. `close` is called only when the receive thread has ended.
class Network {
 public:
  using OnDatagram = std::function<void(Channel channel, std::uint16_t instanceId, const Endpoint& from,
                                        const std::uint8_t* data, std::size_t size)>;

  virtual ~Network() = default;

  virtual Clock::time_point now() const = 0;

  /// Opens the SD sockets (unicast and group, both sharing the SD port with other programs on the
  /// host) and the client socket. False (logged) with nothing open.
  virtual bool open(const TransportOptions& options) = 0;
  /// Closes every socket.
  virtual void close() = 0;
  virtual std::uint16_t clientPort() const = 0;

  /// The port of the socket of an offered instance, opened on first use and kept until close; 0
  /// (logged) on failure.
  virtual std::uint16_t openInstance(std::uint16_t instanceId) = 0;

  /// Starts receiving event notifications sent to the multicast `group`; false (logged) on failure.
  virtual bool joinGroup(const Endpoint& group) = 0;
  /// Stops receiving at `group`.
  virtual void leaveGroup(const Endpoint& group) = 0;

  /// Sends one datagram from the socket of `channel` (for INSTANCE: of `instanceId`). Returns 0, or the
  /// errno of the failure, which the caller logs.
  virtual int send(Channel channel, std::uint16_t instanceId, const Endpoint& to, const std::uint8_t* data,
                   std::size_t size) = 0;

  /// Waits at most `timeout` for datagrams and hands each one to `onDatagram`; returns early after
  /// `wake`.
  virtual void receive(std::chrono::milliseconds timeout, const OnDatagram& onDatagram) = 0;
  virtual void wake() = 0;
};

}  // namespace kov::platform::networking::someip::detail
