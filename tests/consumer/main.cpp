// Uses the installed headers and library: logs through the process-wide logger into a string, asks a
// factory for a sensor control without a transport, and checks the lines it gets back.
#include <iostream>
#include <memory>
#include <string>

#include "common/log/log.hpp"
#include "common/log/stream_logger.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

int main() {
  auto logger = std::make_shared<kov::common::log::StringLogger>();
  kov::common::log::SystemLoggerSingleton::instance().logger = logger;

  KOV_LOG(INFO, "consumer/main") << "consumer linked";
  const bool refused = kov::drivers::lidar::vesk::makeSensorControlA(nullptr) == nullptr;

  const std::string text = logger->getString();
  const bool logged =
      text.find("INFO: consumer linked\n") != std::string::npos &&
      text.find("ERROR: Unable to create SensorControl: invalid parameter(s).\n") != std::string::npos;
  if (!refused || !logged) {
    std::cerr << "unexpected behaviour; log was:\n" << text;
    return 1;
  }
  std::cout << "consumer OK:\n" << text;
  return 0;
}
