#include "process/kov_platform_posix_process.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>

namespace kov::platform::process {

namespace {
// The kernel limits thread names to 16 bytes including the terminating NUL.
constexpr std::size_t THREAD_NAME_CAPACITY = 16;

// The process id, read once and kept: every log record carries it, and getpid() is a system call.
// 0 means not read yet. A child made by fork() reads its own id in the atfork child handler before
// fork() returns; children made without fork() (vfork, a raw clone) must not log.
std::atomic<pid_t> cachedProcessId{0};

void refreshProcessIdInChild() {
  cachedProcessId.store(getpid(), std::memory_order_relaxed);
}

pid_t readAndCacheProcessId() {
  // Registered once, before the first id is kept, so that no kept id can outlive a fork.
  static const bool refreshedAfterFork = pthread_atfork(nullptr, nullptr, &refreshProcessIdInChild) == 0;
  const pid_t pid = getpid();
  if (refreshedAfterFork) {
    cachedProcessId.store(pid, std::memory_order_relaxed);
  }
  return pid;
}

}  // namespace

pid_t getIdOfCurrentProcess() {
  const pid_t pid = cachedProcessId.load(std::memory_order_relaxed);
  return pid != 0 ? pid : readAndCacheProcessId();
}

pthread_t getIdOfCurrentThread() {
  return pthread_self();
}

void setNameOfCurrentThread(const std::string& name) {
  const std::string shortened = name.substr(0, THREAD_NAME_CAPACITY - 1);
  static_cast<void>(pthread_setname_np(pthread_self(), shortened.c_str()));
}

std::string getNameOfCurrentThread() {
  std::array<char, THREAD_NAME_CAPACITY> buffer{};
  if (pthread_getname_np(pthread_self(), buffer.data(), buffer.size()) != 0) {
    return {};
  }
  return std::string(buffer.data());
}

bool enableCoreDump() {
  rlimit limit{};
  limit.rlim_cur = RLIM_INFINITY;
  limit.rlim_max = RLIM_INFINITY;
  return setrlimit(RLIMIT_CORE, &limit) >= 0;
}

}  // namespace kov::platform::process
