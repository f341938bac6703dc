/* Clocks and time arithmetic. Stateless, never blocking, safe from any thread
 * (KEL_GetlocalTime shares the C library's calendar buffer for an instant).
 * No function reports failure and no pointer may be null. */
#ifndef KELCORE_TIME_H
#define KELCORE_TIME_H

#include <sched.h> /* struct timespec, also in strict C99 */
#include <sys/time.h>
#include <time.h>

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* Milliseconds, or microseconds, of CLOCK_MONOTONIC (truncated): time since an
 * arbitrary start that setting the clock does not change. */
KEL_API uint64_t KEL_GetSystemTick(void);
KEL_API uint64_t KEL_GetSystemTickUS(void);

/* Whole seconds of CLOCK_REALTIME since the epoch. */
KEL_API int64_t KEL_GetEpochTime(void);

/* `time` in whole milliseconds (truncated). */
KEL_API uint64_t KEL_TIMESPECtoMS(const struct timespec *time);

/* Splits milliseconds into seconds and microseconds, or nanoseconds. */
KEL_API void KEL_TimeMStoTimeval(uint64_t ms, struct timeval *time);
KEL_API void KEL_TimeMStoTimespec(uint64_t ms, struct timespec *time);

/* Stores end - start, field by field and without borrowing: result->tv_usec
 * may be negative. Returns the difference in milliseconds, truncated toward
 * zero field by field. */
KEL_API int64_t KEL_TimevalDiff(const struct timeval *start, const struct timeval *end,
                                struct timeval *result);

/* a + b for normalised values (nanoseconds below 1,000,000,000). */
KEL_API struct timespec KEL_TimespecAdd(struct timespec a, struct timespec b);

/* Writes the local calendar time of now. Returns 0 always. */
KEL_API int32_t KEL_GetlocalTime(struct tm *time);

KEL_END_DECLS

#endif
