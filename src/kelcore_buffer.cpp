// Media buffer pool: a ring of frames in one area, shared by handles that each
// read at their own pace.

#include "kelcore_buffer.h"

#include <errno.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/lock.h"
#include "internal/relaxed.h"
#include "internal/trace.h"
#include "kelcore_mutex.h"

KEL_TRACE_SOURCE("kelbuffer", "kelcore_buffer")

namespace {

struct Node {
  void *data;
  uint32_t size;
  uint32_t aligned_size;
  uint64_t time_stamp;
  uint64_t second;
  uint32_t value;
  uint32_t index;
  uint32_t further;
  uint32_t readers;  // deletions still due
};

// One per pool.
struct Shared {
  uint32_t references;  // handles; atomic, as its accessors take no lock
  uint32_t write_index;
  uint32_t oldest_index;  // first node that some handle has not deleted
  uint32_t filled;
  uint64_t last_time_stamp;
};

using AllocArea = void *(*)(uint32_t);
using FreeArea = void (*)(void *);

}  // namespace

// One per user; duplicates are copies that share area, nodes, state and locks.
struct KEL_BUF {
  uint32_t bufsize;
  uint32_t minsize;
  uint32_t align;
  uint32_t number;
  uint32_t read_index;
  uint32_t index;
  uint32_t used;
  uint32_t media;
  uint8_t *area;
  uint8_t *area_end;
  void *external_area;
  AllocArea alloc_area;
  FreeArea free_area;
  Node *nodes;
  Shared *shared;
  KEL_MUTEX *data_lock;
  KEL_MUTEX *user_lock;
};

namespace {

using kel::store_relaxed;

static_assert(sizeof(Node) == 48 && offsetof(Node, time_stamp) == 16 &&
              offsetof(Node, readers) == 44);
static_assert(sizeof(KEL_BUF) == 104 && offsetof(KEL_BUF, area) == 32 &&
              offsetof(KEL_BUF, nodes) == 72 && offsetof(KEL_BUF, user_lock) == 96);
static_assert(sizeof(KEL_BUF_DESC) == 48 && sizeof(KEL_BUF_USAGE) == 76);

constexpr uint32_t kUserLockMs = 3000;
constexpr uint32_t kHighUsage = 79;
constexpr uint32_t kIndexedMedia = 16;
constexpr const char kCreate[] = "KELBuf_Create";

KEL_BUF_USAGE usage_table;

#define CREATE_ERROR(...) TRACE_AS(kCreate, KEL_LEVEL_ERROR, __VA_ARGS__)

int32_t shown(uint32_t value) {
  return static_cast<int32_t>(value);
}

uint64_t rounded_up(uint32_t size, uint32_t align) {
  return (uint64_t{size} + align - 1) / align * align;
}

uint32_t after(const KEL_BUF *buf, uint32_t index) {
  return index + 1 < buf->number ? index + 1 : 0;
}

// ---- Creation and release ----

bool take_external_area(KEL_BUF *buf, const KEL_BUF_PARAM *param, uint64_t size) {
  if (param->alloc == nullptr || param->free == nullptr) {
    CREATE_ERROR("invalid param alloc(%x) free(%x)\n",
                 kel::low32(reinterpret_cast<void *>(param->alloc)),
                 kel::low32(reinterpret_cast<void *>(param->free)));
    return false;
  }
  if (size <= UINT32_MAX)
    buf->external_area = param->alloc(static_cast<uint32_t>(size));
  if (buf->external_area == nullptr) {
    CREATE_ERROR("external buffer alloc failed size(%d)\n", kel::low32_signed(size));
    return false;
  }
  buf->alloc_area = param->alloc;
  buf->free_area = param->free;
  buf->area = static_cast<uint8_t *>(buf->external_area);
  return true;
}

bool take_own_area(KEL_BUF *buf, const KEL_BUF_PARAM *param, uint64_t size) {
  if (param->bufsize == 0 || param->number == 0) {
    CREATE_ERROR("invalid param bufsize(%d) number(%d)\n", shown(param->bufsize),
                 shown(param->number));
    return false;
  }
  if (size <= UINT32_MAX)
    buf->area = static_cast<uint8_t *>(KEL_Malloc(static_cast<uint32_t>(size), 0, KEL_NO_FILL,
                                                  kTraceSource.file, __LINE__, kCreate));
  if (buf->area == nullptr) {
    CREATE_ERROR("buffer head alloc failed size(%d)\n", kel::low32_signed(size));
    return false;
  }
  TRACE_AS(kCreate, KEL_LEVEL_INFO, "handle buffer head(%x)\n", kel::low32(buf->area));
  buf->area_end = buf->area + size;
  return true;
}

bool take_area(KEL_BUF *buf, const KEL_BUF_PARAM *param) {
  const uint64_t size = rounded_up(param->bufsize, buf->align);
  if (param->alloc != nullptr || param->free != nullptr)
    return take_external_area(buf, param, size);
  if (param->area == nullptr)
    return take_own_area(buf, param, size);
  buf->area = static_cast<uint8_t *>(param->area);
  return true;
}

bool make_parts(KEL_BUF *buf, uint32_t number) {
  buf->shared = kel::alloc_record<Shared>(kTraceSource, __LINE__, kCreate);
  if (buf->shared == nullptr) {
    CREATE_ERROR("buffer info alloc failed size(%d)\n", static_cast<int>(sizeof(Shared)));
    return false;
  }
  if (kel::product_fits(number, sizeof(Node)))
    buf->nodes = static_cast<Node *>(KEL_Malloc(number * static_cast<uint32_t>(sizeof(Node)), 0,
                                                0, kTraceSource.file, __LINE__, kCreate));
  if (buf->nodes == nullptr) {
    CREATE_ERROR("buffer node alloc failed size(%d)\n",
                 kel::low32_signed(uint64_t{number} * sizeof(Node)));
    return false;
  }
  buf->data_lock = KEL_MutexCreate();
  if (buf->data_lock == nullptr) {
    CREATE_ERROR("mutex create failed\n");
    return false;
  }
  buf->user_lock = KEL_MutexCreate();  // a pool works without it
  return true;
}

KEL_BUF *duplicate(KEL_BUF *existing) {
  TRACE_AS(kCreate, KEL_LEVEL_DEBUG, "duplicate buf(%x)\n", kel::low32(existing));
  auto *buf = kel::alloc_record<KEL_BUF>(kTraceSource, __LINE__, kCreate);
  if (buf == nullptr) {
    CREATE_ERROR("newbuf alloc failed\n");
    return nullptr;
  }
  {
    // Copied under the lock, so that read position and count belong together.
    const kel::ScopedLock lock(existing->data_lock);
    *buf = *existing;
    __atomic_add_fetch(&buf->shared->references, 1, __ATOMIC_ACQ_REL);
  }
  TRACE_AS(kCreate, KEL_LEVEL_DEBUG, "dup buffer(%x) media(%d) index(%d)\n", kel::low32(buf),
           shown(buf->media), shown(buf->index));
  return buf;
}

// The last reference is gone, or a creation failed half-way.
void release_pool(KEL_BUF *buf) {
  if (buf->external_area != nullptr) {
    TRACE_AS("KELBuf_Destroy", KEL_LEVEL_DEBUG, "used ext buf (%x)\n",
             kel::low32(buf->external_area));
    buf->free_area(buf->external_area);
  } else if (buf->area != nullptr) {
    TRACE_AS("KELBuf_Destroy", KEL_LEVEL_DEBUG, "has buffer head (%x)\n",
             kel::low32(buf->area));
    KEL_Free(buf->area, 0);
  }
  TRACE_AS("KELBuf_Destroy", KEL_LEVEL_DEBUG, "has buffer info(%x) node(%x) lock(%x)\n",
           kel::low32(buf->shared), kel::low32(buf->nodes), kel::low32(buf->data_lock));
  KEL_Free(buf->shared, 0);
  KEL_Free(buf->nodes, 0);
  KEL_MutexDestroy(buf->data_lock);
  KEL_MutexDestroy(buf->user_lock);
}

uint32_t drop_reference(const KEL_BUF *buf) {
  return buf->shared != nullptr
             ? __atomic_sub_fetch(&buf->shared->references, 1, __ATOMIC_ACQ_REL)
             : 0;
}

// ---- Writing ----

int64_t distance(const void *from, const void *to) {
  return static_cast<int64_t>(reinterpret_cast<uintptr_t>(to) -
                              reinterpret_cast<uintptr_t>(from));
}

void note_usage(const KEL_BUF *buf, int64_t remain) {
  uint32_t percent = 0;
  if (buf->bufsize != 0) {
    const int64_t used = int64_t{buf->bufsize} + buf->minsize - remain;
    // By way of 64 bits, and not beyond: frames committed at odd places make it
    // negative, or huge.
    constexpr float kMost = 9.0e18F;
    const float exact = static_cast<float>(used) / static_cast<float>(buf->bufsize) * 100.0F;
    percent =
        static_cast<uint32_t>(static_cast<int64_t>(std::min(std::max(exact, -kMost), kMost)));
  }
  if (buf->media == 1 && buf->index < kIndexedMedia)
    store_relaxed(usage_table.media1[buf->index], percent);
  else if (buf->media == 2)
    store_relaxed(usage_table.media2, percent);
  else if (buf->media == 3)
    store_relaxed(usage_table.media3, percent);
  store_relaxed(usage_table.high, percent > kHighUsage ? 1 : 0);
}

int32_t offer(const KEL_BUF *buf, uint8_t *at, KEL_BUF_DESC *out) {
  out->data = at;
  out->room = buf->minsize;
  return 0;
}

int32_t refuse_space(const KEL_BUF *buf, int64_t remain) {
  TRACE_AS("KELBuf_GetWBuf", KEL_LEVEL_ERROR,
           "not enough write buffer space (media:%d, index:%d, remain:%d < minsize:%d, "
           "usedcnt:%d, num:%d)\n",
           shown(buf->media), shown(buf->index), static_cast<int32_t>(remain),
           shown(buf->minsize), shown(buf->shared->filled), shown(buf->number));
  return -ENOSPC;
}

// Finds room behind the newest frame, or at the start of the area.
int32_t find_room(const KEL_BUF *buf, KEL_BUF_DESC *out) {
  const Shared &shared = *buf->shared;
  const Node &oldest = buf->nodes[shared.oldest_index];
  const Node &newest =
      buf->nodes[shared.write_index != 0 ? shared.write_index - 1 : buf->number - 1];
  auto *read_point = oldest.data != nullptr ? static_cast<uint8_t *>(oldest.data) : buf->area;
  auto *write_point = reinterpret_cast<uint8_t *>(reinterpret_cast<uintptr_t>(newest.data) +
                                                  newest.aligned_size);
  const int64_t ahead = distance(read_point, write_point);
  const int64_t minsize = buf->minsize;
  int64_t remain;
  if (ahead >= 0) {
    remain = buf->bufsize - ahead;
    if (remain < minsize)
      return refuse_space(buf, remain);
    const int64_t tail = distance(write_point, buf->area) + buf->bufsize;
    // A tail of exactly minsize is not used either.
    if (minsize >= tail) {
      if (minsize > distance(buf->area, read_point)) {
        TRACE_AS("KELBuf_GetWBuf", KEL_LEVEL_ERROR, "not enough write buffer space\n");
        return -ENOSPC;
      }
      write_point = buf->area;
    }
  } else {
    remain = -ahead;
    if (remain < minsize)
      return refuse_space(buf, remain);
  }
  note_usage(buf, remain);
  return offer(buf, write_point, out);
}

// ---- Reading ----

void copy_out(const Node &node, KEL_BUF_DESC *out) {
  *out = {node.data,   node.size,  node.size,  node.time_stamp,
          node.second, node.value, node.index, node.further};
}

bool nothing_to_read(const KEL_BUF *buf) {
  return buf->read_index == buf->shared->write_index;
}

// Forward from the read index to the end of the ring's array, then backward to
// its beginning.
bool find_frame(const KEL_BUF *buf, const void *data, uint32_t *found) {
  for (uint32_t i = buf->read_index; i < buf->number; ++i) {
    if (buf->nodes[i].data == data) {
      *found = i;
      return true;
    }
  }
  for (uint32_t i = buf->read_index; i > 0; --i) {
    if (buf->nodes[i - 1].data == data) {
      *found = i - 1;
      return true;
    }
  }
  return false;
}

}  // namespace

KEL_BUF *KELBuf_Create(const KEL_BUF_PARAM *param, KEL_BUF *existing) {
  if (param == nullptr) {
    TRACE_ERROR("invalid arguments param(%p)\n", static_cast<const void *>(param));
    return nullptr;
  }
  TRACE_DEBUG("bufsize(%d) minsize(%d) number(%d) align(%d) index(%d)\n", shown(param->bufsize),
              shown(param->minsize), shown(param->number), shown(param->align),
              shown(param->index));
  if (existing != nullptr)
    return duplicate(existing);
  KEL_BUF *buf = KEL_ALLOC(KEL_BUF);
  if (buf == nullptr) {
    TRACE_ERROR("buf alloc failed\n");
    return nullptr;
  }
  buf->align = param->align != 0 ? param->align : 1;
  if (!take_area(buf, param) || !make_parts(buf, param->number)) {
    const kel::ErrnoGuard keep_errno;
    // What the caller gave stays the caller's when nothing came of it.
    if (buf->area == param->area)
      buf->area = nullptr;
    if (buf->shared != nullptr)
      buf->shared->references = 1;
    KELBuf_Destroy(buf);
    return nullptr;
  }
  buf->bufsize = param->bufsize;
  buf->minsize = param->minsize;
  buf->number = param->number;
  buf->index = param->index;
  buf->media = param->media;
  buf->shared->references = 1;
  TRACE_DEBUG("buffer(%x) media(%d) index(%d)\n", kel::low32(buf), shown(buf->media),
              shown(buf->index));
  return buf;
}

void KELBuf_Destroy(KEL_BUF *buf) {
  TRACE_TRACE("Enter hbuf(%x)\n", kel::low32(buf));
  if (buf == nullptr) {
    TRACE_DEBUG("invalid buf handle\n");
    return;
  }
  const uint32_t left = drop_reference(buf);
  TRACE_DEBUG("buf(%x) decrease ref count to (%d)\n", kel::low32(buf), shown(left));
  if (left == 0) {
    TRACE_DEBUG("ref count is zero\n");
    release_pool(buf);
  }
  KEL_Free(buf, 0);
  TRACE_TRACE("Leave\n");
}

int32_t KELBuf_GetWBuf(KEL_BUF *buf, KEL_BUF_DESC *out) {
  if (buf == nullptr || out == nullptr) {
    TRACE_ERROR("invalid param buf(%x) node(%x)\n", kel::low32(buf), kel::low32(out));
    return -EINVAL;
  }
  const kel::ScopedLock lock(buf->data_lock);
  const uint32_t filled = buf->shared->filled;
  if (filled == 0)
    return offer(buf, buf->area, out);
  if (filled == buf->number) {
    TRACE_ERROR("not enough write buffer (media:%d, index:%d, count(%d) >= maxnumber(%d)\n",
                shown(buf->media), shown(buf->index), shown(filled), shown(buf->number));
    return -ENOSPC;
  }
  return find_room(buf, out);
}

int32_t KELBuf_FillWBuf(KEL_BUF *buf, const KEL_BUF_DESC *desc) {
  if (buf == nullptr || desc == nullptr) {
    TRACE_ERROR("invalid arguments buf(%p) node(%p)\n", static_cast<void *>(buf),
                static_cast<const void *>(desc));
    return -EINVAL;
  }
  if (desc->size == 0 || desc->data == nullptr) {
    TRACE_ERROR("invalid arguments node size(%d) buf(%p)\n", shown(desc->size), desc->data);
    return -EINVAL;
  }
  if (desc->room > buf->minsize || desc->room < desc->size) {
    TRACE_ERROR("invalid arguments bufsize(%d) minsize(%d) size(%d)\n", shown(desc->room),
                shown(buf->minsize), shown(desc->size));
    return -EINVAL;
  }
  const kel::ScopedLock lock(buf->data_lock);
  Shared &shared = *buf->shared;
  if (shared.filled == buf->number) {
    TRACE_ERROR("not enough write buffer count\n");
    return -ENOSPC;
  }
  const auto aligned = static_cast<uint32_t>(rounded_up(desc->size, buf->align));
  buf->nodes[shared.write_index] = {
      desc->data,       desc->size,    aligned,
      desc->time_stamp, desc->second,  desc->value,
      buf->index,       desc->further, __atomic_load_n(&shared.references, __ATOMIC_ACQUIRE)};
  buf->used += aligned;
  shared.last_time_stamp = desc->time_stamp;
  shared.write_index = after(buf, shared.write_index);
  ++shared.filled;
  return 0;
}

int32_t KELBuf_GetRBuf(KEL_BUF *buf, KEL_BUF_DESC *out) {
  if (buf == nullptr || out == nullptr) {
    TRACE_ERROR("invalid arguments\n");
    return -EINVAL;
  }
  const kel::ScopedLock lock(buf->data_lock);
  if (nothing_to_read(buf))
    return -ENOTTY;
  copy_out(buf->nodes[buf->read_index], out);
  return 0;
}

int32_t KELBuf_DelRBuf(KEL_BUF *buf, const KEL_BUF_DESC *desc) {
  TRACE_TRACE("buf(%x) size(%d)\n", kel::low32(desc != nullptr ? desc->data : nullptr),
              shown(desc != nullptr ? desc->size : 0));
  if (buf == nullptr) {
    TRACE_ERROR("invalid arguments\n");
    return -EINVAL;
  }
  const kel::ScopedLock lock(buf->data_lock);
  if (nothing_to_read(buf))
    return -ENOTTY;
  Node &node = buf->nodes[buf->read_index];
  buf->read_index = after(buf, buf->read_index);
  if (--node.readers == 0) {
    buf->shared->oldest_index = buf->read_index;
    --buf->shared->filled;
  }
  buf->used -= node.aligned_size;
  return 0;
}

int32_t KELBuf_FindRBuf(KEL_BUF *buf, const void *data, KEL_BUF_DESC *out) {
  if (buf == nullptr || out == nullptr) {
    TRACE_ERROR("invalid arguments\n");
    return -EINVAL;
  }
  const kel::ScopedLock lock(buf->data_lock);
  uint32_t found = 0;
  if (!find_frame(buf, data, &found))
    return -1;
  buf->read_index = found;
  copy_out(buf->nodes[found], out);
  return 0;
}

int32_t KELBuf_BufStatus(KEL_BUF *buf, KEL_BUF_STATUS *out) {
  if (buf == nullptr || out == nullptr)
    return -EINVAL;
  const kel::ScopedLock lock(buf->data_lock);
  const Shared &shared = *buf->shared;
  const uint64_t span = nothing_to_read(buf)
                            ? 0
                            : shared.last_time_stamp - buf->nodes[buf->read_index].time_stamp;
  *out = {buf->bufsize,    buf->minsize, buf->used,  shared.filled, shared.write_index,
          buf->read_index, span,         buf->index, buf->media};
  return 0;
}

int32_t KELBuf_GetBufRefCnt(KEL_BUF *buf) {
  if (buf == nullptr)
    return -EINVAL;
  return shown(__atomic_load_n(&buf->shared->references, __ATOMIC_ACQUIRE));
}

int32_t KELBuf_AddBufRefCnt(KEL_BUF *buf) {
  if (buf == nullptr)
    return -EINVAL;
  __atomic_add_fetch(&buf->shared->references, 1, __ATOMIC_ACQ_REL);
  return 0;
}

int32_t KELBuf_CheckBuf(KEL_BUF *buf, const KEL_BUF_DESC *desc, const void *data) {
  if (desc->data == data)
    return 1;
  TRACE_ERROR("node->buf (%p) != memdata (%p) Mismatch!  (widx:%d, ridx:%d)\n", desc->data,
              data, shown(buf->shared->write_index), shown(buf->shared->oldest_index));
  return 0;
}

int32_t KELBuf_LockEnter(KEL_BUF *buf) {
  if (buf != nullptr && buf->user_lock != nullptr &&
      KEL_MutexLock(buf->user_lock, kUserLockMs) != 0)
    TRACE_ERROR("lock timeout! (err %d:%s)\n", errno, strerror(errno));
  return 0;
}

int32_t KELBuf_LockLeave(KEL_BUF *buf) {
  if (buf != nullptr && buf->user_lock != nullptr)
    KEL_MutexUnLock(buf->user_lock);
  return 0;
}

const KEL_BUF_USAGE *KELBuf_GetUsage(void) {
  return &usage_table;
}
