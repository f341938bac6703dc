#include <kelcore_queue.h>

#include "require.h"

static int done;

static void perform(void *job, int32_t number) {
  REQUIRE(job == &done && number == 7);
  ++done;
}

int main(void) {
  int *job = &done;
  /* --- example --- */
  KEL_QUEUE *jobs = KEL_QueueCreate("jobs", 64);
  if (KEL_QueuePush(jobs, job, 7) != 0) /* any thread; never waits */
    printf("full\n");
  int32_t number;
  void *next = KEL_QueuePop(jobs, &number, 1000); /* one consumer at a time */
  if (next != NULL)
    perform(next, number);
  KEL_QueueDestroy(jobs);
  /* --- */
  REQUIRE(done == 1);
  return 0;
}
