#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "availability_callbacks.hpp"
#include "sensor.hpp"
#include "transport_factory.hpp"

namespace kov::python {

/// kov_vesk.Fleet: the library's sensor control over one transport, from init and start to stop and
/// shutdown, with the sensors it discovered.
///
/// Threads: start(), close() and wait_for_sensors() are called with the interpreter lock and release it
/// while the library or a wait runs. The library announces availability changes on the transport's
/// thread: onServicesChanged() records them under `mutex_` (never held while Python runs) and then
/// calls the Python callbacks, which take the interpreter lock themselves. close() stops the callbacks
/// before it stops the library, so none runs once it returned; a callback must not close its fleet
/// (the library announces changes with its own locks held).
class Fleet {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Fleet(kov::tools::veskctl::TransportBundle bundle);
  ~Fleet();

  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  void start();
  void close();
  std::vector<std::uint16_t> waitForSensors(std::optional<std::size_t> count,
                                            std::optional<std::uint16_t> sensor, double timeoutSeconds);
  std::vector<std::uint16_t> sensorIds() const;
  std::shared_ptr<Sensor> sensor(std::uint16_t id) const;
  std::shared_ptr<AvailabilityCallbacks::Entry> onAvailability(py::object callback);
  const std::shared_ptr<kov::tools::simulator::SimulatedFleet>& simulator() const {
    return bundle_.simulator;
  }

 private:
  enum class State { Created, Started, Closed };

  struct Report {
    bool available;
    Clock::time_point at;
  };

  void onServicesChanged(const std::shared_ptr<ISensorControl::IClient>& client,
                         const std::unordered_set<std::uint16_t>& serviceIds);
  /// Stops the library and drops it; without the interpreter lock.
  void stopLibrary();

  kov::tools::veskctl::TransportBundle bundle_;
  std::unique_ptr<ISensorControl> control_;
  std::shared_ptr<ISensorControl::Subscription> subscription_;
  State state_{State::Created};
  std::atomic<bool> closing_{false};
  AvailabilityCallbacks callbacks_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::uint16_t, std::shared_ptr<ISensorControl::IClient>> clients_;
  /// The latest report of each (sensor, service) and when it came.
  std::map<std::pair<std::uint16_t, std::uint16_t>, Report> reports_;
};

}  // namespace kov::python
