#pragma once

// The gate of every method call of ClientA, shared by isSupportedAndAvailable() and the getters' and
// setters' common steps (client_methods.cpp), inline so that a call pays no extra function call for
// it. Private to the client; everything has internal linkage.

#include <cstdint>
#include <mutex>

#include "common/log/log.hpp"
#include "sensor_control_client/sensor_control_client.hpp"
#include "sensor_services.hpp"

namespace kov::drivers::lidar::vesk {
namespace {

/// Whether service `serviceId` offers method `methodId`: the table of isMethodSupported().
inline bool offersMethod(std::uint16_t serviceId, std::uint16_t methodId) {
  switch (serviceId) {
    case detail::SYSTEM_MODE_SERVICE_ID:
      return methodId == 0x8001 || methodId == 0x8002;
    case detail::SCAN_SERVICE_ID:
      return methodId >= 0x8001 && methodId <= 0x8007;
    case detail::SENSOR_INFO_SERVICE_ID:
      return methodId == 0x0008 || methodId == 0x000A || methodId == 0x000B;
    default:
      return false;
  }
}

/// Under `mutex` (the client's servicesMutex_): whether service `serviceId` has an entry in `services`
/// and is available, and then its address. The entry's instance id is the one getServiceAddress()
/// reports: setAvailable() writes both under this lock.
template <typename Services>
[[gnu::always_inline]] inline bool availableAddress(std::mutex& mutex, const Services& services,
                                                    std::uint16_t serviceId, ClientA::Address& address) {
  std::lock_guard<std::mutex> lock(mutex);
  const auto it = services.find(serviceId);
  if (it == services.end() || !it->second.available) {
    return false;
  }
  address = ClientA::Address{serviceId, it->second.instanceId};
  return true;
}

// The gate's refusals, out of line and cold. Each returns false.

[[gnu::noinline, gnu::cold]] inline bool refuseMissingMethod(std::uint16_t serviceId,
                                                             std::uint16_t methodId) {
  KOV_LOG(ERROR, SENSOR_CONTROL_CLIENT_LOG_PATH)
      << "Service 0x" << std::hex << serviceId << " does not have a method with id 0x" << methodId;
  return false;
}

[[gnu::noinline, gnu::cold]] inline bool refuseUnavailableService(std::uint16_t serviceId) {
  KOV_LOG(WARN, SENSOR_CONTROL_CLIENT_LOG_PATH) << "Service 0x" << std::hex << serviceId << " not available";
  return false;
}

}  // namespace
}  // namespace kov::drivers::lidar::vesk
