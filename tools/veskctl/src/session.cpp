#include "session.hpp"

#include <utility>

#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace kov::tools::veskctl {

namespace {
constexpr std::uint16_t SERVICE_IDS[] = {0x0002, 0x0003, 0x0004};
}  // namespace

Session::Session(TransportBundle bundle, Printer& printer) : bundle_(std::move(bundle)), printer_(printer) {}

Session::~Session() {
  std::string ignored;
  close(ignored);
}

bool Session::open(std::string& error) {
  started_ = Clock::now();
  control_ = kov::drivers::lidar::vesk::makeSensorControlA(bundle_.transport);
  if (!control_) {
    error = "cannot create the sensor control";
    return false;
  }
  if (!control_->init()) {
    error = "cannot connect the transport";
    return false;
  }
  subscription_ = control_->subscribe(
      [this](const std::shared_ptr<ISensorControl::IClient>& client,
             const std::unordered_set<std::uint16_t>& ids) { onServicesChanged(client, ids); });
  if (!control_->start()) {
    error = "cannot start sensor discovery";
    return false;
  }
  return true;
}

void Session::onServicesChanged(const std::shared_ptr<ISensorControl::IClient>& client,
                                const std::unordered_set<std::uint16_t>& serviceIds) {
  // Runs on a transport thread with the library's locks held: only record, print later.
  const auto at = elapsed();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    clients_.emplace(client->getSensorId(), client);
    for (const auto serviceId : serviceIds) {
      changes_.push_back(Change{at, client->getSensorId(), serviceId, client->isAvailable(serviceId)});
    }
  }
  changed_.notify_all();
}

void Session::printAvailability(std::chrono::milliseconds wait) {
  std::vector<Change> changes;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, wait, [this] { return !changes_.empty(); });
    changes.swap(changes_);
  }
  for (const auto& change : changes) {
    printer_.availability(change.at, change.sensorId, change.serviceId, change.available);
  }
}

bool Session::fleetReady() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::size_t ready = 0;
  for (const auto& entry : clients_) {
    bool all = true;
    for (const auto serviceId : SERVICE_IDS) {
      all = all && entry.second->isAvailable(serviceId);
    }
    ready += all ? 1 : 0;
  }
  return ready >= bundle_.expectedSensors;
}

bool Session::waitForFleet(std::chrono::milliseconds timeout) {
  return waitUntil(timeout, [this] { return fleetReady(); });
}

std::vector<Sensor> Session::sensors(std::uint16_t only) const {
  std::vector<Sensor> sensors;
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& entry : clients_) {
    if (only != 0xFFFF && entry.first != only) {
      continue;
    }
    sensors.push_back(
        Sensor{entry.first, entry.second, std::dynamic_pointer_cast<ISensorControl::IClientA>(entry.second)});
  }
  return sensors;
}

bool Session::close(std::string& error) {
  if (closed_ || !control_) {
    return true;
  }
  closed_ = true;
  const bool stopped = control_->stop();
  printAvailability(std::chrono::milliseconds(0));
  const bool shut = control_->shutdown();
  subscription_.reset();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    clients_.clear();
  }
  control_.reset();
  if (!stopped || !shut) {
    error = stopped ? "transport did not disconnect cleanly" : "sensor control did not stop cleanly";
    return false;
  }
  return true;
}

std::chrono::milliseconds Session::elapsed() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_);
}

}  // namespace kov::tools::veskctl
