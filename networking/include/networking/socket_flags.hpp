#pragma once

namespace kov::platform {

/// Option values handed to setsockopt by address.
inline constexpr int FLAG_TRUE = 1;
inline constexpr int FLAG_FALSE = 0;

}  // namespace kov::platform
