// vesk-sensord: simulated VESK sensors served over SOME/IP on UDP, with service discovery.

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "common/log/system_logger.hpp"
#include "sensor_host.hpp"
#include "simulator/fleet_config.hpp"
#include "someip/endpoint.hpp"
#include "someip/some_ip_transport.hpp"

namespace {

namespace someip = kov::platform::networking::someip;

constexpr int EXIT_FAILED = 1;

struct Settings {
  std::string unicast;
  std::string sdMulticast{someip::TransportOptions::DEFAULT_SD_MULTICAST};
  std::uint16_t sdPort{someip::TransportOptions::DEFAULT_SD_PORT};
  std::size_t sensors{3};
  std::uint16_t firstId{0x0010};
  unsigned offerTtl{someip::TransportOptions::DEFAULT_OFFER_TTL_S};
};

void addOptions(CLI::App& app, Settings& settings) {
  app.add_option("--unicast", settings.unicast, "IPv4 address of this host to serve on (dotted quad)")
      ->required()
      ->check(CLI::ValidIPV4);
  app.add_option("--sensors", settings.sensors, "number of simulated sensors (instance ids from --first-id)")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  app.add_option("--first-id", settings.firstId, "instance id of the first sensor (decimal or 0x hex)")
      ->check(CLI::Range(1, 0xFFBF))
      ->capture_default_str();
  app.add_option("--sd-multicast", settings.sdMulticast, "SOME/IP-SD multicast group")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  app.add_option("--sd-port", settings.sdPort, "SOME/IP-SD port")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  app.add_option("--offer-ttl", settings.offerTtl,
                 "TTL of the offers in seconds; a killed daemon's sensors "
                 "are seen unavailable after it")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "vesk-sensord: simulated VESK lidar sensors served over SOME/IP on UDP. Each sensor offers "
      "services 0x0002, 0x0003 and 0x0004 under its instance id, answers every method, keeps what "
      "setters write while the daemon runs, and publishes its events. SIGINT or SIGTERM withdraws "
      "the offers (StopOffer) and ends the daemon.",
      "vesk-sensord"};
  app.set_version_flag("--version", std::string(KOV_PROJECT_VERSION));
  Settings settings;
  addOptions(app, settings);
  CLI11_PARSE(app, argc, argv);

  kov::common::log::systemLogger().colorizeLogMessage(isatty(STDERR_FILENO) != 0);

  // Signals are taken by sigwait below; every thread started from here on inherits the mask.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  auto config = kov::tools::simulator::makeFleetConfig(settings.sensors, settings.firstId);
  someip::TransportOptions options;
  options.unicastAddress = settings.unicast;
  options.sdMulticastAddress = settings.sdMulticast;
  options.sdPort = settings.sdPort;
  options.offerTtlSeconds = settings.offerTtl;
  std::string problem;
  if (!someip::validateOptions(options, problem)) {
    std::cerr << "vesk-sensord: " << problem << "\n";
    return 2;
  }
  auto transport = std::make_shared<someip::SomeIpTransport>(options);
  if (transport->connect() != someip::Result::Ok) {
    std::cerr << "vesk-sensord: cannot serve on " << settings.unicast << " (see the log above)\n";
    return EXIT_FAILED;
  }
  auto host = std::make_unique<kov::tools::sensord::SensorHost>(transport, config);
  if (!host->start()) {
    return EXIT_FAILED;
  }
  std::cout << "vesk-sensord: " << settings.sensors << (settings.sensors == 1 ? " sensor" : " sensors")
            << " on " << settings.unicast << ", SD " << settings.sdMulticast << ":" << settings.sdPort
            << std::endl;

  int received = 0;
  sigwait(&signals, &received);
  std::cout << "vesk-sensord: " << (received == SIGINT ? "SIGINT" : "SIGTERM") << ", withdrawing offers"
            << std::endl;
  host->stop();
  host.reset();
  transport->disconnect();
  return 0;
}
