#include "sensor_control/sensor_control.hpp"

#include <utility>
#include <vector>

#include "common/log/log.hpp"

namespace kov::drivers::lidar::vesk {

namespace {

using kov::platform::networking::ISomeIpTransport;

constexpr const char* LOG_PATH = "src/units/sensor_control/src/sensor_control";

const char* flagText(bool flag) {
  return flag ? "true" : "false";
}

}  // namespace

bool isLegacyService(const ISomeIpTransport::Address& address) {
  // Services 2..4 as one unsigned range check; the wildcard 0xFFFF can never match the service id.
  const auto offset = static_cast<std::uint16_t>(address.serviceId - 2U);
  return offset <= 2U && address.instanceId == address.serviceId;
}

bool requestServices(ISomeIpTransport& transport, const std::unordered_set<std::uint16_t>& serviceIds) {
  bool allRequested = true;
  for (const std::uint16_t serviceId : serviceIds) {
    if (!transport.requestService({serviceId, ISomeIpTransport::ANY_INSTANCE})) {
      KOV_LOG(ERROR, LOG_PATH) << "failed to request service with id 0x" << std::hex << serviceId;
      allRequested = false;
    }
  }
  return allRequested;
}

bool releaseServices(ISomeIpTransport& transport, const std::unordered_set<std::uint16_t>& serviceIds) {
  bool allReleased = true;
  for (const std::uint16_t serviceId : serviceIds) {
    if (!transport.releaseService({serviceId, ISomeIpTransport::ANY_INSTANCE})) {
      KOV_LOG(WARN, LOG_PATH) << "failed to release service with id 0x" << std::hex << serviceId;
      allReleased = false;
    }
  }
  return allReleased;
}

SensorControl::SensorControl(std::shared_ptr<ISomeIpTransport> transport, ClientFactory clientFactory,
                             std::unordered_set<std::uint16_t> serviceIds)
    : transport_(std::move(transport)),
      clientFactory_(std::move(clientFactory)),
      serviceIds_(std::move(serviceIds)) {}

SensorControl::~SensorControl() {
  static_cast<void>(shutdown());
  // A withdrawal that failed leaves the handler with the transport: make its later calls no-ops.
  if (availabilityGuard_) {
    availabilityGuard_->close();
  }
}

bool SensorControl::init() {
  if (transport_->connect() == ISomeIpTransport::Result::Ok) {
    return true;
  }
  KOV_LOG(ERROR, LOG_PATH) << "SensorControl cannot connect";
  return false;
}

bool SensorControl::start() {
  if (started_) {
    KOV_LOG(WARN, LOG_PATH) << "SensorControl already started - ignoring restart";
    return false;
  }

  const std::vector<std::uint16_t> ids(serviceIds_.begin(), serviceIds_.end());
  if (!availabilityGuard_) {
    availabilityGuard_ = std::make_shared<HandlerGuard>();
  }
  auto handler = [guard = availabilityGuard_, this](const Address& address, bool available) {
    const HandlerGuard::Call call(*guard);
    if (call) {
      onAvailability(address, available);
    }
  };
  if (!transport_->subscribeAvailability(ids, std::move(handler))) {
    KOV_LOG(ERROR, LOG_PATH) << "SensorControl unable to subscribe to service availability updates";
    return false;
  }
  availabilityRegistered_ = true;

  if (requestServices(*transport_, serviceIds_)) {
    started_ = true;
    return true;
  }
  // The availability registration stays in place; shutdown withdraws it if nothing else does.
  KOV_LOG(ERROR, LOG_PATH) << "SensorControl unable to request all services - releasing all";
  static_cast<void>(releaseServices(*transport_, serviceIds_));
  return false;
}

bool SensorControl::stop() {
  if (!started_) {
    KOV_LOG(WARN, LOG_PATH) << "SensorControl already stopped - ignoring stop";
    return true;
  }

  markAllUnavailable();

  if (!releaseServices(*transport_, serviceIds_)) {
    KOV_LOG(ERROR, LOG_PATH) << "SensorControl unable to release all services - SOME/IP communication - "
                                "status inconsistent until application shutdown";
    return false;
  }
  if (!transport_->unsubscribeAvailability()) {
    KOV_LOG(ERROR, LOG_PATH) << "SensorControl unable to unsubscribe from service availability updates - "
                                "status inconsistent until application shutdown";
    return false;
  }
  // Reports that arrived since the first pass may have made clients available (and subscribed) again;
  // none can arrive any more, so a second pass leaves every client unavailable.
  closeAvailabilityHandler();
  markAllUnavailable();
  started_ = false;
  return true;
}

bool SensorControl::shutdown() {
  if (started_) {
    KOV_LOG(WARN, LOG_PATH) << "shutdown called without having been stopped - forcing stop";
    static_cast<void>(stop());
  }
  // A start that failed after registering (or a stop that failed) leaves the transport holding a
  // handler bound to this object; withdraw it before the clients go and, at the latest, before the
  // object is destroyed. Its failures were already reported where the registration went wrong.
  if (availabilityRegistered_ && transport_->unsubscribeAvailability()) {
    closeAvailabilityHandler();
  }

  // The last references may be these: the clients go (and unsubscribe) outside the lock.
  std::unordered_map<std::uint16_t, ClientPtr> clients;
  ClientPtr legacyClient;
  {
    std::scoped_lock lock(clientsMutex_);
    clients.swap(clients_);
    legacyClient = std::move(legacyClient_);
  }
  clients.clear();
  legacyClient.reset();

  return transport_->disconnect() == ISomeIpTransport::Result::Ok;
}

// The clients are taken out of the map first and marked without clientsMutex_: setAllAvailable calls
// the transport under the client's own lock, and a transport may report another sensor from inside
// that call, which takes clientsMutex_ (on its thread or on this one).
void SensorControl::markAllUnavailable() {
  std::vector<ClientPtr> clients;
  {
    std::scoped_lock lock(clientsMutex_);
    clients.reserve(clients_.size());
    for (const auto& entry : clients_) {
      clients.push_back(entry.second);
    }
  }
  for (const ClientPtr& client : clients) {
    const std::unordered_set<std::uint16_t> changed = client->setAllAvailable(false);
    if (!changed.empty()) {
      observable_.updateValue(client, changed);
    }
  }
}

void SensorControl::closeAvailabilityHandler() {
  availabilityRegistered_ = false;
  if (availabilityGuard_) {
    availabilityGuard_->close();
    availabilityGuard_.reset();
  }
}

std::shared_ptr<ISensorControl::Subscription> SensorControl::subscribe(const SubscriberCallback& callback) {
  return observable_.subscribe(callback);
}

void SensorControl::onAvailability(const Address& address, bool available) {
  if (address.instanceId == ISomeIpTransport::ANY_INSTANCE) {
    KOV_LOG(DEBUG, LOG_PATH) << "SensorControl ignoring wildcard [0x" << std::hex << address.serviceId
                             << ",0x" << address.instanceId << "]: available " << flagText(available);
    return;
  }

  ClientPtr client = findClient(address);
  if (!client) {
    client = createClient(address.instanceId);
    if (!client) {
      return;
    }
  }

  static_cast<void>(client->setAvailable(address, available));
  KOV_LOG(DEBUG, LOG_PATH) << "SensorControl service instance [0x" << std::hex << address.serviceId << ",0x"
                           << address.instanceId << "]: available " << flagText(available);
  observable_.updateValue(client, std::unordered_set<std::uint16_t>{address.serviceId});
}

SensorControl::ClientPtr SensorControl::findClient(const Address& address) {
  std::scoped_lock lock(clientsMutex_);
  for (const auto& entry : clients_) {
    const auto addresses = entry.second->getServiceAddresses();
    if (addresses.count(address) != 0U) {
      return entry.second;
    }
  }

  const auto bySensorId = clients_.find(address.instanceId);
  if (bySensorId != clients_.end()) {
    return bySensorId->second;
  }

  if (!isLegacyService(address)) {
    return nullptr;
  }
  if (legacyClient_) {
    return legacyClient_;
  }
  // A client counts as legacy when every address it holds is legacy; one without any address too.
  for (const auto& entry : clients_) {
    bool allLegacy = true;
    for (const Address& held : entry.second->getServiceAddresses()) {
      if (!isLegacyService(held)) {
        allLegacy = false;
        break;
      }
    }
    if (allLegacy) {
      legacyClient_ = entry.second;
      return legacyClient_;
    }
  }
  return nullptr;
}

SensorControl::ClientPtr SensorControl::createClient(std::uint16_t sensorId) {
  std::scoped_lock lock(clientsMutex_);
  const auto [entry, inserted] = clients_.try_emplace(sensorId, nullptr);
  if (!inserted) {
    // Another report of the same sensor created the client since our lookup; the factory ran under
    // this lock, so the stored entry is complete.
    return entry->second;
  }

  entry->second = clientFactory_(transport_, sensorId);
  if (!entry->second) {
    KOV_LOG(ERROR, LOG_PATH) << "SensorControl sensor client [0x" << std::hex << sensorId
                             << "] creation failed.";
    clients_.erase(entry);
    return nullptr;
  }
  KOV_LOG(DEBUG, LOG_PATH) << "SensorControl discovered new sensor [0x" << std::hex << sensorId << "]";
  return entry->second;
}

}  // namespace kov::drivers::lidar::vesk
