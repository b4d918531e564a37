#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace kov::drivers::lidar::vesk::types {

/// A sequence of scan commands, executed by the sensor in vector order (at most 88 can be sent).
struct ScanPattern {
  /// One scan command. getId() names the kind: 0 point, 1 snap, 2 minimum lines.
  class ICommand {
   public:
    virtual ~ICommand();
    virtual std::unique_ptr<ICommand> clone() const = 0;
    virtual std::uint8_t getId() const = 0;

   protected:
    ICommand() = default;
    ICommand(const ICommand&) = default;
    ICommand& operator=(const ICommand&) = default;
  };

  /// Aim at one point: azimuth [-90, 90] and elevation [-18, 10] in degrees; attribute carried as is.
  class PointCommand : public ICommand {
   public:
    PointCommand() = default;
    PointCommand(float azimuth, float elevation, std::uint8_t attribute)
        : azimuth(azimuth), elevation(elevation), attribute(attribute) {}
    std::unique_ptr<ICommand> clone() const override;
    std::uint8_t getId() const override;

    float azimuth{};
    float elevation{};
    std::uint8_t attribute{};
  };

  /// Snap to the next position; no fields.
  class SnapCommand : public ICommand {
   public:
    std::unique_ptr<ICommand> clone() const override;
    std::uint8_t getId() const override;
  };

  /// Minimum number of lines; carried as is.
  class MinLinesCommand : public ICommand {
   public:
    MinLinesCommand() = default;
    explicit MinLinesCommand(float minLines) : minLines(minLines) {}
    std::unique_ptr<ICommand> clone() const override;
    std::uint8_t getId() const override;

    float minLines{};
  };

  ScanPattern() = default;
  ScanPattern(const ScanPattern& other);
  ScanPattern& operator=(const ScanPattern& other);
  ScanPattern(ScanPattern&&) noexcept = default;
  ScanPattern& operator=(ScanPattern&&) noexcept = default;
  ~ScanPattern() = default;

  std::vector<std::unique_ptr<ICommand>> commands;
};

}  // namespace kov::drivers::lidar::vesk::types
