#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "serialization/convert.hpp"

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
  for (const auto& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

}  // namespace kov::test
