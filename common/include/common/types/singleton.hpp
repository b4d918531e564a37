#pragma once

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <stdexcept>

namespace kov::common::types {

/// Creation policy: plain new and delete.
template <class T>
struct CreateUsingNew {
  static T* create() { return new T; }
  static void destroy(T* object) { delete object; }
};

/// Lifetime policy: destroyed by atexit; use after destruction throws.
template <class T>
struct DefaultLifetime {
  static void scheduleDestruction(void (*destroyFunction)()) { std::atexit(destroyFunction); }
  [[noreturn]] static void onDeadReference() { throw std::logic_error("Dead Reference Detected"); }
};

/// A process-wide instance of T, created on first use under a mutex (double-checked) and destroyed at
/// exit. Asking for it after destruction reports a dead reference once; asking again creates a new one.
template <class T, template <class> class CreationPolicy = CreateUsingNew,
          template <class> class LifetimePolicy = DefaultLifetime>
class Singleton {
 public:
  Singleton() = delete;

  static T& instance() {
    T* current = instance_.load(std::memory_order_acquire);
    if (current != nullptr) {
      return *current;
    }
    return makeInstance();
  }

  /// Deletes the instance and marks it destroyed. Registered with the lifetime policy on creation.
  static void destroy() {
    T* current = instance_.exchange(nullptr, std::memory_order_acq_rel);
    CreationPolicy<T>::destroy(current);
    destroyed_ = true;
  }

 private:
  static T& makeInstance() {
    static std::mutex mutex;
    std::scoped_lock lock(mutex);
    T* current = instance_.load(std::memory_order_acquire);
    if (current != nullptr) {
      return *current;
    }
    if (destroyed_) {
      // Cleared first so that a caller who handles the error and asks again gets a new instance.
      destroyed_ = false;
      LifetimePolicy<T>::onDeadReference();
    }
    current = CreationPolicy<T>::create();
    instance_.store(current, std::memory_order_release);
    LifetimePolicy<T>::scheduleDestruction(&destroy);
    return *current;
  }

  static std::atomic<T*> instance_;
  static bool destroyed_;
};

template <class T, template <class> class C, template <class> class L>
std::atomic<T*> Singleton<T, C, L>::instance_{nullptr};

template <class T, template <class> class C, template <class> class L>
bool Singleton<T, C, L>::destroyed_ = false;

}  // namespace kov::common::types
