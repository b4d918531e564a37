#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace kov::drivers::lidar::vesk {

/// Shared between an object and the handlers it hands to a transport, so that no handler outlives its
/// owner: every handler runs its work inside a `HandlerGuard::Call`, and the owner calls `close()`
/// before it goes. After `close()` has returned no call does any work, and no call that started
/// earlier is still running, except calls on the closing thread itself (an owner destroyed from inside
/// one of its own handlers): close() does not wait for those, which would never end.
///
/// Threads: calls may run concurrently on any number of threads and are never serialised; entering and
/// leaving a call touch two atomics and a thread-local link, and allocate nothing. close() may be called
/// from any thread, more than once. The guard itself lives as long as its longest holder (the owner or
/// a handler copy kept by the transport), hence `std::shared_ptr<HandlerGuard>`.
class HandlerGuard {
 public:
  /// One handler invocation. Test it before doing work: false once the guard is closed.
  class Call {
   public:
    explicit Call(HandlerGuard& guard) noexcept;
    ~Call();

    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    explicit operator bool() const noexcept { return admitted_; }

   private:
    friend class HandlerGuard;

    HandlerGuard& guard_;
    const Call* outer_;  // the call this thread was running when this one began (any guard)
    bool admitted_;
  };

  HandlerGuard() = default;
  HandlerGuard(const HandlerGuard&) = delete;
  HandlerGuard& operator=(const HandlerGuard&) = delete;

  /// Refuses every later call and waits until no call of another thread is running.
  void close();

  bool isClosed() const noexcept { return closed_.load(); }

 private:
  /// Calls of this guard running on the calling thread (nested handlers).
  int callsOnThisThread() const noexcept;

  // Sequentially consistent on purpose: a call increments running_ and then reads closed_, close()
  // sets closed_ and then reads running_, so at least one of the two sees the other.
  std::atomic<bool> closed_{false};
  std::atomic<int> running_{0};
  std::mutex idleMutex_;  // only for waking close(); never held while a handler works
  std::condition_variable idle_;
};

}  // namespace kov::drivers::lidar::vesk
