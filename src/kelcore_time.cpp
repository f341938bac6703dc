// Clocks, time arithmetic, and timers.
//
// All timers of the process share one real-time signal. The kernel may deliver a
// signal after its timer was deleted, and the memory of the timer may serve
// another one by then; so the handler serves only timers that a registry knows
// under the identity that the signal names.

#include "kelcore_time.h"

#include <errno.h>
#include <sched.h>
#include <signal.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/relaxed.h"
#include "internal/trace.h"

KEL_TRACE_SOURCE("keltime", "kelcore_time")

struct KEL_TIMER {
  timer_t id;
  uint64_t interval;  // microseconds
  uint32_t loop;
  KEL_TIMER_CALLBACK callback;
  void *arg;
  KEL_TIMER *next;    // in the registry
  uint32_t in_calls;  // handlers that are calling back just now
};

namespace {

using kel::load_relaxed;
using kel::store_relaxed;

constexpr int64_t kMsPerSecond = 1'000;
constexpr int64_t kUsPerSecond = 1'000'000;
constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kUsPerMs = 1'000;
constexpr int64_t kNsPerUs = 1'000;
constexpr int64_t kNsPerMs = 1'000'000;

timespec read_clock(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now;
}

int timer_signal() {
  return SIGRTMIN + 4;
}

// ---- The registry of live timers ----

KEL_TIMER *live_timers = nullptr;
// Destroyed by their own callbacks: memory is not given back in signal context,
// where the interrupted thread may be in the allocator itself.
KEL_TIMER *ended_timers = nullptr;
bool registry_taken = false;

// Lets others go on. Yielding alone would never let a thread of lower priority
// run that holds what a real-time thread waits for.
void stand_back(int turn) {
  constexpr int kYields = 16;
  constexpr timespec kPause = {0, 50'000};
  if (turn < kYields)
    sched_yield();
  else
    nanosleep(&kPause, nullptr);
}

// Handlers take it too, so whoever holds it outside a handler keeps the signal
// away from its own thread.
class RegistryLock {
 public:
  RegistryLock() {
    sigset_t ours;
    sigemptyset(&ours);
    sigaddset(&ours, timer_signal());
    pthread_sigmask(SIG_BLOCK, &ours, &before_);
    const kel::ErrnoGuard keep_errno;
    for (int turn = 0; __atomic_test_and_set(&registry_taken, __ATOMIC_ACQUIRE); ++turn)
      stand_back(turn);
  }
  ~RegistryLock() {
    __atomic_clear(&registry_taken, __ATOMIC_RELEASE);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  RegistryLock(const RegistryLock &) = delete;
  RegistryLock &operator=(const RegistryLock &) = delete;

 private:
  sigset_t before_;
};

// The timer whose callback this thread is in; cleared when that destroys it.
[[gnu::tls_model("initial-exec")]] thread_local KEL_TIMER *calling = nullptr;
// Whether it is in one at all.
[[gnu::tls_model("initial-exec")]] thread_local bool in_callback = false;

void enlist(KEL_TIMER *timer) {
  const RegistryLock lock;
  timer->next = live_timers;
  live_timers = timer;
}

// Afterwards no handler finds the timer and none is in its callback but, maybe,
// the one that is destroying it: true then.
bool delist(KEL_TIMER *timer) {
  const kel::ErrnoGuard keep_errno;
  {
    const RegistryLock lock;
    KEL_TIMER **link = &live_timers;
    while (*link != timer)
      link = &(*link)->next;
    *link = timer->next;
  }
  const uint32_t own = calling == timer ? 1 : 0;
  for (int turn = 0; __atomic_load_n(&timer->in_calls, __ATOMIC_ACQUIRE) > own; ++turn)
    stand_back(turn);
  if (own != 0)
    calling = nullptr;
  return own != 0;
}

void release_later(KEL_TIMER *timer) {
  const RegistryLock lock;
  timer->next = ended_timers;
  store_relaxed(ended_timers, timer);
}

void release_ended() {
  if (load_relaxed(ended_timers) == nullptr || in_callback)
    return;
  KEL_TIMER *ended;
  {
    const RegistryLock lock;
    ended = ended_timers;
    store_relaxed(ended_timers, nullptr);
  }
  const kel::ErrnoGuard keep_errno;
  while (ended != nullptr) {
    KEL_TIMER *timer = ended;
    ended = timer->next;
    KEL_Free(timer, 0);
  }
}

// What a handler needs of a timer, taken while it is known to live.
struct Call {
  KEL_TIMER *timer;
  timer_t id;
  KEL_TIMER_CALLBACK callback;
  void *arg;
};

// `id` is null for signals that did not come from a timer: those are served by
// the value they carry.
bool begin_call(KEL_TIMER *timer, const int *id, Call *call) {
  const RegistryLock lock;
  bool found = id == nullptr;
  for (const KEL_TIMER *live = live_timers; live != nullptr && !found; live = live->next)
    found = live == timer && static_cast<int>(reinterpret_cast<intptr_t>(live->id)) == *id;
  if (!found)
    return false;
  __atomic_add_fetch(&timer->in_calls, 1, __ATOMIC_ACQUIRE);
  *call = {timer, timer->id, timer->callback, timer->arg};
  return true;
}

void run_call(const Call &call) {
  KEL_TIMER *interrupted = calling;
  const bool nested = in_callback;
  calling = call.timer;
  in_callback = true;
  if (call.callback != nullptr)
    call.callback(call.arg);
  if (calling == call.timer)
    __atomic_sub_fetch(&call.timer->in_calls, 1, __ATOMIC_RELEASE);
  calling = interrupted;
  in_callback = nested;
}

int32_t shown_id(timer_t id) {
  return kel::low32_signed(reinterpret_cast<uintptr_t>(id));
}

timespec from_us(uint64_t us) {
  return {static_cast<time_t>(us / kUsPerSecond),
          static_cast<long>(us % kUsPerSecond * kNsPerUs)};
}

void trace_start(const char *moment, timer_t id, uint64_t interval, uint32_t loop,
                 KEL_TIMER_CALLBACK callback, void *arg) {
  TRACE_AS("KEL_TimerStart", KEL_LEVEL_DEBUG,
           "%s. timerid(%d) itv(%d) loop(%d) fuc(%p) arg(%p)\n", moment, shown_id(id),
           kel::low32_signed(interval), static_cast<int32_t>(loop),
           reinterpret_cast<void *>(callback), arg);
}

}  // namespace

uint64_t KEL_GetSystemTick(void) {
  const timespec now = read_clock(CLOCK_MONOTONIC);
  return KEL_TIMESPECtoMS(&now);
}

uint64_t KEL_GetSystemTickUS(void) {
  const timespec now = read_clock(CLOCK_MONOTONIC);
  return static_cast<uint64_t>(now.tv_sec * kUsPerSecond + now.tv_nsec / kNsPerUs);
}

int64_t KEL_GetEpochTime(void) {
  return read_clock(CLOCK_REALTIME).tv_sec;
}

uint64_t KEL_TIMESPECtoMS(const timespec *time) {
  return static_cast<uint64_t>(time->tv_sec) * kMsPerSecond +
         static_cast<uint64_t>(time->tv_nsec / kNsPerMs);
}

void KEL_TimeMStoTimeval(uint64_t ms, timeval *time) {
  time->tv_sec = static_cast<time_t>(ms / kMsPerSecond);
  time->tv_usec = static_cast<suseconds_t>(ms % kMsPerSecond) * kUsPerMs;
}

void KEL_TimeMStoTimespec(uint64_t ms, timespec *time) {
  time->tv_sec = static_cast<time_t>(ms / kMsPerSecond);
  time->tv_nsec = static_cast<long>(ms % kMsPerSecond) * kNsPerMs;
}

int64_t KEL_TimevalDiff(const timeval *start, const timeval *end, timeval *result) {
  // Stored without borrowing: the two fields together still give the right
  // number of milliseconds.
  result->tv_sec = end->tv_sec - start->tv_sec;
  result->tv_usec = end->tv_usec - start->tv_usec;
  return result->tv_sec * kMsPerSecond + result->tv_usec / kUsPerMs;
}

timespec KEL_TimespecAdd(timespec a, timespec b) {
  timespec sum{a.tv_sec + b.tv_sec, a.tv_nsec + b.tv_nsec};
  if (sum.tv_nsec >= kNsPerSecond) {
    sum.tv_nsec -= kNsPerSecond;
    sum.tv_sec += 1;
  }
  return sum;
}

int32_t KEL_GetlocalTime(tm *time_out) {
  const time_t now = time(nullptr);
  if (const tm *local = localtime(&now)) {
    *time_out = *local;
  }
  return 0;
}

// The exported handler under the type that sigaction() takes: the public header
// cannot name siginfo_t in strict C99.
extern "C" {
static void timer_handler(int signal, siginfo_t *information, void *context)
    __attribute__((alias("KEL_Timer_Handler")));
}

KEL_TIMER *KEL_TimerCreate(uint64_t interval, KEL_TIMER_CALLBACK callback, void *arg) {
  release_ended();
  KEL_TIMER *timer = KEL_ALLOC(KEL_TIMER);
  if (timer == nullptr) {
    TRACE_ERROR("out of memory. size(%d)\n", static_cast<int>(sizeof(KEL_TIMER)));
    return nullptr;
  }
  timer->interval = interval;
  timer->callback = callback;
  timer->arg = arg;

  // Installed at every creation: an application may have taken the signal.
  struct sigaction action = {};
  action.sa_sigaction = timer_handler;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  int result = sigaction(timer_signal(), &action, nullptr);
  if (result != 0) {
    TRACE_ERROR("sigaction failed: ret(%d):errno(%d:%s)\n", result, errno, strerror(errno));
    const kel::ErrnoGuard keep_errno;
    KEL_Free(timer, 0);
    return nullptr;
  }

  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = timer_signal();
  event.sigev_value.sival_ptr = timer;
  result = timer_create(CLOCK_REALTIME, &event, &timer->id);
  if (result != 0) {
    TRACE_ERROR("timer_create failed: ret(%d):errno(%d:%s)\n", result, errno, strerror(errno));
    const kel::ErrnoGuard keep_errno;
    KEL_Free(timer, 0);
    return nullptr;
  }
  enlist(timer);
  TRACE_INFO("timer_createed(%p) interval(%lld) id(%d) func(%p) arg(%p)\n",
             static_cast<void *>(timer), static_cast<long long>(interval), shown_id(timer->id),
             reinterpret_cast<void *>(callback), arg);
  return timer;
}

int32_t KEL_TimerStart(KEL_TIMER *timer, uint64_t interval, uint32_t loop,
                       KEL_TIMER_CALLBACK callback, void *arg) {
  if (timer == nullptr)
    return -1;
  const timer_t id = timer->id;
  trace_start("Enter", id, interval, loop, callback, arg);
  {
    const RegistryLock lock;
    timer->loop = loop;
    if (interval != 0)
      timer->interval = interval;
    if (callback != nullptr)
      timer->callback = callback;
    if (arg != nullptr)
      timer->arg = arg;
    // Once it is armed its callback may run, and change or destroy the timer.
    interval = timer->interval;
    callback = timer->callback;
    arg = timer->arg;
  }
  itimerspec times = {};
  times.it_value = from_us(interval);
  if (loop != 0)
    times.it_interval = times.it_value;
  const int result = timer_settime(id, 0, &times, nullptr);
  if (result != 0)
    TRACE_ERROR("timer_settime error ret(%d) errno(%d:%s)\n", result, errno, strerror(errno));
  trace_start("Leave", id, interval, loop, callback, arg);
  return result;
}

int32_t KEL_TimerStop(KEL_TIMER *timer) {
  if (timer == nullptr)
    return -1;
  TRACE_TRACE("Enter. timerid(%d)\n", shown_id(timer->id));
  const itimerspec disarmed = {};
  const int result = timer_settime(timer->id, 0, &disarmed, nullptr);
  if (result != 0)
    TRACE_ERROR("timer_settime error ret(%d) errno(%d:%s)\n", result, errno, strerror(errno));
  TRACE_TRACE("Leave. timerid(%d)\n", shown_id(timer->id));
  return result;
}

int32_t KEL_TimerDestroy(KEL_TIMER *timer) {
  if (timer == nullptr) {
    TRACE_ERROR("invalid timer handle\n");
    return -1;
  }
  const int32_t stopped = KEL_TimerStop(timer);
  if (stopped != 0)
    TRACE_ERROR("KEL_TimerStop error ret(%d) errno(%d:%s)\n", stopped, errno, strerror(errno));
  const bool own = delist(timer);  // before a handler asks for a deleted one's overruns
  const int deleted = timer_delete(timer->id);
  if (deleted != 0)
    TRACE_ERROR("timer delete error ret(%d) errno(%d:%s)\n", deleted, errno, strerror(errno));
  if (own) {
    release_later(timer);
  } else {
    const kel::ErrnoGuard keep_errno;
    KEL_Free(timer, 0);
    release_ended();
  }
  return stopped != 0 ? stopped : deleted;
}

void KEL_Timer_Handler(int32_t signal, void *information, void *) {
  const kel::ErrnoGuard keep_errno;  // of the interrupted thread
  TRACE_TRACE("Enter. sig(%d) kelsig(%d)\n", signal, timer_signal());
  if (signal != timer_signal())
    return;
  const auto *info = static_cast<const siginfo_t *>(information);
  auto *timer = static_cast<KEL_TIMER *>(info->si_value.sival_ptr);
  Call call;
  if (!begin_call(timer, info->si_code == SI_TIMER ? &info->si_timerid : nullptr, &call))
    return;
  const int overrun = timer_getoverrun(call.id);
  if (overrun == -1)
    TRACE_ERROR("timer_getoverrun errno(%d:%s).\n", errno, strerror(errno));
  else if (overrun > 0)
    TRACE_ERROR("has time over count(%d).\n", overrun);
  // Once, however many expiries the signal stands for.
  run_call(call);
}
