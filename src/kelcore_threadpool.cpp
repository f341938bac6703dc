// Thread pool: workers with a start and a done event each, kept in a list of
// the idle and a list of the busy ones.

#include "kelcore_threadpool.h"

#include <errno.h>
#include <stddef.h>

#include <initializer_list>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/trace.h"
#include "kelcore_event.h"
#include "kelcore_list_mutex.h"
#include "kelcore_string.h"
#include "kelcore_thread.h"

KEL_TRACE_SOURCE("kelthreadpool", "kelcore_threadpool")

namespace {

struct Worker {
  void *arg;
  KEL_JOB job;
  KEL_SEMA *start;
  KEL_SEMA *done;
  uint8_t running;  // 1 while the worker is to keep serving; atomic
  int32_t result;
};

}  // namespace

struct KEL_THREADPOOL {
  KEL_THREAD **threads;
  Worker *workers;
  KEL_SEMA **starts;
  KEL_SEMA **dones;
  int32_t count;
  KEL_LIST *idle;  // nodes carry worker numbers
  KEL_LIST *busy;
};

namespace {

constexpr const char kCreate[] = "KEL_ThreadPool_Create";
constexpr int32_t kNameBytes = 128;

bool running(const Worker *worker) {
  return __atomic_load_n(&worker->running, __ATOMIC_ACQUIRE) != 0;
}

void set_running(Worker *worker, bool on) {
  __atomic_store_n(&worker->running, on ? 1 : 0, __ATOMIC_RELEASE);
}

int32_t number_of(const KEL_LIST_NODE *node) {
  return static_cast<int32_t>(reinterpret_cast<intptr_t>(node->data));
}

KEL_LIST_NODE *node_for(int32_t number) {
  KEL_LIST_NODE *node = KEL_List_Node_new_data(reinterpret_cast<void *>(intptr_t{number}));
  if (node != nullptr)
    node->prev = node->next = nullptr;
  return node;
}

// Signals interrupt endless waits; a worker or collector must not take that
// for its event. False when the event cannot be waited for at all.
bool wait_for(KEL_SEMA *event) {
  int32_t result = 0;
  do
    result = KEL_EventWait(event, KEL_WAIT_FOREVER);
  while (result == -1 && errno == EINTR);
  return result == 0;
}

template <typename T>
bool alloc_array(T *&array, int32_t count) {
  // T is a pointer itself, for some: so many bytes are what an item takes.
  constexpr uint32_t kItemBytes = sizeof(T);  // NOLINT(bugprone-sizeof-expression)
  const auto items = static_cast<uint32_t>(count);
  if (kel::product_fits(items, kItemBytes))
    array = static_cast<T *>(
        KEL_Malloc(items * kItemBytes, 0, 0, kTraceSource.file, __LINE__, kCreate));
  return array != nullptr;
}

bool make_parts(KEL_THREADPOOL *pool) {
  if (!alloc_array(pool->threads, pool->count) || !alloc_array(pool->workers, pool->count) ||
      !alloc_array(pool->starts, pool->count) || !alloc_array(pool->dones, pool->count))
    return false;
  for (KEL_SEMA **events : {pool->starts, pool->dones})
    for (int32_t i = 0; i < pool->count; ++i)
      if ((events[i] = KEL_EventCreate(nullptr)) == nullptr)
        return false;
  pool->idle = KEL_ListCreate();
  pool->busy = KEL_ListCreate();
  return pool->idle != nullptr && pool->busy != nullptr;
}

bool start_worker(KEL_THREADPOOL *pool, int32_t number, const char *prefix, uint32_t priority,
                  uint32_t stack_size) {
  char name[kNameBytes] = "";
  KEL_snprintf(name, kNameBytes, "%s_rt_%04d", prefix, number);
  Worker *worker = &pool->workers[number];
  worker->start = pool->starts[number];
  worker->done = pool->dones[number];
  set_running(worker, true);
  pool->threads[number] =
      KEL_ThreadCreate(name, priority, stack_size, KEL_ThreadPool_Routine, worker);
  if (pool->threads[number] == nullptr)
    return false;
  KEL_LIST_NODE *node = node_for(number);
  if (node == nullptr)
    return false;
  KEL_ListAddTail(pool->idle, node);
  return true;
}

void drop_nodes(KEL_LIST *list) {
  while (KEL_LIST_NODE *node = KEL_ListGetHead(list)) {
    KEL_ListDel(list, node);
    KEL_List_Node_delete(node);
  }
}

// Ends and releases one worker, as far as it was made.
void release_worker(KEL_THREADPOOL *pool, int32_t number) {
  if (pool->threads[number] != nullptr) {
    set_running(&pool->workers[number], false);
    KEL_EventSend(pool->starts[number]);
    KEL_ThreadDelete(pool->threads[number], nullptr);
  }
  for (KEL_SEMA **events : {pool->starts, pool->dones})
    if (events[number] != nullptr)
      KEL_EventDestroy(events[number]);
}

void release(KEL_THREADPOOL *pool) {
  const kel::ErrnoGuard keep_errno;
  // Where the last array is missing no worker has anything yet.
  for (int32_t i = 0; pool->dones != nullptr && i < pool->count; ++i)
    release_worker(pool, i);
  for (KEL_LIST *list : {pool->idle, pool->busy}) {
    if (list == nullptr)
      continue;
    drop_nodes(list);
    KEL_ListDestroy(list);
  }
  KEL_Free(pool->starts, 0);
  KEL_Free(pool->dones, 0);
  KEL_Free(pool->workers, 0);
  KEL_Free(pool->threads, 0);
  KEL_Free(pool, 0);
}

}  // namespace

KEL_THREADPOOL *KEL_ThreadPool_Create(const char *prefix, uint32_t priority,
                                      uint32_t stack_size, int32_t count) {
  if (count < 1)
    return nullptr;
  KEL_THREADPOOL *pool = KEL_ALLOC(KEL_THREADPOOL);
  if (pool == nullptr) {
    TRACE_ERROR("out of memory.\n");
    return nullptr;
  }
  pool->count = count;
  if (!make_parts(pool)) {
    TRACE_ERROR("out of memory.\n");
    release(pool);
    return nullptr;
  }
  for (int32_t i = 0; i < count; ++i) {
    if (!start_worker(pool, i, prefix, priority, stack_size)) {
      release(pool);
      return nullptr;
    }
  }
  return pool;
}

int32_t KEL_ThreadPool_Run(KEL_THREADPOOL *pool, KEL_JOB job, void *arg) {
  if (pool == nullptr)
    return -1;
  KEL_LIST_NODE *node = KEL_ListGetHead(pool->idle);
  if (node == nullptr)
    return -1;
  KEL_ListDel(pool->idle, node);
  KEL_ListAddTail(pool->busy, node);

  const int32_t number = number_of(node);
  Worker *worker = &pool->workers[number];
  worker->job = job;
  worker->arg = arg;
  set_running(worker, true);
  worker->result = 0;
  KEL_EventSend(worker->start);
  return number;
}

int32_t KEL_ThreadPool_Stop(KEL_THREADPOOL *pool, int32_t number, int32_t *result) {
  if (pool == nullptr || number < 0)
    return -1;
  KEL_LIST_NODE *node = KEL_ListGetHead(pool->busy);
  while (node != nullptr && number_of(node) != number)
    node = KEL_ListGetNext(pool->busy, node);
  if (node == nullptr)
    return -1;
  KEL_ListDel(pool->busy, node);

  Worker *worker = &pool->workers[number];
  if (!wait_for(worker->done)) {
    KEL_ListAddTail(pool->busy, node);
    return -1;
  }
  if (result != nullptr)
    *result = worker->result;
  KEL_ListAddTail(pool->idle, node);
  return 0;
}

void KEL_ThreadPool_Delete(KEL_THREADPOOL *pool) {
  if (pool != nullptr)
    release(pool);
}

void *KEL_ThreadPool_Routine(void *slot) {
  auto *worker = static_cast<Worker *>(slot);
  while (running(worker) && wait_for(worker->start) && running(worker)) {
    worker->result = worker->job(worker->arg);
    KEL_EventSend(worker->done);
  }
  KEL_ThreadExit(0);
}
