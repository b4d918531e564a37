#include "process/kov_platform_posix_process.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <array>

namespace kov::platform::process {

namespace {
// The kernel limits thread names to 16 bytes including the terminating NUL.
constexpr std::size_t THREAD_NAME_CAPACITY = 16;
}  // namespace

pid_t getIdOfCurrentProcess() { return getpid(); }

pthread_t getIdOfCurrentThread() { return pthread_self(); }

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
