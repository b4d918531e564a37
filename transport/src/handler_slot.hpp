#pragma once

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>

namespace kov::platform::networking::someip::detail {

/// A handler registered by the transport's user, never called after close() returned: close() waits
/// for a call in progress on another thread. Closing from inside the handler (same thread) does not
/// wait, so a handler may end its own registration.
template <typename Handler>
class HandlerSlot {
 public:
  explicit HandlerSlot(Handler handler) : handler_(std::move(handler)) {}

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

  /// Calls `visit(handler)` unless the slot was closed, for handlers whose result the caller needs.
  template <typename Visitor>
  bool visit(Visitor&& visitor) {
    std::lock_guard<std::mutex> lock(callMutex_);
    if (!open_) {
      return false;
    }
    caller_.store(std::this_thread::get_id());
    visitor(handler_);
    caller_.store(std::thread::id{});
    return true;
  }

  void close() {
    if (caller_.load() == std::this_thread::get_id()) {
      open_ = false;  // inside invoke() on this thread: callMutex_ is ours already
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

}  // namespace kov::platform::networking::someip::detail
