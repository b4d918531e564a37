#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "discovery_client.hpp"
#include "discovery_server.hpp"
#include "dispatch_queue.hpp"
#include "event_subscriptions.hpp"
#include "handler_slot.hpp"
#include "log_limiter.hpp"
#include "network.hpp"
#include "sd_session.hpp"
#include "someip/some_ip_transport.hpp"

namespace kov::platform::networking::someip::detail {

/// Everything behind SomeIpTransport. `lifecycleMutex_` serialises connect and disconnect; `mutex_`
/// guards all other state; handlers run on the dispatch thread without either; the receive thread
/// reads the network. Sockets and time come from a Network, which tests replace.
class TransportCore {
 public:
  using AvailabilityHandler = ISomeIpTransport::AvailabilityHandler;
  using EventHandler = ISomeIpTransport::EventHandler;
  using RequestHandler = SomeIpTransport::RequestHandler;

  TransportCore(TransportOptions options, std::unique_ptr<Network> network);
  ~TransportCore();

  // Lifecycle (transport_core.cpp).
  Result connect();
  Result disconnect();

  // Client side (client_side.cpp).
  bool subscribeAvailability(const std::vector<std::uint16_t>& serviceIds, AvailabilityHandler handler);
  bool unsubscribeAvailability();
  bool requestService(const Address& address);
  bool releaseService(const Address& address);
  Result callMethod(const Address& address, std::uint16_t methodId, const void* request,
                    std::size_t requestSize, void* response, std::size_t responseSize);
  bool subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                       const std::vector<std::uint16_t>& eventIds, EventHandler handler);
  bool unsubscribeEvents(const Address& address);
  std::optional<Endpoint> offeredEndpoint(const Address& address) const;

  // Server side (server_side.cpp).
  bool offerService(const Address& address);
  bool stopOfferService(const Address& address);
  bool offerEvent(const Address& address, std::uint16_t eventGroupId, const std::vector<std::uint16_t>& ids);
  bool stopOfferEvent(const Address& address, std::uint16_t eventGroupId);
  bool notifyEvent(const Address& address, std::uint16_t eventId, const void* data, std::size_t size);
  void setRequestHandler(RequestHandler handler);

 private:
  struct PendingCall {
    Address address;
    std::uint16_t methodId{0};
    bool done{false};
    Result result{Result::Ok};
    std::vector<std::uint8_t> payload;
  };
  struct EventSubscription {
    std::set<std::uint16_t> eventIds;  // library ids
    std::shared_ptr<HandlerSlot<EventHandler>> slot;
  };
  struct OfferedEvents {
    std::map<std::uint16_t, std::set<std::uint16_t>> eventgroups;   // group -> library event ids
    std::map<std::uint16_t, std::vector<std::uint8_t>> lastValues;  // library event id -> payload
  };

  // Lifecycle (transport_core.cpp).
  void resetStateLocked();
  /// Logs at most once per peer, kind and interval; false when the line is suppressed.
  bool mayLogLocked(std::uint32_t peerIp, LogKind kind, std::size_t& suppressed);

  // Receive loop (receive_loop.cpp).
  void receiveLoop();
  void onDatagram(Channel channel, std::uint16_t instanceId, const Endpoint& from, const std::uint8_t* data,
                  std::size_t size);
  void onTimersLocked(Clock::time_point now);
  void onSdDatagram(const std::uint8_t* data, std::size_t size, std::uint32_t fromIp, bool multicast);
  void onSdMessageLocked(Clock::time_point now, const SdMessage& message, std::uint16_t session,
                         std::uint32_t fromIp, bool multicast);
  void onSdEntryLocked(Clock::time_point now, const SdEntry& entry, std::uint32_t fromIp, SdOutbox& out,
                       std::vector<AvailabilityChange>& changes, std::vector<NewSubscriber>& joined);
  bool admitPeerLocked(Clock::time_point now, std::uint32_t peerIp);
  void prunePeersLocked(Clock::time_point now);
  void onClientDatagram(const std::uint8_t* data, std::size_t size, const Endpoint& from);
  void onResponseLocked(const MessageView& message, const Endpoint& from);
  void onNotificationLocked(const MessageView& message, const Endpoint& from);
  void logMalformedLocked(const char* what, const Endpoint& from, std::size_t offset, ParseError error);
  Clock::time_point nextDeadlineLocked() const;
  /// Hands availability changes on: a gone instance ends the calls waiting for it and its event
  /// subscription waits for the next offer; then the changes are reported.
  void applyChangesLocked(const std::vector<AvailabilityChange>& changes);
  /// Joins the multicast groups that acknowledged subscriptions name and leaves the others.
  void syncEventGroupsLocked();

  // Server side (server_side.cpp).
  void onServerDatagram(std::uint16_t instanceId, const std::uint8_t* data, std::size_t size,
                        const Endpoint& from);
  void onRequestLocked(std::uint16_t instanceId, const MessageView& message, ParseError error,
                       const Endpoint& from);
  void sendInitialValuesLocked(const std::vector<NewSubscriber>& joined);

  // Sending (sd_sender.cpp).
  void flushLocked(SdOutbox& out);
  void sendSdLocked(bool multicast, std::uint32_t peerIp, const std::vector<SdEntry>& entries);
  void sendLocked(Channel channel, std::uint16_t instanceId, const Endpoint& to,
                  const std::vector<std::uint8_t>& datagram);
  void reportLocked(const std::vector<AvailabilityChange>& changes);
  void sendNotificationLocked(const Address& address, std::uint16_t eventId,
                              const std::vector<std::uint8_t>& payload, const Endpoint& to);
  std::chrono::milliseconds randomInitialDelay();
  /// Logs the first task dropped because handlers fall behind, and the end of such a stretch.
  void noteBacklog(bool queued, const char* what, std::uint16_t id);

  const TransportOptions options_;
  const std::unique_ptr<Network> network_;
  std::uint32_t ownIp_{0};
  std::uint32_t multicastIp_{0};

  std::mutex lifecycleMutex_;
  mutable std::mutex mutex_;
  bool connected_{false};
  std::minstd_rand random_;
  DiscoveryClient discovery_;
  DiscoveryServer server_;
  std::unique_ptr<EventSubscriptions> subscriptions_;
  SdSessionCounter multicastSession_;
  std::map<std::uint32_t, SdSessionCounter> unicastSessions_;
  RebootDetector reboots_;
  std::map<std::uint32_t, Clock::time_point> peers_;  // SD peers heard, with when they were last heard
  Clock::time_point nextPeerPrune_{};
  LogLimiter logLimiter_;

  std::set<std::uint16_t> watchedServices_;
  std::shared_ptr<HandlerSlot<AvailabilityHandler>> availabilitySlot_;
  std::map<Address, EventSubscription, AddressLess> eventSubscriptions_;
  std::set<Endpoint> joinedGroups_;

  std::uint16_t nextSession_{1};
  std::map<std::uint16_t, std::shared_ptr<PendingCall>> pendingCalls_;  // by session id
  std::condition_variable callDone_;

  std::shared_ptr<HandlerSlot<RequestHandler>> requestSlot_;
  std::map<Address, OfferedEvents, AddressLess> offeredEvents_;
  std::uint16_t notificationSession_{1};

  DispatchQueue dispatch_;
  std::size_t droppedForBacklog_{0};  // since the last task that could be queued
  std::thread receiver_;
};

}  // namespace kov::platform::networking::someip::detail
