#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/log/log.hpp"
#include "someip/message.hpp"

namespace kov::platform::networking::someip::detail {

/// Calls `onMessage(const MessageView&)` for each SOME/IP message of a datagram, in order. A malformed
/// message is logged once (naming `what`, the sender and the offset) and skipped when its length is
/// known; otherwise the rest of the datagram is dropped.
template <typename OnMessage>
void forEachMessage(const std::uint8_t* data, std::size_t size, const char* what, const std::string& from,
                    OnMessage&& onMessage) {
  std::size_t offset = 0;
  while (offset < size) {
    MessageView message;
    std::size_t consumed = 0;
    const ParseError error = parseMessage(data + offset, size - offset, message, consumed);
    if (error != ParseError::NONE) {
      KOV_LOG(WARN, "transport/src/datagram_reader.hpp")
          << "Dropping " << what << " from " << from << " at byte " << offset << ": " << describe(error);
      if (consumed == 0) {
        return;
      }
      offset += consumed;
      continue;
    }
    offset += consumed;
    onMessage(message);
  }
}

}  // namespace kov::platform::networking::someip::detail
