// Uses the installed SOME/IP transport library: its option check refuses options without this host's
// address and accepts them with one, and a transport object can be made and dropped.
#include <iostream>
#include <memory>
#include <string>

#include "someip/some_ip_transport.hpp"
#include "someip/transport_options.hpp"

int main() {
  namespace someip = kov::platform::networking::someip;
  someip::TransportOptions options;
  std::string problem;
  const bool refused = !someip::validateOptions(options, problem) && !problem.empty();
  options.unicastAddress = "127.0.0.1";
  std::string none;
  const bool accepted = someip::validateOptions(options, none);
  auto transport = std::make_shared<someip::SomeIpTransport>(options);
  if (!refused || !accepted || !transport) {
    std::cerr << "unexpected behaviour: refused=" << refused << " accepted=" << accepted << " (" << none
              << ")\n";
    return 1;
  }
  std::cout << "transport consumer OK: options without an address refused (" << problem << ")\n";
  return 0;
}
