#include "process/kov_platform_posix_process.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "common/log/log_message.hpp"
#include "common/log/stream_logger.hpp"

namespace {

namespace process = kov::platform::process;
namespace log = kov::common::log;

// The process id is read once and kept; a child made by fork() must report and log its own.
TEST(Process, ForkedChildUsesItsOwnProcessId) {
  const pid_t parent = process::getIdOfCurrentProcess();
  ASSERT_EQ(parent, getpid());
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    log::StringLogger logger;
    log::LogMessage("a/b", 1, log::LogLevel::INFO, logger).getStream() << "child";
    // The id in the line's prefix is the one getIdOfCurrentProcess() gives.
    _exit(logger.getString().rfind("[" + std::to_string(getpid()) + ".", 0) == 0 ? 0 : 1);
  }
  int status = -1;
  for (int i = 0; i < 1000 && waitpid(child, &status, WNOHANG) == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  if (status == -1 && kill(child, SIGKILL) == 0)
    waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  EXPECT_EQ(process::getIdOfCurrentProcess(), parent);
}

}  // namespace
