// Own program: replaces the global operator new/delete to count the heap allocations made inside a
// window. It uses the recording transport double: a GMock double would allocate on every call.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "sensor_control_client/sensor_control_client.hpp"
#include "support/recording_transport.hpp"

static std::atomic<bool> counting{false};
static std::atomic<std::size_t> allocations{0};

// The array, nothrow and sized forms of libstdc++ forward to these. GCC sees new and free meet once the
// replacements are inlined; here that pairing is the point.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  allocations += counting ? 1U : 0U;
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

template <typename Work>
std::size_t allocationsDuring(Work&& work) {
  allocations = 0;
  counting = true;
  work();
  counting = false;
  return allocations;
}

TEST(ClientAllocationTest, EventsAndSuccessfulGettersAllocateNothing) {
  const std::uint8_t achieved[8] = {0x3F, 0xC0, 0, 0, 0x40, 0x20, 0, 0};  // 1.5, 2.5
  auto transport = std::make_shared<kov::test::RecordingTransport>();
  transport->quiet = true;  // records nothing: no allocation of its own
  kov::drivers::lidar::vesk::ClientA client(transport, 1);
  ASSERT_TRUE(client.setAvailable({3, 1}, true));
  types::DesiredScanSettings settings;
  types::ScanDatum datum;
  bool ok = false;
  EXPECT_EQ(allocationsDuring([&] {
              ok = transport->deliverEvent({3, 1}, 1, achieved, sizeof(achieved)) &&
                   client.getDesiredScanSettings(settings) && client.getScanDatum(datum);
            }),
            0U);
  EXPECT_TRUE(ok);
  EXPECT_EQ(client.getAchievedScanSettingsEvent().value2, 2.5F);
  // A rejected event writes a log line, which allocates: the counter does see the library's work.
  EXPECT_GT(allocationsDuring([&] { transport->deliverEvent({3, 1}, 1, achieved, 7); }), 0U);
}

}  // namespace
