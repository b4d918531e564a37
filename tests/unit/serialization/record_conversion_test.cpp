#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

#include "support/log_capture.hpp"
#include "wire_bytes.hpp"

namespace {

using namespace kov::test;
using wire::convert;

Lines noSymbol(const std::string& from, std::uint64_t value, const std::string& to) {
  return {"ERROR: cannot convert kov::drivers::lidar::vesk::" + from + " value \"" + std::to_string(value) +
          "\" to kov::drivers::lidar::vesk::" + to + " because target has no symbol for this value"};
}

/// Typed values 0..20 and 0xFFFFFFFF, and every wire byte, against the tables. A refused value logs one
/// line and leaves the target as it was.
template <typename Typed, typename Wire>
void checkTables(const std::string& typed, const std::string& onWire, std::map<std::uint32_t, int> out,
                 std::map<int, std::uint32_t> in) {
  LogCapture log;
  for (std::uint64_t value = 0; value <= 0xFFFFFFFF; value = value == 20 ? 0xFFFFFFFF : value + 1) {
    log.clear();
    auto target = static_cast<Wire>(0xAA);
    const bool known = out.count(static_cast<std::uint32_t>(value)) != 0;
    EXPECT_EQ(convert(static_cast<Typed>(value), target), known) << typed << value;
    EXPECT_EQ(static_cast<int>(target), known ? out[static_cast<std::uint32_t>(value)] : 0xAA) << value;
    EXPECT_EQ(log.lines(), known ? Lines{} : noSymbol(typed, value, onWire));
  }
  for (int byte = 0; byte <= 0xFF; ++byte) {
    log.clear();
    auto target = static_cast<Typed>(0xDEAD);
    const bool known = in.count(byte) != 0;
    EXPECT_EQ(convert(static_cast<Wire>(byte), target), known) << onWire << byte;
    EXPECT_EQ(static_cast<std::uint32_t>(target), known ? in[byte] : 0xDEAD) << onWire << byte;
    EXPECT_EQ(log.lines(), known ? Lines{} : noSymbol(onWire, std::uint64_t(byte), typed));
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
  for (int byte = 0; byte <= 13; ++byte)
    statusIn.emplace(byte, 1);
  checkTables<types::SystemModeStatus, wire::SystemModeStatus>(
      "types::SystemModeStatus", "serialization::SystemModeStatus", {{1, 13}, {2, 7}, {3, 14}}, statusIn);
  checkTables<types::ScanPatternCommandStatus, wire::ScanPatternError>("types::ScanPatternCommandStatus",
                                                                       "serialization::ScanPatternError",
                                                                       {{1, 0}, {2, 1}}, {{0, 1}, {1, 2}});
}

TEST(RecordConversion, BytesBoundsAndPartialWrites) {
  LogCapture log;
  auto record = recordOf<wire::ScanSettings>({});
  ASSERT_TRUE(
      convert(types::DesiredScanSettings{12.5F, types::ScanHorizontalInterlaceMode::INTERLACE_8,
                                         types::ScanControlLine::LINE_1, types::ScanFillMode::FILL_ON},
              record));
  EXPECT_EQ(bytesOf(record), (Bytes{0x41, 0x48, 0, 0, 0x08, 0x01, 0x01}));
  for (const float rate : {1.0F, 30.0F}) {
    types::DesiredScanSettings back{};
    EXPECT_TRUE(convert(types::DesiredScanSettings{rate, {}, {}, {}}, record) && convert(record, back));
    EXPECT_EQ(back.frameRate, rate);
  }
  EXPECT_TRUE(log.lines().empty());
  for (const auto& [rate, text] : {std::pair{0.999F, "0.999"}, {30.001F, "30.001"}, {NAN, "nan"}}) {
    log.clear();
    record = recordOf<wire::ScanSettings>({});
    EXPECT_FALSE(convert(types::DesiredScanSettings{rate, {}, {}, {}}, record));
    EXPECT_EQ(bytesOf(record), Bytes(7, 0xAA));
    EXPECT_EQ(log.lines(), Lines{"ERROR: Scan settings desired frame rate = " + std::string(text) +
                                 " Hz: out of range [1;30]"});
  }
  // The control line fails: what came before stays written, what follows is untouched.
  record = recordOf<wire::ScanSettings>({});
  EXPECT_FALSE(convert(types::DesiredScanSettings{2.0F, types::ScanHorizontalInterlaceMode::INTERLACE_2,
                                                  types::ScanControlLine{5}, types::ScanFillMode::FILL_ON},
                       record));
  EXPECT_EQ(bytesOf(record), (Bytes{0x40, 0, 0, 0, 0x02, 0xAA, 0xAA}));
  types::DesiredScanSettings typed{9.0F, {}, types::ScanControlLine::LINE_1, {}};
  EXPECT_FALSE(convert(recordOf<wire::ScanSettings>({0x42, 0xC8, 0, 0, 0x01, 0, 0}), typed));
  EXPECT_EQ(typed.frameRate, 100.0F);  // taken unchecked
  EXPECT_EQ(typed.controlLine, types::ScanControlLine::LINE_1);

  log.clear();
  wire::ScanSettingsStatus status;
  ASSERT_TRUE(convert(types::AchievedScanSettings{1.5F, -2.0F}, status));
  EXPECT_EQ(bytesOf(status), (Bytes{0x3F, 0xC0, 0, 0, 0xC0, 0, 0, 0}));
  for (const auto& [degrees, golden] :
       {std::pair{10.0F, Bytes{0x3E, 0x32, 0xB8, 0xC2}}, {-18.0F, Bytes{0xBE, 0xA0, 0xD9, 0x7C}}}) {
    wire::ScanDatum datum;
    types::ScanDatum back{};
    ASSERT_TRUE(convert(types::ScanDatum{degrees}, datum) && convert(datum, back));
    EXPECT_EQ(bytesOf(datum), golden);
    EXPECT_NEAR(back.elevation, degrees, 1e-5F);
  }
  auto address = recordOf<wire::DatapathDestinationInfo>({});
  ASSERT_TRUE(convert(types::DatapathDestinationInfo{"192.168.1.10", 30000}, address));
  EXPECT_EQ(bytesOf(address), (Bytes{0x75, 0x30, 0xC0, 0xA8, 0x01, 0x0A}));
  types::DatapathDestinationInfo out{"previous", 1};
  ASSERT_TRUE(convert(recordOf<wire::DatapathDestinationInfo>({0xFF, 0xFE, 10, 0, 0, 2}), out));
  EXPECT_TRUE(out.ipAddress == "10.0.0.2" && out.port == 0xFFFE);
  EXPECT_TRUE(log.lines().empty());

  // The first floats beyond the bounds print as the bounds in the default format.
  for (const auto& [degrees, text] : {std::pair{std::nextafter(10.0F, 11.0F), "10"},
                                      {std::nextafter(-18.0F, -19.0F), "-18"},
                                      {NAN, "nan"}}) {
    log.clear();
    auto datum = recordOf<wire::ScanDatum>({});
    EXPECT_FALSE(convert(types::ScanDatum{degrees}, datum));
    EXPECT_EQ(bytesOf(datum), Bytes(4, 0xAA));
    EXPECT_EQ(log.lines(), Lines{"ERROR: Scan datum elevation = " + std::string(text) +
                                 " degrees: out of range [-18;10]"});
  }
  log.clear();
  address = recordOf<wire::DatapathDestinationInfo>({});
  EXPECT_FALSE(convert(types::DatapathDestinationInfo{"sensor.local", 80}, address));
  EXPECT_EQ(bytesOf(address), Bytes(6, 0xAA));
  ASSERT_EQ(log.lines().size(), 1U);  // the address parser's own line only
  EXPECT_EQ(log.lines()[0].find("ERROR: stringToIPAddress - failed to convert IPv4 address (sensor.local)"),
            0U);
  // A heartbeat whose status fails still carries its flags and floats.
  log.clear();
  types::SensorHealthStatus health{1.0F, -1.0F, 0.5F, types::SystemModeStatus::STANDBY, true, false,
                                   true, false, true};
  const Bytes golden{0x07, 1, 0, 1,    0, 1, 0x3F, 0x80, 0,    0,    0xBF,
                     0x80, 0, 0, 0x3F, 0, 0, 0,    0xAA, 0xAA, 0xAA, 0xAA};
  auto heartbeat = recordOf<wire::SystemHeartbeatAppRecord>({});
  ASSERT_TRUE(convert(health, heartbeat));
  EXPECT_EQ(bytesOf(heartbeat), golden);
  health.mode = types::SystemModeStatus::UNKNOWN;
  heartbeat = recordOf<wire::SystemHeartbeatAppRecord>({});
  EXPECT_FALSE(convert(health, heartbeat));
  Bytes expected = golden;
  expected[0] = 0xAA;
  EXPECT_EQ(bytesOf(heartbeat), expected);
  // Status 15 has no symbol: mode stays; flags (any non-zero byte is true) and floats are read.
  expected[0] = 15;
  std::copy_n(Bytes{0, 2, 0, 1, 0}.begin(), 5, expected.begin() + 1);
  health = {};
  EXPECT_FALSE(convert(recordOf<wire::SystemHeartbeatAppRecord>(expected), health));
  EXPECT_EQ(health.mode, types::SystemModeStatus::UNKNOWN);
  EXPECT_TRUE(!health.flag1 && health.flag2 && !health.flag3 && health.flag4 && !health.flag5);
  EXPECT_TRUE(health.value1 == 1.0F && health.value2 == -1.0F && health.value3 == 0.5F);
  EXPECT_EQ(log.lines(),
            (Lines{noSymbol("types::SystemModeStatus", 0, "serialization::SystemModeStatus")[0],
                   noSymbol("serialization::SystemModeStatus", 15, "types::SystemModeStatus")[0]}));
}

TEST(SoftwareVersionConversion, TextsBothWaysAndRefusals) {
  LogCapture log;
  const auto field = [](Bytes text) { return text.resize(64, 0), text; };
  const types::SensorSoftwareVersion typed{"M\xC3\xBCller", std::string(63, 'v'), "\xC3\xBF", ""};
  auto record = recordOf<wire::SoftwareApplicationInfo>({});
  ASSERT_TRUE(convert(typed, record));
  EXPECT_EQ(bytesOf(record), concat({field({0x4D, 0xFC, 0x6C, 0x6C, 0x65, 0x72}), field(Bytes(63, 'v')),
                                     field({0xFF}), field({})}));
  types::SensorSoftwareVersion back{"x", "", "", ""};  // texts are appended
  ASSERT_TRUE(convert(record, back));
  EXPECT_TRUE(back.text1 == "x" + typed.text1 && back.text2 == typed.text2 && back.text3 == typed.text3 &&
              back.text4.empty());
  types::SensorSoftwareVersion full{};  // a field without NUL reads as 64 characters
  ASSERT_TRUE(convert(recordOf<wire::SoftwareApplicationInfo>(Bytes(64, 'z'), 0), full));
  EXPECT_EQ(full.text1, std::string(64, 'z'));
  ASSERT_TRUE(convert(types::SensorSoftwareVersion{"ab\xC3", "", "", ""}, record));  // incomplete end dropped
  EXPECT_EQ(bytesOf(record), concat({field({'a', 'b'}), Bytes(192, 0)}));
  EXPECT_TRUE(log.lines().empty());

  // A refused text stops the record: earlier fields written, the failing one and the rest untouched...
  record = recordOf<wire::SoftwareApplicationInfo>({});
  EXPECT_FALSE(convert(types::SensorSoftwareVersion{"ok", "a\xC4\x80", "c", "d"}, record));
  EXPECT_EQ(bytesOf(record), concat({field({'o', 'k'}), Bytes(192, 0xAA)}));
  EXPECT_EQ(log.lines(),
            Lines{"ERROR: string \"a\xC4\x80\" contains characters which cannot be encoded in ISO 8859-1"});
  // ...except a text of 64 characters: 63 stored and logged as ISO 8859-1 bytes.
  log.clear();
  record = recordOf<wire::SoftwareApplicationInfo>({});
  EXPECT_FALSE(convert(types::SensorSoftwareVersion{"\xC3\xA9" + std::string(63, 'w'), "b", "", ""}, record));
  EXPECT_EQ(bytesOf(record), concat({field(concat({{0xE9}, Bytes(62, 'w')})), Bytes(192, 0xAA)}));
  EXPECT_EQ(log.lines(),
            Lines{"ERROR: string too long, would be truncated to \"\xE9" + std::string(62, 'w') + "\""});

  // Malformed UTF-8 throws the standard decoder's error, logs nothing and writes nothing.
  log.clear();
  record = recordOf<wire::SoftwareApplicationInfo>({});
  for (const char* bad : {"\xC3\x28", "\x80", "\xC0\xAF", "\xF4\x90\x80\x80"}) {
    EXPECT_THROW(convert(types::SensorSoftwareVersion{bad, "", "", ""}, record), std::range_error) << bad;
  }
  EXPECT_EQ(bytesOf(record), Bytes(256, 0xAA));
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
