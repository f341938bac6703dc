/* The order of things in a program's life. */
#include <kelcore.h>

#include "require.h"

enum { kWork = 1, kEnd = 2 };

struct parts {
  KEL_QUEUE *queue;
  KEL_THREAD *worker;
};

/* --- worker --- */
static void *work(void *argument) {
  KEL_QUEUE *queue = argument;
  for (;;) {
    int32_t kind = 0;
    void *entry = KEL_QueuePop(queue, &kind, KEL_WAIT_FOREVER);
    if (entry == NULL) /* a wake-up, no entry */
      continue;
    if (kind == kEnd)
      return NULL;
    printf("%s\n", (const char *)entry);
  }
}
/* --- */

static int start(struct parts *parts) {
  /* --- start --- */
  KEL_SystemInit(NULL);
  KEL_TraceInit(NULL);
  KEL_TraceSet("keltime:0,*:1"); /* no lines from a timer's signal handler */
  /* The pool first of all that may use it: list nodes and queue entries take
   * their memory there if their sizes are registered, and must give it back there. */
  KEL_SMalloc_Init();
  KEL_SMalloc_Register(24, "list nodes");
  KEL_SMalloc_Register(32, "queue entries");
  /* Then what threads share, then the threads. */
  parts->queue = KEL_QueueCreate("work", 0);
  parts->worker = KEL_ThreadCreate("worker", 0, 0, work, parts->queue);
  /* --- */
  return parts->queue != NULL && parts->worker != NULL;
}

static void stop(struct parts *parts) {
  /* --- stop --- */
  /* An entry says that this was the last one: what is queued gets done, and no
   * wake-up can be lost. Anything that is not null will do as its pointer. */
  while (KEL_QueuePush(parts->queue, parts, kEnd) != 0)
    KEL_ThreadSleep(1);
  KEL_ThreadDelete(parts->worker, NULL); /* joins */
  /* Nobody uses it any more: that is ours to see to. */
  KEL_QueueDestroy(parts->queue);
  KEL_SMalloc_UnRegister(32); /* in the reverse order */
  KEL_SMalloc_UnRegister(24);
  KEL_SMalloc_Deinit();
  KEL_TraceDeinit();
  KEL_SystemUnInit(NULL);
  /* --- */
}

int main(void) {
  struct parts parts;
  REQUIRE(start(&parts));
  char first[] = "first", second[] = "second";
  REQUIRE(KEL_QueuePush(parts.queue, first, kWork) == 0);
  REQUIRE(KEL_QueuePush(parts.queue, second, kWork) == 0);
  stop(&parts);
  return 0;
}
