#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "binding.hpp"

namespace kov::python {

/// The Python callbacks that fleet.on_availability() registered, called as callback(sensor_id,
/// service_id, available) for every availability report.
///
/// Threads: report() runs on the transport's thread (no interpreter lock held) and takes the lock for
/// each call; an exception a callback raises goes to sys.unraisablehook and never into the library.
/// Each callback has its own recursive mutex, held while it is called: close() takes it (with the
/// interpreter lock released), so a callback never runs after close() returned, and a callback may
/// close itself. Once the interpreter is finalising no callback is called.
class AvailabilityCallbacks {
 public:
  /// One registered callback; close() ends it.
  class Entry {
   public:
    explicit Entry(py::object callback) : callback_(callback.release().ptr()) {}
    ~Entry();
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    /// Called with the interpreter lock held; releases it while it waits for a running call.
    void close();
    bool closed() const { return closed_.load(); }
    /// Calls the callback unless closed; takes the interpreter lock.
    void call(std::uint16_t sensorId, std::uint16_t serviceId, bool available);

   private:
    std::recursive_mutex running_;
    std::atomic<bool> closed_{false};
    PyObject* callback_;  ///< owned reference; dropped with the interpreter lock held in close()
  };

  std::shared_ptr<Entry> add(py::object callback);
  /// Calls every open callback; from the transport's thread, without the interpreter lock.
  void report(std::uint16_t sensorId, std::uint16_t serviceId, bool available);
  /// Closes every callback; with the interpreter lock held.
  void closeAll();

 private:
  std::mutex mutex_;
  std::vector<std::shared_ptr<Entry>> entries_;
};

}  // namespace kov::python
