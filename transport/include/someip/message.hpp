#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "someip/export.hpp"

namespace kov::platform::networking::someip {

/// Size of the SOME/IP header; the length field counts the 8 bytes after it plus the payload.
constexpr std::size_t HEADER_SIZE = 16;
/// Bytes of the header that the length field covers (request id to return code).
constexpr std::uint32_t LENGTH_COVERED_HEADER = 8;
constexpr std::uint8_t PROTOCOL_VERSION = 0x01;
/// The two most significant bits of a return code are reserved: a receiver ignores them.
constexpr std::uint8_t RETURN_CODE_MASK = 0x3F;

enum class MessageType : std::uint8_t {
  REQUEST = 0x00,
  REQUEST_NO_RETURN = 0x01,
  NOTIFICATION = 0x02,
  RESPONSE = 0x80,
  ERROR = 0x81,
};

enum class ReturnCode : std::uint8_t {
  E_OK = 0x00,
  E_NOT_OK = 0x01,
  E_UNKNOWN_SERVICE = 0x02,
  E_UNKNOWN_METHOD = 0x03,
  E_NOT_READY = 0x04,
  E_NOT_REACHABLE = 0x05,
  E_TIMEOUT = 0x06,
  E_WRONG_PROTOCOL_VERSION = 0x07,
  E_WRONG_INTERFACE_VERSION = 0x08,
  E_MALFORMED_MESSAGE = 0x09,
  E_WRONG_MESSAGE_TYPE = 0x0A,
};

/// The fields of one SOME/IP header, in host order. `length` is what the wire carries: 8 + payload.
struct MessageHeader {
  std::uint16_t serviceId{0};
  std::uint16_t methodId{0};  ///< method id, or event id of a notification
  std::uint32_t length{LENGTH_COVERED_HEADER};
  std::uint16_t clientId{0};
  std::uint16_t sessionId{0};
  std::uint8_t protocolVersion{PROTOCOL_VERSION};
  std::uint8_t interfaceVersion{0};
  MessageType messageType{MessageType::REQUEST};
  ReturnCode returnCode{ReturnCode::E_OK};
};

/// One message found in a datagram; `payload` points into the caller's buffer.
struct MessageView {
  MessageHeader header;
  const std::uint8_t* payload{nullptr};
  std::size_t payloadSize{0};
};

/// Why bytes were not accepted as a SOME/IP message.
enum class ParseError : std::uint8_t {
  NONE = 0,
  TRUNCATED_HEADER,        ///< fewer than 16 bytes left
  LENGTH_TOO_SMALL,        ///< length field below 8
  LENGTH_BEYOND_DATAGRAM,  ///< length field reaches past the end of the datagram
  WRONG_PROTOCOL_VERSION,  ///< protocol version other than 1
  UNKNOWN_MESSAGE_TYPE,    ///< message type not one of the five known ones (TP and ACK types included)
};

/// A short English text for `error`, for log lines.
KOV_SOMEIP_EXPORT const char* describe(ParseError error);

/// True for the five message types this transport knows.
KOV_SOMEIP_EXPORT bool isKnownMessageType(std::uint8_t type);

/// Reads the message that starts at `data`. On success fills `message` (the return code without its
/// reserved bits), stores the number of bytes it takes in `consumed` and returns NONE. A message whose
/// protocol version or type is wrong is still read and measured (`message` and `consumed` are set), so
/// that a caller may answer or skip it; the other errors leave both as they were and nothing to skip to.
KOV_SOMEIP_EXPORT ParseError parseMessage(const std::uint8_t* data, std::size_t size, MessageView& message,
                                          std::size_t& consumed);

/// Writes the 16 header bytes of `header` to `out` as they are (length included).
KOV_SOMEIP_EXPORT void writeHeader(const MessageHeader& header, std::uint8_t* out);

/// Appends `header` (its length set to 8 + payloadSize) and the payload to `out`.
KOV_SOMEIP_EXPORT void appendMessage(const MessageHeader& header, const void* payload,
                                     std::size_t payloadSize, std::vector<std::uint8_t>& out);

/// Next session id after `session`: 1..0xFFFF, never 0, wrapping from 0xFFFF to 1.
constexpr std::uint16_t nextSessionId(std::uint16_t session) {
  return session == 0xFFFF ? 1 : static_cast<std::uint16_t>(session + 1);
}

}  // namespace kov::platform::networking::someip
