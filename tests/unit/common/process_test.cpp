#include "process/kov_platform_posix_process.hpp"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "common/log/log_message.hpp"
#include "common/log/stream_logger.hpp"

namespace {

namespace process = kov::platform::process;

// The process id is read once and kept; a child made by fork() must report and log its own.
TEST(Process, ForkedChildUsesItsOwnProcessId) {
  const pid_t parent = process::getIdOfCurrentProcess();
  ASSERT_EQ(parent, getpid());
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(pipeEnds[0]);
    kov::common::log::StringLogger logger;
    kov::common::log::LogMessage("a/b", 1, kov::common::log::LogLevel::INFO, logger).getStream() << "child";
    const std::string wanted = "[" + std::to_string(getpid()) + ".";
    const bool ok = process::getIdOfCurrentProcess() == getpid() && getpid() != parent &&
                    logger.getString().rfind(wanted, 0) == 0;
    const char verdict = ok ? 'y' : 'n';
    _exit(write(pipeEnds[1], &verdict, 1) == 1 ? 0 : 1);
  }
  close(pipeEnds[1]);
  pollfd readable{pipeEnds[0], POLLIN, 0};
  char verdict = '?';
  if (poll(&readable, 1, 10000) == 1) {
    EXPECT_EQ(read(pipeEnds[0], &verdict, 1), 1);
  }
  close(pipeEnds[0]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child could not write its verdict";
  EXPECT_EQ(verdict, 'y');
  EXPECT_EQ(process::getIdOfCurrentProcess(), parent);
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
