#include "handler_guard/handler_guard.hpp"

namespace kov::drivers::lidar::vesk {

namespace {

/// The innermost guarded call of this thread; the calls of one thread form a chain on its stack.
/// Initial-exec TLS: every event handler call reads and writes it, and the general-dynamic model of
/// a shared library would cost a __tls_get_addr call each time.
__attribute__((tls_model("initial-exec"))) thread_local const HandlerGuard::Call* innermostCall = nullptr;

}  // namespace

HandlerGuard::Call::Call(HandlerGuard& guard) noexcept : guard_(guard), outer_(innermostCall) {
  guard_.running_.fetch_add(1);
  admitted_ = !guard_.closed_.load();
  innermostCall = this;
}

HandlerGuard::Call::~Call() {
  innermostCall = outer_;
  guard_.running_.fetch_sub(1);
  if (guard_.closed_.load()) {
    // A closer may be waiting for this call; the lock orders the wake-up after its check.
    std::lock_guard<std::mutex> lock(guard_.idleMutex_);
    guard_.idle_.notify_all();
  }
}

void HandlerGuard::close() {
  closed_.store(true);
  const int own = callsOnThisThread();
  std::unique_lock<std::mutex> lock(idleMutex_);
  idle_.wait(lock, [this, own] { return running_.load() <= own; });
}

int HandlerGuard::callsOnThisThread() const noexcept {
  int count = 0;
  for (const Call* call = innermostCall; call != nullptr; call = call->outer_) {
    count += (&call->guard_ == this) ? 1 : 0;
  }
  return count;
}

}  // namespace kov::drivers::lidar::vesk
