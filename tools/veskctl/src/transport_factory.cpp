#include "transport_factory.hpp"

namespace kov::tools::veskctl {

TransportBundle makeTransport(const TransportOptions& options, std::string& error) {
  TransportBundle bundle;
  auto config = kov::tools::simulator::makeFleetConfig(options.sensors);
  config.legacySensor = options.legacySensor;
  if (!kov::tools::simulator::isValidFleetConfig(config, error)) {
    return bundle;
  }
  bundle.simulator = std::make_shared<kov::tools::simulator::SimulatedFleet>(config);
  bundle.transport = bundle.simulator;
  bundle.expectedSensors = bundle.simulator->sensorIds().size();
  return bundle;
}

}  // namespace kov::tools::veskctl
