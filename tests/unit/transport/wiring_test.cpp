// The transport's wiring, from bytes in to reports, calls and bytes out, on a fake network and clock: no
// sockets, no root, no sleeping. Every datagram handed in is written by hand (wire_bytes.hpp).
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "fake_network.hpp"
#include "someip/call_result.hpp"
#include "support/availability_reports.hpp"
#include "support/log_capture.hpp"
#include "transport_core.hpp"
#include "wire_bytes.hpp"

namespace {

using namespace kov::platform::networking::someip;
using namespace kov::test::wire;
using namespace std::chrono_literals;
using kov::test::FakeNetwork;
using Reports = kov::test::AvailabilityReports;
using Address = kov::platform::networking::ISomeIpTransport::Address;
using Channel = detail::Channel;

constexpr std::uint32_t OWN = 0xC6120001;    // 198.18.0.1
constexpr std::uint32_t PEER = 0xC6120002;   // 198.18.0.2
constexpr std::uint32_t GROUP = 0xE0E0E0F5;  // 224.224.224.245
const Endpoint PEER_SD{PEER, 30490};
const Endpoint PEER_SERVICE{PEER, 30501};
constexpr Address SCAN{0x0003, 0x0010};
// FindService of the scan service for any instance and version, multicast, session 1 with the reboot flag.
const Bytes FIND_SCAN = sdMessage(0xC0, 1, {serviceEntry(0x00, 0x0003, 0xFFFF, 0xFF, 3, 0xFFFFFFFF, 0, 0)});

/// An offer of the scan service's `instance` at `peer`:30501.
Bytes offerOf(std::uint16_t session, std::uint32_t ttl, std::uint32_t peer = PEER,
              std::uint16_t instance = 0x10) {
  return sdMessage(0xC0, session, {serviceEntry(0x01, 0x0003, instance, 0x01, ttl, 0, 0, 1)},
                   {ipv4Option(0x04, peer, 0x11, 30501)});
}

class WiringTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto network = std::make_unique<FakeNetwork>();
    net_ = network.get();
    core_ = std::make_unique<detail::TransportCore>(defaultOptions(), std::move(network));
    ASSERT_EQ(core_->connect(), Result::Ok);
  }

  static TransportOptions defaultOptions() {
    TransportOptions options;
    options.unicastAddress = "198.18.0.1";
    options.initialDelayMin = 0ms;
    options.initialDelayMax = 0ms;
    options.callTimeout = 20s;  // a call that ends early was ended by the wiring, not by a timeout
    options.maxSubscribersPerPeer = 2;
    options.maxPeers = 2;
    options.peerIdleTimeout = 10s;
    options.maxPendingCalls = 1;
    options.maxHandlerBacklog = 50;
    options.maxHandlerBacklogBytes = 4096;
    return options;
  }

  /// The next datagram sent to `to` from `channel`.
  Bytes sentTo(const Endpoint& to, Channel channel = Channel::SD_UNICAST) {
    const auto sent = net_->takeSent(to, channel);
    EXPECT_TRUE(sent) << "nothing sent to " << toString(to);
    return sent.value_or(Bytes{});
  }

  /// Starts discovery of the scan service and makes the peer's instance available.
  void discoverScan() {
    ASSERT_TRUE(core_->subscribeAvailability({0x0003}, reports_.handler()));
    ASSERT_TRUE(core_->requestService({0x0003, 0xFFFF}));
    net_->deliver(Channel::SD_MULTICAST, PEER_SD, offerOf(1, 3));
    ASSERT_EQ(reports_.waitFor("+16 "), "+16 ");
  }

  /// A call of method 1 of the scan service without payload, on a thread of its own.
  std::future<Result> callLater() {
    return std::async(std::launch::async,
                      [this] { return core_->callMethod(SCAN, 1, nullptr, 0, nullptr, 0); });
  }

  /// Runs `change` under the lock that handlers share with the test, and wakes the waiters.
  template <typename Change>
  void update(Change change) {
    std::lock_guard<std::mutex> lock(mutex_);
    change();
    changed_.notify_all();
  }
  /// Waits (bounded) until `done` holds under that lock.
  template <typename Predicate>
  bool waitUntil(Predicate done) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, 5s, done);
  }

  kov::test::LogCapture log_;  // installed before any transport thread logs; read after disconnect
  std::mutex mutex_;
  std::condition_variable changed_;
  Reports reports_;
  FakeNetwork* net_{nullptr};
  std::unique_ptr<detail::TransportCore> core_;
};

TEST_F(WiringTest, FindOfferStopOfferTtlAndRebootBecomeReportsAndEndWaitingCalls) {
  discoverScan();
  EXPECT_EQ(sentTo({GROUP, 30490}), FIND_SCAN);
  // Calls that cannot go out: to an instance nobody offers, to the wildcard instance.
  EXPECT_EQ(core_->callMethod({0x0003, 0x0099}, 1, nullptr, 0, nullptr, 0), RESULT_UNKNOWN_INSTANCE);
  EXPECT_EQ(core_->callMethod({0x0003, 0xFFFF}, 1, nullptr, 0, nullptr, 0), RESULT_INVALID_ARGUMENT);

  // A call: the request's bytes, then each kind of answer.
  // Name, message type, return code and payload of the answer; the call's result and response.
  const std::vector<std::tuple<const char*, std::uint8_t, std::uint8_t, Bytes, Result, Bytes>> answers{
      {"response", 0x80, 0x00, {0xA1, 0xA2}, Result::Ok, {0xA1, 0xA2}},
      {"response too long", 0x80, 0x00, {0xA1, 0xA2, 0xA3}, RESULT_SIZE_MISMATCH, {0, 0}},
      {"error E_NOT_REACHABLE with reserved bits", 0x81, 0x45, {}, static_cast<Result>(0x105), {0, 0}},
      {"response with E_NOT_READY", 0x80, 0x04, {0xA1, 0xA2}, static_cast<Result>(0x104), {0, 0}},
  };
  std::uint16_t session = 1;
  for (const auto& [name, type, returnCode, payload, result, copied] : answers) {
    std::uint8_t response[2] = {0, 0};
    auto call = std::async(std::launch::async, [&] {
      const std::uint8_t request[1] = {0x42};
      return core_->callMethod(SCAN, 0x8001, request, 1, response, 2);
    });
    EXPECT_EQ(sentTo(PEER_SERVICE, Channel::CLIENT),
              message({0x0003, 0x8001, 0x1000, session, 0x01, 0x01, 0x00, 0x00}, {0x42}))
        << name;
    // A response to another client with the same session is not this call's answer.
    net_->deliver(Channel::CLIENT, PEER_SERVICE,
                  message({0x0003, 0x8001, 0x1001, session, 0x01, 0x01, 0x80, 0x00}, {0xEE, 0xEE}));
    net_->deliver(Channel::CLIENT, PEER_SERVICE,
                  message({0x0003, 0x8001, 0x1000, session, 0x01, 0x01, type, returnCode}, payload));
    EXPECT_EQ(call.get(), result) << name;
    EXPECT_EQ(Bytes(response, response + 2), copied) << name;
    ++session;
  }

  // A call waiting for an instance that is withdrawn ends at once, by StopOffer, TTL expiry or reboot;
  // an offer brings the instance back.
  std::string expected = "+16 ";
  const auto withdrawn = [&](const Bytes& sd, std::chrono::milliseconds timeStep, const Bytes& offer) {
    auto call = callLater();
    sentTo(PEER_SERVICE, Channel::CLIENT);
    if (!sd.empty()) {
      net_->deliver(Channel::SD_MULTICAST, PEER_SD, sd);
    }
    net_->advance(timeStep);
    EXPECT_EQ(call.get(), RESULT_INSTANCE_GONE) << expected;
    if (!offer.empty()) {
      net_->deliver(Channel::SD_MULTICAST, PEER_SD, offer);
    }
    expected += "-16 +16 ";
    EXPECT_EQ(reports_.waitFor(expected), expected);
  };
  withdrawn(offerOf(2, 0), 0ms, offerOf(3, 3));
  withdrawn({}, 3000ms, offerOf(4, 3));
  // The peer restarts: its session ids begin again at 1 with the reboot flag; the offer in the same
  // message makes the instance available again after the reboot took it away.
  withdrawn(offerOf(1, 3), 0ms, {});
}

TEST_F(WiringTest, SubscribersGetAnAckOrANackAndNotificationsCarryTheWireEventId) {
  ASSERT_TRUE(core_->offerService(SCAN));
  ASSERT_TRUE(core_->offerEvent(SCAN, 0x0001, {0x0001}));
  const std::uint8_t value[2] = {0x12, 0x34};
  ASSERT_TRUE(core_->notifyEvent(SCAN, 0x0001, value, 2));  // kept as the initial value
  // The offer names the instance's own endpoint.
  EXPECT_EQ(sentTo({GROUP, 30490}), sdMessage(0xC0, 1, {serviceEntry(0x01, 0x0003, 0x0010, 0x00, 3, 0, 0, 1)},
                                              {ipv4Option(0x04, OWN, 0x11, FakeNetwork::INSTANCE_PORT)}));

  // Why, major version, event group and endpoint option of a subscription; the TTL of the answer (0:
  // Nack). Two endpoints of one peer are allowed, a third is refused.
  const std::vector<std::tuple<const char*, std::uint8_t, std::uint16_t, Bytes, std::uint32_t>> subscriptions{
      {"first endpoint of the peer", 0x00, 0x0001, ipv4Option(0x04, PEER, 0x11, 50000), 3},
      {"port 0", 0x00, 0x0001, ipv4Option(0x04, PEER, 0x11, 0), 0},
      {"no endpoint", 0x00, 0x0001, {}, 0},
      {"other major version", 0x01, 0x0001, ipv4Option(0x04, PEER, 0x11, 50001), 0},
      {"event group not offered", 0x00, 0x0002, ipv4Option(0x04, PEER, 0x11, 50001), 0},
      {"second endpoint of the peer", 0x00, 0x0001, ipv4Option(0x04, PEER, 0x11, 50001), 3},
      {"third endpoint of the peer", 0x00, 0x0001, ipv4Option(0x04, PEER, 0x11, 50002), 0},
  };
  std::uint16_t session = 1;
  for (const auto& [why, major, eventgroup, option, ttl] : subscriptions) {
    net_->deliver(
        Channel::SD_UNICAST, PEER_SD,
        sdMessage(0xC0, session,
                  {eventgroupEntry(0x06, 0x0003, 0x0010, major, 3, eventgroup, 0, option.empty() ? 0 : 1)},
                  {option}));
    EXPECT_EQ(
        sentTo(PEER_SD),
        sdMessage(0xC0, session++, {eventgroupEntry(0x07, 0x0003, 0x0010, major, ttl, eventgroup, 0, 0)}))
        << why;
  }
  // The initial value goes to each new subscriber with the wire event id 0x8000 | 1.
  // Later values go to every subscriber.
  const auto notification = [](std::uint16_t session, const Bytes& value) {
    return message({0x0003, 0x8001, 0x0000, session, 0x01, 0x00, 0x02, 0x00}, value);
  };
  EXPECT_EQ(sentTo({PEER, 50000}, Channel::INSTANCE), notification(1, {0x12, 0x34}));
  EXPECT_EQ(sentTo({PEER, 50001}, Channel::INSTANCE), notification(2, {0x12, 0x34}));
  const std::uint8_t next[2] = {0x56, 0x78};
  ASSERT_TRUE(core_->notifyEvent(SCAN, 0x0001, next, 2));
  EXPECT_EQ(sentTo({PEER, 50000}, Channel::INSTANCE), notification(3, {0x56, 0x78}));
  EXPECT_EQ(sentTo({PEER, 50001}, Channel::INSTANCE), notification(4, {0x56, 0x78}));
}

TEST_F(WiringTest, RequestsAreAnsweredWithTheProtocolsErrorsOnlyWhereAnAnswerIsDue) {
  ASSERT_TRUE(core_->offerService(SCAN));
  std::atomic<int> handled{0};
  core_->setRequestHandler([&](const Address&, std::uint16_t, const std::uint8_t*, std::size_t,
                               std::vector<std::uint8_t>& response) {
    ++handled;
    response = {0x0A};
    return ReturnCode::E_OK;
  });
  const Endpoint client{PEER, 50000};
  for (const Header& request : std::vector<Header>{
           // Answered with an ERROR that copies message id, request id and interface version, without
           // payload: a wrong protocol version, a wrong interface version.
           {0x0003, 0x0005, 0x1234, 0x0001, 0x02, 0x00, 0x00, 0x00},
           {0x0003, 0x0005, 0x1234, 0x0002, 0x01, 0x07, 0x00, 0x00},
           // Never answered: fire and forget, a notification, a request that carries an error already.
           {0x0003, 0x0005, 0x1234, 0x0003, 0x01, 0x07, 0x01, 0x00},
           {0x0003, 0x8005, 0x1234, 0x0005, 0x01, 0x00, 0x02, 0x00},
           {0x0003, 0x0005, 0x1234, 0x0006, 0x01, 0x00, 0x00, 0x01},
           // Reserved bits of the return code are ignored: this one is served.
           {0x0003, 0x0005, 0x1234, 0x0007, 0x01, 0x00, 0x00, 0xC0}}) {
    net_->deliver(Channel::INSTANCE, client, message(request, {0x01}), SCAN.instanceId);
  }
  for (const Bytes& answer : {message({0x0003, 0x0005, 0x1234, 0x0001, 0x01, 0x00, 0x81, 0x07}),
                              message({0x0003, 0x0005, 0x1234, 0x0002, 0x01, 0x07, 0x81, 0x08}),
                              message({0x0003, 0x0005, 0x1234, 0x0007, 0x01, 0x00, 0x80, 0x00}, {0x0A})}) {
    EXPECT_EQ(sentTo(client, Channel::INSTANCE), answer);
  }
  EXPECT_EQ(handled.load(), 1);
  for (const auto& sent : net_->takeAllSent()) {
    EXPECT_NE(sent.peer, client) << "unexpected answer of " << sent.bytes.size() << " bytes";
  }
}

TEST_F(WiringTest, EventsOfTheSubscriptionArriveFromTheOfferedEndpointUntilUnsubscribed) {
  discoverScan();
  std::vector<std::pair<std::uint16_t, Bytes>> events;
  std::atomic<bool> unsubscribed{false};
  std::atomic<int> late{0};
  ASSERT_TRUE(core_->subscribeEvents(SCAN, 0x0001, {0x0001},
                                     [&](std::uint16_t id, const void* data, std::size_t size) {
                                       std::this_thread::sleep_for(1ms);  // events queue up behind
                                       late += unsubscribed ? 1 : 0;
                                       const auto* bytes = static_cast<const std::uint8_t*>(data);
                                       update([&] { events.emplace_back(id, Bytes(bytes, bytes + size)); });
                                     }));
  EXPECT_EQ(sentTo(PEER_SD),
            sdMessage(0xC0, 1, {eventgroupEntry(0x06, 0x0003, 0x0010, 0x01, 3, 0x0001, 0, 1)},
                      {ipv4Option(0x04, OWN, 0x11, FakeNetwork::CLIENT_PORT)}));
  const Header event{0x0003, 0x8001, 0x0000, 0x0001, 0x01, 0x01, 0x02, 0x00};
  // Not delivered: an id outside the subscription, a sender that is not the offered endpoint.
  net_->deliver(Channel::CLIENT, PEER_SERVICE, message({0x0003, 0x8002, 0, 1, 1, 1, 2, 0}, {0x01}));
  net_->deliver(Channel::CLIENT, {PEER, 30502}, message(event, {0x02}));
  net_->deliver(Channel::CLIENT, PEER_SERVICE, message(event, {0x03}));
  ASSERT_TRUE(waitUntil([&] { return !events.empty(); }));
  update([&] { EXPECT_EQ(events, (std::vector<std::pair<std::uint16_t, Bytes>>{{1, {0x03}}})); });
  // Events keep coming while unsubscribing: no handler runs once unsubscribeEvents returned.
  std::atomic<bool> stop{false};
  std::thread publisher([&] {
    for (int i = 0; i < 2000 && !stop; ++i) {
      net_->deliver(Channel::CLIENT, PEER_SERVICE, message(event, {0x05}));
    }
  });
  ASSERT_TRUE(waitUntil([&] { return events.size() >= 2; }));
  ASSERT_TRUE(core_->unsubscribeEvents(SCAN));
  unsubscribed = true;
  std::this_thread::sleep_for(20ms);
  stop = true;
  publisher.join();
  EXPECT_EQ(late.load(), 0);
  EXPECT_FALSE(core_->unsubscribeEvents(SCAN));
  EXPECT_EQ(sentTo(PEER_SD),
            sdMessage(0xC0, 2, {eventgroupEntry(0x06, 0x0003, 0x0010, 0x01, 0, 0x0001, 0, 1)},
                      {ipv4Option(0x04, OWN, 0x11, FakeNetwork::CLIENT_PORT)}));
}

TEST_F(WiringTest, ASlowHandlerStallsNeitherCallsNorMemoryAndDroppedEventsAreLoggedOnce) {
  discoverScan();
  bool release = false;
  std::size_t entered = 0;
  ASSERT_TRUE(core_->subscribeEvents(SCAN, 0x0001, {0x0001}, [&](std::uint16_t, const void*, std::size_t) {
    std::unique_lock<std::mutex> lock(mutex_);
    ++entered;
    changed_.notify_all();
    changed_.wait_for(lock, 5s, [&] { return release; });  // the first call holds the dispatch thread
  }));
  // Events of 80 bytes: the 50 queued behind the blocked handler fit the 4096 bytes, and so does one
  // more once they ran, but only if the bytes of the tasks that ran were given back.
  const Bytes event = message({0x0003, 0x8001, 0x0000, 0x0001, 0x01, 0x01, 0x02, 0x00}, Bytes(80, 0x07));
  const auto handled = [&](std::size_t count) {
    net_->deliver(Channel::CLIENT, PEER_SERVICE, event);
    return waitUntil([&] { return entered == count; });
  };
  ASSERT_TRUE(handled(1));
  for (int i = 0; i < 199; ++i) {  // 50 are queued behind the blocked handler, 149 dropped
    net_->deliver(Channel::CLIENT, PEER_SERVICE, event);
  }
  // Reception goes on behind the blocked handler: a call is answered.
  auto call = callLater();
  Bytes response = sentTo(PEER_SERVICE, Channel::CLIENT);
  response.at(14) = 0x80;
  net_->deliver(Channel::CLIENT, PEER_SERVICE, response);
  EXPECT_EQ(call.get(), Result::Ok);
  update([&] { release = true; });
  ASSERT_TRUE(waitUntil([&] { return entered == 51; }));  // the backlog drained
  ASSERT_TRUE(handled(52));                               // queued again
  core_->disconnect();
  EXPECT_EQ(entered, 52U) << "the blocked event, the 50 queued behind it and the one after";
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{
                              "WARN: Handlers fall behind: dropping event 0x1 and what follows while 50 "
                              "tasks or 4096 bytes wait",
                              "WARN: Handlers caught up; 149 events or requests were dropped"}));
}

TEST_F(WiringTest, ProblemsAreLoggedOncePerPeerAndKindPerIntervalAndBadOptionsOnceAtConnect) {
  const Bytes truncated{0xFF, 0xFF};
  for (int i = 0; i < 50; ++i) {
    net_->deliver(Channel::SD_UNICAST, PEER_SD, truncated);
  }
  net_->deliver(Channel::SD_UNICAST, {0xC6120003, 30490}, truncated);
  ASSERT_TRUE(net_->drained());
  net_->advance(10s);
  net_->deliver(Channel::SD_UNICAST, PEER_SD, truncated);
  ASSERT_TRUE(net_->drained());
  core_->disconnect();  // the log is read once no transport thread writes to it
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{
                "WARN: Dropping SOME/IP-SD message from 198.18.0.2:30490 at byte 0: truncated header",
                "WARN: Dropping SOME/IP-SD message from 198.18.0.3:30490 at byte 0: truncated header",
                "WARN: Dropping SOME/IP-SD message from 198.18.0.2:30490 at byte 0: truncated header "
                "(49 more like it suppressed)"}));

  // A group beyond the IPv4 multicast range (224.0.0.0/4), only parsed: it never reaches the network.
  log_.clear();
  TransportOptions options = defaultOptions();
  options.sdMulticastAddress = "240.0.0.1";
  EXPECT_EQ(detail::TransportCore(options, std::make_unique<FakeNetwork>()).connect(), RESULT_SOCKET_ERROR);
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"ERROR: SOME/IP transport options rejected: "
                                                   "sdMulticastAddress '240.0.0.1' is not an IPv4 multicast "
                                                   "address"});
}

TEST_F(WiringTest, TablesStayBoundedAndConnectionsFromTwoThreadsEachStartClean) {
  discoverScan();
  // A third SD peer is not admitted while two are known and active: its offer is not seen.
  net_->deliver(Channel::SD_MULTICAST, {0xC6120003, 30490}, offerOf(1, 3, 0xC6120003, 0x0011));
  net_->deliver(Channel::SD_MULTICAST, {0xC6120004, 30490}, offerOf(1, 3, 0xC6120004, 0x0012));
  ASSERT_TRUE(net_->drained());
  // Only one call may wait at a time.
  auto call = callLater();
  sentTo(PEER_SERVICE, Channel::CLIENT);
  EXPECT_EQ(core_->callMethod(SCAN, 2, nullptr, 0, nullptr, 0), RESULT_TOO_MANY_CALLS);
  // Peers whose offers ran out and that stayed silent are forgotten, which makes room for a new one.
  net_->advance(11s);
  EXPECT_EQ(reports_.waitFor("+16 +17 -16 -17 "), "+16 +17 -16 -17 ");
  EXPECT_EQ(call.get(), RESULT_INSTANCE_GONE);
  net_->deliver(Channel::SD_MULTICAST, {0xC6120004, 30490}, offerOf(2, 3, 0xC6120004, 0x0012));
  EXPECT_EQ(reports_.waitFor("+16 +17 -16 -17 +18 "), "+16 +17 -16 -17 +18 ");
  core_->disconnect();
  EXPECT_EQ(log_.count("WARN", "Dropping SOME/IP-SD message from 198.18.0.4: 2 SD peers are known already"),
            1U)
      << log_.text();

  // Connecting and disconnecting from two threads never hangs.
  std::atomic<bool> failed{false};
  const auto cycle = [&] {
    for (int i = 0; i < 50; ++i) {
      failed = failed || core_->connect() != Result::Ok;
      failed = failed || core_->disconnect() != Result::Ok;
    }
  };
  std::thread other(cycle);
  cycle();
  other.join();
  EXPECT_FALSE(failed);
  ASSERT_EQ(core_->connect(), Result::Ok);
  // Nothing of the earlier connection is left: no offer, and SD starts again at session 1 with the
  // reboot flag, as a restarted participant does.
  EXPECT_EQ(core_->offeredEndpoint({0x0003, 0x0012}), std::nullopt);
  net_->takeAllSent();
  ASSERT_TRUE(core_->requestService({0x0003, 0xFFFF}));
  EXPECT_EQ(sentTo({GROUP, 30490}), FIND_SCAN);
}

}  // namespace
