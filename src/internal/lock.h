// Holds a mutex for a scope, waiting for it without limit.
#pragma once

#include "kelcore_mutex.h"

namespace kel {

// Callers for whom a failed lock is an error ask held(); the others go on
// without it, as a null mutex is legal before their module is initialised.
class ScopedLock {
 public:
  explicit ScopedLock(KEL_MUTEX *mutex)
      : mutex_(mutex), held_(KEL_MutexLock(mutex, KEL_WAIT_FOREVER) == 0) {}
  ~ScopedLock() { unlock(); }
  ScopedLock(const ScopedLock &) = delete;
  ScopedLock &operator=(const ScopedLock &) = delete;

  bool held() const { return held_; }

  // Early release; the destructor then does nothing.
  void unlock() {
    if (held_)
      KEL_MutexUnLock(mutex_);
    held_ = false;
  }

  // Takes the lock again after unlock().
  bool relock() { return held_ = KEL_MutexLock(mutex_, KEL_WAIT_FOREVER) == 0; }

  // The lock stays taken when the scope ends.
  void keep() { held_ = false; }

 private:
  KEL_MUTEX *mutex_;
  bool held_;
};

}  // namespace kel
