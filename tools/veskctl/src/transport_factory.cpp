#include "transport_factory.hpp"

#include "recording_transport.hpp"
#include "someip/some_ip_transport.hpp"

namespace kov::tools::veskctl {

TransportBundle makeTransport(const TransportOptions& options, std::string& error) {
  TransportBundle bundle;
  if (options.kind == TransportKind::SomeIp) {
    namespace someip = kov::platform::networking::someip;
    someip::TransportOptions transportOptions;
    transportOptions.unicastAddress = options.unicast;
    transportOptions.sdMulticastAddress = options.sdMulticast;
    transportOptions.sdPort = options.sdPort;
    transportOptions.callTimeout = options.callTimeout;
    transportOptions.requiredMajorVersion = options.major;
    if (!someip::validateOptions(transportOptions, error)) {
      return bundle;
    }
    auto transport = std::make_shared<someip::SomeIpTransport>(transportOptions);
    bundle.endpointOf = [weak = std::weak_ptr<someip::SomeIpTransport>(transport)](
                            const kov::platform::networking::ISomeIpTransport::Address& address) {
      const auto transport = weak.lock();
      const auto endpoint = transport ? transport->offeredEndpoint(address) : std::nullopt;
      return endpoint ? someip::toString(*endpoint) : std::string();
    };
    bundle.transport = std::make_shared<RecordingTransport>(std::move(transport), TransportKind::SomeIp);
    // How many sensors the network has is not known: take those found once discovery is quiet.
    bundle.discovery.sensors = options.sensorsGiven ? options.sensors : 0;
    bundle.discovery.settle = true;
    return bundle;
  }
  auto config = kov::tools::simulator::makeFleetConfig(options.sensors);
  config.legacySensor = options.legacySensor;
  if (options.simulatedCallTimeout) {
    config.callTimeout = *options.simulatedCallTimeout;
  }
  if (!kov::tools::simulator::isValidFleetConfig(config, error)) {
    return bundle;
  }
  bundle.simulator = std::make_shared<kov::tools::simulator::SimulatedFleet>(config);
  bundle.transport = std::make_shared<RecordingTransport>(bundle.simulator, TransportKind::Simulator);
  bundle.discovery.sensors = bundle.simulator->sensorIds().size();
  return bundle;
}

}  // namespace kov::tools::veskctl
