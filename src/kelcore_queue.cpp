// Queue: one locking and waking frame over two kinds of storage.
//
// A popper never sleeps with the lock held: it publishes that it waits, gives
// the lock back and sleeps on an event. A pusher sends the event only when
// somebody waits, so pushes to a queue without a sleeper cost no system call.

#include "kelcore_queue.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/lock.h"
#include "internal/plain_list.h"
#include "internal/pooled_record.h"
#include "internal/relaxed.h"
#include "internal/trace.h"
#include "kelcore_event.h"
#include "kelcore_list.h"
#include "kelcore_mutex.h"

KEL_TRACE_SOURCE("kelqueue", "kelcore_queue")

namespace {

struct Entry {
  int32_t param;
  void *data;
  Entry *next;  // next and prev: in the chain of an unbounded queue only
  Entry *prev;
};

}  // namespace

struct KEL_QUEUE {
  char *name;  // from strdup, or null
  Entry *head;
  Entry *tail;
  KEL_MUTEX *lock;  // guards all below but waiting and release
  int32_t waiting;  // 1 while a popper sleeps on data_event
  KEL_SEMA *space_event;
  KEL_SEMA *data_event;
  uint8_t release;
  int32_t count;
  uint32_t maxnode;  // 0: unbounded
  KEL_NLIST *free_nodes;
  KEL_NLIST *busy_nodes;
  Entry *entries;
  KEL_NLIST_NODE *nodes;  // node i carries entry i
};

namespace {

using kel::load_relaxed;
using kel::store_relaxed;

constexpr uint32_t kEntryBytes = 32;
static_assert(sizeof(Entry) == kEntryBytes);
static_assert(offsetof(Entry, data) == 8 && offsetof(Entry, prev) == 24);
static_assert(sizeof(KEL_QUEUE) == 104);
static_assert(offsetof(KEL_QUEUE, waiting) == 32 && offsetof(KEL_QUEUE, data_event) == 48 &&
              offsetof(KEL_QUEUE, count) == 60 && offsetof(KEL_QUEUE, busy_nodes) == 80);

enum class End { kHead, kTail };

bool bounded(const KEL_QUEUE *queue) {
  return queue->maxnode != 0;
}

const char *shown_name(const KEL_QUEUE *queue) {
  return queue->name != nullptr ? queue->name : "";
}

// Set and cleared as a flag is handed over. Being sequentially consistent, a
// change is a full barrier: what was pushed before is seen by whoever is woken.
void change_waiting(KEL_QUEUE *queue, int32_t from, int32_t to) {
  __atomic_compare_exchange_n(&queue->waiting, &from, to, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
}

// ---- Unbounded: a chain of entries, one allocated per push ----
//
// The count tells whether the chain is empty. Taking from the tail leaves the
// new last entry's next link, and in the end the head, on an entry that is
// freed: nothing follows a link beyond the count.

class Chain {
 public:
  static bool empty(const KEL_QUEUE *queue) {
    return load_relaxed(queue->count) == 0 || load_relaxed(queue->head) == nullptr;
  }

  static bool put(KEL_QUEUE *queue, void *data, int32_t param, End end, const char *func) {
    auto *entry =
        static_cast<Entry *>(kel::pooled_record_new(kEntryBytes, kTraceSource, __LINE__, func));
    if (entry == nullptr) {
      TRACE_AS(func, KEL_LEVEL_ERROR, "kelqueue node alloc failed. size(%d)\n",
               static_cast<int>(kEntryBytes));
      return false;
    }
    *entry = {param, data, nullptr, nullptr};
    if (empty(queue)) {
      store_relaxed(queue->head, entry);
      queue->tail = entry;
    } else if (end == End::kTail) {
      entry->prev = queue->tail;
      queue->tail->next = entry;
      queue->tail = entry;
    } else {
      entry->next = queue->head;
      queue->head->prev = entry;
      store_relaxed(queue->head, entry);
    }
    return true;
  }

  static void *take(KEL_QUEUE *queue, int32_t *param, End end, const char *func) {
    Entry *entry = end == End::kHead ? queue->head : queue->tail;
    if (param != nullptr)
      *param = entry->param;
    void *data = entry->data;
    if (end == End::kHead)
      unlink_head(queue, entry, func);
    else
      unlink_tail(queue, entry);
    kel::pooled_record_delete(entry, kEntryBytes);
    return data;
  }

  static const Entry *oldest(const KEL_QUEUE *queue) { return queue->head; }

  static void drop_all(KEL_QUEUE *queue) {
    Entry *entry = queue->head;
    for (int32_t left = queue->count; left > 0; --left) {
      Entry *next = entry->next;
      kel::pooled_record_delete(entry, kEntryBytes);
      entry = next;
    }
  }

 private:
  static void trace_empty(const KEL_QUEUE *queue, const char *func) {
    TRACE_AS(func, KEL_LEVEL_TRACE, "got a node. queue(%x) is a empty.\n", kel::low32(queue));
  }

  static void unlink_head(KEL_QUEUE *queue, const Entry *entry, const char *func) {
    store_relaxed(queue->head, entry->next);
    if (queue->head == nullptr) {
      trace_empty(queue, func);
      queue->tail = nullptr;
    } else if (queue->count > 1) {
      queue->head->prev = nullptr;
    }
  }

  // The head stays where it is, also when its entry goes.
  static void unlink_tail(KEL_QUEUE *queue, const Entry *entry) { queue->tail = entry->prev; }
};

// ---- Bounded: nodes made at creation move between a free and a busy list ----

class NodePool {
 public:
  static bool empty(const KEL_QUEUE *queue) {
    return load_relaxed(queue->busy_nodes->head) == nullptr;
  }
  static bool full(const KEL_QUEUE *queue) {
    return load_relaxed(queue->free_nodes->head) == nullptr;
  }

  static bool create(KEL_QUEUE *queue, uint32_t maxnode, const char *func) {
    queue->free_nodes = KEL_NListCreate();
    queue->busy_nodes = KEL_NListCreate();
    if (queue->free_nodes == nullptr || queue->busy_nodes == nullptr ||
        !kel::product_fits(maxnode, kEntryBytes))
      return false;
    queue->entries = static_cast<Entry *>(
        KEL_Malloc(maxnode * kEntryBytes, 0, 0, kTraceSource.file, __LINE__, func));
    if (queue->entries == nullptr)
      return false;
    constexpr uint32_t kNodeBytes = sizeof(KEL_NLIST_NODE);
    queue->nodes = static_cast<KEL_NLIST_NODE *>(
        KEL_Malloc(maxnode * kNodeBytes, 0, 0, kTraceSource.file, __LINE__, func));
    if (queue->nodes == nullptr)
      return false;
    for (uint32_t i = 0; i < maxnode; ++i) {
      queue->nodes[i].data = &queue->entries[i];
      if (kel::PlainList::add_tail(queue->free_nodes, &queue->nodes[i]) != 0) {
        TRACE_AS(func, KEL_LEVEL_TRACE, "queue node pool add fail.\n");
        return false;
      }
    }
    return true;
  }

  static void release(KEL_QUEUE *queue) {
    KEL_Free(queue->entries, 0);
    KEL_Free(queue->nodes, 0);
    if (queue->free_nodes != nullptr)
      KEL_NListDestroy(queue->free_nodes);
    if (queue->busy_nodes != nullptr)
      KEL_NListDestroy(queue->busy_nodes);
  }

  static bool put(KEL_QUEUE *queue, void *data, int32_t param, End end, const char *func) {
    KEL_NLIST_NODE *node = kel::PlainList::head(queue->free_nodes, kel::PlainPolicy::kHead);
    if (node == nullptr) {
      trace_full(queue, end, func);
      return false;
    }
    kel::PlainList::del(queue->free_nodes, node);
    auto *entry = static_cast<Entry *>(node->data);
    entry->param = param;
    entry->data = data;
    const int32_t added = end == End::kTail ? kel::PlainList::add_tail(queue->busy_nodes, node)
                                            : kel::PlainList::add_head(queue->busy_nodes, node);
    if (added != 0) {
      // Log readers know this failure by the name of the other list.
      TRACE_AS(func, KEL_LEVEL_ERROR, "add fail to freenode list\n");
      return false;
    }
    return true;
  }

  // False when the node could not be given back: it is lost to the pool, the
  // count stays, and the caller gets nothing.
  static bool take(KEL_QUEUE *queue, void **data, int32_t *param, End end, const char *func) {
    KEL_NLIST_NODE *node =
        end == End::kHead ? kel::PlainList::head(queue->busy_nodes, kel::PlainPolicy::kHead)
                          : KEL_NListGetTail(queue->busy_nodes);
    kel::PlainList::del(queue->busy_nodes, node);
    const auto *entry = static_cast<const Entry *>(node->data);
    if (param != nullptr)
      *param = entry->param;
    *data = entry->data;
    if (kel::PlainList::add_tail(queue->free_nodes, node) != 0) {
      TRACE_AS(func, KEL_LEVEL_ERROR, "add tail failed to freenode.\n");
      return false;
    }
    return true;
  }

  static const Entry *oldest(const KEL_QUEUE *queue) {
    return static_cast<const Entry *>(queue->busy_nodes->head->data);
  }

  static void drop_all(KEL_QUEUE *queue) {
    while (KEL_NLIST_NODE *node = queue->busy_nodes->head) {
      kel::PlainList::del(queue->busy_nodes, node);
      kel::PlainList::add_tail(queue->free_nodes, node);
    }
  }

 private:
  static void trace_full(const KEL_QUEUE *queue, End end, const char *func) {
    const auto busy = static_cast<int32_t>(queue->busy_nodes->count);
    const auto free = static_cast<int32_t>(queue->free_nodes->count);
    if (end == End::kTail)
      TRACE_AS(func, KEL_LEVEL_ERROR, "%s freenode list is empty busy(%d) free(%d)\n",
               shown_name(queue), busy, free);
    else
      TRACE_AS(func, KEL_LEVEL_ERROR, "freenode list is empty busy(%d) free(%d)\n", busy, free);
  }
};

// ---- The frame ----

bool empty(const KEL_QUEUE *queue) {
  return bounded(queue) ? NodePool::empty(queue) : Chain::empty(queue);
}

bool lock_or_trace(const kel::ScopedLock &lock, const char *func) {
  if (!lock.held())
    TRACE_AS(func, KEL_LEVEL_ERROR, "mutex lock failed\n");
  return lock.held();
}

void wake_sleeper(KEL_QUEUE *queue) {
  if (load_relaxed(queue->waiting) <= 0)
    return;
  // Sent also when another one took the flag first: a spare event is harmless.
  change_waiting(queue, 1, 0);
  KEL_EventSend(queue->data_event);
}

int32_t push(KEL_QUEUE *queue, void *data, int32_t param, End end, const char *func) {
  if (queue == nullptr)
    return -1;
  const kel::ScopedLock lock(queue->lock);
  if (!lock_or_trace(lock, func))
    return -1;
  const bool stored = bounded(queue) ? NodePool::put(queue, data, param, end, func)
                                     : Chain::put(queue, data, param, end, func);
  if (!stored)
    return -1;
  store_relaxed(queue->count, queue->count + 1);
  wake_sleeper(queue);
  return 0;
}

void trace_woken_for_nothing(const KEL_QUEUE *queue, End end, const char *func) {
  if (end == End::kHead)
    TRACE_AS(func, KEL_LEVEL_INFO, "[%s] received event but no data (size:%d)\n",
             shown_name(queue), queue->count);
  else
    TRACE_AS(func, KEL_LEVEL_ERROR, "received event but no data\n");
}

// Sleeps until a push or a release, the lock given back meanwhile. True when
// there may be something to take, the lock being held again then.
bool sleep_for_data(KEL_QUEUE *queue, kel::ScopedLock &lock, uint32_t timeout, End end,
                    const char *func) {
  change_waiting(queue, 0, 1);
  lock.unlock();
  if (KEL_EventWait(queue->data_event, timeout) != 0) {
    if (bounded(queue))
      TRACE_AS(func, KEL_LEVEL_DEBUG, "queue wait timeout (%d)ms\n",
               static_cast<int32_t>(timeout));
    change_waiting(queue, 1, 0);
    return false;
  }
  // Woken without data, an unbounded queue keeps its release flag for the next.
  if (!bounded(queue) && empty(queue))
    return false;
  lock.relock();
  if (!lock_or_trace(lock, func))
    return false;
  if (bounded(queue) && empty(queue)) {
    trace_woken_for_nothing(queue, end, func);
    return false;
  }
  return true;
}

void *pop(KEL_QUEUE *queue, int32_t *param, uint32_t timeout, End end, const char *func) {
  if (queue == nullptr)
    return nullptr;
  kel::ScopedLock lock(queue->lock);
  if (!lock_or_trace(lock, func))
    return nullptr;
  if (empty(queue) && (timeout == 0 || !sleep_for_data(queue, lock, timeout, end, func)))
    return nullptr;

  void *data = nullptr;
  if (bounded(queue)) {
    if (!NodePool::take(queue, &data, param, end, func))
      return nullptr;
  } else {
    if (load_relaxed(queue->release) != 0) {
      store_relaxed(queue->release, 0);
      return nullptr;
    }
    // Another consumer may have been quicker between the event and the lock.
    if (empty(queue))
      return nullptr;
    data = Chain::take(queue, param, end, func);
  }
  store_relaxed(queue->count, queue->count - 1);
  return data;
}

// Releases whatever has been made so far; shared by destruction and by a
// creation that fails half-way.
void release(KEL_QUEUE *queue) {
  const kel::ErrnoGuard keep_errno;
  KEL_MutexDestroy(queue->lock);
  if (queue->data_event != nullptr)
    KEL_EventDestroy(queue->data_event);
  if (queue->space_event != nullptr)
    KEL_EventDestroy(queue->space_event);
  if (bounded(queue))
    NodePool::release(queue);
  else
    Chain::drop_all(queue);
  free(queue->name);
  KEL_Free(queue, 0);
}

bool build(KEL_QUEUE *queue, const char *name, uint32_t maxnode, const char *func) {
  if (name != nullptr)
    queue->name = strdup(name);
  queue->lock = KEL_MutexCreate();
  if (queue->lock == nullptr) {
    TRACE_AS(func, KEL_LEVEL_ERROR, "kelqueue lock create failed.\n");
    return false;
  }
  TRACE_AS(func, KEL_LEVEL_TRACE, "kelqueue lock created (%x)\n", kel::low32(queue->lock));
  queue->data_event = KEL_EventCreate(nullptr);
  if (queue->data_event != nullptr)
    queue->space_event = KEL_EventCreate(nullptr);
  if (queue->space_event == nullptr) {
    TRACE_AS(func, KEL_LEVEL_ERROR, "kelqueue event create failed.\n");
    return false;
  }
  queue->maxnode = maxnode;
  return !bounded(queue) || NodePool::create(queue, maxnode, func);
}

}  // namespace

KEL_QUEUE *KEL_QueueCreate(const char *name, uint32_t maxnode) {
  KEL_QUEUE *queue = KEL_ALLOC(KEL_QUEUE);
  if (queue == nullptr) {
    TRACE_ERROR("kelqueue alloc failed. size(%d)\n", static_cast<int>(sizeof(KEL_QUEUE)));
    return nullptr;
  }
  if (!build(queue, name, maxnode, __func__)) {
    release(queue);
    return nullptr;
  }
  TRACE_TRACE("kelqueue event created (%x)\n", kel::low32(queue->data_event));
  TRACE_TRACE("kelqueue event created (%x)\n", kel::low32(queue->space_event));
  TRACE_TRACE("kelqueue handle(%x) maxnode(%d)\n", kel::low32(queue),
              static_cast<int32_t>(maxnode));
  return queue;
}

void KEL_QueueDestroy(KEL_QUEUE *queue) {
  TRACE_DEBUG("Enter queue(%x)\n", kel::low32(queue));
  if (queue == nullptr) {
    TRACE_ERROR("invalid queue handle\n");
    return;
  }
  release(queue);
  TRACE_DEBUG("Leave.\n");
}

int32_t KEL_QueueReset(KEL_QUEUE *queue) {
  if (queue == nullptr) {
    TRACE_ERROR("invalid queue handle\n");
    return -1;
  }
  const kel::ScopedLock lock(queue->lock);
  if (!lock_or_trace(lock, __func__))
    return -1;
  if (bounded(queue))
    NodePool::drop_all(queue);
  else
    Chain::drop_all(queue);
  store_relaxed(queue->head, nullptr);
  queue->tail = nullptr;
  store_relaxed(queue->count, 0);
  return 0;
}

int32_t KEL_QueuePush(KEL_QUEUE *queue, void *data, int32_t param) {
  return push(queue, data, param, End::kTail, __func__);
}

int32_t KEL_QueuePush2Head(KEL_QUEUE *queue, void *data, int32_t param) {
  return push(queue, data, param, End::kHead, __func__);
}

void *KEL_QueuePop(KEL_QUEUE *queue, int32_t *param, uint32_t timeout) {
  return pop(queue, param, timeout, End::kHead, __func__);
}

void *KEL_QueuePopTail(KEL_QUEUE *queue, int32_t *param, uint32_t timeout) {
  return pop(queue, param, timeout, End::kTail, __func__);
}

void *KEL_QueuePeek(KEL_QUEUE *queue, int32_t *param) {
  if (queue == nullptr)
    return nullptr;
  kel::ScopedLock lock(queue->lock);
  if (!lock_or_trace(lock, __func__))
    return nullptr;
  if (empty(queue)) {
    // Peeking is only for a queue known to hold something. The lock stays
    // taken, so that a consumer that gets this wrong stops at once.
    lock.keep();
    return nullptr;
  }
  const Entry *entry = bounded(queue) ? NodePool::oldest(queue) : Chain::oldest(queue);
  if (param != nullptr)
    *param = entry->param;
  return entry->data;
}

int32_t KEL_QueuePopRelease(KEL_QUEUE *queue) {
  if (queue == nullptr)
    return 0;
  store_relaxed(queue->release, 1);
  KEL_EventSend(queue->data_event);
  return 0;
}

const char *KEL_QueueGetName(KEL_QUEUE *queue) {
  return queue != nullptr ? queue->name : nullptr;
}

int32_t KEL_QueueGetSize(KEL_QUEUE *queue) {
  return queue != nullptr ? load_relaxed(queue->count) : 0;
}

int32_t KEL_QueueFull(KEL_QUEUE *queue) {
  if (queue == nullptr)
    return -1;
  return bounded(queue) && NodePool::full(queue) ? 1 : 0;
}

int32_t KEL_QueueEmpty(KEL_QUEUE *queue) {
  if (queue == nullptr)
    return -1;
  return empty(queue) ? 1 : 0;
}
