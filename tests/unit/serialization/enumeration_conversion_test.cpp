#include <gtest/gtest.h>

#include <map>

#include "serialization/convert.hpp"
#include "support/log_capture.hpp"
#include "wire_bytes.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;

std::string noSymbol(const std::string& from, std::uint64_t value, const std::string& to) {
  return "ERROR: cannot convert kov::drivers::lidar::vesk::" + from + " value \"" + std::to_string(value) +
         "\" to kov::drivers::lidar::vesk::" + to + " because target has no symbol for this value";
}

/// Typed values 0..20 and 0xFFFFFFFF, and every wire byte, against the tables. A refused value logs one
/// line and leaves the target as it was.
template <typename Typed, typename Wire>
void checkTables(const std::string& name, const std::string& wireName, std::map<std::uint32_t, int> out,
                 std::map<int, std::uint32_t> in) {
  kov::test::LogCapture log;
  for (std::uint64_t value = 0; value <= 0xFFFFFFFF; value = value == 20 ? 0xFFFFFFFF : value + 1) {
    log.clear();
    auto target = static_cast<Wire>(0xAA);
    const bool known = out.count(static_cast<std::uint32_t>(value)) != 0;
    EXPECT_EQ(wire::convert(static_cast<Typed>(value), target), known) << name << value;
    EXPECT_EQ(static_cast<int>(target), known ? out[static_cast<std::uint32_t>(value)] : 0xAA)
        << name << value;
    EXPECT_EQ(log.lines(), known ? kov::test::Lines{} : kov::test::Lines{noSymbol(name, value, wireName)});
  }
  for (int byte = 0; byte <= 0xFF; ++byte) {
    log.clear();
    auto target = static_cast<Typed>(0xDEAD);
    const bool known = in.count(byte) != 0;
    EXPECT_EQ(wire::convert(static_cast<Wire>(byte), target), known) << wireName << byte;
    EXPECT_EQ(static_cast<std::uint32_t>(target), known ? in[byte] : 0xDEAD) << wireName << byte;
    EXPECT_EQ(log.lines(),
              known ? kov::test::Lines{} : kov::test::Lines{noSymbol(wireName, std::uint64_t(byte), name)});
  }
}

TEST(EnumerationConversion, TablesBothWays) {
  checkTables<types::ScanHorizontalInterlaceMode, wire::ScanHorizontalInterlaceMode>(
      "types::ScanHorizontalInterlaceMode", "serialization::ScanHorizontalInterlaceMode",
      {{0, 0}, {1, 2}, {2, 3}, {3, 4}, {4, 8}}, {{0, 0}, {2, 1}, {3, 2}, {4, 3}, {8, 4}});
  checkTables<types::ScanControlLine, wire::ScanControlLineIndex>(
      "types::ScanControlLine", "serialization::ScanControlLineIndex", {{0, 0}, {1, 1}}, {{0, 0}, {1, 1}});
  checkTables<types::ScanFillMode, wire::ScanFillMode>("types::ScanFillMode", "serialization::ScanFillMode",
                                                       {{0, 0}, {1, 1}}, {{0, 0}, {1, 1}});
  checkTables<types::SystemModeCommand, wire::SystemModeCommand>(
      "types::SystemModeCommand", "serialization::SystemModeCommand", {{0, 0}, {1, 1}, {2, 2}},
      {{0, 0}, {1, 1}, {2, 2}});
  // Every status byte up to 13 except 7 reads as 1; 1 is written as 13.
  std::map<int, std::uint32_t> statusIn{{7, 2}, {14, 3}};
  for (int byte = 0; byte <= 13; ++byte) {
    statusIn.emplace(byte, 1);
  }
  checkTables<types::SystemModeStatus, wire::SystemModeStatus>(
      "types::SystemModeStatus", "serialization::SystemModeStatus", {{1, 13}, {2, 7}, {3, 14}}, statusIn);
  checkTables<types::ScanPatternCommandStatus, wire::ScanPatternError>("types::ScanPatternCommandStatus",
                                                                       "serialization::ScanPatternError",
                                                                       {{1, 0}, {2, 1}}, {{0, 1}, {1, 2}});
}

}  // namespace
