#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kov::tools::veskctl::doctor {

// The socket helpers of doctor's probes: every socket shares its port (address reuse), so that a probe
// never keeps the SD port from another program.

/// A UDP socket descriptor closed when it goes out of scope.
class Socket {
 public:
  Socket() : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

/// strerror(errno).
std::string errorText();
bool toInAddr(const std::string& text, in_addr& address);
std::string dottedQuad(in_addr address);

/// Turns on address reuse and binds to address:port; empty, or what failed (`inUse` set when the bind
/// failed because the port is taken there).
std::string bindShared(const Socket& socket, const std::string& address, std::uint16_t port,
                       bool* inUse = nullptr);

/// Joins `group` on the interface of `address`; empty, or what failed.
std::string joinGroup(const Socket& socket, const std::string& group, const std::string& address);

/// Sends `bytes` to group:port out of the interface of `address`; empty, or what failed.
std::string sendOver(const Socket& socket, const std::string& address, const std::string& group,
                     std::uint16_t port, const std::vector<std::uint8_t>& bytes);

}  // namespace kov::tools::veskctl::doctor
