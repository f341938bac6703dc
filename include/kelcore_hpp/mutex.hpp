/// @file
/// kel::mutex and kel::timed_mutex, for the standard's guards.
///
///     kel::mutex m = kel::mutex::create().value_or_throw();
///     std::scoped_lock hold(m);
///
///     kel::timed_mutex t = kel::timed_mutex::create().value_or_throw();
///     std::unique_lock wait(t, 50ms);
///     if (wait) ...
///
/// Not recursive: locking twice from one thread waits for ever, or for the whole
/// time-out. The thread that locked unlocks. The C call reports failure in three
/// ways; here it is false, or a status.
#ifndef KELCORE_HPP_MUTEX_HPP
#define KELCORE_HPP_MUTEX_HPP

#include <chrono>

#include "../kelcore_mutex.h"
#include "owner.hpp"
#include "result.hpp"
#include "timeout.hpp"

namespace kel {

/// Fits std::lock_guard, std::unique_lock, std::scoped_lock and std::lock.
class mutex : public owner<KEL_MUTEX, &KEL_MutexDestroy> {
 public:
  using owner::owner;

  /// A new unlocked mutex. Fails when memory is short. Never blocks.
  static result<mutex> create() { return detail::owned<mutex>(KEL_MutexCreate()); }

  /// Locks, waiting without limit. Fails for an empty owner only.
  status lock() { return status(KEL_MutexLock(native_handle(), KEL_WAIT_FOREVER)); }

  /// Locks if it can do so at once; tells whether.
  [[nodiscard]] bool try_lock() { return KEL_MutexLock(native_handle(), 0) == 0; }

  /// Unlocks; never blocks.
  status unlock() { return status(KEL_MutexUnLock(native_handle())); }
};

/// A mutex that can be waited for with a limit.
class timed_mutex : public mutex {
 public:
  using mutex::mutex;

  /// As mutex::create().
  static result<timed_mutex> create() { return detail::owned<timed_mutex>(KEL_MutexCreate()); }

  /// Locks, waiting at most `wait`; tells whether it did.
  [[nodiscard]] bool try_lock_for(timeout wait) {
    return KEL_MutexLock(native_handle(), wait.native()) == 0;
  }

  /// As try_lock_for, until that clock reaches `end`.
  template <class Clock, class Duration>
  [[nodiscard]] bool try_lock_until(std::chrono::time_point<Clock, Duration> end) {
    return try_lock_for(end - Clock::now());
  }
};

}  // namespace kel

#endif
