// Thread pool: running, collecting, deleting, failures.

#include "kelcore_threadpool.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_event.h"
#include "kelcore_list_mutex.h"
#include "kelcore_thread.h"
#include "trace_capture.h"

namespace {

int32_t Seven(void *) {
  return 7;
}
int32_t Count(void *counter) {
  return ++*static_cast<std::atomic<int> *>(counter);
}

// A job that lasts until it is let go.
struct Gate {
  KEL_SEMA *open = KEL_EventCreate(nullptr);
  std::atomic<bool> entered{false};
  ~Gate() { KEL_EventDestroy(open); }
  static int32_t Wait(void *self) {
    auto *gate = static_cast<Gate *>(self);
    gate->entered = true;
    gate->entered.notify_all();
    while (KEL_EventWait(gate->open, KEL_WAIT_FOREVER) != 0) {
    }
    return 5;
  }
};

class Pool : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(pool, nullptr); }
  ~Pool() override { KEL_ThreadPool_Delete(pool); }
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("test", 0, 0, 2);
};

TEST_F(Pool, RunsAJobAndGivesItsResult) {
  int32_t result = 0;
  const int32_t worker = KEL_ThreadPool_Run(pool, Seven, nullptr);
  EXPECT_EQ(worker, 0);
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, worker, &result), 0);
  EXPECT_EQ(result, 7);
}

TEST_F(Pool, PassesTheArgument) {
  std::atomic<int> counter{0};
  for (int i = 1; i <= 10; ++i) {
    int32_t result = 0;
    KEL_ThreadPool_Stop(pool, KEL_ThreadPool_Run(pool, Count, &counter), &result);
    EXPECT_EQ(result, i);
  }
}

TEST_F(Pool, WithoutAnIdleWorkerRefuses) {
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), 0);
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), 1);
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), -1) << "finished is not collected";
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, nullptr), 0);
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), 0);
}

TEST_F(Pool, TakesTheWorkerThatHasBeenIdleLongest) {
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), 0);
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), 1);
  KEL_ThreadPool_Stop(pool, 1, nullptr);
  KEL_ThreadPool_Stop(pool, 0, nullptr);
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), 1);
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), 0);
}

TEST_F(Pool, OnlyABusyWorkerCanBeStopped) {
  int32_t result = 77;
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, &result), -1);
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, -1, &result), -1);
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 9, &result), -1);
  EXPECT_EQ(KEL_ThreadPool_Stop(nullptr, 0, &result), -1);
  EXPECT_EQ(result, 77);
  KEL_ThreadPool_Run(pool, Seven, nullptr);
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, nullptr), 0);
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, nullptr), -1) << "collected already";
}

TEST_F(Pool, StopWaitsForTheJob) {
  Gate gate;
  KEL_ThreadPool_Run(pool, Gate::Wait, &gate);
  std::thread opener([&] {
    gate.entered.wait(false);
    KEL_EventSend(gate.open);
  });
  int32_t result = 0;
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, &result), 0);
  EXPECT_EQ(result, 5);
  opener.join();
}

// The records, to look into.
struct WorkerRecord {
  void *argument;
  void *function;
  KEL_SEMA *start;
  KEL_SEMA *done;
  uint8_t running;
  int32_t result;
};
struct PoolRecord {
  KEL_THREAD **threads;
  WorkerRecord *workers;
  KEL_SEMA **starts;
  KEL_SEMA **dones;
  int32_t count;
  KEL_LIST *idle;
  KEL_LIST *busy;
};
const PoolRecord &RecordOf(const KEL_THREADPOOL *pool) {
  return *reinterpret_cast<const PoolRecord *>(pool);
}

TEST_F(Pool, RunClearsTheResultOfTheJobBefore) {
  for (int i = 0; i < 2; ++i)
    KEL_ThreadPool_Stop(pool, KEL_ThreadPool_Run(pool, Seven, nullptr), nullptr);
  EXPECT_EQ(RecordOf(pool).workers[0].result, 7);
  Gate gate;
  ASSERT_EQ(KEL_ThreadPool_Run(pool, Gate::Wait, &gate), 0);
  gate.entered.wait(false);
  EXPECT_EQ(RecordOf(pool).workers[0].result, 0);
  KEL_EventSend(gate.open);
  KEL_ThreadPool_Stop(pool, 0, nullptr);
}

TEST_F(Pool, RecordsAreLaidOutInOrder) {
  const PoolRecord &record = RecordOf(pool);
  EXPECT_EQ(record.count, 2);
  EXPECT_EQ(KEL_ListGetNum(record.idle), 2u);
  EXPECT_EQ(KEL_ListGetNum(record.busy), 0u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_NE(record.threads[i], nullptr);
    EXPECT_EQ(record.workers[i].start, record.starts[i]);
    EXPECT_EQ(record.workers[i].done, record.dones[i]);
    EXPECT_EQ(record.workers[i].running, 1);
  }
  Gate gate;
  KEL_ThreadPool_Run(pool, Gate::Wait, &gate);
  EXPECT_EQ(record.workers[0].argument, &gate);
  EXPECT_EQ(record.workers[0].function, reinterpret_cast<void *>(&Gate::Wait));
  EXPECT_EQ(KEL_ListGetNum(record.idle), 1u);
  EXPECT_EQ(KEL_ListGetNum(record.busy), 1u);
  KEL_EventSend(gate.open);
  KEL_ThreadPool_Stop(pool, 0, nullptr);
  EXPECT_EQ(KEL_ListGetNum(record.idle), 2u);
}

TEST_F(Pool, WhileStopWaitsTheWorkerIsNeitherBusyNorIdle) {
  Gate gate;
  KEL_ThreadPool_Run(pool, Gate::Wait, &gate);
  gate.entered.wait(false);
  std::thread collector([this] { EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, nullptr), 0); });
  while (KEL_ListGetNum(RecordOf(pool).busy) != 0)
    std::this_thread::yield();
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), 1);
  EXPECT_EQ(KEL_ThreadPool_Run(pool, Seven, nullptr), -1);
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, nullptr), -1);
  KEL_EventSend(gate.open);
  collector.join();
}

TEST_F(Pool, NullIsRefused) {
  EXPECT_EQ(KEL_ThreadPool_Run(nullptr, Seven, nullptr), -1);
  KEL_ThreadPool_Delete(nullptr);
}

// Every thread's first waits are interrupted: a worker that took that for its
// event would run a job that nobody gave it.
TEST(PoolSignals, NeitherRunAJobTwiceNorCollectItEarly) {
  std::atomic<int> interrupted{0};
  faults::sem_wait.Replace([&](sem_t *sem) {
    static thread_local int waits;
    if (++waits > 3)
      return faults::sem_wait.Real(sem);
    ++interrupted;
    errno = EINTR;
    return -1;
  });
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("x", 0, 0, 2);
  while (interrupted < 6)
    std::this_thread::yield();
  std::atomic<int> counter{0};
  int32_t result = 0;
  const int32_t worker = KEL_ThreadPool_Run(pool, Count, &counter);
  std::thread collector([&] { EXPECT_EQ(KEL_ThreadPool_Stop(pool, worker, &result), 0); });
  collector.join();
  EXPECT_EQ(result, 1);
  EXPECT_EQ(interrupted, 9) << "the collector's, too";
  KEL_ThreadPool_Delete(pool);
  EXPECT_EQ(counter, 1);
  faults::ResetAll();
}

TEST(PoolSignals, RealOnesDoNotDisturbTheWorkers) {
  struct sigaction action = {}, old = {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  sigaction(SIGUSR1, &action, &old);
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("x", 0, 0, 1);
  pthread_t worker;
  memcpy(&worker, reinterpret_cast<char *>(RecordOf(pool).threads[0]) + 16, sizeof worker);
  std::atomic<int> counter{0};
  for (int i = 1; i <= 20; ++i) {
    pthread_kill(worker, SIGUSR1);
    int32_t result = 0;
    EXPECT_EQ(KEL_ThreadPool_Stop(pool, KEL_ThreadPool_Run(pool, Count, &counter), &result), 0);
    EXPECT_EQ(result, i);
  }
  KEL_ThreadPool_Delete(pool);
  sigaction(SIGUSR1, &old, nullptr);
}

TEST_F(Pool, AnEventThatCannotBeWaitedForIsNotCollected) {
  KEL_ThreadPool_Run(pool, Seven, nullptr);
  faults::sem_wait.Fail(-1, EINVAL);
  int32_t result = 77;
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, &result), -1);
  EXPECT_EQ(result, 77);
  faults::ResetAll();
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, 0, &result), 0) << "it can be tried again";
  EXPECT_EQ(result, 7);
}

TEST(PoolDelete, WorkersThatCannotWaitHaveEnded) {
  AllocHooks hooks;
  faults::sem_trywait.Fail(-1, EINVAL);
  faults::sem_wait.Fail(-1, EINVAL);
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("x", 0, 0, 2);
  ASSERT_NE(pool, nullptr);
  while (faults::sem_wait.Count() < 2)
    std::this_thread::yield();
  TraceCapture trace("kelthread:1");
  KEL_ThreadPool_Delete(pool);
  EXPECT_EQ(trace.Take(), Lines{});
  EXPECT_EQ(hooks.live(), 0);
}

TEST(PoolCreate, NamesItsThreads) {
  std::vector<std::string> names;
  faults::pthread_setname_np.Replace([&](pthread_t, const char *name) {
    names.emplace_back(name);
    return 0;
  });
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("dec", 0, 0, 3);
  ASSERT_NE(pool, nullptr);
  faults::ResetAll();
  EXPECT_EQ(names, (std::vector<std::string>{"dec_rt_0000", "dec_rt_0001", "dec_rt_0002"}));
  KEL_ThreadPool_Delete(pool);
}

TEST(PoolCreate, LongNamesAreCut) {
  std::vector<std::string> names;
  faults::pthread_setname_np.Replace([&](pthread_t, const char *name) {
    names.emplace_back(name);
    return 0;
  });
  KEL_ThreadPool_Delete(KEL_ThreadPool_Create("decoder", 0, 0, 2));
  KEL_ThreadPool_Delete(KEL_ThreadPool_Create(std::string(200, 'x').c_str(), 0, 0, 1));
  faults::ResetAll();
  EXPECT_EQ(names, (std::vector<std::string>{"decoder_rt_000", "decoder_rt_000",
                                             std::string(14, 'x')}));
}

TEST(PoolCreate, PassesThePriorityOn) {
  std::vector<int> priorities;
  faults::pthread_attr_setschedparam.Replace([&](pthread_attr_t *, const sched_param *p) {
    priorities.push_back(p->sched_priority);
    return 0;
  });
  faults::pthread_create.Fail(EPERM, 0);
  EXPECT_EQ(KEL_ThreadPool_Create("x", 10, 0, 1), nullptr);
  EXPECT_EQ(priorities, (std::vector<int>{10}));
}

TEST(PoolCreate, AllocatesZeroedRecordsInItsName) {
  AllocHooks hooks;
  std::vector<bool> zeroed;
  hooks.on_add = [&](void *block, uint32_t size) {
    zeroed.push_back(std::string(static_cast<char *>(block), size) == std::string(size, '\0'));
  };
  faults::malloc.Replace(
      [](size_t size) { return memset(faults::malloc.Real(size), 0xA5, size); });
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("x", 0, 0, 3);
  faults::ResetAll();
  ASSERT_GE(hooks.adds.size(), 5u);
  const uint32_t sizes[] = {sizeof(PoolRecord), 3 * 8, 3 * sizeof(WorkerRecord), 3 * 8, 3 * 8};
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(hooks.adds[i].size, sizes[i]) << i;
    EXPECT_EQ(hooks.adds[i].file, "kelcore_threadpool");
    EXPECT_EQ(hooks.adds[i].func, "KEL_ThreadPool_Create");
    EXPECT_TRUE(zeroed[i]) << i;
  }
  KEL_ThreadPool_Delete(pool);
}

TEST(PoolCreate, MoreWorkersThanMemoryFailsAtOnce) {
  TraceCapture trace("kelthreadpool:4");
  EXPECT_EQ(KEL_ThreadPool_Create("x", 0, 0, 0x7FFFFFFF), nullptr);
  EXPECT_EQ(trace.Messages(), (std::vector<std::string>{"out of memory.\n"}));
}

TEST(PoolCreate, NeedsAWorker) {
  EXPECT_EQ(KEL_ThreadPool_Create("x", 0, 0, 0), nullptr);
  EXPECT_EQ(KEL_ThreadPool_Create("x", 0, 0, -3), nullptr);
}

TEST(PoolCreate, PassesStackSizeOn) {
  std::vector<size_t> sizes;
  faults::pthread_attr_setstacksize.Replace([&](pthread_attr_t *a, size_t size) {
    sizes.push_back(size);
    return faults::pthread_attr_setstacksize.Real(a, size);
  });
  KEL_ThreadPool_Delete(KEL_ThreadPool_Create("x", 0, 0x80000, 2));
  EXPECT_EQ(sizes, (std::vector<size_t>{0x80000, 0x80000}));
}

TEST(PoolCreate, EveryFailingAllocationReleasesAllAndIsTraced) {
  // The record, its arrays, two blocks for each event, and two lists.
  constexpr int kInTheFirstStep = 1 + 4 + 4 * 2 + 2;
  int failures = 0;
  for (int failing = 0;; ++failing) {
    AllocHooks hooks;
    TraceCapture trace("kelthreadpool:4");
    faults::malloc.Fail(nullptr, ENOMEM, failing, 1);
    KEL_THREADPOOL *pool = KEL_ThreadPool_Create("x", 0, 0, 2);
    const bool failed = pool == nullptr;
    faults::ResetAll();
    KEL_ThreadPool_Delete(pool);
    EXPECT_EQ(hooks.live(), 0) << failing;
    if (!failed) {
      // The two lists work without locks of their own; any other call is past.
      if (failing > 30)
        break;
      continue;
    }
    ++failures;
    // What comes behind the lists is told by the thread, or not at all.
    const Lines told = trace.Take();
    if (failures <= kInTheFirstStep)
      EXPECT_EQ(told, (Lines{{"ERROR", "kelthreadpool", "kelcore_threadpool",
                              "KEL_ThreadPool_Create", "out of memory.\n"}}))
          << failing;
    else
      EXPECT_EQ(told, Lines{}) << failing;
  }
  EXPECT_GE(failures, 15);
}

TEST(PoolCreate, AThreadThatCannotStartEndsThoseThatDid) {
  AllocHooks hooks;
  faults::pthread_join.Replace(
      [](pthread_t t, void **r) { return faults::pthread_join.Real(t, r); });
  faults::pthread_create.Fail(EAGAIN, 0, 1, 1);
  faults::sem_destroy.Replace([](sem_t *sem) { return faults::sem_destroy.Real(sem); });
  EXPECT_EQ(KEL_ThreadPool_Create("x", 0, 0, 3), nullptr);
  EXPECT_EQ(faults::pthread_join.Count(), 1);
  EXPECT_EQ(faults::sem_destroy.Count(), 6);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(PoolDelete, ReleasesWorkersInEveryState) {
  AllocHooks hooks;
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("x", 0, 0, 3);
  KEL_ThreadPool_Run(pool, Seven, nullptr);  // never collected
  KEL_ThreadPool_Run(pool, Seven, nullptr);
  KEL_ThreadPool_Stop(pool, 1, nullptr);
  KEL_ThreadPool_Delete(pool);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(PoolDelete, WorkersEndByThreadExit) {
  TraceCapture trace("kelthread:3");
  KEL_ThreadPool_Delete(KEL_ThreadPool_Create("x", 0, 0, 2));
  const auto messages = trace.Messages();
  EXPECT_EQ(std::count(messages.begin(), messages.end(), "code(0)\n"), 2);
}

TEST(PoolDelete, WaitsForRunningJobsAndReleasesEverything) {
  AllocHooks hooks;
  Gate gate;
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("x", 0, 0, 2);
  KEL_ThreadPool_Run(pool, Gate::Wait, &gate);
  gate.entered.wait(false);
  std::thread opener([&] {
    KEL_ThreadSleep(20);
    KEL_EventSend(gate.open);
  });
  KEL_ThreadPool_Delete(pool);
  opener.join();
  EXPECT_EQ(hooks.live(), 2) << "the gate's own event";
}

TEST(PoolLoad, ThousandsOfJobsAreRunOnceEach) {
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("x", 0, 0, 4);
  std::atomic<int> counter{0};
  constexpr int kJobs = 4000;
  std::vector<int32_t> busy;
  for (int i = 0; i < kJobs; ++i) {
    int32_t worker = KEL_ThreadPool_Run(pool, Count, &counter);
    if (worker < 0) {
      ASSERT_EQ(KEL_ThreadPool_Stop(pool, busy.front(), nullptr), 0);
      busy.erase(busy.begin());
      worker = KEL_ThreadPool_Run(pool, Count, &counter);
    }
    ASSERT_GE(worker, 0);
    busy.push_back(worker);
  }
  for (int32_t worker : busy)
    KEL_ThreadPool_Stop(pool, worker, nullptr);
  EXPECT_EQ(counter, kJobs);
  KEL_ThreadPool_Delete(pool);
}

}  // namespace
