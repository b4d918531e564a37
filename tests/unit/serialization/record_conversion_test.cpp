#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "serialization/convert.hpp"
#include "support/log_capture.hpp"
#include "wire_bytes.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;
using kov::test::Bytes;
using kov::test::bytesOf;
using kov::test::Lines;
using kov::test::recordOf;
using wire::convert;

TEST(RecordConversion, ScanSettingsBytesBoundsAndPartialWrites) {
  kov::test::LogCapture log;
  EXPECT_EQ(bytesOf(wire::ScanSettings{}), (Bytes{0x41, 0x20, 0, 0, 0, 0, 0}));  // 10 Hz by default
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
}

TEST(RecordConversion, AchievedSettingsAndScanDatum) {
  kov::test::LogCapture log;
  wire::ScanSettingsStatus status;
  ASSERT_TRUE(convert(types::AchievedScanSettings{1.5F, -2.0F}, status));
  EXPECT_EQ(bytesOf(status), (Bytes{0x3F, 0xC0, 0, 0, 0xC0, 0, 0, 0}));

  wire::ScanDatum datum;
  types::ScanDatum back{};
  ASSERT_TRUE(convert(types::ScanDatum{10.0F}, datum));
  EXPECT_EQ(bytesOf(datum), (Bytes{0x3E, 0x32, 0xB8, 0xC2}));
  ASSERT_TRUE(convert(types::ScanDatum{-18.0F}, datum) && convert(datum, back));
  EXPECT_EQ(bytesOf(datum), (Bytes{0xBE, 0xA0, 0xD9, 0x7C}));
  EXPECT_NEAR(back.elevation, -18.0F, 1e-5F);
  EXPECT_TRUE(log.lines().empty());

  // The first floats beyond the bounds print as the bounds in the default format.
  for (const auto& [degrees, text] : {std::pair{std::nextafter(10.0F, 11.0F), "10"},
                                      {std::nextafter(-18.0F, -19.0F), "-18"},
                                      {NAN, "nan"}}) {
    log.clear();
    datum = recordOf<wire::ScanDatum>({});
    EXPECT_FALSE(convert(types::ScanDatum{degrees}, datum));
    EXPECT_EQ(bytesOf(datum), Bytes(4, 0xAA));
    EXPECT_EQ(log.lines(), Lines{"ERROR: Scan datum elevation = " + std::string(text) +
                                 " degrees: out of range [-18;10]"});
  }
}

TEST(RecordConversion, HeartbeatStatusFailureStillCarriesFlagsAndFloats) {
  kov::test::LogCapture log;
  types::SensorHealthStatus typed{1.0F, -1.0F, 0.5F, types::SystemModeStatus::STANDBY, true, false,
                                  true, false, true};
  const Bytes golden{0x07, 1, 0, 1,    0, 1, 0x3F, 0x80, 0,    0,    0xBF,
                     0x80, 0, 0, 0x3F, 0, 0, 0,    0xAA, 0xAA, 0xAA, 0xAA};
  auto record = recordOf<wire::SystemHeartbeatAppRecord>({});
  ASSERT_TRUE(convert(typed, record));
  EXPECT_EQ(bytesOf(record), golden);

  typed.mode = types::SystemModeStatus::UNKNOWN;
  record = recordOf<wire::SystemHeartbeatAppRecord>({});
  EXPECT_FALSE(convert(typed, record));
  Bytes expected = golden;
  expected[0] = 0xAA;
  EXPECT_EQ(bytesOf(record), expected);
  EXPECT_EQ(log.lines().size(), 1U);

  // Status 15 has no symbol: mode stays; flags (any non-zero byte is true) and floats are read.
  expected[0] = 15;
  std::copy_n(Bytes{0, 2, 0, 1, 0}.begin(), 5, expected.begin() + 1);
  types::SensorHealthStatus out{};
  EXPECT_FALSE(convert(recordOf<wire::SystemHeartbeatAppRecord>(expected), out));
  EXPECT_EQ(out.mode, types::SystemModeStatus::UNKNOWN);
  EXPECT_TRUE(!out.flag1 && out.flag2 && !out.flag3 && out.flag4 && !out.flag5);
  EXPECT_TRUE(out.value1 == 1.0F && out.value2 == -1.0F && out.value3 == 0.5F);
  EXPECT_EQ(log.lines().size(), 2U);
}

TEST(RecordConversion, DatapathDestination) {
  kov::test::LogCapture log;
  auto record = recordOf<wire::DatapathDestinationInfo>({});
  ASSERT_TRUE(convert(types::DatapathDestinationInfo{"192.168.1.10", 30000}, record));
  EXPECT_EQ(bytesOf(record), (Bytes{0x75, 0x30, 0xC0, 0xA8, 0x01, 0x0A}));
  types::DatapathDestinationInfo out{"previous", 1};
  ASSERT_TRUE(convert(recordOf<wire::DatapathDestinationInfo>({0xFF, 0xFE, 10, 0, 0, 2}), out));
  EXPECT_EQ(out.ipAddress, "10.0.0.2");
  EXPECT_EQ(out.port, 0xFFFE);
  EXPECT_TRUE(log.lines().empty());

  record = recordOf<wire::DatapathDestinationInfo>({});
  EXPECT_FALSE(convert(types::DatapathDestinationInfo{"sensor.local", 80}, record));
  EXPECT_EQ(bytesOf(record), Bytes(6, 0xAA));
  ASSERT_EQ(log.lines().size(), 1U);  // the address parser's own line only
  EXPECT_EQ(log.lines()[0].find("ERROR: stringToIPAddress - failed to convert IPv4 address (sensor.local)"),
            0U);
}

}  // namespace
