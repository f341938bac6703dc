// Messages between processes over POSIX message queues.

#include "kelcore_ipc.h"

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/deadline.h"
#include "internal/errno_guard.h"
#include "internal/trace.h"
#include "kelcore_sema.h"

KEL_TRACE_SOURCE("kelipc", "kelcore_ipc")

struct KEL_IPC {
  KEL_SEMA *sema;  // lets senders in; null for a custom queue without one
  int32_t queue;
  uint32_t count;
  uint32_t message_size;
  void *message;
};

struct KEL_IPC_MSG {
  int32_t queue;  // negative: none
  uint32_t max_size;
};

namespace {

constexpr int32_t kHeaderBytes = 16;
static_assert(sizeof(KEL_IPC_MSG_HEADER) == kHeaderBytes);
static_assert(O_RDWR == 0x2 && O_CREAT == 0x40 && O_NONBLOCK == 0x800 && O_WRONLY == 0x1);
constexpr mode_t kMode = 0666;

#define IPC_ERROR(func, ...) TRACE_AS(func, KEL_LEVEL_ERROR, __VA_ARGS__)

mqd_t open_queue(const char *name, int flags, int64_t count, int64_t size) {
  mq_attr attributes = {};
  attributes.mq_maxmsg = count;
  attributes.mq_msgsize = size;
  return mq_open(name, flags, kMode, &attributes);
}

// ---- First family ----

// The product wraps in 32 bits, above 4294 ms: receivers on the device have been
// tuned to it.
timespec deadline_of(uint32_t timeout) {
  constexpr uint32_t kNsPerSecond = 1'000'000'000;
  const uint32_t ns = timeout * 1'000'000;
  return kel::deadline_after({ns / kNsPerSecond, ns % kNsPerSecond});
}

// How a handle is opened, apart from its names.
struct Opening {
  const char *func;
  int flags;
  int32_t count;
  int32_t size;          // what the caller asked for
  int32_t message_size;  // what the queue is made for
};

bool open_parts(KEL_IPC *ipc, const char *name, const Opening &how) {
  ipc->count = static_cast<uint32_t>(how.count);
  ipc->message_size = static_cast<uint32_t>(how.message_size);
  ipc->queue = open_queue(name, how.flags, how.count, how.message_size);
  if (ipc->queue == -1) {
    IPC_ERROR(how.func, "mq_open failed err(%d) name(%s) count(%d) size(%d)\n", errno, name,
              how.count, how.size);
    return false;
  }
  ipc->message = KEL_Malloc(ipc->message_size, 0, 0, kTraceSource.file, __LINE__, how.func);
  if (ipc->message == nullptr) {
    // The queue stays open: a process short of memory keeps its place in it.
    IPC_ERROR(how.func, "ipc message buffer alloc fail. size(%d)\n", how.message_size);
    return false;
  }
  return true;
}

KEL_IPC *alloc_ipc(const char *func) {
  auto *ipc = kel::alloc_record<KEL_IPC>(kTraceSource, __LINE__, func);
  if (ipc == nullptr)
    IPC_ERROR(func, "ipc malloc failed size(%d)\n", static_cast<int>(sizeof(KEL_IPC)));
  return ipc;
}

KEL_IPC *abandon(KEL_IPC *ipc) {
  const kel::ErrnoGuard keep_errno;
  if (ipc->sema != nullptr)
    KEL_SemaDestroy(ipc->sema);
  KEL_Free(ipc, 0);
  return nullptr;
}

int32_t nonblock_flag(uint8_t nonblock) {
  return nonblock != 0 ? O_NONBLOCK : 0;
}

// A send in all its attempts; an interrupted one is repeated with a new
// deadline.
int32_t send(const KEL_IPC *ipc, const void *data, size_t length, uint32_t priority,
             uint32_t timeout, const char *func) {
  const auto *bytes = static_cast<const char *>(data);
  for (;;) {
    int result;
    if (timeout == 0) {
      result = mq_send(ipc->queue, bytes, length, priority);
    } else {
      const timespec deadline = deadline_of(timeout);
      result = mq_timedsend(ipc->queue, bytes, length, priority, &deadline);
    }
    if (result == 0) {
      TRACE_AS(func, KEL_LEVEL_TRACE, "Leave\n");
      return 0;
    }
    const int error = errno;
    mq_attr attributes = {};
    mq_getattr(ipc->queue, &attributes);
    errno = error;
    IPC_ERROR(func, "mq_send error. max(%d)cur(%d)\n", static_cast<int>(attributes.mq_maxmsg),
              static_cast<int>(attributes.mq_curmsgs));
    const auto tried = static_cast<int32_t>(timeout);
    switch (error) {
      case EINTR:
        IPC_ERROR(func, "mq_send(%d) interrupted. ret(%d) err(%d)\n", tried, result, error);
        continue;
      case EAGAIN:
        IPC_ERROR(func, "mq_send(%d) queue full error ret(%d) err(%d)\n", tried, result, error);
        break;
      case ETIMEDOUT:
        IPC_ERROR(func, "mq_send(%d) timeout error ret(%d) err(%d)\n", tried, result, error);
        break;
      case EMSGSIZE:
        IPC_ERROR(func, "mq_send(%d) message size error ret(%d) err(%d)\n", tried, result,
                  error);
        break;
      default:
        IPC_ERROR(func, "mq_send(%d) error ret(%d) err(%d)\n", tried, -1, error);
        break;
    }
    return -EINVAL;
  }
}

// The senders' turn, given back when the send is over, errno being kept.
class Turn {
 public:
  explicit Turn(KEL_SEMA *sema) : sema_(sema) { KEL_SemaGet(sema_, KEL_WAIT_FOREVER); }
  ~Turn() {
    const kel::ErrnoGuard keep_errno;
    KEL_SemaPut(sema_);
  }
  Turn(const Turn &) = delete;
  Turn &operator=(const Turn &) = delete;

 private:
  KEL_SEMA *sema_;
};

bool sendable(const KEL_IPC *ipc, const void *data, const char *func) {
  TRACE_AS(func, KEL_LEVEL_TRACE, "Enter\n");
  if (ipc != nullptr && data != nullptr)
    return true;
  IPC_ERROR(func, "invalid ipc handle(%p) or data(%p)\n", static_cast<const void *>(ipc), data);
  return false;
}

int32_t check_and_send(const KEL_IPC *ipc, const void *data, uint32_t length, size_t sent,
                       uint32_t priority, uint32_t timeout, const char *func) {
  if (length > ipc->message_size) {
    IPC_ERROR(func, "data size is too big max(%d)\n", static_cast<int32_t>(ipc->message_size));
    return -EINVAL;
  }
  return send(ipc, data, sent, priority, timeout, func);
}

int32_t receive_once(const KEL_IPC *ipc, void *buffer, uint32_t timeout) {
  auto *bytes = static_cast<char *>(buffer);
  ssize_t result;
  if (timeout == 0) {
    result = mq_receive(ipc->queue, bytes, ipc->message_size, nullptr);
  } else {
    const timespec deadline = deadline_of(timeout);
    result = mq_timedreceive(ipc->queue, bytes, ipc->message_size, nullptr, &deadline);
  }
  return result >= 0 ? 0 : -1;
}

}  // namespace

KEL_IPC *KEL_IPCOpen(const char *name, int32_t count, int32_t size, uint8_t nonblock) {
  TRACE_TRACE("Enter\n");
  KEL_IPC *ipc = alloc_ipc(__func__);
  if (ipc == nullptr)
    return nullptr;
  // Counts to the number of messages: so many senders may be inside at once.
  ipc->sema = KEL_SemaCreate(name, static_cast<uint32_t>(count));
  if (ipc->sema == nullptr) {
    TRACE_ERROR("mutex init failed\n");
    return abandon(ipc);
  }
  const auto message_size =
      static_cast<int32_t>(static_cast<uint32_t>(size) + uint32_t{kHeaderBytes});
  if (!open_parts(
          ipc, name,
          {__func__, O_RDWR | O_CREAT | nonblock_flag(nonblock), count, size, message_size}))
    return abandon(ipc);
  TRACE_TRACE("Leave\n");
  return ipc;
}

KEL_IPC *KEL_IPCOpen_CustomMsg(const char *name, int32_t count, int32_t size, uint8_t nonblock,
                               const char *sema_name, uint8_t create) {
  TRACE_TRACE("Enter\n");
  KEL_IPC *ipc = alloc_ipc(__func__);
  if (ipc == nullptr)
    return nullptr;
  if (sema_name != nullptr) {
    ipc->sema = KEL_SemaCreate_Custom(sema_name, static_cast<uint32_t>(count), create);
    if (ipc->sema == nullptr) {
      TRACE_ERROR("mutex init failed\n");
      return abandon(ipc);
    }
  }
  const int access = create != 0 ? O_RDWR | O_CREAT : O_WRONLY;
  if (!open_parts(ipc, name, {__func__, access | nonblock_flag(nonblock), count, size, size}))
    return abandon(ipc);
  TRACE_TRACE("Leave\n");
  return ipc;
}

void KEL_IPCClose(KEL_IPC *ipc) {
  TRACE_TRACE("Enter\n");
  if (ipc == nullptr)
    return;
  mq_close(ipc->queue);
  // Takes a turn without waiting and gives it back, to let a sender finish.
  KEL_SemaGet(ipc->sema, 0);
  KEL_SemaPut(ipc->sema);
  KEL_SemaDestroy(ipc->sema);
  // The message buffer lives on: messages in it may still be in use.
  KEL_Free(ipc, 0);
  TRACE_TRACE("Leave\n");
}

int32_t KEL_IPCSend(KEL_IPC *ipc, const void *message, uint32_t priority, uint32_t timeout) {
  if (!sendable(ipc, message, __func__))
    return -EINVAL;
  const Turn turn(ipc->sema);
  KEL_IPC_MSG_HEADER header;
  memcpy(&header, message, sizeof header);
  // Compared unsigned, so that a negative length is too big as well.
  const auto length = static_cast<uint32_t>(header.length);
  return check_and_send(ipc, message, length, size_t{length} + kHeaderBytes, priority, timeout,
                        __func__);
}

int32_t KEL_IPCSend_CustomMsg(KEL_IPC *ipc, const void *data, uint32_t length,
                              uint32_t timeout) {
  if (!sendable(ipc, data, __func__))
    return -EINVAL;
  if (ipc->sema == nullptr)
    return check_and_send(ipc, data, length, length, length, timeout, __func__);
  const Turn turn(ipc->sema);
  return check_and_send(ipc, data, length, length, length, timeout, __func__);
}

int32_t KEL_IPCReceive(KEL_IPC *ipc, void *buffer, uint32_t timeout) {
  if (ipc == nullptr || buffer == nullptr) {
    TRACE_ERROR("invalid ipc handle or data\n");
    return -EINVAL;
  }
  while (receive_once(ipc, buffer, timeout) != 0) {
    const int error = errno;
    if (error == ETIMEDOUT)
      return -ETIMEDOUT;
    if (error == EMSGSIZE) {
      mq_attr attributes = {};
      mq_getattr(ipc->queue, &attributes);
      TRACE_ERROR("mq receive errno(%d) msg size (%d:%d)\n", error,
                  static_cast<int>(attributes.mq_msgsize),
                  static_cast<int32_t>(ipc->message_size));
      errno = error;
    }
    if (error != EINTR) {
      TRACE_ERROR("mq receive errno(%d) timeout(%d)\n", error, static_cast<int32_t>(timeout));
      return -1;
    }
    TRACE_ERROR("mq receive interrupted. retry!\n");
  }
  return 0;
}

void *KEL_IPCGetMsg(KEL_IPC *ipc, uint32_t *size) {
  if (ipc == nullptr)
    return nullptr;
  if (size != nullptr)
    *size = ipc->message_size;
  return ipc->message;
}

int32_t KEL_IPCPutMsg(KEL_IPC *) {
  return 0;
}

// ---- Second family ----

namespace {

bool has_queue(const KEL_IPC_MSG *queue, const char *func) {
  const int32_t descriptor = queue != nullptr ? queue->queue : -1;
  if (descriptor >= 0)
    return true;
  IPC_ERROR(func, "No queue handle (%p, %d)\n", static_cast<const void *>(queue), descriptor);
  return false;
}

bool fits(const KEL_IPC_MSG *queue, uint32_t length, const char *func) {
  if (length <= queue->max_size)
    return true;
  IPC_ERROR(func, "size(%d) is over than max(%d)\n", static_cast<int32_t>(length),
            static_cast<int32_t>(queue->max_size));
  return false;
}

}  // namespace

KEL_IPC_MSG *KEL_IPC_MsgOpen(const char *name, uint32_t max_messages, uint32_t max_size,
                             uint8_t create) {
  KEL_IPC_MSG *queue = KEL_ALLOC(KEL_IPC_MSG);
  if (queue == nullptr)
    return nullptr;
  queue->queue =
      open_queue(name, create != 0 ? O_RDWR | O_CREAT : O_RDWR, max_messages, max_size);
  if (queue->queue == -1) {
    // The handle is kept on this path: it is small, and opening is seldom retried.
    TRACE_ERROR("mq_open(%s, %d, %d) failed (err: %d, %s)\n", name,
                static_cast<int32_t>(max_messages), static_cast<int32_t>(max_size), errno,
                strerror(errno));
    return nullptr;
  }
  queue->max_size = max_size;
  return queue;
}

int32_t KEL_IPC_MsgSend(KEL_IPC_MSG *queue, const void *data, uint32_t length) {
  if (!has_queue(queue, __func__) || !fits(queue, length, __func__))
    return -1;
  if (mq_send(queue->queue, static_cast<const char *>(data), length, 0) == 0)
    return 0;
  TRACE_ERROR("mq_send(%d, %p, %d) failed (err: %d, %s)\n", queue->queue, data,
              static_cast<int32_t>(length), errno, strerror(errno));
  return -1;
}

int32_t KEL_IPC_MsgRecv(KEL_IPC_MSG *queue, void *buffer, uint32_t length, int32_t timeout) {
  if (!has_queue(queue, __func__))
    return -1;
  if (!fits(queue, length, __func__))
    return 0;
  auto *bytes = static_cast<char *>(buffer);
  ssize_t result;
  if (timeout < 1) {
    result = mq_receive(queue->queue, bytes, length, nullptr);
  } else {
    const timespec deadline = kel::deadline_after_ms(static_cast<uint32_t>(timeout));
    result = mq_timedreceive(queue->queue, bytes, length, nullptr, &deadline);
  }
  if (result >= 0)
    return static_cast<int32_t>(result);
  TRACE_ERROR("mq_recv(%d, %p, %d) failed (err: %d, %s)\n", queue->queue, buffer,
              static_cast<int32_t>(length), errno, strerror(errno));
  return 0;
}

uint32_t KEL_IPC_MsgGetMaxSize(KEL_IPC_MSG *queue) {
  return queue != nullptr ? queue->max_size : 0;
}

void KEL_IPC_MsgClose(KEL_IPC_MSG *queue) {
  if (queue == nullptr)
    return;
  if (queue->queue != 0)
    mq_close(queue->queue);
  KEL_Free(queue, 0);
}
