// Own program: replaces the global operator new/delete to count the heap allocations made inside a
// window. The transport double here is hand-written because a mock would allocate on every call.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "sensor_control_client/sensor_control_client.hpp"

namespace {
std::atomic<bool> counting{false};
void* volatile escaped = nullptr;  // keeps the counter's self-check allocation from being optimised away
std::atomic<std::size_t> allocations{0};
}  // namespace

// The array, nothrow and sized forms of libstdc++ forward to these two. GCC sees new and free meet once
// the replacements are inlined; here that pairing is the point.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  if (counting) {
    ++allocations;
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

namespace types = kov::drivers::lidar::vesk::types;
using Transport = kov::platform::networking::ISomeIpTransport;

template <typename Work>
std::size_t allocationsDuring(Work&& work) {
  allocations = 0;
  counting = true;
  work();
  counting = false;
  return allocations;
}

/// Answers every method call with `answer` and keeps the event handler it is given.
struct FixedTransport : Transport {
  Result connect() override { return Result::Ok; }
  Result disconnect() override { return Result::Ok; }
  bool subscribeAvailability(const std::vector<std::uint16_t>&, AvailabilityHandler) override { return true; }
  bool unsubscribeAvailability() override { return true; }
  bool offerService(const Address&) override { return true; }
  bool stopOfferService(const Address&) override { return true; }
  bool requestService(const Address&) override { return true; }
  bool releaseService(const Address&) override { return true; }
  Result callMethod(const Address&, std::uint16_t, const void*, std::size_t, void* response,
                    std::size_t responseSize) override {
    std::memcpy(response, answer, responseSize < sizeof(answer) ? responseSize : sizeof(answer));
    return Result::Ok;
  }
  bool subscribeEvents(const Address&, std::uint16_t, const std::vector<std::uint16_t>&,
                       EventHandler handler) override {
    events = std::move(handler);
    return true;
  }
  bool offerEvent(const Address&, std::uint16_t, const std::vector<std::uint16_t>&) override { return true; }
  bool stopOfferEvent(const Address&, std::uint16_t) override { return true; }
  bool notifyEvent(const Address&, std::uint16_t, const void*, std::size_t) override { return true; }
  bool unsubscribeEvents(const Address&) override { return true; }

  std::uint8_t answer[8] = {0x41, 0xA0, 0, 0, 2, 1, 1, 0};  // 20 Hz, interlace 2, line 1, fill on
  EventHandler events;
};

TEST(ClientAllocationTest, EventsAndSuccessfulGettersAllocateNothing) {
  EXPECT_EQ(allocationsDuring([] {
              escaped = new int(1);
              delete static_cast<int*>(escaped);
            }),
            1U);  // the counter itself works

  auto transport = std::make_shared<FixedTransport>();
  kov::drivers::lidar::vesk::ClientA client(transport, 1);
  ASSERT_TRUE(client.setAvailable({3, 1}, true));
  ASSERT_TRUE(transport->events);

  const std::uint8_t achieved[8] = {0x3F, 0xC0, 0, 0, 0x40, 0x20, 0, 0};  // 1.5, 2.5
  float value2 = 0.0F;
  EXPECT_EQ(allocationsDuring([&] {
              transport->events(1, achieved, sizeof(achieved));
              value2 = client.getAchievedScanSettingsEvent().value2;
            }),
            0U);
  EXPECT_EQ(value2, 2.5F);

  types::DesiredScanSettings settings;
  types::ScanDatum datum;
  bool ok = false;
  EXPECT_EQ(
      allocationsDuring([&] { ok = client.getDesiredScanSettings(settings) && client.getScanDatum(datum); }),
      0U);
  EXPECT_TRUE(ok);
  EXPECT_EQ(settings.frameRate, 20.0F);
  EXPECT_EQ(settings.horizontalInterlaceMode, types::ScanHorizontalInterlaceMode::INTERLACE_2);

  // A rejected event writes a log line, which allocates: the window does see the library's work.
  EXPECT_GT(allocationsDuring([&] { transport->events(1, achieved, 7); }), 0U);
}

}  // namespace
