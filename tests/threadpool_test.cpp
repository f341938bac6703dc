// Thread pool: running, collecting, deleting, failures.

#include "kelcore_threadpool.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_event.h"
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

TEST_F(Pool, TheResultIsReadThoughTheJobNeverWrote) {
  // Run clears the result of the job before.
  KEL_ThreadPool_Stop(pool, KEL_ThreadPool_Run(pool, Seven, nullptr), nullptr);
  KEL_ThreadPool_Stop(pool, KEL_ThreadPool_Run(pool, Seven, nullptr), nullptr);
  std::atomic<int> counter{-1};
  int32_t result = 9;
  KEL_ThreadPool_Stop(pool, KEL_ThreadPool_Run(pool, Count, &counter), &result);
  EXPECT_EQ(result, 0);
}

TEST_F(Pool, NullIsRefused) {
  EXPECT_EQ(KEL_ThreadPool_Run(nullptr, Seven, nullptr), -1);
  KEL_ThreadPool_Delete(nullptr);
}

TEST_F(Pool, SignalsNeitherRunAJobTwiceNorCollectItEarly) {
  struct sigaction action = {}, old = {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  sigaction(SIGUSR1, &action, &old);
  faults::sem_wait.Fail(-1, EINTR, 0, 3);
  std::atomic<int> counter{0};
  int32_t result = 0;
  const int32_t worker = KEL_ThreadPool_Run(pool, Count, &counter);
  EXPECT_EQ(KEL_ThreadPool_Stop(pool, worker, &result), 0);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(counter, 1);
  faults::ResetAll();
  sigaction(SIGUSR1, &old, nullptr);
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
    for (const std::string &message : trace.Messages())
      EXPECT_EQ(message, "out of memory.\n");
  }
  EXPECT_GE(failures, 15);
}

TEST(PoolCreate, AThreadThatCannotStartEndsThoseThatDid) {
  AllocHooks hooks;
  faults::pthread_join.Replace(
      [](pthread_t t, void **r) { return faults::pthread_join.Real(t, r); });
  faults::pthread_create.Fail(EAGAIN, 0, 1, 1);
  EXPECT_EQ(KEL_ThreadPool_Create("x", 0, 0, 3), nullptr);
  EXPECT_EQ(faults::pthread_join.Count(), 1);
  EXPECT_EQ(hooks.live(), 0);
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
