/* Counting semaphores, private to the process or shared by name.
 *
 *     KEL_SEMA *items = KEL_SemaCreate(NULL, 0);
 *     KEL_SemaPut(items);               // any thread
 *     if (KEL_SemaGet(items, 100) == 0) // another one
 *       printf("one item\n");
 *     KEL_SemaDestroy(items);
 *
 * Threads: any number may get and put at once; destroying while others wait is
 * not allowed.
 * Blocking: KEL_SemaGet for at most its time-out, KEL_SemaReset as told.
 * Null: a null handle is refused but by KEL_SemaReset; a null name makes a
 * private semaphore. */
#ifndef KELCORE_SEMA_H
#define KELCORE_SEMA_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_SEMA KEL_SEMA;

/* A semaphore with `count` units; owned by the caller until KEL_SemaDestroy.
 * With a name (it begins with '/', and is copied) the semaphore belongs to the
 * system and other processes open it by the same name; one that exists is
 * opened with the count that it has, `count` being ignored. When it cannot be
 * opened the name is removed from the system. Returns the semaphore; null on
 * failure, which a name can be that another process removes in just this moment:
 * try again. */
KEL_API KEL_NODISCARD KEL_SEMA *KEL_SemaCreate(const char *name, uint32_t count);

/* As KEL_SemaCreate; but with `create` 0 a named semaphore must exist already.
 * The name is removed from the system on failure also then. Returns the semaphore,
 * owned by the caller until KEL_SemaDestroy; null on failure. */
KEL_API KEL_NODISCARD KEL_SEMA *KEL_SemaCreate_Custom(const char *name, uint32_t count,
                                                      uint8_t create);

/* Releases the handle; a named semaphore's name is removed from the system, so
 * later opens make a new one. Returns 0; -22 for null. */
KEL_API int32_t KEL_SemaDestroy(KEL_SEMA *sema);

/* Takes one unit, waiting at most `timeout` milliseconds. Returns 0 when one
 * was taken; -110 when a bounded wait expired; -1 when there was none
 * (timeout 0, traced as an error) or the wait failed; -22 for null. A signal
 * handler installed without SA_RESTART ends a KEL_WAIT_FOREVER wait with -1;
 * bounded waits go on. */
KEL_API int32_t KEL_SemaGet(KEL_SEMA *sema, uint32_t timeout);

/* Gives one unit. Returns 0; -1 when the count is at its limit; -22 for null.
 * Never blocks. */
KEL_API int32_t KEL_SemaPut(KEL_SEMA *sema);

/* Writes the count to `count` (not null). Returns 0, or -1; -22 for null. */
KEL_API int32_t KEL_SemaStatus(KEL_SEMA *sema, int32_t *count);

/* Takes as many units as the semaphore holds at the call; units given
 * meanwhile stay, and it blocks when another thread takes units meanwhile. A
 * wait that fails, as when a signal interrupts it, ends the taking. Returns 0 in
 * every case. The handle must not be null. */
KEL_API int32_t KEL_SemaReset(KEL_SEMA *sema);

KEL_END_DECLS

#endif
