// The shortest complete use of the library: discover one sensor and read its software version.
// The transport here is a stand-in that plays a single sensor 0x0010; a real application passes
// its SOME/IP binding instead.

#include <unistd.h>

#include <cstring>
#include <iostream>

#include "common/log/system_logger.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

using kov::platform::networking::ISomeIpTransport;
namespace vesk = kov::drivers::lidar::vesk;

class OneSensorTransport : public ISomeIpTransport {
 public:
  Result connect() override { return Result::Ok; }
  Result disconnect() override { return Result::Ok; }
  bool subscribeAvailability(const std::vector<std::uint16_t>&, AvailabilityHandler handler) override {
    handler_ = std::move(handler);
    return true;
  }
  bool unsubscribeAvailability() override {
    handler_ = nullptr;
    return true;
  }
  bool requestService(const Address& address) override {
    handler_(Address{address.serviceId, 0x0010}, true);  // the sensor answers at once
    return true;
  }
  bool releaseService(const Address&) override { return true; }
  Result callMethod(const Address&, std::uint16_t methodId, const void*, std::size_t, void* response,
                    std::size_t responseSize) override {
    if (methodId != 0x0008 || responseSize != 256) {
      return static_cast<Result>(0x03);
    }
    static const char text[] =
        "firmware 1.0 (M\xFC"
        "nchen)";  // ISO 8859-1 on the wire
    std::memset(response, 0, responseSize);
    std::memcpy(response, text, sizeof(text) - 1);
    return Result::Ok;
  }
  bool subscribeEvents(const Address&, std::uint16_t, const std::vector<std::uint16_t>&,
                       EventHandler) override {
    return true;
  }
  bool unsubscribeEvents(const Address&) override { return true; }
  bool offerService(const Address&) override { return false; }
  bool stopOfferService(const Address&) override { return false; }
  bool offerEvent(const Address&, std::uint16_t, const std::vector<std::uint16_t>&) override { return false; }
  bool stopOfferEvent(const Address&, std::uint16_t) override { return false; }
  bool notifyEvent(const Address&, std::uint16_t, const void*, std::size_t) override { return false; }

 private:
  AvailabilityHandler handler_;
};

int main() {
  // The library's log lines go to stderr; colour them only when a person looks at it.
  kov::common::log::systemLogger().colorizeLogMessage(isatty(STDERR_FILENO) != 0);

  // Without a transport there is no sensor control; the library logs why.
  if (!vesk::makeSensorControlA(nullptr)) {
    std::cout << "no transport, no sensor control\n";
  }

  auto control = vesk::makeSensorControlA(std::make_shared<OneSensorTransport>());
  std::shared_ptr<vesk::ISensorControl::IClient> sensor;
  auto subscription =
      control->subscribe([&sensor](const std::shared_ptr<vesk::ISensorControl::IClient>& client,
                                   const std::unordered_set<std::uint16_t>&) { sensor = client; });
  if (!control->init() || !control->start() || !sensor) {
    return 1;
  }

  vesk::types::SensorSoftwareVersion version;
  const bool ok =
      std::dynamic_pointer_cast<vesk::ISensorControl::IClientA>(sensor)->getSensorSoftwareVersion(version);
  std::cout << "sensor 0x" << std::hex << sensor->getSensorId() << ": " << (ok ? version.text1 : "no answer")
            << '\n';

  control->stop();
  control->shutdown();
  return ok ? 0 : 1;
}
