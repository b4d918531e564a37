#include "someip/sd_message.hpp"

#include <algorithm>

#include "big_endian.hpp"

namespace kov::platform::networking::someip {

using detail::read16;
using detail::read24;
using detail::read32;
using detail::write16;
using detail::write24;
using detail::write32;

namespace {

constexpr std::size_t SD_HEADER_SIZE = 8;  // flags, reserved, entries array length
constexpr std::uint16_t IPV4_OPTION_LENGTH = 9;
constexpr std::size_t IPV4_OPTION_SIZE = 12;
constexpr std::size_t MAX_RUN_OPTIONS = 15;    // the 4-bit count of one option run
constexpr std::size_t MAX_OPTION_INDEX = 255;  // the 8-bit index of a run's first option

bool isKnownEntryType(std::uint8_t type) {
  return type == 0x00 || type == 0x01 || type == 0x06 || type == 0x07;
}

/// One option of the options array, kept by its index so that entries can name it.
struct OptionSlot {
  enum class State : std::uint8_t {
    SKIPPED,       // a type this transport does not attach (configuration, IPv6, SD endpoint, unknown)
    USABLE,        // an IPv4 endpoint or multicast option, decoded into `option`
    WRONG_LENGTH,  // an IPv4 option whose length field is not 9
  };
  State state{State::SKIPPED};
  SdOption option;
};

/// Splits the options array into slots by their length fields. Fails only when a length field reaches
/// past the array (or too few bytes are left for one): past that point no option can be located.
SdParseError parseOptions(const std::uint8_t* data, std::size_t size, std::vector<OptionSlot>& slots) {
  std::size_t offset = 0;
  while (offset < size) {
    if (size - offset < 3) {
      return SdParseError::OPTIONS_OVERRUN;
    }
    const std::uint16_t length = read16(data + offset);
    const std::uint8_t type = data[offset + 2];
    if (static_cast<std::size_t>(length) + 3 > size - offset) {
      return SdParseError::OPTIONS_OVERRUN;
    }
    OptionSlot slot;
    if (type == static_cast<std::uint8_t>(SdOptionType::IPV4_ENDPOINT) ||
        type == static_cast<std::uint8_t>(SdOptionType::IPV4_MULTICAST)) {
      if (length == IPV4_OPTION_LENGTH) {
        const std::uint8_t* p = data + offset;
        slot.state = OptionSlot::State::USABLE;
        slot.option.type = static_cast<SdOptionType>(type);
        slot.option.address = read32(p + 4);
        slot.option.protocol = p[9];
        slot.option.port = read16(p + 10);
      } else {
        slot.state = OptionSlot::State::WRONG_LENGTH;
      }
    }
    slots.push_back(slot);
    offset += static_cast<std::size_t>(length) + 3;
  }
  return SdParseError::NONE;
}

/// Whether a run of `count` options from index `first` lies within the options array. An empty run
/// names no option, whatever its index.
bool runFits(const std::vector<OptionSlot>& slots, std::size_t first, std::size_t count) {
  return count == 0 || first + count <= slots.size();
}

/// Appends the usable options of a run that fits; true when the run holds an IPv4 option of a wrong
/// length.
bool attachRun(const std::vector<OptionSlot>& slots, std::size_t first, std::size_t count, SdEntry& entry) {
  bool wrongLength = false;
  for (std::size_t i = first; i < first + count; ++i) {
    if (slots[i].state == OptionSlot::State::USABLE) {
      entry.options.push_back(slots[i].option);
    } else if (slots[i].state == OptionSlot::State::WRONG_LENGTH) {
      wrongLength = true;
    }
  }
  return wrongLength;
}

/// Places `count` options from `run` as consecutive options of `options`: an equal run already there is
/// shared, else they are appended. False when the run would start past the last index an entry can
/// name; nothing is appended then.
bool placeRun(std::vector<SdOption>& options, const SdOption* run, std::size_t count, std::uint8_t& index) {
  std::size_t first = options.size();
  for (std::size_t start = 0; start + count <= options.size(); ++start) {
    if (std::equal(run, run + count, options.begin() + static_cast<std::ptrdiff_t>(start))) {
      first = start;
      break;
    }
  }
  if (first > MAX_OPTION_INDEX) {
    return false;
  }
  if (first == options.size()) {
    options.insert(options.end(), run, run + count);
  }
  index = static_cast<std::uint8_t>(first);
  return true;
}

}  // namespace

const char* describe(SdParseError error) {
  switch (error) {
    case SdParseError::NONE:
      return "no error";
    case SdParseError::TRUNCATED:
      return "truncated SD header";
    case SdParseError::ENTRIES_NOT_MULTIPLE_OF_16:
      return "entries array length not a multiple of 16";
    case SdParseError::ENTRIES_OVERRUN:
      return "entries array longer than the message";
    case SdParseError::OPTIONS_OVERRUN:
      return "options array longer than the message";
    case SdParseError::OPTION_LENGTH_WRONG:
      return "IPv4 option with a length other than 9";
    case SdParseError::UNKNOWN_OPTION_TYPE:
      return "unknown option type";
    case SdParseError::OPTION_INDEX_OUT_OF_RANGE:
      return "entry refers to an option that does not exist";
    case SdParseError::UNKNOWN_ENTRY_TYPE:
      return "unknown entry type";
  }
  return "unknown error";
}

SdParseError parseSdPayload(const std::uint8_t* data, std::size_t size, SdMessage& message) {
  message = SdMessage{};
  if (data == nullptr || size < SD_HEADER_SIZE + 4) {
    return SdParseError::TRUNCATED;
  }
  const std::uint32_t entriesLength = read32(data + 4);
  if (entriesLength % SD_ENTRY_SIZE != 0) {
    return SdParseError::ENTRIES_NOT_MULTIPLE_OF_16;
  }
  if (entriesLength > size - SD_HEADER_SIZE - 4) {
    return SdParseError::ENTRIES_OVERRUN;
  }
  const std::uint8_t* entries = data + SD_HEADER_SIZE;
  const std::size_t optionsAt = SD_HEADER_SIZE + entriesLength;
  const std::uint32_t optionsLength = read32(data + optionsAt);
  if (optionsLength > size - optionsAt - 4) {
    return SdParseError::OPTIONS_OVERRUN;
  }
  std::vector<OptionSlot> slots;
  const SdParseError error = parseOptions(data + optionsAt + 4, optionsLength, slots);
  if (error != SdParseError::NONE) {
    return error;
  }

  SdMessage parsed;
  parsed.flags = data[0];
  for (std::size_t at = 0; at < entriesLength; at += SD_ENTRY_SIZE) {
    const std::uint8_t* p = entries + at;
    const std::size_t index = at / SD_ENTRY_SIZE;
    const std::size_t first1 = p[1];
    const std::size_t first2 = p[2];
    const std::size_t count1 = p[3] >> 4;
    const std::size_t count2 = p[3] & 0x0F;
    if (!isKnownEntryType(p[0])) {
      parsed.issues.push_back({SdParseError::UNKNOWN_ENTRY_TYPE, index});
      continue;
    }
    if (!runFits(slots, first1, count1) || !runFits(slots, first2, count2)) {
      parsed.issues.push_back({SdParseError::OPTION_INDEX_OUT_OF_RANGE, index});
      continue;
    }
    SdEntry entry;
    entry.type = static_cast<SdEntryType>(p[0]);
    entry.serviceId = read16(p + 4);
    entry.instanceId = read16(p + 6);
    entry.majorVersion = p[8];
    entry.ttl = read24(p + 9);
    if (entry.isServiceEntry()) {
      entry.minorVersion = read32(p + 12);
    } else {
      entry.counter = p[13] & 0x0F;
      entry.eventgroupId = read16(p + 14);
    }
    const bool wrongLength1 = attachRun(slots, first1, count1, entry);
    const bool wrongLength2 = attachRun(slots, first2, count2, entry);
    if (wrongLength1 || wrongLength2) {
      parsed.issues.push_back({SdParseError::OPTION_LENGTH_WRONG, index});
    }
    parsed.entries.push_back(std::move(entry));
  }
  message = std::move(parsed);
  return SdParseError::NONE;
}

std::vector<std::uint8_t> encodeSdPayload(const SdMessage& message) {
  std::vector<SdOption> options;
  std::vector<std::uint8_t> entryBytes(message.entries.size() * SD_ENTRY_SIZE, 0);
  for (std::size_t i = 0; i < message.entries.size(); ++i) {
    const SdEntry& entry = message.entries[i];
    std::uint8_t* p = entryBytes.data() + i * SD_ENTRY_SIZE;
    p[0] = static_cast<std::uint8_t>(entry.type);
    // Up to 15 options in the first run, the next 15 in the second; an empty run names index 0.
    const std::size_t count1 = std::min(entry.options.size(), MAX_RUN_OPTIONS);
    const std::size_t count2 = std::min(entry.options.size() - count1, MAX_RUN_OPTIONS);
    const bool placed1 = count1 != 0 && placeRun(options, entry.options.data(), count1, p[1]);
    const bool placed2 = count2 != 0 && placeRun(options, entry.options.data() + count1, count2, p[2]);
    p[3] = static_cast<std::uint8_t>(((placed1 ? count1 : 0) << 4) | (placed2 ? count2 : 0));
    write16(p + 4, entry.serviceId);
    write16(p + 6, entry.instanceId);
    p[8] = entry.majorVersion;
    write24(p + 9, entry.ttl & TTL_INFINITE);
    if (entry.isServiceEntry()) {
      write32(p + 12, entry.minorVersion);
    } else {
      p[13] = entry.counter & 0x0F;
      write16(p + 14, entry.eventgroupId);
    }
  }

  std::vector<std::uint8_t> out(SD_HEADER_SIZE + entryBytes.size() + 4 + options.size() * IPV4_OPTION_SIZE,
                                0);
  out[0] = message.flags;
  write32(out.data() + 4, static_cast<std::uint32_t>(entryBytes.size()));
  std::copy(entryBytes.begin(), entryBytes.end(), out.begin() + SD_HEADER_SIZE);
  std::uint8_t* o = out.data() + SD_HEADER_SIZE + entryBytes.size();
  write32(o, static_cast<std::uint32_t>(options.size() * IPV4_OPTION_SIZE));
  o += 4;
  for (const SdOption& option : options) {
    write16(o, IPV4_OPTION_LENGTH);
    o[2] = static_cast<std::uint8_t>(option.type);
    write32(o + 4, option.address);
    o[9] = option.protocol;
    write16(o + 10, option.port);
    o += IPV4_OPTION_SIZE;
  }
  return out;
}

}  // namespace kov::platform::networking::someip
