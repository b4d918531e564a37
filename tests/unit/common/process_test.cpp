#include "process/kov_platform_posix_process.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace {

namespace process = kov::platform::process;

TEST(Process, IdentityMatchesPosix) {
  EXPECT_EQ(process::getIdOfCurrentProcess(), getpid());
  EXPECT_TRUE(pthread_equal(process::getIdOfCurrentThread(), pthread_self()));
  pthread_t other{};
  std::thread([&] { other = process::getIdOfCurrentThread(); }).join();
  EXPECT_FALSE(pthread_equal(other, pthread_self()));
}

TEST(Process, ThreadNamesAreCutTo15Characters) {
  std::string defaultName;
  std::string shortName;
  std::string longName;
  std::thread([&] {
    defaultName = process::getNameOfCurrentThread();
    process::setNameOfCurrentThread("io");
    shortName = process::getNameOfCurrentThread();
    process::setNameOfCurrentThread("abcdefghijklmnopqrst");
    longName = process::getNameOfCurrentThread();
  }).join();
  EXPECT_FALSE(defaultName.empty());  // the system names new threads after the executable
  EXPECT_EQ(shortName, "io");
  EXPECT_EQ(longName, "abcdefghijklmno");
}

TEST(Process, EnableCoreDumpReportsWhetherLimitsChanged) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_CORE, &before), 0);
  const bool enabled = process::enableCoreDump();
  rlimit after{};
  ASSERT_EQ(getrlimit(RLIMIT_CORE, &after), 0);
  if (enabled) {
    EXPECT_EQ(after.rlim_cur, RLIM_INFINITY);
    EXPECT_EQ(after.rlim_max, RLIM_INFINITY);
  } else {
    EXPECT_EQ(after.rlim_cur, before.rlim_cur);
    EXPECT_EQ(after.rlim_max, before.rlim_max);
  }
  ASSERT_EQ(setrlimit(RLIMIT_CORE, &before), 0);
}

}  // namespace
