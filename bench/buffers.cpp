// 188 bytes, a transport stream's packet, through the two byte buffers.

#include <string.h>

#include "job.h"
#include "kelcore.h"

#ifdef HAVE_GSTREAMER
#include <gst/base/base.h>
#endif

static constexpr uint32_t kPacket = 188;
static unsigned char in[kPacket], out[kPacket];

JOB(circular_188, kelcore) {
  KEL_CIRCULAR *buffer = KELCircular_Create(65536);
  for (auto _ : state) {
    KELCircular_Push(buffer, in, kPacket);
    KELCircular_Pop(buffer, out, kPacket);
    benchmark::ClobberMemory();
  }
  KELCircular_Destroy(buffer);
}

JOB(circular_188, limit_memcpy) {
  static unsigned char buffer[65536];
  size_t at = 0, count = kPacket;
  for (auto _ : state) {
    benchmark::DoNotOptimize(count);  // not known to the compiler, as in a buffer
    memcpy(buffer + at, in, count);
    memcpy(out, buffer + at, count);
    at = at + count < 65536 - kPacket ? at + count : 0;
    benchmark::ClobberMemory();
  }
}

JOB(ring_188, kelcore) {
  KEL_RING *ring = KELRing_Create(65536);
  uint32_t size = 0;
  for (auto _ : state) {
    memcpy(KELRing_GetWBuf(ring, &size), in, kPacket);
    KELRing_FillWBuf(ring, kPacket);
    benchmark::DoNotOptimize(KELRing_GetRBuf(ring, &size)[0]);
    KELRing_DelRBuf(ring, kPacket);
  }
  KELRing_Destroy(ring);
}

#ifdef HAVE_GSTREAMER
JOB(ring_188, gstreamer) {
  GstAdapter *adapter = gst_adapter_new();
  for (auto _ : state) {
    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, kPacket, nullptr);
    gst_buffer_fill(buffer, 0, in, kPacket);
    gst_adapter_push(adapter, buffer);
    const void *mapped = gst_adapter_map(adapter, kPacket);
    benchmark::DoNotOptimize(static_cast<const unsigned char *>(mapped)[0]);
    gst_adapter_unmap(adapter);
    gst_adapter_flush(adapter, kPacket);
  }
  g_object_unref(adapter);
}
#endif
