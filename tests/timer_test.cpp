// Timers: expiry in signal context, re-arming, overruns, destruction.

#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <time.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_thread.h"
#include "kelcore_time.h"
#include "thread_sleeps.h"
#include "trace_capture.h"

namespace {

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "keltime", "kelcore_time", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

std::atomic<int> fired{0};
void Fire(void *step) {
  fired += step != nullptr ? *static_cast<int *>(step) : 1;
}

bool AwaitFired(int at_least) {
  for (int i = 0; i < 60'000 && fired < at_least; ++i)
    KEL_ThreadSleep(1);
  return fired >= at_least;
}

int32_t IdOf(const KEL_TIMER *timer) {
  timer_t id;
  memcpy(&id, timer, sizeof id);
  return static_cast<int32_t>(reinterpret_cast<intptr_t>(id));
}

// A signal as a timer, or kill, would deliver it.
void Deliver(KEL_TIMER *timer, int code, int id, int signal = SIGRTMIN + 4) {
  siginfo_t info = {};
  info.si_signo = signal;
  info.si_code = code;
  if (code == SI_TIMER)
    info.si_timerid = id;
  info.si_value.sival_ptr = timer;
  KEL_Timer_Handler(signal, &info, nullptr);
}

class Timer : public testing::Test {
 protected:
  void SetUp() override {
    fired = 0;
    ASSERT_NE(timer, nullptr);
  }
  ~Timer() override {
    faults::ResetAll();
    if (timer != nullptr)
      KEL_TimerDestroy(timer);
  }
  KEL_TIMER *timer = KEL_TimerCreate(2000, Fire, nullptr);
};

TEST(TimerCreate, InstallsTheHandlerAndMakesAnUnarmedTimer) {
  struct sigaction installed = {};
  sigevent event = {};
  clockid_t clock = -1;
  faults::timer_create.Replace([&](clockid_t c, sigevent *e, timer_t *id) {
    clock = c;
    event = *e;
    return faults::timer_create.Real(c, e, id);
  });
  faults::timer_settime.Replace([](timer_t id, int f, const itimerspec *t, itimerspec *o) {
    return faults::timer_settime.Real(id, f, t, o);
  });
  TraceCapture trace("keltime:4");
  int arg = 1;
  KEL_TIMER *timer = KEL_TimerCreate(5000, Fire, &arg);
  ASSERT_NE(timer, nullptr);
  EXPECT_EQ(faults::timer_settime.Count(), 0);
  EXPECT_EQ(clock, CLOCK_REALTIME);
  EXPECT_EQ(event.sigev_notify, SIGEV_SIGNAL);
  EXPECT_EQ(event.sigev_signo, SIGRTMIN + 4);
  EXPECT_EQ(event.sigev_value.sival_ptr, timer);
  sigaction(SIGRTMIN + 4, nullptr, &installed);
  constexpr int kRestorer = 0x04000000;  // the C library's own, on some processors
  EXPECT_EQ(installed.sa_flags & ~kRestorer, SA_SIGINFO);
  EXPECT_EQ(reinterpret_cast<void *>(installed.sa_sigaction),
            reinterpret_cast<void *>(KEL_Timer_Handler));
  for (int number = 1; number <= SIGRTMAX; ++number)
    EXPECT_NE(sigismember(&installed.sa_mask, number), 1) << number;
  EXPECT_EQ(trace.Take(),
            (Lines{Line("INFO ", "KEL_TimerCreate",
                        Format("timer_createed(%p) interval(5000) id(%d) func(%p) arg(%p)\n",
                               static_cast<void *>(timer), IdOf(timer),
                               reinterpret_cast<void *>(Fire), static_cast<void *>(&arg)))}));
  KEL_TimerDestroy(timer);
}

TEST(TimerCreate, TakesTheSignalAnew) {
  KEL_TIMER *first = KEL_TimerCreate(5000, Fire, nullptr);
  std::signal(SIGRTMIN + 4, SIG_IGN);
  KEL_TIMER *second = KEL_TimerCreate(5000, Fire, nullptr);
  struct sigaction installed = {};
  sigaction(SIGRTMIN + 4, nullptr, &installed);
  EXPECT_EQ(reinterpret_cast<void *>(installed.sa_sigaction),
            reinterpret_cast<void *>(KEL_Timer_Handler));
  KEL_TimerDestroy(second);
  KEL_TimerDestroy(first);
}

TEST(TimerCreate, LaysTheRecordOut) {
  AllocHooks hooks;
  std::string bytes;
  hooks.on_add = [&](void *block, uint32_t size) {
    bytes.assign(static_cast<char *>(block), size);
  };
  int arg = 1;
  KEL_TIMER *timer = KEL_TimerCreate(5000, Fire, &arg);
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.adds[0].file, "kelcore_time");
  EXPECT_EQ(hooks.adds[0].func, "KEL_TimerCreate");
  EXPECT_EQ(bytes, std::string(hooks.adds[0].size, '\0'));
  faults::timer_settime.Fail(0, 0);
  KEL_TimerStart(timer, 0, 9, nullptr, nullptr);
  struct {
    timer_t id;
    uint64_t interval;
    uint32_t loop;
    KEL_TIMER_CALLBACK callback;
    void *arg;
  } record;
  memcpy(&record, timer, sizeof record);
  EXPECT_EQ(record.interval, 5000u);
  EXPECT_EQ(record.loop, 9u);
  EXPECT_EQ(record.callback, Fire);
  EXPECT_EQ(record.arg, &arg);
  KEL_TimerDestroy(timer);
}

TEST(TimerCreate, FailuresAreTracedAndLeaveNothing) {
  AllocHooks hooks;
  TraceCapture trace("keltime:4");
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_TimerCreate(1, Fire, nullptr), nullptr);
  faults::ResetAll();
  faults::sigaction.Fail(-1, EINVAL);
  EXPECT_EQ(KEL_TimerCreate(1, Fire, nullptr), nullptr);
  faults::ResetAll();
  faults::timer_create.Fail(-1, EAGAIN);
  EXPECT_EQ(KEL_TimerCreate(1, Fire, nullptr), nullptr);
  faults::ResetAll();
  const Lines lines = trace.Take();
  ASSERT_EQ(lines.size(), 3u);
  ASSERT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(lines[0],
            Error("KEL_TimerCreate", Format("out of memory. size(%u)\n", hooks.adds[0].size)));
  EXPECT_EQ(lines[1],
            Error("KEL_TimerCreate", "sigaction failed: ret(-1):errno(22:Invalid argument)\n"));
  EXPECT_EQ(lines[2], Error("KEL_TimerCreate",
                            "timer_create failed: ret(-1):errno(11:Resource "
                            "temporarily unavailable)\n"));
  EXPECT_EQ(hooks.live(), 0);
}

TEST_F(Timer, FiresOnceWithoutLoop) {
  EXPECT_EQ(KEL_TimerStart(timer, 0, 0, nullptr, nullptr), 0);
  EXPECT_TRUE(AwaitFired(1));
  KEL_ThreadSleep(20);
  EXPECT_EQ(fired, 1);
}

TEST_F(Timer, FiresUntilStoppedWithLoop) {
  EXPECT_EQ(KEL_TimerStart(timer, 0, 1, nullptr, nullptr), 0);
  EXPECT_TRUE(AwaitFired(5));
  EXPECT_EQ(KEL_TimerStop(timer), 0);
  KEL_ThreadSleep(10);
  const int so_far = fired;
  KEL_ThreadSleep(20);
  EXPECT_EQ(fired, so_far);
}

TEST_F(Timer, StartKeepsOrReplacesWhatIsStored) {
  std::vector<std::string> armed;
  faults::timer_settime.Replace([&](timer_t, int flags, const itimerspec *t, itimerspec *) {
    armed.push_back(std::to_string(flags) + " " + std::to_string(t->it_value.tv_sec) + "." +
                    std::to_string(t->it_value.tv_nsec) + " " +
                    std::to_string(t->it_interval.tv_sec) + "." +
                    std::to_string(t->it_interval.tv_nsec));
    return 0;
  });
  KEL_TimerStart(timer, 1'500'000, 0, nullptr, nullptr);
  KEL_TimerStart(timer, 0, 7, nullptr, nullptr);
  KEL_TimerStart(timer, 0, 0, nullptr, nullptr);
  KEL_TimerStop(timer);
  EXPECT_EQ(armed, (std::vector<std::string>{"0 1.500000000 0.0", "0 1.500000000 1.500000000",
                                             "0 1.500000000 0.0", "0 0.0 0.0"}));
  int three = 3;
  KEL_TimerStart(timer, 0, 0, nullptr, &three);
  Deliver(timer, SI_QUEUE, 0);
  EXPECT_EQ(fired, 3);
  KEL_TimerStart(timer, 0, 0, nullptr, nullptr);
  Deliver(timer, SI_QUEUE, 0);
  EXPECT_EQ(fired, 6) << "the argument stays";
  KEL_TimerStart(
      timer, 0, 0, [](void *) { fired = 100; }, nullptr);
  Deliver(timer, SI_QUEUE, 0);
  EXPECT_EQ(fired, 100);
}

TEST_F(Timer, CreationStoresTheArgument) {
  int three = 3;
  KEL_TIMER *other = KEL_TimerCreate(2000, Fire, &three);
  Deliver(other, SI_TIMER, IdOf(other));
  EXPECT_EQ(fired, 3);
  KEL_TimerDestroy(other);
}

TEST_F(Timer, LeaveShowsWhatIsStored) {
  int arg = 0;
  KEL_TIMER *other = KEL_TimerCreate(2000, Fire, &arg);
  faults::timer_settime.Fail(0, 0);
  TraceCapture trace("keltime:3");
  KEL_TimerStart(other, 0, 3, nullptr, nullptr);
  EXPECT_EQ(trace.Take().back(),
            Line("DEBUG", "KEL_TimerStart",
                 Format("Leave. timerid(%d) itv(2000) loop(3) fuc(%p) arg(%p)\n", IdOf(other),
                        reinterpret_cast<void *>(Fire), static_cast<void *>(&arg))));
  KEL_TimerDestroy(other);
}

// What a callback changes while the timer is being armed is not what was armed.
TEST_F(Timer, LeaveShowsWhatWasArmed) {
  TraceCapture trace("keltime:3");
  int nested = 0;
  faults::timer_settime.Replace([&](timer_t, int, const itimerspec *, itimerspec *) {
    if (nested++ == 0) {
      int arg = 0;
      KEL_TimerStart(
          timer, 7, 8, [](void *) {}, &arg);
    }
    return 0;
  });
  EXPECT_EQ(KEL_TimerStart(timer, 5, 6, nullptr, nullptr), 0);
  EXPECT_EQ(trace.Take().back(),
            Line("DEBUG", "KEL_TimerStart",
                 Format("Leave. timerid(%d) itv(5) loop(6) fuc(%p) arg((nil))\n", IdOf(timer),
                        reinterpret_cast<void *>(Fire))));
}

TEST_F(Timer, StartAndStopKeepErrno) {
  TraceCapture trace("keltime:4");
  faults::timer_settime.Fail(-1, EINVAL);
  errno = 0;
  KEL_TimerStart(timer, 0, 1, nullptr, nullptr);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  KEL_TimerStop(timer);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Timer, StartAndStopTrace) {
  TraceCapture trace("keltime:4");
  faults::timer_settime.Fail(-1, EINVAL);
  EXPECT_EQ(KEL_TimerStart(timer, 0, 1, nullptr, nullptr), -1);
  EXPECT_EQ(KEL_TimerStop(timer), -1);
  faults::ResetAll();
  const int id = IdOf(timer);
  EXPECT_EQ(
      trace.Take(),
      (Lines{
          Line("DEBUG", "KEL_TimerStart",
               Format("Enter. timerid(%d) itv(0) loop(1) fuc((nil)) arg((nil))\n", id)),
          Error("KEL_TimerStart", "timer_settime error ret(-1) errno(22:Invalid argument)\n"),
          Line("DEBUG", "KEL_TimerStart",
               Format("Leave. timerid(%d) itv(2000) loop(1) fuc(%p) arg((nil))\n", id,
                      reinterpret_cast<void *>(Fire))),
          Line("TRACE", "KEL_TimerStop", Format("Enter. timerid(%d)\n", id)),
          Error("KEL_TimerStop", "timer_settime error ret(-1) errno(22:Invalid argument)\n"),
          Line("TRACE", "KEL_TimerStop", Format("Leave. timerid(%d)\n", id))}));
}

TEST_F(Timer, TheHandlerServesOnlyItsSignal) {
  TraceCapture trace("keltime:4");
  Deliver(timer, SI_QUEUE, 0, SIGUSR1);
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", "KEL_Timer_Handler",
                        Format("Enter. sig(%d) kelsig(%d)\n", SIGUSR1, SIGRTMIN + 4))}));
}

TEST_F(Timer, OverrunsAreReportedAndCalledOnce) {
  TraceCapture trace("keltime:1");
  faults::timer_getoverrun.Fail(4, 0);
  Deliver(timer, SI_TIMER, IdOf(timer));
  faults::timer_getoverrun.Fail(-1, EINVAL);
  Deliver(timer, SI_TIMER, IdOf(timer));
  EXPECT_EQ(fired, 2);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Error("KEL_Timer_Handler", "has time over count(4).\n"),
             Error("KEL_Timer_Handler", "timer_getoverrun errno(22:Invalid argument).\n")}));
}

TEST_F(Timer, TheHandlerTracesBeforeItCalls) {
  TraceCapture trace("keltime:4");
  const TraceLine enter =
      Line("TRACE", "KEL_Timer_Handler",
           Format("Enter. sig(%d) kelsig(%d)\n", SIGRTMIN + 4, SIGRTMIN + 4));
  Deliver(timer, SI_TIMER, IdOf(timer));
  EXPECT_EQ(trace.Take(), (Lines{enter}));
  static size_t lines_before;
  static TraceCapture *capture;
  capture = &trace;
  faults::timer_settime.Fail(0, 0);
  KEL_TimerStart(
      timer, 0, 0, [](void *) { lines_before = capture->Take().size(); }, nullptr);
  trace.Take();
  faults::timer_getoverrun.Fail(4, 0);
  Deliver(timer, SI_TIMER, IdOf(timer));
  EXPECT_EQ(lines_before, 2u);
}

// Keeps the timer signal pending for this thread, the only one.
class SignalHeld {
 public:
  SignalHeld() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGRTMIN + 4);
    pthread_sigmask(SIG_BLOCK, &set_, nullptr);
  }
  ~SignalHeld() { pthread_sigmask(SIG_UNBLOCK, &set_, nullptr); }
  static bool Pending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGRTMIN + 4) == 1;
  }
  static bool AwaitPending() {
    for (int i = 0; i < 60'000 && !Pending(); ++i)
      KEL_ThreadSleep(1);
    return Pending();
  }

 private:
  sigset_t set_;
};

TEST_F(Timer, ExpiriesThatMeetAPendingSignalAreOneCallback) {
  TraceCapture trace("keltime:1");
  {
    const SignalHeld held;
    KEL_TimerStart(timer, 1000, 1, nullptr, nullptr);
    ASSERT_TRUE(SignalHeld::AwaitPending());
    KEL_ThreadSleep(20);
    KEL_TIMER *const stopped = timer;
    itimerspec none = {};
    timer_t id;
    memcpy(&id, stopped, sizeof id);
    timer_settime(id, 0, &none, nullptr);
  }
  EXPECT_LE(fired, 1) << "the kernel may take a pending signal back";
  if (fired == 1) {
    ASSERT_EQ(trace.Messages().size(), 1u);
    EXPECT_EQ(trace.Messages()[0].find("has time over count("), 0u);
  }
}

TEST_F(Timer, APendingSignalOfADestroyedTimerIsNotServed) {
  KEL_TIMER *next = nullptr;
  {
    const SignalHeld held;
    KEL_TIMER *gone = KEL_TimerCreate(500, Fire, nullptr);
    KEL_TimerStart(gone, 0, 0, nullptr, nullptr);
    ASSERT_TRUE(SignalHeld::AwaitPending());
    EXPECT_EQ(KEL_TimerDestroy(gone), 0);
    next = KEL_TimerCreate(500, Fire, nullptr);
  }
  EXPECT_EQ(fired, 0);
  KEL_TimerDestroy(next);
}

TEST_F(Timer, DestroyWaitsForACallbackOnAnotherThread) {
  static std::atomic<bool> inside, leave;
  inside = leave = false;
  faults::timer_settime.Fail(0, 0);
  KEL_TimerStart(
      timer, 0, 0,
      [](void *) {
        inside = true;
        while (!leave)
          sched_yield();
      },
      nullptr);
  std::thread calling([this] { Deliver(timer, SI_TIMER, IdOf(timer)); });
  while (!inside)
    sched_yield();
  std::atomic<bool> destroyed{false};
  std::atomic<pid_t> id{0};
  std::thread destroying([&] {
    id = ThreadId();
    KEL_TimerDestroy(timer);
    destroyed = true;
  });
  EXPECT_TRUE(AwaitSleep(id));
  EXPECT_FALSE(destroyed);
  leave = true;
  calling.join();
  destroying.join();
  timer = nullptr;
}

TEST_F(Timer, AStaleSignalIsNotServed) {
  KEL_TIMER *gone = timer;
  const int id = IdOf(gone);
  KEL_TimerDestroy(timer);
  timer = nullptr;
  Deliver(gone, SI_TIMER, id);
  EXPECT_EQ(fired, 0);
  // Not even when a new timer took the address.
  timer = KEL_TimerCreate(2000, Fire, nullptr);
  Deliver(timer, SI_TIMER, id);
  EXPECT_EQ(fired, IdOf(timer) == id ? 1 : 0);
  Deliver(timer, SI_TIMER, IdOf(timer));
  EXPECT_GE(fired, 1);
}

TEST_F(Timer, NoCallbackRunsAfterDestroy) {
  for (int round = 0; round < 50; ++round) {
    KEL_TIMER *quick = KEL_TimerCreate(100, Fire, nullptr);
    KEL_TimerStart(quick, 0, 1, nullptr, nullptr);
    KEL_ThreadUSleep(300);
    EXPECT_EQ(KEL_TimerDestroy(quick), 0);
    const int so_far = fired;
    KEL_ThreadUSleep(300);
    ASSERT_EQ(fired, so_far);
  }
}

TEST_F(Timer, TheOlderOfTwoFiresAndGoesAsWell) {
  KEL_TIMER *younger = KEL_TimerCreate(3'600'000'000, Fire, nullptr);
  ASSERT_NE(younger, nullptr);
  EXPECT_EQ(KEL_TimerStart(younger, 0, 0, nullptr, nullptr), 0);
  EXPECT_EQ(KEL_TimerStart(timer, 1000, 0, nullptr, nullptr), 0);
  EXPECT_TRUE(AwaitFired(1));
  EXPECT_EQ(KEL_TimerDestroy(timer), 0);
  timer = nullptr;
  Deliver(younger, SI_TIMER, IdOf(younger));
  EXPECT_EQ(fired, 2);
  EXPECT_EQ(KEL_TimerDestroy(younger), 0);
}

TEST(TimerCallback, MayBeMissing) {
  KEL_TIMER *timer = KEL_TimerCreate(1000, nullptr, nullptr);
  ASSERT_NE(timer, nullptr);
  TraceCapture trace("keltime:1");
  Deliver(timer, SI_TIMER, IdOf(timer));
  EXPECT_EQ(trace.Take(), Lines{});
  EXPECT_EQ(KEL_TimerDestroy(timer), 0);
}

// The list of live timers belongs to one thread at a time; the others stand back.
TEST(TimerThreads, TakeTurnsAtTheList) {
  faults::sched_yield.Replace([] { return faults::sched_yield.Real(); });
  std::atomic<bool> enough{false};
  const auto work = [&] {
    while (!enough) {
      KEL_TIMER *timer = KEL_TimerCreate(3'600'000'000, Fire, nullptr);
      ASSERT_NE(timer, nullptr);
      ASSERT_EQ(KEL_TimerDestroy(timer), 0);
    }
  };
  std::thread one(work), other(work), third(work);
  for (int i = 0; i < 60'000 && faults::sched_yield.Count() == 0; ++i)
    KEL_ThreadSleep(1);
  enough = true;
  one.join();
  other.join();
  third.join();
  EXPECT_GT(faults::sched_yield.Count(), 0);
}

KEL_TIMER *self_destroying = nullptr;

// The interrupted thread may be in the allocator: the memory waits for a call
// from outside of callbacks.
TEST(TimerDestroy, MayComeFromItsOwnCallback) {
  AllocHooks hooks;
  fired = 0;
  self_destroying = KEL_TimerCreate(
      1000,
      [](void *) {
        KEL_TimerDestroy(self_destroying);
        ++fired;
      },
      nullptr);
  KEL_TimerStart(self_destroying, 0, 0, nullptr, nullptr);
  EXPECT_TRUE(AwaitFired(1));
  EXPECT_EQ(hooks.live(), 1);
  KEL_TIMER *next = KEL_TimerCreate(1000, Fire, nullptr);
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(hooks.live(), 1) << "the new one; the old one is gone";
  KEL_TimerDestroy(next);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(TimerDestroy, ReleasesWhatEndedInCallbacksButNotWithinOne) {
  AllocHooks hooks;
  fired = 0;
  static KEL_TIMER *first, *second;
  first = KEL_TimerCreate(
      1000, [](void *) { KEL_TimerDestroy(first); }, nullptr);
  second = KEL_TimerCreate(
      1000,
      [](void *) {
        KEL_TimerDestroy(second);
        // Not a call for a callback, but it must not release anything either.
        KEL_TIMER *made = KEL_TimerCreate(1000, Fire, nullptr);
        fired = made != nullptr;
        second = made;
      },
      nullptr);
  Deliver(first, SI_QUEUE, 0);
  EXPECT_EQ(hooks.live(), 2);
  Deliver(second, SI_QUEUE, 0);
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(hooks.live(), 3);
  KEL_TimerDestroy(second);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(TimerDestroy, FailuresAreTracedAndTheFirstIsReturned) {
  AllocHooks hooks;
  TraceCapture trace("keltime:1");
  EXPECT_EQ(KEL_TimerDestroy(nullptr), -1);
  KEL_TIMER *timer = KEL_TimerCreate(2000, Fire, nullptr);
  timer_t id;
  memcpy(&id, timer, sizeof id);
  faults::timer_settime.Fail(-7, EINVAL);
  faults::timer_delete.Fail(-1, EINVAL);
  EXPECT_EQ(KEL_TimerDestroy(timer), -7);
  timer = KEL_TimerCreate(2000, Fire, nullptr);
  faults::timer_settime.Reset();
  timer_t other;
  memcpy(&other, timer, sizeof other);
  EXPECT_EQ(KEL_TimerDestroy(timer), -1);
  faults::ResetAll();
  timer_delete(id);
  timer_delete(other);
  EXPECT_EQ(trace.Messages(), (std::vector<std::string>{
                                  "invalid timer handle\n",
                                  "timer_settime error ret(-7) errno(22:Invalid argument)\n",
                                  "KEL_TimerStop error ret(-7) errno(22:Invalid argument)\n",
                                  "timer delete error ret(-1) errno(22:Invalid argument)\n",
                                  "timer delete error ret(-1) errno(22:Invalid argument)\n"}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(TimerNull, IsRefused) {
  EXPECT_EQ(KEL_TimerStart(nullptr, 1, 0, nullptr, nullptr), -1);
  EXPECT_EQ(KEL_TimerStop(nullptr), -1);
}

TEST_F(Timer, TheInterruptedThreadsErrnoIsKept) {
  faults::timer_getoverrun.Fail(-1, EINVAL);
  errno = 77;
  Deliver(timer, SI_TIMER, IdOf(timer));
  EXPECT_EQ(errno, 77);
}

}  // namespace
