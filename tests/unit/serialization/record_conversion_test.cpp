#include <gtest/gtest.h>

#include <cmath>

#include "wire_bytes.hpp"

namespace {

using namespace kov::test;
using wire::convert;

Lines noSymbol(const std::string& from, std::uint64_t value, const std::string& to) {
  return {"ERROR: cannot convert kov::drivers::lidar::vesk::" + from + " value \"" + std::to_string(value) +
          "\" to kov::drivers::lidar::vesk::" + to + " because target has no symbol for this value"};
}

TEST(RecordConversion, BytesBoundsAndPartialWrites) {
  using Settings = types::DesiredScanSettings;
  using Mode = types::ScanHorizontalInterlaceMode;
  EXPECT_EQ(encode<wire::ScanSettings>(Settings{12.5F, Mode::INTERLACE_8, types::ScanControlLine::LINE_1,
                                                types::ScanFillMode::FILL_ON}),
            (Outcome{true, {0x41, 0x48, 0, 0, 0x08, 0x01, 0x01}, {}}));
  for (const float rate : {1.0F, 30.0F})
    EXPECT_TRUE(std::get<0>(encode<wire::ScanSettings>(Settings{rate, {}, {}, {}}))) << rate;
  for (const auto& [rate, text] : {std::pair{0.999F, "0.999"}, {30.001F, "30.001"}, {NAN, "nan"}}) {
    EXPECT_EQ(
        encode<wire::ScanSettings>(Settings{rate, {}, {}, {}}),
        refused(7, "Scan settings desired frame rate = " + std::string(text) + " Hz: out of range [1;30]"));
  }
  // The control line fails: what came before stays written, what follows is untouched.
  EXPECT_EQ(encode<wire::ScanSettings>(
                Settings{2.0F, Mode::INTERLACE_2, types::ScanControlLine{5}, types::ScanFillMode::FILL_ON}),
            (Outcome{false,
                     {0x40, 0, 0, 0, 0x02, 0xAA, 0xAA},
                     noSymbol("types::ScanControlLine", 5, "serialization::ScanControlLineIndex")}));
  LogCapture log;
  Settings typed{9.0F, {}, types::ScanControlLine::LINE_1, {}};
  EXPECT_FALSE(convert(recordOf<wire::ScanSettings>({0x42, 0xC8, 0, 0, 0x01, 0, 0}), typed));
  EXPECT_EQ(std::pair(typed.frameRate, typed.controlLine), std::pair(100.0F, types::ScanControlLine::LINE_1));
  EXPECT_EQ(log.lines(),
            noSymbol("serialization::ScanHorizontalInterlaceMode", 1, "types::ScanHorizontalInterlaceMode"));
  log.clear();

  EXPECT_EQ(encode<wire::ScanSettingsStatus>(types::AchievedScanSettings{1.5F, -2.0F}),
            (Outcome{true, {0x3F, 0xC0, 0, 0, 0xC0, 0, 0, 0}, {}}));
  for (const auto& [degrees, golden] :
       {std::pair{10.0F, Bytes{0x3E, 0x32, 0xB8, 0xC2}}, {-18.0F, Bytes{0xBE, 0xA0, 0xD9, 0x7C}}}) {
    EXPECT_EQ(encode<wire::ScanDatum>(types::ScanDatum{degrees}), (Outcome{true, golden, {}}));
  }
  // The first floats beyond the bounds print as the bounds in the default format.
  for (const auto& [degrees, text] : {std::pair{std::nextafter(10.0F, 11.0F), "10"},
                                      {std::nextafter(-18.0F, -19.0F), "-18"},
                                      {NAN, "nan"}}) {
    EXPECT_EQ(encode<wire::ScanDatum>(types::ScanDatum{degrees}),
              refused(4, "Scan datum elevation = " + std::string(text) + " degrees: out of range [-18;10]"));
  }
  EXPECT_EQ(encode<wire::DatapathDestinationInfo>(types::DatapathDestinationInfo{"192.0.2.10", 30000}),
            (Outcome{true, {0x75, 0x30, 0xC0, 0x00, 0x02, 0x0A}, {}}));
  types::DatapathDestinationInfo out{"previous", 1};
  ASSERT_TRUE(convert(recordOf<wire::DatapathDestinationInfo>({0xFF, 0xFE, 192, 0, 2, 2}), out));
  EXPECT_TRUE(out.ipAddress == "192.0.2.2" && out.port == 0xFFFE);
  const auto [ok, bytes, lines] =
      encode<wire::DatapathDestinationInfo>(types::DatapathDestinationInfo{"sensor.local", 80});
  EXPECT_TRUE(!ok && bytes == Bytes(6, 0xAA));
  ASSERT_EQ(lines.size(), 1U);  // the address parser's own line only
  EXPECT_EQ(lines[0].find("ERROR: stringToIPAddress - failed to convert IPv4 address (sensor.local)"), 0U);

  // A heartbeat whose status fails still carries its flags and floats.
  types::SensorHealthStatus health{1.0F, -1.0F, 0.5F, types::SystemModeStatus::STANDBY, true, false,
                                   true, false, true};
  Bytes golden{0x07, 1, 0, 1,    0, 1, 0x3F, 0x80, 0,    0,    0xBF,
               0x80, 0, 0, 0x3F, 0, 0, 0,    0xAA, 0xAA, 0xAA, 0xAA};
  EXPECT_EQ(encode<wire::SystemHeartbeatAppRecord>(health), (Outcome{true, golden, {}}));
  health.mode = types::SystemModeStatus::UNKNOWN;
  golden[0] = 0xAA;
  EXPECT_EQ(
      encode<wire::SystemHeartbeatAppRecord>(health),
      (Outcome{false, golden, noSymbol("types::SystemModeStatus", 0, "serialization::SystemModeStatus")}));
}

TEST(SoftwareVersionConversion, TextsBothWaysAndRefusals) {
  using Version = types::SensorSoftwareVersion;
  using Info = wire::SoftwareApplicationInfo;
  const auto field = [](Bytes text) { return text.resize(64, 0), text; };
  const Version typed{"M\xC3\xBCller", std::string(63, 'v'), "\xC3\xBF", ""};
  const Bytes bytes =
      concat({field({0x4D, 0xFC, 0x6C, 0x6C, 0x65, 0x72}), field(Bytes(63, 'v')), field({0xFF}), field({})});
  EXPECT_EQ(encode<Info>(typed), (Outcome{true, bytes, {}}));
  LogCapture log;
  Version back{"x", "", "", ""};  // texts are appended
  ASSERT_TRUE(convert(recordOf<Info>(bytes), back));
  EXPECT_TRUE(back.text1 == "x" + typed.text1 && back.text2 == typed.text2 && back.text3 == typed.text3 &&
              back.text4.empty());
  Version full{};  // a field without NUL reads as 64 characters
  ASSERT_TRUE(convert(recordOf<Info>(Bytes(64, 'z'), 0), full));
  EXPECT_EQ(full.text1, std::string(64, 'z'));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(encode<Info>(Version{"ab\xC3", "", "", ""}),  // an incomplete end is dropped
            (Outcome{true, concat({field({'a', 'b'}), Bytes(192, 0)}), {}}));

  // A refused text stops the record: earlier fields written, the failing one and the rest untouched...
  EXPECT_EQ(
      encode<Info>(Version{"ok", "a\xC4\x80", "c", "d"}),
      (Outcome{false,
               concat({field({'o', 'k'}), Bytes(192, 0xAA)}),
               {"ERROR: string \"a\xC4\x80\" contains characters which cannot be encoded in ISO 8859-1"}}));
  // ...except a text of 64 characters: 63 stored and logged as ISO 8859-1 bytes.
  EXPECT_EQ(
      encode<Info>(Version{"\xC3\xA9" + std::string(63, 'w'), "b", "", ""}),
      (Outcome{false,
               concat({field(concat({{0xE9}, Bytes(62, 'w')})), Bytes(192, 0xAA)}),
               {"ERROR: string too long, would be truncated to \"\xE9" + std::string(62, 'w') + "\""}}));

  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
