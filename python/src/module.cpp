#include "binding.hpp"

PYBIND11_MODULE(_native, module) {
  module.doc() = "Native part of kov_vesk: the sensor control library and its transports.";
  // Logging first: it installs the logger that collects the reasons of failed calls.
  kov::python::bindLogging(module);
  kov::python::bindSensor(module);
  kov::python::bindFaults(module);
  kov::python::bindFleet(module);
}
