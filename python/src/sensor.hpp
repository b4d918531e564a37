#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "binding.hpp"
#include "vesk/i_sensor_control.hpp"

namespace kov::python {

using kov::drivers::lidar::vesk::ISensorControl;

/// kov_vesk.Sensor: one sensor's client. Every method call releases the interpreter's lock while the
/// library runs, so other Python threads go on while a call waits for its response; the reasons of a
/// failed call are collected on the calling thread. Any number of threads may call at once, as the
/// library's client allows.
class Sensor {
 public:
  Sensor(std::shared_ptr<ISensorControl::IClient> client, std::shared_ptr<ISensorControl::IClientA> control);
  /// Drops the client without the interpreter's lock: the client's destructor calls the transport.
  ~Sensor();

  Sensor(const Sensor&) = delete;
  Sensor& operator=(const Sensor&) = delete;

  std::uint16_t id() const { return id_; }
  std::unordered_map<std::uint16_t, bool> services() const;
  const std::shared_ptr<ISensorControl::IClientA>& control() const { return control_; }

  /// Calls `get` on the client; raises the matching kov_vesk exception when it fails.
  template <typename Record>
  Record get(bool (ISensorControl::IClientA::*get)(Record&) const) const {
    Record value{};
    run([&] { return ((*control_).*get)(value); });
    return value;
  }

  /// Calls `set` on the client with `value`; raises the matching kov_vesk exception when it fails.
  template <typename Record>
  void set(bool (ISensorControl::IClientA::*set)(const Record&), const Record& value) {
    run([&] { return ((*control_).*set)(value); });
  }

 private:
  template <typename Call>
  void run(Call call) const {
    kov::tools::veskctl::CallOutcome outcome;
    {
      py::gil_scoped_release release;
      outcome = kov::tools::veskctl::runCall(call);
    }
    if (!outcome.ok) {
      raiseCallError(outcome);
    }
  }

  std::uint16_t id_;
  std::shared_ptr<ISensorControl::IClient> client_;
  std::shared_ptr<ISensorControl::IClientA> control_;
};

}  // namespace kov::python
