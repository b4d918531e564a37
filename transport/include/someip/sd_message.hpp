#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "someip/export.hpp"

namespace kov::platform::networking::someip {

/// Service discovery travels as SOME/IP notifications of service 0xFFFF, method 0x8100.
constexpr std::uint16_t SD_SERVICE_ID = 0xFFFF;
constexpr std::uint16_t SD_METHOD_ID = 0x8100;
constexpr std::uint8_t SD_INTERFACE_VERSION = 0x01;
constexpr std::uint8_t SD_FLAG_REBOOT = 0x80;
constexpr std::uint8_t SD_FLAG_UNICAST = 0x40;
constexpr std::size_t SD_ENTRY_SIZE = 16;
constexpr std::uint8_t ANY_MAJOR_VERSION = 0xFF;
constexpr std::uint32_t ANY_MINOR_VERSION = 0xFFFFFFFF;
/// A TTL of 0xFFFFFF means "until the next reboot".
constexpr std::uint32_t TTL_INFINITE = 0xFFFFFF;

enum class SdEntryType : std::uint8_t {
  FIND_SERVICE = 0x00,
  OFFER_SERVICE = 0x01,             ///< TTL 0: StopOfferService
  SUBSCRIBE_EVENTGROUP = 0x06,      ///< TTL 0: StopSubscribeEventgroup
  SUBSCRIBE_EVENTGROUP_ACK = 0x07,  ///< TTL 0: SubscribeEventgroupNack
};

enum class SdOptionType : std::uint8_t {
  IPV4_ENDPOINT = 0x04,
  IPV4_MULTICAST = 0x14,
};

constexpr std::uint8_t L4_PROTOCOL_UDP = 0x11;
constexpr std::uint8_t L4_PROTOCOL_TCP = 0x06;

/// An IPv4 endpoint or multicast option. `address` is in host order (0x7F000001 is 127.0.0.1).
struct SdOption {
  SdOptionType type{SdOptionType::IPV4_ENDPOINT};
  std::uint32_t address{0};
  std::uint8_t protocol{L4_PROTOCOL_UDP};
  std::uint16_t port{0};

  friend bool operator==(const SdOption& a, const SdOption& b) {
    return a.type == b.type && a.address == b.address && a.protocol == b.protocol && a.port == b.port;
  }
};

/// One entry with the IPv4 options it references (both option runs, in order). Service entries use
/// `minorVersion`; eventgroup entries use `eventgroupId` and `counter`.
struct SdEntry {
  SdEntryType type{SdEntryType::FIND_SERVICE};
  std::uint16_t serviceId{0};
  std::uint16_t instanceId{0};
  std::uint8_t majorVersion{0};
  std::uint32_t ttl{0};  ///< seconds, 24 bits
  std::uint32_t minorVersion{0};
  std::uint16_t eventgroupId{0};
  std::uint8_t counter{0};  ///< 4 bits
  std::vector<SdOption> options;

  bool isServiceEntry() const {
    return type == SdEntryType::FIND_SERVICE || type == SdEntryType::OFFER_SERVICE;
  }
};

/// Why an SD payload was refused (the first four), or why part of one was left out (see SdIssue).
enum class SdParseError : std::uint8_t {
  NONE = 0,
  TRUNCATED,                   ///< shorter than flags and the two array lengths
  ENTRIES_NOT_MULTIPLE_OF_16,  ///< entries array length not a multiple of 16
  ENTRIES_OVERRUN,             ///< entries array reaches past the payload
  OPTIONS_OVERRUN,             ///< options array length or an option reaches past the payload
  OPTION_LENGTH_WRONG,         ///< an IPv4 option whose length field is not 9
  UNKNOWN_OPTION_TYPE,         ///< not reported: options of other types are skipped by their length
  OPTION_INDEX_OUT_OF_RANGE,   ///< an entry refers to an option that is not there
  UNKNOWN_ENTRY_TYPE,          ///< an entry type other than 0x00, 0x01, 0x06, 0x07
};

/// Something of the message that could not be used and was left out; the rest of it stands.
struct SdIssue {
  SdParseError kind;  ///< OPTION_LENGTH_WRONG, OPTION_INDEX_OUT_OF_RANGE or UNKNOWN_ENTRY_TYPE
  std::size_t entry;  ///< index of the entry in the message's entries array (position / 16)
};

/// The payload of one SD message.
struct SdMessage {
  std::uint8_t flags{SD_FLAG_UNICAST};
  std::vector<SdEntry> entries;  ///< the usable entries, in the order of the entries array
  /// What parsing left out, in the order of the entries array: one OPTION_LENGTH_WRONG for an entry
  /// that references an IPv4 option of a wrong length (the entry is kept without that option), one
  /// OPTION_INDEX_OUT_OF_RANGE or UNKNOWN_ENTRY_TYPE for an entry that was dropped. Not encoded.
  std::vector<SdIssue> issues;

  bool reboot() const { return (flags & SD_FLAG_REBOOT) != 0; }
};

KOV_SOMEIP_EXPORT const char* describe(SdParseError error);

/// Decodes the payload of an SD message (what follows the SOME/IP header). Fails, leaving `message`
/// empty, only when the header or the array lengths cannot be trusted: TRUNCATED,
/// ENTRIES_NOT_MULTIPLE_OF_16, ENTRIES_OVERRUN or OPTIONS_OVERRUN (the options array, or one option's
/// length field, reaching past where it must end). Everything else is decided option by option and
/// entry by entry:
/// - options other than IPv4 endpoint and multicast are skipped by their length field and never
///   attached, whether this transport knows their type (configuration, IPv6, SD endpoint, ...) or not;
/// - an IPv4 option whose length field is not 9 is skipped the same way; an entry referencing it keeps
///   its other options and is recorded in `message.issues` as OPTION_LENGTH_WRONG;
/// - an entry of unknown type, or with an option run reaching past the options present, is dropped
///   and recorded as UNKNOWN_ENTRY_TYPE or OPTION_INDEX_OUT_OF_RANGE; the other entries are kept.
KOV_SOMEIP_EXPORT SdParseError parseSdPayload(const std::uint8_t* data, std::size_t size, SdMessage& message);

/// Encodes `message` as an SD payload. An entry's first 15 options go into its first option run, the
/// next 15 into its second; equal runs are written once and shared. What an entry cannot name is left
/// out: options past its 30th, and a run that would start past option index 255 (a message of at most
/// 255 options in all never meets that limit).
KOV_SOMEIP_EXPORT std::vector<std::uint8_t> encodeSdPayload(const SdMessage& message);

}  // namespace kov::platform::networking::someip
