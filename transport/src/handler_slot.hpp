#pragma once

#include <utility>

#include "handler_guard/handler_guard.hpp"

namespace kov::platform::networking::someip::detail {

/// A handler registered by the transport's user together with the control library's HandlerGuard, so
/// that it is never called after close() returned: close() waits for a call in progress on another
/// thread, and from inside the handler (same thread) it does not wait, so a handler may end its own
/// registration.
template <typename Handler>
class HandlerSlot {
 public:
  explicit HandlerSlot(Handler handler) : handler_(std::move(handler)) {}

  template <typename... Args>
  bool invoke(Args&&... args) {
    return visit([&](Handler& handler) { handler(std::forward<Args>(args)...); });
  }

  /// Calls `visit(handler)` unless the slot was closed, for handlers whose result the caller needs.
  template <typename Visitor>
  bool visit(Visitor&& visitor) {
    const kov::drivers::lidar::vesk::HandlerGuard::Call call(guard_);
    if (!call) {
      return false;
    }
    visitor(handler_);
    return true;
  }

  void close() { guard_.close(); }

 private:
  kov::drivers::lidar::vesk::HandlerGuard guard_;
  Handler handler_;
};

}  // namespace kov::platform::networking::someip::detail
