/* Mutual exclusion.
 *
 *     KEL_MUTEX *lock = KEL_MutexCreate();
 *     if (KEL_MutexLock(lock, 50) == 0) { // else not locked, for whatever reason
 *       ++count;
 *       KEL_MutexUnLock(lock);
 *     }
 *     KEL_MutexDestroy(lock);
 *
 * Not recursive: locking twice from one thread waits for ever, or for the
 * whole time-out. The thread that locked must unlock. The three kinds of
 * time-out report failure in three ways; callers test for 0 only.
 *
 * Threads: any thread may lock; nobody may use a mutex that is being destroyed.
 * Blocking: only KEL_MutexLock, for at most its time-out.
 * Null: refused with 0xFFFFFFFF. */
#ifndef KELCORE_MUTEX_H
#define KELCORE_MUTEX_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_MUTEX KEL_MUTEX;

/* A new unlocked mutex, owned by the caller until KEL_MutexDestroy; null when
 * memory is short or it cannot be initialised. */
KEL_API KEL_NODISCARD KEL_MUTEX *KEL_MutexCreate(void);

/* Releases the mutex whatever its state. Returns pthread_mutex_destroy's
 * result (0, or EBUSY for one still locked); 0xFFFFFFFF for null. */
KEL_API uint32_t KEL_MutexDestroy(KEL_MUTEX *mutex);

/* Locks, waiting at most `timeout` milliseconds. Returns 0 when locked, else
 *   timeout 0:                the errno value, EBUSY (16) when it is held;
 *   KEL_WAIT_FOREVER:         the errno value (not for waiting long);
 *   any other:                KEL_ERR_TIMEOUT, or KEL_ERR_FAIL;
 *   null mutex:               0xFFFFFFFF. */
KEL_API uint32_t KEL_MutexLock(KEL_MUTEX *mutex, uint32_t timeout);

/* Unlocks. Returns pthread_mutex_unlock's result; 0xFFFFFFFF for null. */
KEL_API uint32_t KEL_MutexUnLock(KEL_MUTEX *mutex);

KEL_END_DECLS

#endif
