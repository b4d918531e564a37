#include "sensor_control_client/sensor_control_client.hpp"

#include <utility>

#include "call_gate.hpp"
#include "sensor_services.hpp"

namespace kov::drivers::lidar::vesk {

bool isMethodSupported(std::uint16_t serviceId, std::uint16_t methodId) {
  return offersMethod(serviceId, methodId);
}

ClientA::ClientA(std::shared_ptr<Transport> transport, std::uint16_t sensorId)
    : transport_(std::move(transport)), sensorId_(sensorId), eventGuard_(std::make_shared<HandlerGuard>()) {}

ClientA::~ClientA() {
  // The transport holds event handlers that point at this object: drop them before it goes. An
  // unsubscription can fail and leave a handler with the transport; the closed guard turns its later
  // calls into no-ops and waits for one that is running now.
  static_cast<void>(setAllAvailable(false));
  eventGuard_->close();
}

std::uint16_t ClientA::getSensorId() const {
  return sensorId_;
}

ClientA::Address ClientA::serviceAddressLocked(std::uint16_t serviceId) const {
  const auto it = services_.find(serviceId);
  if (it == services_.end()) {
    return Address{serviceId, Transport::ANY_INSTANCE};
  }
  return Address{serviceId, it->second.instanceId};
}

// The address readers never wait for servicesMutex_, which is held while the transport runs: they read
// instanceIds_ under addressesMutex_ (an insertion may rehash it while another thread reads). The code
// that holds servicesMutex_ uses serviceAddressLocked().
ClientA::Address ClientA::getServiceAddress(std::uint16_t serviceId) const {
  std::lock_guard<std::mutex> lock(addressesMutex_);
  const auto it = instanceIds_.find(serviceId);
  return Address{serviceId, it == instanceIds_.end() ? Transport::ANY_INSTANCE : it->second};
}

std::unordered_set<ClientA::Address> ClientA::getServiceAddresses() const {
  std::unordered_set<Address> addresses;
  std::lock_guard<std::mutex> lock(addressesMutex_);
  for (const auto& [serviceId, instanceId] : instanceIds_) {
    addresses.insert(Address{serviceId, instanceId});
  }
  return addresses;
}

std::unordered_map<std::uint16_t, bool> ClientA::getServiceAvailability() const noexcept {
  std::lock_guard<std::mutex> lock(servicesMutex_);
  std::unordered_map<std::uint16_t, bool> availability;
  for (const auto& [serviceId, info] : services_) {
    availability.emplace(serviceId, info.available);
  }
  return availability;
}

bool ClientA::hasAvailableService() const noexcept {
  std::lock_guard<std::mutex> lock(servicesMutex_);
  for (const auto& entry : services_) {
    if (entry.second.available) {
      return true;
    }
  }
  return false;
}

bool ClientA::isAvailable(std::uint16_t serviceId) const noexcept {
  std::lock_guard<std::mutex> lock(servicesMutex_);
  const auto it = services_.find(serviceId);
  return it != services_.end() && it->second.available;
}

bool ClientA::setAvailable(const Address& address, bool available) {
  std::lock_guard<std::mutex> lock(servicesMutex_);
  const auto [it, inserted] = services_.try_emplace(address.serviceId);
  ServiceInfo& info = it->second;
  bool wasAvailable = info.available;

  if (!inserted && info.instanceId != address.instanceId) {
    KOV_LOG(WARN, SENSOR_CONTROL_CLIENT_LOG_PATH)
        << "Service instance [0x" << std::hex << address.serviceId << ",0x" << address.instanceId
        << "] was added for sensor " << sensorId_
        << " when it already had a known service instance with a matching service id but a different "
           "instance id [0x"
        << info.instanceId << "]; removing old instance.";
    if (wasAvailable) {
      // Unsubscribe while the entry still names the old instance.
      unsubscribeFromEvents(address.serviceId);
    }
    wasAvailable = false;
  }

  info.instanceId = address.instanceId;
  info.available = available;
  {
    std::lock_guard<std::mutex> addressesLock(addressesMutex_);
    instanceIds_[address.serviceId] = address.instanceId;
  }
  if (available == wasAvailable) {
    return inserted;
  }
  if (available) {
    subscribeToEvents(address.serviceId);
  } else {
    unsubscribeFromEvents(address.serviceId);
  }
  return true;
}

std::unordered_set<std::uint16_t> ClientA::setAllAvailable(bool available) {
  std::lock_guard<std::mutex> lock(servicesMutex_);
  std::unordered_set<std::uint16_t> changed;
  for (auto& [serviceId, info] : services_) {
    if (info.available == available) {
      continue;
    }
    info.available = available;
    changed.insert(serviceId);
    if (available) {
      subscribeToEvents(serviceId);
    } else {
      unsubscribeFromEvents(serviceId);
    }
  }
  return changed;
}

bool ClientA::isSupportedAndAvailable(std::uint16_t serviceId, std::uint16_t methodId) const {
  Address unused{};
  return gateAndAddress(serviceId, methodId, unused);
}

bool ClientA::gateAndAddress(std::uint16_t serviceId, std::uint16_t methodId, Address& address) const {
  if (!offersMethod(serviceId, methodId)) {
    return refuseMissingMethod(serviceId, methodId);
  }
  if (availableAddress(servicesMutex_, services_, serviceId, address)) {
    return true;
  }
  return refuseUnavailableService(serviceId);
}

}  // namespace kov::drivers::lidar::vesk
