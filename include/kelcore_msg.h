/* Message channel: messages between the threads of one process.
 *
 *     KEL_MSG *channel = KEL_MsgCreate(0, 16, 4096);
 *     KEL_MSG_DESC message = {kFrame, length, bytes}, *got;
 *     if (channel != NULL) {
 *       KEL_MsgSend(channel, &message); // any thread
 *       int32_t result;
 *       do // 0 says "nothing yet": a new channel does so up to 16 times
 *         result = KEL_MsgReceive(channel, &got, 1000);
 *       while (result == 0);
 *       if (result == KEL_MSG_RECEIVED)
 *         use(got);
 *       KEL_MsgDestroy(channel);
 *     }
 *
 * Only pointers travel: the receiver gets the very descriptor that was sent.
 * The sender keeps descriptor and payload alive and unchanged until then, and
 * the two sides agree who releases them. Traces under "kelmsg".
 *
 * Surprise worth knowing: on a new channel the first maxmsg receives return 0
 * at once with a null descriptor, for the wake-up count starts at maxmsg.
 * Receive again, or take those units first.
 *
 * Threads: any number send and receive; nobody may use a channel that is being
 * destroyed.
 * Blocking: KEL_MsgReceive, for at most its time-out; sending never waits for
 * room.
 * Null: the channel must not be null but for KEL_MsgSend, which refuses it. */
#ifndef KELCORE_MSG_H
#define KELCORE_MSG_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_MSG KEL_MSG;

/* A message: it travels by its address. */
typedef struct KEL_MSG_DESC {
  uint32_t word; /* the application's own: a type, an identifier */
  uint32_t size; /* payload bytes */
  void *data;    /* payload; null exactly when size is 0 */
} KEL_MSG_DESC;

/* What KEL_MsgReceive returns when it has taken a message. */
#define KEL_MSG_RECEIVED 16

/* A channel for at most `maxmsg` pending messages of at most `maxsize` payload
 * bytes; `ignored` is not used. Memory for maxmsg x maxsize bytes is taken at
 * creation. Owned by the caller until KEL_MsgDestroy; null on failure. */
KEL_API KEL_NODISCARD KEL_MSG *KEL_MsgCreate(uint64_t ignored, uint32_t maxmsg,
                                             uint32_t maxsize);

/* Releases the channel (must not be null), not the messages in it. No other
 * thread may be using it. */
KEL_API void KEL_MsgDestroy(KEL_MSG *channel);

/* Posts a message; never waits for room. Returns 0; -16 when the channel is
 * full (asked first); -22 for a null argument, data and size that do not go
 * together, a size above maxsize, or when the queue refused it. Any number of
 * threads may send. */
KEL_API int32_t KEL_MsgSend(KEL_MSG *channel, KEL_MSG_DESC *message);

/* Takes the oldest message into `*message`, waiting at most `timeout`
 * milliseconds. Returns KEL_MSG_RECEIVED; 0 with a null descriptor for a
 * wake-up without a message; -110 when the wait expired; -1 when there was
 * none (timeout 0), the wait failed, or `message` is null. The channel must
 * not be null. Any number of threads may receive. */
KEL_API int32_t KEL_MsgReceive(KEL_MSG *channel, KEL_MSG_DESC **message, uint32_t timeout);

KEL_END_DECLS

#endif
