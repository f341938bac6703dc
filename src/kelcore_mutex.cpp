// Mutual exclusion over a POSIX mutex with default attributes.

#include "kelcore_mutex.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/deadline.h"
#include "internal/errno_guard.h"
#include "internal/lock.h"
#include "internal/trace.h"

KEL_TRACE_SOURCE("kelmutex", "kelcore_mutex")

namespace {

constexpr time_t kOneYearSeconds = time_t{365} * 24 * 60 * 60;

uint32_t lock_bounded(pthread_mutex_t *native, uint32_t timeout) {
  if (pthread_mutex_trylock(native) == 0)
    return 0;
  const timespec deadline = kel::deadline_after_ms(timeout);
  switch (pthread_mutex_timedlock(native, &deadline)) {
    case 0:
      return 0;
    case ETIMEDOUT:
      return KEL_ERR_TIMEOUT;
    default:
      return KEL_ERR_FAIL;
  }
}

}  // namespace

// Waits year by year: each deadline is far enough that setting the clock
// cannot end the wait.
uint32_t kel::lock_contended(KEL_MUTEX *mutex) {
  timespec deadline;
  int result;
  do {
    deadline = kel::deadline_after({kOneYearSeconds, 0});
    result = pthread_mutex_timedlock(&mutex->native, &deadline);
  } while (result == ETIMEDOUT);
  if (result != 0)
    TRACE_AS("KEL_MutexLock", KEL_LEVEL_ERROR,
             "pthread_mutex_timedlock time(%ds.%dms) ret=%d (%s)\n",
             kel::low32_signed(static_cast<uint64_t>(deadline.tv_sec)),
             static_cast<int>(deadline.tv_nsec / 1'000'000), result, strerror(result));
  return static_cast<uint32_t>(result);
}

KEL_MUTEX *KEL_MutexCreate(void) {
  KEL_MUTEX *mutex = KEL_ALLOC(KEL_MUTEX);
  if (mutex == nullptr)
    return nullptr;
  // Only a negative report means that there is no mutex: the zeroed record is
  // already one with default attributes.
  // NOLINTNEXTLINE(bugprone-posix-return)
  if (pthread_mutex_init(&mutex->native, nullptr) < 0) {
    kel::ErrnoGuard keep_errno;
    KEL_Free(mutex, 0);
    return nullptr;
  }
  return mutex;
}

uint32_t KEL_MutexDestroy(KEL_MUTEX *mutex) {
  if (mutex == nullptr)
    return static_cast<uint32_t>(-1);
  const int result = pthread_mutex_destroy(&mutex->native);
  KEL_Free(mutex, 0);
  return static_cast<uint32_t>(result);
}

uint32_t KEL_MutexLock(KEL_MUTEX *mutex, uint32_t timeout) {
  if (mutex == nullptr)
    return static_cast<uint32_t>(-1);
  // Failures differ by kind of wait: errno values from the first two, library
  // codes from the last. Callers test for 0 only, so the styles stay.
  switch (timeout) {
    case 0:
      return static_cast<uint32_t>(pthread_mutex_trylock(&mutex->native));
    case KEL_WAIT_FOREVER:
      // A free mutex needs no deadline, and so no clock.
      return pthread_mutex_trylock(&mutex->native) == 0 ? 0 : kel::lock_contended(mutex);
    default:
      return lock_bounded(&mutex->native, timeout);
  }
}

uint32_t KEL_MutexUnLock(KEL_MUTEX *mutex) {
  if (mutex == nullptr)
    return static_cast<uint32_t>(-1);
  return static_cast<uint32_t>(pthread_mutex_unlock(&mutex->native));
}
