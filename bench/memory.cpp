// The three memory managers.

#include <dlfcn.h>
#include <pthread.h>
#include <string.h>

#include <random>
#include <vector>

#include "job.h"
#include "kelcore.h"

#ifdef HAVE_BOOST
#include <boost/interprocess/managed_heap_memory.hpp>
#include <boost/pool/singleton_pool.hpp>
#endif
#ifdef HAVE_GSTREAMER
#include <gst/gst.h>
#endif

// ---- Blocks of 64 zeroed bytes ----

JOB(zeroed_64_bytes, kelcore) {
  KEL_SMalloc_Init();
  KEL_SMalloc_Register(64, nullptr);
  for (auto _ : state) {
    void *block = KEL_SMalloc(64);
    benchmark::DoNotOptimize(block);
    KEL_SFree(block, 64);
  }
  KEL_SMalloc_UnRegister(64);
  KEL_SMalloc_Deinit();
}

JOB(zeroed_64_bytes, limit_locks_memset) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  alignas(64) char block[64];
  for (auto _ : state) {
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
    memset(block, 0, sizeof block);
    benchmark::DoNotOptimize(block);
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
  }
}

#ifdef HAVE_BOOST
JOB(zeroed_64_bytes, boost) {
  struct Tag {};
  using Pool = boost::singleton_pool<Tag, 64>;
  for (auto _ : state) {
    void *block = Pool::malloc();
    memset(block, 0, 64);
    benchmark::DoNotOptimize(block);
    Pool::free(block);
  }
}
#endif

// A heap of its own for each thread: what is to be had without any lock. Loaded
// by hand, as linked it would take the place of malloc in all other jobs.
JOB(zeroed_64_bytes, mimalloc) {
  void *library = dlopen("libmimalloc.so.2", RTLD_NOW | RTLD_LOCAL);
  auto *zalloc = reinterpret_cast<void *(*)(size_t)>(
      library != nullptr ? dlsym(library, "mi_zalloc_small") : nullptr);
  auto *release = reinterpret_cast<void (*)(void *)>(
      library != nullptr ? dlsym(library, "mi_free") : nullptr);
  if (zalloc == nullptr || release == nullptr) {
    state.SkipWithError("no libmimalloc.so.2");
    return;
  }
  for (auto _ : state) {
    void *block = zalloc(64);
    benchmark::DoNotOptimize(block);
    release(block);
  }
}

// ---- Blocks of 16 to 1024 bytes, so many of them alive ----

template <typename Allocate, typename Release>
static void churn(benchmark::State &state, size_t live, Allocate allocate, Release release) {
  std::mt19937 random(1);
  std::vector<void *> blocks(live);
  for (void *&block : blocks)
    block = allocate(16 + random() % 1009);
  for (auto _ : state) {
    void *&block = blocks[random() % live];
    if (block != nullptr)
      release(block);
    block = allocate(16 + random() % 1009);
  }
  for (void *block : blocks)
    if (block != nullptr)
      release(block);
}

static void region_kelcore(benchmark::State &state, size_t live) {
  KEL_VMEM *heap = KEL_VMemCreate(nullptr, static_cast<uint32_t>(live * 2048));
  churn(
      state, live, [&](size_t size) { return KEL_VMalloc(heap, static_cast<uint32_t>(size)); },
      [&](void *block) { KEL_VFree(heap, block); });
  KEL_VMemDestroy(heap);
}
JOB(region_256_live, kelcore) {
  region_kelcore(state, 256);
}
JOB(region_4096_live, kelcore) {
  region_kelcore(state, 4096);
}

#ifdef HAVE_BOOST
static void region_boost(benchmark::State &state, size_t live) {
  boost::interprocess::managed_heap_memory heap(live * 2048);
  churn(
      state, live, [&](size_t size) { return heap.allocate(size, std::nothrow); },
      [&](void *block) { heap.deallocate(block); });
}
JOB(region_256_live, boost) {
  region_boost(state, 256);
}
JOB(region_4096_live, boost) {
  region_boost(state, 4096);
}
#endif

// ---- One frame through the media pool ----

JOB(media_frame, kelcore) {
  KEL_BUF_PARAM parameters{};
  parameters.bufsize = 1 << 20;
  parameters.minsize = 4096;
  parameters.number = 64;
  KEL_BUF *pool = KELBuf_Create(&parameters, nullptr);
  for (auto _ : state) {
    KEL_BUF_DESC frame{};
    KELBuf_GetWBuf(pool, &frame);
    frame.size = 4096;
    KELBuf_FillWBuf(pool, &frame);
    KELBuf_GetRBuf(pool, &frame);
    KELBuf_DelRBuf(pool, &frame);
  }
  KELBuf_Destroy(pool);
}

#ifdef HAVE_GSTREAMER
JOB(media_frame, gstreamer) {
  GstBufferPool *pool = gst_buffer_pool_new();
  GstStructure *config = gst_buffer_pool_get_config(pool);
  gst_buffer_pool_config_set_params(config, nullptr, 4096, 8, 64);
  gst_buffer_pool_set_config(pool, config);
  gst_buffer_pool_set_active(pool, TRUE);
  for (auto _ : state) {
    GstBuffer *buffer = nullptr;
    gst_buffer_pool_acquire_buffer(pool, &buffer, nullptr);
    gst_buffer_unref(buffer);
  }
  gst_buffer_pool_set_active(pool, FALSE);
  gst_object_unref(pool);
}
#endif
