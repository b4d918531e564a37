// The event path of a client, driven through the handlers it registers with its transport: the input
// is a sequence of availability flaps, event deliveries (any service, event id, size, null or random
// payload), cache resets and transport refusals to unsubscribe, ended by the client's destruction and
// late deliveries to the handlers the transport still holds. Checked: the cache changes only on an
// accepted payload (known id of a subscribed service, exact size, convertible record), then exactly
// the event's record and to the converted value; availability follows the flaps; a late delivery
// after the client is gone does nothing (AddressSanitizer watches it).
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "sensor_control_client/sensor_control_client.hpp"
#include "support/fuzz_input.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;
using kov::drivers::lidar::vesk::ClientA;
using kov::fuzz::FuzzInput;
using kov::fuzz::sameFloat;
using Transport = kov::platform::networking::ISomeIpTransport;
using Address = Transport::Address;

/// Keeps the event handlers it is given and delivers to them on demand; refuses to unsubscribe while
/// `refuseUnsubscribe` is set (keeping the handler, as a transport whose unsubscription failed does).
class HandlerKeeper : public Transport {
 public:
  bool refuseUnsubscribe{false};
  std::map<std::uint32_t, EventHandler> handlers;  // by (service << 16) | instance

  static std::uint32_t keyOf(const Address& address) {
    return (std::uint32_t{address.serviceId} << 16U) | address.instanceId;
  }

  Result connect() override { return Result::Ok; }
  Result disconnect() override { return Result::Ok; }
  bool subscribeAvailability(const std::vector<std::uint16_t>&, AvailabilityHandler) override { return true; }
  bool unsubscribeAvailability() override { return true; }
  bool offerService(const Address&) override { return false; }
  bool stopOfferService(const Address&) override { return false; }
  bool requestService(const Address&) override { return true; }
  bool releaseService(const Address&) override { return true; }
  Result callMethod(const Address&, std::uint16_t, const void*, std::size_t, void*, std::size_t) override {
    return Result::Ok;
  }
  bool subscribeEvents(const Address& address, std::uint16_t, const std::vector<std::uint16_t>&,
                       EventHandler handler) override {
    handlers[keyOf(address)] = std::move(handler);
    return true;
  }
  bool offerEvent(const Address&, std::uint16_t, const std::vector<std::uint16_t>&) override { return false; }
  bool stopOfferEvent(const Address&, std::uint16_t) override { return false; }
  bool notifyEvent(const Address&, std::uint16_t, const void*, std::size_t) override { return false; }
  bool unsubscribeEvents(const Address& address) override {
    return !refuseUnsubscribe && handlers.erase(keyOf(address)) != 0U;
  }
};

/// All five cache records of a client, read whole.
struct Cache {
  explicit Cache(const ClientA& client) {
    client.copyEvent(datum);
    client.copyEvent(achieved);
    client.copyEvent(patternStatus);
    client.copyEvent(mode);
    client.copyEvent(health);
  }
  types::ScanDatum datum{};
  types::AchievedScanSettings achieved{};
  types::ScanPatternCommandStatus patternStatus{};
  types::SystemModeStatus mode{};
  types::SensorHealthStatus health{};
};

bool same(const types::ScanDatum& a, const types::ScanDatum& b) {
  return sameFloat(a.elevation, b.elevation);
}
bool same(const types::AchievedScanSettings& a, const types::AchievedScanSettings& b) {
  return sameFloat(a.value1, b.value1) && sameFloat(a.value2, b.value2);
}
bool same(types::ScanPatternCommandStatus a, types::ScanPatternCommandStatus b) {
  return a == b;
}
bool same(types::SystemModeStatus a, types::SystemModeStatus b) {
  return a == b;
}
bool same(const types::SensorHealthStatus& a, const types::SensorHealthStatus& b) {
  return sameFloat(a.value1, b.value1) && sameFloat(a.value2, b.value2) && sameFloat(a.value3, b.value3) &&
         a.mode == b.mode && a.flag1 == b.flag1 && a.flag2 == b.flag2 && a.flag3 == b.flag3 &&
         a.flag4 == b.flag4 && a.flag5 == b.flag5;
}

/// Which record an event updates: 0 none, else 1 datum, 2 achieved, 3 pattern status, 4 mode, 5 health.
int recordOf(std::uint16_t serviceId, std::uint16_t eventId) {
  if (serviceId == 3) {
    constexpr int RECORDS[] = {0, 2, 1, 3};
    return eventId <= 3 ? RECORDS[eventId] : 0;
  }
  if (serviceId == 2) {
    constexpr int RECORDS[] = {0, 4, 5};
    return eventId <= 2 ? RECORDS[eventId] : 0;
  }
  return 0;
}

/// The typed value the payload converts to, when `record` is the record the event updates.
template <typename Wire, typename Typed>
bool convertible(const std::vector<std::uint8_t>& payload, Typed& out) {
  if (payload.size() != sizeof(Wire)) {
    return false;
  }
  Wire record;
  std::memcpy(&record, payload.data(), sizeof(Wire));
  out = Typed{};
  return wire::convert(record, out);
}

/// Checks the cache after one delivery: only the event's record may change, only when accepted.
void checkDelivery(const Cache& before, const Cache& after, int record, bool delivered, bool isNull,
                   const std::vector<std::uint8_t>& payload) {
  Cache expected = before;
  if (delivered && !isNull) {
    switch (record) {
      case 1: {
        types::ScanDatum value;
        if (convertible<wire::ScanDatum>(payload, value)) {
          expected.datum = value;
        }
        break;
      }
      case 2: {
        types::AchievedScanSettings value;
        if (convertible<wire::ScanSettingsStatus>(payload, value)) {
          expected.achieved = value;
        }
        break;
      }
      case 3: {
        types::ScanPatternCommandStatus value;
        if (convertible<wire::ScanPatternError>(payload, value)) {
          expected.patternStatus = value;
        }
        break;
      }
      case 4: {
        types::SystemModeStatus value;
        if (convertible<wire::SystemModeStatus>(payload, value)) {
          expected.mode = value;
        }
        break;
      }
      case 5: {
        types::SensorHealthStatus value;
        if (convertible<wire::SystemHeartbeatAppRecord>(payload, value)) {
          expected.health = value;
        }
        break;
      }
      default:
        break;
    }
  }
  KOV_FUZZ_CHECK(same(after.datum, expected.datum));
  KOV_FUZZ_CHECK(same(after.achieved, expected.achieved));
  KOV_FUZZ_CHECK(same(after.patternStatus, expected.patternStatus));
  KOV_FUZZ_CHECK(same(after.mode, expected.mode));
  KOV_FUZZ_CHECK(same(after.health, expected.health));
}

constexpr std::uint16_t SENSOR = 0x10;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kov::fuzz::silenceLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  auto transport = std::make_shared<HandlerKeeper>();
  auto client = std::make_unique<ClientA>(transport, SENSOR);
  std::vector<std::uint8_t> payload;
  for (int step = 0; step < 64 && !input.empty(); ++step) {
    switch (input.byte() % 4U) {
      case 0: {  // availability flap of one service, under one of two instances
        const auto serviceId = static_cast<std::uint16_t>(2 + input.byte() % 3U);
        const auto instanceId = static_cast<std::uint16_t>(SENSOR + input.byte() % 2U);
        const bool available = (input.byte() & 1U) != 0;
        client->setAvailable({serviceId, instanceId}, available);
        KOV_FUZZ_CHECK(client->isAvailable(serviceId) == available);
        KOV_FUZZ_CHECK(client->getServiceAddress(serviceId) == (Address{serviceId, instanceId}));
        break;
      }
      case 1: {  // one notification to whichever handler the transport holds for the address
        const auto serviceId = static_cast<std::uint16_t>(2 + input.byte() % 3U);
        const auto instanceId = static_cast<std::uint16_t>(SENSOR + input.byte() % 2U);
        const auto eventId = static_cast<std::uint16_t>(input.byte() % 5U);
        const bool isNull = (input.byte() % 8U) == 0;
        payload.resize(input.byte() % 32U);
        input.fill(payload.data(), payload.size());
        const Cache before(*client);
        const auto handler = transport->handlers.find(HandlerKeeper::keyOf({serviceId, instanceId}));
        const bool delivered = handler != transport->handlers.end();
        if (delivered) {
          handler->second(eventId, isNull ? nullptr : payload.data(), payload.size());
        }
        checkDelivery(before, Cache(*client), recordOf(serviceId, eventId), delivered, isNull, payload);
        break;
      }
      case 2: {
        client->resetEventData();
        const Cache cleared(*client);
        KOV_FUZZ_CHECK(same(cleared.health, types::SensorHealthStatus{}) &&
                       same(cleared.datum, types::ScanDatum{}) && cleared.mode == types::SystemModeStatus{});
        break;
      }
      default:
        transport->refuseUnsubscribe = (input.byte() & 1U) != 0;
        break;
    }
  }

  // The client goes; the transport may keep handlers whose unsubscription it refused. Calling them
  // must do nothing (a use after free here is what AddressSanitizer reports).
  client.reset();
  const std::uint8_t heartbeat[22] = {14};
  for (auto& entry : transport->handlers) {
    entry.second(2, heartbeat, sizeof(heartbeat));
    entry.second(1, heartbeat, 8);
  }
  return 0;
}
