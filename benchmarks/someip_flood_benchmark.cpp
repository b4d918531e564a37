// Memory and call latency of a SOME/IP client and server while a hostile peer floods them with service
// discovery traffic: 200,000 offers of service instances nobody requested (to the client) and 10,000
// subscriptions to an offered event group (to the server), each flood once in datagrams packed to
// 65,000 bytes and once in datagrams that fit an Ethernet frame. A plain program (not Google Benchmark):
// it prints one table row per flood with the RSS of the process and the round trip of method calls made
// while the flood arrives and after it was taken in, against the goals the transport is held to.
//
// Runs inside a network namespace of its own (root needed; otherwise it prints "SKIP: ..." and exits
// 77), so the flood never leaves this process. The flood's bytes are written here from the protocol's
// layouts, not with the transport's encoder, so that a fault there cannot shape the traffic it is
// measured with. Every loop and wait is bounded in count and time; the whole run stays under a minute.
// Arguments are ignored (CI passes Google Benchmark's --benchmark_min_time to every benchmark).

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "someip/some_ip_transport.hpp"
#include "support/network_namespace.hpp"

namespace {

namespace someip = kov::platform::networking::someip;
using Address = kov::platform::networking::ISomeIpTransport::Address;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The service under test: method 1 answers REPLY; event 1 is in event group 3.
constexpr Address SCAN{0x0003, 0x0010};
constexpr std::uint16_t SCAN_METHOD = 0x0001;
constexpr std::uint16_t SCAN_EVENTGROUP = 0x0003;
constexpr std::uint16_t SCAN_EVENT = 0x0001;
constexpr std::array<std::uint8_t, 8> REQUEST{0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17};
constexpr std::array<std::uint8_t, 4> REPLY{0xA0, 0xA1, 0xA2, 0xA3};

// Addresses in host order; the transports take dotted quads.
constexpr std::uint32_t SERVER_IP = 0x7F000002;    // 127.0.0.2
constexpr std::uint32_t CLIENT_IP = 0x7F000003;    // 127.0.0.3
constexpr std::uint32_t ATTACKER_IP = 0x7F000009;  // 127.0.0.9
constexpr std::uint16_t SD_PORT = 30490;

constexpr std::size_t OFFER_COUNT = 200000;
constexpr std::size_t SUBSCRIBE_COUNT = 10000;
constexpr std::size_t FULL_DATAGRAM = 65000;
constexpr std::size_t MTU_DATAGRAM = 1400;
/// First port of the subscribers' endpoint options; subscriber i listens (nominally) at FIRST + i.
constexpr std::uint16_t FIRST_SUBSCRIBER_PORT = 1024;
/// First port of the offers' endpoint options (nothing listens there; no call is ever made to them).
constexpr std::uint16_t FIRST_OFFER_PORT = 40000;

constexpr std::size_t WARMUP_CALLS = 200;
constexpr std::size_t BASELINE_CALLS = 2000;
constexpr std::size_t AFTER_CALLS = 1000;
constexpr std::size_t MAX_DURING_SAMPLES = 50000;

constexpr milliseconds AVAILABILITY_LIMIT{5000};
constexpr milliseconds BASELINE_LIMIT{10000};
/// A flood not sent within this time is cut short (the row says how much went out).
constexpr milliseconds SEND_LIMIT{7000};
/// Calls "during" a flood go on at most this long after the sending stopped, while the receiver
/// catches up.
constexpr milliseconds DURING_GRACE{1000};
constexpr milliseconds SETTLE_LIMIT{3000};
constexpr milliseconds SETTLE_STABLE{200};
constexpr milliseconds AFTER_LIMIT{2000};

constexpr double RSS_GOAL_MB = 5.0;
constexpr double P90_GOAL_FACTOR = 2.0;
constexpr std::uint32_t P90_GOAL_SLACK_US = 1000;

// ---- SOME/IP and SOME/IP-SD bytes, written from the protocol's layouts ----

constexpr std::size_t SOMEIP_HEADER_SIZE = 16;
/// What the length field does not count: message id (4) and the length field itself (4).
constexpr std::size_t UNCOUNTED_HEADER_SIZE = 8;
/// Flags (1), reserved (3), entries array length (4), and the options array length (4).
constexpr std::size_t SD_FIXED_SIZE = 12;
constexpr std::size_t SD_ENTRY_SIZE = 16;
constexpr std::size_t IPV4_OPTION_SIZE = 12;
/// An entry names its first option with an 8-bit index: options past index 255 cannot be referenced.
constexpr std::size_t MAX_NAMEABLE_OPTIONS = 256;

constexpr std::uint8_t ENTRY_OFFER_SERVICE = 0x01;
constexpr std::uint8_t ENTRY_SUBSCRIBE_EVENTGROUP = 0x06;
constexpr std::uint8_t ENTRY_SUBSCRIBE_EVENTGROUP_ACK = 0x07;
constexpr std::uint32_t TTL_UNTIL_REBOOT = 0xFFFFFF;

void put16(std::uint8_t* p, std::uint16_t value) {
  p[0] = static_cast<std::uint8_t>(value >> 8);
  p[1] = static_cast<std::uint8_t>(value);
}

void put24(std::uint8_t* p, std::uint32_t value) {
  p[0] = static_cast<std::uint8_t>(value >> 16);
  p[1] = static_cast<std::uint8_t>(value >> 8);
  p[2] = static_cast<std::uint8_t>(value);
}

void put32(std::uint8_t* p, std::uint32_t value) {
  put16(p, static_cast<std::uint16_t>(value >> 16));
  put16(p + 2, static_cast<std::uint16_t>(value));
}

std::uint16_t get16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

std::uint32_t get32(const std::uint8_t* p) {
  return (static_cast<std::uint32_t>(get16(p)) << 16) | get16(p + 2);
}

/// Session ids of the unicast SD messages from one sender to one receiver, counted as a real stack
/// counts them: from 1 up, with the reboot flag set until the counter wraps for the first time.
struct SdChannel {
  std::uint16_t session{1};
  bool reboot{true};

  std::uint8_t flags() const { return reboot ? 0xC0 : 0x40; }  // reboot | unicast
  void advance() {
    if (session == 0xFFFF) {
      session = 1;
      reboot = false;
    } else {
      ++session;
    }
  }
};

enum class FloodKind { OFFERS, SUBSCRIPTIONS };

/// One flood: `entries` entries of one kind, in datagrams of at most `datagramLimit` bytes, to the SD
/// port of `target`.
struct Flood {
  const char* name;
  FloodKind kind;
  std::size_t entries;
  std::size_t datagramLimit;
  std::uint32_t target;
  SdChannel* channel;
};

/// Offers name one option each until a datagram holds more entries than options can be named; then
/// entries share the 256 options round robin. Every subscription needs an endpoint of its own, so a
/// datagram of subscriptions holds at most 256 of them, however large it may be.
std::size_t optionsFor(FloodKind kind, std::size_t entries) {
  return kind == FloodKind::OFFERS ? std::min(entries, MAX_NAMEABLE_OPTIONS) : entries;
}

std::size_t messageSize(FloodKind kind, std::size_t entries) {
  return SOMEIP_HEADER_SIZE + SD_FIXED_SIZE + entries * SD_ENTRY_SIZE +
         optionsFor(kind, entries) * IPV4_OPTION_SIZE;
}

/// The most entries of `flood` that one datagram within its limit can carry.
std::size_t entriesPerDatagram(const Flood& flood) {
  const std::size_t cap = flood.kind == FloodKind::OFFERS ? flood.datagramLimit : MAX_NAMEABLE_OPTIONS;
  std::size_t fit = 0;
  while (fit < cap && messageSize(flood.kind, fit + 1) <= flood.datagramLimit) {
    ++fit;
  }
  return fit;
}

/// Offer i announces service 0x1000 + i / 16, instance 1 + i % 16: distinct pairs, none requested.
void writeOfferEntry(std::uint8_t* e, std::size_t i) {
  e[0] = ENTRY_OFFER_SERVICE;
  put16(e + 4, static_cast<std::uint16_t>(0x1000 + i / 16));
  put16(e + 6, static_cast<std::uint16_t>(1 + i % 16));
  e[8] = 0x00;  // major version
  put24(e + 9, TTL_UNTIL_REBOOT);
  put32(e + 12, 0);  // minor version
}

void writeSubscribeEntry(std::uint8_t* e) {
  e[0] = ENTRY_SUBSCRIBE_EVENTGROUP;
  put16(e + 4, SCAN.serviceId);
  put16(e + 6, SCAN.instanceId);
  e[8] = 0x00;  // major version
  put24(e + 9, TTL_UNTIL_REBOOT);
  e[12] = 0x00;  // reserved
  e[13] = 0x00;  // reserved (4 bits), counter 0
  put16(e + 14, SCAN_EVENTGROUP);
}

/// Writes the SD message with entries [first, first + count) of `flood` to `out` under the channel's
/// current session id; returns its size.
std::size_t writeFloodMessage(const Flood& flood, std::size_t first, std::size_t count, std::uint8_t* out) {
  const std::size_t options = optionsFor(flood.kind, count);
  const std::size_t size = messageSize(flood.kind, count);
  std::memset(out, 0, size);

  put16(out, 0xFFFF);  // service: SD
  put16(out + 2, 0x8100);
  put32(out + 4, static_cast<std::uint32_t>(size - UNCOUNTED_HEADER_SIZE));
  put16(out + 8, 0x0000);  // client id
  put16(out + 10, flood.channel->session);
  out[12] = 0x01;  // protocol version
  out[13] = 0x01;  // interface version
  out[14] = 0x02;  // NOTIFICATION
  out[15] = 0x00;  // E_OK

  std::uint8_t* sd = out + SOMEIP_HEADER_SIZE;
  sd[0] = flood.channel->flags();
  put32(sd + 4, static_cast<std::uint32_t>(count * SD_ENTRY_SIZE));
  std::uint8_t* entries = sd + 8;
  for (std::size_t k = 0; k < count; ++k) {
    std::uint8_t* e = entries + k * SD_ENTRY_SIZE;
    if (flood.kind == FloodKind::OFFERS) {
      writeOfferEntry(e, first + k);
    } else {
      writeSubscribeEntry(e);
    }
    e[1] = static_cast<std::uint8_t>(k % options);  // first option run: one option
    e[2] = 0x00;
    e[3] = 0x10;
  }
  std::uint8_t* o = entries + count * SD_ENTRY_SIZE;
  put32(o, static_cast<std::uint32_t>(options * IPV4_OPTION_SIZE));
  o += 4;
  for (std::size_t j = 0; j < options; ++j, o += IPV4_OPTION_SIZE) {
    put16(o, 0x0009);  // length
    o[2] = 0x04;       // IPv4 endpoint
    put32(o + 4, ATTACKER_IP);
    o[9] = 0x11;  // UDP
    const std::size_t port =
        flood.kind == FloodKind::OFFERS ? FIRST_OFFER_PORT + j : FIRST_SUBSCRIBER_PORT + first + j;
    put16(o + 10, static_cast<std::uint16_t>(port));
  }
  return size;
}

// ---- What the kernel knows about this process and its namespace ----

/// Reads a whole small /proc file into `buffer` (no allocation, so that reading does not move RSS);
/// its length, or 0 when it cannot be read.
std::size_t readProcFile(const char* path, char* buffer, std::size_t capacity) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return 0;
  }
  std::size_t length = 0;
  while (length + 1 < capacity) {
    const ssize_t got = ::read(fd, buffer + length, capacity - 1 - length);
    if (got <= 0) {
      break;
    }
    length += static_cast<std::size_t>(got);
  }
  ::close(fd);
  buffer[length] = '\0';
  return length;
}

/// Resident set size of this process in kB (VmRSS), 0 if unknown.
std::uint64_t rssKb() {
  char text[4096];
  if (readProcFile("/proc/self/status", text, sizeof(text)) == 0) {
    return 0;
  }
  const char* line = std::strstr(text, "VmRSS:");
  return line == nullptr ? 0 : std::strtoull(line + 6, nullptr, 10);
}

/// The receive queue (bytes) and drop count of the UDP socket bound to ip:port, from /proc/net/udp of
/// this network namespace.
struct SocketQueue {
  bool found{false};
  std::uint64_t queued{0};
  std::uint64_t drops{0};
};

SocketQueue socketQueue(std::uint32_t ip, std::uint16_t port) {
  char text[32768];
  SocketQueue queue;
  if (readProcFile("/proc/net/udp", text, sizeof(text)) == 0) {
    return queue;
  }
  // /proc/net/udp prints the address as the in-memory (network order) word read as a native integer.
  const unsigned wantedAddress = htonl(ip);
  for (char* line = std::strchr(text, '\n'); line != nullptr && line[1] != '\0';
       line = std::strchr(line + 1, '\n')) {
    unsigned address = 0;
    unsigned localPort = 0;
    std::uint64_t rxQueue = 0;
    std::uint64_t drops = 0;
    // sl: local rem st tx_queue:rx_queue tr:when retrnsmt uid timeout inode ref pointer drops
    const int fields =
        std::sscanf(line + 1, " %*d: %X:%X %*X:%*X %*X %*X:%" SCNx64 " %*s %*s %*s %*s %*s %*s %*s %" SCNu64,
                    &address, &localPort, &rxQueue, &drops);
    if (fields == 4 && address == wantedAddress && localPort == port) {
      queue.found = true;
      queue.queued = rxQueue;
      queue.drops = drops;
      return queue;
    }
  }
  return queue;
}

/// The receive buffer a socket that does not set its own gets in this namespace.
std::uint64_t defaultReceiveBuffer() {
  char text[64];
  if (readProcFile("/proc/sys/net/core/rmem_default", text, sizeof(text)) == 0) {
    return 212992;
  }
  return std::strtoull(text, nullptr, 10);
}

std::string dotted(std::uint32_t ip) {
  return std::to_string(ip >> 24) + "." + std::to_string((ip >> 16) & 0xFF) + "." +
         std::to_string((ip >> 8) & 0xFF) + "." + std::to_string(ip & 0xFF);
}

// ---- The hostile peer ----

/// What one flood did.
struct FloodOutcome {
  std::size_t planned{0};  ///< datagrams
  std::size_t sent{0};
  std::size_t bytesEach{0};  ///< of a full datagram
  std::uint64_t kernelDrops{0};
  std::size_t acks{0};  ///< SubscribeEventgroupAck entries that came back
  std::size_t nacks{0};
  bool sendFailed{false};
  bool paced{true};  ///< false when the target socket was not found in /proc/net/udp
};

/// A plain UDP socket at 127.0.0.9:30490 that sends floods paced by the receiver's socket queue:
/// a datagram goes out only while the target socket's queue is at most half its buffer, so the kernel
/// drops nothing and every entry reaches the transport as fast as it can take it in. Whatever the
/// transports answer (Acks of the subscriptions) is read and counted.
class Attacker {
 public:
  Attacker() : buffer_(65536), answer_(65536), receiveBuffer_(defaultReceiveBuffer()) {}
  ~Attacker() {
    if (sock_ >= 0) {
      ::close(sock_);
    }
  }
  Attacker(const Attacker&) = delete;
  Attacker& operator=(const Attacker&) = delete;

  bool open(std::string& why) {
    sock_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(ATTACKER_IP);
    local.sin_port = htons(SD_PORT);
    if (sock_ < 0 || ::setsockopt(sock_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        ::bind(sock_, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
      why = std::string("cannot bind the flooding socket to 127.0.0.9:30490: ") + std::strerror(errno);
      return false;
    }
    return true;
  }

  /// Sends the whole flood, or as much of it as SEND_LIMIT allows.
  FloodOutcome send(const Flood& flood) {
    FloodOutcome outcome;
    const std::size_t perDatagram = entriesPerDatagram(flood);
    outcome.planned = (flood.entries + perDatagram - 1) / perDatagram;
    outcome.bytesEach = messageSize(flood.kind, perDatagram);
    const SocketQueue before = socketQueue(flood.target, SD_PORT);
    outcome.paced = before.found;
    const auto deadline = Clock::now() + SEND_LIMIT;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(flood.target);
    to.sin_port = htons(SD_PORT);
    for (std::size_t first = 0; first < flood.entries && Clock::now() < deadline; first += perDatagram) {
      while (Clock::now() < deadline && socketQueue(flood.target, SD_PORT).queued > receiveBuffer_ / 2) {
        readAnswers(outcome);
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
      const std::size_t count = std::min(perDatagram, flood.entries - first);
      const std::size_t size = writeFloodMessage(flood, first, count, buffer_.data());
      const ssize_t sent =
          ::sendto(sock_, buffer_.data(), size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
      if (sent != static_cast<ssize_t>(size)) {
        std::fprintf(stderr, "flood '%s': sending datagram %zu failed: %s\n", flood.name, outcome.sent + 1,
                     sent < 0 ? std::strerror(errno) : "short write");
        outcome.sendFailed = true;
        break;
      }
      flood.channel->advance();
      ++outcome.sent;
      readAnswers(outcome);
    }
    outcome.kernelDrops = socketQueue(flood.target, SD_PORT).drops - before.drops;
    return outcome;
  }

  /// Counts the SubscribeEventgroupAck (TTL > 0) and Nack (TTL 0) entries of what arrived.
  void readAnswers(FloodOutcome& outcome) {
    for (int i = 0; i < 1024; ++i) {
      const ssize_t got = ::recv(sock_, answer_.data(), answer_.size(), 0);
      if (got < static_cast<ssize_t>(SOMEIP_HEADER_SIZE + SD_FIXED_SIZE)) {
        if (got < 0) {
          return;  // nothing more (EAGAIN)
        }
        continue;
      }
      const std::uint8_t* p = answer_.data();
      if (get16(p) != 0xFFFF || get16(p + 2) != 0x8100) {
        continue;
      }
      const std::uint8_t* sd = p + SOMEIP_HEADER_SIZE;
      const std::size_t available = static_cast<std::size_t>(got) - SOMEIP_HEADER_SIZE - 8;
      const std::size_t length = std::min<std::size_t>(get32(sd + 4), available);
      for (std::size_t at = 0; at + SD_ENTRY_SIZE <= length; at += SD_ENTRY_SIZE) {
        const std::uint8_t* e = sd + 8 + at;
        if (e[0] == ENTRY_SUBSCRIBE_EVENTGROUP_ACK) {
          const bool ack = (e[9] | e[10] | e[11]) != 0;
          ++(ack ? outcome.acks : outcome.nacks);
        }
      }
    }
  }

 private:
  int sock_{-1};
  std::vector<std::uint8_t> buffer_;
  std::vector<std::uint8_t> answer_;
  std::uint64_t receiveBuffer_;
};

// ---- Calls and their round trips ----

/// Round trips in microseconds, in storage taken (and touched) before the baseline RSS is read.
class Samples {
 public:
  explicit Samples(std::size_t capacity) : values_(capacity, 0) {}

  void clear() { count_ = 0; }
  void add(std::uint32_t us) {
    if (count_ < values_.size()) {
      values_[count_++] = us;
    }
  }
  std::size_t count() const { return count_; }
  /// Nearest-rank percentile (0 < q <= 1); nothing without samples. Sorts the samples in place.
  std::optional<std::uint32_t> percentile(double q) {
    if (count_ == 0) {
      return std::nullopt;
    }
    std::sort(values_.begin(), values_.begin() + static_cast<std::ptrdiff_t>(count_));
    const auto rank = static_cast<std::size_t>(q * static_cast<double>(count_) + 0.999999);
    return values_[std::clamp<std::size_t>(rank, 1, count_) - 1];
  }

 private:
  std::vector<std::uint32_t> values_;
  std::size_t count_{0};
};

/// One call of the scan method; its round trip in microseconds, or nothing when it failed or the
/// answer was not REPLY.
std::optional<std::uint32_t> timedCall(someip::SomeIpTransport& client) {
  std::array<std::uint8_t, REPLY.size()> response{};
  const auto start = Clock::now();
  const auto result =
      client.callMethod(SCAN, SCAN_METHOD, REQUEST.data(), REQUEST.size(), response.data(), response.size());
  const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
  if (result != someip::Result::Ok || response != REPLY) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(took.count());
}

/// Makes up to `calls` calls within `limit`; returns how many failed.
std::size_t measureCalls(someip::SomeIpTransport& client, std::size_t calls, milliseconds limit,
                         Samples& samples) {
  samples.clear();
  std::size_t failed = 0;
  const auto deadline = Clock::now() + limit;
  for (std::size_t i = 0; i < calls && Clock::now() < deadline; ++i) {
    if (const auto us = timedCall(client)) {
      samples.add(*us);
    } else {
      ++failed;
    }
  }
  return failed;
}

someip::TransportOptions optionsFor(std::uint32_t ip) {
  someip::TransportOptions options;
  options.unicastAddress = dotted(ip);
  options.initialDelayMin = milliseconds(0);
  options.initialDelayMax = milliseconds(1);
  return options;
}

/// Offer i of the flood (see writeOfferEntry).
Address floodOffer(std::size_t i) {
  return Address{static_cast<std::uint16_t>(0x1000 + i / 16), static_cast<std::uint16_t>(1 + i % 16)};
}

/// How many of 200 offers spread over the flood the client knows afterwards.
std::size_t sampledOffersKnown(const someip::SomeIpTransport& client) {
  std::size_t known = 0;
  for (std::size_t i = 0; i < OFFER_COUNT; i += OFFER_COUNT / 200) {
    known += client.offeredEndpoint(floodOffer(i)).has_value() ? 1 : 0;
  }
  return known;
}

/// A server offering SCAN and a client that found it.
struct Rig {
  someip::SomeIpTransport server{optionsFor(SERVER_IP)};
  someip::SomeIpTransport client{optionsFor(CLIENT_IP)};

  bool start(std::string& why) {
    if (server.connect() != someip::Result::Ok || client.connect() != someip::Result::Ok) {
      why = "a transport could not open its sockets";
      return false;
    }
    server.setRequestHandler([](const Address&, std::uint16_t methodId, const std::uint8_t*, std::size_t,
                                std::vector<std::uint8_t>& response) {
      if (methodId != SCAN_METHOD) {
        return someip::ReturnCode::E_UNKNOWN_METHOD;
      }
      response.assign(REPLY.begin(), REPLY.end());
      return someip::ReturnCode::E_OK;
    });
    if (!server.offerService(SCAN) || !server.offerEvent(SCAN, SCAN_EVENTGROUP, {SCAN_EVENT})) {
      why = "the server refused to offer the service or its event group";
      return false;
    }
    client.requestService(Address{SCAN.serviceId, kov::platform::networking::ISomeIpTransport::ANY_INSTANCE});
    const auto deadline = Clock::now() + AVAILABILITY_LIMIT;
    while (!client.offeredEndpoint(SCAN) && Clock::now() < deadline) {
      std::this_thread::sleep_for(milliseconds(5));
    }
    if (!client.offeredEndpoint(SCAN)) {
      why = "the client did not see the server's offer within 5 s";
      return false;
    }
    return true;
  }
};

// ---- One row of the table ----

struct Row {
  std::string phase;
  FloodOutcome flood;
  std::uint64_t rssKb{0};
  std::optional<std::uint32_t> duringP50, duringP90, afterP50, afterP90;
  std::size_t duringCalls{0}, duringFailed{0}, afterCalls{0}, afterFailed{0};
  bool settled{false};
  std::optional<std::size_t> offersKnown;  ///< of 200 sampled, after an offer flood
};

/// Waits until the target has taken in everything that was sent: its socket queue is empty, a call
/// made after that was answered (the receive loop has passed the last datagram, whose processing it
/// finished before reading anything else), and RSS has kept still for SETTLE_STABLE. Bounded by
/// SETTLE_LIMIT; false when that ran out first.
bool settle(someip::SomeIpTransport& client, std::uint32_t target) {
  const auto deadline = Clock::now() + SETTLE_LIMIT;
  while (socketQueue(target, SD_PORT).queued != 0 && Clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  const bool passed = timedCall(client).has_value();
  std::uint64_t last = rssKb();
  auto stableSince = Clock::now();
  while (Clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(20));
    const std::uint64_t now = rssKb();
    if (now != last) {
      last = now;
      stableSince = Clock::now();
    } else if (Clock::now() - stableSince >= SETTLE_STABLE) {
      return passed;
    }
  }
  return false;
}

Row runFlood(Rig& rig, Attacker& attacker, const Flood& flood, Samples& during, Samples& after) {
  Row row;
  row.phase = flood.name;
  std::atomic<bool> done{false};
  std::thread sender([&] {
    row.flood = attacker.send(flood);
    done = true;
  });
  // The flood is arriving until it is all sent and the target's socket queue has been read empty.
  during.clear();
  const auto deadline = Clock::now() + SEND_LIMIT + DURING_GRACE;
  while ((!done || socketQueue(flood.target, SD_PORT).queued != 0) && Clock::now() < deadline) {
    ++row.duringCalls;
    if (const auto us = timedCall(rig.client)) {
      during.add(*us);
    } else {
      ++row.duringFailed;
    }
  }
  sender.join();
  row.duringP50 = during.percentile(0.5);
  row.duringP90 = during.percentile(0.9);

  row.settled = settle(rig.client, flood.target);
  attacker.readAnswers(row.flood);
  row.rssKb = rssKb();
  if (flood.kind == FloodKind::OFFERS) {
    row.offersKnown = sampledOffersKnown(rig.client);
  }
  row.afterFailed = measureCalls(rig.client, AFTER_CALLS, AFTER_LIMIT, after);
  row.afterCalls = after.count() + row.afterFailed;
  row.afterP50 = after.percentile(0.5);
  row.afterP90 = after.percentile(0.9);
  return row;
}

std::string micros(const std::optional<std::uint32_t>& us) {
  return us ? std::to_string(*us) : "-";
}

std::string pair(const std::optional<std::uint32_t>& a, const std::optional<std::uint32_t>& b) {
  return micros(a) + "/" + micros(b);
}

double mb(std::uint64_t kb) {
  return static_cast<double>(kb) / 1024.0;
}

std::string ratio(std::size_t part, std::size_t whole) {
  return std::to_string(part) + "/" + std::to_string(whole);
}

void printTable(const Row& baseline, const std::vector<Row>& rows) {
  const std::uint32_t p90Goal =
      static_cast<std::uint32_t>(P90_GOAL_FACTOR * baseline.afterP90.value_or(0)) + P90_GOAL_SLACK_US;
  std::printf("\nSOME/IP transport under a SOME/IP-SD flood from 127.0.0.9 (round trips in us)\n");
  std::printf("%-31s %9s %5s %5s %6s %7s %6s %13s %9s %13s %9s  %s\n", "phase", "datagrams", "bytes", "drops",
              "RSS MB", "vs base", "step", "during p50/90", "fail/call", "after p50/90", "fail/call", "goal");
  std::printf("%-31s %9s %5s %5s %6.1f %7s %6s %13s %9s %13s %9s  %s\n", baseline.phase.c_str(), "-", "-",
              "-", mb(baseline.rssKb), "-", "-", "-", "-", pair(baseline.afterP50, baseline.afterP90).c_str(),
              ratio(baseline.afterFailed, baseline.afterCalls).c_str(), "-");
  std::uint64_t previous = baseline.rssKb;
  for (const Row& row : rows) {
    const double delta = mb(row.rssKb) - mb(baseline.rssKb);
    const double step = mb(row.rssKb) - mb(previous);
    previous = row.rssKb;
    const bool rssMet = delta <= RSS_GOAL_MB;
    const bool p90Met = row.afterP90 && *row.afterP90 <= p90Goal;
    std::string goal = rssMet && p90Met ? "goal met" : "goal MISSED";
    if (!rssMet) {
      goal += " (RSS)";
    }
    if (!p90Met) {
      goal += " (p90)";
    }
    std::printf("%-31s %9s %5zu %5" PRIu64 " %6.1f %+7.1f %+6.1f %13s %9s %13s %9s  %s\n", row.phase.c_str(),
                ratio(row.flood.sent, row.flood.planned).c_str(), row.flood.bytesEach, row.flood.kernelDrops,
                mb(row.rssKb), delta, step, pair(row.duringP50, row.duringP90).c_str(),
                ratio(row.duringFailed, row.duringCalls).c_str(), pair(row.afterP50, row.afterP90).c_str(),
                ratio(row.afterFailed, row.afterCalls).c_str(), goal.c_str());
  }
  std::printf("goals: RSS within %.0f MB of the baseline; p90 after <= %.0f x baseline p90 + %u us = %u us\n",
              RSS_GOAL_MB, P90_GOAL_FACTOR, P90_GOAL_SLACK_US, p90Goal);
  std::size_t failedDuring = 0;
  std::size_t callsDuring = 0;
  for (const Row& row : rows) {
    failedDuring += row.duringFailed;
    callsDuring += row.duringCalls;
  }
  std::printf("calls failed during the floods: %zu of %zu\n", failedDuring, callsDuring);
  for (const Row& row : rows) {
    const char* name = row.phase.c_str();
    if (row.offersKnown) {
      std::printf("%s: the client knows %zu of 200 sampled flood offers\n", name, *row.offersKnown);
    }
    if (row.flood.acks + row.flood.nacks != 0) {
      std::printf("%s: the server answered %zu Acks and %zu Nacks\n", name, row.flood.acks, row.flood.nacks);
    }
    if (!row.flood.paced) {
      std::printf("%s: target socket not in /proc/net/udp: sent unpaced, drops unknown\n", name);
    }
    if (!row.settled) {
      std::printf("%s: the receiver had not settled within %lld ms when RSS was read\n", name,
                  static_cast<long long>(SETTLE_LIMIT.count()));
    }
    if (row.flood.sent < row.flood.planned) {
      std::printf("%s: cut short after %zu of %zu datagrams (%s)\n", name, row.flood.sent, row.flood.planned,
                  row.flood.sendFailed ? "send failed" : "time limit");
    }
  }
}

}  // namespace

int main() {
  std::string why;
  if (!kov::test::enterOwnNetworkNamespace(why)) {
    std::printf("SKIP: the flood benchmark needs a network namespace of its own: %s\n", why.c_str());
    return 77;
  }
  Attacker attacker;
  auto rig = std::make_unique<Rig>();
  if (!attacker.open(why) || !rig->start(why)) {
    std::fprintf(stderr, "flood benchmark setup failed: %s\n", why.c_str());
    return 1;
  }

  // Everything the measurement itself needs is allocated and touched before the baseline is read.
  Samples baselineSamples(BASELINE_CALLS);
  Samples during(MAX_DURING_SAMPLES);
  Samples after(AFTER_CALLS);
  std::vector<Row> rows;
  rows.reserve(4);

  Row baseline;
  baseline.phase = "baseline";
  measureCalls(rig->client, WARMUP_CALLS, BASELINE_LIMIT, baselineSamples);
  baseline.afterFailed = measureCalls(rig->client, BASELINE_CALLS, BASELINE_LIMIT, baselineSamples);
  baseline.afterCalls = baselineSamples.count() + baseline.afterFailed;
  baseline.afterP50 = baselineSamples.percentile(0.5);
  baseline.afterP90 = baselineSamples.percentile(0.9);
  baseline.rssKb = rssKb();
  if (!baseline.afterP90) {
    std::fprintf(stderr, "flood benchmark setup failed: no baseline call succeeded\n");
    return 1;
  }

  SdChannel toClient;
  SdChannel toServer;
  const std::array<Flood, 4> floods{{
      {"200000 offers, 65000 B dgrams", FloodKind::OFFERS, OFFER_COUNT, FULL_DATAGRAM, CLIENT_IP, &toClient},
      {"200000 offers, 1400 B dgrams", FloodKind::OFFERS, OFFER_COUNT, MTU_DATAGRAM, CLIENT_IP, &toClient},
      {"10000 subscribes, 256/dgram", FloodKind::SUBSCRIPTIONS, SUBSCRIBE_COUNT, FULL_DATAGRAM, SERVER_IP,
       &toServer},
      {"10000 subscribes, 1400 B dgrams", FloodKind::SUBSCRIPTIONS, SUBSCRIBE_COUNT, MTU_DATAGRAM, SERVER_IP,
       &toServer},
  }};
  for (const Flood& flood : floods) {
    std::fprintf(stderr, "flooding: %s -> %s:%u\n", flood.name, dotted(flood.target).c_str(), SD_PORT);
    rows.push_back(runFlood(*rig, attacker, flood, during, after));
  }
  printTable(baseline, rows);
  std::fflush(stdout);

  rig->client.disconnect();
  rig->server.disconnect();
  return 0;
}
