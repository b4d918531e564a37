#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <queue>
#include <string>
#include <thread>
#include <vector>

namespace kov::tools::simulator {

/// One worker thread that runs posted tasks in order of due time (FIFO among equal times), the way a
/// SOME/IP binding runs its callbacks on a dispatcher thread of its own.
class Dispatcher {
 public:
  using Clock = std::chrono::steady_clock;
  using Task = std::function<void()>;

  /// Starts the worker thread, named `threadName` (at most 15 characters are kept).
  explicit Dispatcher(std::string threadName);
  /// Stops the worker; tasks not yet run are dropped without running.
  ~Dispatcher();

  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  /// Runs `task` as soon as the tasks posted before it have run.
  void post(Task task);
  /// Runs `task` at `due` or later.
  void postAt(Clock::time_point due, Task task);

  /// Waits until every task posted so far has run, delayed ones included. False when `timeout`
  /// passed first, when called on the worker thread itself, or after stop().
  bool sync(std::chrono::milliseconds timeout);

  /// True on the worker thread.
  bool isWorkerThread() const;

  /// Ends the worker thread and drops pending tasks. Safe to call more than once; called on the
  /// worker thread itself it only asks the worker to end.
  void stop();

 private:
  struct Entry {
    Clock::time_point due;
    std::uint64_t sequence;
    Task task;
  };
  struct Later {
    bool operator()(const Entry& lhs, const Entry& rhs) const {
      return lhs.due != rhs.due ? lhs.due > rhs.due : lhs.sequence > rhs.sequence;
    }
  };

  void run(const std::string& threadName);

  mutable std::mutex mutex_;
  std::condition_variable wakeUp_;
  std::priority_queue<Entry, std::vector<Entry>, Later> queue_;
  std::uint64_t nextSequence_{0};
  Clock::time_point latestDue_{};
  bool stopping_{false};
  std::thread worker_;
};

}  // namespace kov::tools::simulator
