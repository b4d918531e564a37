#include "doctor_probes.hpp"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <map>
#include <random>
#include <set>

#include "doctor_sockets.hpp"
#include "someip/endpoint.hpp"
#include "someip/message.hpp"
#include "someip/sd_message.hpp"

// What doctor hears: the multicast loop-back probe, and listening to service discovery with one
// FindService of its own.

namespace kov::tools::veskctl::doctor {

namespace someip = kov::platform::networking::someip;

namespace {
using Clock = std::chrono::steady_clock;
}  // namespace

LoopbackFacts probeLoopback(const std::string& address, const std::string& group) {
  LoopbackFacts facts;
  // The sender, bound to a free port of ADDR; the receiver takes the same port at the group.
  const Socket sender;
  facts.error = bindShared(sender, address, 0);
  sockaddr_in bound{};
  socklen_t size = sizeof bound;
  if (facts.error.empty() && ::getsockname(sender.fd(), reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
    facts.error = "getsockname: " + errorText();
  }
  const std::uint16_t port = ntohs(bound.sin_port);
  const Socket receiver;
  if (facts.error.empty()) {
    facts.error = bindShared(receiver, group, port);
  }
  if (facts.error.empty()) {
    facts.error = joinGroup(receiver, group, address);
  }
  std::random_device random;
  const std::string token = "veskctl doctor probe " + std::to_string(random());
  if (facts.error.empty()) {
    facts.error = sendOver(sender, address, group, port, {token.begin(), token.end()});
  }
  if (!facts.error.empty()) {
    return facts;
  }
  const auto deadline = Clock::now() + std::chrono::seconds(1);
  for (auto now = Clock::now(); now < deadline && !facts.delivered; now = Clock::now()) {
    pollfd wait{receiver.fd(), POLLIN, 0};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
    if (::poll(&wait, 1, static_cast<int>(left) + 1) <= 0) {
      continue;
    }
    char buffer[256];
    const auto received = ::recv(receiver.fd(), buffer, sizeof buffer, 0);
    facts.delivered = received == static_cast<ssize_t>(token.size()) &&
                      token.compare(0, token.size(), buffer, token.size()) == 0;
  }
  return facts;
}

std::vector<std::uint8_t> findServiceMessage(std::optional<std::uint8_t> major) {
  someip::SdMessage sd;
  sd.flags = someip::SD_FLAG_REBOOT | someip::SD_FLAG_UNICAST;
  for (const auto service : SENSOR_SERVICES) {
    someip::SdEntry entry;
    entry.type = someip::SdEntryType::FIND_SERVICE;
    entry.serviceId = service;
    entry.instanceId = 0xFFFF;
    entry.majorVersion = major.value_or(someip::ANY_MAJOR_VERSION);
    entry.minorVersion = someip::ANY_MINOR_VERSION;
    entry.ttl = 3;
    sd.entries.push_back(entry);
  }
  const auto payload = someip::encodeSdPayload(sd);
  someip::MessageHeader header;
  header.serviceId = someip::SD_SERVICE_ID;
  header.methodId = someip::SD_METHOD_ID;
  header.clientId = 0;
  header.sessionId = 1;
  header.interfaceVersion = someip::SD_INTERFACE_VERSION;
  header.messageType = someip::MessageType::NOTIFICATION;
  std::vector<std::uint8_t> message;
  someip::appendMessage(header, payload.data(), payload.size(), message);
  return message;
}

ListenFacts listenToDiscovery(const std::string& address, const std::string& group, std::uint16_t port,
                              double seconds, std::optional<std::uint8_t> major) {
  ListenFacts facts;
  facts.seconds = seconds;
  const Socket multicast;
  const Socket unicast;
  facts.error = bindShared(multicast, group, port);
  if (facts.error.empty()) {
    facts.error = joinGroup(multicast, group, address);
  }
  if (facts.error.empty()) {
    facts.error = bindShared(unicast, address, port);
  }
  if (!facts.error.empty()) {
    return facts;
  }
  facts.findError = sendOver(unicast, address, group, port, findServiceMessage(major));

  std::uint32_t own = 0;
  someip::parseIp(address, own);
  std::map<std::pair<std::string, std::uint16_t>, std::size_t> participants;  // index in facts
  std::map<std::tuple<std::uint16_t, std::uint16_t, std::string>, std::size_t> offers;
  const auto deadline = Clock::now() + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
  for (auto now = Clock::now(); now < deadline; now = Clock::now()) {
    pollfd wait[2] = {{multicast.fd(), POLLIN, 0}, {unicast.fd(), POLLIN, 0}};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
    if (::poll(wait, 2, static_cast<int>(left) + 1) <= 0) {
      continue;
    }
    for (const auto& ready : wait) {
      if ((ready.revents & POLLIN) == 0) {
        continue;
      }
      std::uint8_t buffer[65536];
      sockaddr_in from{};
      socklen_t size = sizeof from;
      const auto received =
          ::recvfrom(ready.fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &size);
      if (received <= 0 || ntohl(from.sin_addr.s_addr) == own) {
        continue;  // our own FindService, looped back
      }
      someip::MessageView message;
      std::size_t consumed = 0;
      someip::SdMessage sd;
      if (someip::parseMessage(buffer, static_cast<std::size_t>(received), message, consumed) !=
              someip::ParseError::NONE ||
          message.header.serviceId != someip::SD_SERVICE_ID ||
          message.header.methodId != someip::SD_METHOD_ID ||
          someip::parseSdPayload(message.payload, message.payloadSize, sd) != someip::SdParseError::NONE) {
        continue;
      }
      const auto sender = dottedQuad(from.sin_addr);
      const auto key = std::make_pair(sender, ntohs(from.sin_port));
      auto known = participants.find(key);
      if (known == participants.end()) {
        known = participants.emplace(key, facts.participants.size()).first;
        facts.participants.push_back({sender, key.second, false, 0});
      }
      auto& participant = facts.participants[known->second];
      participant.reboot = sd.reboot();
      ++participant.messages;
      for (const auto& entry : sd.entries) {
        if (entry.type != someip::SdEntryType::OFFER_SERVICE) {
          continue;
        }
        Offer offer{
            entry.serviceId, entry.instanceId,        entry.majorVersion, entry.minorVersion, entry.ttl, "",
            sender,          ready.fd == unicast.fd()};
        for (const auto& option : entry.options) {
          if (option.type == someip::SdOptionType::IPV4_ENDPOINT) {
            offer.endpoint = someip::toString({option.address, option.port});
            break;
          }
        }
        const auto offerKey = std::make_tuple(entry.serviceId, entry.instanceId, sender);
        const auto found = offers.find(offerKey);
        if (found == offers.end()) {
          offers.emplace(offerKey, facts.offers.size());
          facts.offers.push_back(offer);
        } else {
          offer.unicast = offer.unicast || facts.offers[found->second].unicast;
          facts.offers[found->second] = offer;
        }
      }
    }
  }
  return facts;
}

}  // namespace kov::tools::veskctl::doctor
