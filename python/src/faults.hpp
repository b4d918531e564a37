#pragma once

#include <memory>
#include <utility>

#include "binding.hpp"
#include "simulator/simulated_fleet.hpp"

namespace kov::python {

/// kov_vesk.Faults: the simulated fleet's fault injection. Each operation releases the interpreter
/// lock while the fleet runs it (the fleet's threads may be waiting for that lock).
class Faults {
 public:
  explicit Faults(std::shared_ptr<kov::tools::simulator::SimulatedFleet> fleet) : fleet_(std::move(fleet)) {}
  ~Faults() { dropWithoutInterpreterLock(fleet_); }
  Faults(const Faults&) = default;
  Faults& operator=(const Faults&) = default;
  Faults(Faults&&) = default;
  Faults& operator=(Faults&&) = default;

  kov::tools::simulator::SimulatedFleet& fleet() const { return *fleet_; }

 private:
  std::shared_ptr<kov::tools::simulator::SimulatedFleet> fleet_;
};

}  // namespace kov::python
