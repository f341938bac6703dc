// Ring buffer: contiguous reading by sliding back instead of wrapping.

#include "kelcore_ring.h"

#include <stddef.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/trace.h"

KEL_TRACE_SOURCE("kelring", "kelcore_ring")

struct KEL_RING {
  uint8_t *buf;  // 2 x size bytes
  uint32_t size;
  uint32_t len;  // unread bytes
  uint32_t rd;   // offset of the first unread byte
};

namespace {

static_assert(sizeof(KEL_RING) == 24);
static_assert(offsetof(KEL_RING, len) == 12 && offsetof(KEL_RING, rd) == 16);

bool valid(const KEL_RING *ring, const char *func) {
  if (ring == nullptr)
    TRACE_AS(func, KEL_LEVEL_ERROR, "invalid ring buffer handle\n");
  return ring != nullptr;
}

const void *shown(const KEL_RING *ring) {
  return ring;
}

}  // namespace

KEL_RING *KELRing_Create(uint32_t size) {
  TRACE_TRACE("size(%d)\n", static_cast<int32_t>(size));
  KEL_RING *ring = KEL_ALLOC(KEL_RING);
  if (ring == nullptr) {
    TRACE_ERROR("out of memory. can not create ring buf handle. size(%d)\n",
                static_cast<int>(sizeof(KEL_RING)));
    return nullptr;
  }
  if (kel::product_fits(2, size))
    ring->buf = static_cast<uint8_t *>(
        KEL_Malloc(2 * size, 0, KEL_NO_FILL, kTraceSource.file, __LINE__, __func__));
  if (ring->buf == nullptr) {
    TRACE_ERROR("out of memory. can not alloc ring buf. size(%d)\n",
                static_cast<int32_t>(size));
    const kel::ErrnoGuard keep_errno;
    KEL_Free(ring, 0);
    return nullptr;
  }
  ring->size = size;
  TRACE_DEBUG("ring buffer(%p) created. size(%d)\n", shown(ring), static_cast<int32_t>(size));
  return ring;
}

int32_t KELRing_Destroy(KEL_RING *ring) {
  TRACE_TRACE("ring buffer (%p)\n", shown(ring));
  if (!valid(ring, __func__))
    return -1;
  TRACE_DEBUG("ring buffer (%p) size(%d)\n", shown(ring), static_cast<int32_t>(ring->size));
  KEL_Free(ring->buf, 0);
  KEL_Free(ring, 0);
  return 0;
}

void KELRing_Reset(KEL_RING *ring) {
  TRACE_TRACE("ring buffer (%p)\n", shown(ring));
  if (!valid(ring, __func__))
    return;
  TRACE_DEBUG("cur ring buffer length(%d)\n", static_cast<int32_t>(ring->len));
  // The offset stays: a writer may still hold a pointer behind it.
  ring->len = 0;
}

uint8_t *KELRing_GetWBuf(KEL_RING *ring, uint32_t *size) {
  if (!valid(ring, __func__))
    return nullptr;
  uint8_t *to = ring->buf + (ring->rd + ring->len);
  *size = ring->size;
  TRACE_DEBUG("write Ptr(%x) size(%d)\n", kel::low32(to), static_cast<int32_t>(ring->size));
  return to;
}

uint32_t KELRing_FillWBuf(KEL_RING *ring, int32_t count) {
  if (!valid(ring, __func__))
    return 0;
  ring->len += static_cast<uint32_t>(count);
  TRACE_DEBUG("updated write buffer len(%d)\n", static_cast<int32_t>(ring->len));
  return ring->len;
}

uint8_t *KELRing_GetRBuf(KEL_RING *ring, uint32_t *size) {
  if (!valid(ring, __func__))
    return nullptr;
  uint8_t *from = ring->buf + ring->rd;
  *size = ring->len;
  TRACE_DEBUG("read Ptr(%x) offset(%d) size(%d)\n", kel::low32(from),
              static_cast<int32_t>(ring->rd), static_cast<int32_t>(ring->len));
  return from;
}

uint32_t KELRing_DelRBuf(KEL_RING *ring, uint32_t count) {
  if (!valid(ring, __func__))
    return 0;
  ring->len -= count;
  ring->rd += count;
  if (ring->rd >= ring->size) {
    // Counts are the caller's; wrong ones spoil its data, not other memory.
    const uint64_t area = uint64_t{ring->size} * 2;
    if (ring->rd < area) {
      const uint64_t inside = area - ring->rd;
      memmove(ring->buf, ring->buf + ring->rd, ring->len < inside ? ring->len : inside);
    }
    ring->rd = 0;
  }
  TRACE_DEBUG("updated read buffer size(%d) offset(%d)\n", static_cast<int32_t>(ring->len),
              static_cast<int32_t>(ring->rd));
  return ring->len;
}
