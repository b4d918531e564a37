#include "faults.hpp"

#include <pybind11/stl.h>

#include <cstdio>
#include <optional>
#include <string>

namespace kov::python {

namespace {

using Result = kov::platform::networking::ISomeIpTransport::Result;

Result resultOf(long long code) {
  if (code < 0 || code > 0xFFFFFFFFLL) {
    throw py::value_error("result " + std::to_string(code) + " out of range");
  }
  return static_cast<Result>(code);
}

[[noreturn]] void unknownSensor(std::uint16_t sensor) {
  char text[48];
  std::snprintf(text, sizeof(text), "no sensor 0x%x in the fleet", static_cast<unsigned>(sensor));
  throw py::key_error(text);
}

}  // namespace

void bindFaults(py::module_& module) {
  py::class_<Faults>(module, "Faults", plainMetaclass(),
                     "Fault injection into the simulated fleet, to test error handling without hardware. "
                     "Result codes are the simulator's: 1 time-out, 2 unknown service, 3 unknown "
                     "method, 4 not ready, 9 malformed message, 0x20 refused by the sensor.")
      .def(
          "fail_next_calls",
          [](const Faults& self, std::uint16_t sensor, std::uint16_t service, std::uint16_t method,
             long long result, std::size_t count) {
            const auto code = resultOf(result);
            bool known = false;
            {
              py::gil_scoped_release release;
              known = self.fleet().failNextCalls(sensor, service, method, code, count);
            }
            if (!known) {
              unknownSensor(sensor);
            }
          },
          py::arg("sensor"), py::arg("service"), py::arg("method"), py::arg("result"), py::arg("count") = 1,
          "The next `count` calls of (service, method) on the sensor return `result` without reaching "
          "it; a time-out (1) blocks for the fleet's call_timeout first. KeyError for an unknown sensor.")
      .def(
          "set_online",
          [](const Faults& self, std::uint16_t sensor, bool online) {
            bool known = false;
            {
              py::gil_scoped_release release;
              known = self.fleet().setSensorOnline(sensor, online);
            }
            if (!known) {
              unknownSensor(sensor);
            }
          },
          py::arg("sensor"), py::arg("online"),
          "Takes a sensor's services off the network (False) or brings them back (True, the sensor "
          "boots again); reported asynchronously. KeyError for an unknown sensor.")
      .def(
          "inject_event",
          [](const Faults& self, std::uint16_t sensor, std::uint16_t service, std::uint16_t event,
             const std::optional<py::bytes>& payload, std::optional<std::size_t> size) {
            std::string bytes = payload ? std::string(*payload) : std::string();
            const std::size_t length = size.value_or(bytes.size());
            if (payload && length > bytes.size()) {
              throw py::value_error("size is larger than the payload");
            }
            py::gil_scoped_release release;
            return self.fleet().injectEvent(sensor, service, event, payload ? bytes.data() : nullptr, length);
          },
          py::arg("sensor"), py::arg("service"), py::arg("event"), py::arg("payload"),
          py::arg("size") = py::none(),
          "Delivers one event with these payload bytes (None: a null payload of `size` bytes) to the "
          "subscriber of the sensor's service; False when nobody is subscribed.")
      .def(
          "fail_next_connect",
          [](const Faults& self, long long result) {
            const auto code = resultOf(result);
            py::gil_scoped_release release;
            self.fleet().failNextConnect(code);
          },
          py::arg("result"), "Makes the next connect (Fleet.start) fail with `result`.")
      .def(
          "drain",
          [](const Faults& self, double timeout) {
            if (!(timeout >= 0.0 && timeout <= 60.0)) {
              throw py::value_error("timeout must be between 0 and 60 seconds");
            }
            py::gil_scoped_release release;
            return self.fleet().drain(std::chrono::milliseconds(static_cast<long long>(timeout * 1000.0)));
          },
          py::arg("timeout") = 1.0,
          "Waits until every availability report and event queued so far was delivered; False on "
          "timeout.");
}

}  // namespace kov::python
