#include "sensor.hpp"

#include <pybind11/stl.h>

#include <cstdio>
#include <utility>

namespace kov::python {

namespace {

using IClientA = ISensorControl::IClientA;

/// kov_vesk.Sensor.events: the latest value of each event, each read a whole record copied under the
/// client's event lock.
class Events {
 public:
  explicit Events(std::shared_ptr<Sensor> sensor) : sensor_(std::move(sensor)) {}

  template <typename Record>
  Record copy() const {
    Record record{};
    sensor_->control()->copyEvent(record);
    return record;
  }

 private:
  std::shared_ptr<Sensor> sensor_;
};

void bindEvents(py::module_& module) {
  py::class_<Events>(module, "Events", plainMetaclass(),
                     "The latest value of each event the sensor publishes; zero values until the first "
                     "event. Every read returns a fresh whole record.")
      .def_property_readonly(
          "system_mode",
          [](const Events& events) { return toPython(events.copy<types::SystemModeStatus>()); },
          "The system mode status event (SystemMode).")
      .def_property_readonly(
          "health", [](const Events& events) { return toPython(events.copy<types::SensorHealthStatus>()); },
          "The health heartbeat event (SensorHealthStatus).")
      .def_property_readonly(
          "achieved_scan_settings",
          [](const Events& events) { return toPython(events.copy<types::AchievedScanSettings>()); },
          "The achieved scan settings event (AchievedScanSettings).")
      .def_property_readonly(
          "scan_datum", [](const Events& events) { return events.copy<types::ScanDatum>().elevation; },
          "The scan datum event, elevation in degrees (float).")
      .def_property_readonly(
          "scan_pattern_status",
          [](const Events& events) { return toPython(events.copy<types::ScanPatternCommandStatus>()); },
          "The scan pattern command status event (ScanPatternStatus).");
}

using SensorClass = py::class_<Sensor, std::shared_ptr<Sensor>>;

/// Binds one getter of the client as a method that returns the Python record.
template <typename Record>
void defGetter(SensorClass& sensor, const char* name, bool (IClientA::*get)(Record&) const, const char* doc) {
  sensor.def(
      name, [get](const Sensor& self) { return toPython(self.get(get)); }, doc);
}

/// Binds one setter of the client as a method whose arguments `from` converts into the library's record.
template <typename Record, typename... Args, typename... Extra>
void defSetter(SensorClass& sensor, const char* name, bool (IClientA::*set)(const Record&),
               Record (*from)(Args...), const Extra&... extra) {
  sensor.def(
      name, [set, from](Sensor& self, Args... args) { self.set(set, from(args...)); }, extra...);
}

}  // namespace

Sensor::Sensor(std::shared_ptr<ISensorControl::IClient> client,
               std::shared_ptr<ISensorControl::IClientA> control)
    : id_(client->getSensorId()), client_(std::move(client)), control_(std::move(control)) {}

Sensor::~Sensor() {
  control_.reset();
  dropWithoutInterpreterLock(client_);
}

std::unordered_map<std::uint16_t, bool> Sensor::services() const {
  py::gil_scoped_release release;
  return client_->getServiceAvailability();
}

void bindSensor(py::module_& module) {
  bindEvents(module);
  using Self = Sensor;
  auto sensor =
      py::class_<Sensor, std::shared_ptr<Sensor>>(
          module, "Sensor", plainMetaclass(),
          "One sensor: a method per operation of the sensor, each blocking until the sensor answered (the "
          "interpreter lock is released meanwhile). Failures raise CallError or one of its subclasses; "
          "values the library refuses raise ValueError before anything is sent.")
          .def_property_readonly("id", &Sensor::id, "The sensor id (its SOME/IP instance id).")
          .def_property_readonly("services", &Sensor::services,
                                 "Dict of service id to availability (bool) of the sensor's services.")
          .def_property_readonly(
              "events", [](const std::shared_ptr<Sensor>& self) { return Events(self); },
              "The sensor's latest event values (Events).")
          .def("__repr__", [](const Self& self) {
            char text[32];
            std::snprintf(text, sizeof(text), "Sensor(0x%x)", static_cast<unsigned>(self.id()));
            return std::string(text);
          });
  defSetter(sensor, "set_system_mode", &IClientA::setSystemMode, &systemModeCommandFrom, py::arg("command"),
            "Asks the sensor to enter a mode (SystemModeCommand).");
  defSetter(sensor, "set_desired_scan_settings", &IClientA::setDesiredScanSettings, &desiredScanSettingsFrom,
            py::arg("settings"), "Asks for scan settings (DesiredScanSettings).");
  defSetter(sensor, "set_scan_datum", &IClientA::setScanDatum, &scanDatumFrom, py::arg("degrees"),
            "Sets the scan datum elevation in degrees (the library accepts -18 to 10).");
  defSetter(sensor, "set_scan_pattern", &IClientA::setScanPattern, &scanPatternFrom, py::arg("commands"),
            "Sends a scan pattern: up to 88 commands (Point, Snap, MinLines).");
  defSetter(sensor, "set_datapath_destination", &IClientA::setDatapathDestinationInfo,
            &datapathDestinationFrom, py::arg("ip"), py::arg("port"),
            "Sets where the sensor sends its data: IPv4 address and UDP port.");
  defGetter(sensor, "get_system_mode", &IClientA::getSystemModeStatus,
            "The sensor's system mode (SystemMode).");
  defGetter(sensor, "get_desired_scan_settings", &IClientA::getDesiredScanSettings,
            "The scan settings asked for (DesiredScanSettings).");
  defGetter(sensor, "get_achieved_scan_settings", &IClientA::getAchievedScanSettings,
            "The scan settings the sensor achieves (AchievedScanSettings).");
  defGetter(sensor, "get_scan_datum", &IClientA::getScanDatum,
            "The scan datum elevation in degrees (float).");
  defGetter(sensor, "get_scan_pattern_status", &IClientA::getScanPatternCommandStatus,
            "The outcome of the last scan pattern (ScanPatternStatus).");
  defGetter(sensor, "get_software_version", &IClientA::getSensorSoftwareVersion,
            "The sensor's software version texts (SensorSoftwareVersion).");
  defGetter(sensor, "get_datapath_destination", &IClientA::getDatapathDestinationInfo,
            "Where the sensor sends its data (DatapathDestination).");
}

}  // namespace kov::python
