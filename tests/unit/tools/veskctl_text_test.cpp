// veskctl's text handling: JSON escaping, result lines, the command-line parsers, failure reasons and
// the meanings of the transports' call results.

#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <thread>
#include <tuple>

#include "common/log/log.hpp"
#include "common/log/stream_logger.hpp"
#include "failure_reasons.hpp"
#include "operations.hpp"
#include "printer.hpp"
#include "record_fields.hpp"
#include "result_texts.hpp"
#include "support/log_capture.hpp"
#include "value_parsers.hpp"

namespace {

using namespace kov::tools::veskctl;

TEST(VeskctlTextTest, JsonOutputEscapesTextAndKeepsNonFiniteNumbersValid) {
  EXPECT_EQ(Printer::quote("a\"b\\c\nd\x01\x1f M\u00fcnchen"),
            "\"a\\\"b\\\\c\\nd\\u0001\\u001f M\u00fcnchen\"");
  std::ostringstream out;
  Printer json(out, true);
  json.result(0x10, "getX", true,
              {{"rate", "20", false}, {"bad", "nan", false}, {"inf", "-inf", false}, {"name", "7", true}});
  EXPECT_EQ(out.str(),
            "{\"type\":\"result\",\"sensor\":16,\"sensorHex\":\"0x0010\",\"operation\":\"getX\",\"ok\":true,"
            "\"value\":{\"rate\":20,\"bad\":\"nan\",\"inf\":\"-inf\",\"name\":\"7\"}}\n");
}

/// What `parse` makes of each text, "-" for a refusal, each followed by a space.
template <typename Parse>
std::string readings(Parse parse, const std::vector<std::string>& texts) {
  std::ostringstream out;
  for (const auto& text : texts) {
    const auto value = parse(text);
    value ? out << *value << ' ' : out << "- ";
  }
  return out.str();
}

TEST(VeskctlTextTest, ParsersReadStrictlyAndNameEveryValue) {
  std::string names;
  for (int mode = 0; mode <= 4; ++mode) {
    names += nameOf(static_cast<types::ScanHorizontalInterlaceMode>(mode)) + " ";
  }
  EXPECT_EQ(names, "NONE INTERLACE_2 INTERLACE_3 INTERLACE_4 INTERLACE_8 ");

  types::ScanPattern pattern;
  std::string error;
  ASSERT_TRUE(parseScanPattern("point:-30:2.5:7,snap,minlines:16,point:1:2", pattern, error)) << error;
  const auto fields = fieldsOf(pattern);
  EXPECT_EQ(fields.at(0).text + " " + fields.at(1).text, "4 point:-30:2.5:7,snap,minlines:16,point:1:2:0");
  for (const std::string bad :
       {"spiral", "point:1", "point:1:2:300", "minlines:x", "snap:1", "point:1:2x", "point:91:0",
        "point:0:-18.5", "point:nan:0", "minlines:inf", "point:1:2:1.5"}) {
    EXPECT_FALSE(parseScanPattern(bad, pattern, error)) << bad;
  }
  EXPECT_EQ(error,
            "--pattern: bad command \"point:1:2:1.5\" (use point:AZ:EL[:ATTR] with ATTR 0 to 255, snap or "
            "minlines:N)");
  std::string longest = "snap";
  for (int i = 1; i < 89; ++i) {
    longest += ",snap";
  }
  EXPECT_FALSE(parseScanPattern(longest, pattern, error));
  EXPECT_EQ(error, "--pattern: 89 commands, at most 88 fit into one scan pattern");

  EXPECT_EQ(readings(parseDecimal, {"20", "-5.5", "+.5", "7.", "1e3", "nan", "inf", "", "-", "0x10", " 1",
                                    std::string(33, '1')}),
            "20 -5.5 0.5 7 - - - - - - - - ");
  EXPECT_EQ(readings(parseDottedQuad, {"0.0.0.0", "255.255.255.255", "192.0.2.3", "192.0.2.004", "192.0.2",
                                       "10", "192.0.2.256", "192.0.2.4.5", "192..2.4", "192.0.2.-4",
                                       "0xC0.0.2.4", "192.0.2.4 ", "1920.0.2.4"}),
            "0.0.0.0 255.255.255.255 192.0.2.3 192.0.2.004 - - - - - - - - - ");
  EXPECT_EQ(readings(parsePort, {"1", "65535", "0", "65536", "1e3", "-1", "+80", "80.0", "", "123456"}),
            "1 65535 - - - - - - - - ");
  EXPECT_EQ(readings(parseSensorId,
                     {"16", "0x10", "0X1a", "65534", "0xffff", "65535", "010", "0x", "0x10000", "-1", "ten"}),
            "16 16 26 65534 - - 10 - - - - ");
  EXPECT_EQ(readings(hexReadingOf, {"10", "0x10", "ffff"}), "16 - - ");
}

TEST(VeskctlTextTest, FailureReasonsKeepTheCallingThreadsWarningsAndErrors) {
  auto output = std::make_shared<kov::common::log::StringLogger>();
  auto reasons = std::make_shared<FailureReasons>(output);
  reasons->setDiscardLevel(kov::common::log::LogLevel::FATAL);  // nothing reaches the output
  const kov::test::LoggerScope scope(reasons);

  FailureReasons::clear();
  KOV_LOG(INFO, "test") << "not a reason";
  KOV_LOG(WARN, "test") << "first " << 1;
  std::thread([] { KOV_LOG(ERROR, "test") << "another thread's"; }).join();
  KOV_LOG(ERROR, "test") << "second";
  EXPECT_EQ(FailureReasons::take(), "first 1; second");
  EXPECT_EQ(FailureReasons::take(), "");
  EXPECT_EQ(output->getString(), "");
}

TEST(VeskctlTextTest, CallResultsAreExplainedByTheTableOfTheTransportInUse) {
  using Result = kov::platform::networking::ISomeIpTransport::Result;
  std::string texts;
  for (const int code : {8, 0x100, 0x10a, 0x10b, 0x15e, 0x15f, 0x20}) {
    texts += explainCallResult(TransportKind::SomeIp, static_cast<Result>(code)) + "\n";
  }
  for (const int code : {5, 9}) {
    texts += explainCallResult(TransportKind::Simulator, static_cast<Result>(code)) + "\n";
  }
  EXPECT_EQ(
      texts,
      "SOME/IP transport result 0x8: the service instance went away while the call waited for its "
      "response: StopOffer, TTL expiry or a reboot of its peer\n"
      "SOME/IP transport result 0x100: not among the SOME/IP transport's documented results\n"
      "SOME/IP transport result 0x10a: the sensor answered with SOME/IP return code 0x0a "
      "E_WRONG_MESSAGE_TYPE\n"
      "SOME/IP transport result 0x10b: the sensor answered with SOME/IP return code 0x0b, which SOME/IP "
      "reserves\n"
      "SOME/IP transport result 0x15e: the sensor answered with SOME/IP return code 0x5e, service "
      "specific: the sensor refused the request\n"
      "SOME/IP transport result 0x15f: the sensor answered with SOME/IP return code 0x5f, which SOME/IP "
      "reserves\n"
      "SOME/IP transport result 0x20: not among the SOME/IP transport's documented results\n"
      "simulator result 0x5: not among the simulator's documented results\n"
      "simulator result 0x9: the request or response size does not match the method's record\n");
}

}  // namespace
