// libFuzzer target: the scan pattern decoder over arbitrary 1322-byte records.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "serialization/convert.hpp"

namespace wire = kov::drivers::lidar::vesk::serialization;
namespace types = kov::drivers::lidar::vesk::types;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  wire::ScanPattern record{};
  std::memcpy(static_cast<void*>(&record), data, size < sizeof(record) ? size : sizeof(record));
  types::ScanPattern pattern;
  if (wire::convert(record, pattern)) {
    // Whatever decodes must encode again into the same number of slots, or be refused for range.
    wire::ScanPattern again{};
    if (wire::convert(pattern, again) && again.commandByteSize != record.commandByteSize) {
      std::abort();
    }
  }
  return 0;
}
