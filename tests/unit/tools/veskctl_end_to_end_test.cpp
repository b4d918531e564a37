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

/// Runs veskctl with `arguments`, killed after 60 s (status then is not 0, 1 or 2).
Run runVeskctl(const std::vector<std::string>& arguments) {
  static int runs = 0;
  const std::string base =
      ::testing::TempDir() + "veskctl-" + std::to_string(getpid()) + "-" + std::to_string(++runs);
  std::string command = "timeout -s KILL 60 '" VESKCTL_PATH "'";
  for (const auto& argument : arguments) {
    command += " '" + argument + "'";
  }
  const int status = std::system((command + " >" + base + ".out 2>" + base + ".err").c_str());
  Run run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(base + ".out"), slurp(base + ".err")};
  EXPECT_EQ(run.err.find("Sanitizer"), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("runtime error"), std::string::npos) << run.err;
  return run;
}

std::size_t count(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  return static_cast<std::size_t>(
      std::distance(std::sregex_iterator(text.begin(), text.end(), expression), std::sregex_iterator()));
}

std::size_t occurrences(const std::string& text, const std::string& needle) {
  std::size_t found = 0;
  for (auto at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) {
    ++found;
  }
  return found;
}

TEST(VeskctlEndToEndTest, DemoDiscoversThreeSensorsCallsEverythingAndSeesEventsChange) {
  const auto run = runVeskctl({"demo"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  for (const std::string sensor : {"sensor 0x0010  ", "sensor 0x0011  ", "sensor 0x0012  "}) {
    EXPECT_EQ(count(run.out, sensor + "service 0x000[234]  available\n"), 3U) << sensor;
    for (const std::string operation :
         {"getSystemModeStatus", "getAchievedScanSettings", "getScanPatternCommandStatus",
          "getSensorSoftwareVersion", "setDesiredScanSettings", "setScanDatum", "setScanPattern",
          "setDatapathDestinationInfo", "setSystemMode", "getDesiredScanSettings +ok +frameRate=10  ",
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
  EXPECT_EQ(run.out.find("FAILED"), std::string::npos);
  EXPECT_EQ(count(run.out, "demo finished: 3 sensors, 45 of 45 calls succeeded\n"), 1U) << run.out;
}

TEST(VeskctlEndToEndTest, DemoReportsEveryInjectedFaultWithTheLibrarysLineAndGoesOn) {
  const auto run = runVeskctl({"--json", "--log-level", "debug", "--sensors", "2", "demo", "--fault", "all"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  std::istringstream lines(run.out);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(line.size() > 1 && line.front() == '{' && line.back() == '}') << line;
  }
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
    EXPECT_EQ(occurrences(run.err, "] " + line + "\n"), 1U) << line;
  }
  EXPECT_EQ(count(run.out, "\"operation\":\"getDesiredScanSettings\",\"ok\":true"), 5U);
  EXPECT_NE(
      run.out.find("\"message\":\"demo finished: 2 sensors, 30 of 30 calls succeeded, 0 unexpected fault"),
      std::string::npos);
}

TEST(VeskctlEndToEndTest, SubcommandsAndFailuresGiveClearMessagesAndExitStatuses) {
  const auto help = runVeskctl({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const std::string command : {"demo", "list", "get", "set", "watch", "--json", "--log-level"}) {
    EXPECT_NE(help.out.find(command), std::string::npos) << command;
  }

  const auto get = runVeskctl({"get", "version", "destination", "--sensor", "0x11"});
  EXPECT_EQ(get.status, 0) << get.err;
  EXPECT_EQ(count(get.out, "sensor 0x0011  get"), 2U) << get.out;
  EXPECT_EQ(count(get.out, "sensor 0x0010  get"), 0U);

  const auto refused = runVeskctl({"set", "--sensor", "0x10", "--frame-rate", "45"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.out.find("setDesiredScanSettings        FAILED"), std::string::npos) << refused.out;
  EXPECT_EQ(
      occurrences(refused.err, "] ERROR: Scan settings desired frame rate = 45 Hz: out of range [1;30]\n"),
      1U)
      << refused.err;

  const auto set = runVeskctl({"set", "--sensor", "16", "--pattern", "point:-30:2.5:1,snap,minlines:8",
                               "--mode", "scanning", "--destination", "10.1.2.3:4000"});
  EXPECT_EQ(set.status, 0) << set.err;
  EXPECT_EQ(count(set.out, " +ok +"), 3U) << set.out;

  const auto legacy = runVeskctl({"--legacy", "--sensors", "1", "list"});
  EXPECT_EQ(legacy.status, 0) << legacy.err;
  EXPECT_EQ(count(legacy.out, "services +ok +service0x0002=true  service0x0003=true  service0x0004=true"), 2U)
      << legacy.out;

  const auto watch = runVeskctl({"--sensors", "1", "watch", "--seconds", "0.5"});
  EXPECT_EQ(watch.status, 0);
  EXPECT_GE(count(watch.out, "event sensorHealthStatus"), 1U) << watch.out;

  // Usage errors exit with 2, a missing sensor with 1.
  const std::vector<std::pair<std::vector<std::string>, std::string>> failures{
      {{"set"}, "veskctl: error: nothing to set"},
      {{"set", "--pattern", "spiral"}, "bad scan pattern command \"spiral\""},
      {{"demo", "--fault", "meteor"}, "meteor"},
      {{"get", "--sensor", "0x42"}, "veskctl: error: no sensor 0x0042"}};
  for (const auto& failure : failures) {
    const auto run = runVeskctl(failure.first);
    EXPECT_EQ(run.status, failure.first[0] == "get" ? 1 : 2) << failure.second;
    EXPECT_NE(run.err.find(failure.second), std::string::npos) << run.err;
  }
}

}  // namespace
