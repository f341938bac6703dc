/* Events: wake-ups that are counted, never lost and never merged.
 *
 *     KEL_SEMA *done = KEL_EventCreate(NULL);
 *     KEL_EventSend(done);                // the worker
 *     if (KEL_EventWait(done, 1000) == 0) // the controller, for a second at most
 *       printf("done\n");
 *     KEL_EventDestroy(done);
 *
 * An event is a semaphore that starts at 0: each send adds one pending
 * wake-up, each successful wait takes one.
 *
 * Threads: any thread may send and wait; nobody may use an event that is being
 * destroyed.
 * Blocking: only KEL_EventWait, for at most its time-out.
 * Null: a null event is refused with the semaphore's -22, but by
 * KEL_EventDestroy. */
#ifndef KELCORE_EVENT_H
#define KELCORE_EVENT_H

#include "kelcore_sema.h"
#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* A new event, named (see KEL_SemaCreate) or, with null, private to the
 * process. Owned by the caller until KEL_EventDestroy; null on failure. */
KEL_API KEL_NODISCARD KEL_SEMA *KEL_EventCreate(const char *name);

/* Releases the event. Returns 0 always, also for null. */
KEL_API int32_t KEL_EventDestroy(KEL_SEMA *event);

/* Waits at most `timeout` milliseconds; results are those of KEL_SemaGet. */
KEL_API int32_t KEL_EventWait(KEL_SEMA *event, uint32_t timeout);

/* Adds a wake-up; results are those of KEL_SemaPut. Never blocks. */
KEL_API int32_t KEL_EventSend(KEL_SEMA *event);

/* Writes the number of pending sends; results are those of KEL_SemaStatus. */
KEL_API int32_t KEL_EventStatus(KEL_SEMA *event, int32_t *count);

KEL_END_DECLS

#endif
