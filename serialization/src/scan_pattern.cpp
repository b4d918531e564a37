#include "serialization/types/scan_pattern.hpp"

namespace kov::drivers::lidar::vesk::types {

ScanPattern::ICommand::~ICommand() = default;

std::unique_ptr<ScanPattern::ICommand> ScanPattern::PointCommand::clone() const {
  return std::make_unique<PointCommand>(*this);
}
std::uint8_t ScanPattern::PointCommand::getId() const {
  return 0;
}

std::unique_ptr<ScanPattern::ICommand> ScanPattern::SnapCommand::clone() const {
  return std::make_unique<SnapCommand>(*this);
}
std::uint8_t ScanPattern::SnapCommand::getId() const {
  return 1;
}

std::unique_ptr<ScanPattern::ICommand> ScanPattern::MinLinesCommand::clone() const {
  return std::make_unique<MinLinesCommand>(*this);
}
std::uint8_t ScanPattern::MinLinesCommand::getId() const {
  return 2;
}

ScanPattern::ScanPattern(const ScanPattern& other) {
  commands.reserve(other.commands.size());
  for (const auto& command : other.commands) {
    commands.push_back(command ? command->clone() : nullptr);
  }
}

ScanPattern& ScanPattern::operator=(const ScanPattern& other) {
  if (this != &other) {
    ScanPattern copy(other);
    commands = std::move(copy.commands);
  }
  return *this;
}

}  // namespace kov::drivers::lidar::vesk::types
