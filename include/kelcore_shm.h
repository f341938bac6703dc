/* Shared memory: System V segments found by name.
 *
 *     uint8_t created;
 *     Totals *t = KEL_ShmMalloc(name, sizeof *t, &created, __FILE__, __LINE__, __func__);
 *     if (t != NULL) {
 *       if (created) // else somebody has begun it, who may be a stranger
 *         t->pictures = 1;
 *       KEL_ShmFree(t);
 *     }
 *
 * The first 4 of the 16 bytes in front of the data hold the segment's
 * identifier. Failures are printed on standard output, in red; they are not
 * traced.
 *
 * Surprises worth knowing:
 *  - The key is a 16-bit checksum of the name: different names may meet in one
 *    segment. A name whose checksum is 0 (null and empty among them) gives a
 *    new private segment each time.
 *  - The first process that frees a segment removes it: it lives on until all
 *    others have let go, but later calls make a new one.
 *
 * Threads: any thread may make both calls, but free an address only once.
 * Blocking: never.
 * Null: a null name is that of a private segment, releasing null does nothing. */
#ifndef KELCORE_SHM_H
#define KELCORE_SHM_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* Creates or attaches the segment of `name` with room for `size` bytes (rounded
 * up to a multiple of 16). `created` (may be null) becomes 1 for a new segment
 * and 0 for an existing one. `file`, `line` and `func` are the caller's
 * position, for messages. Returns the data, to be released with KEL_ShmFree;
 * null on failure, also when an existing segment is smaller. */
KEL_API KEL_NODISCARD void *KEL_ShmMalloc(const char *name, uint32_t size, uint8_t *created,
                                          const char *file, int32_t line, const char *func);

/* Marks the segment for removal and detaches it; null is ignored. */
KEL_API void KEL_ShmFree(void *data);

KEL_END_DECLS

#endif
