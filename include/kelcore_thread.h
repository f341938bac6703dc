/* Threads and sleeps.
 *
 *     static void *run(void *number) {
 *       ++*(int *)number;
 *       return number;
 *     }
 *
 *     int number = 41;
 *     KEL_THREAD *t = KEL_ThreadCreate("reader", 0, 0, run, &number);
 *     void *result;
 *     if (KEL_ThreadDelete(t, &result) == 0) // joins and releases
 *       printf("%d\n", *(int *)result);
 *
 * A thread is either joined once (KEL_ThreadDelete) or detached once, never
 * both. A detached thread's handle is not released by any call: keep it for
 * the life of the program or accept the few bytes.
 *
 * Threads: any thread may make every call, but one only joins or detaches a given
 * thread.
 * Blocking: KEL_ThreadDelete waits for the thread, without limit; the sleeps
 * sleep.
 * Null: a null handle is refused; `entry` must not be null. */
#ifndef KELCORE_THREAD_H
#define KELCORE_THREAD_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_THREAD KEL_THREAD;

/* What a thread runs; what it returns is the thread's result. */
typedef void *(*KEL_THREAD_ENTRY)(void *arg);

/* Starts `entry(arg)` on a new joinable thread.
 * `name`: what the system shows, cut to 14 characters; null for none. A thread
 *   that ends at once may be gone before it is named; that is traced and
 *   otherwise ignored.
 * `priority`: 0 inherits the caller's scheduling; else SCHED_FIFO with this
 *   priority, which needs the privilege.
 * `stack_size`: bytes, 0 for the default; a size that the system refuses as
 *   invalid is replaced by 128 KiB.
 * Returns the handle, which KEL_ThreadDelete releases, or null; every failure is
 * traced. */
KEL_API KEL_NODISCARD KEL_THREAD *KEL_ThreadCreate(const char *name, uint32_t priority,
                                                   uint32_t stack_size, KEL_THREAD_ENTRY entry,
                                                   void *arg);

/* Waits for the thread to end, stores what it returned (or its exit code) in
 * `result` unless that is null, and releases the handle in every case.
 * Returns 0; -1 when joining failed or for null. */
KEL_API int32_t KEL_ThreadDelete(KEL_THREAD *thread, void **result);

/* Lets the thread run on its own. Returns 0; -1 on failure or for null. The
 * handle is not released. */
KEL_API int32_t KEL_ThreadDetach(KEL_THREAD *thread);

/* Detaches the calling thread. Returns 0 or -1. */
KEL_API int32_t KEL_ThreadDetachSelf(void);

/* Ends the calling thread with `code` as its result (as a pointer-sized
 * integer). Does not return; the stack is unwound and clean-up handlers run. */
KEL_API KEL_NORETURN void KEL_ThreadExit(int32_t code);

/* Sleeps for the whole time: signals do not shorten it. 0 only yields.
 * Returns 0, or -1 when the sleep failed. */
KEL_API int32_t KEL_ThreadSleep(uint32_t ms);
KEL_API int32_t KEL_ThreadUSleep(uint32_t us);

/* Do nothing and return 0; kept for programs that call them. */
KEL_API int32_t KEL_ThreadSetStatus(KEL_THREAD *thread, uint32_t status);
KEL_API int32_t KEL_ThreadGetStatus(KEL_THREAD *thread);
KEL_API int32_t KEL_ThreadGetCurrentID(void);

KEL_END_DECLS

#endif
