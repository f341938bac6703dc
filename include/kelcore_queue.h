/* Queue: a named, thread-safe FIFO of (pointer, number) pairs.
 *
 *     KEL_QUEUE *jobs = KEL_QueueCreate("jobs", 64);
 *     if (KEL_QueuePush(jobs, job, 7) != 0) // any thread; never waits
 *       printf("full\n");
 *     int32_t number;
 *     void *next = KEL_QueuePop(jobs, &number, 1000); // one consumer at a time
 *     if (next != NULL)
 *       perform(next, number);
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
 *  - KEL_QueuePeek of an empty queue keeps the queue locked for good.
 *
 * Threads: any number push, one at a time pops; nobody may use a queue that is
 * being destroyed.
 * Blocking: pops wait for at most their time-out, all but the unlocked reads for
 * the queue's lock.
 * Null: a null queue is refused with the result that is told. */
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

/* Appends at the tail. Never waits for room: returns 0; -1 when the queue is
 * full, memory is short, or for null. */
KEL_API int32_t KEL_QueuePush(KEL_QUEUE *queue, void *data, int32_t param);

/* Puts in front. Never waits for room: returns 0; -1 when the queue is full,
 * memory is short, or for null. */
KEL_API int32_t KEL_QueuePush2Head(KEL_QUEUE *queue, void *data, int32_t param);

/* Takes the oldest entry, waiting at most `timeout` milliseconds for one. The
 * number goes to `param` unless that is null. Returns the pointer, or null when
 * there was nothing (or for a null queue). */
KEL_API void *KEL_QueuePop(KEL_QUEUE *queue, int32_t *param, uint32_t timeout);

/* Takes the newest entry, else as KEL_QueuePop. On an unbounded queue take from
 * one end only: after this call the order of a mix of the two is not promised.
 * Returns the pointer, or null when there was nothing (or for a null queue). */
KEL_API void *KEL_QueuePopTail(KEL_QUEUE *queue, int32_t *param, uint32_t timeout);

/* Looks at the oldest entry and leaves it in the queue. Returns its pointer, and
 * the number to `param` unless that is null; null for a null queue. Only for a
 * queue known to hold an entry: on an empty one the result is null, too, and the
 * queue's lock is held for good. */
KEL_API void *KEL_QueuePeek(KEL_QUEUE *queue, int32_t *param);

/* Drops every entry. Returns 0; -1 for null. */
KEL_API int32_t KEL_QueueReset(KEL_QUEUE *queue);

/* Makes a sleeping consumer return with nothing (or, bounded, with an entry
 * that is there), so that it can see that it should end. Returns 0, also for
 * null. Takes no lock. */
KEL_API int32_t KEL_QueuePopRelease(KEL_QUEUE *queue);

/* The queue's own copy of its name; null when it has none (none was given, or it
 * could not be copied) or for null. Takes no lock. */
KEL_API const char *KEL_QueueGetName(KEL_QUEUE *queue);

/* The number of entries, as it was just now; 0 for null. Takes no lock. */
KEL_API int32_t KEL_QueueGetSize(KEL_QUEUE *queue);

/* 1 when no more entries fit, which an unbounded queue never says, else 0; -1 for
 * null. Takes no lock. */
KEL_API int32_t KEL_QueueFull(KEL_QUEUE *queue);

/* 1 when there is no entry, else 0; -1 for null. Takes no lock. */
KEL_API int32_t KEL_QueueEmpty(KEL_QUEUE *queue);

KEL_END_DECLS

#endif
