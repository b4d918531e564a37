#include "session.hpp"

#include <algorithm>
#include <utility>

#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace kov::tools::veskctl {

Session::Session(TransportBundle bundle, Printer& printer) : bundle_(std::move(bundle)), printer_(printer) {}

Session::~Session() {
  std::string ignored;
  close(ignored);
}

bool Session::open(const DiscoveryGoal& goal, std::chrono::milliseconds timeout, std::string& error) {
  started_ = Clock::now();
  {
    // Before start(): the first availability reports may arrive while start() runs.
    std::lock_guard<std::mutex> lock(mutex_);
    discovery_.emplace(goal, started_, timeout);
  }
  control_ = kov::drivers::lidar::vesk::makeSensorControlA(bundle_.transport);
  if (!control_) {
    error = "cannot create the sensor control";
    return false;
  }
  if (!control_->init()) {
    error =
        "cannot connect the transport (the log line above says why: an address that is not this "
        "host's, or a port another program holds without sharing it)";
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
  const auto now = Clock::now();
  const auto at = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    clients_.emplace(client->getSensorId(), client);
    for (const auto serviceId : serviceIds) {
      const bool available = client->isAvailable(serviceId);
      changes_.push_back(Change{at, client->getSensorId(), serviceId, available});
      if (discovery_) {
        discovery_->serviceChanged(client->getSensorId(), serviceId, available, now);
      }
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

bool Session::discover(std::string& error) {
  for (;;) {
    const auto now = Clock::now();
    DiscoveryWait::Verdict verdict{DiscoveryWait::Verdict::State::Failed, now, "discovery was not started"};
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (discovery_) {
        verdict = discovery_->check(now);
      }
    }
    if (verdict.state != DiscoveryWait::Verdict::State::Waiting) {
      printAvailability(std::chrono::milliseconds(0));
      error = verdict.error;
      return verdict.state == DiscoveryWait::Verdict::State::Done;
    }
    // Wakes up early for every availability change, which may end discovery.
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(verdict.until - now);
    printAvailability(std::max(wait, std::chrono::milliseconds(1)));
  }
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
