#include "dispatcher.hpp"

#include <algorithm>
#include <memory>
#include <utility>

#include "process/kov_platform_posix_process.hpp"

namespace kov::tools::simulator {

Dispatcher::Dispatcher(std::string threadName)
    : worker_([this, name = std::move(threadName)] { run(name); }) {}

Dispatcher::~Dispatcher() {
  stop();
}

void Dispatcher::post(Task task) {
  postAt(Clock::now(), std::move(task));
}

void Dispatcher::postAt(Clock::time_point due, Task task) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) {
      return;
    }
    latestDue_ = std::max(latestDue_, due);
    queue_.push(Entry{due, nextSequence_++, std::move(task)});
  }
  wakeUp_.notify_one();
}

bool Dispatcher::sync(std::chrono::milliseconds timeout) {
  if (isWorkerThread()) {
    return false;
  }
  struct Marker {
    std::mutex mutex;
    std::condition_variable done;
    bool reached{false};
  };
  auto marker = std::make_shared<Marker>();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) {
      return false;
    }
    queue_.push(Entry{std::max(Clock::now(), latestDue_), nextSequence_++, [marker] {
                        std::lock_guard<std::mutex> markerLock(marker->mutex);
                        marker->reached = true;
                        marker->done.notify_all();
                      }});
  }
  wakeUp_.notify_one();
  std::unique_lock<std::mutex> markerLock(marker->mutex);
  return marker->done.wait_for(markerLock, timeout, [&marker] { return marker->reached; });
}

bool Dispatcher::isWorkerThread() const {
  return std::this_thread::get_id() == worker_.get_id();
}

void Dispatcher::stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wakeUp_.notify_all();
  if (isWorkerThread()) {
    // Cannot join oneself: the worker ends after the current task and the owner joins it.
    return;
  }
  if (worker_.joinable()) {
    worker_.join();
  }
  std::lock_guard<std::mutex> lock(mutex_);
  queue_ = {};
}

void Dispatcher::run(const std::string& threadName) {
  kov::platform::process::setNameOfCurrentThread(threadName);
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    if (queue_.empty()) {
      wakeUp_.wait(lock);
      continue;
    }
    const auto due = queue_.top().due;
    if (due > Clock::now()) {
      wakeUp_.wait_until(lock, due);
      continue;
    }
    Task task = std::move(const_cast<Entry&>(queue_.top()).task);
    queue_.pop();
    lock.unlock();
    task();
    task = nullptr;  // drop captured state outside the lock
    lock.lock();
  }
}

}  // namespace kov::tools::simulator
