#include "fleet.hpp"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "call_reason.hpp"
#include "faults.hpp"
#include "vesk/kov_drivers_lidar_vesk_control_interface.hpp"

namespace kov::python {

namespace {

using kov::tools::veskctl::DiscoveryGoal;
using kov::tools::veskctl::DiscoveryWait;
using kov::tools::veskctl::runCall;
using kov::tools::veskctl::TransportKind;
using kov::tools::veskctl::TransportOptions;

/// A discovery wait wakes up at least this often to let Python handle signals (Ctrl-C).
constexpr std::chrono::milliseconds SIGNAL_CHECK_PERIOD{100};

std::chrono::milliseconds millisecondsOf(double seconds, const char* name) {
  if (!(seconds >= 0.0 && seconds <= 86400.0)) {
    throw py::value_error(std::string(name) + " must be between 0 and 86400 seconds");
  }
  return std::chrono::milliseconds(static_cast<long long>(seconds * 1000.0 + 0.5));
}

std::shared_ptr<Fleet> makeFleet(const TransportOptions& options) {
  std::string error;
  auto bundle = kov::tools::veskctl::makeTransport(options, error);
  if (!bundle.transport) {
    throw py::value_error(error);
  }
  return std::make_shared<Fleet>(std::move(bundle));
}

std::shared_ptr<Fleet> simulatedFleet(std::size_t sensors, bool legacy, double callTimeout) {
  TransportOptions options;
  options.kind = TransportKind::Simulator;
  options.sensors = sensors;
  options.legacySensor = legacy;
  options.simulatedCallTimeout = millisecondsOf(callTimeout, "call_timeout");
  return makeFleet(options);
}

std::shared_ptr<Fleet> someIpFleet(const std::string& unicast, const std::string& sdMulticast, int sdPort,
                                   double callTimeout) {
  if (sdPort < 1 || sdPort > 0xFFFF) {
    throw py::value_error("sd_port " + std::to_string(sdPort) + " out of range [1;65535]");
  }
  TransportOptions options;
  options.kind = TransportKind::SomeIp;
  options.unicast = unicast;
  options.sdMulticast = sdMulticast;
  options.sdPort = static_cast<std::uint16_t>(sdPort);
  options.callTimeout = millisecondsOf(callTimeout, "call_timeout");
  return makeFleet(options);
}

/// Fleets not yet closed, closed at interpreter exit while their transport threads may still take the
/// interpreter lock.
std::mutex liveFleetsMutex;
std::vector<std::weak_ptr<Fleet>> liveFleets;

void closeLiveFleets() {
  std::vector<std::weak_ptr<Fleet>> fleets;
  {
    std::lock_guard<std::mutex> lock(liveFleetsMutex);
    fleets.swap(liveFleets);
  }
  for (const auto& weak : fleets) {
    if (const auto fleet = weak.lock()) {
      fleet->close();
    }
  }
}

std::shared_ptr<Fleet> registered(std::shared_ptr<Fleet> fleet) {
  std::lock_guard<std::mutex> lock(liveFleetsMutex);
  liveFleets.erase(
      std::remove_if(liveFleets.begin(), liveFleets.end(), [](const auto& weak) { return weak.expired(); }),
      liveFleets.end());
  liveFleets.push_back(fleet);
  return fleet;
}

}  // namespace

Fleet::Fleet(kov::tools::veskctl::TransportBundle bundle) : bundle_(std::move(bundle)) {}

Fleet::~Fleet() {
  if (state_ != State::Closed && _Py_IsFinalizing() == 0) {
    py::gil_scoped_acquire acquire;
    close();
  }
  bundle_.endpointOf = nullptr;
  dropWithoutInterpreterLock(bundle_.simulator);
  dropWithoutInterpreterLock(bundle_.transport);
}

void Fleet::start() {
  if (state_ == State::Closed) {
    throw py::value_error("the fleet is closed");
  }
  if (state_ == State::Started) {
    return;
  }
  std::string failure;
  {
    py::gil_scoped_release release;
    control_ = kov::drivers::lidar::vesk::makeSensorControlA(bundle_.transport);
    auto outcome = runCall([this] { return control_ && control_->init(); });
    if (!outcome.ok) {
      failure = "cannot connect the transport: " + outcome.reason;
    } else {
      subscription_ = control_->subscribe(
          [this](const std::shared_ptr<ISensorControl::IClient>& client,
                 const std::unordered_set<std::uint16_t>& ids) { onServicesChanged(client, ids); });
      outcome = runCall([this] { return control_->start(); });
      if (!outcome.ok) {
        failure = "cannot start sensor discovery: " + outcome.reason;
      }
    }
  }
  state_ = State::Started;
  if (!failure.empty()) {
    close();
    raiseCallError(failure);
  }
}

void Fleet::stopLibrary() {
  if (control_) {
    control_->stop();
    control_->shutdown();
  }
  subscription_.reset();
  control_.reset();
  std::lock_guard<std::mutex> lock(mutex_);
  clients_.clear();
}

void Fleet::close() {
  if (state_ == State::Closed) {
    return;
  }
  state_ = State::Closed;
  closing_.store(true);
  callbacks_.closeAll();
  py::gil_scoped_release release;
  stopLibrary();
}

void Fleet::onServicesChanged(const std::shared_ptr<ISensorControl::IClient>& client,
                              const std::unordered_set<std::uint16_t>& serviceIds) {
  // On the transport's thread, with the library's observable lock held.
  const auto now = Clock::now();
  const auto sensorId = client->getSensorId();
  std::vector<std::pair<std::uint16_t, bool>> changes;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    clients_.emplace(sensorId, client);
    for (const auto serviceId : serviceIds) {
      const bool available = client->isAvailable(serviceId);
      reports_[{sensorId, serviceId}] = Report{available, now};
      changes.emplace_back(serviceId, available);
    }
  }
  changed_.notify_all();
  if (closing_.load()) {
    return;
  }
  for (const auto& change : changes) {
    callbacks_.report(sensorId, change.first, change.second);
  }
}

std::vector<std::uint16_t> Fleet::waitForSensors(std::optional<std::size_t> count,
                                                 std::optional<std::uint16_t> sensor, double timeoutSeconds) {
  if (state_ != State::Started) {
    throw py::value_error(state_ == State::Closed ? "the fleet is closed" : "the fleet is not started");
  }
  DiscoveryGoal goal;
  goal.sensors = count.value_or(0);
  goal.sensor = sensor;
  goal.settle = !count && !sensor;
  const auto timeout = millisecondsOf(timeoutSeconds, "timeout");
  const auto started = Clock::now();
  for (;;) {
    DiscoveryWait::Verdict verdict{DiscoveryWait::Verdict::State::Waiting, started, {}};
    std::vector<std::uint16_t> complete;
    {
      py::gil_scoped_release release;
      std::unique_lock<std::mutex> lock(mutex_);
      // Replayed in the order the reports came, so that the quiet time counts from the latest news.
      std::vector<std::pair<Report, std::pair<std::uint16_t, std::uint16_t>>> reports;
      for (const auto& entry : reports_) {
        reports.emplace_back(entry.second, entry.first);
      }
      std::sort(reports.begin(), reports.end(),
                [](const auto& left, const auto& right) { return left.first.at < right.first.at; });
      DiscoveryWait wait(goal, started, timeout);
      std::map<std::uint16_t, std::size_t> available;
      for (const auto& report : reports) {
        wait.serviceChanged(report.second.first, report.second.second, report.first.available,
                            report.first.at);
        available[report.second.first] += report.first.available ? 1 : 0;
      }
      const auto now = Clock::now();
      verdict = wait.check(now);
      if (verdict.state == DiscoveryWait::Verdict::State::Waiting) {
        changed_.wait_until(lock, std::min(verdict.until, now + SIGNAL_CHECK_PERIOD));
      }
      for (const auto& entry : available) {
        if (entry.second == std::size(DiscoveryWait::SERVICE_IDS)) {
          complete.push_back(entry.first);
        }
      }
    }
    if (verdict.state == DiscoveryWait::Verdict::State::Done) {
      return complete;
    }
    if (verdict.state == DiscoveryWait::Verdict::State::Failed) {
      PyErr_SetString(PyExc_TimeoutError, verdict.error.c_str());
      throw py::error_already_set();
    }
    if (PyErr_CheckSignals() != 0) {
      throw py::error_already_set();
    }
  }
}

std::vector<std::uint16_t> Fleet::sensorIds() const {
  std::vector<std::uint16_t> ids;
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& entry : clients_) {
    ids.push_back(entry.first);
  }
  return ids;
}

std::shared_ptr<Sensor> Fleet::sensor(std::uint16_t id) const {
  std::shared_ptr<ISensorControl::IClient> client;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = clients_.find(id);
    if (found != clients_.end()) {
      client = found->second;
    }
  }
  auto control = std::dynamic_pointer_cast<ISensorControl::IClientA>(client);
  if (!control) {
    char text[48];
    std::snprintf(text, sizeof(text), "no sensor 0x%x", static_cast<unsigned>(id));
    throw py::key_error(text);
  }
  return std::make_shared<Sensor>(std::move(client), std::move(control));
}

std::shared_ptr<AvailabilityCallbacks::Entry> Fleet::onAvailability(py::object callback) {
  if (!PyCallable_Check(callback.ptr())) {
    throw py::type_error("the availability callback must be callable");
  }
  if (state_ == State::Closed) {
    throw py::value_error("the fleet is closed");
  }
  return callbacks_.add(std::move(callback));
}

void bindFleet(py::module_& module) {
  py::class_<AvailabilityCallbacks::Entry, std::shared_ptr<AvailabilityCallbacks::Entry>>(
      module, "AvailabilityHandle", plainMetaclass(), "A registered availability callback; close() ends it.")
      .def("close", &AvailabilityCallbacks::Entry::close,
           "Ends the callback; once this returned it is not called again.")
      .def_property_readonly("closed", &AvailabilityCallbacks::Entry::closed, "Whether close() was called.");

  py::class_<Fleet, std::shared_ptr<Fleet>>(
      module, "Fleet", plainMetaclass(),
      "The sensors reachable through one transport: the built-in simulated fleet or SOME/IP. Use it "
      "with `with` (discovery starts on entry; stop and shutdown on exit) or call start() and close().")
      .def_static(
          "simulated",
          [](std::size_t sensors, bool legacy, double callTimeout) {
            return registered(simulatedFleet(sensors, legacy, callTimeout));
          },
          py::arg("sensors") = 3, py::arg("legacy") = false, py::arg("call_timeout") = 0.05,
          "A fleet of simulated sensors (ids 0x10, 0x11, ...; with legacy, one more under id 0x2). "
          "call_timeout is how long a call made to time out by fleet.faults blocks, in seconds.")
      .def_static(
          "someip",
          [](const std::string& unicast, const std::string& sdMulticast, int sdPort, double callTimeout) {
            return registered(someIpFleet(unicast, sdMulticast, sdPort, callTimeout));
          },
          py::arg("unicast"), py::arg("sd_multicast") = TransportOptions::DEFAULT_SD_MULTICAST,
          py::arg("sd_port") = TransportOptions::DEFAULT_SD_PORT, py::arg("call_timeout") = 1.0,
          "Sensors reached over SOME/IP on UDP from this host's IPv4 address `unicast`; call_timeout "
          "is how long a call waits for its response, in seconds.")
      .def_property_readonly(
          "faults",
          [](const Fleet& self) {
            if (!self.simulator()) {
              throw py::value_error("fault injection needs the simulated fleet");
            }
            return Faults(self.simulator());
          },
          "Fault injection (Faults); only for the simulated fleet, ValueError otherwise.")
      .def("start", &Fleet::start, "Connects the transport and starts discovery; CallError on failure.")
      .def("close", &Fleet::close, "Stops discovery, shuts the library down and ends every callback.")
      .def(
          "__enter__",
          [](const std::shared_ptr<Fleet>& self) {
            self->start();
            return self;
          },
          "Starts the fleet.")
      .def(
          "__exit__", [](Fleet& self, const py::args&) { self.close(); }, "Closes the fleet.")
      .def("wait_for_sensors", &Fleet::waitForSensors, py::arg("count") = py::none(),
           py::arg("sensor") = py::none(), py::arg("timeout") = 5.0,
           "Waits until `count` sensors offer all their services, or until `sensor` does, or (neither "
           "given) until discovery settles; returns the sorted ids of the sensors that offer all their "
           "services. TimeoutError names what was asked for and what was found.")
      .def("sensor_ids", &Fleet::sensorIds, "The ids of the sensors discovered so far, sorted.")
      .def("sensor", &Fleet::sensor, py::arg("id"), "The Sensor with this id; KeyError for an unknown id.")
      .def("on_availability", &Fleet::onAvailability, py::arg("callback"),
           "Calls callback(sensor_id, service_id, available) on the transport's thread for every "
           "availability report from now on; returns an AvailabilityHandle. Exceptions it raises go to "
           "sys.unraisablehook. It must not close the fleet.");

  module.def("_close_live_fleets", &closeLiveFleets, "Closes every fleet still open (at interpreter exit).");
}

}  // namespace kov::python
