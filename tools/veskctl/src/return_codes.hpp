#pragma once

#include <string>

namespace kov::tools::veskctl {

/// Adds the meaning of the SOME/IP return code to a library line such as
/// `cannot call method 0xb: SOME/IP transport failed with code "20"`, which prints the code bare in
/// hexadecimal; other texts come back unchanged.
std::string explainReturnCodes(const std::string& reason);

}  // namespace kov::tools::veskctl
