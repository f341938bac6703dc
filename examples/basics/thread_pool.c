/* A thread pool: jobs are not queued. When all workers are busy, collect one
 * (KEL_ThreadPool_Stop waits for its job) and give it the next. */
#include <kelcore_threadpool.h>

#include "require.h"

enum { kJobs = 6, kWorkers = 2 };

static int32_t square(void *argument) {
  int *number = argument;
  *number *= *number;
  return 0;
}

int main(void) {
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("squares", 0, 0, kWorkers);
  REQUIRE(pool != NULL);

  int numbers[kJobs];
  int32_t workers[kJobs];
  int collected = 0;
  for (int i = 0; i < kJobs; ++i) {
    numbers[i] = i + 1;
    workers[i] = KEL_ThreadPool_Run(pool, square, &numbers[i]);
    if (workers[i] < 0) { /* none is idle: the oldest job's worker is next */
      REQUIRE(KEL_ThreadPool_Stop(pool, workers[collected++], NULL) == 0);
      workers[i] = KEL_ThreadPool_Run(pool, square, &numbers[i]);
    }
    REQUIRE(workers[i] >= 0);
  }
  /* Deleting the pool drops jobs that have not begun: collect them first. */
  while (collected < kJobs)
    REQUIRE(KEL_ThreadPool_Stop(pool, workers[collected++], NULL) == 0);
  KEL_ThreadPool_Delete(pool);

  for (int i = 0; i < kJobs; ++i)
    printf("%d%s", numbers[i], i + 1 < kJobs ? " " : "\n");
  return 0;
}
