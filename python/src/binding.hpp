#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>

#include "call_reason.hpp"
#include "serialization/types/records.hpp"
#include "serialization/types/scan_pattern.hpp"

// The pieces of the native module kov_vesk._native, one file each. The records, enumerations and
// exceptions are plain Python classes (kov_vesk/_records.py, _errors.py); this layer converts to and
// from them and owns no behaviour of its own.
namespace kov::python {

namespace py = pybind11;
namespace types = kov::drivers::lidar::vesk::types;

// Records (records.cpp): library records to Python records and back. The reverse conversions check
// the value with the library's own conversion to the wire record and raise ValueError with the
// library's reason when it refuses, before anything is sent.
py::object toPython(const types::DesiredScanSettings& value);
py::object toPython(const types::AchievedScanSettings& value);
py::object toPython(const types::SensorHealthStatus& value);
py::object toPython(const types::SensorSoftwareVersion& value);
py::object toPython(const types::DatapathDestinationInfo& value);
/// The scan datum's elevation in degrees, as a float.
py::object toPython(const types::ScanDatum& value);
py::object toPython(types::SystemModeStatus value);
py::object toPython(types::ScanPatternCommandStatus value);
types::DesiredScanSettings desiredScanSettingsFrom(const py::handle& value);
types::SystemModeCommand systemModeCommandFrom(const py::handle& value);
types::ScanDatum scanDatumFrom(double degrees);
types::ScanPattern scanPatternFrom(const py::iterable& commands);
types::DatapathDestinationInfo datapathDestinationFrom(const std::string& ip, int port);

// Errors (call_errors.cpp): raises the kov_vesk exception that matches a failed call.
[[noreturn]] void raiseCallError(const kov::tools::veskctl::CallOutcome& outcome);
/// Raises CallError with `reason` and no transport code.
[[noreturn]] void raiseCallError(const std::string& reason);

/// The metaclass of the module's classes: Python's own `type` instead of pybind11's, so that the classes
/// look like ordinary classes to type checkers (the module has no static properties, which would need
/// pybind11's).
inline py::metaclass plainMetaclass() {
  return py::metaclass(reinterpret_cast<PyObject*>(&PyType_Type));
}

/// Drops `owned` with the interpreter lock released when this thread holds it: the last reference to a
/// client or a transport stops the transport's threads, which may be waiting for that lock (a log line
/// bound for Python logging, an availability callback).
template <typename T>
void dropWithoutInterpreterLock(std::shared_ptr<T>& owned) {
  if (PyGILState_Check() != 0 && _Py_IsFinalizing() == 0) {
    py::gil_scoped_release release;
    owned.reset();
  } else {
    owned.reset();
  }
}

void bindSensor(py::module_& module);
void bindFleet(py::module_& module);
void bindFaults(py::module_& module);
void bindLogging(py::module_& module);

}  // namespace kov::python
