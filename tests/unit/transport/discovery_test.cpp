// Service discovery and event group subscription state machines driven with a fake clock: time points
// are made up, nothing sleeps.
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "discovery_client.hpp"
#include "discovery_server.hpp"
#include "event_subscriptions.hpp"
#include "sd_entries.hpp"
#include "sd_session.hpp"
#include "support/log_capture.hpp"

namespace {

using namespace kov::platform::networking::someip;
using namespace kov::platform::networking::someip::detail;
using namespace std::chrono_literals;
using Changes = std::vector<AvailabilityChange>;
using kov::test::fieldsOf;
using kov::test::sdEntry;
using kov::test::udpOption;

const Clock::time_point T0{std::chrono::hours(1)};
constexpr std::uint32_t PEER_A = 0x7F000002;
constexpr std::uint32_t PEER_B = 0x7F000003;
const Address SERVICE_10{0x1234, 0x0010};
const Address SERVICE_11{0x1234, 0x0011};
const Endpoint ENDPOINT_A{PEER_A, 30501};
const Endpoint ENDPOINT_B{PEER_B, 30502};
const Endpoint OWN{0x7F000001, 40001};
const std::string NACK_LOG =
    "Subscription to event group 0x1 of service [0x1234,0x10] was refused (SubscribeEventgroupNack)";
const std::string NO_ACK_LOG =
    "Subscription to event group 0x1 of service [0x1234,0x10] was not acknowledged within 1000 ms";

// The default timings: finds and offers repeat 30 ms after the initial wait, doubling 3 times, offers
// then every second with TTL 3; Acks are awaited 1000 ms.
const TransportOptions OPTIONS = [] {
  TransportOptions options;
  options.unicastAddress = "127.0.0.1";
  options.serviceMajorVersion = 1;  // of the instances a server offers
  options.serviceMinorVersion = 7;
  options.subscriptionTtlSeconds = 4;
  return options;
}();

const auto fixedInitialDelay = [] { return 50ms; };

SdEntry offerEntry(const Address& address, std::uint32_t ttl, const Endpoint& endpoint = ENDPOINT_A,
                   std::uint8_t major = 0, std::uint8_t protocol = L4_PROTOCOL_UDP) {
  return sdEntry(SdEntryType::OFFER_SERVICE, address.serviceId, address.instanceId, major, ttl, 0, 0, 0,
                 {udpOption(endpoint, protocol)});
}

std::string text(const Changes& changes) {
  std::string all;
  for (const auto& change : changes) {
    all += (change.available ? "+" : "-") + std::to_string(change.address.instanceId) + " ";
  }
  return all;
}

/// What was sent, as one comparable value: multicast or the peer, and every field of each entry.
auto sentOf(const SdOutbox& out) {
  std::vector<std::tuple<bool, std::uint32_t, decltype(fieldsOf(SdEntry{}))>> all;
  for (const auto& sent : out) {
    all.emplace_back(sent.multicast, sent.peerIp, fieldsOf(sent.entry));
  }
  return all;
}

/// The server's own offer of `instance` of service 0x1234 at ENDPOINT_A.
SdEntry ownOffer(std::uint16_t instance, std::uint32_t ttl) {
  return sdEntry(SdEntryType::OFFER_SERVICE, 0x1234, instance, 1, ttl, 7, 0, 0, {udpOption(ENDPOINT_A)});
}

/// Polls at each millisecond from `start` on, adds what was sent to `sent`, and returns the offsets at
/// which something was sent.
template <typename Machine>
std::vector<long> sendTimes(Machine& machine, Clock::time_point start, std::chrono::milliseconds until,
                            SdOutbox* sent = nullptr) {
  std::vector<long> times;
  SdOutbox out;
  for (auto at = 0ms; at <= until; at += 1ms) {
    const std::size_t before = out.size();
    if constexpr (std::is_same_v<Machine, DiscoveryClient>) {
      Changes changes;
      machine.poll(start + at, out, changes);
    } else {
      machine.poll(start + at, out);
    }
    if (out.size() != before) {
      times.push_back(static_cast<long>(at.count()));
    }
  }
  if (sent != nullptr) {
    sent->insert(sent->end(), out.begin(), out.end());
  }
  return times;
}

TEST(DiscoveryClient, FindsAfterTheInitialWaitWithDoublingRepetitionsUntilOffered) {
  DiscoveryClient client(OPTIONS, fixedInitialDelay);
  client.requestService(0x1234, T0);
  EXPECT_EQ(sendTimes(client, T0, 3000ms), (std::vector<long>{50, 80, 140, 260}));

  // Offered, then its last instance withdrawn: the service is searched for again from the initial wait on.
  Changes changes;
  client.onOfferEntry(T0 + 3000ms, PEER_A, offerEntry(SERVICE_10, 3), changes);
  client.onOfferEntry(T0 + 3000ms, PEER_A, offerEntry(SERVICE_10, 0), changes);
  EXPECT_EQ(text(changes), "+16 -16 ");
  EXPECT_EQ(sendTimes(client, T0 + 3000ms, 2000ms), (std::vector<long>{50, 80, 140, 260}));
  client.onOfferEntry(T0 + 5100ms, PEER_A, offerEntry(SERVICE_10, 3), changes);

  // An offer that comes before the first find does not stop finding: only a find reaches every
  // instance. The first offer after it does; then only the offers' expiry is left.
  client.releaseService(0x1234);
  client.requestService(0x1234, T0 + 6000ms);
  client.onOfferEntry(T0 + 6010ms, PEER_A, offerEntry(SERVICE_10, 3), changes);
  EXPECT_EQ(sendTimes(client, T0 + 6000ms, 55ms), (std::vector<long>{50}));
  client.onOfferEntry(T0 + 6060ms, PEER_B, offerEntry(SERVICE_11, 3, ENDPOINT_B), changes);
  EXPECT_TRUE(sendTimes(client, T0 + 6061ms, 2000ms).empty());
}

TEST(DiscoveryClient, OffersBecomeAvailableAndGoAwayByTtlStopOfferAndReboot) {
  DiscoveryClient client(OPTIONS, fixedInitialDelay);
  Changes changes;
  SdOutbox out;
  const auto offer = [&](Clock::time_point at, std::uint32_t peer, const SdEntry& entry) {
    client.onOfferEntry(at, peer, entry, changes);
  };

  client.requestService(0x1234, T0 - 50ms);
  client.poll(T0, out, changes);  // the first find, which the offers below answer
  offer(T0, PEER_A, offerEntry(SERVICE_10, 3));
  // Offers that cannot be used change nothing: TCP only, the wildcard instance, and a multicast
  // endpoint (port 0 is refused by the same check on the server side: wiring_test.cpp).
  offer(T0, PEER_A, offerEntry(SERVICE_11, 3, ENDPOINT_A, 0, L4_PROTOCOL_TCP));
  offer(T0, PEER_A, offerEntry({0x1234, 0xFFFF}, 3));
  offer(T0, PEER_A, offerEntry(SERVICE_11, 3, {0xEF000001, 30501}));
  // A repeated offer renews the TTL without a change.
  offer(T0 + 2s, PEER_A, offerEntry(SERVICE_10, 3));
  client.poll(T0 + 5s - 1ms, out, changes);
  EXPECT_EQ(text(changes), "+16 ");
  client.poll(T0 + 5s, out, changes);
  EXPECT_EQ(text(changes), "+16 -16 ");

  // Offered again; a StopOffer of another peer is ignored, the offering peer's is not.
  changes.clear();
  offer(T0 + 6s, PEER_A, offerEntry(SERVICE_10, 3));
  offer(T0 + 6s, PEER_B, offerEntry(SERVICE_10, 0));
  offer(T0 + 6s, PEER_A, offerEntry(SERVICE_10, 0));
  offer(T0 + 6s, PEER_A, offerEntry(SERVICE_10, 0));
  EXPECT_EQ(text(changes), "+16 -16 ");

  // A peer reboot takes all of its offers away; its next offer makes them available again. Another
  // peer's offers stay, and infinite TTLs never expire.
  changes.clear();
  offer(T0 + 7s, PEER_A, offerEntry(SERVICE_10, TTL_INFINITE));
  offer(T0 + 7s, PEER_B, offerEntry(SERVICE_11, TTL_INFINITE, ENDPOINT_B));
  client.onPeerReboot(PEER_A, changes);
  offer(T0 + 8s, PEER_A, offerEntry(SERVICE_10, TTL_INFINITE));
  client.poll(T0 + std::chrono::hours(24 * 365), out, changes);
  EXPECT_EQ(text(changes), "+16 +17 -16 +16 ");

  // The table of offers is bounded: a new instance beyond maxRemoteOffers is refused, a known one is
  // still renewed. A required major version is asked for, and offers of other majors are ignored.
  TransportOptions small = OPTIONS;
  small.maxRemoteOffers = 1;
  small.requiredMajorVersion = 2;
  DiscoveryClient bounded(small, fixedInitialDelay);
  bounded.requestService(0x1234, T0);
  out.clear();
  EXPECT_EQ(sendTimes(bounded, T0, 50ms, &out), std::vector<long>{50});
  EXPECT_EQ(sentOf(out),
            sentOf({{true, 0, sdEntry(SdEntryType::FIND_SERVICE, 0x1234, 0xFFFF, 2, 3, 0xFFFFFFFF)}}));
  changes.clear();
  // Major version 1: ignored.
  EXPECT_TRUE(bounded.onOfferEntry(T0, PEER_A, offerEntry(SERVICE_11, 3, ENDPOINT_A, 1), changes));
  EXPECT_TRUE(bounded.onOfferEntry(T0, PEER_A, offerEntry(SERVICE_10, 3, ENDPOINT_A, 2), changes));
  EXPECT_FALSE(bounded.onOfferEntry(T0, PEER_B, offerEntry(SERVICE_11, 3, ENDPOINT_B, 2), changes));
  EXPECT_TRUE(bounded.onOfferEntry(T0 + 1s, PEER_A, offerEntry(SERVICE_10, 3, ENDPOINT_A, 2), changes));
  EXPECT_EQ(text(changes), "+16 ");
}

TEST(SdSessions, GoingBackOrFlagComingBackIsARebootPerPeerAndChannelAndOwnIdsWrapOnce) {
  // Peer, multicast, reboot flag, session id; whether that is a reboot.
  const std::vector<std::tuple<std::uint32_t, bool, bool, std::uint16_t, bool>> steps{
      {PEER_A, true, true, 1, false},    // first message
      {PEER_A, true, true, 2, false},    //
      {PEER_A, false, true, 1, false},   // unicast counts apart: its first message
      {PEER_A, true, true, 3, false},    // multicast goes on where it was
      {PEER_A, true, true, 1, true},     // went back
      {PEER_A, true, true, 2, false},    //
      {PEER_A, true, true, 2, true},     // did not increase
      {PEER_A, true, false, 1, false},   // wrapped: the flag clears, not a reboot
      {PEER_A, true, true, 9, true},     // flag set again
      {PEER_B, true, true, 100, false},  // another peer
      {PEER_A, false, true, 1, false},   // unicast record forgotten at the multicast reboot: first again
      {PEER_A, true, true, 10, false},   // multicast record forgotten at the unicast reboot
  };
  RebootDetector detector;
  std::size_t step = 0;
  for (const auto& [peer, multicast, flag, session, rebooted] : steps) {
    EXPECT_EQ(detector.update(peer, multicast, flag, session), rebooted) << "step " << step++;
  }

  // Own session ids start at 1 with the reboot flag, which clears at the first wrap.
  SdSessionCounter counter;
  for (std::uint32_t expected = 1; expected <= 0xFFFF; ++expected) {
    ASSERT_EQ(counter.next(), std::make_pair(static_cast<std::uint16_t>(expected), true));
  }
  EXPECT_EQ(counter.next(), std::make_pair(std::uint16_t{1}, false));
}

TEST(DiscoveryServer, OffersAnswersFindsAndAcknowledgesExpiresAndStopsSubscribers) {
  DiscoveryServer server(OPTIONS, fixedInitialDelay);
  ASSERT_TRUE(server.offer(SERVICE_10, ENDPOINT_A, T0));
  SdOutbox out;
  EXPECT_EQ(sendTimes(server, T0, 3300ms, &out), (std::vector<long>{50, 80, 140, 260, 1260, 2260, 3260}));
  EXPECT_EQ(sentOf(out), sentOf(SdOutbox(7, {true, 0, ownOffer(0x10, 3)})));

  // Finds are answered to the peer that sent them, with each matching instance.
  ASSERT_TRUE(server.offer(SERVICE_11, ENDPOINT_A, T0));
  const SdOutbox answers{{false, PEER_B, ownOffer(0x10, 3)}, {false, PEER_B, ownOffer(0x11, 3)}};
  // Name, instance, major and minor version of the find; the answers.
  const std::vector<std::tuple<const char*, std::uint16_t, std::uint8_t, std::uint32_t, SdOutbox>> finds{
      {"any instance, any version", 0xFFFF, 0xFF, 0xFFFFFFFF, answers},
      {"exact versions", 0x0010, 1, 7, {answers[0]}},
      {"other major", 0xFFFF, 2, 0xFFFFFFFF, {}},
      {"other minor", 0xFFFF, 0xFF, 8, {}},
  };
  for (const auto& [name, instance, major, minor, expected] : finds) {
    out.clear();
    server.onFindEntry(sdEntry(SdEntryType::FIND_SERVICE, 0x1234, instance, major, 3, minor), PEER_B, out);
    EXPECT_EQ(sentOf(out), sentOf(expected)) << name;
  }

  // StopOffer withdraws the instance at once (TTL 0, multicast); stopAll withdraws the rest.
  out.clear();
  EXPECT_TRUE(server.stopOffer(SERVICE_10, out));
  server.stopAll(out);
  EXPECT_EQ(sentOf(out), sentOf({{true, 0, ownOffer(0x10, 0)}, {true, 0, ownOffer(0x11, 0)}}));
  EXPECT_EQ(server.nextDeadline(), Clock::time_point::max());

  // Subscribers of an event group of an offered instance are acknowledged, expire and are stopped.
  server.offer(SERVICE_10, ENDPOINT_A, T0);
  ASSERT_TRUE(server.addEventgroup(SERVICE_10, 1));
  const Endpoint subscriberB{PEER_B, 40001};
  const Endpoint subscriberB2{PEER_B, 40002};
  std::vector<NewSubscriber> joined;
  // A subscription of `endpoint` to event group 1 of SERVICE_10, major version 1, counter 2.
  const auto subscribe = [&](Clock::time_point at, std::uint32_t peer, const Endpoint& endpoint,
                             std::uint32_t ttl = 3) {
    out.clear();
    const SdEntry entry =
        sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP, 0x1234, 0x10, 1, ttl, 0, 1, 2, {udpOption(endpoint)});
    server.onSubscribeEntry(at, peer, entry, out, joined);
    return sentOf(out);
  };
  // The Ack copies the counter; Nacks and their reasons: wiring_test.cpp.
  subscribe(T0, PEER_B, subscriberB);
  subscribe(T0, PEER_B, subscriberB2);
  const SdEntry ack = sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP_ACK, 0x1234, 0x10, 1, 3, 0, 1, 2);
  EXPECT_EQ(subscribe(T0 + 2s, PEER_B, subscriberB), sentOf({{false, PEER_B, ack}}));
  // Only the two new endpoints join, the renewal does not (what joining sends: wiring_test.cpp).
  EXPECT_EQ(joined.size(), 2U);

  // TTL: subscriberB2 (from T0) runs out at T0+3s, subscriberB (renewed at T0+2s) at T0+5s.
  server.poll(T0 + 3s - 1ms, out);
  EXPECT_EQ(server.subscribers(SERVICE_10, {1}), (std::set<Endpoint>{subscriberB, subscriberB2}));
  server.poll(T0 + 3s, out);
  EXPECT_EQ(server.subscribers(SERVICE_10, {1}), std::set<Endpoint>{subscriberB});
  server.poll(T0 + 5s, out);
  EXPECT_TRUE(server.subscribers(SERVICE_10, {1}).empty());

  // StopSubscribe (TTL 0) removes the endpoint it names and is not answered; a peer's reboot removes
  // all of its endpoints.
  subscribe(T0 + 6s, PEER_B, subscriberB);
  subscribe(T0 + 6s, PEER_B, subscriberB2);
  subscribe(T0 + 6s, PEER_A, ENDPOINT_A);
  EXPECT_TRUE(subscribe(T0 + 6s, PEER_B, subscriberB, 0).empty());
  EXPECT_EQ(server.subscribers(SERVICE_10, {1}), (std::set<Endpoint>{ENDPOINT_A, subscriberB2}));
  server.onPeerReboot(PEER_B);
  EXPECT_EQ(server.subscribers(SERVICE_10, {1}), std::set<Endpoint>{ENDPOINT_A});
  // A StopOffer drops the instance's subscribers.
  server.stopOffer(SERVICE_10, out);
  EXPECT_TRUE(server.subscribers(SERVICE_10, {1}).empty());
}

RemoteOffer offerFrom(std::uint32_t peer, std::uint8_t major = 1) {
  return RemoteOffer{peer, Endpoint{peer, 30501}, major, T0 + 3s};
}

SdEntry answer(const Address& address, std::uint16_t eventgroup, std::uint32_t ttl, std::uint8_t major = 1) {
  return sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP_ACK, address.serviceId, address.instanceId, major, ttl, 0,
                 eventgroup);
}

/// Checks that `out` holds exactly `count` (Stop)SubscribeEventgroup of SERVICE_10, event group 1, to
/// `peer`, and empties it for the next step.
void expectSubscribe(SdOutbox& out, std::uint32_t peer, std::uint32_t ttl, std::uint8_t major = 1,
                     std::size_t count = 1) {
  const SdEntry subscribe =
      sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP, 0x1234, 0x0010, major, ttl, 0, 1, 0, {udpOption(OWN)});
  EXPECT_EQ(sentOf(out), sentOf(SdOutbox(count, {false, peer, subscribe})));
  out.clear();
}

TEST(EventSubscriptions, SubscribeAckNackRenewResubscribeAndRemove) {
  kov::test::LogCapture log;
  EventSubscriptions subscriptions(OPTIONS, OWN);
  SdOutbox out;
  subscriptions.add(T0, SERVICE_10, 1, offerFrom(PEER_A), out);
  expectSubscribe(out, PEER_A, 4);  // offered already: sent at once

  // Answers that are not for this subscription are ignored.
  subscriptions.onAckEntry(PEER_B, answer(SERVICE_10, 1, 4));  // another peer
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 2, 4));  // another event group
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));

  // No Ack within the timeout: one line, also after the renewal goes unanswered too.
  subscriptions.poll(T0 + 999ms, out);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(sendTimes(subscriptions, T0 + 1000ms, 3000ms), (std::vector<long>{1000, 3000}));  // renewals
  EXPECT_EQ(log.lines(), std::vector<std::string>{"WARN: " + NO_ACK_LOG});

  // A Nack: one line however often it comes; the subscription is retried at the next renewal. After an
  // Ack, a later refusal is a new problem and is logged again.
  log.clear();
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4));
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 0));
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 0));
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));
  subscriptions.poll(T0 + 6000ms, out);
  expectSubscribe(out, PEER_A, 4);
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 0));
  EXPECT_EQ(log.lines(), std::vector<std::string>{"WARN: " + NACK_LOG});
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4));
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 0));
  EXPECT_EQ(log.count("WARN", NACK_LOG), 2U);
  log.clear();

  // The offer goes away: nothing is renewed, a late Ack changes nothing; the next offer subscribes again.
  subscriptions.onOfferGone(SERVICE_10);
  subscriptions.poll(T0 + 1h, out);
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4));
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));
  subscriptions.onOffer(T0 + 1h, SERVICE_10, offerFrom(PEER_A), out);
  expectSubscribe(out, PEER_A, 4);

  // Offered by another peer while subscribed: subscribes there.
  subscriptions.onOffer(T0 + 1h, SERVICE_10, offerFrom(PEER_B), out);
  expectSubscribe(out, PEER_B, 4);

  // removeAll: StopSubscribe (TTL 0) for each subscription that was sent, to its peer; one never sent is
  // dropped silently. Both are forgotten: later offers send nothing. (remove: wiring_test.cpp.)
  subscriptions.add(T0 + 1h, SERVICE_11, 1, std::nullopt, out);
  subscriptions.removeAll(out);
  expectSubscribe(out, PEER_B, 0);
  subscriptions.onOffer(T0 + 1h, SERVICE_10, offerFrom(PEER_A), out);
  subscriptions.onOffer(T0 + 1h, SERVICE_11, offerFrom(PEER_A), out);
  EXPECT_TRUE(out.empty());

  // A new subscription, later on: it waits for an offer.
  const Clock::time_point T1 = T0 + 2h;
  subscriptions.add(T1, SERVICE_10, 1, std::nullopt, out);
  subscriptions.onOffer(T1 + 10ms, SERVICE_10, offerFrom(PEER_A, 3), out);
  expectSubscribe(out, PEER_A, 4, 3);
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4, 1));  // another major version: no Ack
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4, 3));

  // Renewed at half the TTL, and again half a TTL after that; the same offer seen again sends nothing.
  subscriptions.onOffer(T1 + 20ms, SERVICE_10, offerFrom(PEER_A, 3), out);
  EXPECT_EQ(sendTimes(subscriptions, T1, 4010ms, &out), (std::vector<long>{2010, 4010}));
  expectSubscribe(out, PEER_A, 4, 3, 2);
  EXPECT_TRUE(subscriptions.isAcknowledged(SERVICE_10));  // acknowledged stays while renewing
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
