// Runs the veskctl binary against its simulated fleet and checks its exit status and output.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Run {
  int status{-1};
  std::string out;
  std::string err;
};

std::string slurp(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

/// Runs veskctl with `arguments`; kills it after 60 seconds (then status stays -1).
Run runVeskctl(const std::vector<std::string>& arguments) {
  char outPath[] = "/tmp/veskctl-out-XXXXXX";
  char errPath[] = "/tmp/veskctl-err-XXXXXX";
  const int outFd = mkstemp(outPath);
  const int errFd = mkstemp(errPath);
  Run run;
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(outFd, STDOUT_FILENO);
    dup2(errFd, STDERR_FILENO);
    std::vector<char*> argv{const_cast<char*>(VESKCTL_PATH)};
    for (const auto& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execv(VESKCTL_PATH, argv.data());
    _exit(127);
  }
  int status = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      status = -1;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (status != -1 && WIFEXITED(status)) {
    run.status = WEXITSTATUS(status);
  }
  close(outFd);
  close(errFd);
  run.out = slurp(outPath);
  run.err = slurp(errPath);
  unlink(outPath);
  unlink(errPath);
  return run;
}

std::size_t countMatches(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  return static_cast<std::size_t>(
      std::distance(std::sregex_iterator(text.begin(), text.end(), expression), std::sregex_iterator()));
}

bool hasLine(const std::string& text, const std::string& suffix) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.size() >= suffix.size() &&
        line.compare(line.size() - suffix.size(), suffix.size(), suffix) == 0) {
      return true;
    }
  }
  return false;
}

void expectNoSanitizerReport(const Run& run) {
  EXPECT_EQ(run.err.find("Sanitizer"), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("runtime error"), std::string::npos) << run.err;
}

TEST(VeskctlEndToEndTest, DemoDiscoversThreeSensorsCallsEverythingAndSeesEventsChange) {
  const auto run = runVeskctl({"demo"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  expectNoSanitizerReport(run);
  for (const std::string sensor : {"0x0010", "0x0011", "0x0012"}) {
    EXPECT_EQ(countMatches(run.out, "sensor " + sensor + "  service 0x000[234]  available\n"), 3U) << sensor;
    for (const std::string operation :
         {"getSystemModeStatus", "getAchievedScanSettings", "getScanPatternCommandStatus",
          "getSensorSoftwareVersion", "setDesiredScanSettings", "setScanDatum", "setScanPattern",
          "setDatapathDestinationInfo", "setSystemMode"}) {
      EXPECT_EQ(countMatches(run.out, "sensor " + sensor + "  " + operation + " +ok "), 1U)
          << sensor << operation;
    }
    // Read once, and read back after the setters with the new values.
    EXPECT_EQ(countMatches(run.out, "sensor " + sensor + "  getDesiredScanSettings +ok +frameRate=10  "), 1U);
    EXPECT_EQ(countMatches(run.out, "sensor " + sensor + "  getDesiredScanSettings +ok +frameRate=20  "), 1U);
    EXPECT_EQ(countMatches(run.out,
                           "sensor " + sensor + "  getDatapathDestinationInfo +ok +ipAddress=192\\.168\\."),
              1U);
    // The mode event moves from initializing through standby to scanning.
    EXPECT_EQ(countMatches(run.out, "sensor " + sensor +
                                        "  event systemModeStatus +mode=INITIALIZING[^]*"
                                        "sensor " +
                                        sensor +
                                        "  event systemModeStatus +mode=STANDBY[^]*"
                                        "sensor " +
                                        sensor + "  event systemModeStatus +mode=SCANNING"),
              1U);
    EXPECT_EQ(countMatches(run.out, "sensor " + sensor + "  service 0x000[234]  unavailable\n"), 3U);
  }
  EXPECT_NE(run.out.find("text4=\"serial VSK-0011 \u00b7 M\u00fcnchen\""), std::string::npos);
  EXPECT_EQ(run.out.find("FAILED"), std::string::npos);
  EXPECT_TRUE(hasLine(run.out, "demo finished: 3 sensors, 45 of 45 calls succeeded")) << run.out;
}

TEST(VeskctlEndToEndTest, DemoReportsEveryInjectedFaultWithTheLibrarysLineAndGoesOn) {
  const auto run = runVeskctl({"--json", "--log-level", "debug", "--sensors", "2", "demo", "--fault", "all"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  expectNoSanitizerReport(run);
  std::istringstream lines(run.out);
  std::string line;
  while (std::getline(lines, line)) {
    EXPECT_TRUE(line.front() == '{' && line.back() == '}') << line;
  }
  for (const std::string fault : {"timeout", "error", "offline", "short-event", "null-event"}) {
    EXPECT_EQ(countMatches(run.out, "\"type\":\"fault\",\"sensor\":16,\"sensorHex\":\"0x0010\",\"fault\":\"" +
                                        fault + "\",[^\n]*\"asExpected\":true"),
              1U)
        << fault;
  }
  EXPECT_TRUE(hasLine(run.err, "] WARN: cannot call method 0x8001: SOME/IP transport timed out"));
  EXPECT_TRUE(
      hasLine(run.err, "] ERROR: cannot call method 0x8007: SOME/IP transport failed with code \"12\""));
  EXPECT_TRUE(hasLine(run.err, "] WARN: Service 0x2 not available"));
  EXPECT_TRUE(
      hasLine(run.err,
              "] DEBUG: Got event for kov::drivers::lidar::vesk::types::SensorHealthStatus& but sizes do not "
              "match: got 18 expected 22"));
  EXPECT_TRUE(hasLine(run.err, "] DEBUG: Got event 0x2 with null data pointer - discarding it"));
  // After each fault the same call goes through again, and the demo ends normally.
  EXPECT_EQ(countMatches(run.out, "\"operation\":\"getDesiredScanSettings\",\"ok\":true"), 5U);
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
  EXPECT_EQ(countMatches(get.out, "sensor 0x0011  get"), 2U) << get.out;
  EXPECT_EQ(get.out.find("sensor 0x0010  get"), std::string::npos);

  const auto refused = runVeskctl({"set", "--sensor", "0x10", "--frame-rate", "45"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.out.find("setDesiredScanSettings        FAILED"), std::string::npos) << refused.out;
  EXPECT_TRUE(hasLine(refused.err, "] ERROR: Scan settings desired frame rate = 45 Hz: out of range [1;30]"))
      << refused.err;

  const auto set = runVeskctl({"set", "--sensor", "16", "--pattern", "point:-30:2.5:1,snap,minlines:8",
                               "--mode", "scanning", "--destination", "10.1.2.3:4000"});
  EXPECT_EQ(set.status, 0) << set.err;
  EXPECT_EQ(countMatches(set.out, " +ok +"), 3U) << set.out;

  const auto legacy = runVeskctl({"--legacy", "--sensors", "1", "list"});
  EXPECT_EQ(legacy.status, 0) << legacy.err;
  EXPECT_EQ(
      countMatches(legacy.out, "services +ok +service0x0002=true  service0x0003=true  service0x0004=true"),
      2U)
      << legacy.out;

  const auto watch = runVeskctl({"--sensors", "1", "watch", "--seconds", "0.5"});
  EXPECT_EQ(watch.status, 0);
  EXPECT_GE(countMatches(watch.out, "event sensorHealthStatus"), 1U) << watch.out;

  const auto nothing = runVeskctl({"set"});
  EXPECT_EQ(nothing.status, 2);
  EXPECT_NE(nothing.err.find("veskctl: error: nothing to set"), std::string::npos);
  const auto badPattern = runVeskctl({"set", "--pattern", "spiral"});
  EXPECT_EQ(badPattern.status, 2);
  EXPECT_NE(badPattern.err.find("bad scan pattern command \"spiral\""), std::string::npos);
  const auto badFault = runVeskctl({"demo", "--fault", "meteor"});
  EXPECT_EQ(badFault.status, 2);
  const auto noSensor = runVeskctl({"get", "--sensor", "0x42"});
  EXPECT_EQ(noSensor.status, 1);
  EXPECT_NE(noSensor.err.find("veskctl: error: no sensor 0x0042"), std::string::npos);
  for (const auto* run : {&get, &refused, &set, &legacy, &watch}) {
    expectNoSanitizerReport(*run);
  }
}

}  // namespace
