/* Byte reader: a cursor over the caller's bytes for parsing binary headers.
 *
 *     KEL_BYTE *r = KELByte_Open(bytes, length);
 *     if (r != NULL) {
 *       uint32_t end;
 *       uint32_t kind = KELByte_Get_char(r, &end); // `end` becomes 1 when there is none
 *       uint32_t tag = 0;
 *       if (!end && KELByte_Remain(r) >= sizeof tag) // only the first byte is checked
 *         tag = KELByte_Get_be_uint32(r, NULL);
 *       KELByte_Close(r);
 *       printf("kind %u, tag %08x\n", kind, tag);
 *     }
 *
 * Nothing is copied or owned, nothing is traced. Reads report the end of the
 * data through an optional word: 1 at the end, 0 when they delivered.
 *
 * Surprises worth knowing:
 *  - Integers check only their first byte. One that straddles the end is
 *    assembled from what follows in memory: give the buffer 7 bytes of slack,
 *    or ask KELByte_Remain first. The position then lies behind the end, and
 *    KELByte_Remain wraps around.
 *  - A failed read of characters or a string has copied what there was and
 *    leaves the position at the end; so does a failed peek.
 *  - KELByte_Peek_3char consumes its bytes; KELByte_Peek_4char does not.
 *
 * Threads: one thread uses a reader at a time.
 * Blocking: never.
 * Null: a null reader is ignored by KELByte_Close only; the end flag may be null
 * but for KELByte_Skip. */
#ifndef KELCORE_BYTE_H
#define KELCORE_BYTE_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_BYTE KEL_BYTE;

/* A reader at the first of `size` bytes, which stay the caller's and must
 * outlive it. Owned by the caller until KELByte_Close; null when memory is short. */
KEL_API KEL_NODISCARD KEL_BYTE *KELByte_Open(const void *data, uint32_t size);

/* Releases the reader; the bytes are untouched. Null is ignored. */
KEL_API void KELByte_Close(KEL_BYTE *reader);

/* The number of bytes not yet read. */
KEL_API uint32_t KELByte_Remain(const KEL_BYTE *reader);

/* The number of all bytes. */
KEL_API uint32_t KELByte_Size(const KEL_BYTE *reader);

/* The index of the next byte. */
KEL_API uint32_t KELByte_Pos(const KEL_BYTE *reader);

/* Skips `count` bytes and returns the new position; 0 when that reaches
 * the end, also exactly. The end flag is set then and must not be null here. */
KEL_API uint32_t KELByte_Skip(KEL_BYTE *reader, uint32_t count, uint32_t *end);

/* The next byte, 0 at the end. Peek leaves the position. */
KEL_API uint32_t KELByte_Get_char(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Peek_char(KEL_BYTE *reader, uint32_t *end);

/* Copy 3 or 4 bytes to `to`. Return `to`; null at the end. */
KEL_API void *KELByte_Get_3char(KEL_BYTE *reader, void *to, uint32_t *end);
KEL_API void *KELByte_Peek_3char(KEL_BYTE *reader, void *to, uint32_t *end);
KEL_API void *KELByte_Get_4char(KEL_BYTE *reader, void *to, uint32_t *end);
KEL_API void *KELByte_Peek_4char(KEL_BYTE *reader, void *to, uint32_t *end);

/* Copy `count` bytes to `to`, without a terminator. Return `to`; null at the
 * end. A count of 0 returns at once and leaves the end flag alone. */
KEL_API void *KELByte_Get_string(KEL_BYTE *reader, void *to, uint32_t count, uint32_t *end);
KEL_API void *KELByte_Peek_string(KEL_BYTE *reader, void *to, uint32_t count, uint32_t *end);

/* The next 3 bytes as a number, first byte highest; 0 at the end. */
KEL_API uint32_t KELByte_Get_3char_be_uint32(KEL_BYTE *reader, uint32_t *end);

/* The next integer, least (le) or most (be) significant byte first; 0 at the end.
 * Get moves the position, Peek leaves it. 16-bit values are extended to 32 bits. */
KEL_API int32_t KELByte_Get_le_int16(KEL_BYTE *reader, uint32_t *end);
KEL_API int32_t KELByte_Peek_le_int16(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Get_le_uint16(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Peek_le_uint16(KEL_BYTE *reader, uint32_t *end);
KEL_API int32_t KELByte_Get_be_int16(KEL_BYTE *reader, uint32_t *end);
KEL_API int32_t KELByte_Peek_be_int16(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Get_be_uint16(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Peek_be_uint16(KEL_BYTE *reader, uint32_t *end);
KEL_API int32_t KELByte_Get_le_int32(KEL_BYTE *reader, uint32_t *end);
KEL_API int32_t KELByte_Peek_le_int32(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Get_le_uint32(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Peek_le_uint32(KEL_BYTE *reader, uint32_t *end);
KEL_API int32_t KELByte_Get_be_int32(KEL_BYTE *reader, uint32_t *end);
KEL_API int32_t KELByte_Peek_be_int32(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Get_be_uint32(KEL_BYTE *reader, uint32_t *end);
KEL_API uint32_t KELByte_Peek_be_uint32(KEL_BYTE *reader, uint32_t *end);
KEL_API int64_t KELByte_Get_le_int64(KEL_BYTE *reader, uint32_t *end);
KEL_API int64_t KELByte_Peek_le_int64(KEL_BYTE *reader, uint32_t *end);
KEL_API uint64_t KELByte_Get_le_uint64(KEL_BYTE *reader, uint32_t *end);
KEL_API uint64_t KELByte_Peek_le_uint64(KEL_BYTE *reader, uint32_t *end);
KEL_API int64_t KELByte_Get_be_int64(KEL_BYTE *reader, uint32_t *end);
KEL_API int64_t KELByte_Peek_be_int64(KEL_BYTE *reader, uint32_t *end);
KEL_API uint64_t KELByte_Get_be_uint64(KEL_BYTE *reader, uint32_t *end);
KEL_API uint64_t KELByte_Peek_be_uint64(KEL_BYTE *reader, uint32_t *end);

KEL_END_DECLS

#endif
