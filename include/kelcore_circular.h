/* Circular buffer: a copying byte FIFO of fixed capacity.
 *
 *     KEL_CIRCULAR *fifo = KELCircular_Create(1024);
 *     if (fifo != NULL) {
 *       uint8_t packet[188] = {0x47};
 *       if (KELCircular_Push(fifo, packet, sizeof packet) != 0)
 *         printf("no room, nothing was taken\n");
 *       while (KELCircular_Pop(fifo, packet, sizeof packet) == 0)
 *         use(packet);
 *       KELCircular_Destroy(fifo);
 *     }
 *
 * Push and pop move all bytes or none. No lock. Traces under "kelcircular".
 *
 * Threads: one at a time, or a lock of the caller's.
 * Blocking: never.
 * Null: refused by KELCircular_Destroy, not checked by any other call. */
#ifndef KELCORE_CIRCULAR_H
#define KELCORE_CIRCULAR_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_CIRCULAR KEL_CIRCULAR;

/* An empty buffer for `size` bytes, owned by the caller until KELCircular_Destroy;
 * null when memory is short. With a size of 0 it takes and gives nothing but 0
 * bytes. */
KEL_API KEL_NODISCARD KEL_CIRCULAR *KELCircular_Create(uint32_t size);

/* Releases the buffer. Returns 0; -1 for null. */
KEL_API int32_t KELCircular_Destroy(KEL_CIRCULAR *buffer);

/* Appends `count` bytes. Returns 0; -1 when they do not fit. */
KEL_API int32_t KELCircular_Push(KEL_CIRCULAR *buffer, const void *from, uint32_t count);

/* Takes the oldest `count` bytes. Returns 0; -1 when there are fewer, which is
 * traced at KEL_LEVEL_TRACE only: an empty buffer is no error. */
KEL_API int32_t KELCircular_Pop(KEL_CIRCULAR *buffer, void *to, uint32_t count);

KEL_END_DECLS

#endif
