// Threads and sleeps over POSIX threads.

#include "kelcore_thread.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <time.h>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/trace.h"
#include "kelcore_time.h"

KEL_TRACE_SOURCE("kelthread", "kelcore_thread")

namespace {

constexpr size_t kNameKept = 14;
constexpr size_t kShortName = 10;  // for systems with a tighter limit
constexpr uint32_t kFallbackStack = 0x20000;

constexpr const char kCreate[] = "KEL_ThreadCreate";
#define CREATE_ERROR(...) TRACE_AS(kCreate, KEL_LEVEL_ERROR, __VA_ARGS__)
#define CREATE_DEBUG(...) TRACE_AS(kCreate, KEL_LEVEL_DEBUG, __VA_ARGS__)

}  // namespace

struct KEL_THREAD {
  char name[kNameKept + 1];
  pthread_t id;
};

namespace {

bool set_priority(pthread_attr_t *attributes, uint32_t priority) {
  int error = pthread_attr_setinheritsched(attributes, PTHREAD_EXPLICIT_SCHED);
  if (error == 0)
    error = pthread_attr_setschedpolicy(attributes, SCHED_FIFO);
  if (error == 0)
    error = pthread_attr_setscope(attributes, PTHREAD_SCOPE_SYSTEM);
  if (error != 0) {
    CREATE_ERROR("pthread_attr_set... error(%d)\n", error);
    return false;
  }
  // A priority out of range shows when the thread is created.
  sched_param parameter{};
  parameter.sched_priority = static_cast<int>(priority);
  pthread_attr_setschedparam(attributes, &parameter);
  CREATE_DEBUG("thread priority (%d)\n", static_cast<int>(priority));
  return true;
}

bool set_stack_size(pthread_attr_t *attributes, uint32_t size) {
  int error = pthread_attr_setstacksize(attributes, size);
  if (error == EINVAL) {
    size = kFallbackStack;
    error = pthread_attr_setstacksize(attributes, size);
  }
  if (error != 0) {
    CREATE_ERROR("pthread_attr_setstacksize(%u) error(%d)\n", size, error);
    return false;
  }
  CREATE_DEBUG("stack size(%u)\n", size);
  return true;
}

// A thread without its name still does its work: failures are only traced.
void set_name(KEL_THREAD *thread, const char *name) {
  strncpy(thread->name, name, kNameKept);
  int result = pthread_setname_np(thread->id, thread->name);
  if (result == ERANGE) {
    thread->name[kShortName] = '\0';
    result = pthread_setname_np(thread->id, thread->name);
  }
  if (result != 0)
    CREATE_ERROR("pthread_setname_np (%s) ret(%d) err(%d: %s)\n", thread->name, result, errno,
                 strerror(errno));
  else
    CREATE_DEBUG("thread name (%s)\n", thread->name);
}

bool start(KEL_THREAD *thread, pthread_attr_t *attributes, const char *name, uint32_t priority,
           uint32_t stack_size, KEL_THREAD_ENTRY entry, void *arg) {
  if (priority != 0 && !set_priority(attributes, priority))
    return false;
  if (stack_size != 0 && !set_stack_size(attributes, stack_size))
    return false;
  const int error = pthread_create(&thread->id, attributes, entry, arg);
  if (error != 0) {
    CREATE_ERROR("pthread_create (%s) error(%d)\n", name != nullptr ? name : "(null)", error);
    return false;
  }
  CREATE_DEBUG("created thread id(%x)\n", kel::low32(uint64_t{thread->id}));
  if (name != nullptr)
    set_name(thread, name);
  return true;
}

// Signals do not shorten a sleep: what is left of it is slept again.
int32_t sleep_for(const char *func, timespec request) {
  timespec left{};
  while (nanosleep(&request, &left) != 0) {
    if (errno != EINTR) {
      TRACE_AS(func, KEL_LEVEL_TRACE, "__nanosleep error\n");
      return -1;
    }
    request = left;
  }
  return 0;
}

}  // namespace

KEL_THREAD *KEL_ThreadCreate(const char *name, uint32_t priority, uint32_t stack_size,
                             KEL_THREAD_ENTRY entry, void *arg) {
  KEL_THREAD *thread = KEL_ALLOC(KEL_THREAD);
  if (thread == nullptr) {
    TRACE_ERROR("memory alloc failed size(%d)\n", static_cast<int>(sizeof(KEL_THREAD)));
    return nullptr;
  }
  pthread_attr_t attributes;
  int error = pthread_attr_init(&attributes);
  if (error != 0) {
    TRACE_ERROR("pthread_attr_init error(%d)\n", error);
    KEL_Free(thread, 0);
    return nullptr;
  }
  if (!start(thread, &attributes, name, priority, stack_size, entry, arg)) {
    const kel::ErrnoGuard keep_errno;
    pthread_attr_destroy(&attributes);
    KEL_Free(thread, 0);
    return nullptr;
  }
  error = pthread_attr_destroy(&attributes);
  if (error != 0)
    TRACE_ERROR("pthread_attr_destroy error(%d)\n", error);
  TRACE_DEBUG("created thread success (%x)\n", kel::low32(thread));
  return thread;
}

int32_t KEL_ThreadDelete(KEL_THREAD *thread, void **result) {
  if (thread == nullptr)
    return -1;
  TRACE_TRACE("thread(%x) handle(%x)\n", kel::low32(uint64_t{thread->id}), kel::low32(thread));
  int32_t status = 0;
  const int error = pthread_join(thread->id, result);
  if (error != 0) {
    TRACE_ERROR("pthread_join error(%d)\n", error);
    status = -1;
  }
  TRACE_TRACE("handle(%x) freed\n", kel::low32(thread));
  KEL_Free(thread, 0);
  return status;
}

int32_t KEL_ThreadDetach(KEL_THREAD *thread) {
  if (thread == nullptr)
    return -1;
  const int error = pthread_detach(thread->id);
  if (error == 0)
    return 0;
  TRACE_ERROR("pthread_detach (%s) error(%d)\n", thread->name, error);
  return -1;
}

int32_t KEL_ThreadDetachSelf(void) {
  const int error = pthread_detach(pthread_self());
  if (error == 0)
    return 0;
  TRACE_ERROR("pthread_detach (self) error(%d)\n", error);
  return -1;
}

void KEL_ThreadExit(int32_t code) {
  TRACE_DEBUG("code(%d)\n", code);
  pthread_exit(reinterpret_cast<void *>(intptr_t{code}));
}

int32_t KEL_ThreadSleep(uint32_t ms) {
  timespec request;
  KEL_TimeMStoTimespec(ms, &request);
  return sleep_for(__func__, request);
}

int32_t KEL_ThreadUSleep(uint32_t us) {
  return sleep_for(__func__, {us / 1'000'000, us % 1'000'000 * 1'000L});
}

int32_t KEL_ThreadSetStatus(KEL_THREAD *, uint32_t) {
  return 0;
}
int32_t KEL_ThreadGetStatus(KEL_THREAD *) {
  return 0;
}
int32_t KEL_ThreadGetCurrentID(void) {
  return 0;
}
