#pragma once

#include <cstddef>

namespace kov::bench {

/// Number of global operator new calls made by this process so far.
std::size_t allocationCount();

}  // namespace kov::bench
