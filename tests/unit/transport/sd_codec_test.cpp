// SOME/IP-SD payload codec. Expected bytes are written out from the SD layout: flags (0x80 reboot,
// 0x40 unicast), 3 reserved bytes, entries array length, 16-byte entries (type, index of the 1st and
// 2nd option run, #opt1 << 4 | #opt2, service, instance, major version, 24-bit TTL, then the minor
// version or reserved + counter + eventgroup id), options array length, and options (length, type,
// reserved, then for IPv4: address, reserved, L4 protocol, port).
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "sd_entries.hpp"
#include "someip/sd_message.hpp"
#include "wire_bytes.hpp"

namespace {

using namespace kov::platform::networking::someip;
using Bytes = std::vector<std::uint8_t>;
using kov::test::sdEntry;
using kov::test::wire::concat;

const SdOption E1{SdOptionType::IPV4_ENDPOINT, 0x7F000002, L4_PROTOCOL_UDP, 30000};  // 127.0.0.2:30000
const SdOption E2{SdOptionType::IPV4_ENDPOINT, 0x7F000004, L4_PROTOCOL_TCP, 30002};
const SdOption M{SdOptionType::IPV4_MULTICAST, 0xEF000001, L4_PROTOCOL_UDP, 30001};  // 239.0.0.1:30001
const Bytes E1_BYTES{0x00, 0x09, 0x04, 0x00, 0x7F, 0x00, 0x00, 0x02, 0x00, 0x11, 0x75, 0x30};
const Bytes E2_BYTES{0x00, 0x09, 0x04, 0x00, 0x7F, 0x00, 0x00, 0x04, 0x00, 0x06, 0x75, 0x32};
const Bytes M_BYTES{0x00, 0x09, 0x14, 0x00, 0xEF, 0x00, 0x00, 0x01, 0x00, 0x11, 0x75, 0x31};

SdMessage messageOf(std::uint8_t flags, std::vector<SdEntry> entries, std::vector<SdIssue> issues = {}) {
  return {flags, std::move(entries), std::move(issues)};
}

/// Every field of a message, each entry's options included, as one value.
auto fieldsOf(const SdMessage& m) {
  std::vector<std::pair<SdParseError, std::size_t>> issues;
  for (const SdIssue& issue : m.issues) {
    issues.emplace_back(issue.kind, issue.entry);
  }
  std::vector<decltype(kov::test::fieldsOf(SdEntry{}))> entries;
  for (const SdEntry& entry : m.entries) {
    entries.push_back(kov::test::fieldsOf(entry));
  }
  return std::make_tuple(m.flags, issues, entries);
}

// A plain offer and find are checked byte for byte where the transport sends and reads them
// (wiring_test.cpp); these are the other entry types, non-zero minor versions and counters, shared runs.
std::vector<std::tuple<std::string, SdMessage, Bytes>> goldenCases() {
  return {
      {"stop offer",
       messageOf(0x40, {sdEntry(SdEntryType::OFFER_SERVICE, 0xABCD, 0x0011, 0, 0, 0x01020304, 0, 0, {E1})}),
       concat(
           {{0x40, 0, 0, 0, 0, 0, 0, 0x10},
            {0x01, 0x00, 0x00, 0x10, 0xAB, 0xCD, 0x00, 0x11, 0x00, 0x00, 0x00, 0x00, 0x01, 0x02, 0x03, 0x04},
            {0, 0, 0, 0x0C},
            E1_BYTES})},
      {"subscribe, ack and nack",
       messageOf(0x40, {sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP, 0x1234, 0x0010, 1, 5, 0, 0x0001, 3, {E1}),
                        sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP_ACK, 0x1234, 0x0010, 1, 5, 0, 0x0001, 3),
                        sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP_ACK, 0x1234, 0x0011, 1, 0, 0, 0x0002, 0)}),
       concat(
           {{0x40, 0, 0, 0, 0, 0, 0, 0x30},
            {0x06, 0x00, 0x00, 0x10, 0x12, 0x34, 0x00, 0x10, 0x01, 0x00, 0x00, 0x05, 0x00, 0x03, 0x00, 0x01},
            {0x07, 0x00, 0x00, 0x00, 0x12, 0x34, 0x00, 0x10, 0x01, 0x00, 0x00, 0x05, 0x00, 0x03, 0x00, 0x01},
            {0x07, 0x00, 0x00, 0x00, 0x12, 0x34, 0x00, 0x11, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02},
            {0, 0, 0, 0x0C},
            E1_BYTES})},
      {"equal option runs written once and shared, multicast and TCP options",
       messageOf(0x00, {sdEntry(SdEntryType::OFFER_SERVICE, 0x1234, 0x0010, 0, 3, 0, 0, 0, {E1}),
                        sdEntry(SdEntryType::OFFER_SERVICE, 0x1234, 0x0011, 0, 3, 0, 0, 0, {E1}),
                        sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP_ACK, 0x1234, 0x0010, 0, TTL_INFINITE, 0, 1,
                                0, {M}),
                        sdEntry(SdEntryType::OFFER_SERVICE, 0x5678, 0x0001, 2, 10, 7, 0, 0, {E1, M}),
                        sdEntry(SdEntryType::OFFER_SERVICE, 0x5678, 0x0002, 2, 10, 7, 0, 0, {E2})}),
       concat(
           {{0x00, 0, 0, 0, 0, 0, 0, 0x50},
            {0x01, 0x00, 0x00, 0x10, 0x12, 0x34, 0x00, 0x10, 0x00, 0x00, 0x00, 0x03, 0, 0, 0, 0},
            {0x01, 0x00, 0x00, 0x10, 0x12, 0x34, 0x00, 0x11, 0x00, 0x00, 0x00, 0x03, 0, 0, 0, 0},
            {0x07, 0x01, 0x00, 0x10, 0x12, 0x34, 0x00, 0x10, 0x00, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x01},
            {0x01, 0x00, 0x00, 0x20, 0x56, 0x78, 0x00, 0x01, 0x02, 0x00, 0x00, 0x0A, 0, 0, 0, 0x07},
            {0x01, 0x02, 0x00, 0x10, 0x56, 0x78, 0x00, 0x02, 0x02, 0x00, 0x00, 0x0A, 0, 0, 0, 0x07},
            {0, 0, 0, 0x24},
            E1_BYTES,
            M_BYTES,
            E2_BYTES})},
      {"no entries", messageOf(0x80, {}), {0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
  };
}

TEST(SdCodec, EncodesAndParsesHandWrittenBytes) {
  for (const auto& [name, message, wire] : goldenCases()) {
    EXPECT_EQ(encodeSdPayload(message), wire) << name;
    SdMessage parsed;
    ASSERT_EQ(parseSdPayload(wire.data(), wire.size(), parsed), SdParseError::NONE) << name;
    EXPECT_EQ(fieldsOf(parsed), fieldsOf(message)) << name;
    EXPECT_EQ(parsed.reboot(), (wire[0] & 0x80) != 0) << name;
  }
}

Bytes length32(std::size_t n) {
  return {static_cast<std::uint8_t>(n >> 24), static_cast<std::uint8_t>(n >> 16),
          static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n)};
}

// A payload of flags 0x40 (reserved bytes not zero), the given 16-byte entries and the given options.
Bytes sdPayload(const Bytes& entries, const Bytes& options) {
  return concat(
      {{0x40, 0x12, 0x34, 0x56}, length32(entries.size()), entries, length32(options.size()), options});
}

// An entry of service 0x1234, instance 0x0010, major 1, TTL 3, then 0xABF50002: minor version
// 0xABF50002, or reserved bits, counter 5 and eventgroup 2.
Bytes entryBytes(std::uint8_t type, std::uint8_t index1, std::uint8_t index2, std::uint8_t counts) {
  return {type, index1, index2, counts, 0x12, 0x34, 0x00, 0x10,
          0x01, 0x00,   0x00,   0x03,   0xAB, 0xF5, 0x00, 0x02};
}
SdEntry offer(std::vector<SdOption> options) {
  return sdEntry(SdEntryType::OFFER_SERVICE, 0x1234, 0x0010, 1, 3, 0xABF50002, 0, 0, std::move(options));
}

TEST(SdCodec, UntrustworthyArraysAreRefusedWithTheirCause) {
  // One offer naming one option, with the array lengths and options as given.
  const Bytes entry = entryBytes(0x01, 0, 0, 0x10);
  const auto withLengths = [&entry](std::uint32_t entries, std::uint32_t options, const Bytes& optionBytes) {
    return concat({{0x40, 0, 0, 0}, length32(entries), entry, length32(options), optionBytes});
  };
  using E = SdParseError;
  // Name, bytes, the error.
  const std::vector<std::tuple<std::string, Bytes, SdParseError>> cases{
      {"empty", {}, E::TRUNCATED},
      {"no options length", {0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, E::TRUNCATED},
      {"no options length after the entry", concat({{0x40, 0, 0, 0, 0, 0, 0, 0x10}, entry}),
       E::ENTRIES_OVERRUN},
      {"entries length 15", withLengths(0x0F, 0x0C, E1_BYTES), E::ENTRIES_NOT_MULTIPLE_OF_16},
      {"options length past the end", withLengths(0x10, 0x0D, E1_BYTES), E::OPTIONS_OVERRUN},
      {"2 bytes left for an option", withLengths(0x10, 0x0E, concat({E1_BYTES, {0x00, 0x09}})),
       E::OPTIONS_OVERRUN},
      {"option length 10 in 12 bytes",
       withLengths(0x10, 0x0C, {0x00, 0x0A, 0x04, 0, 0x7F, 0, 0, 2, 0, 0x11, 0x75, 0x30}),
       E::OPTIONS_OVERRUN},
      {"unknown option of length 0x0100 after a good one",
       withLengths(0x10, 0x11, concat({E1_BYTES, {0x01, 0x00, 0x7E, 0x00, 0xAA}})), E::OPTIONS_OVERRUN},
  };
  SdMessage message;
  for (const auto& [name, bytes, error] : cases) {
    EXPECT_EQ(parseSdPayload(bytes.data(), bytes.size(), message), error) << name;
  }
  EXPECT_EQ(parseSdPayload(nullptr, 64, message), SdParseError::TRUNCATED);
  // The transport's log lines quote these.
  std::string all;
  for (const auto error :
       {E::TRUNCATED, E::ENTRIES_NOT_MULTIPLE_OF_16, E::ENTRIES_OVERRUN, E::OPTIONS_OVERRUN,
        E::OPTION_LENGTH_WRONG, E::OPTION_INDEX_OUT_OF_RANGE, E::UNKNOWN_ENTRY_TYPE}) {
    all += std::string(describe(error)) + "; ";
  }
  EXPECT_EQ(all,
            "truncated SD header; entries array length not a multiple of 16; entries array longer than the "
            "message; options array longer than the message; IPv4 option with a length other than 9; entry "
            "refers to an option that does not exist; unknown entry type; ");
}

TEST(SdCodec, UnusableOptionsAndEntriesAreLeftOutAndTheRestKept) {
  // Options other than E1, E2 and M, as laid out on the wire: length (from the reserved byte on), type,
  // reserved, body.
  const Bytes configuration{0x00, 0x06, 0x01, 0x00, 0x03, 'a', '=', 'b', 0x00};
  const Bytes loadBalancing{0x00, 0x05, 0x02, 0x00, 0x00, 0x01, 0x00, 0x02};  // priority 1, weight 2
  const Bytes sdEndpoint{0x00, 0x09, 0x24, 0x00, 0x7F, 0x00, 0x00, 0x05, 0x00, 0x11, 0x77, 0x1A};
  const Bytes endpointLength10{0x00, 0x0A, 0x04, 0x00, 0x7F, 0x00, 0x00, 0x02, 0x00, 0x11, 0x75, 0x30, 0x00};
  const Bytes multicastLength5{0x00, 0x05, 0x14, 0x00, 0xEF, 0x00, 0x00, 0x01};
  const auto ack = [](std::vector<SdOption> options) {
    return sdEntry(SdEntryType::SUBSCRIBE_EVENTGROUP_ACK, 0x1234, 0x0010, 1, 3, 0, 2, 5, std::move(options));
  };
  constexpr auto LENGTH = SdParseError::OPTION_LENGTH_WRONG;
  constexpr auto INDEX = SdParseError::OPTION_INDEX_OUT_OF_RANGE;
  constexpr auto TYPE = SdParseError::UNKNOWN_ENTRY_TYPE;
  // Name, entries and options arrays, the message read.
  const std::vector<std::tuple<std::string, Bytes, Bytes, SdMessage>> cases{
      {"configuration between two endpoints", entryBytes(0x01, 0, 0, 0x30),
       concat({E1_BYTES, configuration, M_BYTES}), messageOf(0x40, {offer({E1, M})})},
      {"load balancing in the second run", entryBytes(0x01, 0, 1, 0x11), concat({E1_BYTES, loadBalancing}),
       messageOf(0x40, {offer({E1})})},
      {"SD endpoint of length 9", entryBytes(0x01, 0, 0, 0x20), concat({E2_BYTES, sdEndpoint}),
       messageOf(0x40, {offer({E2})})},
      {"endpoint of length 10 beside a good one", entryBytes(0x01, 0, 0, 0x20),
       concat({endpointLength10, E2_BYTES}), messageOf(0x40, {offer({E2})}, {{LENGTH, 0}})},
      {"multicast of length 5 named twice by one entry and once by the next",
       concat({entryBytes(0x01, 1, 0, 0x12), entryBytes(0x07, 1, 0, 0x10)}),
       concat({E1_BYTES, multicastLength5}),
       messageOf(0x40, {offer({E1}), ack({})}, {{LENGTH, 0}, {LENGTH, 1}})},
      // Runs past the options: index, count, second run, index 255, and beside a wrong length.
      {"entries naming options that are not there",
       concat({entryBytes(0x01, 0, 0, 0x10), entryBytes(0x00, 2, 0, 0x10), entryBytes(0x06, 0, 0, 0x03),
               entryBytes(0x07, 0xFF, 0, 0xF0), entryBytes(0x06, 1, 0, 0x13)}),
       concat({E1_BYTES, endpointLength10}),
       messageOf(0x40, {offer({E1})}, {{INDEX, 1}, {INDEX, 2}, {INDEX, 3}, {INDEX, 4}})},
      {"an option named but no options array, after the offer",
       concat({entryBytes(0x07, 0, 0, 0x10), entryBytes(0x01, 7, 9, 0x00)}),
       {},
       messageOf(0x40, {offer({})}, {{INDEX, 0}})},
      {"entry types 0x05, 0x02 and 0xFF after the offer",
       concat({entryBytes(0x01, 0, 0, 0x10), entryBytes(0x05, 0, 0, 0x10), entryBytes(0x02, 0, 0, 0x10),
               entryBytes(0xFF, 9, 9, 0xFF)}),
       E1_BYTES, messageOf(0x40, {offer({E1})}, {{TYPE, 1}, {TYPE, 2}, {TYPE, 3}})},
  };
  for (const auto& [name, entries, options, expected] : cases) {
    const Bytes bytes = sdPayload(entries, options);
    SdMessage parsed;
    ASSERT_EQ(parseSdPayload(bytes.data(), bytes.size(), parsed), SdParseError::NONE) << name;
    EXPECT_EQ(fieldsOf(parsed), fieldsOf(expected)) << name;
  }
}

}  // namespace
