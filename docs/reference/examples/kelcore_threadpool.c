#include <kelcore_threadpool.h>

#include "require.h"

static int32_t decode(void *frame) {
  return *(int *)frame + 1;
}

int main(void) {
  int number = 41, *frame = &number;
  int32_t result = 0;
  /* --- example --- */
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("decoder", 0, 0, 4);
  int32_t worker = KEL_ThreadPool_Run(pool, decode, frame);
  if (worker >= 0)                              /* else all are busy */
    KEL_ThreadPool_Stop(pool, worker, &result); /* waits for the job */
  KEL_ThreadPool_Delete(pool);
  /* --- */
  REQUIRE(result == 42);
  return 0;
}
