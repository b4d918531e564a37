#pragma once

#include <cstddef>
#include <cstdint>

#include "someip/message.hpp"

namespace kov::platform::networking::someip::detail {

/// Calls `onMessage(const MessageView&, ParseError)` for each SOME/IP message of a datagram, in order:
/// with NONE for a well-formed message, and with WRONG_PROTOCOL_VERSION or UNKNOWN_MESSAGE_TYPE for one
/// whose header was still read (a server answers the former with an error). A message that cannot be
/// measured ends the datagram: `onError(offset, error)` is called and the rest is dropped.
template <typename OnMessage, typename OnError>
void forEachMessage(const std::uint8_t* data, std::size_t size, OnMessage&& onMessage, OnError&& onError) {
  std::size_t offset = 0;
  while (offset < size) {
    MessageView message;
    std::size_t consumed = 0;
    const ParseError error = parseMessage(data + offset, size - offset, message, consumed);
    if (consumed == 0) {
      onError(offset, error);
      return;
    }
    offset += consumed;
    onMessage(message, error);
  }
}

}  // namespace kov::platform::networking::someip::detail
