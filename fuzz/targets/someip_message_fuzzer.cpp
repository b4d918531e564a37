// The SOME/IP header codec fed with arbitrary datagrams, read message after message as the receive
// loop does. Checked for every message: what was consumed lies inside the datagram, the payload points
// into it right after the 16 header bytes, the fields equal the bytes at their offsets in the header
// layout (written out here by hand), and encoding the parsed message gives back exactly its bytes.
// Every refusal is checked against its cause; one that leaves nothing to skip to leaves the result alone.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "someip/message.hpp"
#include "support/fuzz_input.hpp"

namespace {

namespace someip = kov::platform::networking::someip;
using someip::ParseError;

constexpr std::size_t UNTOUCHED = ~std::size_t{0};

std::uint16_t big16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>((p[0] << 8U) | p[1]);
}

bool knownType(std::uint8_t type) {
  return type == 0x00 || type == 0x01 || type == 0x02 || type == 0x80 || type == 0x81;
}

/// Checks one accepted message that starts at `p` and takes `consumed` of the `left` bytes.
void checkAccepted(const std::uint8_t* p, std::size_t left, const someip::MessageView& view,
                   std::size_t consumed) {
  KOV_FUZZ_CHECK(consumed >= 16 && consumed <= left);
  KOV_FUZZ_CHECK(view.payload == p + 16);
  KOV_FUZZ_CHECK(view.payloadSize == consumed - 16);
  const someip::MessageHeader& h = view.header;
  KOV_FUZZ_CHECK(h.serviceId == big16(p) && h.methodId == big16(p + 2));
  KOV_FUZZ_CHECK(h.length == kov::fuzz::bigEndian32(p + 4) && h.length == consumed - 8);
  KOV_FUZZ_CHECK(h.clientId == big16(p + 8) && h.sessionId == big16(p + 10));
  KOV_FUZZ_CHECK(h.protocolVersion == p[12]);
  KOV_FUZZ_CHECK(h.interfaceVersion == p[13]);
  KOV_FUZZ_CHECK(static_cast<std::uint8_t>(h.messageType) == p[14]);
  // The two reserved bits of the return code are not read.
  KOV_FUZZ_CHECK(static_cast<std::uint8_t>(h.returnCode) == (p[15] & 0x3F));

  std::vector<std::uint8_t> encoded{0x5A};
  someip::appendMessage(h, view.payload, view.payloadSize, encoded);
  KOV_FUZZ_CHECK(encoded.size() == consumed + 1 && encoded[0] == 0x5A);
  KOV_FUZZ_CHECK(std::equal(p, p + 15, encoded.begin() + 1));
  KOV_FUZZ_CHECK(encoded[16] == (p[15] & 0x3F));
  KOV_FUZZ_CHECK(std::equal(p + 16, p + consumed, encoded.begin() + 17));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::size_t offset = 0;
  while (offset < size) {
    const std::uint8_t* p = data + offset;
    const std::size_t left = size - offset;
    someip::MessageView view;
    view.payloadSize = 0x77;
    std::size_t consumed = UNTOUCHED;
    const ParseError error = someip::parseMessage(p, left, view, consumed);
    if (error == ParseError::NONE) {
      checkAccepted(p, left, view, consumed);
      KOV_FUZZ_CHECK(p[12] == 0x01 && knownType(p[14]));
    } else if (error == ParseError::WRONG_PROTOCOL_VERSION || error == ParseError::UNKNOWN_MESSAGE_TYPE) {
      checkAccepted(p, left, view, consumed);  // measured and read, so that a server may answer it
    } else {
      KOV_FUZZ_CHECK(view.payloadSize == 0x77 && view.payload == nullptr);
    }
    const std::uint64_t total = left >= 16 ? std::uint64_t{kov::fuzz::bigEndian32(p + 4)} + 8 : 0;
    switch (error) {
      case ParseError::NONE:
        break;
      case ParseError::TRUNCATED_HEADER:
        KOV_FUZZ_CHECK(left < 16 && consumed == UNTOUCHED);
        break;
      case ParseError::LENGTH_TOO_SMALL:
        KOV_FUZZ_CHECK(total < 16 && consumed == UNTOUCHED);
        break;
      case ParseError::LENGTH_BEYOND_DATAGRAM:
        KOV_FUZZ_CHECK(total >= 16 && total > left && consumed == UNTOUCHED);
        break;
      case ParseError::WRONG_PROTOCOL_VERSION:
        KOV_FUZZ_CHECK(p[12] != 0x01 && consumed == total && total <= left);
        break;
      case ParseError::UNKNOWN_MESSAGE_TYPE:
        KOV_FUZZ_CHECK(p[12] == 0x01 && !knownType(p[14]) && consumed == total && total <= left);
        break;
    }
    if (consumed == UNTOUCHED) {
      break;  // nothing to skip to
    }
    offset += consumed;
  }
  KOV_FUZZ_CHECK(offset <= size);
  return 0;
}
