/* A periodic timer. Its callback runs in signal context, on whatever thread the
 * signal reaches: it posts a semaphore and does nothing else. */
#include <kelcore_sema.h>
#include <kelcore_time.h>

#include "require.h"

static void tick(void *argument) {
  KEL_SemaPut(argument);
}

int main(void) {
  KEL_SEMA *ticks = KEL_SemaCreate(NULL, 0);
  REQUIRE(ticks != NULL);
  KEL_TIMER *timer = KEL_TimerCreate(10000 /* us */, tick, ticks);
  REQUIRE(timer != NULL);
  const uint64_t begin = KEL_GetSystemTick();
  REQUIRE(KEL_TimerStart(timer, 0, 1, NULL, NULL) == 0); /* every 10 ms */

  for (int i = 1; i <= 3;) {
    /* The signal itself ends a KEL_WAIT_FOREVER wait early: wait again. */
    if (KEL_SemaGet(ticks, KEL_WAIT_FOREVER) == 0)
      printf("tick %d\n", i++);
  }
  printf("took 30 ms or more: %s\n", KEL_GetSystemTick() - begin >= 29 ? "yes" : "no");

  KEL_TimerDestroy(timer); /* no callback runs afterwards */
  KEL_SemaDestroy(ticks);
  return 0;
}
