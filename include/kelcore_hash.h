/* Checksums, and a hash table from texts to 64-bit values.
 *
 *     KEL_HASHMAP *pids = KEL_Hashmap_Create(64, 1);
 *     if (pids != NULL) {
 *       KEL_Hashmap_Hash(pids, "video", 256); // the key is copied
 *       uint64_t pid;
 *       if (KEL_Hashmap_Get(pids, "video", &pid) == 0)
 *         printf("video is on %u\n", (unsigned)pid);
 *       KEL_Hashmap_DestroyFull(pids, NULL);
 *     }
 *
 * The checksums are pure functions. The table takes no lock: callers that
 * share one guard it. Traces under "kelhash".
 *
 * Surprises worth knowing:
 *  - Inserting a key twice makes two entries; lookups find the first in probe
 *    order.
 *  - An entry sits at most ten slots behind its home; one in the tenth (the
 *    eleventh slot) is stored but never found. Give the table room, or let it
 *    grow.
 *  - A table that may not grow takes half its size in entries. Growing leaks
 *    the old copies of the keys.
 *  - KEL_Hashmap_Destroy leaves the copies of the keys behind;
 *    KEL_Hashmap_DestroyFull calls the release function for free slots, too.
 *
 * Threads: the checksums and KEL_Hashmap_string any, a table one at a time.
 * Blocking: never.
 * Null: a null key is as told; a null table is ignored by the two destroying
 * calls only. */
#ifndef KELCORE_HASH_H
#define KELCORE_HASH_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_HASHMAP KEL_HASHMAP;

/* The CRC-32 (reflected polynomial 0xEDB88320, as zlib's) of `length` bytes; 0 for
 * none. */
KEL_API uint32_t KEL_Hash_crc32(const void *data, uint32_t length);

/* A 16-bit checksum of this system's own (polynomial 0x1021 with the reflected
 * update, no published variant) of `length` bytes; 0 for none. */
KEL_API uint32_t KEL_Hash_crc16(const void *data, uint32_t length);

/* The home slot of a key (null: the empty key) in a table of `size` slots; the
 * whole hash when `size` is 0. */
KEL_API uint32_t KEL_Hashmap_string(const char *key, uint32_t size);

/* A table of `size` slots (0: 256) that may double when `expandable` is not 0.
 * Powers of two are looked up fastest. Owned by the caller until
 * KEL_Hashmap_DestroyFull; null when memory is short. */
KEL_API KEL_NODISCARD KEL_HASHMAP *KEL_Hashmap_Create(uint32_t size, uint8_t expandable);

/* Releases the table without the copies of its keys. Null is ignored. */
KEL_API void KEL_Hashmap_Destroy(KEL_HASHMAP *table);

/* Releases the table with its keys; `release` (may be null) is called with the
 * value of every slot, 0 for free ones. Null is ignored. */
KEL_API void KEL_Hashmap_DestroyFull(KEL_HASHMAP *table, void (*release)(uint64_t));

/* Inserts a value under a copy of `key` (may be null; such an entry is never
 * found, nor is one whose key could not be copied). Returns the slot, or -1 when
 * the table is full and may not or cannot grow, or when all eleven slots of the
 * key are taken also after one growth: the table then stays doubled, and doubles
 * again each time that is tried. A growth whose own reinsertion fails loses
 * the entries that did not come to it yet. */
KEL_API int32_t KEL_Hashmap_Hash(KEL_HASHMAP *table, const char *key, uint64_t value);

/* Writes the value under `key`. Returns 0; -1 when there is none, 0 being
 * written then. */
KEL_API int32_t KEL_Hashmap_Get(KEL_HASHMAP *table, const char *key, uint64_t *value);

/* Removes the entry of `key`. Returns 0; -1 when there is none. */
KEL_API int32_t KEL_Hashmap_Del(KEL_HASHMAP *table, const char *key);

/* Removes every entry; the table keeps its size. Returns 0. */
KEL_API int32_t KEL_Hashmap_reset(KEL_HASHMAP *table);

/* The number of entries. */
KEL_API uint32_t KEL_Hashmap_size(KEL_HASHMAP *table);

/* Prints every slot on standard output. */
KEL_API void KEL_Hashmap_dump(KEL_HASHMAP *table);

KEL_END_DECLS

#endif
