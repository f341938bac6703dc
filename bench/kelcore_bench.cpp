// Hot paths beside what they stand on: each job is named JOB/WHO, and only the
// ratio of one WHO to another in the same run means anything.

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <semaphore.h>
#include <string.h>

#include <deque>
#include <mutex>

#include "kelcore.h"

namespace {

void LockUnlockKelcore(benchmark::State &state) {
  KEL_MUTEX *mutex = KEL_MutexCreate();
  for (auto _ : state) {
    KEL_MutexLock(mutex, KEL_WAIT_FOREVER);
    KEL_MutexUnLock(mutex);
  }
  KEL_MutexDestroy(mutex);
}
BENCHMARK(LockUnlockKelcore)->Name("lock_unlock/kelcore");

void LockUnlockPosix(benchmark::State &state) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for (auto _ : state) {
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
  }
}
BENCHMARK(LockUnlockPosix)->Name("lock_unlock/posix");

void SemaPutGetKelcore(benchmark::State &state) {
  KEL_SEMA *sema = KEL_SemaCreate(nullptr, 0);
  for (auto _ : state) {
    KEL_SemaPut(sema);
    KEL_SemaGet(sema, KEL_WAIT_FOREVER);
  }
  KEL_SemaDestroy(sema);
}
BENCHMARK(SemaPutGetKelcore)->Name("sema_put_get/kelcore");

void SemaPutGetPosix(benchmark::State &state) {
  sem_t sema;
  sem_init(&sema, 0, 0);
  for (auto _ : state) {
    sem_post(&sema);
    sem_wait(&sema);
  }
  sem_destroy(&sema);
}
BENCHMARK(SemaPutGetPosix)->Name("sema_put_get/posix");

void QueueKelcore(benchmark::State &state) {
  KEL_QUEUE *queue = KEL_QueueCreate("bench", 64);
  int item = 0;
  int32_t param = 0;
  for (auto _ : state) {
    KEL_QueuePush(queue, &item, 1);
    benchmark::DoNotOptimize(KEL_QueuePop(queue, &param, 0));
  }
  KEL_QueueDestroy(queue);
}
BENCHMARK(QueueKelcore)->Name("queue_push_pop/kelcore");

void QueueStd(benchmark::State &state) {
  std::mutex mutex;
  std::deque<std::pair<void *, int32_t>> queue;
  int item = 0;
  for (auto _ : state) {
    {
      std::lock_guard guard(mutex);
      queue.emplace_back(&item, 1);
    }
    std::lock_guard guard(mutex);
    benchmark::DoNotOptimize(queue.front());
    queue.pop_front();
  }
}
BENCHMARK(QueueStd)->Name("queue_push_pop/std_mutex_deque");

void PoolKelcore(benchmark::State &state) {
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
BENCHMARK(PoolKelcore)->Name("zeroed_64_bytes/kelcore");

void PoolLimit(benchmark::State &state) {
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
BENCHMARK(PoolLimit)->Name("zeroed_64_bytes/two_locks_and_memset");

void TraceFilteredOut(benchmark::State &state) {
  for (auto _ : state)
    KEL_Trace("bench", KEL_LEVEL_DEBUG, "kelcore_bench", 1, "bench", "%d\n", 1);
}
BENCHMARK(TraceFilteredOut)->Name("trace_filtered_out/kelcore");

void BytesBigEndian(benchmark::State &state) {
  static unsigned char data[65536 + 8];
  for (auto _ : state) {
    KEL_BYTE *reader = KELByte_Open(data, 65536);
    uint32_t end = 0;
    uint32_t sum = 0;
    for (int i = 0; i < 65536 / 4; ++i)
      sum += KELByte_Get_be_uint32(reader, &end);
    benchmark::DoNotOptimize(sum);
    KELByte_Close(reader);
  }
}
BENCHMARK(BytesBigEndian)->Name("64k_be_words/kelcore");

void BitsFiveAndEleven(benchmark::State &state) {
  static unsigned char data[65536 + 8];
  for (auto _ : state) {
    KEL_BIT *cursor = KELBitOpen(data, 65536);
    uint32_t sum = 0;
    for (int i = 0; i < 65536 / 2; ++i)
      sum += KELBitGetBit(cursor, 5) + KELBitGetBit(cursor, 11);
    benchmark::DoNotOptimize(sum);
    KELBitClose(cursor);
  }
}
BENCHMARK(BitsFiveAndEleven)->Name("64k_5_and_11_bits/kelcore");

}  // namespace
