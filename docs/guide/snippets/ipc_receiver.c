/* Queues of the system: a clean start, waits in pieces, lengths that are checked. */
#include <errno.h>
#include <kelcore_ipc.h>
#include <kelcore_mem.h>
#include <kelcore_time.h>
#include <mqueue.h>
#include <semaphore.h>
#include <string.h>
#include <unistd.h>

#include "require.h"

enum { kMessages = 4, kPayload = 64, kWaitMs = 4000 };

struct message {
  KEL_IPC_MSG_HEADER header;
  char payload[kPayload];
};

/* --- clean start --- */
/* The one who serves the queue removes what a killed predecessor has left. */
static KEL_IPC *serve(const char *name) {
  mq_unlink(name);
  sem_unlink(name); /* the senders' semaphore bears the same name */
  return KEL_IPCOpen(name, kMessages, kPayload, 0);
}

static void stop_serving(KEL_IPC *ipc, const char *name) {
  void *buffer = KEL_IPCGetMsg(ipc, NULL);
  KEL_IPCClose(ipc);
  KEL_Free(buffer, 0); /* closing leaves it to us */
  mq_unlink(name);
}
/* --- */

/* --- receive --- */
/* A message that another process wrote: its length is a claim. */
static int receive(KEL_IPC *ipc, struct message *message, uint64_t limit_ms) {
  const uint64_t deadline = KEL_GetSystemTick() + limit_ms;
  for (;;) {
    const uint64_t now = KEL_GetSystemTick();
    if (now >= deadline)
      return -ETIMEDOUT;
    const uint64_t left = deadline - now;
    /* Waits above 4294 ms wrap around: make long ones of short ones. */
    const int result = KEL_IPCReceive(ipc, message, left < kWaitMs ? (uint32_t)left : kWaitMs);
    if (result == -ETIMEDOUT)
      continue;
    if (result != 0)
      return result;
    return message->header.length >= 0 && message->header.length <= kPayload ? 0 : -EINVAL;
  }
}
/* --- */

int main(void) {
  char name[64];
  snprintf(name, sizeof name, "/guide-receiver.%d", (int)getpid());
  KEL_IPC *ipc = serve(name);
  REQUIRE(ipc != NULL);
  struct message message = {{0, 5, 0}, "pause"};
  REQUIRE(KEL_IPCSend(ipc, &message, 0, 100) == 0);
  memset(&message, 0, sizeof message);
  REQUIRE(receive(ipc, &message, 1000) == 0);
  printf("%.*s\n", (int)message.header.length, message.payload);
  printf("nothing more: %s\n", receive(ipc, &message, 20) == -ETIMEDOUT ? "yes" : "no");
  stop_serving(ipc, name);
  return 0;
}
