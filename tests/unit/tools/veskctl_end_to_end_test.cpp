// Runs the veskctl binary against its simulated fleet and checks its exit status and output.

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Run {
  int status;
  std::string out;
  std::string err;
};

std::string slurp(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  std::remove(path.c_str());
  return text.str();
}

/// Runs veskctl with `arguments` (separated by spaces), killed after 60 s (status then is not 0 to 4).
Run runVeskctl(const std::string& arguments) {
  static int runs = 0;
  const std::string base =
      ::testing::TempDir() + "veskctl-" + std::to_string(getpid()) + "-" + std::to_string(++runs);
  std::string command = "timeout -s KILL 60 '" VESKCTL_PATH "'";
  std::istringstream words(arguments);
  for (std::string argument; words >> argument;) {
    command += " '" + argument + "'";
  }
  const int status = std::system((command + " >" + base + ".out 2>" + base + ".err").c_str());
  Run run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(base + ".out"), slurp(base + ".err")};
  EXPECT_EQ(run.err.find("Sanitizer"), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("runtime error"), std::string::npos) << run.err;
  // stderr is a file here, not a terminal: no colour codes.
  EXPECT_EQ(run.err.find('\033'), std::string::npos) << run.err;
  return run;
}

std::size_t count(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  return static_cast<std::size_t>(
      std::distance(std::sregex_iterator(text.begin(), text.end(), expression), std::sregex_iterator()));
}

/// `text` as a regular expression that matches only itself.
std::string lit(const std::string& text) {
  return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

TEST(VeskctlEndToEndTest, DemoDiscoversThreeSensorsCallsEverythingAndSeesEventsChange) {
  const auto run = runVeskctl("demo");
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  for (const std::string sensor : {"sensor 0x0010  ", "sensor 0x0011  ", "sensor 0x0012  "}) {
    EXPECT_EQ(count(run.out, sensor + "service 0x000[234]  available\n"), 3U) << sensor;
    for (const std::string operation :
         {"getSystemModeStatus", "getAchievedScanSettings", "getScanPatternCommandStatus",
          "getSensorSoftwareVersion", "setDesiredScanSettings", "setScanDatum", "setScanPattern",
          "setDatapathDestinationInfo", "setSystemMode", "getDesiredScanSettings +ok +frameRate=10  ",
          "setScanPattern +ok +commands=4  pattern=point:-30:2\\.5:1,snap,minlines:16,point:30:-2\\.5:1\n",
          "getDesiredScanSettings +ok +frameRate=20  ",
          "getDatapathDestinationInfo +ok +ipAddress=192\\.168\\."}) {
      EXPECT_EQ(
          count(run.out, sensor + operation + (operation.find(' ') == std::string::npos ? " +ok " : "")), 1U)
          << sensor << operation;
    }
    EXPECT_EQ(count(run.out, sensor + "event systemModeStatus +mode=INITIALIZING[^]*" + sensor +
                                 "event systemModeStatus +mode=STANDBY[^]*" + sensor +
                                 "event systemModeStatus +mode=SCANNING"),
              1U);
    EXPECT_EQ(count(run.out, sensor + "service 0x000[234]  unavailable\n"), 3U);
  }
  EXPECT_NE(run.out.find("text4=\"serial VSK-0011 \u00b7 M\u00fcnchen\""), std::string::npos);
  EXPECT_EQ(count(run.out, "demo finished: 3 sensors, 45 of 45 calls succeeded\n"), 1U) << run.out;
}

TEST(VeskctlEndToEndTest, DemoReportsEveryInjectedFaultWithTheLibrarysLineAndGoesOn) {
  const auto run = runVeskctl("--json --log-level debug --sensors 2 demo --fault all");
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(count(run.out, "(^|\n)[^{]|[^}]\n"), 0U) << "a line that is not a JSON object:\n" << run.out;
  for (const std::string fault : {"timeout", "error", "offline", "short-event", "null-event"}) {
    EXPECT_EQ(count(run.out, "\"type\":\"fault\",\"sensor\":16,\"sensorHex\":\"0x0010\",\"fault\":\"" +
                                 fault + "\",[^\n]*\"asExpected\":true"),
              1U)
        << fault;
  }
  // Each fault is logged once, where the library detects it.
  for (const std::string line :
       {"WARN: cannot call method 0x8001: SOME/IP transport timed out",
        "ERROR: cannot call method 0x8007: SOME/IP transport failed with code \"12\"",
        "WARN: Service 0x2 not available",
        "DEBUG: const kov::drivers::lidar::vesk::types::SystemModeCommand& not supported/available on this "
        "client - not calling the transport",
        "DEBUG: Got event for kov::drivers::lidar::vesk::types::SensorHealthStatus& but sizes do not match: "
        "got 18 expected 22",
        "DEBUG: Got event 0x2 with null data pointer - discarding it"}) {
    EXPECT_EQ(count(run.err, lit("] " + line + "\n")), 1U) << line;
  }
  EXPECT_NE(
      run.out.find("\"message\":\"demo finished: 2 sensors, 30 of 30 calls succeeded, 0 unexpected fault"),
      std::string::npos);
}

/// Runs veskctl: its exit status, how often each pattern occurs in its output (with none: no output)
/// and its error output.
void expectRun(const std::string& arguments, int status,
               const std::vector<std::pair<std::string, std::size_t>>& out, const std::string& err = "") {
  const auto run = runVeskctl(arguments);
  EXPECT_EQ(run.status, status) << arguments << run.err;
  for (const auto& [pattern, times] : out) {
    EXPECT_EQ(count(run.out, pattern), times) << pattern << " in\n" << run.out;
  }
  EXPECT_TRUE(!out.empty() || run.out.empty()) << run.out;
  EXPECT_EQ(run.err, err);
}

std::string whole(const std::string& text) {
  return "^" + lit(text) + "$";
}

TEST(VeskctlEndToEndTest, EachCommandExitsWithItsStatusAndPrintsExactlyWhatItShould) {
  expectRun("get mode --sensor 16 --verbose", 0,
            {{"sensor 0x001[012]  service 0x000[234]  available\n", 9},
             {"sensor 0x0010  getSystemModeStatus +ok +mode=", 1}});
  expectRun(
      "set --sensor 16 --pattern point:-30:2.5:1,snap,minlines:8 --mode scanning --destination "
      "192.0.2.3:4000",
      0,
      {{whole("  sensor 0x0010  setScanPattern                ok      commands=3  "
              "pattern=point:-30:2.5:1,snap,minlines:8\n"
              "  sensor 0x0010  setDatapathDestinationInfo    ok      ipAddress=192.0.2.3  port=4000\n"
              "  sensor 0x0010  setSystemMode                 ok      mode=SCANNING\n"),
        1}});
  // The ends of the documented ranges are accepted by veskctl, the library and the sensor.
  expectRun("set --sensor 0x11 --datum -18 --frame-rate 1", 0,
            {{"setDesiredScanSettings +ok +frameRate=1  |setScanDatum +ok +elevation=-18\n", 2}});
  expectRun("--legacy --sensors 1 list", 0,
            {{"services +ok +service0x0002=true  service0x0003=true  service0x0004=true\n", 2}, {"\n", 2}});
  expectRun("--sensors 1 watch --seconds 0.5", 0,
            {{"event sensorHealthStatus", 1}, {"sensor 0x0010  service 0x0002  available\n", 1}});
  // Failures that only the sensor detects carry their reason, in text and in JSON.
  const std::string reason =
      "cannot call method 0xb: SOME/IP transport failed with code \"20\" (simulator result 0x20: the sensor "
      "refused a value of the request, out of its range or without a meaning to it)";
  expectRun("--log-level off set --sensor 0x10 --destination 0.0.0.0:80", 1,
            {{whole("  sensor 0x0010  setDatapathDestinationInfo    FAILED  " + reason + "\n"), 1}});
  expectRun("--json --log-level off set --sensor 0x10 --destination 0.0.0.0:80", 1,
            {{whole("{\"type\":\"result\",\"sensor\":16,\"sensorHex\":\"0x0010\",\"operation\":"
                    "\"setDatapathDestinationInfo\",\"ok\":false,\"value\":{},\"reason\":\"" +
                    std::regex_replace(reason, std::regex("\""), "\\\"") + "\"}\n"),
              1}});
  // Every value stays in range for every sensor count.
  expectRun("--sensors 64 --legacy demo", 0,
            {{"FAILED", 0}, {"\ndemo finished: 65 sensors, 975 of 975 calls succeeded\n$", 1}});
  // A sensor that is not there exits 3, with a hint when decimal digits were meant as hex.
  expectRun("get --sensor 10", 3, {},
            "veskctl: error: no sensor 0x000a (--sensor 10 is read as decimal; sensor ids are printed in "
            "hexadecimal: did you mean --sensor 0x0010?)\n");
  // A transport that cannot start (an address of no interface here; nothing is sent) exits 4.
  expectRun("--transport someip --unicast 192.0.2.1 --log-level off list", 4, {},
            "veskctl: error: cannot connect the transport (the log line above says why: an address that is "
            "not this host's, or a port another program holds without sharing it)\n");
}

TEST(VeskctlEndToEndTest, BadCommandLinesExitWithTwoAndOneMessageNamingOptionValueAndRange) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"set --frame-rate 31", "--frame-rate 31: expected a frame rate from 1 to 30 Hz"},
      {"set --destination 192.0.2.3",
       "--destination 192.0.2.3: expected A.B.C.D:PORT, four decimal octets from 0 to 255 and a "
       "decimal "
       "port from 1 to 65535"},
      {"set --pattern point:100:0",
       "--pattern point:100:0: azimuth 100: expected an azimuth from -90 to 90 degrees"},
      {"set", "nothing to set (see veskctl set --help)"},
      {"--discovery-timeout 0 list", "--discovery-timeout 0: expected a duration from 0.1 to 600 seconds"},
      {"get --sensor 0x1g", "--sensor 0x1g: expected a sensor id, 0x0 to 0xfffe or 0 to 65534"},
      {"frobnicate",
       "unknown subcommand \"frobnicate\" (use demo, list, get, set, watch, monitor or doctor)"},
      {"", "a subcommand is required: demo, list, get, set, watch, monitor or doctor (see veskctl --help)"},
      {"monitor", "monitor needs --unicast ADDR, this host's IPv4 address on the SOME/IP network"},
      {"--transport someip list", "--transport someip needs --unicast ADDR, this host's IPv4 address"},
      {"--sd-multicast 192.0.2.1 list",
       "--sd-multicast 192.0.2.1: expected an IPv4 multicast address, 224.0.0.0 to 239.255.255.255"},
      {"--major 255 list", "--major 255: expected a major version, a whole number from 0 to 254"},
  };
  for (const auto& [arguments, message] : cases) {
    expectRun(arguments, 2, {}, "veskctl: error: " + message + "\n");
  }
}

}  // namespace
