/* Region heap: variable-size blocks inside one region of memory.
 *
 *     KEL_VMEM *heap = KEL_VMemCreate(NULL, 1 << 20);
 *     void *p = KEL_VMalloc(heap, 100);
 *     if (p != NULL)
 *       KEL_VFree(heap, p);
 *     KEL_VMemDestroy(heap);
 *
 * Every block is preceded by a header of 56 bytes inside the region, with a
 * copy of its own fields that is checked on use. Sizes are rounded up to a
 * multiple of 8; the search begins where the last one ended. Each heap has its
 * own lock. Traces under "kelvirtmem".
 *
 * Surprises worth knowing:
 *  - A BLOCK BELOW THE HEAP RECORD'S OWN ADDRESS IS NEVER HANDED OUT. The record
 *    comes from malloc at creation: a region in static memory, or one that
 *    malloc took from the same arena before, lies below it and yields nothing,
 *    although the free count drops. Use a region above the heap of the process,
 *    as mmap gives it. malloc does so too for 128 KiB and more, but not for sizes
 *    up to the largest that was freed: mallopt(M_MMAP_THRESHOLD, 128 * 1024) at
 *    the start of the program makes it keep to that. Once there are threads, the
 *    record can come from an arena of theirs, above the region, too:
 *    mallopt(M_ARENA_MAX, 1) at the start prevents that.
 *  - The last block, when it would be handed out whole, is not handed out, but is
 *    taken, and counts so. The search ends there from then on: it has no way back to
 *    the blocks in front, and the heap refuses however much is free. Make at the start
 *    a small block, one of all but 128 of the free bytes (a multiple of 8), and another
 *    small one, then free the large one; and ask for 9 bytes at least, which the 64 to
 *    71 that remain at the end have no room for.
 *  - The search begins at the block handed out last also when that block has been
 *    absorbed by a free one before it; its old header is used again then, inside
 *    the other block. Headers can be reported as broken then, blocks that cannot
 *    be freed any more be lost, and a later block can overlap one in use. Do not
 *    free the block allocated last while the one before it is free: allocate
 *    another one first.
 *  - The blocks form a ring: freeing the first block while the last one is free
 *    merges both, and the header's size then exceeds the region. KEL_VMalloc
 *    refuses such a block; KEL_VReAlloc returns it, and only as many bytes as
 *    lie inside the region may be used. A small first block that is never freed
 *    keeps the two apart.
 *  - KEL_VMemDestroy frees the region also when the caller gave it: it must
 *    come from malloc then.
 *  - KEL_VReAlloc returns the address of a block's header, 56 bytes before its
 *    data, and copies to there.
 *  - KEL_VMemReset leaves the copies of the first header: the next use reports
 *    it as broken, and carries on. It also leaves the place where the search
 *    begins, and so the old blocks behind it: after allocations a reset heap can
 *    hand out the same bytes twice. Make a new heap instead.
 *
 * Threads: any thread may allocate and free; resetting and destroying are for one
 * that has the heap alone.
 * Blocking: allocating and freeing wait for the heap's lock, without limit.
 * Null: a null heap is refused or ignored; a block must not be null. */
#ifndef KELCORE_VIRTMEM_H
#define KELCORE_VIRTMEM_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_VMEM KEL_VMEM;

/* A heap over `size` bytes at `region`, which is zeroed; with a null region the
 * memory is allocated. Owned by the caller until KEL_VMemDestroy, which frees the
 * region in either case: one that the caller gives comes from malloc and is the
 * heap's from then on. Null when memory is short, or for a size of 0 without a
 * region. A region that has no room for a header (56 bytes) is taken, yields no
 * block, and its free count wraps to a huge number. */
KEL_API KEL_NODISCARD KEL_VMEM *KEL_VMemCreate(void *region, uint32_t size);

/* Makes the whole region one free block again; takes no lock. */
KEL_API void KEL_VMemReset(KEL_VMEM *heap);

/* Releases lock, region and record; null is ignored. */
KEL_API void KEL_VMemDestroy(KEL_VMEM *heap);

/* A block of `size` bytes, the caller's until KEL_VFree in the same heap (or until
 * the heap goes), or null. What it holds is undefined. */
KEL_API KEL_NODISCARD void *KEL_VMalloc(KEL_VMEM *heap, uint32_t size);

/* Frees a block and merges it with free neighbours. Returns 0; -1 for a broken
 * header or a null heap. Freeing twice is not noticed: it counts twice. */
KEL_API int32_t KEL_VFree(KEL_VMEM *heap, void *data);

/* Makes room for `size` bytes, in place or elsewhere (the old contents are
 * copied then; in the free block just before, the header of what remains may fall
 * into them first). Returns the address of the block's HEADER. Null when the heap
 * has fewer than `size` bytes free: the block stays as it was; null when no free
 * block is large enough: the block is free then. A size of 0 gives a block that
 * counts as free. */
KEL_API void *KEL_VReAlloc(KEL_VMEM *heap, void *data, uint32_t size);

/* The free bytes, headers of free blocks included but the first; 0 for null. Takes
 * no lock. */
KEL_API uint32_t KEL_VGetFree(KEL_VMEM *heap);

KEL_END_DECLS

#endif
