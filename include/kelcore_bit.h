/* Bit cursor: fields of 1 to 25 bits, most significant bit first, as the
 * syntaxes of media codecs need them.
 *
 *     const uint8_t bytes[4 + 3] = {0x42, 0xC0, 0x1E, 0xA6}; // 4, and 3 of slack
 *     KEL_BIT *b = KELBitOpen(bytes, 4);
 *     if (b != NULL) {
 *       uint32_t profile = KELBitGetBit(b, 8);
 *       KELBitFlush(b, 8);
 *       uint32_t level = KELBitGetBit(b, 8);
 *       printf("profile %u, level %u\n", profile, level);
 *       KELBitClose(b);
 *     }
 *
 * Built for speed: no call checks bounds, the number of bits or a null cursor
 * (KELBitClose apart), none traces. The caller knows how much data there is
 * and gives the buffer slack: reads and writes touch the 4 bytes at the current
 * byte, so 3 bytes behind the last one must be readable (writable for writes);
 * KELBitGetFast touches 2, KELBitGet1Bit 1.
 *
 * Threads: one thread uses a cursor at a time.
 * Blocking: never.
 * Null: ignored by KELBitClose, not checked by any other call. */
#ifndef KELCORE_BIT_H
#define KELCORE_BIT_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_BIT KEL_BIT;

/* A cursor at the first bit of `size` bytes, which stay the caller's and must
 * outlive it (and be writable if it writes). Owned by the caller until
 * KELBitClose; null when memory is short. */
KEL_API KEL_NODISCARD KEL_BIT *KELBitOpen(const void *data, uint32_t size);

/* Releases the cursor; null is ignored. */
KEL_API void KELBitClose(KEL_BIT *cursor);

/* The next `n` bits as a number, `n` from 1 to 32 less the bits already taken
 * of the current byte: 25 always fit. Moves on. */
KEL_API uint32_t KELBitGetBit(KEL_BIT *cursor, uint32_t n);

/* The same number, without moving on. */
KEL_API uint32_t KELBitShow(const KEL_BIT *cursor, uint32_t n);

/* Skips `n` bits. */
KEL_API void KELBitFlush(KEL_BIT *cursor, uint32_t n);

/* The next 1 to 8 bits as a number. Moves on, and touches only two bytes. */
KEL_API uint32_t KELBitGetFast(KEL_BIT *cursor, uint32_t n);

/* The next bit. */
KEL_API uint32_t KELBitGet1Bit(KEL_BIT *cursor);

/* Writes the low `n` bits of `value` (limits as KELBitGetBit). At a byte
 * boundary the bits are OR-ed over what the buffer holds, so zero it first;
 * elsewhere the rest of the 4 bytes behind them is cleared. */
KEL_API void KELBitPutBit(KEL_BIT *cursor, uint32_t n, uint32_t value);

/* Writes `count` bytes; a count below 1 writes nothing. */
KEL_API void KELBitPutByte(KEL_BIT *cursor, int32_t count, const uint8_t *bytes);

/* With `set` non-zero remembers the position (one at a time), with 0 goes back
 * to it, as often as wanted. Never go back before remembering. Returns the
 * cursor, never null. */
KEL_API KEL_BIT *KELBitBookmark(KEL_BIT *cursor, uint32_t set);

/* The number of bits read, skipped and written since open. */
KEL_API uint32_t KELBitGetProcessed(const KEL_BIT *cursor);

/* Moves on to the next byte boundary; returns the bits skipped (0 to 7). */
KEL_API uint32_t KELBitByteAlign(KEL_BIT *cursor);

/* The number of 1 bits in `value`. */
KEL_API uint32_t KELBitCount(uint32_t value);

KEL_END_DECLS

#endif
