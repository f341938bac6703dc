/* Text helpers.
 *
 *     char name[16], code[5];
 *     KEL_strtrim("cfg[video]x", "[", "]", name, sizeof name); // "video"
 *     KEL_FourCC_String(0x31637661, code);                     // "avc1"
 *
 * Nothing traces or blocks. Everything is reentrant but KEL_FourCC_String
 * without a buffer, KEL_char2Wchar and KEL_Wchar2char, which hand out buffers
 * that the whole process shares.
 *
 * Threads: any, but for the calls that hand out a shared buffer: they are for one
 * thread at a time.
 * Blocking: never.
 * Null: told per call. */
#ifndef KELCORE_STRING_H
#define KELCORE_STRING_H

#include <wchar.h>

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* The last occurrence of `pattern` in `text`; null when there is none, or when
 * either is null or empty. */
KEL_API char *KEL_strrstr(const char *text, const char *pattern);

/* vsnprintf into `to`, which has room for `size` bytes with the terminator.
 * Returns the length that the whole text would have, or a negative number. A
 * size of 0 measures only (`to` may be null); a negative one is no limit. */
KEL_API int32_t KEL_snprintf(char *to, int32_t size, const char *format, ...) KEL_PRINTF(3, 4);

/* The code's four bytes in memory order as a text. `buffer` has room for 5
 * bytes; with null, a buffer that the next such call overwrites is used.
 * Returns the buffer. */
KEL_API char *KEL_FourCC_String(uint32_t code, char *buffer);

/* Copies to `to` (of `size` bytes, at least 1) what lies between the last
 * `open` in `text` and the last `close` behind it, cut to size - 1 characters.
 * A delimiter that is missing counts as the beginning or the end of the text.
 * Only one character of `open` is skipped, however long it is. Returns `to`;
 * null when any pointer is null or `size` is 0. */
KEL_API char *KEL_strtrim(const char *text, const char *open, const char *close, char *to,
                          uint32_t size);

/* Kept for programs that call it; no conversion is made. Returns a buffer of 256
 * bytes, never null: the library's own. */
KEL_API wchar_t *KEL_char2Wchar(const char *unused);

/* Kept for programs that call it; no conversion is made. Returns a buffer of 256
 * bytes, never null: the library's own. */
KEL_API char *KEL_Wchar2char(const wchar_t *unused);

/* Kept for programs that call it; no conversion is made. Returns `to`, untouched,
 * null for null. */
KEL_API char *KEL_Wchar2charcopy(const wchar_t *unused, char *to);

KEL_END_DECLS

#endif
