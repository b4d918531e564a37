// SOME/IP header codec: expected bytes are written out field by field from the header layout
// (message id, length, request id, protocol version, interface version, message type, return code).
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "someip/message.hpp"

namespace {

using namespace kov::platform::networking::someip;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t UNTOUCHED = 0xC0FFEE;

TEST(SomeIpHeader, EncodesHandWrittenBytes) {
  // Requests, notifications and errors of common values are checked byte for byte where the transport
  // sends and reads them (wiring_test.cpp); these are the extremes: all-ones ids, a non-zero return code.
  // appendMessage computes the length itself, and appending keeps what was there.
  const std::vector<std::pair<MessageHeader, Bytes>> cases{
      {{0xBEEF, 0x0001, 0xDEADBEEF, 0xFFFF, 0xFFFF, 1, 0xFF, MessageType::REQUEST_NO_RETURN,
        ReturnCode::E_OK},
       {0xBE, 0xEF, 0x00, 0x01, 0x00, 0x00, 0x00, 0x09, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0xFF, 0x01, 0x00,
        0x00}},
      {{0x0102, 0x0304, 0, 0x0506, 0x0708, 1, 0x09, MessageType::RESPONSE, ReturnCode::E_NOT_READY},
       {0x01, 0x02, 0x03, 0x04, 0x00, 0x00, 0x00, 0x0C, 0x05, 0x06,
        0x07, 0x08, 0x01, 0x09, 0x80, 0x04, 0x11, 0x22, 0x33, 0x44}}};
  Bytes out{0xAB};
  Bytes expected{0xAB};
  for (const auto& [header, wire] : cases) {
    appendMessage(header, wire.data() + 16, wire.size() - 16, out);
    expected.insert(expected.end(), wire.begin(), wire.end());
  }
  EXPECT_EQ(out, expected);
}

TEST(SomeIpHeader, MalformedInputIsRefusedAndAMeasuredMessageSkippedWhole) {
  // A valid request of 4 payload bytes; each case changes what makes it wrong.
  const Bytes good{0x12, 0x34, 0x00, 0x01, 0x00, 0x00, 0x00, 0x0C, 0x10, 0x00,
                   0x00, 0x01, 0x01, 0x01, 0x00, 0x00, 0xA1, 0xA2, 0xA3, 0xA4};
  const auto with = [&good](std::size_t at, std::initializer_list<std::uint8_t> bytes) {
    Bytes changed = good;
    std::copy(bytes.begin(), bytes.end(), changed.begin() + static_cast<std::ptrdiff_t>(at));
    return changed;
  };
  // Name, bytes, the error and the bytes consumed (UNTOUCHED: nothing to skip to).
  std::vector<std::tuple<std::string, Bytes, ParseError, std::size_t>> cases{
      // The unchanged message is accepted, so every refusal is caused by its one change.
      {"unchanged", good, ParseError::NONE, 20},
      {"empty", {}, ParseError::TRUNCATED_HEADER, UNTOUCHED},
      {"15 bytes", Bytes(good.begin(), good.begin() + 15), ParseError::TRUNCATED_HEADER, UNTOUCHED},
      {"length 7", with(4, {0, 0, 0, 7}), ParseError::LENGTH_TOO_SMALL, UNTOUCHED},
      {"length one past the datagram", with(4, {0, 0, 0, 0x0D}), ParseError::LENGTH_BEYOND_DATAGRAM,
       UNTOUCHED},
      {"protocol version 2", with(12, {0x02}), ParseError::WRONG_PROTOCOL_VERSION, 20},
  };
  // Message types other than request (0x00), fire and forget (0x01), notification (0x02), response
  // (0x80) and error (0x81): the TP variants (0x2x, 0xAx), the ACKs (0x40, 0xC0) and others.
  for (const std::uint8_t type : {0x03, 0x20, 0x22, 0x40, 0xC0, 0xA0, 0x82, 0xFF}) {
    cases.push_back(
        {"message type " + std::to_string(type), with(14, {type}), ParseError::UNKNOWN_MESSAGE_TYPE, 20});
  }
  for (const auto& [name, bytes, error, expectedConsumed] : cases) {
    MessageView view;
    std::size_t consumed = UNTOUCHED;
    const ParseError got = parseMessage(bytes.data(), bytes.size(), view, consumed);
    EXPECT_EQ(std::make_pair(got, consumed), std::make_pair(error, expectedConsumed)) << name;
  }
  MessageView view;
  std::size_t consumed = UNTOUCHED;
  EXPECT_EQ(parseMessage(nullptr, 100, view, consumed), ParseError::TRUNCATED_HEADER);
  EXPECT_EQ(consumed, UNTOUCHED);
}

TEST(SomeIpSession, CountsFromOneToFfffAndWrapsToOneNeverZero) {
  std::vector<std::uint16_t> next;
  for (const std::uint16_t from : {0x0000, 0x0001, 0x00FF, 0xFFFE, 0xFFFF}) {
    next.push_back(nextSessionId(from));
  }
  EXPECT_EQ(next, (std::vector<std::uint16_t>{0x0001, 0x0002, 0x0100, 0xFFFF, 0x0001}));
}

}  // namespace
