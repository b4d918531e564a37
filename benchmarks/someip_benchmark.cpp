// Round trip of a method call and delivery of an event through two SOME/IP transports on loopback,
// inside a network namespace of the benchmark's own (root needed; without it the benchmarks are
// skipped with a message).

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "someip/some_ip_transport.hpp"
#include "support/network_namespace.hpp"

namespace {

namespace someip = kov::platform::networking::someip;
using Address = kov::platform::networking::ISomeIpTransport::Address;

constexpr Address SCAN{0x0003, 0x0010};

someip::TransportOptions optionsFor(const char* address) {
  someip::TransportOptions options;
  options.unicastAddress = address;
  options.initialDelayMin = std::chrono::milliseconds(0);
  options.initialDelayMax = std::chrono::milliseconds(1);
  return options;
}

/// A server offering SCAN (method 1 echoes, event 1 in group 3) and a client that found it.
struct Pair {
  std::shared_ptr<someip::SomeIpTransport> server =
      std::make_shared<someip::SomeIpTransport>(optionsFor("127.0.0.2"));
  std::shared_ptr<someip::SomeIpTransport> client =
      std::make_shared<someip::SomeIpTransport>(optionsFor("127.0.0.3"));

  bool start() {
    if (server->connect() != someip::Result::Ok || client->connect() != someip::Result::Ok) {
      return false;
    }
    server->setRequestHandler([](const Address&, std::uint16_t, const std::uint8_t* data, std::size_t size,
                                 std::vector<std::uint8_t>& response) {
      response.assign(data, data + size);
      return someip::ReturnCode::E_OK;
    });
    server->offerService(SCAN);
    server->offerEvent(SCAN, 3, {1});
    client->requestService(Address{0x0003, 0xFFFF});
    for (int i = 0; i < 500 && !client->offeredEndpoint(SCAN); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return client->offeredEndpoint(SCAN).has_value();
  }
};

std::unique_ptr<Pair>& pair() {
  static std::unique_ptr<Pair> instance;
  return instance;
}

void BM_MethodRoundTrip(benchmark::State& state) {
  if (!pair()) {
    state.SkipWithError("needs its own network namespace (root)");
    return;
  }
  std::vector<std::uint8_t> request(static_cast<std::size_t>(state.range(0)), 0x5A);
  std::vector<std::uint8_t> response(request.size());
  for (auto _ : state) {
    if (pair()->client->callMethod(SCAN, 1, request.data(), request.size(), response.data(),
                                   response.size()) != someip::Result::Ok) {
      state.SkipWithError("call failed");
      break;
    }
  }
  state.SetLabel(std::to_string(request.size()) + " B each way");
}
BENCHMARK(BM_MethodRoundTrip)->Arg(7)->Arg(1322)->UseRealTime();

void BM_EventDelivery(benchmark::State& state) {
  if (!pair()) {
    state.SkipWithError("needs its own network namespace (root)");
    return;
  }
  std::mutex mutex;
  std::condition_variable arrived;
  std::uint64_t received = 0;
  pair()->client->subscribeEvents(SCAN, 3, {1}, [&](std::uint16_t, const void*, std::size_t) {
    std::lock_guard<std::mutex> lock(mutex);
    ++received;
    arrived.notify_all();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // Ack and the initial value
  std::vector<std::uint8_t> payload(22, 0x11);
  std::uint64_t expected;
  {
    std::lock_guard<std::mutex> lock(mutex);
    expected = received;
  }
  for (auto _ : state) {
    ++expected;
    pair()->server->notifyEvent(SCAN, 1, payload.data(), payload.size());
    std::unique_lock<std::mutex> lock(mutex);
    if (!arrived.wait_for(lock, std::chrono::seconds(1), [&] { return received >= expected; })) {
      state.SkipWithError("event lost");
      break;
    }
  }
  pair()->client->unsubscribeEvents(SCAN);
  state.SetLabel("22 B notification, notify to handler");
}
BENCHMARK(BM_EventDelivery)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::string why;
  if (kov::test::enterOwnNetworkNamespace(why)) {
    pair() = std::make_unique<Pair>();
    if (!pair()->start()) {
      pair().reset();
    }
  }
  if (!pair()) {
    std::fprintf(stderr, "SKIP: the SOME/IP benchmarks need a network namespace of their own: %s\n",
                 why.c_str());
    if (kov::test::skipIsFailure()) {
      return 1;  // CI has root: a benchmark that cannot run there is a failure
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  pair().reset();
  benchmark::Shutdown();
  return 0;
}
