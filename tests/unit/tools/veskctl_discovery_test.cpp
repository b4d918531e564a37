// When veskctl's discovery is over: fed availability changes and times by hand, no clock, no sleeps.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "discovery_wait.hpp"

namespace {

using kov::tools::veskctl::DiscoveryGoal;
using kov::tools::veskctl::DiscoveryWait;
using State = DiscoveryWait::Verdict::State;
using namespace std::chrono_literals;

/// A discovery run. Its script's steps: "@T" moves to T ms after the start; "+S:V" and "-S:V" report
/// service 0x000V of sensor 0xS available or gone ("+S" and "-S": services 2, 3 and 4); "wU", "done" and
/// "fail" check for the verdict Waiting until U ms, Done or Failed with `error`.
struct Case {
  const char* name;
  DiscoveryGoal goal;
  int timeout;
  const char* script;
  std::string error = "";
};

TEST(VeskctlDiscoveryTest, EndsForTheNamedSensorAfterQuietOrWithTheFleetAndSaysWhatWasMissing) {
  const DiscoveryGoal settle{0, true, std::nullopt};
  const DiscoveryGoal sensor11{0, true, 0x11};
  const DiscoveryGoal two{2, true, std::nullopt};
  const std::vector<Case> cases{
      {"named sensor: done when its third service comes, others do not count", sensor11, 5000,
       "@10 +10 @20 +11:2 @25 +11:3 @29 w5000 @30 +11:4 done"},
      {"named sensor partly offered, others found", sensor11, 5000,
       "@10 +12 @20 +10 @30 +11:2 +11:3 @4999 w5000 @5000 fail",
       "sensor 0x0011 not discovered with all its services within 5 s: it offers 0x0002 and 0x0003 but not "
       "0x0004; found other sensors 0x0010 and 0x0012"},
      {"named sensor withdrew its services", sensor11, 2500, "@10 +11 @40 -11 @2500 fail",
       "sensor 0x0011 not discovered with all its services within 2.5 s: it offers none of 0x0002, 0x0003 "
       "and 0x0004 now"},
      {"named sensor not seen", sensor11, 5000, "@10 +10 @6000 fail",
       "sensor 0x0011 not discovered within 5 s: found instead sensor 0x0010"},
      {"settles 500 ms after the last new service; a service going away is no news", settle, 5000,
       "@0 w5000 @100 +10 w600 @400 +11:2 @500 w900 @700 -10:3 @899 w900 @900 done"},
      {"a service coming back is news", settle, 5000, "@100 +10 @300 -10:3 @350 +10:3 @600 w850 @850 done"},
      {"news until the timeout: done at the timeout", settle, 1000,
       "@0 +10:2 @400 +10:3 @800 +11:2 @900 w1000 @1000 done"},
      {"settling, nothing found", settle, 5000, "@4000 w5000 @5000 fail", "no sensor found within 5 s"},
      {"at least 2: quiet does not end it before the second is complete", two, 5000,
       "@100 +10 @700 w5000 @800 +11 w1300 @1300 done"},
      {"at least 2, one complete", two, 5000, "@100 +10 +11:2 +11:3 @5000 fail",
       "only 1 of at least 2 sensors discovered with all services within 5 s; found 0x0010 and 0x0011 "
       "(without 0x0004)"},
      {"whole fleet: done at once when the last sensor is complete", DiscoveryGoal{2, false, std::nullopt},
       5000, "@5 +10 @6 w5000 @7 +11 done"},
  };
  const auto start = DiscoveryWait::Clock::time_point() + 1h;
  for (const auto& test : cases) {
    DiscoveryWait wait(test.goal, start, std::chrono::milliseconds(test.timeout));
    auto now = start;
    std::istringstream script(test.script);
    for (std::string step; script >> step;) {
      if (step[0] == '@') {
        now = start + std::chrono::milliseconds(std::stoi(step.substr(1)));
      } else if (step[0] == '+' || step[0] == '-') {
        const auto sensor = static_cast<std::uint16_t>(std::stoi(step.substr(1, 2), nullptr, 16));
        for (const int service :
             step.size() > 3 ? std::vector<int>{step[4] - '0'} : std::vector<int>{2, 3, 4}) {
          wait.serviceChanged(sensor, static_cast<std::uint16_t>(service), step[0] == '+', now);
        }
      } else {
        const auto verdict = wait.check(now);
        const auto until = std::chrono::duration_cast<std::chrono::milliseconds>(verdict.until - start);
        EXPECT_EQ(verdict.state == State::Done     ? "done"
                  : verdict.state == State::Failed ? "fail"
                                                   : "w" + std::to_string(until.count()),
                  step)
            << test.name << " at " << (now - start) / 1ms;
        EXPECT_EQ(verdict.error, step == "fail" ? test.error : "") << test.name;
      }
    }
  }
}

}  // namespace
