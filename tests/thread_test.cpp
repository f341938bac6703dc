// Thread: creation with its options, every failing step, exit and sleeps.

#include "kelcore_thread.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>

#include <atomic>
#include <thread>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_sema.h"
#include "kelcore_time.h"
#include "trace_capture.h"

namespace {

constexpr const char kCreate[] = "KEL_ThreadCreate";
constexpr int kRecordBytes = 24;

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelthread", "kelcore_thread", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}
TraceLine Debug(const std::string &message) {
  return Line("DEBUG", kCreate, message);
}

void *ReturnArgument(void *arg) {
  return arg;
}

pthread_t IdOf(const KEL_THREAD *thread) {
  pthread_t id;
  memcpy(&id, reinterpret_cast<const char *>(thread) + 16, sizeof id);
  return id;
}

// A thread that waits until it is told to end, so that it can be looked at.
class Parked {
 public:
  KEL_THREAD *Start(const char *name, uint32_t priority = 0, uint32_t stack = 0) {
    thread = KEL_ThreadCreate(name, priority, stack, Run, this);
    return thread;
  }
  ~Parked() {
    KEL_SemaPut(go_);
    if (thread != nullptr)
      KEL_ThreadDelete(thread, nullptr);
    KEL_SemaDestroy(go_);
  }
  std::string Name() {
    char name[64] = "";
    pthread_getname_np(IdOf(thread), name, sizeof name);
    return name;
  }
  KEL_THREAD *thread = nullptr;

 private:
  static void *Run(void *self) {
    KEL_SemaGet(static_cast<Parked *>(self)->go_, KEL_WAIT_FOREVER);
    return nullptr;
  }
  KEL_SEMA *go_ = KEL_SemaCreate(nullptr, 0);
};

TEST(ThreadCreate, RunsTheEntryWithItsArgumentAndDeleteGivesItsResult) {
  AllocHooks hooks;
  int argument = 0;
  KEL_THREAD *thread = KEL_ThreadCreate("worker", 0, 0, ReturnArgument, &argument);
  ASSERT_NE(thread, nullptr);
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.adds[0].size, static_cast<uint32_t>(kRecordBytes));
  EXPECT_EQ(hooks.adds[0].file, "kelcore_thread");
  EXPECT_EQ(hooks.adds[0].func, kCreate);
  void *result = nullptr;
  EXPECT_EQ(KEL_ThreadDelete(thread, &result), 0);
  EXPECT_EQ(result, &argument);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(ThreadCreate, TracesEveryStep) {
  Parked parked;
  TraceCapture trace("kelthread:4");
  ASSERT_NE(parked.Start("tracer", 0, 0x40000), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Debug("stack size(262144)\n"),
                   Debug(Format("created thread id(%x)\n", Low32(IdOf(parked.thread)))),
                   Debug("thread name (tracer)\n"),
                   Debug(Format("created thread success (%x)\n", Low32(parked.thread)))}));
}

TEST(ThreadCreate, TracesAPriorityFirst) {
  // Threads of real-time priority need a privilege: an ordinary one will do.
  faults::pthread_create.Replace(
      [](pthread_t *t, const pthread_attr_t *, void *(*entry)(void *), void *arg) {
        return faults::pthread_create.Real(t, nullptr, entry, arg);
      });
  Parked parked;
  TraceCapture trace("kelthread:4");
  ASSERT_NE(parked.Start("x", 10, 0x40000), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Debug("thread priority (10)\n"), Debug("stack size(262144)\n"),
                   Debug(Format("created thread id(%x)\n", Low32(IdOf(parked.thread)))),
                   Debug("thread name (x)\n"),
                   Debug(Format("created thread success (%x)\n", Low32(parked.thread)))}));
}

TEST(ThreadCreate, TheRecordIsZeroed) {
  AllocHooks hooks;
  std::string record;
  hooks.on_add = [&](void *block, uint32_t size) {
    record.assign(static_cast<char *>(block), size);
  };
  faults::malloc.Replace(
      [](size_t size) { return memset(faults::malloc.Real(size), 0xA5, size); });
  faults::pthread_attr_init.Fail(ENOMEM, 0);
  EXPECT_EQ(KEL_ThreadCreate(nullptr, 0, 0, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(record, std::string(kRecordBytes, '\0'));
}

TEST(ThreadCreate, WithoutNameAndStackTracesLess) {
  Parked parked;
  TraceCapture trace("kelthread:4");
  faults::Record();
  ASSERT_NE(parked.Start(nullptr), nullptr);
  EXPECT_EQ(faults::pthread_setname_np.Count(), 0);
  EXPECT_EQ(faults::pthread_attr_setstacksize.Count(), 0);
  EXPECT_EQ(faults::pthread_attr_setinheritsched.Count(), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Debug(Format("created thread id(%x)\n", Low32(IdOf(parked.thread)))),
                   Debug(Format("created thread success (%x)\n", Low32(parked.thread)))}));
}

TEST(ThreadCreate, ShowsTheNameCutTo14Characters) {
  Parked parked;
  TraceCapture trace("kelthread:4");
  ASSERT_NE(parked.Start("abcdefghijklmnopqrst"), nullptr);
  EXPECT_EQ(parked.Name(), "abcdefghijklmn");
  EXPECT_EQ(std::string(reinterpret_cast<char *>(parked.thread), 15),
            std::string("abcdefghijklmn\0", 15));
  EXPECT_EQ(trace.Take()[1], Debug("thread name (abcdefghijklmn)\n"));
}

TEST(ThreadCreate, ANameOf14CharactersStaysWhole) {
  Parked parked;
  ASSERT_NE(parked.Start("abcdefghijklmn"), nullptr);
  EXPECT_EQ(parked.Name(), "abcdefghijklmn");
}

TEST(ThreadCreate, ANameThatIsTooLongForTheSystemIsCutTo10AndTriedOnceMore) {
  Parked parked;
  TraceCapture trace("kelthread:4");
  std::vector<std::string> names;
  faults::pthread_setname_np.Replace([&](pthread_t, const char *name) {
    names.emplace_back(name);
    return names.size() == 1 ? ERANGE : 0;
  });
  ASSERT_NE(parked.Start("abcdefghijklmn"), nullptr);
  EXPECT_EQ(names, (std::vector<std::string>{"abcdefghijklmn", "abcdefghij"}));
  EXPECT_EQ(trace.Take()[1], Debug("thread name (abcdefghij)\n"));
}

TEST(ThreadCreate, AFailureToNameIsTracedAndOtherwiseIgnored) {
  Parked parked;
  TraceCapture trace("kelthread:4");
  faults::pthread_setname_np.Fail(ERANGE, ENOENT);
  ASSERT_NE(parked.Start("abcdefghijklmn"), nullptr);
  EXPECT_EQ(faults::pthread_setname_np.Count(), 2);
  EXPECT_EQ(trace.Take()[1],
            Error(kCreate,
                  "pthread_setname_np (abcdefghij) ret(34) err(2: No such file or "
                  "directory)\n"));
}

TEST(ThreadCreate, ASecondTryAtNamingMayFailForAnotherReason) {
  Parked parked;
  TraceCapture trace("kelthread:4");
  int calls = 0;
  faults::pthread_setname_np.Replace([&](pthread_t, const char *) {
    errno = EPERM;
    return ++calls == 1 ? ERANGE : ESRCH;
  });
  ASSERT_NE(parked.Start("short"), nullptr);
  EXPECT_EQ(calls, 2) << "also when there is nothing to cut";
  EXPECT_EQ(
      trace.Take()[1],
      Error(kCreate, "pthread_setname_np (short) ret(3) err(1: Operation not permitted)\n"));
}

TEST(ThreadCreate, OtherNamingFailuresAreNotTriedAgain) {
  Parked parked;
  faults::pthread_setname_np.Fail(ESRCH, 0);
  ASSERT_NE(parked.Start("name"), nullptr);
  EXPECT_EQ(faults::pthread_setname_np.Count(), 1);
}

// Looks at the attributes: the stack itself may be a larger one from the C
// library's cache.
size_t StackAskedFor(uint32_t size) {
  size_t asked = 0;
  faults::pthread_create.Replace(
      [&](pthread_t *t, const pthread_attr_t *a, void *(*entry)(void *), void *arg) {
        pthread_attr_getstacksize(a, &asked);
        return faults::pthread_create.Real(t, a, entry, arg);
      });
  Parked parked;
  EXPECT_NE(parked.Start("stack", 0, size), nullptr);
  return asked;
}

TEST(ThreadCreate, GivesTheStackAskedFor) {
  EXPECT_EQ(StackAskedFor(0x100000), 0x100000u);
}

TEST(ThreadCreate, AnInvalidStackSizeIsReplacedBy128KiB) {
  std::vector<size_t> sizes;
  faults::pthread_attr_setstacksize.Replace([&](pthread_attr_t *a, size_t size) {
    sizes.push_back(size);
    return faults::pthread_attr_setstacksize.Real(a, size);
  });
  TraceCapture trace("kelthread:4");
  EXPECT_EQ(StackAskedFor(1000), 0x20000u);
  EXPECT_EQ(trace.Take()[0], Debug("stack size(131072)\n")) << "the one in force";
  EXPECT_EQ(sizes, (std::vector<size_t>{1000, 0x20000}));
}

TEST(ThreadCreate, OnlyEinvalLeadsToTheReplacement) {
  TraceCapture trace("kelthread:4");
  AllocHooks hooks;
  faults::pthread_attr_setstacksize.Fail(ENOMEM, 0);
  EXPECT_EQ(KEL_ThreadCreate("x", 0, 65536, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(faults::pthread_attr_setstacksize.Count(), 1);
  EXPECT_EQ(trace.Take(),
            (Lines{Error(kCreate, "pthread_attr_setstacksize(65536) error(12)\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(ThreadCreate, AStackSizeThatCannotBeReplacedFails) {
  TraceCapture trace("kelthread:4");
  AllocHooks hooks;
  faults::pthread_attr_destroy.Replace(
      [](pthread_attr_t *a) { return faults::pthread_attr_destroy.Real(a); });
  faults::pthread_attr_setstacksize.Fail(EINVAL, 0);
  EXPECT_EQ(KEL_ThreadCreate("x", 0, 1000, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(faults::pthread_attr_setstacksize.Count(), 2);
  EXPECT_EQ(faults::pthread_attr_destroy.Count(), 1);
  EXPECT_EQ(trace.Take(),
            (Lines{Error(kCreate, "pthread_attr_setstacksize(131072) error(22)\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(ThreadCreate, WithoutMemoryTellsTheRecordsSize) {
  TraceCapture trace;
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_ThreadCreate("x", 0, 0, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error(kCreate, "memory alloc failed size(24)\n")}));
}

TEST(ThreadCreate, AttributeFailureReleasesTheRecord) {
  TraceCapture trace;
  AllocHooks hooks;
  faults::pthread_attr_init.Fail(ENOMEM, 0);
  EXPECT_EQ(KEL_ThreadCreate("x", 0, 0, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error(kCreate, "pthread_attr_init error(12)\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(ThreadCreate, APriorityAsksForFifoScheduling) {
  // The privilege may be missing: then the thread cannot be made, but what was
  // asked for can be seen.
  int inherit = -1, policy = -1, scope = -1, priority = -1;
  faults::pthread_attr_setinheritsched.Replace([&](pthread_attr_t *a, int v) {
    inherit = v;
    return faults::pthread_attr_setinheritsched.Real(a, v);
  });
  faults::pthread_attr_setschedpolicy.Replace([&](pthread_attr_t *a, int v) {
    policy = v;
    return faults::pthread_attr_setschedpolicy.Real(a, v);
  });
  faults::pthread_attr_setscope.Replace([&](pthread_attr_t *a, int v) {
    scope = v;
    return faults::pthread_attr_setscope.Real(a, v);
  });
  faults::pthread_attr_setschedparam.Replace([&](pthread_attr_t *a, const sched_param *p) {
    priority = p->sched_priority;
    return faults::pthread_attr_setschedparam.Real(a, p);
  });
  TraceCapture trace("kelthread:4");
  Parked parked;
  parked.Start("fifo", 10);
  EXPECT_EQ(inherit, PTHREAD_EXPLICIT_SCHED);
  EXPECT_EQ(policy, SCHED_FIFO);
  EXPECT_EQ(scope, PTHREAD_SCOPE_SYSTEM);
  EXPECT_EQ(priority, 10);
  EXPECT_EQ(trace.Take()[0], Debug("thread priority (10)\n"));
}

TEST(ThreadCreate, EachSchedulingFailureIsAFailure) {
  using Attribute = faults::Call<int(pthread_attr_t *, int)>;
  for (Attribute *call :
       {&faults::pthread_attr_setinheritsched, &faults::pthread_attr_setschedpolicy,
        &faults::pthread_attr_setscope}) {
    TraceCapture trace("kelthread:4");
    AllocHooks hooks;
    faults::pthread_attr_destroy.Replace(
        [](pthread_attr_t *a) { return faults::pthread_attr_destroy.Real(a); });
    call->Fail(ENOTSUP, 0);
    EXPECT_EQ(KEL_ThreadCreate("x", 10, 0, ReturnArgument, nullptr), nullptr) << call->name();
    EXPECT_EQ(trace.Take(), (Lines{Error(kCreate, "pthread_attr_set... error(95)\n")}));
    EXPECT_EQ(faults::pthread_attr_destroy.Count(), 1);
    EXPECT_EQ(hooks.live(), 0);
    faults::ResetAll();
  }
}

TEST(ThreadCreate, ThePrioritysOwnResultIsNotLookedAt) {
  TraceCapture trace("kelthread:4");
  faults::pthread_attr_setschedparam.Fail(EINVAL, 0);
  faults::pthread_create.Fail(EPERM, 0);
  EXPECT_EQ(KEL_ThreadCreate("x", 10, 0, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Debug("thread priority (10)\n"),
                                 Error(kCreate, "pthread_create (x) error(1)\n")}));
}

TEST(ThreadCreate, FailureToStartReleasesEverything) {
  TraceCapture trace("kelthread:4");
  AllocHooks hooks;
  faults::pthread_attr_destroy.Replace(
      [](pthread_attr_t *a) { return faults::pthread_attr_destroy.Real(a); });
  faults::pthread_create.Fail(EAGAIN, 0);
  EXPECT_EQ(KEL_ThreadCreate("worker", 0, 0, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(KEL_ThreadCreate("twenty characters ab", 0, 0, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(KEL_ThreadCreate(nullptr, 0, 0, ReturnArgument, nullptr), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Error(kCreate, "pthread_create (worker) error(11)\n"),
                   Error(kCreate, "pthread_create (twenty characters ab) error(11)\n"),
                   Error(kCreate, "pthread_create ((null)) error(11)\n")}));
  EXPECT_EQ(faults::pthread_attr_destroy.Count(), 3);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(ThreadCreate, FailureToDestroyTheAttributesIsOnlyTraced) {
  TraceCapture trace("kelthread:1");
  faults::pthread_attr_destroy.Replace([](pthread_attr_t *a) {
    faults::pthread_attr_destroy.Real(a);
    return EINVAL;
  });
  Parked parked;
  ASSERT_NE(parked.Start("x"), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error(kCreate, "pthread_attr_destroy error(22)\n")}));
}

TEST(ThreadDelete, TracesTheThreadAndTheHandle) {
  KEL_THREAD *thread = KEL_ThreadCreate(nullptr, 0, 0, ReturnArgument, nullptr);
  const pthread_t id = IdOf(thread);
  TraceCapture trace;
  EXPECT_EQ(KEL_ThreadDelete(thread, nullptr), 0);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("TRACE", "KEL_ThreadDelete",
                  Format("thread(%x) handle(%x)\n", Low32(id), Low32(thread))),
             Line("TRACE", "KEL_ThreadDelete", Format("handle(%x) freed\n", Low32(thread)))}));
}

TEST(ThreadDelete, AFailedJoinGivesMinus1AndFreesTheHandle) {
  AllocHooks hooks;
  KEL_THREAD *thread = KEL_ThreadCreate(nullptr, 0, 0, ReturnArgument, nullptr);
  pthread_t id = IdOf(thread);
  TraceCapture trace("kelthread:1");
  faults::pthread_join.Fail(EDEADLK, 0);
  EXPECT_EQ(KEL_ThreadDelete(thread, nullptr), -1);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_ThreadDelete", "pthread_join error(35)\n")}));
  EXPECT_EQ(hooks.live(), 0);
  faults::ResetAll();
  pthread_join(id, nullptr);
}

TEST(ThreadDelete, WaitsForTheEndAlsoWithoutAPlaceForTheResult) {
  std::atomic<bool> ended{false};
  KEL_THREAD *thread = KEL_ThreadCreate(
      nullptr, 0, 0,
      [](void *flag) -> void * {
        KEL_ThreadSleep(30);
        *static_cast<std::atomic<bool> *>(flag) = true;
        return nullptr;
      },
      &ended);
  EXPECT_EQ(KEL_ThreadDelete(thread, nullptr), 0);
  EXPECT_TRUE(ended);
}

TEST(ThreadDelete, OfNullFails) {
  EXPECT_EQ(KEL_ThreadDelete(nullptr, nullptr), -1);
}

TEST(ThreadDetach, LetsTheThreadGo) {
  AllocHooks hooks;
  KEL_THREAD *thread = KEL_ThreadCreate("free", 0, 0, ReturnArgument, nullptr);
  EXPECT_EQ(KEL_ThreadDetach(thread), 0);
  EXPECT_EQ(hooks.live(), 1) << "the handle stays";
  free(thread);
}

TEST(ThreadDetach, FailuresAreTraced) {
  Parked parked;
  parked.Start("bound");
  TraceCapture trace("kelthread:1");
  faults::pthread_detach.Fail(ESRCH, 0);
  EXPECT_EQ(KEL_ThreadDetach(parked.thread), -1);
  Parked unnamed;
  unnamed.Start(nullptr);
  EXPECT_EQ(KEL_ThreadDetach(unnamed.thread), -1);
  EXPECT_EQ(KEL_ThreadDetachSelf(), -1);
  EXPECT_EQ(KEL_ThreadDetach(nullptr), -1);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_ThreadDetach", "pthread_detach (bound) error(3)\n"),
                   Error("KEL_ThreadDetach", "pthread_detach () error(3)\n"),
                   Error("KEL_ThreadDetachSelf", "pthread_detach (self) error(3)\n")}));
}

TEST(ThreadDetach, SelfDetachesTheCaller) {
  pthread_t detached{};
  faults::pthread_detach.Replace([&](pthread_t t) {
    detached = t;
    return 0;
  });
  EXPECT_EQ(KEL_ThreadDetachSelf(), 0);
  EXPECT_TRUE(pthread_equal(detached, pthread_self()));
}

TEST(ThreadExit, EndsTheThreadWithTheCodeAsItsResult) {
  TraceCapture trace("kelthread:3");
  KEL_THREAD *thread = KEL_ThreadCreate(
      nullptr, 0, 0, [](void *) -> void * { KEL_ThreadExit(-7); }, nullptr);
  void *result = nullptr;
  EXPECT_EQ(KEL_ThreadDelete(thread, &result), 0);
  EXPECT_EQ(static_cast<int32_t>(reinterpret_cast<intptr_t>(result)), -7);
  const Lines lines = trace.Take();
  EXPECT_NE(
      std::find(lines.begin(), lines.end(), Line("DEBUG", "KEL_ThreadExit", "code(-7)\n")),
      lines.end());
}

TEST(ThreadExit, UnwindsTheStack) {
  struct Flag {
    bool *set;
    ~Flag() { *set = true; }
  };
  bool unwound = false;
  KEL_THREAD *thread = KEL_ThreadCreate(
      nullptr, 0, 0,
      [](void *arg) -> void * {
        Flag flag{static_cast<bool *>(arg)};
        KEL_ThreadExit(0);
      },
      &unwound);
  KEL_ThreadDelete(thread, nullptr);
  EXPECT_TRUE(unwound);
}

TEST(ThreadSleep, LastsAsLongAsAsked) {
  uint64_t before = KEL_GetSystemTickUS();
  EXPECT_EQ(KEL_ThreadSleep(20), 0);
  EXPECT_GE(KEL_GetSystemTickUS() - before, 20'000u);
  before = KEL_GetSystemTickUS();
  EXPECT_EQ(KEL_ThreadUSleep(1500), 0);
  EXPECT_GE(KEL_GetSystemTickUS() - before, 1500u);
}

TEST(ThreadSleep, SplitsTheTimeIntoSecondsAndNanoseconds) {
  timespec asked{};
  faults::nanosleep.Replace([&](const timespec *t, timespec *) {
    asked = *t;
    return 0;
  });
  EXPECT_EQ(KEL_ThreadSleep(1500), 0);
  EXPECT_EQ(asked.tv_sec, 1);
  EXPECT_EQ(asked.tv_nsec, 500'000'000);
  EXPECT_EQ(KEL_ThreadUSleep(2'000'003), 0);
  EXPECT_EQ(asked.tv_sec, 2);
  EXPECT_EQ(asked.tv_nsec, 3'000);
  EXPECT_EQ(KEL_ThreadSleep(0), 0);
  EXPECT_EQ(asked.tv_sec, 0);
  EXPECT_EQ(asked.tv_nsec, 0);
  EXPECT_EQ(faults::nanosleep.Count(), 3);
}

TEST(ThreadSleep, GoesOnWithWhatIsLeftAfterASignal) {
  std::vector<long> asked;
  faults::nanosleep.Replace([&](const timespec *t, timespec *left) {
    asked.push_back(t->tv_nsec);
    if (asked.size() == 3)
      return 0;
    *left = {0, t->tv_nsec / 2};
    errno = EINTR;
    return -1;
  });
  EXPECT_EQ(KEL_ThreadSleep(400), 0);
  EXPECT_EQ(asked, (std::vector<long>{400'000'000, 200'000'000, 100'000'000}));
}

TEST(ThreadSleep, OtherFailuresEndIt) {
  TraceCapture trace;
  faults::nanosleep.Fail(-1, EINVAL);
  EXPECT_EQ(KEL_ThreadSleep(5), -1);
  EXPECT_EQ(KEL_ThreadUSleep(5), -1);
  EXPECT_EQ(faults::nanosleep.Count(), 2);
  EXPECT_EQ(trace.Take(), (Lines{Line("TRACE", "KEL_ThreadSleep", "__nanosleep error\n"),
                                 Line("TRACE", "KEL_ThreadUSleep", "__nanosleep error\n")}));
}

TEST(ThreadSleep, SignalsDoNotShortenIt) {
  struct sigaction action = {}, old = {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, &old);
  std::atomic<bool> done{false};
  uint64_t slept = 0;
  std::thread sleeper([&] {
    const uint64_t before = KEL_GetSystemTick();
    EXPECT_EQ(KEL_ThreadSleep(100), 0);
    slept = KEL_GetSystemTick() - before;
    done = true;
  });
  while (!done) {
    pthread_kill(sleeper.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
  sleeper.join();
  sigaction(SIGUSR1, &old, nullptr);
  EXPECT_GE(slept, 99u);
}

TEST(ThreadStatus, EntryPointsDoNothing) {
  TraceCapture trace;
  EXPECT_EQ(KEL_ThreadSetStatus(nullptr, 1), 0);
  EXPECT_EQ(KEL_ThreadGetStatus(nullptr), 0);
  EXPECT_EQ(KEL_ThreadGetCurrentID(), 0);
  EXPECT_EQ(trace.Take(), Lines{});
}

}  // namespace
