/* A program outside this project: a queue between two threads. */
#include <kelcore/kelcore.h>
#include <stdio.h>

static void *produce(void *queue) {
  KEL_QueuePush(queue, "hello", 1);
  return NULL;
}

int main(void) {
  KEL_QUEUE *queue = KEL_QueueCreate("greetings", 8);
  KEL_THREAD *thread = KEL_ThreadCreate("producer", 0, 0, produce, queue);
  int32_t number = 0;
  const char *text = KEL_QueuePop(queue, &number, 10000);
  printf("%s %d\n", text ? text : "nothing", (int)number);
  KEL_ThreadDelete(thread, NULL);
  KEL_QueueDestroy(queue);
  return 0;
}
