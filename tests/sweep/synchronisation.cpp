// Mutexes, semaphores, events, threads, timers, thread pools.

#include <errno.h>
#include <fcntl.h>
#include <kelcore.h>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "calls.h"
#include "names.h"
#include "operations.h"
#include "recorder.h"

namespace {

void LockAndUnlock(KEL_MUTEX *mutex, uint32_t timeout) {
  if (CALL(KEL_MutexLock, mutex, timeout) == 0)
    CALL(KEL_MutexUnLock, mutex);
}
void Mutex() {
  KEL_MUTEX *mutex = CALL(KEL_MutexCreate);
  if (mutex == nullptr)
    return;
  for (const uint32_t timeout : {0u, 1u, KEL_WAIT_FOREVER})
    LockAndUnlock(mutex, timeout);
  CALL(KEL_MutexDestroy, mutex);
}
void HeldMutex() {
  KEL_MUTEX *mutex = CALL(KEL_MutexCreate);
  if (mutex == nullptr)
    return;
  if (CALL(KEL_MutexLock, mutex, 0) == 0) {
    CALL(KEL_MutexLock, mutex, 0);
    CALL(KEL_MutexLock, mutex, 1);
    CALL(KEL_MutexUnLock, mutex);
  }
  CALL(KEL_MutexDestroy, mutex);
}

void UseSemaphore(KEL_SEMA *sema) {
  if (sema == nullptr)
    return;
  int32_t count = 0;
  for (const uint32_t timeout : {KEL_WAIT_FOREVER, 1u, 0u, 1u})
    CALL(KEL_SemaGet, sema, timeout);
  for (int i = 0; i < 2; ++i)
    CALL(KEL_SemaPut, sema);
  CALL(KEL_SemaStatus, sema, &count);
  CALL(KEL_SemaReset, sema);
  CALL(KEL_SemaDestroy, sema);
}
void Semaphore() {
  UseSemaphore(CALL(KEL_SemaCreate, nullptr, 2));
}
void NamedSemaphore() {
  UseSemaphore(CALL(KEL_SemaCreate, SystemName(), 2));
}
void ExistingSemaphore() {
  KEL_SEMA *first = CALL(KEL_SemaCreate, SystemName(), 2);
  UseSemaphore(CALL(KEL_SemaCreate, SystemName(), 9));
  if (first != nullptr)
    CALL(KEL_SemaDestroy, first);
}
void CustomSemaphore() {
  UseSemaphore(CALL(KEL_SemaCreate_Custom, SystemName(), 2, 1));
}
void MissingSemaphore() {
  UseSemaphore(CALL(KEL_SemaCreate_Custom, SystemName(), 2, 0));
}

void Event() {
  KEL_SEMA *event = CALL(KEL_EventCreate, nullptr);
  if (event == nullptr)
    return;
  int32_t count = 0;
  CALL(KEL_EventSend, event);
  CALL(KEL_EventStatus, event, &count);
  CALL(KEL_EventWait, event, 1);
  CALL(KEL_EventWait, event, 1);
  CALL(KEL_EventDestroy, event);
}

// ---- Threads ----

// Threads stay until the operation has had its say with them.
class Gate {
 public:
  Gate() { sem_init(&semaphore_, 0, 0); }
  void Open() { sem_post(&semaphore_); }
  void Pass() {
    while (sem_wait(&semaphore_) != 0) {
    }
  }

 private:
  sem_t semaphore_;
};
Gate may_go, is_going;

void *WaitAndReturn(void *arg) {
  may_go.Pass();
  return arg;
}
void *WaitAndTell(void *) {
  may_go.Pass();
  is_going.Open();
  return nullptr;
}
void *DetachAndTell(void *) {
  may_go.Pass();
  CALL(KEL_ThreadDetachSelf);
  is_going.Open();
  return nullptr;
}

void Thread() {
  int value = 0;
  void *result = nullptr;
  KEL_THREAD *thread = CALL(KEL_ThreadCreate, "sweep", 10, 256 * 1024, WaitAndReturn, &value);
  if (thread == nullptr)
    return;
  may_go.Open();
  CALL(KEL_ThreadDelete, thread, &result);
}
void DetachedThread() {
  KEL_THREAD *thread = CALL(KEL_ThreadCreate, nullptr, 0, 0, WaitAndTell, nullptr);
  if (thread == nullptr)
    return;
  CALL(KEL_ThreadDetach, thread);
  may_go.Open();
  is_going.Pass();
}
void SelfDetachingThread() {
  if (CALL(KEL_ThreadCreate, nullptr, 0, 0, DetachAndTell, nullptr) == nullptr)
    return;
  may_go.Open();
  is_going.Pass();
}

void Sleep() {
  CALL(KEL_ThreadSleep, 1);
  CALL(KEL_ThreadUSleep, 1);
}

int32_t Job(void *) {
  return 7;
}
void ThreadPool() {
  KEL_THREADPOOL *pool = CALL(KEL_ThreadPool_Create, "sweep", 0, 0, 2);
  if (pool == nullptr)
    return;
  int32_t result = 0;
  const int32_t number = CALL(KEL_ThreadPool_Run, pool, Job, nullptr);
  CALL(KEL_ThreadPool_Stop, pool, number, &result);
  CALL(KEL_ThreadPool_Delete, pool);
}

// The worker's own calls, from the end of its first job on: it tells that the job
// is done and waits for the next one.
std::atomic<pid_t> worker{0};
int32_t JobOfASweptWorker(void *) {
  may_go.Pass();
  StayInLibrary();
  worker = gettid();
  return 7;
}
// S for one that sleeps; nothing for one that has ended.
char StateOf(pid_t thread) {
  char text[256] = {};
  const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t size = file >= 0 ? read(file, text, sizeof text - 1) : -1;
  if (file >= 0)
    close(file);
  // "number (name) state ..."
  const char *name_end = strrchr(text, ')');
  return size > 0 && name_end != nullptr && strchr("ZX", name_end[2]) == nullptr ? name_end[2]
                                                                                 : '\0';
}
// The calls of both threads follow one another.
int32_t WorkerWaits(int32_t waits_before) {
  const Outside outside;
  char state = 'R';
  may_go.Open();
  while (worker == 0 || CallNamed("sem_wait").made() == waits_before ||
         ((state = StateOf(worker)) != 'S' && state != '\0'))
    sched_yield();
  return state == 'S' ? 1 : 0;
}
void ThreadPoolWorker() {
  KEL_THREADPOOL *pool = CALL(KEL_ThreadPool_Create, "sweep", 0, 0, 1);
  if (pool == nullptr)
    return;
  int32_t result = 0;
  worker = 0;
  const int32_t number = CALL(KEL_ThreadPool_Run, pool, JobOfASweptWorker, nullptr);
  if (number >= 0)
    Step("KEL_ThreadPool_Routine", WorkerWaits, CallNamed("sem_wait").made());
  CALL(KEL_ThreadPool_Stop, pool, number, &result);
  CALL(KEL_ThreadPool_Delete, pool);
}

// ---- Time ----

void NoCallback(void *) {}

void Timer() {
  KEL_TIMER *timer = CALL(KEL_TimerCreate, 3'600'000'000, NoCallback, nullptr);
  if (timer == nullptr)
    return;
  CALL(KEL_TimerStart, timer, 0, 1, nullptr, nullptr);
  CALL(KEL_TimerStop, timer);
  CALL(KEL_TimerDestroy, timer);
}
void TimerSignal() {
  KEL_TIMER *timer = CALL(KEL_TimerCreate, 3'600'000'000, NoCallback, nullptr);
  if (timer == nullptr)
    return;
  siginfo_t information = {};
  information.si_code = SI_QUEUE;
  information.si_value.sival_ptr = timer;
  CALL(KEL_Timer_Handler, SIGRTMIN + 4, &information, nullptr);
  CALL(KEL_TimerDestroy, timer);
}

// What clocks say is known only as something or nothing.
int32_t TickSays() {
  return KEL_GetSystemTick() != 0 && KEL_GetSystemTickUS() != 0 ? 1 : 0;
}
int32_t EpochSays() {
  return KEL_GetEpochTime() != 0 ? 1 : 0;
}
void System() {
  CALL(KEL_SystemInit, nullptr);
  tm date = {};
  CALL(KEL_GetlocalTime, &date);
  Step("KEL_GetSystemTick", TickSays);
  Step("KEL_GetEpochTime", EpochSays);
  CALL(KEL_SystemUnInit, nullptr);
}

}  // namespace

std::vector<Operation> SynchronisationOperations() {
  return {
      {.name = "Mutex", .run = Mutex},
      {.name = "MutexContended", .run = Mutex, .given = {{"pthread_mutex_trylock", EBUSY}}},
      {.name = "MutexHeld", .run = HeldMutex},
      {.name = "Semaphore", .run = Semaphore},
      {.name = "SemaphoreNamed", .run = NamedSemaphore},
      {.name = "SemaphoreExisting", .run = ExistingSemaphore},
      {.name = "SemaphoreCustom", .run = CustomSemaphore},
      {.name = "SemaphoreMissing", .run = MissingSemaphore},
      {.name = "Event", .run = Event},
      {.name = "Thread", .run = Thread},
      // The name is too long, and then the shorter one is tried.
      {.name = "ThreadNamedTwice", .run = Thread, .given = {{"pthread_setname_np", ERANGE, 1}}},
      {.name = "ThreadDetached", .run = DetachedThread},
      {.name = "ThreadDetachingItself", .run = SelfDetachingThread},
      {.name = "Sleep", .run = Sleep},
      // A worker that is not told of its job or its end sleeps for ever, and so does who
      // waits for a job that was not told to be done.
      {.name = "ThreadPool", .run = ThreadPool, .spared = {"sem_post"}},
      {.name = "ThreadPoolWorker", .run = ThreadPoolWorker, .spared = {"sem_post"}},
      {.name = "Timer", .run = Timer},
      {.name = "TimerSignal", .run = TimerSignal},
      {.name = "System", .run = System},
  };
}
