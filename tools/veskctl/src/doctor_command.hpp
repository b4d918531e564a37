#pragma once

#include "commands.hpp"

namespace kov::tools::veskctl {

/// The checks of `veskctl doctor`, in the order they run; for --help.
extern const char* const DOCTOR_FOOTER;

/// Checks why sensors may not be discovered on --unicast's interface, listening for `seconds`, and
/// prints one verdict per line. EXIT_OK when nothing failed, EXIT_FAILED otherwise.
int runDoctor(const CommonOptions& common, double seconds);

}  // namespace kov::tools::veskctl
