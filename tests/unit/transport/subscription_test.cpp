// The client's event group subscriptions driven with a fake clock: time points are made up, nothing
// sleeps.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "event_subscriptions.hpp"
#include "sd_entries.hpp"
#include "support/log_capture.hpp"

namespace {

using namespace kov::platform::networking::someip;
using namespace kov::platform::networking::someip::detail;
using namespace std::chrono_literals;
using kov::test::fieldsOf;
using kov::test::sdEntry;
using kov::test::udpOption;

const Clock::time_point T0{std::chrono::hours(1)};
constexpr std::uint32_t PEER_A = 0x7F000002;
constexpr std::uint32_t PEER_B = 0x7F000003;
const Address SERVICE_10{0x1234, 0x0010};
const Address SERVICE_11{0x1234, 0x0011};
const Endpoint OWN{0x7F000001, 40001};
const std::string NACK_LOG =
    "Subscription to event group 0x1 of service [0x1234,0x10] was refused (SubscribeEventgroupNack)";
const std::string NO_ACK_LOG =
    "Subscription to event group 0x1 of service [0x1234,0x10] was not acknowledged within 1000 ms";

TransportOptions testOptions() {
  TransportOptions options;
  options.unicastAddress = "127.0.0.1";
  options.subscriptionTtlSeconds = 4;
  options.ackTimeout = 1000ms;
  return options;
}

RemoteOffer offerFrom(std::uint32_t peer, std::uint8_t major = 1) {
  return RemoteOffer{peer, Endpoint{peer, 30501}, major, T0 + 3s};
}

SdEntry answer(const Address& address, std::uint16_t eventgroup, std::uint32_t ttl, std::uint8_t major = 1) {
  return sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP_ACK, address.serviceId, address.instanceId, major, ttl, 0,
                 eventgroup);
}

/// Checks that `out` holds exactly one (Stop)SubscribeEventgroup of `address`, event group 1, to `peer`,
/// and empties it for the next step.
void expectSubscribe(SdOutbox& out, const Address& address, std::uint32_t peer, std::uint32_t ttl,
                     std::uint8_t major = 1) {
  ASSERT_EQ(out.size(), 1U);
  EXPECT_TRUE(!out[0].multicast && out[0].peerIp == peer);
  EXPECT_EQ(fieldsOf(out[0].entry),
            fieldsOf(sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP, address.serviceId, address.instanceId, major,
                             ttl, 0, 1, 0, {udpOption(OWN)})));
  out.clear();
}

TEST(EventSubscriptions, SubscribeAckNackRenewResubscribeAndRemove) {
  kov::test::LogCapture log;
  const TransportOptions options = testOptions();
  EventSubscriptions subscriptions(options, OWN);
  SdOutbox out;
  subscriptions.add(T0, SERVICE_10, 1, offerFrom(PEER_A), out);

  // Answers that are not for this subscription are ignored.
  subscriptions.onAckEntry(PEER_B, answer(SERVICE_10, 1, 4));  // another peer
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 2, 4));  // another event group
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_11, 1, 4));  // another instance
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));

  // No Ack within the timeout: one line, also after the renewal goes unanswered too.
  subscriptions.poll(T0 + 999ms, out);
  EXPECT_EQ(log.count("WARN", NO_ACK_LOG), 0U);
  subscriptions.poll(T0 + 1000ms, out);
  subscriptions.poll(T0 + 2000ms, out);  // renewal
  subscriptions.poll(T0 + 3000ms, out);
  subscriptions.poll(T0 + 4000ms, out);
  EXPECT_EQ(out.size(), 3U);
  out.clear();
  EXPECT_EQ(log.count("WARN", NO_ACK_LOG), 1U);
  EXPECT_EQ(log.lines().size(), 1U);

  // A Nack: one line however often it comes; the subscription is retried at the next renewal.
  log.clear();
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4));
  EXPECT_TRUE(subscriptions.isAcknowledged(SERVICE_10));
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 0));
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 0));
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));
  subscriptions.poll(T0 + 6000ms, out);
  expectSubscribe(out, SERVICE_10, PEER_A, 4);
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 0));
  EXPECT_EQ(log.count("WARN", NACK_LOG), 1U);
  EXPECT_EQ(log.lines().size(), 1U);
  // After an Ack, a later refusal is a new problem and is logged again.
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4));
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 0));
  EXPECT_EQ(log.count("WARN", NACK_LOG), 2U);
  log.clear();
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4));

  // The offer goes away: nothing is renewed, a late Ack changes nothing; the next offer subscribes again.
  subscriptions.onOfferGone(SERVICE_10);
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));
  EXPECT_EQ(subscriptions.nextDeadline(), Clock::time_point::max());
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4));
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));
  subscriptions.poll(T0 + 1h, out);
  EXPECT_TRUE(out.empty());
  subscriptions.onOffer(T0 + 1h, SERVICE_10, offerFrom(PEER_A), out);
  expectSubscribe(out, SERVICE_10, PEER_A, 4);

  // Offered by another peer while subscribed: subscribes there.
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4));
  subscriptions.onOffer(T0 + 1h, SERVICE_10, offerFrom(PEER_B), out);
  expectSubscribe(out, SERVICE_10, PEER_B, 4);
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));

  // remove: StopSubscribe (TTL 0) to the peer; a subscription never sent is dropped silently.
  EXPECT_TRUE(subscriptions.remove(SERVICE_10, out));
  expectSubscribe(out, SERVICE_10, PEER_B, 0);
  EXPECT_FALSE(subscriptions.remove(SERVICE_10, out));
  subscriptions.add(T0 + 1h, SERVICE_10, 1, std::nullopt, out);
  EXPECT_TRUE(subscriptions.remove(SERVICE_10, out));
  EXPECT_TRUE(out.empty());
  subscriptions.onOffer(T0 + 1h, SERVICE_10, offerFrom(PEER_A), out);  // forgotten: nothing
  EXPECT_TRUE(out.empty());

  // Added while offered: sent at once. removeAll: StopSubscribe for each one that was sent.
  subscriptions.add(T0, SERVICE_10, 1, offerFrom(PEER_A), out);
  expectSubscribe(out, SERVICE_10, PEER_A, 4);
  subscriptions.add(T0, SERVICE_11, 1, std::nullopt, out);
  subscriptions.removeAll(out);
  expectSubscribe(out, SERVICE_10, PEER_A, 0);
  EXPECT_EQ(subscriptions.nextDeadline(), Clock::time_point::max());

  // A new subscription, later on.
  const Clock::time_point T1 = T0 + 2h;
  subscriptions.add(T1, SERVICE_10, 1, std::nullopt, out);  // not offered yet: waits
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(subscriptions.nextDeadline(), Clock::time_point::max());
  subscriptions.poll(T1 + 1h, out);
  EXPECT_TRUE(out.empty());

  subscriptions.onOffer(T1 + 10ms, SERVICE_10, offerFrom(PEER_A, 3), out);
  expectSubscribe(out, SERVICE_10, PEER_A, 4, 3);
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4, 1));  // another major version: no Ack
  EXPECT_FALSE(subscriptions.isAcknowledged(SERVICE_10));
  subscriptions.onAckEntry(PEER_A, answer(SERVICE_10, 1, 4, 3));
  EXPECT_TRUE(subscriptions.isAcknowledged(SERVICE_10));

  // Renewed at half the TTL, and again half a TTL after that; the same offer seen again sends nothing.
  subscriptions.onOffer(T1 + 20ms, SERVICE_10, offerFrom(PEER_A, 3), out);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(subscriptions.nextDeadline(), T1 + 2010ms);
  subscriptions.poll(T1 + 2009ms, out);
  EXPECT_TRUE(out.empty());
  subscriptions.poll(T1 + 2010ms, out);
  expectSubscribe(out, SERVICE_10, PEER_A, 4, 3);
  subscriptions.poll(T1 + 4009ms, out);
  EXPECT_TRUE(out.empty());
  subscriptions.poll(T1 + 4010ms, out);
  expectSubscribe(out, SERVICE_10, PEER_A, 4, 3);
  EXPECT_TRUE(subscriptions.isAcknowledged(SERVICE_10));  // acknowledged stays while renewing

  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
