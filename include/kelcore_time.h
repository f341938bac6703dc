/* Clocks, time arithmetic, and timers.
 *
 * Clocks and arithmetic are stateless and report no failure (KEL_GetlocalTime
 * shares the C library's calendar buffer for an instant).
 *
 *     static volatile sig_atomic_t expired;
 *     static void tick(void *flag) {
 *       *(volatile sig_atomic_t *)flag = 1;
 *     }
 *
 *     KEL_TIMER *timer = KEL_TimerCreate(20000, tick, (void *)&expired);
 *     KEL_TimerStart(timer, 0, 1, NULL, NULL); // every 20 ms from now on
 *     KEL_TimerDestroy(timer);
 *
 * Timers call back in SIGNAL CONTEXT, on whatever thread receives the signal
 * SIGRTMIN + 4: set a flag or post a semaphore, take no locks, be brief. To have
 * the callbacks on one thread, block that signal in all others. Its handler is
 * installed without SA_RESTART, at every creation of a timer, so endless waits
 * of interrupted threads come back early and a handler of the application's own
 * is lost. Expiries that meet a signal still pending give one callback, and an
 * error trace with their number. Tracing takes a lock: from a callback it can
 * stop a thread that was interrupted while it traced. So can the handler's own
 * lines, if "keltime" is traced: that error, and at KEL_LEVEL_TRACE a line for
 * each expiry. Keep it silent: KEL_TraceSet("keltime:0,*:1"). Traces under
 * "keltime".
 *
 * Threads: clocks and arithmetic are safe from any thread, and but for
 * KEL_GetlocalTime from a signal handler. Any thread may create timers; one at a
 * time starts, stops or destroys a given timer.
 * Blocking: only KEL_TimerDestroy waits, for a callback that is running.
 * Null: a null timer is refused; pointers to times must not be null. */
#ifndef KELCORE_TIME_H
#define KELCORE_TIME_H

#include <sched.h> /* struct timespec, also in strict C99 */
#include <sys/time.h>
#include <time.h>

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* The milliseconds of CLOCK_MONOTONIC (truncated): time since an arbitrary start that
 * setting the clock does not change. */
KEL_API uint64_t KEL_GetSystemTick(void);

/* The same time in microseconds. */
KEL_API uint64_t KEL_GetSystemTickUS(void);

/* The whole seconds of CLOCK_REALTIME since the epoch. */
KEL_API int64_t KEL_GetEpochTime(void);

/* The whole milliseconds of `time` (truncated). */
KEL_API uint64_t KEL_TIMESPECtoMS(const struct timespec *time);

/* Splits milliseconds into seconds and microseconds. */
KEL_API void KEL_TimeMStoTimeval(uint64_t ms, struct timeval *time);

/* Splits milliseconds into seconds and nanoseconds. */
KEL_API void KEL_TimeMStoTimespec(uint64_t ms, struct timespec *time);

/* Stores end - start, field by field and without borrowing: result->tv_usec
 * may be negative. Returns the difference in milliseconds, truncated toward
 * zero field by field. */
KEL_API int64_t KEL_TimevalDiff(const struct timeval *start, const struct timeval *end,
                                struct timeval *result);

/* The sum of two normalised values (nanoseconds below 1,000,000,000). */
KEL_API struct timespec KEL_TimespecAdd(struct timespec a, struct timespec b);

/* Writes the local calendar time of now. Returns 0 always; a date that the C
 * library cannot tell (its year does not fit) leaves *time as it was. */
KEL_API int32_t KEL_GetlocalTime(struct tm *time);

typedef struct KEL_TIMER KEL_TIMER;

/* What a timer calls, in signal context. */
typedef void (*KEL_TIMER_CALLBACK)(void *arg);

/* A timer, not yet armed, that will call `callback(arg)` after `interval`
 * microseconds; a null callback is not called. Owned by the caller until
 * KEL_TimerDestroy; null on failure. */
KEL_API KEL_NODISCARD KEL_TIMER *KEL_TimerCreate(uint64_t interval, KEL_TIMER_CALLBACK callback,
                                                 void *arg);

/* Arms the timer, or arms it anew: once, or with `loop` non-zero periodically.
 * An interval of 0 and a null callback or argument keep what is stored (an
 * interval of 0 that is stored, too, disarms). Returns
 * 0, or timer_settime's failure; -1 for null. */
KEL_API int32_t KEL_TimerStart(KEL_TIMER *timer, uint64_t interval, uint32_t loop,
                               KEL_TIMER_CALLBACK callback, void *arg);

/* Disarms the timer. Returns 0, or timer_settime's failure; -1 for null. */
KEL_API int32_t KEL_TimerStop(KEL_TIMER *timer);

/* Stops and releases the timer, waiting for a callback that is running on
 * another thread; no callback runs afterwards. A callback may destroy its own
 * timer, but no other one, and like everybody only once: callbacks of a short
 * period can run on two threads at a time, so a periodic one guards itself. The
 * memory of a timer destroyed by its own callback is given back when a timer is
 * next created or destroyed outside of callbacks.
 * Returns 0, or the first failing call's result; -1 for null. */
KEL_API int32_t KEL_TimerDestroy(KEL_TIMER *timer);

/* The handler of the timer signal, which the library installs itself:
 * `information` is a siginfo_t *. */
KEL_API void KEL_Timer_Handler(int32_t signal, void *information, void *context);

KEL_END_DECLS

#endif
