/* Queue: a named, thread-safe FIFO of (pointer, number) pairs.
 *
 *     KEL_QUEUE *jobs = KEL_QueueCreate("jobs", 64);
 *     KEL_QueuePush(jobs, job, 7);                 // any thread
 *     int32_t number;
 *     Job *j = KEL_QueuePop(jobs, &number, 1000);  // one consumer at a time
 *     KEL_QueueDestroy(jobs);
 *
 * Bounded (maxnode > 0): all entries are made at creation, nothing is
 * allocated afterwards. Unbounded (maxnode 0): one 32-byte entry per push, from
 * the pool allocator's 32-byte class when that is registered. What the
 * pointers refer to stays the caller's. Traces under "kelqueue".
 *
 * Surprises worth knowing:
 *  - One consumer at a time: of two that sleep only one is woken per push, the
 *    other waits its time out.
 *  - A null pointer is a legal push, but pops cannot tell it from "nothing".
 *  - KEL_QueuePopRelease without a sleeper leaves a pending event (and, in an
 *    unbounded queue, the release flag), and so does a push that meets a pop whose
 *    time is just up: a later blocking pop may return at once with nothing. A
 *    signal that interrupts an endless wait looks like a time-out, too.
 *  - KEL_QueuePeek of an empty queue keeps the queue locked for good. */
#ifndef KELCORE_QUEUE_H
#define KELCORE_QUEUE_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_QUEUE KEL_QUEUE;

/* A queue of at most `maxnode` entries, 0 for no limit. The name is copied and
 * may be null. Owned by the caller until KEL_QueueDestroy; null on failure. */
KEL_API KEL_NODISCARD KEL_QUEUE *KEL_QueueCreate(const char *name, uint32_t maxnode);

/* Releases the queue and its entries, not what they point to. No other thread
 * may be using it. Null is traced and ignored. */
KEL_API void KEL_QueueDestroy(KEL_QUEUE *queue);

/* Append at the tail, or put in front. Never wait for room: returns 0; -1 when
 * the queue is full, memory is short, or for null. */
KEL_API int32_t KEL_QueuePush(KEL_QUEUE *queue, void *data, int32_t param);
KEL_API int32_t KEL_QueuePush2Head(KEL_QUEUE *queue, void *data, int32_t param);

/* Take the oldest, or the newest, entry, waiting at most `timeout`
 * milliseconds for one. The number goes to `param` unless that is null.
 * Return the pointer, or null when there was nothing (or for a null queue).
 * On an unbounded queue take from one end only: after KEL_QueuePopTail the
 * order of a mix with KEL_QueuePop is not promised. */
KEL_API void *KEL_QueuePop(KEL_QUEUE *queue, int32_t *param, uint32_t timeout);
KEL_API void *KEL_QueuePopTail(KEL_QUEUE *queue, int32_t *param, uint32_t timeout);

/* The oldest entry, left in the queue. Only for a queue known to hold one:
 * on an empty queue it returns null with the queue's lock held for good. */
KEL_API void *KEL_QueuePeek(KEL_QUEUE *queue, int32_t *param);

/* Drops every entry. Returns 0; -1 for null. */
KEL_API int32_t KEL_QueueReset(KEL_QUEUE *queue);

/* Makes a sleeping consumer return with nothing (or, bounded, with an entry
 * that is there), so that it can see that it should end. Returns 0, also for
 * null. Takes no lock. */
KEL_API int32_t KEL_QueuePopRelease(KEL_QUEUE *queue);

/* Unlocked reads. Name: the queue's own copy, null when it has none (none was
 * given, or it could not be copied) or for null. Size: 0 for null. Full and
 * empty: 1 or 0, -1 for null; an unbounded queue is never full. */
KEL_API const char *KEL_QueueGetName(KEL_QUEUE *queue);
KEL_API int32_t KEL_QueueGetSize(KEL_QUEUE *queue);
KEL_API int32_t KEL_QueueFull(KEL_QUEUE *queue);
KEL_API int32_t KEL_QueueEmpty(KEL_QUEUE *queue);

KEL_END_DECLS

#endif
