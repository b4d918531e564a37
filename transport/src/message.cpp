#include "someip/message.hpp"

#include <cstring>

#include "big_endian.hpp"

namespace kov::platform::networking::someip {

using detail::read16;
using detail::read32;
using detail::write16;
using detail::write32;

const char* describe(ParseError error) {
  switch (error) {
    case ParseError::NONE:
      return "no error";
    case ParseError::TRUNCATED_HEADER:
      return "truncated header";
    case ParseError::LENGTH_TOO_SMALL:
      return "length field below 8";
    case ParseError::LENGTH_BEYOND_DATAGRAM:
      return "length field larger than the datagram";
    case ParseError::WRONG_PROTOCOL_VERSION:
      return "wrong protocol version";
    case ParseError::UNKNOWN_MESSAGE_TYPE:
      return "unknown message type";
  }
  return "unknown error";
}

bool isKnownMessageType(std::uint8_t type) {
  switch (static_cast<MessageType>(type)) {
    case MessageType::REQUEST:
    case MessageType::REQUEST_NO_RETURN:
    case MessageType::NOTIFICATION:
    case MessageType::RESPONSE:
    case MessageType::ERROR:
      return true;
  }
  return false;
}

ParseError parseMessage(const std::uint8_t* data, std::size_t size, MessageView& message,
                        std::size_t& consumed) {
  if (data == nullptr || size < HEADER_SIZE) {
    return ParseError::TRUNCATED_HEADER;
  }
  const std::uint32_t length = read32(data + 4);
  if (length < LENGTH_COVERED_HEADER) {
    return ParseError::LENGTH_TOO_SMALL;
  }
  if (length > size - 8) {
    return ParseError::LENGTH_BEYOND_DATAGRAM;
  }
  const std::size_t total = static_cast<std::size_t>(length) + 8;
  MessageHeader& h = message.header;
  h.serviceId = read16(data);
  h.methodId = read16(data + 2);
  h.length = length;
  h.clientId = read16(data + 8);
  h.sessionId = read16(data + 10);
  h.protocolVersion = data[12];
  h.interfaceVersion = data[13];
  h.messageType = static_cast<MessageType>(data[14]);
  h.returnCode = static_cast<ReturnCode>(data[15] & RETURN_CODE_MASK);
  message.payload = data + HEADER_SIZE;
  message.payloadSize = total - HEADER_SIZE;
  consumed = total;
  if (data[12] != PROTOCOL_VERSION) {
    return ParseError::WRONG_PROTOCOL_VERSION;
  }
  if (!isKnownMessageType(data[14])) {
    return ParseError::UNKNOWN_MESSAGE_TYPE;
  }
  return ParseError::NONE;
}

void writeHeader(const MessageHeader& header, std::uint8_t* out) {
  write16(out, header.serviceId);
  write16(out + 2, header.methodId);
  write32(out + 4, header.length);
  write16(out + 8, header.clientId);
  write16(out + 10, header.sessionId);
  out[12] = header.protocolVersion;
  out[13] = header.interfaceVersion;
  out[14] = static_cast<std::uint8_t>(header.messageType);
  out[15] = static_cast<std::uint8_t>(header.returnCode);
}

void appendMessage(const MessageHeader& header, const void* payload, std::size_t payloadSize,
                   std::vector<std::uint8_t>& out) {
  MessageHeader h = header;
  h.length = static_cast<std::uint32_t>(payloadSize + LENGTH_COVERED_HEADER);
  const std::size_t start = out.size();
  out.resize(start + HEADER_SIZE + payloadSize);
  writeHeader(h, out.data() + start);
  if (payloadSize != 0 && payload != nullptr) {
    std::memcpy(out.data() + start + HEADER_SIZE, payload, payloadSize);
  }
}

}  // namespace kov::platform::networking::someip
