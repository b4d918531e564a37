#pragma once

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>

namespace kov::tools::simulator {

/// A callback registered by the transport's user, with the guarantee that it is never called after
/// close() returned: close() waits for a call in progress on another thread. close() from inside the
/// callback itself (same thread) does not wait, so the callback may unregister itself.
template <typename Handler>
class HandlerSlot {
 public:
  explicit HandlerSlot(Handler handler) : handler_(std::move(handler)) {}

  /// Calls the handler unless the slot was closed. Returns whether it was called.
  template <typename... Args>
  bool invoke(Args&&... args) {
    std::lock_guard<std::mutex> lock(callMutex_);
    if (!open_) {
      return false;
    }
    caller_.store(std::this_thread::get_id());
    handler_(std::forward<Args>(args)...);
    caller_.store(std::thread::id{});
    return true;
  }

  /// After this returns the handler is not called again.
  void close() {
    if (caller_.load() == std::this_thread::get_id()) {
      open_ = false;  // we are inside invoke() on this thread and hold callMutex_ already
      return;
    }
    std::lock_guard<std::mutex> lock(callMutex_);
    open_ = false;
  }

 private:
  std::mutex callMutex_;
  std::atomic<std::thread::id> caller_{};
  bool open_{true};
  Handler handler_;
};

}  // namespace kov::tools::simulator
