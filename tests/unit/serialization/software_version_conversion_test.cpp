#include <gtest/gtest.h>

#include <stdexcept>

#include "serialization/convert.hpp"
#include "support/log_capture.hpp"
#include "wire_bytes.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;
using kov::test::Bytes;
using kov::test::bytesOf;
using kov::test::concat;
using kov::test::Lines;
using kov::test::recordOf;
using wire::convert;

Bytes field(Bytes text, std::uint8_t fill = 0) {
  text.resize(64, fill);
  return text;
}

TEST(SoftwareVersionConversion, TextsBothWays) {
  kov::test::LogCapture log;
  const types::SensorSoftwareVersion typed{"M\xC3\xBCller", std::string(63, 'v'), "\xC3\xBF", ""};
  auto record = recordOf<wire::SoftwareApplicationInfo>({});
  ASSERT_TRUE(convert(typed, record));
  EXPECT_EQ(bytesOf(record), concat({field({0x4D, 0xFC, 0x6C, 0x6C, 0x65, 0x72}), field(Bytes(63, 'v')),
                                     field({0xFF}), field({})}));
  types::SensorSoftwareVersion back{"x", "", "", ""};  // texts are appended
  ASSERT_TRUE(convert(record, back));
  EXPECT_TRUE(back.text1 == "x" + typed.text1 && back.text2 == typed.text2 && back.text3 == typed.text3 &&
              back.text4.empty());
  // A field without NUL reads as 64 characters.
  types::SensorSoftwareVersion full{};
  ASSERT_TRUE(convert(recordOf<wire::SoftwareApplicationInfo>(Bytes(64, 'z'), 0), full));
  EXPECT_EQ(full.text1, std::string(64, 'z'));
  // An incomplete sequence at the very end is dropped.
  ASSERT_TRUE(convert(types::SensorSoftwareVersion{"ab\xC3", "", "", ""}, record));
  EXPECT_EQ(bytesOf(record), concat({field({'a', 'b'}), Bytes(192, 0)}));
  EXPECT_TRUE(log.lines().empty());
}

TEST(SoftwareVersionConversion, RefusedTextsStopTheRecord) {
  kov::test::LogCapture log;
  auto record = recordOf<wire::SoftwareApplicationInfo>({});
  EXPECT_FALSE(convert(types::SensorSoftwareVersion{"ok", "a\xE2\x82\xAC", "c", "d"}, record));
  EXPECT_EQ(bytesOf(record), concat({field({'o', 'k'}), Bytes(192, 0xAA)}));
  EXPECT_EQ(
      log.lines(),
      Lines{"ERROR: string \"a\xE2\x82\xAC\" contains characters which cannot be encoded in ISO 8859-1"});

  // 64 characters: 63 stored and logged as ISO 8859-1 bytes.
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
    EXPECT_THROW(
        try {
          convert(types::SensorSoftwareVersion{bad, "", "", ""}, record);
        } catch (const std::range_error& e) {
          EXPECT_STREQ(e.what(), "wstring_convert::from_bytes");
          throw;
        },
        std::range_error);
  }
  EXPECT_EQ(bytesOf(record), Bytes(256, 0xAA));
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
