// Message channel: a bounded queue, a wake-up count and a limit.

#include "kelcore_msg.h"

#include <errno.h>
#include <stddef.h>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/lock.h"
#include "internal/trace.h"
#include "kelcore_mutex.h"
#include "kelcore_queue.h"
#include "kelcore_sema.h"

KEL_TRACE_SOURCE("kelmsg", "kelcore_msg")

struct KEL_MSG {
  KEL_MUTEX *lock;  // serialises sends
  KEL_SEMA *sema;   // wake-ups for receivers
  uint32_t maxsize;
  // The slots, their area and their queue fix the channel's memory at creation;
  // payloads travel by pointer and do not use them.
  KEL_MSG_DESC *slots;
  uint8_t *area;
  uint32_t capacity;
  uint32_t limit;
  uint32_t pending;  // sent and not yet received; atomic
  KEL_QUEUE *messages;
  KEL_QUEUE *free_slots;
};

namespace {

constexpr uint32_t kDescriptorBytes = 16;
static_assert(sizeof(KEL_MSG_DESC) == kDescriptorBytes);
static_assert(sizeof(KEL_MSG) == 72);
static_assert(offsetof(KEL_MSG, slots) == 24 && offsetof(KEL_MSG, pending) == 48);

void release_locks(KEL_MSG *channel) {
  if (channel->lock != nullptr)
    KEL_MutexDestroy(channel->lock);
  if (channel->sema != nullptr)
    KEL_SemaDestroy(channel->sema);
}

void release_storage(KEL_MSG *channel) {
  KEL_Free(channel->area, 0);
  KEL_Free(channel->slots, 0);
  if (channel->free_slots != nullptr)
    KEL_QueueDestroy(channel->free_slots);
  if (channel->messages != nullptr)
    KEL_QueueDestroy(channel->messages);
}

constexpr const char kCreate[] = "KEL_MsgCreate";
#define CREATE_ERROR(...) TRACE_AS(kCreate, KEL_LEVEL_ERROR, __VA_ARGS__)

void *alloc_product(uint32_t count, uint32_t size) {
  if (!kel::product_fits(count, size))
    return nullptr;
  return KEL_Malloc(count * size, 0, 0, kTraceSource.file, __LINE__, kCreate);
}

bool build_slots(KEL_MSG *channel, uint32_t maxmsg, uint32_t maxsize) {
  channel->area = static_cast<uint8_t *>(alloc_product(maxmsg, maxsize));
  if (channel->area == nullptr) {
    CREATE_ERROR("data malloc failed maxmsg(%d) maxsize(%d)\n", static_cast<int32_t>(maxmsg),
                 static_cast<int32_t>(maxsize));
    return false;
  }
  channel->slots = static_cast<KEL_MSG_DESC *>(alloc_product(maxmsg, kDescriptorBytes));
  if (channel->slots == nullptr) {
    CREATE_ERROR("kelmsgdata alloc failed maxmsg(%d) nodesize(%d)\n",
                 static_cast<int32_t>(maxmsg), static_cast<int>(kDescriptorBytes));
    return false;
  }
  for (uint32_t i = 0; i < maxmsg; ++i) {
    channel->slots[i].data = channel->area + size_t{i} * maxsize;
    if (KEL_QueuePush(channel->free_slots, &channel->slots[i], kDescriptorBytes) != 0) {
      CREATE_ERROR("push to queue failed\n");
      return false;
    }
  }
  return true;
}

bool build(KEL_MSG *channel, uint32_t maxmsg, uint32_t maxsize) {
  channel->lock = KEL_MutexCreate();
  if (channel->lock == nullptr) {
    CREATE_ERROR("mutex create failed\n");
    return false;
  }
  // Starts at maxmsg: the first receives come back empty-handed at once, which
  // lets a consumer look around before the first message.
  channel->sema = KEL_SemaCreate(nullptr, maxmsg);
  if (channel->sema == nullptr) {
    CREATE_ERROR("event create failed\n");
    return false;
  }
  channel->messages = KEL_QueueCreate("kelmsg", maxmsg);
  if (channel->messages == nullptr) {
    CREATE_ERROR("queue create failed\n");
    return false;
  }
  channel->free_slots = KEL_QueueCreate("kelmsgfree", maxmsg);
  if (channel->free_slots == nullptr) {
    CREATE_ERROR("free queue create failed\n");
    return false;
  }
  return build_slots(channel, maxmsg, maxsize);
}

}  // namespace

KEL_MSG *KEL_MsgCreate(uint64_t, uint32_t maxmsg, uint32_t maxsize) {
  TRACE_TRACE("Enter\n");
  KEL_MSG *channel = KEL_ALLOC(KEL_MSG);
  if (channel == nullptr) {
    TRACE_ERROR("msg malloc failed size(%d)\n", static_cast<int>(sizeof(KEL_MSG)));
    return nullptr;
  }
  if (!build(channel, maxmsg, maxsize)) {
    const kel::ErrnoGuard keep_errno;
    release_locks(channel);
    release_storage(channel);
    KEL_Free(channel, 0);
    return nullptr;
  }
  channel->maxsize = maxsize;
  channel->capacity = maxmsg;
  channel->limit = maxmsg;
  TRACE_TRACE("Leave\n");
  return channel;
}

void KEL_MsgDestroy(KEL_MSG *channel) {
  TRACE_TRACE("Enter\n");
  release_storage(channel);
  release_locks(channel);
  KEL_Free(channel, 0);
  TRACE_TRACE("Leave\n");
}

int32_t KEL_MsgSend(KEL_MSG *channel, KEL_MSG_DESC *message) {
  TRACE_TRACE("Enter\n");
  if (channel == nullptr || message == nullptr) {
    TRACE_ERROR("invalid msg handle or data\n");
    return -EINVAL;
  }
  if ((message->data == nullptr) != (message->size == 0)) {
    TRACE_ERROR("invalid arguments data(%x) size(%d)\n", kel::low32(message->data),
                static_cast<int32_t>(message->size));
    return -EINVAL;
  }
  // Asked without the lock, to turn senders away early: two that race for the
  // last place both come through here, and the queue refuses the second.
  if (__atomic_load_n(&channel->pending, __ATOMIC_RELAXED) == channel->limit) {
    const auto limit = static_cast<int32_t>(channel->limit);
    TRACE_ERROR("msg queue full cur(%d) max(%d)\n", limit, limit);
    return -EBUSY;
  }
  if (message->data != nullptr && message->size > channel->maxsize) {
    TRACE_ERROR("data size is too big max(%d)\n", static_cast<int32_t>(channel->maxsize));
    return -EINVAL;
  }
  {
    const kel::ScopedLock lock(channel->lock);
    if (KEL_QueuePush(channel->messages, message, kDescriptorBytes) == -1) {
      TRACE_ERROR("mq_send error\n");
      return -EINVAL;
    }
    __atomic_fetch_add(&channel->pending, 1, __ATOMIC_RELAXED);
  }
  KEL_SemaPut(channel->sema);
  TRACE_TRACE("Leave\n");
  return 0;
}

int32_t KEL_MsgReceive(KEL_MSG *channel, KEL_MSG_DESC **message, uint32_t timeout) {
  if (message == nullptr)
    return -1;
  int32_t result = KEL_SemaGet(channel->sema, timeout);
  if (result != 0) {
    TRACE_ERROR("sema get failed.\n");
    return result;
  }
  // The queue writes the number that went in with the message, its size, over
  // the 0: that is the result.
  *message = static_cast<KEL_MSG_DESC *>(KEL_QueuePop(channel->messages, &result, 0));
  // Without the send lock. Every message taken is counted down exactly once,
  // also when it is taken before its sender has counted it up.
  if (*message != nullptr)
    __atomic_fetch_sub(&channel->pending, 1, __ATOMIC_RELAXED);
  return result;
}
