#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace kov::platform::networking::someip::detail {

/// The transport's dispatch thread: runs the user's handlers in the order they were posted, so that
/// no handler runs on a thread that called into the transport and a slow handler never stalls
/// reception.
class DispatchQueue {
 public:
  using Task = std::function<void()>;

  DispatchQueue() = default;
  ~DispatchQueue() { stop(); }
  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  void start();
  /// Queues a task that must run (availability reports, whose order is state).
  void post(Task task);
  /// Queues a task that may be dropped (an event, a request) and holds `bytes` of payload: false,
  /// without queueing, while `maxTasks` tasks or more wait or the waiting ones would hold more than
  /// `maxBytes`.
  bool postDroppable(Task task, std::size_t bytes, std::size_t maxTasks, std::size_t maxBytes);
  /// Ends the thread; tasks not yet run are dropped. Called on the dispatch thread itself it only asks
  /// the thread to end (the owner joins it later).
  void stop();
  bool isDispatchThread() const { return std::this_thread::get_id() == workerId_.load(); }

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable wakeUp_;
  std::deque<std::pair<Task, std::size_t>> tasks_;  // with the payload bytes each holds
  std::size_t queuedBytes_{0};
  bool stopping_{false};
  std::thread worker_;
  std::atomic<std::thread::id> workerId_{};
};

}  // namespace kov::platform::networking::someip::detail
