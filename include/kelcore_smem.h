/* Pool allocator: zeroed blocks of up to ten registered sizes.
 *
 *     KEL_SMalloc_Init();
 *     if (KEL_SMalloc_Register(64, "packet") == 0) {
 *       void *p = KEL_SMalloc(64);
 *       if (p != NULL)
 *         KEL_SFree(p, 64);
 *       KEL_SMalloc_UnRegister(64);
 *     }
 *     KEL_SMalloc_Deinit();
 *
 * Each size owns chunks of 4096 equal blocks, so that allocating and freeing
 * reach the general heap only when a chunk is added. Sizes are rounded up to a
 * multiple of 4; there is no best fit: a size that is not registered is
 * refused. One process-wide mutex guards it all (before KEL_SMalloc_Init it
 * runs unlocked); looking a size up takes no lock. Traces under "kelsmem".
 *
 * Surprises worth knowing:
 *  - Blocks are aligned to 4 bytes only, to 8 or 16 where the rounded size is a
 *    multiple of that: round the sizes of structures with pointers up to 8.
 *  - KEL_SFree only counts: it trusts that the block is one of the class. A
 *    freed block waits behind those that were freed before it.
 *  - Registering the sizes 24 and 32 moves list nodes and queue entries into
 *    the pool. Register them first thing and keep them: nodes that live across
 *    a registration or unregistration are freed the wrong way.
 *  - A registration that fails for want of memory keeps its slot and size: the
 *    size then counts as registered, as soon as another class exists.
 *  - Unregister in the reverse order of registration. Where a hole is left, a
 *    size behind it can be registered a second time, in front of the first.
 *
 * Threads: any thread may allocate, free, register and look up; KEL_SMalloc_Init
 * and KEL_SMalloc_Deinit are for start and stop.
 * Blocking: allocating, freeing, registering and the status wait for the lock,
 * without limit.
 * Null: the words of KEL_SMemStatus may be null, a block that is freed must not. */
#ifndef KELCORE_SMEM_H
#define KELCORE_SMEM_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* A slot of the size table: internal, only KEL_SMallocAdd takes one. */
typedef struct KEL_SMEM_SLOT KEL_SMEM_SLOT;

/* Empties the table without releasing what sizes hold (unregister them first),
 * forgets their names and makes a new lock in place of an old one. Returns 0;
 * -1 when the lock could not be made. No other thread may be allocating. */
KEL_API int32_t KEL_SMalloc_Init(void);

/* Destroys the lock; registered sizes stay and can be used unlocked. Returns
 * KEL_MutexDestroy's result, or 0 when there was no lock. */
KEL_API int32_t KEL_SMalloc_Deinit(void);

/* Takes the process-wide lock, waiting without limit. The calls below take it
 * themselves and must not be made while the caller holds it. Returns what
 * KEL_MutexLock returns. */
KEL_API int32_t KEL_SMalloc_Lock(void);

/* Gives the lock back. Returns what KEL_MutexUnLock returns. */
KEL_API int32_t KEL_SMalloc_UnLock(void);

/* Registers a block size in bytes with its first chunk. `name` is copied; null
 * gives "smem". Returns 0, also for a size that is registered already; -1 when
 * ten sizes are registered, memory is short, or the size rounds to 0. */
KEL_API int32_t KEL_SMalloc_Register(uint32_t size, const char *name);

/* Releases everything that the size owns; blocks still held become invalid. No
 * other thread may be using the size. One whose registration failed can be
 * unregistered, too, but lowers the count of registered sizes all the same.
 * Returns 0; -1 for a size that is not registered. */
KEL_API int32_t KEL_SMalloc_UnRegister(uint32_t size);

/* Adds one chunk of 4096 blocks of `size` (rounded) bytes to a slot, the lock
 * being held. Returns 0 or -1. */
KEL_API int32_t KEL_SMallocAdd(KEL_SMEM_SLOT *slot, uint32_t size);

/* A zeroed block of a registered size, the caller's until KEL_SFree with the same
 * size (or until KEL_SMalloc_UnRegister, with all of that size); null when the size
 * is not registered or memory is short, and when a record was overwritten: the lock
 * then stays taken, for nothing in the table can be trusted. */
KEL_API KEL_NODISCARD void *KEL_SMalloc(uint32_t size);

/* Gives a block of that size back. Returns 0 in every case. */
KEL_API int32_t KEL_SFree(void *block, uint32_t size);

/* 1 if the size is registered, else 0. Unlocked. */
KEL_API int32_t KEL_SMemIsReg(uint32_t size);

/* The name given at registration, owned by the table; null when the size is
 * not registered, or the name could not be copied. Unlocked. */
KEL_API const char *KEL_SMemGetName(uint32_t size);

/* Traces the table at INFO level and adds each size's bytes to the words that
 * are not null. `reserved` counts allocated blocks x size x 4096, `used` that
 * less the free list's bytes, `free_bytes` the running sum of the free list.
 * Walks the lists under the lock. Returns the unlock's result. */
KEL_API int32_t KEL_SMemStatus(uint32_t *reserved, uint32_t *used, uint32_t *free_bytes);

KEL_END_DECLS

#endif
