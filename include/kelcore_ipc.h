/* Messages between processes over POSIX message queues.
 *
 * First family: a queue with a named semaphore for its senders, time-outs in
 * milliseconds, and a message that begins with a 16-byte header.
 *
 *     KEL_IPC *ipc = KEL_IPCOpen(name, 8, 256, 0);
 *     KEL_IPC_MSG_HEADER *m = KEL_IPCGetMsg(ipc, NULL);
 *     if (m != NULL) {
 *       m->length = 5; // payload bytes, behind the header
 *       memcpy(m + 1, "pause", 5);
 *       KEL_IPCSend(ipc, m, 0, 100);           // this process
 *       if (KEL_IPCReceive(ipc, m, 1000) == 0) // another one, with a handle of its own
 *         use(m + 1, m->length);
 *     }
 *     KEL_IPCClose(ipc);
 *     KEL_Free(m, 0);  // closing leaves the buffer
 *     mq_unlink(name); // and the queue
 *
 * Second family (KEL_IPC_Msg...): raw blocks, no lock, no header.
 *
 * Queues belong to the system: no call removes one, they stay until somebody
 * unlinks them (mq_unlink). The system limits their number, depth and message
 * size. Names begin with '/'. Traces under "kelipc".
 *
 * Surprises worth knowing:
 *  - A time-out of 0 is not "at once": the first family then waits without limit,
 *    unless the queue was opened with nonblock, and so does KEL_IPC_MsgRecv.
 *  - Time-outs of the first family above 4294 ms wrap around, those of sending and
 *    of receiving; so KEL_WAIT_FOREVER is no endless wait there.
 *  - A sender takes its turn at a semaphore of the system. One that is killed in
 *    mid-send never gives it back: after as many deaths as the semaphore has
 *    units every send waits for ever. Remove the names to begin anew.
 *  - KEL_IPCSend and KEL_IPCSend_CustomMsg, interrupted by a signal while they wait
 *    for their turn, go on without one and give one back: from then on the
 *    semaphore lets one sender more in.
 *  - A send or receive of the first family that a signal interrupts begins anew
 *    with its whole time-out: timers of a shorter period keep it from ending.
 *  - A custom message's priority is its length: longer ones are received
 *    first, and from 32,768 bytes on the kernel refuses them.
 *  - KEL_IPCClose does not free the handle's message buffer, and removes the
 *    semaphore's name from the system.
 *
 * Threads: any thread may make every call but closing a handle that others use.
 * Blocking: sending waits for a turn, without limit, and then for room, receiving
 * for a message, both for at most the time-out; opening never.
 * Null: a null handle is refused or ignored as told; names must not be null. */
#ifndef KELCORE_IPC_H
#define KELCORE_IPC_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_IPC KEL_IPC;
typedef struct KEL_IPC_MSG KEL_IPC_MSG;

/* What a standard message begins with; the payload follows at once. */
typedef struct KEL_IPC_MSG_HEADER {
  uint32_t word;    /* the application's own */
  int32_t length;   /* payload bytes */
  uint64_t further; /* the application's own */
} KEL_IPC_MSG_HEADER;

/* Opens the queue `name`, or creates it (mode 0666 less the umask) for `count`
 * messages of at most `size` payload bytes, and the semaphore of that name,
 * which lets `count` senders in. With `nonblock` non-zero a send or receive
 * without time-out fails at once instead of waiting. Returns a handle to be
 * closed with KEL_IPCClose; null on failure. */
KEL_API KEL_NODISCARD KEL_IPC *KEL_IPCOpen(const char *name, int32_t count, int32_t size,
                                           uint8_t nonblock);

/* As KEL_IPCOpen for messages without header of at most `size` bytes, and with
 * a semaphore only when `sema_name` is given. With `create` 0 the queue (and
 * semaphore) must exist and the handle can only send. Returns a handle to be
 * closed with KEL_IPCClose; null on failure. */
KEL_API KEL_NODISCARD KEL_IPC *KEL_IPCOpen_CustomMsg(const char *name, int32_t count,
                                                     int32_t size, uint8_t nonblock,
                                                     const char *sema_name, uint8_t create);

/* Closes the handle; null is ignored. The queue itself stays, the message
 * buffer stays allocated. */
KEL_API void KEL_IPCClose(KEL_IPC *ipc);

/* Sends a standard message, waiting at most `timeout` milliseconds for room
 * (0: as the queue was opened). Returns 0; -22 on any failure. */
KEL_API int32_t KEL_IPCSend(KEL_IPC *ipc, const void *message, uint32_t priority,
                            uint32_t timeout);

/* Sends `length` bytes with `length` as their priority. Returns 0 or -22. */
KEL_API int32_t KEL_IPCSend_CustomMsg(KEL_IPC *ipc, const void *data, uint32_t length,
                                      uint32_t timeout);

/* Receives one message into `buffer`, which has room for the queue's message
 * size (KEL_IPCGetMsg tells it), waiting at most `timeout` milliseconds (0: as
 * the queue was opened). Returns 0, not the length: a standard message tells its
 * own; -110 when the wait expired; -22 for a null
 * argument; -1 on any other failure. */
KEL_API int32_t KEL_IPCReceive(KEL_IPC *ipc, void *buffer, uint32_t timeout);

/* The handle's own message buffer, of the message size, which is written to
 * `size` unless that is null. Null gives null and leaves `size`. */
KEL_API void *KEL_IPCGetMsg(KEL_IPC *ipc, uint32_t *size);

/* Does nothing and returns 0, also for null: the buffer stays the handle's. */
KEL_API int32_t KEL_IPCPutMsg(KEL_IPC *ipc);

/* Opens a queue of raw blocks; with `create` non-zero it is made if missing,
 * for `max_messages` of at most `max_size` bytes (an existing one keeps its
 * own). Returns a handle to be closed with KEL_IPC_MsgClose; null on failure. */
KEL_API KEL_NODISCARD KEL_IPC_MSG *KEL_IPC_MsgOpen(const char *name, uint32_t max_messages,
                                                   uint32_t max_size, uint8_t create);

/* Sends `length` bytes, waiting for room without limit. Returns 0; -1 on
 * failure, for null, or when `length` is above the queue's size. */
KEL_API int32_t KEL_IPC_MsgSend(KEL_IPC_MSG *queue, const void *data, uint32_t length);

/* Receives a block into `buffer` of `length` bytes, waiting at most `timeout`
 * milliseconds (below 1: without limit). Returns its length; 0 on failure or
 * when `length` is above the queue's size; -1 for a handle without queue. */
KEL_API int32_t KEL_IPC_MsgRecv(KEL_IPC_MSG *queue, void *buffer, uint32_t length,
                                int32_t timeout);

/* The largest block in bytes; 0 for null. */
KEL_API uint32_t KEL_IPC_MsgGetMaxSize(KEL_IPC_MSG *queue);

/* Closes and releases the handle; null is ignored. */
KEL_API void KEL_IPC_MsgClose(KEL_IPC_MSG *queue);

KEL_END_DECLS

#endif
