/* Two threads share a counter under a mutex; an event says when both are done.
 *
 * An event counts its sends: two sends, two waits. */
#include <kelcore_event.h>
#include <kelcore_mutex.h>
#include <kelcore_thread.h>

#include "require.h"

struct shared {
  KEL_MUTEX *lock;
  KEL_SEMA *done;
  int counter;
};

static void *count(void *argument) {
  struct shared *shared = argument;
  for (int i = 0; i < 1000; ++i) {
    if (KEL_MutexLock(shared->lock, KEL_WAIT_FOREVER) != 0)
      break;
    ++shared->counter;
    KEL_MutexUnLock(shared->lock);
  }
  KEL_EventSend(shared->done);
  return NULL;
}

int main(void) {
  struct shared shared = {KEL_MutexCreate(), KEL_EventCreate(NULL), 0};
  REQUIRE(shared.lock != NULL && shared.done != NULL);

  KEL_THREAD *threads[2];
  for (int i = 0; i < 2; ++i) {
    /* Priority 0 is the ordinary scheduling, stack size 0 the system's. */
    threads[i] = KEL_ThreadCreate("counter", 0, 0, count, &shared);
    REQUIRE(threads[i] != NULL);
  }
  for (int i = 0; i < 2; ++i)
    REQUIRE(KEL_EventWait(shared.done, 10000) == 0);
  printf("counted to %d\n", shared.counter);

  /* Nothing more to come: a wait of 20 ms expires. */
  printf("another wait gives %d\n", (int)KEL_EventWait(shared.done, 20));

  for (int i = 0; i < 2; ++i)
    KEL_ThreadDelete(threads[i], NULL); /* joins, and releases the handle */
  KEL_EventDestroy(shared.done);
  KEL_MutexDestroy(shared.lock);
  return 0;
}
