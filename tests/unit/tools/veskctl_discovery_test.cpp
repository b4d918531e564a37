// When veskctl's discovery is over: fed availability changes and times by hand, no clock, no sleeps.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "discovery_wait.hpp"

namespace {

using kov::tools::veskctl::DiscoveryGoal;
using kov::tools::veskctl::DiscoveryWait;
using State = DiscoveryWait::Verdict::State;

/// A change of one service (`service` not 0) or, with `service` 0, a check and its expected verdict.
struct Step {
  int at;  ///< milliseconds since discovery started
  std::uint16_t sensor;
  std::uint16_t service;
  bool available;
  State state;
  int until;  ///< Waiting: milliseconds since the start
  std::string error;
};

Step up(int at, std::uint16_t sensor, std::uint16_t service) {
  return {at, sensor, service, true, {}, 0, {}};
}
Step down(int at, std::uint16_t sensor, std::uint16_t service) {
  return {at, sensor, service, false, {}, 0, {}};
}
Step waiting(int at, int until) {
  return {at, 0, 0, false, State::Waiting, until, {}};
}
Step done(int at) {
  return {at, 0, 0, false, State::Done, 0, {}};
}
Step failed(int at, std::string error) {
  return {at, 0, 0, false, State::Failed, 0, std::move(error)};
}

/// Services 0x0002, 0x0003 and 0x0004 of `sensor`, all at `at`.
std::vector<Step> all(int at, std::uint16_t sensor) {
  return {up(at, sensor, 2), up(at, sensor, 3), up(at, sensor, 4)};
}

std::vector<Step> operator+(std::vector<Step> steps, const std::vector<Step>& more) {
  steps.insert(steps.end(), more.begin(), more.end());
  return steps;
}

struct Case {
  const char* name;
  DiscoveryGoal goal;
  int timeout;
  std::vector<Step> steps;
};

TEST(VeskctlDiscoveryTest, EndsForTheNamedSensorAfterQuietOrWithTheFleetAndSaysWhatWasMissing) {
  const DiscoveryGoal settle{0, true, std::nullopt};
  const DiscoveryGoal sensor11{0, true, 0x11};
  const std::vector<Case> cases{
      {"named sensor: done when its third service comes, others do not count", sensor11, 5000,
       all(10, 0x10) +
           std::vector<Step>{up(20, 0x11, 2), up(25, 0x11, 3), waiting(29, 5000), up(30, 0x11, 4), done(30)}},
      {"named sensor partly offered, others found", sensor11, 5000,
       all(10, 0x12) + all(20, 0x10) +
           std::vector<Step>{up(30, 0x11, 2), up(30, 0x11, 3), waiting(4999, 5000),
                             failed(5000,
                                    "sensor 0x0011 not discovered with all its services within 5 s: it "
                                    "offers 0x0002 and 0x0003 but not 0x0004; found other sensors 0x0010 "
                                    "and 0x0012")}},
      {"named sensor withdrew its services", sensor11, 2500,
       all(10, 0x11) + std::vector<Step>{down(40, 0x11, 2), down(40, 0x11, 3), down(40, 0x11, 4),
                                         failed(2500,
                                                "sensor 0x0011 not discovered with all its services within "
                                                "2.5 s: it offers none of 0x0002, 0x0003 and 0x0004 now")}},
      {"named sensor not seen", sensor11, 5000,
       all(10, 0x10) + std::vector<Step>{failed(6000,
                                                "sensor 0x0011 not discovered within 5 s: found instead "
                                                "sensor 0x0010")}},
      {"named sensor, nothing at all",
       sensor11,
       100,
       {failed(100, "sensor 0x0011 not discovered within 0.1 s: no sensor found")}},
      {"settles 500 ms after the last new service; a service going away is no news", settle, 5000,
       std::vector<Step>{waiting(0, 5000)} + all(100, 0x10) +
           std::vector<Step>{waiting(100, 600), up(400, 0x11, 2), waiting(500, 900), down(700, 0x10, 3),
                             waiting(899, 900), done(900)}},
      {"a service coming back is news", settle, 5000,
       all(100, 0x10) +
           std::vector<Step>{down(300, 0x10, 3), up(350, 0x10, 3), waiting(600, 850), done(850)}},
      {"news until the timeout: done at the timeout", settle, 1000,
       std::vector<Step>{up(0, 0x10, 2), up(400, 0x10, 3), up(800, 0x11, 2), waiting(900, 1000), done(1000)}},
      {"settling, nothing found",
       settle,
       5000,
       {waiting(4000, 5000), failed(5000, "no sensor found within 5 s")}},
      {"at least 2: quiet does not end it before the second is complete",
       DiscoveryGoal{2, true, std::nullopt}, 5000,
       all(100, 0x10) + std::vector<Step>{waiting(700, 5000)} + all(800, 0x11) +
           std::vector<Step>{waiting(800, 1300), done(1300)}},
      {"at least 2, one complete", DiscoveryGoal{2, true, std::nullopt}, 5000,
       all(100, 0x10) + std::vector<Step>{up(100, 0x11, 2), up(100, 0x11, 3),
                                          failed(5000,
                                                 "only 1 of at least 2 sensors discovered with all "
                                                 "services within 5 s; found 0x0010 and 0x0011 (without "
                                                 "0x0004)")}},
      {"whole fleet: done at once when the last sensor is complete", DiscoveryGoal{2, false, std::nullopt},
       5000, all(5, 0x10) + std::vector<Step>{waiting(6, 5000)} + all(7, 0x11) + std::vector<Step>{done(7)}},
      {"whole fleet, none",
       DiscoveryGoal{3, false, std::nullopt},
       5000,
       {failed(5000, "only 0 of 3 sensors discovered with all services within 5 s; no sensor found")}},
  };
  const auto start = DiscoveryWait::Clock::time_point() + std::chrono::hours(1);
  const auto at = [start](int ms) { return start + std::chrono::milliseconds(ms); };
  for (const auto& test : cases) {
    DiscoveryWait wait(test.goal, start, std::chrono::milliseconds(test.timeout));
    for (const auto& step : test.steps) {
      if (step.service != 0) {
        wait.serviceChanged(step.sensor, step.service, step.available, at(step.at));
        continue;
      }
      const auto verdict = wait.check(at(step.at));
      EXPECT_EQ(verdict.state, step.state) << test.name << " at " << step.at;
      EXPECT_EQ(verdict.error, step.error) << test.name << " at " << step.at;
      if (step.state == State::Waiting) {
        EXPECT_EQ(verdict.until, at(step.until)) << test.name << " at " << step.at;
      }
    }
  }
}

}  // namespace
