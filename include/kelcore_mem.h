/* Memory: the one layer through which the library allocates.
 *
 *     char *p = KEL_Malloc(256, 0, 0, __FILE__, __LINE__, __func__); // zeroed
 *     char *larger = KEL_ReAlloc(p, 512);
 *     if (larger != NULL) // else the old block is still there
 *       p = larger;
 *     KEL_Free(p, 0);
 *
 * Blocks are those of the C library: what malloc() gave may be passed to
 * KEL_Free and the other way round. Nothing here traces; failure is a null
 * result.
 *
 * KEL_MemTblAdd, KEL_MemTblUpdate and KEL_MemTblRemove announce every block (copies
 * of keys in a hash table are announced when they go, not when they are made).
 * They do nothing here; a program that defines functions of these names
 * replaces them and can follow every allocation of the library.
 *
 * Threads: as malloc(), any thread may make every call; KEL_MemInit is for the
 * start.
 * Blocking: none, but for the locks of the C library's allocator.
 * Null: releasing null does nothing; an installed non-cache function decides for
 * itself. */
#ifndef KELCORE_MEM_H
#define KELCORE_MEM_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* The fill value that leaves a block as the allocator gave it. */
#define KEL_NO_FILL 0xFFFFFFFFu

/* Non-cache allocator pair; the second argument is always 0. A function of
 * one argument may be installed with a cast. Allocating it
 * returns the block, or null. */
typedef void *(*KEL_NC_MALLOC)(uint32_t size, uint32_t extra);
typedef void (*KEL_NC_FREE)(void *block, uint32_t extra);

/* Allocates `size` bytes, aligned to `align` when that is not 0 (then `size`
 * should be a multiple of it: it is not rounded up). Unless `fill` is
 * KEL_NO_FILL every byte is set to its low 8 bits; 0 gives zeroed memory.
 * `file`, `line` and `func` are passed to KEL_MemTblAdd. Returns the block,
 * to be released with KEL_Free, or null. */
KEL_API KEL_NODISCARD void *KEL_Malloc(uint32_t size, uint32_t align, uint32_t fill,
                                       const char *file, int32_t line, const char *func);

/* calloc(count, size). `reserved` is passed as 0. The announcement carries
 * the size of one element. Returns the zeroed block, to be released with
 * KEL_Free, or null. */
KEL_API KEL_NODISCARD void *KEL_Calloc(uint32_t count, uint32_t size, uint32_t reserved,
                                       const char *file, int32_t line, const char *func);

/* realloc(block, size); `block` may be null. Returns the new block, to be released
 * with KEL_Free; null for a size of 0, which releases the block, and on failure,
 * the old block then staying valid (KEL_MemTblUpdate is told null all the same). */
KEL_API KEL_NODISCARD void *KEL_ReAlloc(void *block, uint32_t size);

/* Releases a block; null is ignored. `flag` goes to KEL_MemTblRemove, pass 0. */
KEL_API void KEL_Free(void *block, uint32_t flag);

/* Installs the allocator pair for non-cache memory (memory meant for hardware
 * access). A null argument leaves the function in place that is there; the
 * pair at start is KEL_DefaultNCMalloc and KEL_DefaultNCFree. Call it before
 * other threads allocate such memory. Returns 0. */
KEL_API int32_t KEL_MemInit(KEL_NC_MALLOC allocate, KEL_NC_FREE release);

/* A block of `size` bytes from the installed non-cache allocator, or null. Owned by
 * the caller until KEL_NonCacheFree. */
KEL_API KEL_NODISCARD void *KEL_NonCacheMalloc(uint32_t size);

/* Hands `block` to the installed non-cache release function. */
KEL_API void KEL_NonCacheFree(void *block);

/* malloc(): the non-cache pair at start. Returns the block, to be released with
 * KEL_DefaultNCFree, or null. */
KEL_API KEL_NODISCARD void *KEL_DefaultNCMalloc(uint32_t size);

/* free(): the other one of the pair. Null is ignored. */
KEL_API void KEL_DefaultNCFree(void *block);

/* The physical address of a block: 0, there is no such service here. */
KEL_API uint64_t KEL_NonCacheGetPhys(void *block);

/* Does nothing: no cache to flush here. */
KEL_API void KEL_NonCacheFlush(void *block, uint32_t size);

/* The replaceable announcements, see above. The allocating thread makes them,
 * without any lock: what replaces them guards its own records and does not
 * allocate through the library.
 *
 * A block was made by KEL_Malloc or KEL_Calloc; `file` and `func` are what the
 * caller gave and may be null. */
KEL_API void KEL_MemTblAdd(void *block, uint32_t size, uint32_t align, const char *file,
                           int32_t line, const char *func);

/* KEL_ReAlloc made another block of `old_block`; see KEL_MemTblAdd. */
KEL_API void KEL_MemTblUpdate(void *old_block, void *new_block, uint32_t size);

/* A block is about to be released; see KEL_MemTblAdd. */
KEL_API void KEL_MemTblRemove(void *block, uint32_t flag);

/* Does nothing; kept for programs that call it. */
KEL_API void KEL_MemTrace(void *unused, uint32_t unused_size);

/* Does nothing; kept for programs that call it. Returns 0. */
KEL_API int32_t KEL_Memcleanup(void *unused, uint32_t unused_size);

/* The first place in `haystack` (`haystack_length` bytes) that holds the
 * `needle_length` bytes at `needle`, or null; as memmem(). */
KEL_API void *KEL_Memmem(const void *haystack, uint32_t haystack_length, const void *needle,
                         uint32_t needle_length);

KEL_END_DECLS

#endif
