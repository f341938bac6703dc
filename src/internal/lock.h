// Holds a mutex for a scope, waiting for it without limit.
#pragma once

#include <pthread.h>

#include "kelcore_mutex.h"

struct KEL_MUTEX {
  pthread_mutex_t native;
};

namespace kel {

// KEL_MutexLock for an endless wait, after a first try that failed.
uint32_t lock_contended(KEL_MUTEX *mutex);

// KEL_MutexLock for an endless wait: a free mutex is taken in place.
inline bool lock_forever(KEL_MUTEX *mutex) {
  if (mutex == nullptr)
    return false;
  return pthread_mutex_trylock(&mutex->native) == 0 || lock_contended(mutex) == 0;
}

// Callers for whom a failed lock is an error ask held(); the others go on
// without it, as a null mutex is legal before their module is initialised.
class ScopedLock {
 public:
  explicit ScopedLock(KEL_MUTEX *mutex) : mutex_(mutex), held_(lock_forever(mutex)) {}
  ~ScopedLock() { unlock(); }
  ScopedLock(const ScopedLock &) = delete;
  ScopedLock &operator=(const ScopedLock &) = delete;

  bool held() const { return held_; }

  // Early release; the destructor then does nothing.
  void unlock() {
    if (held_)
      pthread_mutex_unlock(&mutex_->native);
    held_ = false;
  }

  // Takes the lock again after unlock().
  bool relock() { return held_ = lock_forever(mutex_); }

  // The lock stays taken when the scope ends.
  void keep() { held_ = false; }

 private:
  KEL_MUTEX *mutex_;
  bool held_;
};

}  // namespace kel
