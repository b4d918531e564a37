// Uses the installed headers and library: logs through the process-wide logger into a string and checks
// the line it gets back.
#include <iostream>
#include <memory>

#include "common/log/log.hpp"
#include "common/log/stream_logger.hpp"
#include "networking/i_some_ip_transport.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

int main() {
  auto logger = std::make_shared<kov::common::log::StringLogger>();
  kov::common::log::SystemLoggerSingleton::instance().logger = logger;

  KOV_LOG(INFO, "consumer/main") << "consumer linked";
  const std::string text = logger->getString();
  if (text.find("INFO: consumer linked\n") == std::string::npos) {
    std::cerr << "unexpected log output: " << text;
    return 1;
  }
  std::cout << "consumer OK: " << text;
  return 0;
}
