// Cost of the client's hot paths: one event delivered into the cache, one event read back, one
// successful getter and one setter through a transport that answers at once. Each reports its heap
// allocations per iteration; the event path and the getter are meant to make none.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "allocation_counter.hpp"
#include "sensor_control_client/sensor_control_client.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;
using Transport = kov::platform::networking::ISomeIpTransport;

/// Answers every call at once with a fixed desired-scan-settings record and keeps the event handlers.
class InstantTransport : public Transport {
 public:
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
    std::memcpy(response, answer_, responseSize < sizeof(answer_) ? responseSize : sizeof(answer_));
    return Result::Ok;
  }
  bool subscribeEvents(const Address& address, std::uint16_t, const std::vector<std::uint16_t>&,
                       EventHandler handler) override {
    (address.serviceId == 2 ? systemEvents : scanEvents) = std::move(handler);
    return true;
  }
  bool offerEvent(const Address&, std::uint16_t, const std::vector<std::uint16_t>&) override { return true; }
  bool stopOfferEvent(const Address&, std::uint16_t) override { return true; }
  bool notifyEvent(const Address&, std::uint16_t, const void*, std::size_t) override { return true; }
  bool unsubscribeEvents(const Address&) override { return true; }

  EventHandler systemEvents;
  EventHandler scanEvents;

 private:
  const std::uint8_t answer_[8] = {0x41, 0xA0, 0, 0, 2, 1, 1, 0};  // 20 Hz, interlace 2, line 1, fill on
};

struct Fixture {
  Fixture() : transport(std::make_shared<InstantTransport>()), client(transport, 0x10) {
    client.setAvailable({2, 0x10}, true);
    client.setAvailable({3, 0x10}, true);
  }
  std::shared_ptr<InstantTransport> transport;
  kov::drivers::lidar::vesk::ClientA client;
};

void reportAllocations(benchmark::State& state, std::size_t before) {
  state.counters["allocs/op"] = benchmark::Counter(
      static_cast<double>(kov::bench::allocationCount() - before) / static_cast<double>(state.iterations()));
}

void BM_HeartbeatEvent(benchmark::State& state) {
  Fixture fixture;
  const std::uint8_t heartbeat[22] = {14, 1,    0,    1,    0,    1,    0x42, 0x2A, 0,
                                      0,  0x41, 0x41, 0x99, 0x9A, 0x3F, 0,    0,    0};
  const std::size_t before = kov::bench::allocationCount();
  for (auto _ : state) {
    fixture.transport->systemEvents(2, heartbeat, sizeof(heartbeat));
  }
  reportAllocations(state, before);
  benchmark::DoNotOptimize(fixture.client.getSensorHealthStatusEvent().value1);
}
BENCHMARK(BM_HeartbeatEvent);

void BM_ReadEventCache(benchmark::State& state) {
  Fixture fixture;
  const std::size_t before = kov::bench::allocationCount();
  for (auto _ : state) {
    benchmark::DoNotOptimize(fixture.client.getSensorHealthStatusEvent().value2);
  }
  reportAllocations(state, before);
}
BENCHMARK(BM_ReadEventCache);

void BM_GetDesiredScanSettings(benchmark::State& state) {
  Fixture fixture;
  types::DesiredScanSettings settings;
  const std::size_t before = kov::bench::allocationCount();
  for (auto _ : state) {
    benchmark::DoNotOptimize(fixture.client.getDesiredScanSettings(settings));
  }
  reportAllocations(state, before);
}
BENCHMARK(BM_GetDesiredScanSettings);

void BM_SetScanPattern88(benchmark::State& state) {
  Fixture fixture;
  types::ScanPattern pattern;
  for (int i = 0; i < 88; ++i) {
    pattern.commands.push_back(
        std::make_unique<types::ScanPattern::PointCommand>(1.0F * static_cast<float>(i % 90), -5.0F, 1));
  }
  const std::size_t before = kov::bench::allocationCount();
  for (auto _ : state) {
    benchmark::DoNotOptimize(fixture.client.setScanPattern(pattern));
  }
  reportAllocations(state, before);
}
BENCHMARK(BM_SetScanPattern88);

}  // namespace
