// Circular buffer: a copying byte FIFO that wraps.

#include "kelcore_circular.h"

#include <stddef.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/trace.h"

KEL_TRACE_SOURCE("kelcircular", "kelcore_circular")

struct KEL_CIRCULAR {
  uint8_t *buf;
  uint32_t size;
  uint32_t wr;
  uint32_t rd;
  uint32_t fill;
};

namespace {

static_assert(sizeof(KEL_CIRCULAR) == 24);
static_assert(offsetof(KEL_CIRCULAR, wr) == 12 && offsetof(KEL_CIRCULAR, fill) == 20);

const void *shown(const void *pointer) {
  return pointer;
}

// Where an index ends up `count` bytes on; a buffer of size 0 has one place.
uint32_t advanced(const KEL_CIRCULAR *buffer, uint32_t index, uint32_t count) {
  const uint64_t on = uint64_t{index} + count;
  return static_cast<uint32_t>(on < buffer->size ? on : on - buffer->size);
}

}  // namespace

KEL_CIRCULAR *KELCircular_Create(uint32_t size) {
  TRACE_TRACE("size(%d)\n", static_cast<int32_t>(size));
  KEL_CIRCULAR *buffer = KEL_ALLOC(KEL_CIRCULAR);
  if (buffer == nullptr) {
    TRACE_ERROR("out of memory. can not create circular buf handle. size(%d)\n",
                static_cast<int>(sizeof(KEL_CIRCULAR)));
    return nullptr;
  }
  buffer->buf = static_cast<uint8_t *>(
      KEL_Malloc(size, 0, KEL_NO_FILL, kTraceSource.file, __LINE__, __func__));
  if (buffer->buf == nullptr) {
    TRACE_ERROR("out of memory. can not alloc circular buf. size(%d)\n",
                static_cast<int32_t>(size));
    const kel::ErrnoGuard keep_errno;
    KEL_Free(buffer, 0);
    return nullptr;
  }
  buffer->size = size;
  TRACE_DEBUG("circular buffer(%p) created. size(%d)\n", shown(buffer),
              static_cast<int32_t>(size));
  return buffer;
}

int32_t KELCircular_Destroy(KEL_CIRCULAR *buffer) {
  TRACE_TRACE("circular buffer (%p)\n", shown(buffer));
  if (buffer == nullptr) {
    TRACE_ERROR("invalid circular buffer handle\n");
    return -1;
  }
  TRACE_DEBUG("circular buffer (%p) size(%d)\n", shown(buffer),
              static_cast<int32_t>(buffer->size));
  KEL_Free(buffer->buf, 0);
  KEL_Free(buffer, 0);
  return 0;
}

int32_t KELCircular_Push(KEL_CIRCULAR *buffer, const void *from, uint32_t count) {
  TRACE_TRACE("circular buffer push (%p) (%d) bytes\n", from, static_cast<int32_t>(count));
  if (uint64_t{buffer->fill} + count > buffer->size) {
    TRACE_ERROR("circular buffer overflow cur size(%d/%d) reqsz(%d) bytes\n",
                static_cast<int32_t>(buffer->fill), static_cast<int32_t>(buffer->size),
                static_cast<int32_t>(count));
    return -1;
  }
  if (count == 0)
    return 0;
  const auto *bytes = static_cast<const uint8_t *>(from);
  const uint32_t room = buffer->size - buffer->wr;
  const uint32_t first = room > count ? count : room;
  memcpy(buffer->buf + buffer->wr, bytes, first);
  if (first < count)
    memcpy(buffer->buf, bytes + first, count - first);
  buffer->fill += count;
  buffer->wr = advanced(buffer, buffer->wr, count);
  return 0;
}

int32_t KELCircular_Pop(KEL_CIRCULAR *buffer, void *to, uint32_t count) {
  TRACE_TRACE("circular buffer pop (%p) (%d) bytes\n", shown(to), static_cast<int32_t>(count));
  if (buffer->fill < count) {
    // Readers poll: too little data is no fault, and not traced as one.
    TRACE_TRACE("circular buffer underflow cur sz(%d) need sz(%d) bytes\n",
                static_cast<int32_t>(buffer->fill), static_cast<int32_t>(count));
    return -1;
  }
  if (count == 0)
    return 0;
  auto *bytes = static_cast<uint8_t *>(to);
  const uint32_t tail = buffer->size - buffer->rd;
  const uint32_t first = tail > count ? count : tail;
  memcpy(bytes, buffer->buf + buffer->rd, first);
  if (first < count)
    memcpy(bytes + first, buffer->buf, count - first);
  buffer->rd = advanced(buffer, buffer->rd, count);
  buffer->fill -= count;
  return 0;
}
