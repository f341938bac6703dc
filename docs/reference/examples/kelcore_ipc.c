#include <kelcore_ipc.h>
#include <kelcore_mem.h>
#include <mqueue.h>
#include <string.h>
#include <unistd.h>

#include "require.h"

static char name[64];
static int used;

static void remove_queue(void) {
  mq_unlink(name);
}

static void use(const void *payload, int32_t length) {
  REQUIRE(length == 5 && memcmp(payload, "pause", 5) == 0);
  ++used;
}

int main(void) {
  snprintf(name, sizeof name, "/header-example.%d", (int)getpid());
  atexit(remove_queue);
  /* --- example --- */
  KEL_IPC *ipc = KEL_IPCOpen(name, 8, 256, 0);
  KEL_IPC_MSG_HEADER *m = KEL_IPCGetMsg(ipc, NULL);
  if (m != NULL) {
    m->length = 5; /* payload bytes, behind the header */
    memcpy(m + 1, "pause", 5);
    KEL_IPCSend(ipc, m, 0, 100);           /* this process */
    if (KEL_IPCReceive(ipc, m, 1000) == 0) /* another one, with a handle of its own */
      use(m + 1, m->length);
  }
  KEL_IPCClose(ipc);
  KEL_Free(m, 0);  /* closing leaves the buffer */
  mq_unlink(name); /* and the queue */
  /* --- */
  REQUIRE(used == 1);
  REQUIRE(mq_unlink(name) != 0);
  return 0;
}
