// How costs grow: with threads, entries, live blocks, depth. Only our own.

#include <string>
#include <vector>

#include "job.h"
#include "kelcore.h"

namespace {

KEL_QUEUE *shared_queue;

void QueueByThreads(benchmark::State &state) {
  if (state.thread_index() == 0)
    shared_queue = KEL_QueueCreate("bench", 1024);
  int item = 0;
  for (auto _ : state) {
    KEL_QueuePush(shared_queue, &item, 1);
    benchmark::DoNotOptimize(KEL_QueuePop(shared_queue, nullptr, 0));
  }
  if (state.thread_index() == 0)
    KEL_QueueDestroy(shared_queue);
}
BENCHMARK(QueueByThreads)
    ->Name("growth_queue")
    ->Threads(1)
    ->Threads(2)
    ->Threads(4)
    ->UseRealTime();

void BlocksByThreads(benchmark::State &state) {
  if (state.thread_index() == 0) {
    KEL_SMalloc_Init();
    KEL_SMalloc_Register(64, nullptr);
  }
  for (auto _ : state)
    KEL_SFree(KEL_SMalloc(64), 64);
  if (state.thread_index() == 0) {
    KEL_SMalloc_UnRegister(64);
    KEL_SMalloc_Deinit();
  }
}
BENCHMARK(BlocksByThreads)
    ->Name("growth_blocks")
    ->Threads(1)
    ->Threads(2)
    ->Threads(4)
    ->UseRealTime();

void TraceByThreads(benchmark::State &state) {
  if (state.thread_index() == 0) {
    KEL_TraceInit(nullptr);
    KEL_TraceSetCB([](const char *) {}, 0);
    KEL_TraceSet("bench:4");
  }
  for (auto _ : state)
    KEL_Trace("bench", KEL_LEVEL_DEBUG, "bench", 42, "frame", "frame %d\n", 1);
  if (state.thread_index() == 0) {
    KEL_TraceDeinit();
    KEL_TraceSet("bench:0");
  }
}
BENCHMARK(TraceByThreads)
    ->Name("growth_trace")
    ->Threads(1)
    ->Threads(2)
    ->Threads(4)
    ->UseRealTime();

void TableBySize(benchmark::State &state) {
  const auto entries = static_cast<uint32_t>(state.range(0));
  KEL_HASHMAP *table = KEL_Hashmap_Create(entries * 4, 0);
  std::vector<std::string> keys;
  for (uint32_t i = 0; i < entries; ++i) {
    keys.push_back("key" + std::to_string(i));
    KEL_Hashmap_Hash(table, keys.back().c_str(), i);
  }
  size_t i = 0;
  uint64_t value = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        KEL_Hashmap_Get(table, keys[i = (i + 7919) % entries].c_str(), &value));
  KEL_Hashmap_DestroyFull(table, nullptr);
}
BENCHMARK(TableBySize)->Name("growth_table_hit")->RangeMultiplier(10)->Range(1000, 1000000);

void QueueByDepth(benchmark::State &state) {
  KEL_QUEUE *queue = KEL_QueueCreate("bench", static_cast<uint32_t>(state.range(0)) + 1);
  int item = 0;
  for (int64_t i = 0; i < state.range(0); ++i)
    KEL_QueuePush(queue, &item, 1);
  for (auto _ : state) {
    KEL_QueuePush(queue, &item, 1);
    benchmark::DoNotOptimize(KEL_QueuePop(queue, nullptr, 0));
  }
  KEL_QueueDestroy(queue);
}
BENCHMARK(QueueByDepth)->Name("growth_queue_depth")->RangeMultiplier(10)->Range(1, 100000);

void RegionByLiveBlocks(benchmark::State &state) {
  const auto live = static_cast<size_t>(state.range(0));
  KEL_VMEM *heap = KEL_VMemCreate(nullptr, static_cast<uint32_t>(live * 512));
  std::vector<void *> blocks(live);
  for (void *&block : blocks)
    block = KEL_VMalloc(heap, 128);
  size_t i = 0;
  for (auto _ : state) {
    void *&block = blocks[i = (i + 7919) % live];
    KEL_VFree(heap, block);
    block = KEL_VMalloc(heap, 128);
  }
  KEL_VMemDestroy(heap);
}
BENCHMARK(RegionByLiveBlocks)->Name("growth_region")->RangeMultiplier(4)->Range(64, 16384);

}  // namespace
