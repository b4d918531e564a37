#pragma once

#include <cstdint>

// <netdb.h> defines NO_DATA as a macro (a resolver error code). Hide it while the enumeration is
// declared so this header compiles in any include order.
#pragma push_macro("NO_DATA")
#undef NO_DATA

namespace kov::platform::networking {

/// Status of every socket operation. The gaps between the values are intentional.
enum class NetworkResult : std::uint32_t {
  OK = 0,            ///< done
  ALREADY_OPEN = 2,  ///< openSocket was given a descriptor other than -1; nothing done
  SYSTEM_ERROR = 5,  ///< the system call failed; logged
  NO_DATA = 7,       ///< a read found nothing (would block, timed out or empty datagram); not logged
};

}  // namespace kov::platform::networking

#pragma pop_macro("NO_DATA")
