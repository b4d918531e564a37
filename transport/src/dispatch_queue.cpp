#include "dispatch_queue.hpp"

#include <algorithm>

#include "process/kov_platform_posix_process.hpp"

namespace kov::platform::networking::someip::detail {

void DispatchQueue::start() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (worker_.joinable()) {
    return;
  }
  stopping_ = false;
  worker_ = std::thread([this] { run(); });
  workerId_.store(worker_.get_id());
}

void DispatchQueue::post(Task task) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_ || !worker_.joinable()) {
      return;
    }
    tasks_.emplace_back(std::move(task), 0);
  }
  wakeUp_.notify_one();
}

bool DispatchQueue::postDroppable(Task task, std::size_t bytes, std::size_t maxTasks, std::size_t maxBytes) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (tasks_.size() >= maxTasks || bytes > maxBytes - std::min(maxBytes, queuedBytes_)) {
      return false;
    }
    if (stopping_ || !worker_.joinable()) {
      return true;  // shutting down: nothing runs any more, which is not a backlog
    }
    tasks_.emplace_back(std::move(task), bytes);
    queuedBytes_ += bytes;
  }
  wakeUp_.notify_one();
  return true;
}

void DispatchQueue::stop() {
  std::thread worker;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    tasks_.clear();
    queuedBytes_ = 0;
    if (isDispatchThread() || !worker_.joinable()) {
      wakeUp_.notify_all();
      return;
    }
    worker = std::move(worker_);
  }
  wakeUp_.notify_all();
  worker.join();
  std::lock_guard<std::mutex> lock(mutex_);
  workerId_.store(std::thread::id{});
}

void DispatchQueue::run() {
  kov::platform::process::setNameOfCurrentThread("someip-dispatch");
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    wakeUp_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
    if (stopping_) {
      return;
    }
    Task task = std::move(tasks_.front().first);
    queuedBytes_ -= tasks_.front().second;
    tasks_.pop_front();
    lock.unlock();
    task();
    task = nullptr;
    lock.lock();
  }
}

}  // namespace kov::platform::networking::someip::detail
