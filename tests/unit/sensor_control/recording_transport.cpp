#include "recording_transport.hpp"

#include <cstring>
#include <sstream>

namespace kov::test {

template <typename Handler>
template <typename... Args>
bool RecordingTransport::Slot<Handler>::call(Args&&... args) {
  {
    std::scoped_lock lock(mutex);
    if (!active) {
      return false;
    }
    ++running;
  }
  handler(std::forward<Args>(args)...);
  std::scoped_lock lock(mutex);
  if (--running == 0) {
    idle.notify_all();
  }
  return true;
}

template <typename Handler>
void RecordingTransport::Slot<Handler>::withdraw() {
  std::unique_lock lock(mutex);
  active = false;
  idle.wait(lock, [this] { return running == 0; });
}

namespace {
std::uint32_t key(const RecordingTransport::Address& address) {
  return (static_cast<std::uint32_t>(address.serviceId) << 16) | address.instanceId;
}
}  // namespace

std::string addressText(const RecordingTransport::Address& address) {
  std::ostringstream text;
  text << std::hex << "0x" << address.serviceId << "/0x" << address.instanceId;
  return text.str();
}

std::vector<std::string> RecordingTransport::calls() const {
  std::scoped_lock lock(mutex_);
  return calls_;
}

void RecordingTransport::clearCalls() {
  std::scoped_lock lock(mutex_);
  calls_.clear();
}

void RecordingTransport::record(const std::string& line) {
  std::scoped_lock lock(mutex_);
  calls_.push_back(line);
}

bool RecordingTransport::reportAvailability(const Address& address, bool available) {
  std::shared_ptr<Slot<AvailabilityHandler>> slot;
  {
    std::scoped_lock lock(mutex_);
    slot = availability_;
  }
  return slot && slot->call(address, available);
}

bool RecordingTransport::hasAvailabilityHandler() const {
  std::scoped_lock lock(mutex_);
  return availability_ != nullptr;
}

bool RecordingTransport::deliverEvent(const Address& address, std::uint16_t eventId, const void* data,
                                      std::size_t size) {
  std::shared_ptr<Slot<EventHandler>> slot;
  {
    std::scoped_lock lock(mutex_);
    const auto found = events_.find(key(address));
    if (found != events_.end()) {
      slot = found->second;
    }
  }
  return slot && slot->call(eventId, data, size);
}

std::size_t RecordingTransport::eventSubscriptionCount() const {
  std::scoped_lock lock(mutex_);
  return events_.size();
}

RecordingTransport::Result RecordingTransport::connect() {
  record("connect");
  return connectResult;
}

RecordingTransport::Result RecordingTransport::disconnect() {
  record("disconnect");
  return disconnectResult;
}

bool RecordingTransport::subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                                               AvailabilityHandler handler) {
  std::ostringstream line;
  line << "subscribeAvailability" << std::hex;
  for (const auto id : serviceIds) {
    line << " 0x" << id;
  }
  record(line.str());
  if (!subscribeAvailabilityResult) {
    return false;
  }
  auto slot = std::make_shared<Slot<AvailabilityHandler>>(std::move(handler));
  {
    std::scoped_lock lock(mutex_);
    std::swap(slot, availability_);
  }
  if (slot) {
    slot->withdraw();  // a second registration replaces the first
  }
  return true;
}

bool RecordingTransport::unsubscribeAvailability() {
  record("unsubscribeAvailability");
  if (!unsubscribeAvailabilityResult) {
    return false;
  }
  std::shared_ptr<Slot<AvailabilityHandler>> slot;
  {
    std::scoped_lock lock(mutex_);
    std::swap(slot, availability_);
  }
  if (slot) {
    slot->withdraw();
  }
  return true;
}

bool RecordingTransport::requestService(const Address& address) {
  record("requestService " + addressText(address));
  return failingRequests.count(address.serviceId) == 0U;
}

bool RecordingTransport::releaseService(const Address& address) {
  record("releaseService " + addressText(address));
  return failingReleases.count(address.serviceId) == 0U;
}

RecordingTransport::Result RecordingTransport::callMethod(const Address& address, std::uint16_t methodId,
                                                          const void* /*request*/,
                                                          std::size_t /*requestSize*/, void* response,
                                                          std::size_t responseSize) {
  if (recordEventCalls) {
    std::ostringstream line;
    line << "callMethod " << addressText(address) << std::hex << " 0x" << methodId;
    record(line.str());
  }
  if (response != nullptr) {
    std::memset(response, 0, responseSize);
  }
  return Result::Ok;
}

bool RecordingTransport::subscribeEvents(const Address& address, std::uint16_t eventGroupId,
                                         const std::vector<std::uint16_t>& /*eventIds*/,
                                         EventHandler handler) {
  if (recordEventCalls) {
    std::ostringstream line;
    line << "subscribeEvents " << addressText(address) << std::hex << " 0x" << eventGroupId;
    record(line.str());
  }
  auto slot = std::make_shared<Slot<EventHandler>>(std::move(handler));
  {
    std::scoped_lock lock(mutex_);
    std::swap(slot, events_[key(address)]);
  }
  if (slot) {
    slot->withdraw();
  }
  return true;
}

bool RecordingTransport::unsubscribeEvents(const Address& address) {
  if (recordEventCalls) {
    record("unsubscribeEvents " + addressText(address));
  }
  std::shared_ptr<Slot<EventHandler>> slot;
  {
    std::scoped_lock lock(mutex_);
    const auto found = events_.find(key(address));
    if (found == events_.end()) {
      return false;
    }
    slot = std::move(found->second);
    events_.erase(found);
  }
  slot->withdraw();
  return true;
}

}  // namespace kov::test
