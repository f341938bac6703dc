/* Thread pool: a fixed set of workers, one job at a time each.
 *
 *     KEL_THREADPOOL *pool = KEL_ThreadPool_Create("decoder", 0, 0, 4);
 *     int32_t worker = KEL_ThreadPool_Run(pool, decode, frame);
 *     if (worker >= 0)                              // else all are busy
 *       KEL_ThreadPool_Stop(pool, worker, &result); // waits for the job
 *     KEL_ThreadPool_Delete(pool);
 *
 * Jobs are not queued: without an idle worker Run refuses. Traces under "kelthreadpool".
 *
 * Surprises worth knowing:
 *  - KEL_ThreadPool_Stop collects a job, it does not end the worker. A worker
 *    whose job has ended stays busy until then.
 *  - KEL_ThreadPool_Delete drops a job that its worker has not begun yet: stop
 *    (collect) the workers first.
 *  - The system shows 14 characters of a thread's name: with a prefix of 7 or
 *    more ten workers share one, with 10 or more all do.
 *  - A job returns; one that ends its thread leaves its collector waiting.
 *
 * Threads: one controlling thread creates, runs, stops and deletes; jobs run on
 * the workers.
 * Blocking: KEL_ThreadPool_Stop and KEL_ThreadPool_Delete wait for jobs, without
 * limit.
 * Null: a null pool is refused or ignored; `prefix` and `job` must not be null. */
#ifndef KELCORE_THREADPOOL_H
#define KELCORE_THREADPOOL_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_THREADPOOL KEL_THREADPOOL;

/* A job; what it returns is for its collector. */
typedef int32_t (*KEL_JOB)(void *arg);

/* Starts `count` workers named "<prefix>_rt_0000" and on, with the priority and
 * stack size of KEL_ThreadCreate. Returns the pool, owned by the caller until
 * KEL_ThreadPool_Delete; null on failure or for a count below 1. */
KEL_API KEL_NODISCARD KEL_THREADPOOL *KEL_ThreadPool_Create(const char *prefix,
                                                            uint32_t priority,
                                                            uint32_t stack_size, int32_t count);

/* Hands `job(arg)` to the worker that has been idle longest. Returns its number
 * (0 and up); -1 when none is idle or for null. Never blocks. */
KEL_API int32_t KEL_ThreadPool_Run(KEL_THREADPOOL *pool, KEL_JOB job, void *arg);

/* Waits for the job of that worker, stores what it returned unless `result` is
 * null, and makes the worker idle again. Returns 0; -1 for null, or a number
 * whose worker has no job. */
KEL_API int32_t KEL_ThreadPool_Stop(KEL_THREADPOOL *pool, int32_t number, int32_t *result);

/* Waits for the jobs that have begun, ends the workers and releases the pool.
 * Not to be called from a job. Null is ignored. */
KEL_API void KEL_ThreadPool_Delete(KEL_THREADPOOL *pool);

/* What a worker runs: for the pool's own use. Returns null when the worker
 * ends. */
KEL_API void *KEL_ThreadPool_Routine(void *slot);

KEL_END_DECLS

#endif
