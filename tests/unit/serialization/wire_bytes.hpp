#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "serialization/convert.hpp"
#include "support/log_capture.hpp"

namespace kov::test {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

template <typename Record>
Bytes bytesOf(const Record& record) {
  Bytes bytes(sizeof(Record));
  std::memcpy(bytes.data(), static_cast<const void*>(&record), sizeof(Record));
  return bytes;
}

/// A record made of bytes, padded with fill (0xAA shows which bytes a conversion writes).
template <typename Record>
Record recordOf(Bytes bytes, std::uint8_t fill = 0xAA) {
  bytes.resize(sizeof(Record), fill);
  Record record;
  std::memcpy(static_cast<void*>(&record), bytes.data(), sizeof(Record));
  return record;
}

inline Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const auto& part : parts)
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

/// What one conversion into a record did: its result, the record's bytes afterwards and the lines logged.
using Outcome = std::tuple<bool, Bytes, Lines>;

/// A refusal that logged `error` and left every byte of the record (0xAA) untouched.
inline Outcome refused(std::size_t size, const std::string& error) {
  return {false, Bytes(size, 0xAA), {"ERROR: " + error}};
}

/// Converts `from` into a record that starts as `initial` padded with 0xAA.
template <typename Record, typename From>
Outcome encode(const From& from, Bytes initial = {}) {
  const LogCapture log;
  auto record = recordOf<Record>(std::move(initial));
  const bool ok = wire::convert(from, record);
  return {ok, bytesOf(record), log.lines()};
}

}  // namespace kov::test
