#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "event_watcher.hpp"
#include "printer.hpp"
#include "session.hpp"

namespace kov::tools::veskctl {

/// Injects each named fault into the simulated network on the first sensor, calls the library where
/// the fault bites, reports what happened, and checks that the library recovers afterwards. Returns
/// the number of outcomes that were not the expected ones.
std::size_t runFaultDrill(Session& session, EventWatcher& watcher, Printer& printer,
                          const std::vector<std::string>& faults);

}  // namespace kov::tools::veskctl
