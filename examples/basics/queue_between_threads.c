/* A bounded queue between two threads. The queue carries pointers; who pops one
 * owns what it points to. */
#include <kelcore_queue.h>
#include <kelcore_thread.h>

#include "require.h"

enum { kItems = 5, kPlaces = 2 };
enum { kItem = 1, kEnd = 2 };

static void *produce(void *argument) {
  KEL_QUEUE *queue = argument;
  for (int i = 1; i <= kItems; ++i) {
    int *item = malloc(sizeof *item);
    if (item == NULL)
      return NULL;
    *item = i * i;
    /* A full queue refuses at once: it never waits for room. */
    while (KEL_QueuePush(queue, item, kItem) != 0)
      KEL_ThreadSleep(1);
  }
  while (KEL_QueuePush(queue, queue, kEnd) != 0)
    KEL_ThreadSleep(1);
  return NULL;
}

int main(void) {
  KEL_QUEUE *queue = KEL_QueueCreate("squares", kPlaces);
  REQUIRE(queue != NULL);
  KEL_THREAD *producer = KEL_ThreadCreate("producer", 0, 0, produce, queue);
  REQUIRE(producer != NULL);

  for (;;) {
    int32_t kind = 0;
    void *data = KEL_QueuePop(queue, &kind, KEL_WAIT_FOREVER);
    /* Also an unbounded wait can come back with nothing: a signal, or a
     * wake-up whose item another thread took. Wait again. */
    if (data == NULL)
      continue;
    if (kind == kEnd)
      break;
    printf("%d\n", *(int *)data);
    free(data);
  }

  KEL_ThreadDelete(producer, NULL);
  KEL_QueueDestroy(queue);
  return 0;
}
