// The transport veskctl hands to the library: forwards every operation, remembers each thread's last call.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "recording_transport.hpp"

namespace {

using kov::platform::networking::ISomeIpTransport;
using kov::tools::veskctl::RecordingTransport;
using kov::tools::veskctl::TransportKind;
using Address = ISomeIpTransport::Address;
using Result = ISomeIpTransport::Result;

std::string text(const Address& address) {
  return std::to_string(address.serviceId) + ":" + std::to_string(address.instanceId);
}

/// Notes every call with its arguments and answers with `answer` / `result`.
class FakeTransport : public ISomeIpTransport {
 public:
  std::vector<std::string> calls;
  bool answer{true};
  Result result{Result::Ok};
  AvailabilityHandler availability;
  EventHandler events;

  Result connect() override { return called("connect"); }
  Result disconnect() override { return called("disconnect"); }
  bool subscribeAvailability(const std::vector<std::uint16_t>& ids, AvailabilityHandler handler) override {
    availability = std::move(handler);
    return noted("subscribeAvailability " + std::to_string(ids.size()));
  }
  bool unsubscribeAvailability() override { return noted("unsubscribeAvailability"); }
  bool offerService(const Address& a) override { return noted("offerService " + text(a)); }
  bool stopOfferService(const Address& a) override { return noted("stopOfferService " + text(a)); }
  bool requestService(const Address& a) override { return noted("requestService " + text(a)); }
  bool releaseService(const Address& a) override { return noted("releaseService " + text(a)); }
  Result callMethod(const Address& a, std::uint16_t method, const void* request, std::size_t requestSize,
                    void* response, std::size_t responseSize) override {
    static_cast<char*>(response)[0] = static_cast<const char*>(request)[0];
    return called("callMethod " + text(a) + " " + std::to_string(method) + " " + std::to_string(requestSize) +
                  " " + std::to_string(responseSize));
  }
  bool subscribeEvents(const Address& a, std::uint16_t group, const std::vector<std::uint16_t>& ids,
                       EventHandler handler) override {
    events = std::move(handler);
    return noted("subscribeEvents " + text(a) + " " + std::to_string(group) + " " +
                 std::to_string(ids.size()));
  }
  bool offerEvent(const Address& a, std::uint16_t group, const std::vector<std::uint16_t>& ids) override {
    return noted("offerEvent " + text(a) + " " + std::to_string(group) + " " + std::to_string(ids.size()));
  }
  bool stopOfferEvent(const Address& a, std::uint16_t group) override {
    return noted("stopOfferEvent " + text(a) + " " + std::to_string(group));
  }
  bool notifyEvent(const Address& a, std::uint16_t event, const void*, std::size_t size) override {
    return noted("notifyEvent " + text(a) + " " + std::to_string(event) + " " + std::to_string(size));
  }
  bool unsubscribeEvents(const Address& a) override { return noted("unsubscribeEvents " + text(a)); }

 private:
  bool noted(const std::string& call) {
    calls.push_back(call);
    return answer;
  }
  Result called(const std::string& call) {
    calls.push_back(call);
    return result;
  }
};

TEST(VeskctlRecordingTransportTest, ForwardsEveryOperationWithItsArgumentsAnswerAndHandlers) {
  auto fake = std::make_shared<FakeTransport>();
  RecordingTransport transport(fake, TransportKind::SomeIp);
  const Address a{3, 17};
  char request[4] = {'q'};
  char response[8] = {};
  std::vector<std::string> available;
  std::vector<std::string> events;
  using Call = std::function<std::uint32_t()>;
  const std::vector<std::pair<std::string, Call>> cases{
      {"connect", [&] { return static_cast<std::uint32_t>(transport.connect()); }},
      {"disconnect", [&] { return static_cast<std::uint32_t>(transport.disconnect()); }},
      {"subscribeAvailability 2",
       [&] {
         return transport.subscribeAvailability({2, 3}, [&](const Address& at, bool up) {
           available.push_back(text(at) + (up ? " up" : " down"));
         });
       }},
      {"unsubscribeAvailability", [&] { return transport.unsubscribeAvailability(); }},
      {"offerService 3:17", [&] { return transport.offerService(a); }},
      {"stopOfferService 3:17", [&] { return transport.stopOfferService(a); }},
      {"requestService 3:17", [&] { return transport.requestService(a); }},
      {"releaseService 3:17", [&] { return transport.releaseService(a); }},
      {"callMethod 3:17 32769 4 8",
       [&] { return static_cast<std::uint32_t>(transport.callMethod(a, 0x8001, request, 4, response, 8)); }},
      {"subscribeEvents 3:17 2 3",
       [&] {
         return transport.subscribeEvents(a, 2, {1, 2, 3},
                                          [&](std::uint16_t id, const void*, std::size_t size) {
                                            events.push_back(std::to_string(id) + " " + std::to_string(size));
                                          });
       }},
      {"offerEvent 3:17 2 1", [&] { return transport.offerEvent(a, 2, {1}); }},
      {"stopOfferEvent 3:17 2", [&] { return transport.stopOfferEvent(a, 2); }},
      {"notifyEvent 3:17 1 22", [&] { return transport.notifyEvent(a, 1, request, 22); }},
      {"unsubscribeEvents 3:17", [&] { return transport.unsubscribeEvents(a); }},
  };
  for (const auto& [call, run] : cases) {
    const bool returnsResult =
        call.rfind("connect", 0) == 0 || call.rfind("disconnect", 0) == 0 || call.rfind("callMethod", 0) == 0;
    for (const bool answer : {true, false}) {
      fake->calls.clear();
      fake->answer = answer;
      fake->result = answer ? Result::Ok : static_cast<Result>(0x105);
      EXPECT_EQ(run(), returnsResult ? (answer ? 0U : 0x105U) : (answer ? 1U : 0U)) << call;
      EXPECT_EQ(fake->calls, std::vector<std::string>{call});
    }
  }
  EXPECT_EQ(response[0], 'q');
  fake->availability(Address{4, 16}, false);
  fake->events(0x8002, request, 18);
  EXPECT_EQ(available, std::vector<std::string>{"4:16 down"});
  EXPECT_EQ(events, std::vector<std::string>{"32770 18"});
}

TEST(VeskctlRecordingTransportTest, KeepsTheLastCallResultOfEachThreadUntilForgotten) {
  auto fake = std::make_shared<FakeTransport>();
  RecordingTransport transport(fake, TransportKind::Simulator);
  char buffer[1] = {};
  RecordingTransport::forgetLastCall();
  EXPECT_FALSE(RecordingTransport::lastCall());
  fake->result = static_cast<Result>(5);
  transport.callMethod({3, 16}, 1, buffer, 1, buffer, 1);
  fake->result = static_cast<Result>(7);
  transport.connect();  // only callMethod is recorded

  std::thread([&] {
    EXPECT_FALSE(RecordingTransport::lastCall());
    fake->result = static_cast<Result>(0x20);
    transport.callMethod({3, 16}, 1, buffer, 1, buffer, 1);
    ASSERT_TRUE(RecordingTransport::lastCall());
    EXPECT_EQ(RecordingTransport::lastCall()->result, static_cast<Result>(0x20));
  }).join();

  const auto last = RecordingTransport::lastCall();
  ASSERT_TRUE(last);
  EXPECT_EQ(last->transport, TransportKind::Simulator);
  EXPECT_EQ(last->result, static_cast<Result>(5));
  RecordingTransport::forgetLastCall();
  EXPECT_FALSE(RecordingTransport::lastCall());
}

}  // namespace
