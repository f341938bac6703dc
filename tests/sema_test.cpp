// Semaphore: unnamed and named, the time-out rules, every failure.

#include "kelcore_sema.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_time.h"
#include "trace_capture.h"

namespace {

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelsema", "kelcore_sema", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

int32_t CountOf(KEL_SEMA *sema) {
  int32_t count = -1;
  KEL_SemaStatus(sema, &count);
  return count;
}

// A name of this process, gone at the end.
struct Name {
  std::string text = "/kelcore_sema_test_" + std::to_string(getpid());
  Name() { ::sem_unlink(text.c_str()); }
  ~Name() { ::sem_unlink(text.c_str()); }
  const char *c_str() const { return text.c_str(); }
  bool exists() const {
    sem_t *sem = ::sem_open(text.c_str(), 0);
    if (sem == SEM_FAILED)
      return false;
    ::sem_close(sem);
    return true;
  }
};

// Both creating calls, which share all but what a named one may do.
struct Creator {
  const char *func;
  KEL_SEMA *(*create)(const char *, uint32_t);
};
const Creator kPlain{"KEL_SemaCreate", KEL_SemaCreate};
const Creator kCustom{"KEL_SemaCreate_Custom", [](const char *name, uint32_t count) {
                        return KEL_SemaCreate_Custom(name, count, 1);
                      }};

class SemaCreate : public testing::TestWithParam<Creator> {
 protected:
  KEL_SEMA *Create(const char *text, uint32_t count) { return GetParam().create(text, count); }
  const char *func() { return GetParam().func; }
  void TearDown() override { faults::ResetAll(); }  // before the name is unlinked
  Name name;
};
INSTANTIATE_TEST_SUITE_P(Both, SemaCreate, testing::Values(kPlain, kCustom),
                         [](const auto &creator) { return std::string(creator.param.func); });

TEST_P(SemaCreate, UnnamedTakesTwoBlocksAndTracesTheHandle) {
  AllocHooks hooks;
  std::string record;
  hooks.on_add = [&](void *block, uint32_t size) {
    if (size == 24)
      record.assign(static_cast<char *>(block), size);
  };
  TraceCapture trace;
  KEL_SEMA *sema = Create(nullptr, 3);
  ASSERT_NE(sema, nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", func(), Format("new semaphore (%x)\n", Low32(sema)))}));
  ASSERT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(hooks.adds[0].size, 24u);
  EXPECT_EQ(record, std::string(24, '\0'));
  EXPECT_EQ(hooks.adds[1].size, 32u);
  for (const auto &add : hooks.adds) {
    EXPECT_EQ(add.file, "kelcore_sema");
    EXPECT_EQ(add.func, func());
  }
  EXPECT_EQ(CountOf(sema), 3);
  EXPECT_EQ(KEL_SemaDestroy(sema), 0);
  EXPECT_EQ(hooks.live(), 0);
}

TEST_P(SemaCreate, TheRecordIsZeroedAndTheBlockIsNot) {
  AllocHooks hooks;
  std::string record, block;
  hooks.on_add = [&](void *bytes, uint32_t size) {
    (size == 24 ? record : block).assign(static_cast<char *>(bytes), size);
  };
  faults::malloc.Replace([](size_t size) {
    void *const bytes = faults::malloc.Real(size);
    return memset(bytes, 0xA5, size);
  });
  KEL_SEMA *sema = Create(nullptr, 0);
  faults::ResetAll();
  EXPECT_EQ(record, std::string(24, '\0'));
  EXPECT_EQ(block, std::string(32, '\xA5'));
  KEL_SemaDestroy(sema);
}

// Name, semaphore, and the count given at creation.
struct Record {
  char *name;
  sem_t *sem;
  uint32_t initial;
};

TEST_P(SemaCreate, RecordsAreLaidOutInOrder) {
  KEL_SEMA *unnamed = Create(nullptr, 6), *named = Create(name.c_str(), 5);
  std::string text = name.text;
  KEL_SEMA *again = Create(text.c_str(), 9);
  const auto &first = *reinterpret_cast<Record *>(unnamed);
  const auto &second = *reinterpret_cast<Record *>(named);
  const auto &third = *reinterpret_cast<Record *>(again);
  EXPECT_EQ(first.name, nullptr);
  EXPECT_EQ(first.initial, 6u);
  int value = 0;
  EXPECT_EQ(sem_getvalue(first.sem, &value), 0);
  EXPECT_EQ(value, 6);
  EXPECT_EQ(second.name, name.text);
  EXPECT_NE(second.name, name.c_str());
  EXPECT_EQ(second.initial, 5u);
  EXPECT_EQ(third.initial, 9u) << "as given, also when it has another";
  // The name is a copy of its own.
  text.assign(text.size(), 'x');
  std::string unlinked;
  faults::sem_unlink.Replace([&](const char *n) {
    unlinked = n;
    return faults::sem_unlink.Real(n);
  });
  KEL_SemaDestroy(again);
  EXPECT_EQ(unlinked, name.text);
  KEL_SemaDestroy(named);
  KEL_SemaDestroy(unnamed);
}

TEST_P(SemaCreate, NamedTracesTheHandle) {
  TraceCapture trace;
  KEL_SEMA *made = Create(name.c_str(), 5), *opened = Create(name.c_str(), 5);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", func(), Format("new semaphore (%x)\n", Low32(made))),
                   Line("TRACE", func(), Format("new semaphore (%x)\n", Low32(opened)))}));
  KEL_SemaDestroy(opened);
  KEL_SemaDestroy(made);
}

TEST_P(SemaCreate, UnnamedIsPrivateToTheProcess) {
  int shared = -1;
  unsigned count = 0;
  faults::sem_init.Replace([&](sem_t *sem, int s, unsigned value) {
    shared = s;
    count = value;
    return faults::sem_init.Real(sem, s, value);
  });
  KEL_SEMA *sema = Create(nullptr, 7);
  EXPECT_EQ(shared, 0);
  EXPECT_EQ(count, 7u);
  KEL_SemaDestroy(sema);
}

TEST_P(SemaCreate, RecordFailureTellsItsSize) {
  TraceCapture trace;
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(Create(nullptr, 0), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error(func(), "sem_t malloc failed size(24)\n")}));
}

TEST_P(SemaCreate, SemaphoreBlockFailureReleasesTheRecord) {
  AllocHooks hooks;
  TraceCapture trace;
  faults::malloc.Fail(nullptr, ENOMEM, 1);
  EXPECT_EQ(Create(nullptr, 0), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error(func(), "sem_t malloc failed size(32)\n")}));
  EXPECT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.live(), 0);
}

TEST_P(SemaCreate, InitialisationFailureReleasesBothAndKeepsErrno) {
  AllocHooks hooks;
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(Create(nullptr, 0x80000000u), nullptr) << "above the system's largest count";
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(trace.Take(), (Lines{Error(func(), "semaphore init failed err(22)\n")}));
  EXPECT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(hooks.live(), 0);
}

TEST_P(SemaCreate, NamedIsMadeExclusivelyWithMode0666) {
  std::vector<int> flags;
  mode_t mode = 0;
  unsigned value = 0;
  faults::sem_open.Replace([&](const char *n, int f, mode_t m, unsigned v) {
    flags.push_back(f);
    mode = m;
    value = v;
    return faults::sem_open.Real(n, f, m, v);
  });
  KEL_SEMA *sema = Create(name.c_str(), 5);
  ASSERT_NE(sema, nullptr);
  EXPECT_EQ(flags, (std::vector<int>{O_CREAT | O_EXCL}));
  EXPECT_EQ(mode, static_cast<mode_t>(0666));
  EXPECT_EQ(value, 5u);
  EXPECT_EQ(CountOf(sema), 5);
  KEL_SemaDestroy(sema);
}

TEST_P(SemaCreate, NamedThatExistsIsOpenedWithTheCountItHas) {
  KEL_SEMA *first = Create(name.c_str(), 2);
  std::vector<int> flags;
  faults::sem_open.Replace([&](const char *n, int f, mode_t m, unsigned v) {
    flags.push_back(f);
    return faults::sem_open.Real(n, f, m, v);
  });
  KEL_SEMA *second = Create(name.c_str(), 9);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(flags, (std::vector<int>{O_CREAT | O_EXCL, 0}));
  EXPECT_EQ(CountOf(second), 2);
  EXPECT_EQ(KEL_SemaPut(first), 0);
  EXPECT_EQ(CountOf(second), 3);
  KEL_SemaDestroy(second);
  KEL_SemaDestroy(first);
}

TEST_P(SemaCreate, NameCopyFailureTellsItsLengthAndLeavesTheRecordBehind) {
  AllocHooks hooks;
  TraceCapture trace;
  faults::strdup.Fail(nullptr, ENOMEM);
  EXPECT_EQ(Create("/abcd", 0), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error(func(), "sema name copy failed size(5)\n")}));
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.live(), 1);
  free(hooks.adds[0].block);
}

TEST_P(SemaCreate, OpenFailureUnlinksTheNameReleasesAllAndKeepsErrno) {
  AllocHooks hooks;
  TraceCapture trace;
  faults::Record();
  faults::sem_open.Fail(SEM_FAILED, EMFILE);
  std::string unlinked;
  faults::sem_unlink.Replace([&](const char *n) {
    unlinked = n;
    errno = ENOENT;
    return -1;
  });
  errno = 0;
  EXPECT_EQ(Create(name.c_str(), 0), nullptr);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(unlinked, name.text);
  EXPECT_EQ(faults::sem_open.Count(), 1) << "only EEXIST leads to a second try";
  EXPECT_EQ(trace.Take(),
            (Lines{Error(func(), "semaphore open failed name (" + name.text + ") err(24)\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST_P(SemaCreate, FailureToOpenTheExistingOneIsAFailureToo) {
  AllocHooks hooks;
  TraceCapture trace;
  faults::sem_unlink.Fail(0, 0);
  faults::sem_open.Replace([](const char *, int flags, mode_t, unsigned) {
    errno = (flags & O_CREAT) != 0 ? EEXIST : EACCES;
    return SEM_FAILED;
  });
  EXPECT_EQ(Create(name.c_str(), 0), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Error(func(), "semaphore open failed name (" + name.text + ") err(13)\n")}));
  EXPECT_EQ(faults::sem_unlink.Count(), 1);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(SemaCreateCustom, WithoutCreateOpensOnlyWhatExists) {
  Name name;
  KEL_SEMA *made = KEL_SemaCreate(name.c_str(), 4);
  std::vector<int> flags;
  faults::sem_open.Replace([&](const char *n, int f, mode_t m, unsigned v) {
    flags.push_back(f);
    return faults::sem_open.Real(n, f, m, v);
  });
  KEL_SEMA *opened = KEL_SemaCreate_Custom(name.c_str(), 9, 0);
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(flags, (std::vector<int>{0}));
  EXPECT_EQ(CountOf(opened), 4);
  KEL_SemaDestroy(opened);
  KEL_SemaDestroy(made);
}

TEST(SemaCreateCustom, WithoutCreateFailsOnAMissingOneAndUnlinksTheName) {
  Name name;
  AllocHooks hooks;
  TraceCapture trace;
  faults::sem_unlink.Replace([](const char *n) { return faults::sem_unlink.Real(n); });
  EXPECT_EQ(KEL_SemaCreate_Custom(name.c_str(), 1, 0), nullptr);
  EXPECT_EQ(faults::sem_unlink.Count(), 1);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_SemaCreate_Custom",
                         "semaphore open failed name (" + name.text + ") err(2)\n")}));
  EXPECT_FALSE(name.exists());
  EXPECT_EQ(hooks.live(), 0);
}

TEST(SemaCreateCustom, WithoutNameIgnoresTheFlag) {
  KEL_SEMA *sema = KEL_SemaCreate_Custom(nullptr, 2, 0);
  ASSERT_NE(sema, nullptr);
  EXPECT_EQ(CountOf(sema), 2);
  KEL_SemaDestroy(sema);
}

TEST(SemaDestroy, OfANamedOneClosesUnlinksAndThenDestroys) {
  Name name;
  KEL_SEMA *sema = KEL_SemaCreate(name.c_str(), 0);
  faults::Record();
  EXPECT_EQ(KEL_SemaDestroy(sema), 0);
  EXPECT_EQ(faults::Log(),
            (std::vector<std::string>{"sem_close", "sem_unlink", "sem_destroy"}));
  EXPECT_FALSE(name.exists());
}

TEST(SemaDestroy, OfAnUnnamedOneOnlyDestroys) {
  KEL_SEMA *sema = KEL_SemaCreate(nullptr, 0);
  faults::Record();
  EXPECT_EQ(KEL_SemaDestroy(sema), 0);
  EXPECT_EQ(faults::Log(), (std::vector<std::string>{"sem_destroy"}));
}

TEST(SemaNull, GivesMinus22WithATrace) {
  TraceCapture trace;
  int32_t count = 77;
  EXPECT_EQ(KEL_SemaGet(nullptr, 0), -22);
  EXPECT_EQ(KEL_SemaPut(nullptr), -22);
  EXPECT_EQ(KEL_SemaStatus(nullptr, &count), -22);
  EXPECT_EQ(KEL_SemaDestroy(nullptr), -22);
  EXPECT_EQ(count, 77);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_SemaGet", "invalid sema\n"),
                                 Error("KEL_SemaPut", "invalid sema\n"),
                                 Line("TRACE", "KEL_SemaStatus", "Enter\n"),
                                 Error("KEL_SemaStatus", "invalid sema\n"),
                                 Error("KEL_SemaDestroy", "invalid sema\n")}));
}

class Sema : public testing::Test {
 protected:
  void TearDown() override {
    faults::ResetAll();
    KEL_SemaDestroy(sema);
  }
  KEL_SEMA *sema = KEL_SemaCreate(nullptr, 0);
};

TEST_F(Sema, TryingTakesAUnitOrFailsWithATrace) {
  TraceCapture trace;
  EXPECT_EQ(KEL_SemaPut(sema), 0);
  EXPECT_EQ(KEL_SemaGet(sema, 0), 0);
  EXPECT_EQ(trace.Take(), Lines{});
  errno = 0;
  EXPECT_EQ(KEL_SemaGet(sema, 0), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_SemaGet", "sem_trywait err=11\n")}));
}

TEST_F(Sema, ABoundedWaitExpiresWithMinus110AndNoTrace) {
  TraceCapture trace;
  const uint64_t before = KEL_GetSystemTick();
  EXPECT_EQ(KEL_SemaGet(sema, 100), -110);
  const uint64_t waited = KEL_GetSystemTick() - before;
  EXPECT_GE(waited, 98u);
  EXPECT_LT(waited, 60'000u);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(Sema, ABoundedWaitTakesWhatIsThereWithoutTheClock) {
  KEL_SemaPut(sema);
  faults::Record();
  EXPECT_EQ(KEL_SemaGet(sema, 100), 0);
  EXPECT_EQ(faults::Log(), (std::vector<std::string>{"sem_trywait"}));
}

TEST_F(Sema, ABoundedWaitsDeadlineIsNowPlusTheTimeout) {
  faults::clock_gettime.Replace([](clockid_t clock, timespec *now) {
    EXPECT_EQ(clock, CLOCK_REALTIME);
    *now = {100, 500'000'000};
    return 0;
  });
  timespec deadline{};
  faults::sem_timedwait.Replace([&](sem_t *, const timespec *t) {
    deadline = *t;
    return 0;
  });
  EXPECT_EQ(KEL_SemaGet(sema, 1999), 0);
  EXPECT_EQ(deadline.tv_sec, 102);
  EXPECT_EQ(deadline.tv_nsec, 499'000'000);
}

TEST_F(Sema, EveryTimeoutButOneIsBounded) {
  faults::clock_gettime.Replace([](clockid_t, timespec *now) {
    *now = {0, 0};
    return 0;
  });
  timespec deadline{};
  faults::sem_timedwait.Replace([&](sem_t *, const timespec *t) {
    deadline = *t;
    errno = ETIMEDOUT;
    return -1;
  });
  faults::sem_wait.Fail(0, 0);
  EXPECT_EQ(KEL_SemaGet(sema, 0x7FFFFFFE), -110);
  EXPECT_EQ(deadline.tv_sec, 2'147'483);
  EXPECT_EQ(deadline.tv_nsec, 646'000'000);
  EXPECT_EQ(KEL_SemaGet(sema, 0x80000000), -110);
  EXPECT_EQ(deadline.tv_sec, 2'147'483);
  EXPECT_EQ(deadline.tv_nsec, 648'000'000);
  EXPECT_EQ(KEL_SemaGet(sema, 0xFFFFFFFF), -110);
  EXPECT_EQ(deadline.tv_sec, 4'294'967);
  EXPECT_EQ(deadline.tv_nsec, 295'000'000);
  EXPECT_EQ(faults::sem_wait.Count(), 0);
}

TEST_F(Sema, ABoundedWaitGoesOnWithTheSameDeadlineAfterSignals) {
  std::vector<const timespec *> deadlines;
  std::vector<time_t> seconds;
  faults::sem_timedwait.Replace([&](sem_t *, const timespec *t) {
    seconds.push_back(t->tv_sec * 1'000'000'000 + t->tv_nsec);
    errno = seconds.size() < 3 ? EINTR : ETIMEDOUT;
    return -1;
  });
  EXPECT_EQ(KEL_SemaGet(sema, 10), -110);
  ASSERT_EQ(seconds.size(), 3u);
  EXPECT_EQ(seconds[0], seconds[2]);
}

TEST_F(Sema, ABoundedWaitThatFailsIsTraced) {
  TraceCapture trace;
  faults::sem_timedwait.Fail(-1, EINVAL);
  errno = 0;
  EXPECT_EQ(KEL_SemaGet(sema, 250), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_SemaGet", "sem_timedwait tout=250 err=22\n")}));
}

TEST_F(Sema, AnUnboundedWaitTakesAUnitWhenItComes) {
  std::thread taker([&] { EXPECT_EQ(KEL_SemaGet(sema, KEL_WAIT_FOREVER), 0); });
  EXPECT_EQ(KEL_SemaPut(sema), 0);
  taker.join();
  EXPECT_EQ(CountOf(sema), 0);
}

TEST_F(Sema, AnUnboundedWaitIsTriedOnce) {
  TraceCapture trace;
  faults::sem_wait.Fail(-1, EINTR);
  EXPECT_EQ(KEL_SemaGet(sema, KEL_WAIT_FOREVER), -1);
  EXPECT_EQ(faults::sem_wait.Count(), 1);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_SemaGet", "sem_wait err=4\n")}));
}

TEST_F(Sema, ASignalEndsAnUnboundedWait) {
  struct sigaction action = {}, old = {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  sigaction(SIGUSR1, &action, &old);
  faults::sem_wait.Replace([](sem_t *s) { return faults::sem_wait.Real(s); });
  std::atomic<bool> done{false};
  std::thread waiter([&] {
    EXPECT_EQ(KEL_SemaGet(sema, KEL_WAIT_FOREVER), -1);
    EXPECT_EQ(errno, EINTR);
    done = true;
  });
  while (faults::sem_wait.Count() == 0)
    std::this_thread::yield();
  // Repeated, as the first may come just before the wait begins.
  while (!done) {
    pthread_kill(waiter.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  waiter.join();
  sigaction(SIGUSR1, &old, nullptr);
}

TEST_F(Sema, AWaitingThreadCanBeCancelled) {
  faults::sem_wait.Replace([](sem_t *s) { return faults::sem_wait.Real(s); });
  pthread_t thread;
  pthread_create(
      &thread, nullptr,
      [](void *s) -> void * {
        KEL_SemaGet(static_cast<KEL_SEMA *>(s), KEL_WAIT_FOREVER);
        return nullptr;
      },
      sema);
  while (faults::sem_wait.Count() == 0)
    std::this_thread::yield();
  pthread_cancel(thread);
  void *result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(result, PTHREAD_CANCELED);
}

TEST_F(Sema, PostingBeyondTheLimitFailsWithATrace) {
  KEL_SEMA *full = KEL_SemaCreate(nullptr, SEM_VALUE_MAX);
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_SemaPut(full), -1);
  EXPECT_EQ(errno, EOVERFLOW);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_SemaPut", "sem_post error err=75\n")}));
  KEL_SemaDestroy(full);
}

TEST_F(Sema, StatusTracesEnterAndPassesTheResultOn) {
  TraceCapture trace;
  int32_t count = -1;
  KEL_SemaPut(sema);
  EXPECT_EQ(KEL_SemaStatus(sema, &count), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(trace.Take(), (Lines{Line("TRACE", "KEL_SemaStatus", "Enter\n")}));
  faults::sem_getvalue.Fail(-1, EINVAL);
  EXPECT_EQ(KEL_SemaStatus(sema, &count), -1);
}

TEST_F(Sema, ResetTakesAsManyUnitsAsThereWere) {
  for (int i = 0; i < 3; ++i)
    KEL_SemaPut(sema);
  TraceCapture trace;
  faults::sem_wait.Replace([](sem_t *s) { return faults::sem_wait.Real(s); });
  EXPECT_EQ(KEL_SemaReset(sema), 0);
  EXPECT_EQ(faults::sem_wait.Count(), 3);
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_SemaReset", "sem_value=3\n"),
                                 Line("DEBUG", "KEL_SemaReset", "sem_value=0\n")}));
}

TEST_F(Sema, ResetLeavesUnitsThatComeMeanwhile) {
  KEL_SemaPut(sema);
  faults::sem_wait.Replace([&](sem_t *s) {
    ::sem_post(s);
    return faults::sem_wait.Real(s);
  });
  EXPECT_EQ(KEL_SemaReset(sema), 0);
  EXPECT_EQ(faults::sem_wait.Count(), 1);
  EXPECT_EQ(CountOf(sema), 1);
}

TEST_F(Sema, ResetStopsAtAWaitThatFails) {
  for (int i = 0; i < 3; ++i)
    KEL_SemaPut(sema);
  TraceCapture trace;
  faults::sem_wait.Fail(-1, EINTR, 1);
  EXPECT_EQ(KEL_SemaReset(sema), 0);
  EXPECT_EQ(faults::sem_wait.Count(), 2);
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_SemaReset", "sem_value=3\n"),
                                 Error("KEL_SemaReset", "sem_wait error err=4\n"),
                                 Line("DEBUG", "KEL_SemaReset", "sem_value=2\n")}));
}

TEST_F(Sema, ResetOfAnEmptyOneWaitsForNothing) {
  faults::Record();
  EXPECT_EQ(KEL_SemaReset(sema), 0);
  EXPECT_EQ(faults::sem_wait.Count(), 0);
}

TEST_F(Sema, NothingIsLostBetweenThreads) {
  constexpr int kThreads = 3, kUnits = 2000;
  std::atomic<int> taken{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int unit = 0; unit < kUnits; ++unit)
        KEL_SemaPut(sema);
    });
    threads.emplace_back([&] {
      for (int unit = 0; unit < kUnits; ++unit)
        if (KEL_SemaGet(sema, 60'000) == 0)
          ++taken;
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(taken, kThreads * kUnits);
  EXPECT_EQ(CountOf(sema), 0);
}

}  // namespace
