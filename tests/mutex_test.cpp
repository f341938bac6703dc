// Mutex: results of each kind of wait, deadlines, failures.

#include "kelcore_mutex.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string.h>

#include <atomic>
#include <thread>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_time.h"
#include "trace_capture.h"

namespace {

constexpr uint32_t kNull = 0xFFFFFFFF;
constexpr uint32_t kYear = 31'536'000;

class Mutex : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(mutex, nullptr); }
  void TearDown() override { KEL_MutexDestroy(mutex); }
  KEL_MUTEX *mutex = KEL_MutexCreate();
};

// Runs `action` while another thread holds the mutex.
template <typename F>
void WhileHeldElsewhere(KEL_MUTEX *mutex, F action) {
  std::atomic<bool> held{false}, done{false};
  std::thread holder([&] {
    KEL_MutexLock(mutex, KEL_WAIT_FOREVER);
    held = true;
    held.notify_one();
    done.wait(false);
    KEL_MutexUnLock(mutex);
  });
  held.wait(false);
  action();
  done = true;
  done.notify_one();
  holder.join();
}

TEST(MutexCreate, AllocatesOneZeroedRecordInItsOwnName) {
  AllocHooks hooks;
  std::string first_bytes;
  hooks.on_add = [&](void *block, uint32_t size) {
    first_bytes.assign(static_cast<char *>(block), size);
  };
  KEL_MUTEX *mutex = KEL_MutexCreate();
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.adds[0].size, sizeof(pthread_mutex_t));
  EXPECT_EQ(hooks.adds[0].align, 0u);
  EXPECT_EQ(hooks.adds[0].file, "kelcore_mutex");
  EXPECT_EQ(hooks.adds[0].func, "KEL_MutexCreate");
  EXPECT_EQ(first_bytes, std::string(sizeof(pthread_mutex_t), '\0'));
  EXPECT_EQ(KEL_MutexDestroy(mutex), 0u);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(MutexCreate, WithoutMemoryGivesNull) {
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_MutexCreate(), nullptr);
}

TEST(MutexCreate, UsesDefaultAttributes) {
  const pthread_mutexattr_t *given = reinterpret_cast<pthread_mutexattr_t *>(1);
  faults::pthread_mutex_init.Replace([&](pthread_mutex_t *m, const pthread_mutexattr_t *a) {
    given = a;
    return faults::pthread_mutex_init.Real(m, a);
  });
  KEL_MUTEX *mutex = KEL_MutexCreate();
  EXPECT_EQ(given, nullptr);
  KEL_MutexDestroy(mutex);
}

TEST(MutexCreate, ReleasesTheRecordWhenInitialisationReportsANegativeValue) {
  AllocHooks hooks;
  faults::pthread_mutex_init.Fail(-1, 0);
  EXPECT_EQ(KEL_MutexCreate(), nullptr);
  EXPECT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(MutexCreate, OnlyANegativeReportIsAFailure) {
  faults::pthread_mutex_init.Fail(EAGAIN, 0);
  KEL_MUTEX *mutex = KEL_MutexCreate();
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(KEL_MutexLock(mutex, 0), 0u);
  EXPECT_EQ(KEL_MutexUnLock(mutex), 0u);
  KEL_MutexDestroy(mutex);
}

TEST(MutexDestroy, ReturnsTheDestroyCallsResultAndFreesInAnyCase) {
  AllocHooks hooks;
  KEL_MUTEX *mutex = KEL_MutexCreate();
  faults::pthread_mutex_destroy.Replace([](pthread_mutex_t *m) {
    faults::pthread_mutex_destroy.Real(m);
    return EBUSY;
  });
  EXPECT_EQ(KEL_MutexDestroy(mutex), static_cast<uint32_t>(EBUSY));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(MutexNull, GivesAllOnesFromEveryCall) {
  EXPECT_EQ(KEL_MutexDestroy(nullptr), kNull);
  EXPECT_EQ(KEL_MutexLock(nullptr, 0), kNull);
  EXPECT_EQ(KEL_MutexLock(nullptr, 10), kNull);
  EXPECT_EQ(KEL_MutexLock(nullptr, KEL_WAIT_FOREVER), kNull);
  EXPECT_EQ(KEL_MutexUnLock(nullptr), kNull);
}

TEST_F(Mutex, EveryKindOfWaitLocksAFreeMutex) {
  for (uint32_t timeout : {0u, 1u, 50u, KEL_WAIT_FOREVER}) {
    EXPECT_EQ(KEL_MutexLock(mutex, timeout), 0u) << timeout;
    EXPECT_EQ(KEL_MutexLock(mutex, 0), static_cast<uint32_t>(EBUSY)) << "it is locked now";
    EXPECT_EQ(KEL_MutexUnLock(mutex), 0u);
  }
}

TEST_F(Mutex, TryingAHeldOneGivesEbusyAsAPlainErrno) {
  WhileHeldElsewhere(mutex, [&] { EXPECT_EQ(KEL_MutexLock(mutex, 0), 16u); });
}

TEST_F(Mutex, TryingPassesAnyResultOn) {
  faults::pthread_mutex_trylock.Fail(EINVAL, 0);
  EXPECT_EQ(KEL_MutexLock(mutex, 0), static_cast<uint32_t>(EINVAL));
}

TEST_F(Mutex, ABoundedWaitExpiresWithTheLibrarysCodeAndNoTrace) {
  TraceCapture trace;
  WhileHeldElsewhere(mutex, [&] {
    const uint64_t before = KEL_GetSystemTick();
    EXPECT_EQ(KEL_MutexLock(mutex, 50), KEL_ERR_TIMEOUT);
    const uint64_t waited = KEL_GetSystemTick() - before;
    EXPECT_GE(waited, 48u);
    EXPECT_LT(waited, 60'000u);
  });
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(Mutex, LockingTwiceFromOneThreadExpires) {
  ASSERT_EQ(KEL_MutexLock(mutex, KEL_WAIT_FOREVER), 0u);
  EXPECT_EQ(KEL_MutexLock(mutex, 5), KEL_ERR_TIMEOUT);
  EXPECT_EQ(KEL_MutexUnLock(mutex), 0u);
}

TEST_F(Mutex, ABoundedWaitFailsWithTheLibrarysCodeAndNoTrace) {
  TraceCapture trace;
  faults::pthread_mutex_trylock.Fail(EBUSY, 0);
  faults::pthread_mutex_timedlock.Fail(EINVAL, 0);
  EXPECT_EQ(KEL_MutexLock(mutex, 50), KEL_ERR_FAIL);
  EXPECT_EQ(faults::pthread_mutex_timedlock.Count(), 1);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(Mutex, ABoundedWaitLocksOnceTheHolderLetsGo) {
  faults::pthread_mutex_trylock.Fail(EBUSY, 0);
  EXPECT_EQ(KEL_MutexLock(mutex, 1000), 0u);
  EXPECT_EQ(KEL_MutexUnLock(mutex), 0u);
}

struct Deadline {
  uint32_t timeout;
  timespec now, expected;
};

class MutexDeadline : public Mutex, public testing::WithParamInterface<Deadline> {};

TEST_P(MutexDeadline, IsNowPlusTheTimeout) {
  clockid_t clock_read = -1;
  faults::pthread_mutex_trylock.Fail(EBUSY, 0);
  faults::clock_gettime.Replace([&](clockid_t clock, timespec *now) {
    clock_read = clock;
    *now = GetParam().now;
    return 0;
  });
  timespec deadline{};
  faults::pthread_mutex_timedlock.Replace([&](pthread_mutex_t *, const timespec *t) {
    deadline = *t;
    return ETIMEDOUT;
  });
  EXPECT_EQ(KEL_MutexLock(mutex, GetParam().timeout), KEL_ERR_TIMEOUT);
  faults::ResetAll();
  EXPECT_EQ(clock_read, CLOCK_REALTIME);
  EXPECT_EQ(deadline.tv_sec, GetParam().expected.tv_sec);
  EXPECT_EQ(deadline.tv_nsec, GetParam().expected.tv_nsec);
}

INSTANTIATE_TEST_SUITE_P(Timeouts, MutexDeadline,
                         testing::Values(Deadline{1999, {100, 0}, {101, 999'000'000}},
                                         Deadline{1, {100, 0}, {100, 1'000'000}},
                                         Deadline{1999, {100, 1'000'000}, {102, 0}},
                                         Deadline{500, {7, 999'999'999}, {8, 499'999'999}},
                                         Deadline{0x7FFFFFFE, {0, 0}, {2'147'483, 646'000'000}},
                                         Deadline{
                                             0xFFFFFFFF, {0, 0}, {4'294'967, 295'000'000}}));

TEST_F(Mutex, AnUnboundedWaitRenewsItsDeadlineOfAYear) {
  faults::pthread_mutex_trylock.Fail(EBUSY, 0);
  time_t now = 1000;
  faults::clock_gettime.Replace([&](clockid_t, timespec *time) {
    *time = {now++, 5};
    return 0;
  });
  std::vector<time_t> deadlines;
  faults::pthread_mutex_timedlock.Replace([&](pthread_mutex_t *, const timespec *t) {
    deadlines.push_back(t->tv_sec);
    EXPECT_EQ(t->tv_nsec, 5);
    return deadlines.size() < 3 ? ETIMEDOUT : 0;
  });
  EXPECT_EQ(KEL_MutexLock(mutex, KEL_WAIT_FOREVER), 0u);
  faults::ResetAll();
  EXPECT_EQ(deadlines, (std::vector<time_t>{1000 + kYear, 1001 + kYear, 1002 + kYear}));
}

TEST_F(Mutex, AnUnboundedWaitThatFailsIsTracedAndReturnsTheErrno) {
  TraceCapture trace;
  faults::pthread_mutex_trylock.Fail(EBUSY, 0);
  faults::clock_gettime.Replace([](clockid_t, timespec *time) {
    *time = {1000, 123'456'789};
    return 0;
  });
  faults::pthread_mutex_timedlock.Fail(EINVAL, 0);
  EXPECT_EQ(KEL_MutexLock(mutex, KEL_WAIT_FOREVER), static_cast<uint32_t>(EINVAL));
  faults::ResetAll();
  EXPECT_EQ(
      trace.Take(),
      (Lines{{"ERROR", "kelmutex", "kelcore_mutex", "KEL_MutexLock",
              Format("pthread_mutex_timedlock time(%us.123ms) ret=22 (Invalid argument)\n",
                     1000 + kYear)}}));
}

TEST_F(Mutex, AnUnboundedWaitLastsUntilTheHolderLetsGo) {
  std::atomic<bool> locked{false};
  std::thread waiter;
  WhileHeldElsewhere(mutex, [&] {
    faults::Record();
    waiter = std::thread([&] {
      EXPECT_EQ(KEL_MutexLock(mutex, KEL_WAIT_FOREVER), 0u);
      locked = true;
      KEL_MutexUnLock(mutex);
    });
    while (faults::pthread_mutex_timedlock.Count() == 0)
      std::this_thread::yield();
    EXPECT_FALSE(locked);
  });
  waiter.join();
  EXPECT_TRUE(locked);
}

// The handle is a POSIX mutex; one that checks for errors shows real ones.
TEST_F(Mutex, ResultsOfTheSystemComeThrough) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer ends the program for a wrong unlock";
#endif
  auto *native = reinterpret_cast<pthread_mutex_t *>(mutex);
  pthread_mutexattr_t checking;
  pthread_mutexattr_init(&checking);
  pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_destroy(native);
  pthread_mutex_init(native, &checking);
  pthread_mutexattr_destroy(&checking);
  TraceCapture trace;
  EXPECT_EQ(KEL_MutexUnLock(mutex), static_cast<uint32_t>(EPERM));
  ASSERT_EQ(KEL_MutexLock(mutex, 0), 0u);
  EXPECT_EQ(KEL_MutexLock(mutex, 0), static_cast<uint32_t>(EBUSY));
  EXPECT_EQ(KEL_MutexLock(mutex, 100), KEL_ERR_FAIL);
  EXPECT_EQ(trace.Take(), Lines{});
  EXPECT_EQ(KEL_MutexLock(mutex, KEL_WAIT_FOREVER), static_cast<uint32_t>(EDEADLK));
  EXPECT_EQ(trace.Take().size(), 1u);
  EXPECT_EQ(KEL_MutexUnLock(mutex), 0u);
}

TEST_F(Mutex, AFreeOneIsTakenWithoutTheClock) {
  faults::Record();
  EXPECT_EQ(KEL_MutexLock(mutex, 100), 0u);
  EXPECT_EQ(faults::Log(), (std::vector<std::string>{"pthread_mutex_trylock"}));
  KEL_MutexUnLock(mutex);
}

TEST_F(Mutex, ABoundedWaitFollowsWhateverTheFirstTryGave) {
  faults::pthread_mutex_trylock.Fail(EINVAL, 0);
  faults::pthread_mutex_timedlock.Fail(0, 0);
  EXPECT_EQ(KEL_MutexLock(mutex, 100), 0u);
  EXPECT_EQ(faults::pthread_mutex_timedlock.Count(), 1);
}

TEST_F(Mutex, UnlockPassesTheResultOn) {
  ASSERT_EQ(KEL_MutexLock(mutex, 0), 0u);
  EXPECT_EQ(KEL_MutexUnLock(mutex), 0u);
  EXPECT_EQ(KEL_MutexLock(mutex, 0), 0u) << "it was really unlocked";
  KEL_MutexUnLock(mutex);
}

TEST_F(Mutex, ExcludesThreadsFromOneAnother) {
  constexpr int kThreads = 4, kRounds = 2000;
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&, i] {
      for (int round = 0; round < kRounds; ++round) {
        while (KEL_MutexLock(mutex, i % 2 == 0 ? KEL_WAIT_FOREVER : 100) != 0) {
        }
        ++counter;
        KEL_MutexUnLock(mutex);
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(counter, kThreads * kRounds);
}

}  // namespace
