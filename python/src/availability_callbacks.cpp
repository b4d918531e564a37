#include "availability_callbacks.hpp"

#include <algorithm>

namespace kov::python {

AvailabilityCallbacks::Entry::~Entry() {
  // An entry still open when the last reference goes keeps its callback: dropping the reference needs
  // the interpreter lock, which the thread that drops the entry may not hold.
}

void AvailabilityCallbacks::Entry::close() {
  {
    py::gil_scoped_release release;
    std::lock_guard<std::recursive_mutex> lock(running_);
    if (closed_.exchange(true)) {
      return;
    }
  }
  PyObject* callback = callback_;
  callback_ = nullptr;
  Py_XDECREF(callback);
}

void AvailabilityCallbacks::Entry::call(std::uint16_t sensorId, std::uint16_t serviceId, bool available) {
  std::lock_guard<std::recursive_mutex> lock(running_);
  if (closed_.load() || _Py_IsFinalizing() != 0) {
    return;
  }
  py::gil_scoped_acquire acquire;
  // Our own reference for the call: the callback may close its entry, which drops the entry's one.
  const auto callback = py::reinterpret_borrow<py::object>(callback_);
  try {
    callback(sensorId, serviceId, available);
  } catch (py::error_already_set& error) {
    error.discard_as_unraisable("kov_vesk availability callback");
  } catch (const std::exception& error) {
    // Only the interpreter's own failures (a conversion, memory) can get here.
    PyErr_SetString(PyExc_RuntimeError, error.what());
    PyErr_WriteUnraisable(callback.ptr());
  }
}

std::shared_ptr<AvailabilityCallbacks::Entry> AvailabilityCallbacks::add(py::object callback) {
  auto entry = std::make_shared<Entry>(std::move(callback));
  std::lock_guard<std::mutex> lock(mutex_);
  entries_.erase(
      std::remove_if(entries_.begin(), entries_.end(), [](const auto& old) { return old->closed(); }),
      entries_.end());
  entries_.push_back(entry);
  return entry;
}

void AvailabilityCallbacks::report(std::uint16_t sensorId, std::uint16_t serviceId, bool available) {
  std::vector<std::shared_ptr<Entry>> entries;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    entries = entries_;
  }
  for (const auto& entry : entries) {
    entry->call(sensorId, serviceId, available);
  }
}

void AvailabilityCallbacks::closeAll() {
  std::vector<std::shared_ptr<Entry>> entries;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    entries.swap(entries_);
  }
  for (const auto& entry : entries) {
    entry->close();
  }
}

}  // namespace kov::python
