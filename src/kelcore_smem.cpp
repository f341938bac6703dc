// Pool allocator: ten slots, each with chunks of 4096 equal blocks.
//
// A block has a record and a list node in its chunk. Nodes move between the
// slot's list of allocated blocks and its list of free ones; which node stands
// for which block does not matter, as all blocks of a slot are alike, so a free
// takes the first allocated record and puts the freed address into it.

#include "kelcore_smem.h"

#include <stdlib.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/lock.h"
#include "internal/plain_list.h"
#include "internal/relaxed.h"
#include "internal/trace.h"
#include "kelcore_list.h"
#include "kelcore_mutex.h"

KEL_TRACE_SOURCE("kelsmem", "kelcore_smem")

struct KEL_SMEM_SLOT {
  uint32_t size;  // rounded; 0 marks an empty slot
  KEL_NLIST *chunks;
  KEL_NLIST *allocated;
  KEL_NLIST *freed;
};

namespace {

using kel::load_relaxed;
using kel::store_relaxed;
using Slot = KEL_SMEM_SLOT;

constexpr int kSlots = 10;
constexpr uint32_t kBlocksPerChunk = 4096;
constexpr const char kDefaultName[] = "smem";

struct BlockRecord {
  KEL_NLIST *owner;
  void *block;
  uint32_t size;
  uint32_t index;
  uint32_t in_use;
};
static_assert(sizeof(BlockRecord) == 32);
static_assert(sizeof(KEL_NLIST_NODE) == 24);

struct Chunk {
  uint8_t *memory;
  uint32_t used;  // blocks ever handed out; they never come back to the chunk
  BlockRecord *records;
  KEL_NLIST_NODE *nodes;
};

Slot slots[kSlots];
int32_t registered = 0;
char *names[kSlots];  // from strdup
KEL_MUTEX *pool_lock = nullptr;

// The size that a class is known by; 0, which no class has, when it wraps.
uint32_t rounded(uint32_t size) {
  return (size + 3) & ~uint32_t{3};
}

Slot *find(uint32_t size) {
  const uint32_t wanted = rounded(size);
  if (wanted == 0)
    return nullptr;
  for (Slot &slot : slots)
    if (load_relaxed(slot.size) == wanted)
      return &slot;
  return nullptr;
}

char *&name_of(const Slot *slot) {
  return names[slot - slots];
}

BlockRecord *record_of(KEL_NLIST_NODE *node) {
  return static_cast<BlockRecord *>(node->data);
}

void release_chunk(Chunk *chunk) {
  const kel::ErrnoGuard keep_errno;
  KEL_Free(chunk->memory, 0);
  KEL_Free(chunk->records, 0);
  KEL_Free(chunk->nodes, 0);
  KEL_Free(chunk, 0);
}

void *calloc_or_trace(uint32_t size) {
  constexpr const char kFunc[] = "KEL_SMallocAdd";
  void *block = KEL_Calloc(kBlocksPerChunk, size, 0, kTraceSource.file, __LINE__, kFunc);
  if (block == nullptr)
    TRACE_AS(kFunc, KEL_LEVEL_ERROR, "Out of memory size(%d)\n",
             kel::low32_signed(uint64_t{kBlocksPerChunk} * size));
  return block;
}

bool fill_chunk(Chunk *chunk, uint32_t size) {
  chunk->memory = static_cast<uint8_t *>(calloc_or_trace(size));
  if (chunk->memory == nullptr)
    return false;
  chunk->records = static_cast<BlockRecord *>(calloc_or_trace(sizeof(BlockRecord)));
  if (chunk->records == nullptr)
    return false;
  chunk->nodes = static_cast<KEL_NLIST_NODE *>(calloc_or_trace(sizeof(KEL_NLIST_NODE)));
  if (chunk->nodes == nullptr)
    return false;
  for (uint32_t i = 0; i < kBlocksPerChunk; ++i)
    chunk->nodes[i].data = &chunk->records[i];
  return true;
}

Slot *first_empty_slot(uint32_t size, bool *already) {
  for (Slot &slot : slots) {
    if (slot.size == 0)
      return &slot;
    if (slot.size == size) {
      *already = true;
      return nullptr;
    }
  }
  return nullptr;
}

// What fails leaves the slot with its size: a class without its lists is refused
// until it is unregistered. One that only lacks its first chunk gets it at the
// first allocation.
bool make_lists(Slot *slot) {
  constexpr const char kFunc[] = "KEL_SMalloc_Register";
  store_relaxed(slot->chunks, KEL_NListCreate());
  if (slot->chunks == nullptr) {
    TRACE_AS(kFunc, KEL_LEVEL_ERROR, "can not alloc clist\n");
    return false;
  }
  store_relaxed(slot->allocated, KEL_NListCreate());
  if (slot->allocated == nullptr) {
    TRACE_AS(kFunc, KEL_LEVEL_ERROR, "can not alloc alist\n");
    return false;
  }
  store_relaxed(slot->freed, KEL_NListCreate());
  if (slot->freed == nullptr) {
    TRACE_AS(kFunc, KEL_LEVEL_ERROR, "can not alloc flist\n");
    const kel::ErrnoGuard keep_errno;
    KEL_NListDestroy(slot->allocated);
    store_relaxed(slot->allocated, nullptr);
    return false;
  }
  return true;
}

void *take_freed(Slot *slot, KEL_NLIST_NODE *node) {
  BlockRecord *record = record_of(node);
  record->in_use = 1;
  kel::PlainList::del(slot->freed, node);
  kel::PlainList::add_tail(slot->allocated, node);
  return record->block;
}

void *carve(Slot *slot) {
  for (KEL_NLIST_NODE *link = slot->chunks->head; link != nullptr; link = link->next) {
    auto *chunk = static_cast<Chunk *>(link->data);
    if (chunk->used >= kBlocksPerChunk)
      continue;
    const uint32_t index = chunk->used++;
    uint8_t *block = chunk->memory + size_t{slot->size} * index;
    chunk->records[index] = {slot->chunks, block, slot->size, index, 1};
    kel::PlainList::add_tail(slot->allocated, &chunk->nodes[index]);
    return block;
  }
  return nullptr;
}

void trace_unknown(const char *func, uint32_t size) {
  TRACE_AS(func, KEL_LEVEL_ERROR, "can not find registerd memroy size(%d)\n",
           static_cast<int32_t>(size));
}

}  // namespace

int32_t KEL_SMalloc_Init(void) {
  memset(slots, 0, sizeof slots);
  store_relaxed(registered, 0);
  for (char *&name : names) {
    free(name);
    name = nullptr;
  }
  KEL_MutexDestroy(pool_lock);
  pool_lock = KEL_MutexCreate();
  if (pool_lock == nullptr) {
    TRACE_ERROR("KEL_MutexCreate fail.\n");
    return -1;
  }
  return 0;
}

int32_t KEL_SMalloc_Deinit(void) {
  if (pool_lock == nullptr)
    return 0;
  KEL_MUTEX *lock = pool_lock;
  pool_lock = nullptr;
  return static_cast<int32_t>(KEL_MutexDestroy(lock));
}

int32_t KEL_SMalloc_Lock(void) {
  return static_cast<int32_t>(KEL_MutexLock(pool_lock, KEL_WAIT_FOREVER));
}

int32_t KEL_SMalloc_UnLock(void) {
  return static_cast<int32_t>(KEL_MutexUnLock(pool_lock));
}

int32_t KEL_SMalloc_Register(uint32_t size, const char *name) {
  const kel::ScopedLock lock(pool_lock);
  TRACE_DEBUG("size(%d)\n", static_cast<int32_t>(size));
  if (registered >= kSlots) {
    TRACE_ERROR("No more smemory register cur(%d)\n", registered);
    return -1;
  }
  const uint32_t block_size = rounded(size);
  if (block_size == 0)
    return -1;
  bool already = false;
  Slot *slot = first_empty_slot(block_size, &already);
  if (already) {
    TRACE_INFO("already registered regsize(%d) size(%d)\n", static_cast<int32_t>(block_size),
               static_cast<int32_t>(block_size));
    return 0;
  }
  if (slot == nullptr)
    return -1;  // slots are lost to registrations that failed

  store_relaxed(slot->size, block_size);
  if (!make_lists(slot))
    return -1;
  if (KEL_SMallocAdd(slot, block_size) != 0) {
    TRACE_ERROR("KEL_SMallocAdd failed.\n");
    return -1;
  }
  store_relaxed(name_of(slot), strdup(name != nullptr ? name : kDefaultName));
  TRACE_DEBUG("success size(%d) index(%d)\n", static_cast<int32_t>(block_size), registered);
  store_relaxed(registered, registered + 1);
  return 0;
}

int32_t KEL_SMalloc_UnRegister(uint32_t size) {
  const kel::ScopedLock lock(pool_lock);
  TRACE_DEBUG("size(%d)\n", static_cast<int32_t>(size));
  Slot *slot = find(size);
  if (slot == nullptr)
    return -1;
  TRACE_DEBUG("registered size(%d)\n", static_cast<int32_t>(size));

  // The nodes of both block lists lie in the chunks and go with them.
  KEL_NLIST *chunks = slot->chunks;
  while (KEL_NLIST_NODE *link = chunks != nullptr ? chunks->head : nullptr) {
    kel::PlainList::del(chunks, link);
    auto *chunk = static_cast<Chunk *>(link->data);
    KEL_Free(link, 0);
    release_chunk(chunk);
  }
  KEL_NListDestroy(slot->freed);
  KEL_NListDestroy(slot->allocated);
  KEL_NListDestroy(chunks);
  store_relaxed(slot->freed, nullptr);
  store_relaxed(slot->allocated, nullptr);
  store_relaxed(slot->chunks, nullptr);
  store_relaxed(slot->size, 0);
  free(name_of(slot));
  store_relaxed(name_of(slot), nullptr);
  store_relaxed(registered, registered - 1);
  return 0;
}

int32_t KEL_SMallocAdd(KEL_SMEM_SLOT *slot, uint32_t size) {
  KEL_NLIST_NODE *link = KEL_ALLOC(KEL_NLIST_NODE);
  if (link == nullptr) {
    TRACE_ERROR("Out of memory\n");
    return -1;
  }
  Chunk *chunk = KEL_ALLOC(Chunk);
  if (chunk == nullptr) {
    TRACE_ERROR("Out of memory\n");
    const kel::ErrnoGuard keep_errno;
    KEL_Free(link, 0);
    return -1;
  }
  TRACE_DEBUG("size(%d) initsize(%d)\n", static_cast<int32_t>(size),
              kel::low32_signed(uint64_t{kBlocksPerChunk} * size));
  if (!fill_chunk(chunk, size)) {
    const kel::ErrnoGuard keep_errno;
    release_chunk(chunk);
    KEL_Free(link, 0);
    return -1;
  }
  link->data = chunk;
  kel::PlainList::add_tail(slot->chunks, link);
  return 0;
}

void *KEL_SMalloc(uint32_t size) {
  Slot *slot = find(size);
  if (slot == nullptr || load_relaxed(slot->chunks) == nullptr ||
      load_relaxed(slot->allocated) == nullptr || load_relaxed(slot->freed) == nullptr) {
    trace_unknown(__func__, size);
    return nullptr;
  }
  kel::ScopedLock lock(pool_lock);
  void *block;
  if (KEL_NLIST_NODE *node = slot->freed->head) {
    if (record_of(node)->size != slot->size) {
      TRACE_ERROR("invalid mem block size\n");
      // The table is corrupt: nobody is let at it any more.
      lock.keep();
      return nullptr;
    }
    block = take_freed(slot, node);
  } else {
    block = carve(slot);
    if (block == nullptr && KEL_SMallocAdd(slot, slot->size) == 0)
      block = carve(slot);
    if (block == nullptr)
      return nullptr;
  }
  const uint32_t bytes = slot->size;
  // The block is ours now; clearing it need not hold others up.
  lock.unlock();
  memset(block, 0, bytes);
  return block;
}

int32_t KEL_SFree(void *block, uint32_t size) {
  Slot *slot = find(size);
  if (slot == nullptr || load_relaxed(slot->freed) == nullptr) {
    trace_unknown(__func__, size);
    return 0;
  }
  const kel::ScopedLock lock(pool_lock);
  KEL_NLIST_NODE *node = slot->allocated->head;
  if (node == nullptr)
    return 0;
  BlockRecord *record = record_of(node);
  record->block = block;
  record->in_use = 0;
  kel::PlainList::del(slot->allocated, node);
  kel::PlainList::add_tail(slot->freed, node);
  return 0;
}

int32_t KEL_SMemIsReg(uint32_t size) {
  if (load_relaxed(registered) == 0)
    return 0;
  return find(size) != nullptr ? 1 : 0;
}

const char *KEL_SMemGetName(uint32_t size) {
  const Slot *slot = find(size);
  return slot != nullptr ? load_relaxed(name_of(slot)) : nullptr;
}

int32_t KEL_SMemStatus(uint32_t *reserved, uint32_t *used, uint32_t *free_bytes) {
  KEL_SMalloc_Lock();
  TRACE_INFO("total registered (%d)\n", registered);
  int32_t index = 0;
  do {
    const Slot &slot = slots[index];
    TRACE_INFO("### index(%d) size:%d alist:%x flist:%x\n", index,
               static_cast<int32_t>(slot.size), kel::low32(slot.allocated),
               kel::low32(slot.freed));
    uint32_t allocated = 0;
    if (slot.allocated != nullptr)
      for (KEL_NLIST_NODE *node = slot.allocated->head; node != nullptr; node = node->next)
        ++allocated;
    uint32_t free_now = 0;
    uint32_t free_sum = 0;  // a running sum: each step adds all that came before
    if (slot.freed != nullptr) {
      for (KEL_NLIST_NODE *node = slot.freed->head; node != nullptr; node = node->next) {
        free_now += slot.size;
        free_sum += free_now;
      }
    }
    const uint32_t reserved_now = allocated * slot.size * kBlocksPerChunk;
    const uint32_t used_now = reserved_now - free_now;
    if (reserved != nullptr)
      *reserved += reserved_now;
    if (used != nullptr)
      *used += used_now;
    if (free_bytes != nullptr)
      *free_bytes += free_sum;
    TRACE_INFO(
        "smem(%d) total alloc list count:%d reseve:%d(bytes) used:%d(bytes) free:%d(bytes)\n\n",
        static_cast<int32_t>(slot.size), static_cast<int32_t>(allocated),
        static_cast<int32_t>(reserved_now), static_cast<int32_t>(used_now),
        static_cast<int32_t>(free_now));
  } while (++index < registered);
  return KEL_SMalloc_UnLock();
}
