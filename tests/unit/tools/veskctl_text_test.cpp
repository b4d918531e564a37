// veskctl's text handling: JSON escaping, aligned and JSON result lines, and the command-line parsers.

#include <gtest/gtest.h>

#include <sstream>

#include "operations.hpp"
#include "printer.hpp"

namespace {

using namespace kov::tools::veskctl;

TEST(VeskctlTextTest, JsonOutputEscapesTextAndKeepsNonFiniteNumbersValid) {
  EXPECT_EQ(Printer::quote("a\"b\\c\nd\x01 M\u00fcnchen"), "\"a\\\"b\\\\c\\nd\\u0001 M\u00fcnchen\"");
  std::ostringstream out;
  Printer json(out, true);
  json.result(0x10, "getX", true,
              {{"rate", "20", false}, {"bad", "nan", false}, {"inf", "-inf", false}, {"name", "7", true}});
  json.result(0x11, "getY", false, {{"rate", "20", false}});
  EXPECT_EQ(out.str(),
            "{\"type\":\"result\",\"sensor\":16,\"sensorHex\":\"0x0010\",\"operation\":\"getX\",\"ok\":true,"
            "\"value\":{\"rate\":20,\"bad\":\"nan\",\"inf\":\"-inf\",\"name\":\"7\"}}\n"
            "{\"type\":\"result\",\"sensor\":17,\"sensorHex\":\"0x0011\",\"operation\":\"getY\",\"ok\":false,"
            "\"value\":{}}\n");

  std::ostringstream text;
  Printer people(text, false);
  people.result(0x10, "setScanDatum", true, {{"elevation", "-5.5", false}, {"note", "two words", true}});
  people.result(0x10, "getScanDatum", false, {{"elevation", "1", false}});
  EXPECT_EQ(text.str(),
            "  sensor 0x0010  setScanDatum                  ok      elevation=-5.5  note=\"two words\"\n"
            "  sensor 0x0010  getScanDatum                  FAILED\n");
}

TEST(VeskctlTextTest, ParsesPatternsAndDestinationsAndRefusesMalformedOnes) {
  types::ScanPattern pattern;
  std::string error;
  ASSERT_TRUE(parseScanPattern("point:-30:2.5:7,snap,minlines:16,point:1:2", pattern, error)) << error;
  ASSERT_EQ(pattern.commands.size(), 4U);
  const auto* point = dynamic_cast<const types::ScanPattern::PointCommand*>(pattern.commands[0].get());
  ASSERT_NE(point, nullptr);
  EXPECT_EQ(point->azimuth, -30.0F);
  EXPECT_EQ(point->elevation, 2.5F);
  EXPECT_EQ(point->attribute, 7);
  EXPECT_EQ(pattern.commands[1]->getId(), 1);
  const auto* lines = dynamic_cast<const types::ScanPattern::MinLinesCommand*>(pattern.commands[2].get());
  ASSERT_NE(lines, nullptr);
  EXPECT_EQ(lines->minLines, 16.0F);
  for (const std::string bad : {"spiral", "point:1", "point:1:2:300", "minlines:x", "snap:1", "point:1:2x"}) {
    EXPECT_FALSE(parseScanPattern(bad, pattern, error)) << bad;
  }
  EXPECT_EQ(error, "bad scan pattern command \"point:1:2x\" (use point:AZ:EL[:ATTR], snap or minlines:N)");

  types::DatapathDestinationInfo destination;
  ASSERT_TRUE(parseDestination("10.1.2.3:4000", destination, error));
  EXPECT_EQ(destination.ipAddress, "10.1.2.3");
  EXPECT_EQ(destination.port, 4000);
  for (const std::string bad : {"10.1.2.3", "10.1.2.3:70000", "10.1.2.3:-1", "10.1.2.3:1.5", "host:"}) {
    EXPECT_FALSE(parseDestination(bad, destination, error)) << bad;
  }
}

}  // namespace
