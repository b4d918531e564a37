#pragma once

// SOME/IP and SOME/IP-SD messages written field by field from the protocol's tables, independently of
// the transport's own encoder, so that a mistake shared by both sides cannot hide.

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace kov::test::wire {

using Bytes = std::vector<std::uint8_t>;

inline void put16(Bytes& out, std::uint16_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value));
}
inline void put32(Bytes& out, std::uint32_t value) {
  put16(out, static_cast<std::uint16_t>(value >> 16));
  put16(out, static_cast<std::uint16_t>(value));
}

inline Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const auto& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

/// Header fields of one SOME/IP message; the length field is computed from the payload.
struct Header {
  std::uint16_t service, method, client, session;
  // type: 0x00 request, 0x01 no return, 0x02 notification, 0x80 response, 0x81 error
  std::uint8_t protocolVersion, interfaceVersion, type, returnCode;
};

inline Bytes message(const Header& h, const Bytes& payload = {}) {
  Bytes out;
  put32(out, static_cast<std::uint32_t>(h.service << 16 | h.method));
  put32(out, static_cast<std::uint32_t>(8 + payload.size()));
  put32(out, static_cast<std::uint32_t>(h.client << 16 | h.session));
  out.insert(out.end(), {h.protocolVersion, h.interfaceVersion, h.type, h.returnCode});
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

/// Service entry with one option run: FindService 0x00, OfferService 0x01 (TTL 0: StopOffer). Type, option
/// run, service, instance, major version, 24-bit TTL, minor version.
inline Bytes serviceEntry(std::uint8_t type, std::uint16_t service, std::uint16_t instance,
                          std::uint8_t major, std::uint32_t ttl, std::uint32_t minor,
                          std::uint8_t firstOption, std::uint8_t optionCount) {
  Bytes out{type, firstOption, 0x00, static_cast<std::uint8_t>(optionCount << 4)};
  put32(out, static_cast<std::uint32_t>(service << 16 | instance));
  put32(out, static_cast<std::uint32_t>(major) << 24 | (ttl & 0xFFFFFF));
  put32(out, minor);
  return out;
}

/// Eventgroup entry: SubscribeEventgroup 0x06, SubscribeEventgroupAck 0x07 (TTL 0: StopSubscribe, Nack).
/// Laid out as a service entry whose last 4 bytes are reserved, counter 0 and the event group.
inline constexpr auto eventgroupEntry = &serviceEntry;

/// IPv4 endpoint (0x04) or multicast (0x14) option: length 9, type, reserved, address, reserved,
/// L4 protocol (0x11 UDP, 0x06 TCP), port.
inline Bytes ipv4Option(std::uint8_t type, std::uint32_t ip, std::uint8_t protocol, std::uint16_t port) {
  Bytes out{0x00, 0x09, type, 0x00};
  put32(out, ip);
  out.insert(out.end(), {0x00, protocol});
  put16(out, port);
  return out;
}

/// A whole SD message: SOME/IP header of service 0xFFFF method 0x8100, flags (0x80 reboot, 0x40
/// unicast), the entries array and the options array.
inline Bytes sdMessage(std::uint8_t flags, std::uint16_t session, std::initializer_list<Bytes> entries,
                       std::initializer_list<Bytes> options = {}) {
  Bytes payload{flags, 0x00, 0x00, 0x00};
  for (const Bytes& array : {concat(entries), concat(options)}) {
    put32(payload, static_cast<std::uint32_t>(array.size()));
    payload.insert(payload.end(), array.begin(), array.end());
  }
  return message({0xFFFF, 0x8100, 0x0000, session, 0x01, 0x01, 0x02, 0x00}, payload);
}

}  // namespace kov::test::wire
