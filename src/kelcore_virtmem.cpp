// Region heap: blocks with checked headers inside one region.
//
// Links are plain addresses inside memory that applications can damage, so a
// header is only looked at where one can lie: inside [start, end - 56]. A link
// to anywhere else counts as no link when it would be followed; its value is
// kept and shown all the same.

#include "kelcore_virtmem.h"

#include <stddef.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/lock.h"
#include "internal/relaxed.h"
#include "internal/trace.h"
#include "kelcore_mutex.h"

KEL_TRACE_SOURCE("kelvirtmem", "kelcore_virtmem")

namespace {

// May lie at any address: regions are the caller's.
struct [[gnu::packed, gnu::may_alias]] Header {
  uint32_t copy_size;
  uint32_t padding;
  Header *copy_prev;
  Header *copy_next;
  uint32_t copy_allocated;
  uint32_t size;  // of the block, header included
  Header *prev;
  Header *next;
  uint32_t allocated;  // the request, rounded; 0 marks a free block
  uint32_t more_padding;
};

constexpr uint32_t kHeaderBytes = 56;
constexpr uint32_t kLeastRemainder = 63;  // what is not worth a block of its own

}  // namespace

struct KEL_VMEM {
  uint8_t *start;
  uint8_t *end;
  uint32_t total;
  uint32_t free;
  Header *cursor;  // the block handed out last
  KEL_MUTEX *mutex;
};

namespace {

using kel::load_relaxed;
using kel::store_relaxed;

static_assert(sizeof(Header) == kHeaderBytes);
static_assert(offsetof(Header, copy_prev) == 8 && offsetof(Header, size) == 28 &&
              offsetof(Header, next) == 40 && offsetof(Header, allocated) == 48);
static_assert(sizeof(KEL_VMEM) == 40 && offsetof(KEL_VMEM, cursor) == 24);

int32_t shown(uint32_t value) {
  return static_cast<int32_t>(value);
}

uintptr_t address(const volatile void *pointer) {
  return reinterpret_cast<uintptr_t>(pointer);
}

uint32_t rounded(uint32_t size) {
  return (size + 7) & ~uint32_t{7};
}

Header *header_of(void *data) {
  return reinterpret_cast<Header *>(address(data) - kHeaderBytes);
}

Header *header_at(Header *header, uint32_t offset) {
  return reinterpret_cast<Header *>(address(header) + offset);
}

uint8_t *block_pointer(Header *header) {
  return reinterpret_cast<uint8_t *>(address(header) + kHeaderBytes);
}

// Whether a header can lie there; null cannot.
bool inside(const KEL_VMEM *heap, const Header *header) {
  return heap->total >= kHeaderBytes && address(header) >= address(heap->start) &&
         address(header) <= address(heap->end) - kHeaderBytes;
}

Header *linked(const KEL_VMEM *heap, Header *header) {
  return inside(heap, header) ? header : nullptr;
}

void cloneBlockHeader(Header *header) {
  header->copy_size = header->size;
  header->copy_prev = header->prev;
  header->copy_next = header->next;
  header->copy_allocated = header->allocated;
}

bool differs_from_copy(const Header *header) {
  return header->size != header->copy_size || header->prev != header->copy_prev ||
         header->next != header->copy_next || header->allocated != header->copy_allocated;
}

// The count is read without the lock.
void add_free(KEL_VMEM *heap, uint32_t bytes) {
  store_relaxed(heap->free, heap->free + bytes);
}

void trace_empty_header(const Header *header) {
  TRACE_AS("checkBlockHeader", KEL_LEVEL_ERROR, "heap header is broken (0x%x)!!! blksize(%d)\n",
           kel::low32(header), 0);
}

bool checkBlockHeader(const KEL_VMEM *heap, const Header *header) {
  if (header->size == 0) {
    trace_empty_header(header);
    return false;
  }
  if (differs_from_copy(header)) {
    TRACE_ERROR(
        "heap header is broken blksize(%d)(%d) prvaddr(%x)(%x) next(%x)(%x) alocsize(%d)(%d)\n",
        shown(header->size), shown(header->copy_size), kel::low32(header->prev),
        kel::low32(header->copy_prev), kel::low32(header->next), kel::low32(header->copy_next),
        shown(header->allocated), shown(header->copy_allocated));
    return false;
  }
  // Without a block before it, the one behind it is not asked either.
  const Header *prev = linked(heap, header->prev);
  if (prev == nullptr)
    return true;
  if (prev->next != header) {
    TRACE_ERROR("heap header is broken !!! next(%x) of prev blk is not me(%x)\n",
                kel::low32(prev->next), kel::low32(header));
    return false;
  }
  const Header *next = linked(heap, header->next);
  if (next == nullptr)
    return true;
  if (next->prev != header) {
    TRACE_ERROR("heap header is broken !!! prev(%x) of next blk is not me(%x)\n",
                kel::low32(next->prev), kel::low32(header));
    return false;
  }
  return true;
}

void set_prev(const KEL_VMEM *heap, Header *header, Header *prev) {
  if (!inside(heap, header))
    return;
  header->prev = prev;
  cloneBlockHeader(header);
}

// Cuts what is left behind `need` bytes off as a free block of its own.
void split(const KEL_VMEM *heap, Header *header, Header *rest, uint32_t need) {
  if (!inside(heap, rest))
    return;
  rest->size = header->size - need;
  rest->next = header->next;
  rest->allocated = 0;
  set_prev(heap, header->next, rest);
}

// Takes the block if it is free and large enough. A broken header is reported
// and used all the same: the applications would rather go on.
Header *allocHeapBlock(KEL_VMEM *heap, Header *header, uint32_t asize) {
  uint32_t need = asize + kHeaderBytes;
  if (!checkBlockHeader(heap, header))
    TRACE_ERROR("checkBlockHeader failed\n");
  if (header->allocated != 0)
    return nullptr;
  // The sum of a huge request would wrap around to a small one.
  if (header->size < uint64_t{asize} + kHeaderBytes) {
    TRACE_DEBUG("small blksize(%d) need(%d). move to next\n", shown(header->size), shown(need));
    return nullptr;
  }
  const bool remainder = header->size - need > kLeastRemainder;
  if (!remainder)
    need = header->size;
  Header *next = header_at(header, need);
  if (remainder)
    split(heap, header, next, need);
  set_prev(heap, next, header);
  header->size = need;
  header->next = next;
  header->allocated = asize;
  cloneBlockHeader(header);
  checkBlockHeader(heap, header);
  TRACE_TRACE("blk(%x) ptr(%x) prv(%x) next(%x) size(%d)\n", kel::low32(header),
              kel::low32(block_pointer(header)), kel::low32(header->prev), kel::low32(next),
              shown(header->size));
  add_free(heap, 0u - need);
  return header;
}

// Absorbs the block behind if it is free. The caller refreshes the copies.
void mergeNextBlock(KEL_VMEM *heap, Header *header) {
  Header *next = linked(heap, header->next);
  if (next == nullptr)
    return;
  checkBlockHeader(heap, next);
  if (next->allocated != 0)
    return;
  header->size += next->size;
  header->next = next->next;
  set_prev(heap, header->next, header);
}

// Is absorbed by the block before if that is free. Goes by links, not by
// addresses.
void mergePrevBlock(KEL_VMEM *heap, Header *header) {
  Header *prev = linked(heap, header->prev);
  if (prev == nullptr)
    return;
  checkBlockHeader(heap, prev);
  if (prev->allocated != 0)
    return;
  prev->size += header->size;
  prev->next = header->next;
  cloneBlockHeader(prev);
  if (Header *following = linked(heap, prev->next)) {
    checkBlockHeader(heap, following);
    set_prev(heap, following, prev);
  }
}

// For the debugger: lists the free blocks. Not counted, as nobody else calls it.
// GCOVR_EXCL_START
[[gnu::used]] void checkHeap(const KEL_VMEM *heap) {
  auto *header = reinterpret_cast<Header *>(heap->start);
  for (uint32_t steps = heap->total / kHeaderBytes + 1; steps > 0 && inside(heap, header);
       --steps, header = header->next)
    if (header->allocated == 0)
      TRACE_INFO("Empty Heap(%x) Size(%d)\n", kel::low32(header), shown(header->size));
}
// GCOVR_EXCL_STOP

// No walk needs more steps than blocks can exist.
uint32_t most_steps(const KEL_VMEM *heap) {
  return heap->total / kHeaderBytes + 1;
}

bool has_region(const KEL_VMEM *heap) {
  return heap != nullptr && heap->start != nullptr;
}

bool in_range(const KEL_VMEM *heap, const Header *header) {
  return address(header) >= address(heap->start) && address(header) <= address(heap->end);
}

void trace_out_of_memory(uint32_t size) {
  TRACE_AS("KEL_VMalloc", KEL_LEVEL_ERROR, "out of memory alloc size(%d)\n", shown(size));
}

// What KEL_VMalloc does with a block that it got: some are not handed out.
uint8_t *accept(KEL_VMEM *heap, Header *header, uint32_t size, uint32_t asize) {
  constexpr const char kFunc[] = "KEL_VMalloc";
  uint8_t *data = block_pointer(header);
  TRACE_AS(kFunc, KEL_LEVEL_TRACE,
           "allocated. pAlloc(%x) start(%x) free(%d) size(%d) asize(%d)\n", kel::low32(data),
           kel::low32(heap->start), shown(load_relaxed(heap->free)), shown(size), shown(asize));
  if (address(data) < address(heap) || address(data) >= address(heap->end) ||
      address(header->next) >= address(heap->end)) {
    TRACE_AS(kFunc, KEL_LEVEL_ERROR, "pHeap(%x) newblk(%x) p(%x) end(%x) next(%x)\n",
             kel::low32(heap), kel::low32(header), kel::low32(data), kel::low32(heap->end),
             kel::low32(header->next));
    return nullptr;
  }
  heap->cursor = header;
  return data;
}

// Next fit: from the block handed out last around the ring.
uint8_t *search(KEL_VMEM *heap, uint32_t size, uint32_t asize) {
  auto *first =
      heap->cursor != nullptr ? heap->cursor : reinterpret_cast<Header *>(heap->start);
  Header *header = first;
  for (uint32_t steps = 0; inside(heap, header); ++steps) {
    if (allocHeapBlock(heap, header, asize) != nullptr)
      return accept(heap, header, size, asize);
    Header *next = header->next;
    if (next == nullptr)
      return nullptr;
    if (!in_range(heap, next) || next == first || steps >= most_steps(heap)) {
      trace_out_of_memory(size);
      TRACE_AS("KEL_VMalloc", KEL_LEVEL_ERROR,
               "prvblk(%x) blk(%x) pHeap(%x) pStart(%x) m_pEnd(%x)\n", kel::low32(header),
               kel::low32(next), kel::low32(heap), kel::low32(heap->start),
               kel::low32(heap->end));
      KEL_VGetFree(heap);
      return nullptr;
    }
    header = next;
  }
  return nullptr;
}

// The bytes of a block that moved, as far as they lie in the region.
void copy_contents(const KEL_VMEM *heap, Header *to, const void *from, uint32_t bytes) {
  const uintptr_t room_to = address(heap->end) - address(to);
  const uintptr_t room_from = address(heap->end) - address(from);
  uintptr_t count = bytes;
  if (count > room_to)
    count = room_to;
  if (count > room_from)
    count = room_from;
  memmove(to, from, count);
}

}  // namespace

KEL_VMEM *KEL_VMemCreate(void *region, uint32_t size) {
  if (region == nullptr) {
    if (size == 0)
      return nullptr;
    TRACE_DEBUG("alloc heap size(%d)\n", shown(size));
    region = KEL_Malloc(size, 0, KEL_NO_FILL, kTraceSource.file, __LINE__, __func__);
    if (region == nullptr) {
      TRACE_DEBUG("alloc failed size(%d)\n", shown(size));
      return nullptr;
    }
  }
  // A region is kept also when the record cannot be had: it may be the caller's.
  KEL_VMEM *heap = KEL_ALLOC(KEL_VMEM);
  if (heap == nullptr)
    return nullptr;
  TRACE_DEBUG("virtual memory created (%x)\n", kel::low32(heap));
  memset(region, 0, size);
  heap->start = static_cast<uint8_t *>(region);
  heap->end = heap->start + size;
  heap->total = size;
  store_relaxed(heap->free, size - kHeaderBytes);
  auto *first = static_cast<Header *>(region);
  if (inside(heap, first)) {
    first->size = size;
    first->next = first;
    cloneBlockHeader(first);
  }
  heap->mutex = KEL_MutexCreate();
  return heap;
}

void KEL_VMemReset(KEL_VMEM *heap) {
  if (!has_region(heap))
    return;
  store_relaxed(heap->free, heap->total - kHeaderBytes);
  auto *first = reinterpret_cast<Header *>(heap->start);
  if (!inside(heap, first))
    return;
  first->size = heap->total;
  first->next = reinterpret_cast<Header *>(heap->end);
  first->allocated = 0;
}

void KEL_VMemDestroy(KEL_VMEM *heap) {
  if (heap == nullptr)
    return;
  KEL_MutexDestroy(heap->mutex);
  KEL_Free(heap->start, 0);
  KEL_Free(heap, 0);
}

void *KEL_VMalloc(KEL_VMEM *heap, uint32_t size) {
  const uint32_t asize = rounded(size);
  if (!has_region(heap) || load_relaxed(heap->free) < asize) {
    trace_out_of_memory(size);
    KEL_VGetFree(heap);
    return nullptr;
  }
  TRACE_TRACE("start(%x) free(%d) size(%d) asize(%d)\n", kel::low32(heap->start),
              shown(load_relaxed(heap->free)), shown(size), shown(asize));
  if (size == 0 || asize == 0) {
    TRACE_ERROR("invalid argument size(%d) asize(%d)\n", shown(size), shown(asize));
    return nullptr;
  }
  const kel::ScopedLock lock(heap->mutex);
  return search(heap, size, asize);
}

int32_t KEL_VFree(KEL_VMEM *heap, void *data) {
  if (heap == nullptr)
    return -1;
  if (heap->start == nullptr)
    return 0;
  const kel::ScopedLock lock(heap->mutex);
  Header *header = header_of(data);
  const bool ours = inside(heap, header);
  TRACE_TRACE("mem(%x) asize(%d) bsize(%d)\n", kel::low32(data),
              shown(ours ? header->allocated : 0), shown(ours ? header->size : 0));
  if (!ours) {
    // What lies outside the region reads as an empty header.
    trace_empty_header(header);
    return -1;
  }
  if (!checkBlockHeader(heap, header))
    return -1;
  add_free(heap, header->size);
  header->allocated = 0;
  header->copy_allocated = 0;
  mergeNextBlock(heap, header);
  mergePrevBlock(heap, header);
  cloneBlockHeader(header);
  const Header *prev = linked(heap, header->prev);
  return prev != nullptr && prev->size == 0 && prev->allocated == 0 ? -1 : 0;
}

void *KEL_VReAlloc(KEL_VMEM *heap, void *data, uint32_t size) {
  if (!has_region(heap))
    return nullptr;
  const uint32_t asize = rounded(size);
  if (load_relaxed(heap->free) < asize)
    return nullptr;
  const kel::ScopedLock lock(heap->mutex);
  Header *header = header_of(data);
  if (!inside(heap, header))
    return nullptr;
  const uint32_t old_bytes = header->allocated;
  add_free(heap, header->size - kHeaderBytes);
  header->allocated = 0;
  mergeNextBlock(heap, header);
  if (Header *same = allocHeapBlock(heap, header, asize))
    return same;

  mergePrevBlock(heap, header);
  auto *at = reinterpret_cast<Header *>(heap->start);
  for (uint32_t steps = 0; steps <= most_steps(heap) && inside(heap, at);
       ++steps, at = at->next) {
    if (Header *found = allocHeapBlock(heap, at, asize)) {
      copy_contents(heap, found, data, old_bytes);
      return found;
    }
  }
  return nullptr;
}

uint32_t KEL_VGetFree(KEL_VMEM *heap) {
  if (heap == nullptr)
    return 0;
  const uint32_t free = load_relaxed(heap->free);
  const uint64_t percent = heap->total != 0 ? uint64_t{free} * 100 / heap->total : 0;
  TRACE_DEBUG("total(%d) free(%d) (%d)%%\n", shown(heap->total), shown(free),
              kel::low32_signed(percent));
  return free;
}
