#include <gtest/gtest.h>

#include <cmath>

#include "wire_bytes.hpp"

namespace {

using namespace kov::test;
using wire::convert;
using Point = types::ScanPattern::PointCommand;
using Snap = types::ScanPattern::SnapCommand;
using MinLines = types::ScanPattern::MinLinesCommand;
class DerivedSnap : public Snap {};  // a command type the codec does not know

const Bytes POINT{0x01, 0x00, 0x0C, 0x3F, 0xC9, 0x0F, 0xDB, 0xBE, 0xA0, 0xD9, 0x7C, 0x7F, 0, 0, 0};
const Bytes SNAP{0x02, 0x00, 0x0C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes MIN_LINES{0x03, 0x00, 0x0C, 0x40, 0x20, 0x00, 0x00, 0, 0, 0, 0, 0, 0, 0, 0};

template <typename... Commands>
types::ScanPattern patternOf(Commands... commands) {
  types::ScanPattern pattern;
  (pattern.commands.push_back(std::make_unique<Commands>(commands)), ...);
  return pattern;
}

wire::ScanPattern recordWith(std::uint16_t size, const Bytes& slots) {
  return recordOf<wire::ScanPattern>(concat({{std::uint8_t(size >> 8), std::uint8_t(size)}, slots}), 0);
}

TEST(ScanPatternCodec, WireBytesRoundTripAndRefusals) {
  const Bytes three = bytesOf(recordWith(45, concat({POINT, SNAP, MIN_LINES})));
  EXPECT_EQ(encode<wire::ScanPattern>(patternOf(Point(90.0F, -18.0F, 0x7F), Snap(), MinLines(2.5F))),
            (Outcome{true, three, {}}));
  // Decoding replaces what the target held; a copy (clone) encodes to the same bytes.
  LogCapture log;
  types::ScanPattern decoded = patternOf(Snap());
  ASSERT_TRUE(convert(recordOf<wire::ScanPattern>(three), decoded));
  EXPECT_EQ(encode<wire::ScanPattern>(types::ScanPattern(decoded)), (Outcome{true, three, {}}));

  types::ScanPattern full;  // 88 commands, bounds included
  for (int i = 0; i < 88; ++i) {
    const float azimuth = -90.0F + 180.0F * static_cast<float>(i) / 87.0F;
    full.commands.push_back(
        std::make_unique<Point>(i == 87 ? 90.0F : azimuth, -18.0F + 4.0F * static_cast<float>(i % 8), i));
  }
  auto record = recordOf<wire::ScanPattern>({});
  ASSERT_TRUE(convert(full, record) && convert(record, decoded));
  EXPECT_EQ(decoded.commands.size(), 88U);  // and they encode to the same bytes again
  EXPECT_EQ(encode<wire::ScanPattern>(decoded), (Outcome{true, bytesOf(record), {}}));
  EXPECT_EQ(encode<wire::ScanPattern>(types::ScanPattern{}), (Outcome{true, Bytes(1322, 0), {}}));
  ASSERT_TRUE(convert(recordOf<wire::ScanPattern>({}, 0), decoded));
  EXPECT_TRUE(decoded.commands.empty());
  EXPECT_TRUE(log.lines().empty());

  types::ScanPattern tooMany;
  tooMany.commands.resize(89);
  EXPECT_EQ(encode<wire::ScanPattern>(tooMany),
            refused(1322, "Too many scan pattern commands (89). Maximum number of commands: 88"));
  const std::string point = "Scan pattern point command ",
                    internal = "Internal error extracting scan pattern commands";
  std::vector<std::pair<types::ScanPattern, std::string>> cases;
  cases.emplace_back(patternOf(Snap(), MinLines(2.5F), Point(std::nextafter(90.0F, 91.0F), 0, 0)),
                     point + "azimuth = 90 degrees: out of range [-90;90]");
  cases.emplace_back(patternOf(Snap(), MinLines(2.5F), Point(NAN, 0, 0)),
                     point + "azimuth = nan degrees: out of range [-90;90]");
  cases.emplace_back(patternOf(Snap(), MinLines(2.5F), Point(0, std::nextafter(-18.0F, -19.0F), 0)),
                     point + "elevation = -18 degrees: out of range [-18;10]");
  cases.emplace_back(patternOf(Snap(), MinLines(2.5F), DerivedSnap()), internal);
  cases.emplace_back(patternOf(Snap(), MinLines(2.5F), Snap()), internal);
  cases.back().first.commands[2].reset();
  for (const auto& [pattern, message] : cases) {
    // Size untouched; command area zeroed, holding the slots before the failing one.
    EXPECT_EQ(
        encode<wire::ScanPattern>(pattern),
        (Outcome{false, concat({{0xAA, 0xAA}, SNAP, MIN_LINES, Bytes(1290, 0)}), {"ERROR: " + message}}));
  }

  const std::string corrupt = "ERROR: Corrupt scan pattern packet. Command byte size (";
  for (const auto& [size, text] : {std::pair{1321, ") gives more than maxium number of commands."},
                                   {14, ") gives a fractional number of commands."}}) {
    log.clear();
    auto target = patternOf(MinLines(7.0F));
    EXPECT_FALSE(convert(recordWith(static_cast<std::uint16_t>(size), SNAP), target));
    EXPECT_EQ(dynamic_cast<const MinLines&>(*target.commands.at(0)).minLines, 7.0F);
    EXPECT_EQ(log.lines(), Lines{corrupt + std::to_string(size) + text});
  }
  // A bad type byte (4): the target was cleared and keeps the commands before the bad slot.
  log.clear();
  Bytes bad = SNAP;
  bad[0] = 4;
  auto target = patternOf(MinLines(7.0F));
  EXPECT_FALSE(convert(recordWith(45, concat({MIN_LINES, SNAP, bad})), target));
  EXPECT_EQ(target.commands.size(), 2U);
  EXPECT_EQ(
      log.lines(),
      Lines{"ERROR: const kov::drivers::lidar::vesk::serialization::ScanPatternCmdType value \"4\" is not "
            "a valid command"});
}

}  // namespace
