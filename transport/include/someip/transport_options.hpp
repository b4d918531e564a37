#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "someip/export.hpp"

namespace kov::platform::networking::someip {

/// Everything the SOME/IP transport can be told, with every default in one place. Configuration is by
/// code only: nothing is read from files or the environment.
struct TransportOptions {
  static constexpr const char* DEFAULT_SD_MULTICAST = "224.224.224.245";
  static constexpr std::uint16_t DEFAULT_SD_PORT = 30490;
  static constexpr std::uint16_t DEFAULT_CLIENT_ID = 0x1000;
  static constexpr std::chrono::milliseconds DEFAULT_CALL_TIMEOUT{1000};
  static constexpr std::uint32_t DEFAULT_OFFER_TTL_S = 3;
  static constexpr std::uint32_t DEFAULT_SUBSCRIPTION_TTL_S = 3;
  static constexpr std::chrono::milliseconds DEFAULT_INITIAL_DELAY_MIN{10};
  static constexpr std::chrono::milliseconds DEFAULT_INITIAL_DELAY_MAX{100};
  static constexpr std::chrono::milliseconds DEFAULT_REPETITIONS_BASE_DELAY{30};
  static constexpr unsigned DEFAULT_REPETITIONS_MAX = 3;
  static constexpr std::chrono::milliseconds DEFAULT_CYCLIC_OFFER_DELAY{1000};
  static constexpr std::chrono::milliseconds DEFAULT_ACK_TIMEOUT{1000};
  static constexpr std::uint16_t DEFAULT_EVENT_ID_OFFSET = 0x8000;
  static constexpr std::size_t DEFAULT_MAX_HANDLER_BACKLOG = 4096;
  static constexpr std::size_t DEFAULT_MAX_HANDLER_BACKLOG_BYTES = 4 * 1024 * 1024;
  static constexpr std::size_t DEFAULT_MAX_REMOTE_OFFERS = 1024;
  static constexpr std::size_t DEFAULT_MAX_PEERS = 256;
  static constexpr std::chrono::milliseconds DEFAULT_PEER_IDLE_TIMEOUT{300000};
  static constexpr std::size_t DEFAULT_MAX_SUBSCRIBERS_PER_PEER = 4;
  static constexpr std::size_t DEFAULT_MAX_SUBSCRIBERS = 64;
  static constexpr std::size_t DEFAULT_MAX_PENDING_CALLS = 1024;
  static constexpr std::chrono::milliseconds DEFAULT_LOG_INTERVAL{10000};

  /// This participant's own IPv4 address (dotted quad); required. Every socket binds to it, and SD
  /// messages that come from it are ignored.
  std::string unicastAddress;
  /// SD multicast group and port.
  std::string sdMulticastAddress{DEFAULT_SD_MULTICAST};
  std::uint16_t sdPort{DEFAULT_SD_PORT};
  /// Port of the client's socket for responses and notifications; 0 lets the system pick one.
  std::uint16_t clientPort{0};
  /// Client id in the request id of every request this transport sends.
  std::uint16_t clientId{DEFAULT_CLIENT_ID};
  /// How long callMethod waits for a response.
  std::chrono::milliseconds callTimeout{DEFAULT_CALL_TIMEOUT};

  /// Version of the services: offered with these, sent as interface version (major) in requests.
  std::uint8_t serviceMajorVersion{0};
  std::uint32_t serviceMinorVersion{0};
  /// When set, FindService asks for exactly this major version and offers of other majors are ignored;
  /// by default any version is asked for and accepted.
  std::optional<std::uint8_t> requiredMajorVersion;

  /// TTL of offers and finds, and of event subscriptions (seconds, at most 0xFFFFFE).
  std::uint32_t offerTtlSeconds{DEFAULT_OFFER_TTL_S};
  std::uint32_t subscriptionTtlSeconds{DEFAULT_SUBSCRIPTION_TTL_S};
  /// Offers and finds start after a random wait in [min, max], repeat `repetitionsMax` times with
  /// doubling delays from `repetitionsBaseDelay`; offers then go out every `cyclicOfferDelay`.
  std::chrono::milliseconds initialDelayMin{DEFAULT_INITIAL_DELAY_MIN};
  std::chrono::milliseconds initialDelayMax{DEFAULT_INITIAL_DELAY_MAX};
  std::chrono::milliseconds repetitionsBaseDelay{DEFAULT_REPETITIONS_BASE_DELAY};
  unsigned repetitionsMax{DEFAULT_REPETITIONS_MAX};
  std::chrono::milliseconds cyclicOfferDelay{DEFAULT_CYCLIC_OFFER_DELAY};
  /// A subscription not acknowledged within this time is logged once (and retried at renewal).
  std::chrono::milliseconds ackTimeout{DEFAULT_ACK_TIMEOUT};

  /// Wire event id = offset | library event id; received ids with these bits set are mapped back.
  std::uint16_t eventIdOffset{DEFAULT_EVENT_ID_OFFSET};

  /// Events and requests waiting for the dispatch thread at most; beyond that, while a handler falls
  /// behind, further ones are dropped (logged once per stretch) instead of piling up in memory.
  /// Availability reports are never dropped.
  std::size_t maxHandlerBacklog{DEFAULT_MAX_HANDLER_BACKLOG};
  /// The same bound in payload bytes of the waiting events and requests.
  std::size_t maxHandlerBacklogBytes{DEFAULT_MAX_HANDLER_BACKLOG_BYTES};

  // What the network sends is kept within these bounds; what goes beyond them is refused and logged.

  /// Remote instances of requested services that are kept at once (offers of services nobody
  /// requested are never kept).
  std::size_t maxRemoteOffers{DEFAULT_MAX_REMOTE_OFFERS};
  /// SD peers whose session and reboot records are kept; SD messages of further peers are dropped.
  std::size_t maxPeers{DEFAULT_MAX_PEERS};
  /// A peer silent this long, with no offer and no subscription left, is forgotten.
  std::chrono::milliseconds peerIdleTimeout{DEFAULT_PEER_IDLE_TIMEOUT};
  /// Subscribers of one offered event group from one peer address, and from all peers; further
  /// SubscribeEventgroup entries are answered with a Nack.
  std::size_t maxSubscribersPerPeer{DEFAULT_MAX_SUBSCRIBERS_PER_PEER};
  std::size_t maxSubscribers{DEFAULT_MAX_SUBSCRIBERS};
  /// callMethod calls waiting for a response at once; further calls fail with RESULT_TOO_MANY_CALLS.
  std::size_t maxPendingCalls{DEFAULT_MAX_PENDING_CALLS};
  /// Problems with a peer's traffic (malformed datagrams, refused SD entries, failed sends) are logged
  /// at most once per peer and kind in this interval, with the count of what was suppressed.
  std::chrono::milliseconds logInterval{DEFAULT_LOG_INTERVAL};
};

/// True when `options` can be used; otherwise `problem` says which field is wrong and why.
KOV_SOMEIP_EXPORT bool validateOptions(const TransportOptions& options, std::string& problem);

}  // namespace kov::platform::networking::someip
