#include <algorithm>
#include <cstring>

#include "common/log/log.hpp"

#include "transport_core.hpp"

namespace kov::platform::networking::someip::detail {

namespace {
constexpr const char* LOG_PATH = "transport/src/sd_sender.cpp";
/// Entries per SD message, so that a message with an option per entry stays within one Ethernet frame.
constexpr std::size_t MAX_ENTRIES_PER_MESSAGE = 40;
}  // namespace

void TransportCore::flushLocked(SdOutbox& out) {
  if (out.empty() || !connected_) {
    out.clear();
    return;
  }
  // One message per destination, in the order the entries were queued.
  std::vector<std::pair<std::pair<bool, std::uint32_t>, std::vector<SdEntry>>> groups;
  for (auto& outgoing : out) {
    const std::pair<bool, std::uint32_t> key{outgoing.multicast, outgoing.multicast ? 0 : outgoing.peerIp};
    auto it =
        std::find_if(groups.begin(), groups.end(), [&key](const auto& group) { return group.first == key; });
    if (it == groups.end()) {
      groups.push_back({key, {}});
      it = std::prev(groups.end());
    }
    it->second.push_back(std::move(outgoing.entry));
  }
  out.clear();
  for (const auto& [key, entries] : groups) {
    for (std::size_t first = 0; first < entries.size(); first += MAX_ENTRIES_PER_MESSAGE) {
      const auto last = std::min(entries.size(), first + MAX_ENTRIES_PER_MESSAGE);
      sendSdLocked(key.first, key.second,
                   std::vector<SdEntry>(entries.begin() + static_cast<std::ptrdiff_t>(first),
                                        entries.begin() + static_cast<std::ptrdiff_t>(last)));
    }
  }
}

void TransportCore::sendSdLocked(bool multicast, std::uint32_t peerIp, const std::vector<SdEntry>& entries) {
  // Unicast SD goes only to peers that were heard (admitted), so this map stays within maxPeers.
  SdSessionCounter& counter = multicast ? multicastSession_ : unicastSessions_[peerIp];
  const auto [session, reboot] = counter.next();
  SdMessage message;
  message.flags = static_cast<std::uint8_t>(SD_FLAG_UNICAST | (reboot ? SD_FLAG_REBOOT : 0));
  message.entries = entries;
  const std::vector<std::uint8_t> payload = encodeSdPayload(message);

  MessageHeader header;
  header.serviceId = SD_SERVICE_ID;
  header.methodId = SD_METHOD_ID;
  header.clientId = 0;
  header.sessionId = session;
  header.interfaceVersion = SD_INTERFACE_VERSION;
  header.messageType = MessageType::NOTIFICATION;
  std::vector<std::uint8_t> datagram;
  appendMessage(header, payload.data(), payload.size(), datagram);
  const Endpoint to{multicast ? multicastIp_ : peerIp, options_.sdPort};
  sendLocked(Channel::SD_UNICAST, 0, to, datagram);
}

void TransportCore::sendLocked(Channel channel, std::uint16_t instanceId, const Endpoint& to,
                               const std::vector<std::uint8_t>& datagram) {
  const int error = network_->send(channel, instanceId, to, datagram.data(), datagram.size());
  std::size_t suppressed = 0;
  if (error != 0 && mayLogLocked(to.ip, LogKind::SEND_FAILED, suppressed)) {
    KOV_LOG(WARN, LOG_PATH) << "Failed to send " << datagram.size() << " bytes to " << toString(to) << ": "
                            << std::strerror(error) << suppressedNote(suppressed);
  }
}

void TransportCore::reportLocked(const std::vector<AvailabilityChange>& changes) {
  if (!availabilitySlot_) {
    return;
  }
  for (const auto& change : changes) {
    if (watchedServices_.count(change.address.serviceId) == 0) {
      continue;
    }
    dispatch_.post([slot = availabilitySlot_, change] { slot->invoke(change.address, change.available); });
  }
}

void TransportCore::sendNotificationLocked(const Address& address, std::uint16_t eventId,
                                           const std::vector<std::uint8_t>& payload, const Endpoint& to) {
  MessageHeader header;
  header.serviceId = address.serviceId;
  header.methodId = static_cast<std::uint16_t>(options_.eventIdOffset | eventId);
  header.clientId = 0;
  header.sessionId = notificationSession_;
  notificationSession_ = nextSessionId(notificationSession_);
  header.interfaceVersion = options_.serviceMajorVersion;
  header.messageType = MessageType::NOTIFICATION;
  std::vector<std::uint8_t> datagram;
  datagram.reserve(HEADER_SIZE + payload.size());
  appendMessage(header, payload.data(), payload.size(), datagram);
  sendLocked(Channel::INSTANCE, address.instanceId, to, datagram);
}

}  // namespace kov::platform::networking::someip::detail
