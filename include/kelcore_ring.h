/* Ring buffer: a byte stream that parsers read in place.
 *
 *     KEL_RING *ring = KELRing_Create(65536);
 *     if (ring != NULL) {
 *       uint32_t size, held;
 *       KELRing_GetRBuf(ring, &held);
 *       uint8_t *to = KELRing_GetWBuf(ring, &size);
 *       ssize_t got = read(fd, to, size - held); // `size` is the whole ring
 *       if (got > 0)
 *         KELRing_FillWBuf(ring, (int32_t)got);
 *       uint8_t *from = KELRing_GetRBuf(ring, &held);
 *       KELRing_DelRBuf(ring, parse(from, held));
 *       KELRing_Destroy(ring);
 *     }
 *
 * Data never wraps: the buffer has twice its nominal size, and what is unread
 * slides back to the start once the reading has passed the nominal size. No
 * lock and no checks of counts. Traces
 * under "kelring".
 *
 * Surprises worth knowing:
 *  - KELRing_GetWBuf always offers the whole nominal size. Write no more than
 *    size less what is held: more may run over the end.
 *  - KELRing_Reset forgets the data but not the read offset.
 *
 * Threads: one at a time, or a lock of the caller's.
 * Blocking: never.
 * Null: a null ring is refused with the result that is told; `size` must not be
 * null. */
#ifndef KELCORE_RING_H
#define KELCORE_RING_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_RING KEL_RING;

/* An empty ring of `size` bytes (2 x size are taken), owned by the caller until
 * KELRing_Destroy; null when memory is short. */
KEL_API KEL_NODISCARD KEL_RING *KELRing_Create(uint32_t size);

/* Releases the ring. Returns 0; -1 for null. */
KEL_API int32_t KELRing_Destroy(KEL_RING *ring);

/* Forgets what is unread. Null is ignored. */
KEL_API void KELRing_Reset(KEL_RING *ring);

/* Returns where to write, inside the ring's own memory, and in `size` the nominal
 * size; null for null, `size` being left. */
KEL_API uint8_t *KELRing_GetWBuf(KEL_RING *ring, uint32_t *size);

/* Tells that `count` bytes were written there. Returns the unread bytes; 0 for
 * null. */
KEL_API uint32_t KELRing_FillWBuf(KEL_RING *ring, int32_t count);

/* Returns all unread bytes in one piece, inside the ring's own memory, and in `size`
 * their number; null for null, `size` being left. */
KEL_API uint8_t *KELRing_GetRBuf(KEL_RING *ring, uint32_t *size);

/* Tells that the first `count` unread bytes are done with. Returns what is
 * left; 0 for null. */
KEL_API uint32_t KELRing_DelRBuf(KEL_RING *ring, uint32_t count);

KEL_END_DECLS

#endif
