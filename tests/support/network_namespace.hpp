#pragma once

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace kov::test {

/// True in CI (CI=true), which has root: there a test or benchmark that cannot run must fail, not skip.
inline bool skipIsFailure() {
  const char* ci = std::getenv("CI");
  return ci != nullptr && std::strcmp(ci, "true") == 0;
}

/// Moves the calling thread (and the threads it starts afterwards) into a new network namespace of its
/// own and brings its loopback interface up, so that test traffic, SD multicast included, never
/// reaches the host's interfaces. Needs root (CAP_SYS_ADMIN); on failure `why` says what went wrong.
inline bool enterOwnNetworkNamespace(std::string& why) {
  if (unshare(CLONE_NEWNET) != 0) {
    why = std::string("unshare(CLONE_NEWNET) failed: ") + std::strerror(errno) + " (needs root)";
    return false;
  }
  // The loopback interface of a new namespace is down; IFF_UP is the only one of its flags to change.
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  ifreq request{};
  std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
  request.ifr_flags = IFF_UP;
  const bool up = sock >= 0 && ioctl(sock, SIOCSIFFLAGS, &request) == 0;
  close(sock);
  if (!up) {
    why = "could not bring lo up in the new network namespace";
  }
  return up;
}

}  // namespace kov::test
